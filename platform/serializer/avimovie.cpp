// AVI through libavformat and libavcodec. The container's bytes come from there.
#include "avibytes.h"
#include "framememory.h"
#include "framerate.h"
#include "movieformats.h"
#include "pixellayout.h"
#include "videoencoder.h"

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/opt.h>
}

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

namespace {

using Coding = Compressor::Coding;

struct PacketDeleter
{
    void operator()(AVPacket *packet) const
    {
        av_packet_free(&packet);
    }
};

class AviMovie : public Movie
{
public:
    AviMovie(Compressor const &compressor, int jpegQuality) : m_compressor(compressor), m_jpegQuality(jpegQuality)
    {
        if (av_log_get_level() > AV_LOG_ERROR)
            av_log_set_level(AV_LOG_ERROR); // encoders are talkative
    }
    ~AviMovie() override
    {
        Close();
        avformat_free_context(m_format);
    }

    std::uint32_t Accepts(std::uint32_t, TovPixelTypeInfo const *info) const override
    {
        if (!info)
            return 0;
        bool const colour = info->family != TOV_FAMILY_MONO;
        if (m_compressor.coding == Coding::Lossless) {
            if (info->bitDepth > 8)
                return colour ? TV_PIXEL_RGB16 : TV_PIXEL_MONO16;
            return colour ? TV_PIXEL_BGRA8 : TV_PIXEL_MONO8;
        }
        return colour ? TV_PIXEL_BGR8 : TV_PIXEL_MONO8;
    }

    int Open(std::string const &name, _TovImage const &image, double fps) override
    {
        constexpr int LongestSide = 32767; // what FFmpeg's own checks accept for any format
        if (image.width > LongestSide || image.height > LongestSide || StoredBytes(image) > INT_MAX - 65536)
            return TooLarge;
        FrameRate const rate = ToFrameRate(fps);
        m_timeBase = {rate.scale, rate.rate};
        m_direct = m_compressor.coding == Coding::None && StoredBytes(image) >= DirectFrame;
        AVStream *const stream = MakeStream();
        if (!stream)
            return ENOMEM;
        if (int const error =
                m_compressor.coding == Coding::None ? DescribeRaw(image, *stream) : StartEncoder(image, *stream))
            return error;
        if (int const error = m_file.CreateVisible(name, m_direct ? OutFile::Road::Direct : OutFile::Road::Cached))
            return error;
        // Each gigabyte takes an entry of the head's index; without asking there is room for 256.
        av_opt_set_int(m_format->priv_data, "reserve_index_space", 64 * 1024, 0);
        int const status = avformat_write_header(m_format, nullptr);
        int error = m_bytes.Flush();
        if (!error)
            error = status < 0 ? ErrnoOf(status) : m_bytes.CorrectHead(stream->time_base, m_timeBase);
        if (!error)
            error = m_file.Flush();
        if (error) {
            m_file.Abandon();
            return error;
        }
        m_headerWritten = true;
        return 0;
    }

    int Write(_TovImage const &image) override
    {
        if (m_failure)
            return m_failure;
        if (m_encoder)
            return m_encoder->Encode(image);
        std::uint8_t *data = Stored(image);
        if (!data)
            return ENOMEM;
        m_raw->data = data;
        m_raw->size = int(StoredBytes(image));
        m_raw->flags = AV_PKT_FLAG_KEY;
        int const error = WritePacket(*m_raw);
        m_raw->data = nullptr;
        return error;
    }

    int Close() override
    {
        if (!m_file.IsOpen())
            return 0;
        int error = m_failure;
        if (!error && m_encoder)
            error = m_encoder->Finish();
        if (m_headerWritten && !m_bytes.Error()) {
            std::uint64_t const end = m_file.Size();
            m_bytes.Hold();
            int const status = av_write_trailer(m_format);
            int const writing = m_bytes.Release();
            if (writing || status < 0) {
                error = writing ? writing : ErrnoOf(status);
                CutTo(end);
            }
        }
        bool const lost = m_file.IsLost();
        int const closing = m_file.Close();
        if (lost)
            m_readable = 0;
        else if (m_uncut || closing)
            m_readable = -1;
        return lost ? LOST : error ? error : closing;
    }

private:
    // The container with its one stream, whose bytes come to us; null when there is no memory.
    AVStream *MakeStream()
    {
        if (avformat_alloc_output_context2(&m_format, nullptr, "avi", nullptr) < 0)
            return nullptr;
        m_format->pb = m_bytes.Make();
        AVStream *const stream = avformat_new_stream(m_format, nullptr);
        if (!stream || !m_format->pb)
            return nullptr;
        stream->time_base = m_timeBase;
        stream->avg_frame_rate = av_inv_q(m_timeBase);
        return stream;
    }

    int StartEncoder(_TovImage const &image, AVStream &stream)
    {
        m_encoder = std::make_unique<VideoEncoder>(m_compressor, m_jpegQuality,
                                                   [this](AVPacket &packet) { return WritePacket(packet); });
        return m_encoder->Start(image, stream);
    }

    void CutTo(std::uint64_t size)
    {
        if (m_file.CutTo(size) != 0)
            m_uncut = true;
    }

    static bool IsGrey(_TovImage const &image)
    {
        return image.pixelType == TV_PIXEL_MONO8;
    }

    // ---- Without a compressor: the lines, those of colour pictures at multiples of four bytes ----------------------

    static std::uint64_t StoredLineBytes(_TovImage const &image)
    {
        return IsGrey(image) ? LineBytes(image) : (LineBytes(image) + 3) / 4 * 4;
    }
    static std::uint64_t StoredBytes(_TovImage const &image)
    {
        return StoredLineBytes(image) * image.height;
    }

    int DescribeRaw(_TovImage const &image, AVStream &stream)
    {
        m_raw.reset(av_packet_alloc());
        if (!m_raw)
            return ENOMEM;
        bool const grey = IsGrey(image);
        AVCodecParameters &codec = *stream.codecpar;
        codec.codec_type = AVMEDIA_TYPE_VIDEO;
        codec.codec_id = AV_CODEC_ID_RAWVIDEO;
        codec.format = grey ? AV_PIX_FMT_GRAY8 : AV_PIX_FMT_BGR24;
        codec.codec_tag = grey ? MKTAG('Y', '8', '0', '0') : 0;
        codec.bits_per_coded_sample = grey ? 8 : 24;
        codec.width = int(image.width);
        codec.height = int(image.height);
        return 0;
    }

    std::uint8_t *Stored(_TovImage const &image)
    {
        std::uint64_t const step = StoredLineBytes(image), bytes = LineBytes(image);
        if (LineStep(image) == step)
            return image.imageData;
        std::uint8_t *const lines = m_lines.TryGet(std::size_t(step * image.height));
        for (std::uint32_t y = 0; lines && y < image.height; ++y) {
            std::memcpy(lines + y * step, image.imageData + y * LineStep(image), std::size_t(bytes));
            std::memset(lines + y * step + bytes, 0, std::size_t(step - bytes));
        }
        return lines;
    }

    int WriteChunk(AVPacket &packet)
    {
        constexpr std::int64_t ChunkHead = 8, Padding = 1;
        std::int64_t const end = m_bytes.Position() + ChunkHead + packet.size + Padding;
        int const status = av_write_frame(m_format, &packet);
        if (m_bytes.Error() || status < 0)
            return m_bytes.Error() ? m_bytes.Error() : ErrnoOf(status);
        if (m_firstPart || m_bytes.Position() <= end)
            return 0;
        // More than the frame was written, so that a further part begins with it. The head is to tell the frames of the
        // first one; libavformat has counted this one in.
        m_firstPart = true;
        return m_bytes.CorrectCount(std::uint32_t(m_readable));
    }

    // A frame on the direct road: its pixels begin at a page and need not be copied, and what follows fills one, so
    // that all of it is written when this returns.
    int WriteAligned(AVPacket &packet)
    {
        constexpr std::uint64_t ChunkHead = 8;
        if (int const error = m_bytes.WritePadding(ChunkHead))
            return error;
        if (int const error = WriteChunk(packet))
            return error;
        if (int const error = m_bytes.WritePadding(0))
            return error;
        int const error = m_bytes.Flush();
        return error ? error : m_file.Flush();
    }

    // The next frame. After a failure the file ends with the frame before, and later packets of the encoder do not fit
    // there.
    int WritePacket(AVPacket &packet)
    {
        packet.pts = packet.dts = m_readable;
        packet.duration = 1;
        // A full disk is noticed before the frame is begun, and leaves room for the indexes: 16 bytes a frame in one
        // and 8 in the other.
        constexpr std::uint64_t Slack = 128 * 1024;
        if (int const error =
                m_file.Reserve(std::uint64_t(packet.size) + 24 * (std::uint64_t(m_readable) + 1) + Slack)) {
            if (m_encoder)
                m_failure = error;
            return error;
        }
        m_bytes.Flush();
        std::uint64_t const begin = m_file.Size();
        int error = 0;
        if (m_direct) {
            error = WriteAligned(packet);
        } else {
            error = WriteChunk(packet);
            int const flushing = m_bytes.Flush();
            if (!error)
                error = flushing;
        }
        if (error) {
            m_failure = error;
            m_bytes.Fail(error); // libavformat has taken the frame into its index: nothing more is asked of it
            CutTo(begin);
            return error;
        }
        ++m_readable;
        return 0;
    }

    Compressor const &m_compressor;
    int const m_jpegQuality;
    AviBytes m_bytes{m_file};
    int m_failure = 0;    // no frame is taken after it
    bool m_uncut = false; // something is left after the last whole frame
    bool m_direct = false;
    bool m_headerWritten = false;
    bool m_firstPart = false; // is complete
    AVRational m_timeBase{1, 1};
    AVFormatContext *m_format = nullptr;
    std::unique_ptr<VideoEncoder> m_encoder;        // null without a compressor,
    std::unique_ptr<AVPacket, PacketDeleter> m_raw; // which then holds the frame
    FrameMemory<std::uint8_t> m_lines;
};

} // namespace

std::unique_ptr<Movie> MakeAviMovie(std::string const &compressor, int jpegQuality)
{
    Compressor const *const found = Compressor::Find(compressor);
    return found ? std::make_unique<AviMovie>(*found, std::clamp(jpegQuality, 1, 100)) : nullptr;
}

std::vector<std::string> AviCompressors()
{
    return Compressor::Names();
}
