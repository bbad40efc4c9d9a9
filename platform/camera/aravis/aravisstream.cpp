#include "aravisstream.h"

#include "aravisreleases.h"
#include "genicam/genicamerror.h"
#include "genicam/guardedgenicam.h"
#include "storestatus.h"
#include "tovmisc.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;

constexpr auto ClosePatience = 1000ms;
constexpr std::chrono::microseconds CancelPeriod = 20ms;
constexpr std::size_t FrameLimit = std::size_t(1) << 30; // bytes; more than any sensor sends
constexpr std::uint32_t QueueLimit = 10000;

// Aravis sizes the socket of a stream when the first packet has been read, which is too late for the first frame. It is
// this process's socket that is bound to the stream's port.
void SizeSocket(ArvGvStream *stream, GInetAddress *host, int room)
{
    std::uint16_t const port = arv_gv_stream_get_port(stream);
    int const limit = getdtablesize();
    for (int fd = 0, missed = 0; fd < limit && missed < 1024; ++fd) {
        sockaddr_in address{};
        socklen_t size = sizeof address;
        int type = 0;
        socklen_t typeSize = sizeof type;
        if (getsockname(fd, reinterpret_cast<sockaddr *>(&address), &size) != 0) {
            ++missed;
            continue;
        }
        if (address.sin_family == AF_INET && ntohs(address.sin_port) == port &&
            std::memcmp(&address.sin_addr, g_inet_address_to_bytes(host), sizeof address.sin_addr) == 0 &&
            getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &typeSize) == 0 && type == SOCK_DGRAM)
            setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
    }
}

} // namespace

// ---- Frame -------------------------------------------------------------------------------------------------------

class AravisStream::Frame final : public TovCam::Buffer
{
public:
    static std::unique_ptr<Frame> Make(Shape const &shape, TovPixelTypeInfo const &info, std::size_t payload)
    {
        auto frame = std::make_unique<Frame>();
        std::size_t const imageSize =
            std::size_t(TovLineBytes(info.pixelType, shape.width) + shape.linePadding) * shape.height;
        // A line of 16-bit samples may be read past the pixels.
        std::size_t const pixels = std::max(payload, imageSize);
        std::size_t const size = pixels + std::size_t(shape.width) * 2;
        frame->m_memory = static_cast<std::uint8_t *>(TovAllocFrameMemory(size));
        if (!frame->m_memory)
            return nullptr;
        std::memset(frame->m_memory + payload, 0, size - payload);
        if (!TovSucceeded(
                TovCreateImageHeader(&frame->m_image, {shape.width, shape.height}, info.pixelType, 0, frame->m_memory)))
            return nullptr;
        frame->m_payload = payload;
        frame->m_room = size;
        frame->SetShape(shape, info);
        frame->m_buffer = arv_buffer_new_full(payload, frame->m_memory, frame.get(), nullptr);
        return frame;
    }

    Frame() = default;
    ~Frame()
    {
        if (m_buffer)
            g_object_unref(m_buffer);
        TovReleaseImageHeader(&m_image);
        TovFreeFrameMemory(m_memory);
    }

    _TovImage *GetImage() override
    {
        return m_image;
    }
    std::uint64_t GetBufferSize() override
    {
        return m_size;
    }
    std::uint64_t GetTimestamp() override
    {
        return m_image->timestamp;
    }
    std::uint64_t GetFrameID() override
    {
        return m_image->frameID;
    }
    bool IsIncomplete() override
    {
        return m_incomplete;
    }

    // The header for frames of that shape, whose pixels begin at `offset`. False when they would not fit.
    bool SetShape(Shape const &shape, TovPixelTypeInfo const &info, std::size_t offset = 0)
    {
        std::uint64_t const step = TovLineBytes(info.pixelType, shape.width) + shape.linePadding;
        if (shape.width == 0 || shape.height == 0 || step > FrameLimit || shape.height > FrameLimit ||
            offset > m_room || step * shape.height + std::uint64_t(shape.width) * 2 > m_room - offset)
            return false;
        m_image->pixelType = info.pixelType;
        m_image->bitDepth = info.bitDepth;
        m_image->formatClass = info.formatClass;
        m_image->bitsPerPixel = info.bitsPerPixel;
        m_image->width = shape.width;
        m_image->height = shape.height;
        m_image->lineStep = step;
        m_image->imageSize = static_cast<std::uint32_t>(step * shape.height);
        m_image->imageData = m_memory + offset;
        m_shape = shape;
        return true;
    }

    Shape m_shape;                 // of the header
    ArvBuffer *m_buffer = nullptr; // one reference of ours, and one of whoever holds the buffer
    _TovImage *m_image = nullptr;
    std::uint8_t *m_memory = nullptr;
    std::size_t m_payload = 0; // announced
    std::size_t m_room = 0;    // of the memory
    std::size_t m_size = 0;    // received
    bool m_incomplete = false;
    std::atomic<bool> m_held{false}; // between GetBuffer and QueueBuffer
};

// ---- AravisStream ------------------------------------------------------------------------------------------------

AravisStream::AravisStream(ArvDevice *device, std::recursive_mutex &access, Reachability &reachability)
    : m_device(device),
      m_access(access),
      m_reachability(reachability)
{
}

AravisStream::~AravisStream() = default;

std::int32_t AravisStream::ReadFormat(Shape &shape, std::size_t &payload, std::uint64_t &tickFrequency)
{
    auto const read = [this](char const *name, std::uint64_t limit, auto &value) {
        ErrorSlot error;
        gint64 const number = ReadGuardedInteger(m_device, name, error);
        if (error.Status() != TOV_CAM_ERR_OK)
            return error.Status();
        if (number <= 0 || static_cast<std::uint64_t>(number) > limit)
            return static_cast<std::int32_t>(TOV_CAM_ERR_GENICAM_OUT_OF_RANGE);
        value = static_cast<std::remove_reference_t<decltype(value)>>(number);
        return static_cast<std::int32_t>(TOV_CAM_ERR_OK);
    };
    std::int32_t status = read("Width", 0xFFFFFF, shape.width);
    if (status == TOV_CAM_ERR_OK)
        status = read("Height", 0xFFFFFF, shape.height);
    if (status == TOV_CAM_ERR_OK)
        status = read("PixelFormat", 0xFFFFFFFF, shape.pfnc);
    if (status == TOV_CAM_ERR_OK)
        status = read("PayloadSize", FrameLimit, payload);
    if (status != TOV_CAM_ERR_OK)
        return status;
    // A camera without the node, or whose clock stands still, counts the nanoseconds that Aravis gives.
    if (read("GevTimestampTickFrequency", std::numeric_limits<std::int64_t>::max(), tickFrequency) != TOV_CAM_ERR_OK)
        tickFrequency = 1000000000;
    return TOV_CAM_ERR_OK;
}

std::int32_t AravisStream::CreateStream(std::size_t payload)
{
    ErrorSlot error;
    m_stream = arv_device_create_stream(m_device, nullptr, nullptr, error);
    if (!m_stream) {
        return error.Status() != TOV_CAM_ERR_OK ? error.Status() : static_cast<std::int32_t>(TOV_CAM_ERR_UNKNOWN);
    }
    // Frames of a camera that runs already are not asked for before the start.
    arv_stream_stop_thread(m_stream, FALSE);
    if (ARV_IS_GV_STREAM(m_stream)) {
        // Room for bursts: two frames, whatever their size. The system cuts it to what it allows (net.core.rmem_max).
        auto const room = static_cast<gint>(std::clamp<std::size_t>(payload * 2, 4u << 20, 64u << 20));
        g_object_set(m_stream, "socket-buffer", ARV_GV_STREAM_SOCKET_BUFFER_FIXED, "socket-buffer-size", room, nullptr);
        GSocketAddress *const host = arv_gv_device_get_interface_address(ARV_GV_DEVICE(m_device));
        SizeSocket(ARV_GV_STREAM(m_stream), g_inet_socket_address_get_address(G_INET_SOCKET_ADDRESS(host)), room);
    }
    return TOV_CAM_ERR_OK;
}

std::int32_t AravisStream::AllocBufferQueue(void *, std::uint32_t count)
{
    if (count == 0 || count > QueueLimit)
        return TOV_CAM_ERR_INVALID_ARGUMENT;
    // The goodbye to an earlier ArvStream would close the channel of the new one.
    if (m_stream || (m_disposal && !Background::Wait(*m_disposal, ClosePatience)))
        return TOV_CAM_ERR_INVALID_STATE;
    m_disposal.reset();

    std::lock_guard<std::recursive_mutex> lock(m_access);
    std::int32_t status = m_reachability.Enter();
    std::size_t payload = 0;
    if (status == TOV_CAM_ERR_OK)
        status = ReadFormat(m_shape, payload, m_tickFrequency);
    TovPixelTypeInfo const *const info = status == TOV_CAM_ERR_OK ? TovGetPixelTypeInfoByPfnc(m_shape.pfnc) : nullptr;
    // Frames that nobody can read are of no use: better to say so than to show nothing.
    if (status == TOV_CAM_ERR_OK &&
        (!info || TovLineBytes(info->pixelType, m_shape.width) * m_shape.height > FrameLimit))
        status = TOV_CAM_ERR_GENICAM_OUT_OF_RANGE;
    if (status == TOV_CAM_ERR_OK)
        status = CreateStream(payload);
    for (std::uint32_t i = 0; status == TOV_CAM_ERR_OK && i < count; ++i) {
        std::unique_ptr<Frame> frame = Frame::Make(m_shape, *info, payload);
        if (!frame) {
            status = TOV_CAM_ERR_UNKNOWN;
            break;
        }
        arv_stream_push_buffer(m_stream, static_cast<ArvBuffer *>(g_object_ref(frame->m_buffer)));
        m_frames.push_back(std::move(frame));
    }
    m_reachability.Leave();
    if (status != TOV_CAM_ERR_OK)
        Dispose();
    return status;
}

std::int32_t AravisStream::ReleaseBufferQueue()
{
    if (!m_stream)
        return TOV_CAM_ERR_OK;
    if (m_held.load(std::memory_order_acquire) != 0)
        return TOV_CAM_ERR_INVALID_STATE;
    StopAcquisition(0);
    std::lock_guard<std::recursive_mutex> lock(m_access);
    Dispose();
    return TOV_CAM_ERR_OK;
}

void AravisStream::Dispose()
{
    if (!m_stream)
        return;
    ArvStream *const stream = m_stream;
    m_stream = nullptr;
    // std::function is copied, and buffers are not.
    auto frames = std::make_shared<std::vector<std::unique_ptr<Frame>>>(std::move(m_frames));
    m_frames.clear();
    bool const runs = m_started.exchange(false, std::memory_order_relaxed);
    m_disposal = Background::Run(
        [stream, frames, runs] {
            // Aravis cannot end a stream whose thread has ended before.
            if (!runs)
                arv_stream_start_thread(stream);
            g_object_unref(stream); // writes to the camera
            frames->clear();
        },
        ClosePatience);
    if (!m_disposal->IsDone())
        m_reachability.SetClosing(m_disposal);
}

void AravisStream::Close()
{
    StopAcquisition(0);
    for (auto const &frame : m_frames) {
        if (frame->m_held.exchange(false))
            g_object_unref(frame->m_buffer);
    }
    m_held.store(0, std::memory_order_relaxed);
    std::lock_guard<std::recursive_mutex> lock(m_access);
    Dispose();
}

std::int32_t AravisStream::StartAcquisition(std::int64_t frames, std::uint32_t)
{
    if (!m_stream || m_started.load(std::memory_order_relaxed))
        return TOV_CAM_ERR_INVALID_STATE;
    if (m_reachability.IsLost())
        return TOV_CAM_ERR_NO_DEVICE;
    m_frameIds.Reset(ARV_IS_GV_STREAM(m_stream));
    m_framesLeft = frames < 0 ? -1 : frames;
    m_cancelled.store(false, std::memory_order_relaxed);
    // The thread begins with no memory of earlier frame ids, as the camera does.
    arv_stream_start_thread(m_stream);
    // A thread that waits for frames already sees the counts above.
    m_started.store(true, std::memory_order_release);
    return TOV_CAM_ERR_OK;
}

std::int32_t AravisStream::StopAcquisition(std::uint32_t)
{
    if (!m_stream || !m_started.exchange(false, std::memory_order_relaxed))
        return TOV_CAM_ERR_OK;
    arv_stream_stop_thread(m_stream, FALSE);
    RecycleFilled();
    return TOV_CAM_ERR_OK;
}

void AravisStream::RecycleFilled()
{
    while (ArvBuffer *const buffer = arv_stream_try_pop_buffer(m_stream))
        arv_stream_push_buffer(m_stream, buffer);
}

std::int32_t AravisStream::QueueBuffer(TovCam::Buffer *buffer)
{
    auto *const frame = static_cast<Frame *>(buffer);
    if (!m_stream || !frame || !frame->m_held.exchange(false, std::memory_order_acq_rel))
        return TOV_CAM_ERR_INVALID_ARGUMENT;
    arv_stream_push_buffer(m_stream, frame->m_buffer);
    m_held.fetch_sub(1, std::memory_order_release); // from here on the stream may go
    return TOV_CAM_ERR_OK;
}

void AravisStream::CancelGetBuffer()
{
    m_cancelled.store(true, std::memory_order_relaxed);
}

// Waits as a bare loop over the ArvStream does: the signal of a new buffer, the way to be woken by something else too,
// costs several microseconds a frame. A cancel is looked for at times instead.
TovCam::Buffer *AravisStream::GetBuffer(std::uint32_t timeout, std::int32_t *error)
{
    StoreStatus(error, TOV_CAM_ERR_OK);
    auto const start = std::chrono::steady_clock::now();
    auto left = timeout == TovCam::WaitForever ? CancelPeriod : std::chrono::microseconds(1ms) * timeout;
    for (;;) {
        if (m_cancelled.load(std::memory_order_relaxed) && m_cancelled.exchange(false, std::memory_order_relaxed))
            return nullptr;
        auto const slice = std::min(left, CancelPeriod);
        if (!m_started.load(std::memory_order_acquire) || m_framesLeft == 0) {
            std::this_thread::sleep_for(slice);
        } else if (ArvBuffer *const buffer =
                       slice > 0us ? arv_stream_timeout_pop_buffer(m_stream, static_cast<std::uint64_t>(slice.count()))
                                   : arv_stream_try_pop_buffer(m_stream)) {
            if (Frame *const frame = Describe(buffer)) {
                if (m_framesLeft > 0)
                    --m_framesLeft;
                return frame;
            }
            arv_stream_push_buffer(m_stream, buffer);
            continue;
        }
        if (timeout == TovCam::WaitForever)
            continue;
        if (left == 0us)
            return nullptr;
        left = std::max(0us, std::chrono::duration_cast<std::chrono::microseconds>(
                                 start + std::chrono::milliseconds(timeout) - std::chrono::steady_clock::now()));
    }
}

// Where the first image of a whole buffer is, and its shape. False when the buffer does not say.
bool AravisStream::DescribeImage(ArvBuffer *buffer, std::uint8_t const *memory, Shape &shape, std::size_t &offset)
{
    std::optional<ArvBufferImage> const image = FirstImageOf(buffer);
    if (!image)
        return false;
    shape.width = static_cast<std::uint32_t>(image->width);
    shape.height = static_cast<std::uint32_t>(image->height);
    shape.pfnc = image->format;
    shape.linePadding = static_cast<std::uint32_t>(image->linePadding);
    if (image->data)
        offset = static_cast<std::size_t>(image->data - memory);
    return true;
}

// What the camera says about a filled buffer, in our terms. Null for one whose filling was broken off at a stop.
AravisStream::Frame *AravisStream::Describe(ArvBuffer *buffer)
{
    auto *const frame = static_cast<Frame *>(const_cast<void *>(arv_buffer_get_user_data(buffer)));
    ArvBufferStatus const status = arv_buffer_get_status(buffer);
    if (status == ARV_BUFFER_STATUS_ABORTED || status == ARV_BUFFER_STATUS_CLEARED)
        return nullptr;

    bool whole = status == ARV_BUFFER_STATUS_SUCCESS;
    Shape shape = m_shape;
    std::size_t offset = 0;
    if (whole) {
        size_t size = 0;
        arv_buffer_get_data(buffer, &size);
        frame->m_size = size;
        bool const described = DescribeImage(buffer, frame->m_memory, shape, offset);
        // Chunk data that does not describe its image is taken as announced.
        whole = described || arv_buffer_get_payload_type(buffer) == ARV_BUFFER_PAYLOAD_TYPE_CHUNK_DATA;
    } else {
        frame->m_size = frame->m_payload;
    }

    bool const asBefore = shape == frame->m_shape && frame->m_image->imageData == frame->m_memory + offset;
    if (!asBefore) {
        TovPixelTypeInfo const *info = TovGetPixelTypeInfoByPfnc(shape.pfnc);
        if (!info || !frame->SetShape(shape, *info, offset)) {
            whole = false;
            frame->SetShape(m_shape, *TovGetPixelTypeInfoByPfnc(m_shape.pfnc));
        }
    }
    frame->m_incomplete = !whole || offset + frame->m_image->imageSize > frame->m_size;

    frame->m_image->timestamp = TicksFromNanoseconds(arv_buffer_get_timestamp(buffer), m_tickFrequency);
    std::uint64_t const id = arv_buffer_get_frame_id(buffer);
    frame->m_image->frameID = whole ? m_frameIds.Next(id) : m_frameIds.Peek(id);
    frame->m_held.store(true, std::memory_order_relaxed);
    m_held.fetch_add(1, std::memory_order_relaxed);
    return frame;
}
