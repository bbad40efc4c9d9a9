#include "videoencoder.h"

#include "failures.h"
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
#include <thread>
#include <utility>

namespace {

using Coding = Compressor::Coding;

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

struct FrameDeleter
{
    void operator()(AVFrame *frame) const
    {
        av_frame_free(&frame);
    }
};

std::size_t PaddedLine(std::size_t bytes)
{
    return (bytes + 63) / 64 * 64;
}

} // namespace

Compressor const *Compressor::Find(std::string const &name)
{
    for (Compressor const &candidate : s_compressors) {
        if (name == candidate.name && IsThere(candidate))
            return &candidate;
    }
    return nullptr;
}

std::vector<std::string> Compressor::Names()
{
    std::vector<std::string> names;
    for (Compressor const &compressor : s_compressors) {
        if (IsThere(compressor))
            names.emplace_back(compressor.name);
    }
    return names;
}

int ErrnoOf(int averror)
{
    return averror >= 0 ? 0 : AVUNERROR(averror) > 0 && AVUNERROR(averror) < 4096 ? AVUNERROR(averror) : EIO;
}

VideoEncoder::VideoEncoder(Compressor const &compressor, int jpegQuality, Sink sink)
    : m_compressor(compressor),
      m_jpegQuality(jpegQuality),
      m_sink(std::move(sink))
{
}

VideoEncoder::~VideoEncoder()
{
    avcodec_free_context(&m_codec);
    av_packet_free(&m_packet);
    if (m_planes)
        tjDestroy(m_planes);
}

int VideoEncoder::Start(_TovImage const &image, AVStream &stream)
{
    AVCodec const *const encoder = avcodec_find_encoder_by_name(m_compressor.encoder);
    m_codec = avcodec_alloc_context3(encoder);
    m_packet = av_packet_alloc();
    if (!m_codec || !m_packet)
        return ENOMEM;
    m_codec->width = int(image.width);
    m_codec->height = int(image.height);
    m_codec->time_base = stream.time_base;
    m_codec->framerate = av_inv_q(stream.time_base);
    m_codec->thread_count = int(std::clamp(std::thread::hardware_concurrency(), 1u, 16u));
    // Several threads for one frame, none for frames ahead: each frame is in the file before the next one is taken.
    m_codec->thread_type = FF_THREAD_SLICE;
    m_codec->max_b_frames = 0;
    m_codec->color_range = AVCOL_RANGE_JPEG;
    if (m_compressor.coding == Coding::Lossless)
        SetLossless(image);
    else if (m_compressor.coding == Coding::Jpeg)
        SetJpeg();
    else
        SetH264((image.width | image.height) % 2 == 0); // halved colour planes want even sides
    int const status = avcodec_open2(m_codec, encoder, nullptr);
    if (status < 0)
        return status == AVERROR(ENOMEM) ? ENOMEM : NoEncoder;
    return ErrnoOf(avcodec_parameters_from_context(stream.codecpar, m_codec));
}

void VideoEncoder::SetLossless(_TovImage const &image)
{
    std::uint32_t const pixelType = image.pixelType;
    m_codec->pix_fmt = pixelType == TV_PIXEL_MONO8    ? AV_PIX_FMT_GRAY8
                       : pixelType == TV_PIXEL_MONO16 ? AV_PIX_FMT_GRAY16LE
                       : pixelType == TV_PIXEL_BGRA8  ? AV_PIX_FMT_BGR0
                                                      : AV_PIX_FMT_RGB48LE;
    // The third version has slices for threads, which lose the pixels of pictures a few of them wide or high.
    constexpr std::uint32_t Small = 16;
    m_codec->level = std::min(image.width, image.height) < Small ? 1 : 3;
    m_codec->gop_size = 1;
    if (m_codec->pix_fmt == AV_PIX_FMT_BGR0 || m_codec->pix_fmt == AV_PIX_FMT_RGB48LE)
        m_codec->color_range = AVCOL_RANGE_UNSPECIFIED;
}

void VideoEncoder::SetJpeg()
{
    m_codec->pix_fmt = AV_PIX_FMT_YUVJ420P;
    // The scale of the quantisation tables in eighths, as of JPEG's percent.
    int const percent = m_jpegQuality < 50 ? 5000 / m_jpegQuality : 200 - 2 * m_jpegQuality;
    m_codec->flags |= AV_CODEC_FLAG_QSCALE;
    m_codec->qmin = 1;
    m_codec->global_quality = FF_QP2LAMBDA * std::clamp((8 * percent + 50) / 100, 1, 31);
    av_opt_set(m_codec->priv_data, "huffman", "default", 0);
}

void VideoEncoder::SetH264(bool halved)
{
    m_codec->pix_fmt = halved ? AV_PIX_FMT_YUV420P : AV_PIX_FMT_YUV444P;
    m_codec->colorspace = AVCOL_SPC_BT470BG;
    av_opt_set(m_codec->priv_data, "preset", "veryfast", 0);
    av_opt_set(m_codec->priv_data, "tune", "zerolatency", 0);
    av_opt_set(m_codec->priv_data, "crf", "18", 0);
}

int VideoEncoder::Encode(_TovImage const &image)
{
    std::unique_ptr<AVFrame, FrameDeleter> const frame(av_frame_alloc());
    if (!frame)
        return ENOMEM;
    if (int const error = MakeFrame(image, *frame))
        return error;
    ++m_sent;
    return Send(frame.get());
}

int VideoEncoder::Finish()
{
    return Send(nullptr);
}

// Fills the planes of a frame of the encoder, which keeps it while its threads work on it.
int VideoEncoder::MakeFrame(_TovImage const &image, AVFrame &frame)
{
    frame.format = m_codec->pix_fmt;
    frame.width = m_codec->width;
    frame.height = m_codec->height;
    frame.color_range = m_codec->color_range;
    frame.pts = m_sent;

    bool const planes = m_compressor.coding != Coding::Lossless;
    bool const halved = m_codec->pix_fmt != AV_PIX_FMT_YUV444P;
    std::size_t const width = planes ? image.width : std::size_t(LineBytes(image)), height = image.height;
    std::size_t const step = PaddedLine(width);
    std::size_t const chromaStep = !planes ? 0 : halved ? PaddedLine((width + 1) / 2) : step;
    std::size_t const chromaHeight = halved ? (height + 1) / 2 : height;
    // Halving fills up the last line of an odd height.
    std::size_t const luma = step * (planes && halved ? 2 * chromaHeight : height);
    std::size_t const bytes = luma + 2 * chromaStep * chromaHeight + AV_INPUT_BUFFER_PADDING_SIZE;
    auto *const memory = static_cast<std::uint8_t *>(TovAllocFrameMemory(bytes));
    if (!memory)
        return ENOMEM;
    frame.buf[0] =
        av_buffer_create(memory, bytes, [](void *, std::uint8_t *data) { TovFreeFrameMemory(data); }, nullptr, 0);
    if (!frame.buf[0]) {
        TovFreeFrameMemory(memory);
        return ENOMEM;
    }
    frame.data[0] = memory;
    frame.linesize[0] = int(step);
    if (planes) {
        frame.data[1] = memory + luma;
        frame.data[2] = frame.data[1] + chromaStep * chromaHeight;
        frame.linesize[1] = frame.linesize[2] = int(chromaStep);
    }
    if (planes && image.pixelType != TV_PIXEL_MONO8) {
        if (!m_planes)
            m_planes = tjInitCompress();
        std::array<int, 3> strides{int(step), int(chromaStep), int(chromaStep)};
        if (!m_planes ||
            tjEncodeYUVPlanes(m_planes, image.imageData, int(image.width), int(LineStep(image)), int(height), TJPF_BGR,
                              frame.data, strides.data(), halved ? TJSAMP_420 : TJSAMP_444, 0) != 0)
            return ENOMEM;
        return 0;
    }
    for (std::size_t y = 0; y < height; ++y)
        std::memcpy(memory + y * step, image.imageData + y * LineStep(image), width);
    if (planes)
        std::memset(frame.data[1], 128, 2 * chromaStep * chromaHeight);
    return 0;
}

// A frame to the encoder, or null for the end, and what comes out of it to the file.
int VideoEncoder::Send(AVFrame *frame)
{
    int status = avcodec_send_frame(m_codec, frame);
    for (bool const again = status == AVERROR(EAGAIN); status >= 0 || again;) {
        int const received = avcodec_receive_packet(m_codec, m_packet);
        if (received == AVERROR(EAGAIN) || received == AVERROR_EOF)
            break;
        if (received < 0)
            return ErrnoOf(received);
        int const error = m_sink(*m_packet);
        av_packet_unref(m_packet);
        if (error)
            return error;
    }
    if (status == AVERROR(EAGAIN))
        status = avcodec_send_frame(m_codec, frame);
    return ErrnoOf(status);
}
