// AVI through libavformat and libavcodec. The container's bytes come from there; where they go is our OutFile's matter.
#include "movieformats.h"
#include "pixellayout.h"

#include <turbojpeg.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/opt.h>
}

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <string_view>
#include <thread>

namespace {

enum class Coding { None, Jpeg, Lossless, H264 };

struct Compressor
{
    char const *name;
    char const *encoder; // FFmpeg's name
    Coding coding;
};

constexpr Compressor s_compressors[] = {
    {"Uncompressed", nullptr, Coding::None},
    {"MJPEG", "mjpeg", Coding::Jpeg},
    {"FFV1", "ffv1", Coding::Lossless},
    {"H.264", "libx264", Coding::H264},
};

bool IsThere(Compressor const &compressor)
{
    return !compressor.encoder || avcodec_find_encoder_by_name(compressor.encoder);
}

int ToErrno(int averror)
{
    return averror >= 0 ? 0 : AVUNERROR(averror) > 0 && AVUNERROR(averror) < 4096 ? AVUNERROR(averror) : EIO;
}

template<class T, void (*FREE)(T **)>
struct Freer
{
    void operator()(T *object) const
    {
        FREE(&object);
    }
};
using FramePtr = std::unique_ptr<AVFrame, Freer<AVFrame, av_frame_free>>;
using PacketPtr = std::unique_ptr<AVPacket, Freer<AVPacket, av_packet_free>>;
using CodecPtr = std::unique_ptr<AVCodecContext, Freer<AVCodecContext, avcodec_free_context>>;

class AviMovie : public Movie
{
public:
    AviMovie(Compressor const &compressor, int quality) : m_compressor(compressor), m_quality(quality)
    {
        if (av_log_get_level() > AV_LOG_ERROR)
            av_log_set_level(AV_LOG_ERROR); // encoders are talkative
    }
    ~AviMovie() override
    {
        Close();
        avformat_free_context(m_format);
        if (m_io) {
            av_freep(&m_io->buffer);
            avio_context_free(&m_io);
        }
        if (m_planes)
            tjDestroy(m_planes);
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
        constexpr int LONGEST_SIDE = 32767; // what FFmpeg's own checks let pass with any format
        if (image.width > LONGEST_SIDE || image.height > LONGEST_SIDE || StoredBytes(image) > INT_MAX - 65536)
            return TOO_LARGE;
        FrameRate const rate = ToFrameRate(fps);
        m_timeBase = {rate.scale, rate.rate};
        m_direct = m_compressor.coding == Coding::None && StoredBytes(image) >= DIRECT_FRAME;
        m_packet.reset(av_packet_alloc());
        if (!m_packet || avformat_alloc_output_context2(&m_format, nullptr, "avi", nullptr) < 0)
            return ENOMEM;
        AVStream *const stream = avformat_new_stream(m_format, nullptr);
        constexpr int IO_BUFFER = 32 * 1024;
        auto *const buffer = static_cast<std::uint8_t *>(av_malloc(IO_BUFFER));
        m_io = avio_alloc_context(buffer, IO_BUFFER, 1, this, nullptr, &AviMovie::WriteBytes, &AviMovie::Seek);
        if (!stream || !m_io)
            return ENOMEM;
        m_io->direct = 1; // large pieces come to us as they are
        m_format->pb = m_io;
        stream->time_base = m_timeBase;
        stream->avg_frame_rate = av_inv_q(m_timeBase);
        if (int const error = m_compressor.encoder ? StartEncoder(image, *stream) : DescribeRaw(image, *stream))
            return error;
        if (int const error = m_file.CreateVisible(name, m_direct ? OutFile::Road::Direct : OutFile::Road::Cached))
            return error;
        // Each gigabyte takes an entry of the head's index; without asking there is room for 256.
        av_opt_set_int(m_format->priv_data, "reserve_index_space", 64 * 1024, 0);
        int const status = avformat_write_header(m_format, nullptr);
        avio_flush(m_io);
        int const error = m_error ? m_error : status < 0 ? ToErrno(status) : SetRate(*stream);
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
        if (m_codec)
            return Encode(image);
        std::uint8_t *data = Stored(image);
        if (!data)
            return ENOMEM;
        m_packet->data = data;
        m_packet->size = int(StoredBytes(image));
        m_packet->flags = AV_PKT_FLAG_KEY;
        int const error = WritePacket();
        m_packet->data = nullptr;
        return error;
    }

    int Close() override
    {
        if (!m_file.IsOpen())
            return 0;
        int error = m_failure;
        if (!error && m_codec)
            error = Send(nullptr);
        if (m_headerWritten && !m_error) {
            std::uint64_t const end = m_file.Size();
            int const status = av_write_trailer(m_format);
            if (m_error || status < 0) {
                error = m_error ? m_error : ToErrno(status);
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
    // Const from FFmpeg 7 on.
    template<class T>
    static T BytesOf(int (*)(void *, T, int));
    using Bytes = decltype(BytesOf(AVIOContext::write_packet));

    static int WriteBytes(void *self, Bytes bytes, int size)
    {
        auto *movie = static_cast<AviMovie *>(self);
        if (!movie->m_headerWritten && movie->m_rateAt == 0) {
            constexpr std::size_t RATE = 28; // of the tag to the rate's two numbers
            std::string_view const text(reinterpret_cast<char const *>(bytes), std::size_t(size));
            if (std::size_t const at = text.find("strh"); at != std::string_view::npos)
                movie->m_rateAt = movie->m_position + at + RATE;
        }
        if (!movie->m_error)
            movie->m_error = movie->m_file.WriteAt(movie->m_position, bytes, std::size_t(size));
        if (movie->m_error)
            return AVERROR(movie->m_error);
        movie->m_position += std::uint64_t(size);
        return size;
    }

    static std::int64_t Seek(void *self, std::int64_t offset, int whence)
    {
        auto *movie = static_cast<AviMovie *>(self);
        switch (whence & ~AVSEEK_FORCE) {
        case AVSEEK_SIZE:
            return std::int64_t(movie->m_file.Size());
        case SEEK_SET:
            break;
        case SEEK_CUR:
            offset += std::int64_t(movie->m_position);
            break;
        case SEEK_END:
            offset += std::int64_t(movie->m_file.Size());
            break;
        default:
            return AVERROR(EINVAL);
        }
        movie->m_position = std::uint64_t(offset);
        return offset;
    }

    // libavformat declares every rate above 1000 as 600, which is not what the container can hold.
    int SetRate(AVStream const &stream)
    {
        if (av_cmp_q(stream.time_base, m_timeBase) == 0)
            return 0;
        if (m_rateAt == 0)
            return NO_RATE;
        std::array<std::uint8_t, 8> bytes{};
        for (int i = 0; i < 4; ++i) {
            bytes[i] = std::uint8_t(unsigned(m_timeBase.num) >> 8 * i);
            bytes[4 + i] = std::uint8_t(unsigned(m_timeBase.den) >> 8 * i);
        }
        return m_file.WriteAt(m_rateAt, bytes.data(), bytes.size());
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
        std::uint8_t *const lines = m_lines.Ensure(std::size_t(step * image.height));
        for (std::uint32_t y = 0; lines && y < image.height; ++y) {
            std::memcpy(lines + y * step, image.imageData + y * LineStep(image), std::size_t(bytes));
            std::memset(lines + y * step + bytes, 0, std::size_t(step - bytes));
        }
        return lines;
    }

    // A chunk that players pass over, so that `head` bytes behind it a page begins.
    int WritePadding(std::uint64_t head)
    {
        constexpr std::uint64_t CHUNK_HEAD = 8;
        std::uint64_t const behind = std::uint64_t(avio_tell(m_io)) + head;
        std::uint64_t padding = (OutFile::PAGE - behind % OutFile::PAGE) % OutFile::PAGE;
        if (padding == 0)
            return 0;
        if (padding < CHUNK_HEAD)
            padding += OutFile::PAGE;
        static constexpr std::array<std::uint8_t, OutFile::PAGE> zeros{};
        avio_wl32(m_io, MKTAG('J', 'U', 'N', 'K'));
        avio_wl32(m_io, std::uint32_t(padding - CHUNK_HEAD));
        avio_write(m_io, zeros.data(), int(padding - CHUNK_HEAD));
        return m_error;
    }

    // A frame on the direct road: its pixels begin at a page and need not be copied, and what follows fills one, so
    // that all of it is written when this returns.
    int WriteAligned()
    {
        constexpr std::uint64_t CHUNK_HEAD = 8;
        if (int const error = WritePadding(CHUNK_HEAD))
            return error;
        int const status = av_write_frame(m_format, m_packet.get());
        if (status < 0)
            return m_error ? m_error : ToErrno(status);
        if (int const error = WritePadding(0))
            return error;
        avio_flush(m_io);
        return m_error ? m_error : m_file.Flush();
    }

    // m_packet as the next frame. After a failure the file ends behind the frame before, and what an encoder makes does
    // not fit there any more.
    int WritePacket()
    {
        m_packet->pts = m_packet->dts = m_readable;
        m_packet->duration = 1;
        // A full disk shows before the frame is begun, and leaves room for the indexes: 16 bytes a frame in one and 8
        // in the other.
        constexpr std::uint64_t SLACK = 128 * 1024;
        if (int const error =
                m_file.Reserve(std::uint64_t(m_packet->size) + 24 * (std::uint64_t(m_readable) + 1) + SLACK)) {
            if (m_codec)
                m_failure = error;
            return error;
        }
        avio_flush(m_io);
        std::uint64_t const begin = m_file.Size();
        int error = 0;
        if (m_direct) {
            error = WriteAligned();
        } else {
            int const status = av_write_frame(m_format, m_packet.get());
            avio_flush(m_io);
            error = m_error ? m_error : ToErrno(status);
        }
        if (error) {
            m_error = m_failure = error; // libavformat has taken the frame into its index: nothing more is asked of it
            CutTo(begin);
            return error;
        }
        ++m_readable;
        return 0;
    }

    // ---- With one --------------------------------------------------------------------------------------------------

    int StartEncoder(_TovImage const &image, AVStream &stream)
    {
        AVCodec const *const encoder = avcodec_find_encoder_by_name(m_compressor.encoder);
        m_codec.reset(avcodec_alloc_context3(encoder));
        if (!m_codec)
            return ENOMEM;
        AVCodecContext &codec = *m_codec;
        codec.width = int(image.width);
        codec.height = int(image.height);
        codec.time_base = m_timeBase;
        codec.framerate = av_inv_q(m_timeBase);
        codec.thread_count = int(std::clamp(std::thread::hardware_concurrency(), 1u, 16u));
        // Several threads for one frame, none for frames to come: each is in the file before the next one is taken.
        codec.thread_type = FF_THREAD_SLICE;
        codec.max_b_frames = 0;
        codec.color_range = AVCOL_RANGE_JPEG;
        switch (m_compressor.coding) {
        case Coding::Lossless:
            codec.pix_fmt = image.pixelType == TV_PIXEL_MONO8    ? AV_PIX_FMT_GRAY8
                            : image.pixelType == TV_PIXEL_MONO16 ? AV_PIX_FMT_GRAY16LE
                            : image.pixelType == TV_PIXEL_BGRA8  ? AV_PIX_FMT_BGR0
                                                                 : AV_PIX_FMT_RGB48LE;
            codec.level = 3; // threads
            codec.gop_size = 1;
            if (codec.pix_fmt == AV_PIX_FMT_BGR0 || codec.pix_fmt == AV_PIX_FMT_RGB48LE)
                codec.color_range = AVCOL_RANGE_UNSPECIFIED;
            break;
        case Coding::Jpeg: {
            codec.pix_fmt = AV_PIX_FMT_YUVJ420P;
            // The scale of the quantisation tables in eighths, as of JPEG's percent.
            int const percent = m_quality < 50 ? 5000 / m_quality : 200 - 2 * m_quality;
            codec.flags |= AV_CODEC_FLAG_QSCALE;
            codec.qmin = 1;
            codec.global_quality = FF_QP2LAMBDA * std::clamp((8 * percent + 50) / 100, 1, 31);
            av_opt_set(codec.priv_data, "huffman", "default", 0);
            break;
        }
        default:
            // Halved colour planes want even sides.
            codec.pix_fmt = (image.width | image.height) & 1 ? AV_PIX_FMT_YUV444P : AV_PIX_FMT_YUV420P;
            codec.colorspace = AVCOL_SPC_BT470BG;
            av_opt_set(codec.priv_data, "preset", "veryfast", 0);
            av_opt_set(codec.priv_data, "tune", "zerolatency", 0);
            av_opt_set(codec.priv_data, "crf", "18", 0);
        }
        int const status = avcodec_open2(&codec, encoder, nullptr);
        if (status < 0)
            return status == AVERROR(ENOMEM) ? ENOMEM : NO_ENCODER;
        return ToErrno(avcodec_parameters_from_context(stream.codecpar, &codec));
    }

    // The planes of a frame of the encoder's, which keeps the frame while its threads work on it.
    int Encode(_TovImage const &image)
    {
        FramePtr frame(av_frame_alloc());
        if (!frame)
            return ENOMEM;
        frame->format = m_codec->pix_fmt;
        frame->width = m_codec->width;
        frame->height = m_codec->height;
        frame->color_range = m_codec->color_range;
        frame->pts = m_sent;

        bool const planes = m_compressor.coding != Coding::Lossless;
        bool const halved = m_codec->pix_fmt != AV_PIX_FMT_YUV444P;
        std::size_t const width = planes ? image.width : std::size_t(LineBytes(image)), height = image.height;
        std::size_t const step = (width + 63) / 64 * 64;
        std::size_t const chromaStep = !planes ? 0 : halved ? ((width + 1) / 2 + 63) / 64 * 64 : step;
        std::size_t const chromaHeight = halved ? (height + 1) / 2 : height;
        // Halving fills up the last line of an odd height.
        std::size_t const luma = step * (planes && halved ? 2 * chromaHeight : height);
        std::size_t const bytes = luma + 2 * chromaStep * chromaHeight + AV_INPUT_BUFFER_PADDING_SIZE;
        auto *const memory = static_cast<std::uint8_t *>(TovAllocFrameMemory(bytes));
        if (!memory)
            return ENOMEM;
        frame->buf[0] =
            av_buffer_create(memory, bytes, [](void *, std::uint8_t *data) { TovFreeFrameMemory(data); }, nullptr, 0);
        if (!frame->buf[0]) {
            TovFreeFrameMemory(memory);
            return ENOMEM;
        }
        frame->data[0] = memory;
        frame->linesize[0] = int(step);
        if (planes) {
            frame->data[1] = memory + luma;
            frame->data[2] = frame->data[1] + chromaStep * chromaHeight;
            frame->linesize[1] = frame->linesize[2] = int(chromaStep);
        }
        if (planes && !IsGrey(image)) {
            if (!m_planes)
                m_planes = tjInitCompress();
            std::array<int, 3> strides{int(step), int(chromaStep), int(chromaStep)};
            if (!m_planes ||
                tjEncodeYUVPlanes(m_planes, image.imageData, int(image.width), int(LineStep(image)), int(height),
                                  TJPF_BGR, frame->data, strides.data(), halved ? TJSAMP_420 : TJSAMP_444, 0) != 0)
                return ENOMEM;
        } else {
            for (std::size_t y = 0; y < height; ++y)
                std::memcpy(memory + y * step, image.imageData + y * LineStep(image), width);
            if (planes)
                std::memset(frame->data[1], 128, 2 * chromaStep * chromaHeight);
        }
        ++m_sent;
        return Send(frame.get());
    }

    // A frame to the encoder, or null for the end, and what comes out of it to the file.
    int Send(AVFrame *frame)
    {
        int status = avcodec_send_frame(m_codec.get(), frame);
        for (bool const again = status == AVERROR(EAGAIN); status >= 0 || again;) {
            int const received = avcodec_receive_packet(m_codec.get(), m_packet.get());
            if (received == AVERROR(EAGAIN) || received == AVERROR_EOF)
                break;
            if (received < 0)
                return ToErrno(received);
            int const error = WritePacket();
            av_packet_unref(m_packet.get());
            if (error)
                return error;
        }
        if (status == AVERROR(EAGAIN))
            status = avcodec_send_frame(m_codec.get(), frame);
        return ToErrno(status);
    }

    Compressor const &m_compressor;
    int const m_quality;
    std::uint64_t m_position = 0; // where libavformat writes next
    std::uint64_t m_rateAt = 0;   // where the head tells the rate
    int m_error = 0;              // of the file; nothing is written after it
    int m_failure = 0;            // no frame is taken after it
    bool m_uncut = false;         // something is left behind the last whole frame
    bool m_direct = false;
    bool m_headerWritten = false;
    std::int64_t m_sent = 0; // frames given to the encoder
    AVRational m_timeBase{1, 1};
    AVFormatContext *m_format = nullptr;
    AVIOContext *m_io = nullptr;
    PacketPtr m_packet;
    CodecPtr m_codec;
    tjhandle m_planes = nullptr;
    FrameMemory m_lines;
};

} // namespace

std::unique_ptr<Movie> MakeAviMovie(std::string const &compressor, int jpegQuality)
{
    for (Compressor const &candidate : s_compressors) {
        if (compressor == candidate.name && IsThere(candidate))
            return std::make_unique<AviMovie>(candidate, std::clamp(jpegQuality, 1, 100));
    }
    return nullptr;
}

std::vector<std::string> AviCompressors()
{
    std::vector<std::string> names;
    for (Compressor const &compressor : s_compressors) {
        if (IsThere(compressor))
            names.emplace_back(compressor.name);
    }
    return names;
}

FrameRate ToFrameRate(double fps)
{
    // Fine enough for the rates of television, and for one frame in ten days.
    AVRational rate = av_d2q(std::clamp(fps, 1e-6, 1e6), 1001000);
    return {std::max(rate.num, 1), std::max(rate.den, 1)};
}
