// FFmpeg's video encoders as movies use them: pictures in, packets out.
#pragma once

#include "tovimage.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

struct AVCodecContext;
struct AVFrame;
struct AVPacket;
struct AVStream;

// What a movie is compressed with.
struct Compressor
{
    enum class Coding { None, Jpeg, Lossless, H264 };

    char const *name;    // by which the operator chooses
    char const *encoder; // FFmpeg's name; null: pictures go as they are
    Coding coding;

    // Null for an unavailable one.
    static Compressor const *Find(std::string const &name);
    // Of all available ones, "Uncompressed" first.
    static std::vector<std::string> Names();
};

// 0 for no error.
int ErrnoOf(int averror);

// Operations return 0, an errno value, or one of FormatFailure. One thread at a time.
class VideoEncoder
{
public:
    // Takes a packet to the file; its error ends the operation under way.
    using Sink = std::function<int(AVPacket &)>;

    // `jpegQuality` in percent.
    VideoEncoder(Compressor const &compressor, int jpegQuality, Sink sink);
    ~VideoEncoder();
    VideoEncoder(VideoEncoder const &) = delete;
    VideoEncoder &operator=(VideoEncoder const &) = delete;

    // Begins with pictures of this shape, of a type that the movie accepts, at the stream's time base; describes the
    // content in the stream.
    int Start(_TovImage const &image, AVStream &stream);
    int Encode(_TovImage const &image);
    // The packets that are still inside.
    int Finish();

private:
    void SetLossless(_TovImage const &image);
    void SetJpeg();
    void SetH264(bool halved);
    int MakeFrame(_TovImage const &image, AVFrame &frame);
    int Send(AVFrame *frame);

    Compressor const &m_compressor;
    int const m_jpegQuality;
    Sink const m_sink;
    AVCodecContext *m_codec = nullptr;
    AVPacket *m_packet = nullptr;
    void *m_planes = nullptr; // turbojpeg's handle, which makes colour planes
    std::int64_t m_sent = 0;  // frames given to the encoder
};
