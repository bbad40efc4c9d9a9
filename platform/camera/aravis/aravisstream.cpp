#include "aravisstream.h"

#include "aravisreleases.h"
#include "genicam/genicamerror.h"
#include "storestatus.h"

#include <algorithm>
#include <thread>

namespace {

using namespace std::chrono_literals;

// Far more than a healthy camera needs; a dead one holds nobody up for longer.
constexpr auto ClosePatience = 400ms;
constexpr auto ReopenPatience = 1000ms;
constexpr std::chrono::microseconds CancelPeriod = 20ms;

// How often no buffer was free.
std::uint64_t UnderrunsOf(ArvStream *stream)
{
    guint64 completed = 0, failures = 0, underruns = 0;
    arv_stream_get_statistics(stream, &completed, &failures, &underruns);
    return underruns;
}

} // namespace

// ---- Frame -------------------------------------------------------------------------------------------------------

class AravisStream::Frame final : public StreamFrame
{
public:
    static std::unique_ptr<Frame> Make(StreamFormat const &format)
    {
        auto frame = std::make_unique<Frame>();
        if (!frame->StreamFrame::Make(format))
            return nullptr;
        frame->m_buffer = arv_buffer_new_full(format.payload, frame->m_memory, frame.get(), nullptr);
        return frame;
    }
    ~Frame() override
    {
        if (m_buffer)
            g_object_unref(m_buffer);
    }

    bool GetLosses(TovCam::FrameLosses *losses) override
    {
        *losses = m_losses;
        return true;
    }

    TovCam::FrameLosses m_losses;
    ArvBuffer *m_buffer = nullptr; // one reference of ours, and one of whoever holds the buffer
};

// ---- AravisStream ------------------------------------------------------------------------------------------------

AravisStream::AravisStream(ArvDevice *device, std::recursive_mutex &access, Reachability &reachability)
    : m_device(device),
      m_access(access),
      m_reachability(reachability)
{
}

AravisStream::~AravisStream() = default;

std::int32_t AravisStream::CreateStream()
{
    ErrorSlot error;
    m_stream = arv_device_create_stream(m_device, nullptr, nullptr, error);
    if (!m_stream)
        return error.Status() != TOV_CAM_ERR_OK ? error.Status() : static_cast<std::int32_t>(TOV_CAM_ERR_UNKNOWN);
    // Frames of a camera that runs already are not asked for before the start.
    arv_stream_stop_thread(m_stream, FALSE);
    return TOV_CAM_ERR_OK;
}

std::int32_t AravisStream::AllocBufferQueue(void *, std::uint32_t count)
{
    if (count == 0 || count > StreamQueueLimit)
        return TOV_CAM_ERR_INVALID_ARGUMENT;
    // The goodbye to an earlier ArvStream would close the channel of the new one.
    if (m_stream || (m_disposal && !Background::Wait(*m_disposal, ReopenPatience)))
        return TOV_CAM_ERR_INVALID_STATE;
    m_disposal.reset();

    std::lock_guard<std::recursive_mutex> lock(m_access);
    std::int32_t status = m_reachability.Enter();
    if (status == TOV_CAM_ERR_OK)
        status = ReadStreamFormat(m_device, std::endian::little, m_format);
    if (status == TOV_CAM_ERR_OK)
        status = CreateStream();
    for (std::uint32_t i = 0; status == TOV_CAM_ERR_OK && i < count; ++i) {
        std::unique_ptr<Frame> frame = Frame::Make(m_format);
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
    m_frameIds.Reset(false);
    m_losses.Begin(UnderrunsOf(m_stream));
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

bool AravisStream::GetLosses(TovCam::StreamLosses *losses)
{
    m_losses.AddTo(*losses);
    return true;
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
bool AravisStream::DescribeImage(ArvBuffer *buffer, std::uint8_t const *memory, StreamShape &shape, std::size_t &offset)
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

    bool const isBroken = status != ARV_BUFFER_STATUS_SUCCESS;
    bool whole = !isBroken;
    StreamShape shape = m_format.shape;
    std::size_t offset = 0;
    frame->m_chunks = {};
    if (whole) {
        size_t size = 0;
        arv_buffer_get_data(buffer, &size);
        frame->m_size = size;
        bool const described = DescribeImage(buffer, frame->m_memory, shape, offset);
        bool const hasChunks = HasChunks(buffer);
        if (hasChunks)
            frame->m_chunks = {frame->m_memory, std::min(size, frame->m_payload)};
        // Chunk data that does not describe its image is taken as announced.
        whole = described || hasChunks;
    } else {
        frame->m_size = frame->m_payload;
    }

    whole = frame->Describe(shape, offset, m_format) && whole;
    frame->m_incomplete = !whole || offset + frame->m_image->imageSize > frame->m_size;

    // Not every release tells when the first packet came.
    auto const arrival = static_cast<std::int64_t>(arv_buffer_get_system_timestamp(buffer));
    frame->m_arrival =
        arrival != 0
            ? arrival
            : std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::system_clock::now().time_since_epoch())
                  .count();

    // A camera without ticks, or whose clock stands still, counts the nanoseconds that Aravis gives.
    constexpr std::uint64_t Nanoseconds = 1000000000;
    frame->m_image->timestamp = TicksFromNanoseconds(
        arv_buffer_get_timestamp(buffer), m_format.tickFrequency != 0 ? m_format.tickFrequency : Nanoseconds);
    std::uint64_t const id = arv_buffer_get_frame_id(buffer);
    frame->m_image->frameID = whole ? m_frameIds.Next(id) : m_frameIds.Peek(id);
    frame->m_losses = m_losses.Of(frame->m_image->frameID, isBroken, UnderrunsOf(m_stream));
    frame->m_held.store(true, std::memory_order_relaxed);
    m_held.fetch_add(1, std::memory_order_relaxed);
    return frame;
}
