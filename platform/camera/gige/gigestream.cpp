#include "gigestream.h"

#include "socketroom.h"
#include "storestatus.h"

#include <algorithm>
#include <new>
#include <system_error>
#include <utility>

namespace {

using namespace std::chrono_literals;
using namespace gvcp::bootstrap;

constexpr auto ClosePatience = 1000ms;

} // namespace

class GigeStream::Frame final : public StreamFrame
{
public:
    std::uint64_t m_blockId = 0;
    bool m_isDescribed = false; // the shape is what the camera told of this frame
    TovCam::FrameLosses m_losses;

    bool GetLosses(TovCam::FrameLosses *losses) override
    {
        *losses = m_losses;
        return true;
    }
};

void GigeStream::Ring::Reset(std::size_t most)
{
    m_frames.assign(most, nullptr);
    m_first = m_count = 0;
}

void GigeStream::Ring::Push(Frame *frame)
{
    m_frames[(m_first + m_count++) % m_frames.size()] = frame;
}

GigeStream::Frame *GigeStream::Ring::Pop()
{
    Frame *const frame = m_frames[m_first];
    m_first = (m_first + 1) % m_frames.size();
    --m_count;
    return frame;
}

GigeStream::GigeStream(ArvDevice *device, std::recursive_mutex &access, Reachability &reachability,
                       std::shared_ptr<StreamControl> control)
    : m_device(device),
      m_access(access),
      m_reachability(reachability),
      m_control(std::move(control))
{
}

GigeStream::~GigeStream() = default;

void GigeStream::SetSource(MakeSource makeSource)
{
    m_makeSource = std::move(makeSource);
}

// ---- The queue of buffers ----------------------------------------------------------------------------------------

std::int32_t GigeStream::AllocBufferQueue(void *, std::uint32_t count)
{
    if (count == 0 || count > StreamQueueLimit)
        return TOV_CAM_ERR_INVALID_ARGUMENT;
    // The goodbye to an earlier channel would close the new one.
    if (m_receiver || (m_disposal && !Background::Wait(*m_disposal, ClosePatience)))
        return TOV_CAM_ERR_INVALID_STATE;
    m_disposal.reset();

    std::lock_guard<std::recursive_mutex> lock(m_access);
    std::int32_t status = m_reachability.Enter();
    if (status == TOV_CAM_ERR_OK)
        status = ReadStreamFormat(m_device, std::endian::big, m_format);
    if (status == TOV_CAM_ERR_OK)
        status = MakeFrames(count);
    if (status == TOV_CAM_ERR_OK)
        status = OpenChannel();
    m_reachability.Leave();
    if (status != TOV_CAM_ERR_OK) {
        Dispose();
        m_frames.clear();
    }
    return status;
}

std::int32_t GigeStream::MakeFrames(std::uint32_t count)
{
    m_free.clear();
    m_free.reserve(count);
    m_filled.Reset(count);
    for (std::uint32_t i = 0; i < count; ++i) {
        auto frame = std::make_unique<Frame>();
        if (!frame->Make(m_format))
            return TOV_CAM_ERR_UNKNOWN;
        m_free.push_back(frame.get());
        m_frames.push_back(std::move(frame));
    }
    return TOV_CAM_ERR_OK;
}

// The port comes last: with it the camera may send.
std::int32_t GigeStream::OpenChannel()
{
    FrameSink &sink = *this;
    m_receiver = std::make_unique<Receiver>(*m_control, sink, m_statistics);
    if (!m_receiver->Open(SocketRoomFor(m_format.payload)))
        return TOV_CAM_ERR_UNKNOWN;
    if (std::unique_ptr<DatagramSource> source = m_makeSource ? m_makeSource(m_receiver->GetPort()) : nullptr)
        m_receiver->SetSource(std::move(source));
    m_adapter.Follow(m_control->GetHostAddress(), m_control->GetCameraAddress());
    std::uint32_t packetSize = 0, capability = 0, port = 0;
    std::int32_t status = m_control->ReadRegister(StreamChannelPacketSize, packetSize);
    bool const isTold = m_control->ReadRegister(GvcpCapability, capability) == TOV_CAM_ERR_OK;
    if (status == TOV_CAM_ERR_OK)
        status = m_control->WriteRegister(StreamChannelDestinationAddress, m_control->GetHostAddress());
    if (status == TOV_CAM_ERR_OK)
        status = m_control->WriteRegister(StreamChannelPort, m_receiver->GetPort());
    if (status != TOV_CAM_ERR_OK)
        return status;
    // Not every camera has the register.
    if (m_control->ReadRegister(StreamChannelSourcePort, port) != TOV_CAM_ERR_OK)
        port = 0;
    m_layout = {};
    m_layout.payload = m_format.payload;
    m_layout.packetSize = packetSize & gvcp::packetsize::Mask;
    m_layout.buffers = static_cast<std::uint32_t>(m_frames.size());
    m_layout.address = m_control->GetCameraAddress();
    m_layout.port = static_cast<std::uint16_t>(port);
    m_layout.resends = !isTold || (capability & gvcp::gvcpcapability::PacketResend) != 0;
    return TOV_CAM_ERR_OK;
}

std::int32_t GigeStream::ReleaseBufferQueue()
{
    if (!m_receiver)
        return TOV_CAM_ERR_OK;
    if (m_held.load(std::memory_order_acquire) != 0)
        return TOV_CAM_ERR_INVALID_STATE;
    std::lock_guard<std::recursive_mutex> lock(m_access);
    Dispose();
    return TOV_CAM_ERR_OK;
}

void GigeStream::Dispose()
{
    if (!m_receiver)
        return;
    StopAcquisition(0);
    m_frames.clear();
    // std::function is copied.
    std::shared_ptr<Receiver> const receiver(std::move(m_receiver));
    if (m_reachability.IsLost())
        return;
    m_disposal = Background::Run(
        [receiver, control = m_control] {
            Haste const haste(control.get());
            control->WriteRegister(StreamChannelPort, 0);
            receiver->Close(); // not before, so that the camera meets no closed port
        },
        ClosePatience);
    if (!m_disposal->IsDone())
        m_reachability.SetClosing(m_disposal);
}

bool GigeStream::GetLosses(TovCam::StreamLosses *losses)
{
    StreamStatistics const &counts = m_statistics;
    losses->missing = counts.missing.Get();
    losses->asked = counts.asked.Get();
    losses->resent = counts.resent.Get();
    losses->refused = counts.refused.Get();
    losses->late = counts.late.Get();
    losses->dropped = counts.socketDrops.Get();
    losses->unbuffered = counts.lost.Get();
    losses->skipped = counts.skipped.Get();
    losses->socketRoom = counts.socketRoom.Get();
    losses->wantedRoom = counts.wantedRoom.Get();
    m_adapter.Read(*losses);
    return true;
}

void GigeStream::Close()
{
    m_held.store(0, std::memory_order_relaxed);
    std::lock_guard<std::recursive_mutex> lock(m_access);
    Dispose();
}

// ---- Acquisition -------------------------------------------------------------------------------------------------

std::int32_t GigeStream::StartAcquisition(std::int64_t frames, std::uint32_t)
{
    if (!m_receiver)
        return TOV_CAM_ERR_INVALID_STATE;
    if (m_reachability.IsLost())
        return TOV_CAM_ERR_NO_DEVICE;
    {
        std::lock_guard const lock(m_mutex);
        if (m_started)
            return TOV_CAM_ERR_INVALID_STATE;
        m_frameIds.Reset(true);
        m_framesLeft = frames < 0 ? -1 : frames;
        m_cancelled = false;
    }
    try {
        m_receiver->Start(m_layout);
    } catch (std::bad_alloc const &) {
        return TOV_CAM_ERR_UNKNOWN;
    } catch (std::system_error const &) {
        return TOV_CAM_ERR_UNKNOWN;
    }
    std::lock_guard const lock(m_mutex);
    m_started = true;
    m_wake.notify_all();
    return TOV_CAM_ERR_OK;
}

std::int32_t GigeStream::StopAcquisition(std::uint32_t)
{
    if (!m_receiver)
        return TOV_CAM_ERR_OK;
    {
        std::lock_guard const lock(m_mutex);
        if (!std::exchange(m_started, false))
            return TOV_CAM_ERR_OK;
    }
    m_receiver->Stop();
    std::lock_guard const lock(m_mutex);
    while (!m_filled.IsEmpty())
        m_free.push_back(m_filled.Pop());
    return TOV_CAM_ERR_OK;
}

bool GigeStream::TakeBuffer(BlockBuffer &buffer)
{
    std::lock_guard const lock(m_mutex);
    if (m_free.empty())
        return false;
    Frame *const frame = m_free.back();
    m_free.pop_back();
    buffer = {frame->m_memory, frame->m_payload, frame};
    return true;
}

void GigeStream::GiveBack(BlockBuffer const &buffer)
{
    std::lock_guard const lock(m_mutex);
    m_free.push_back(static_cast<Frame *>(buffer.owner));
}

bool GigeStream::Accepts(BlockFrame const &block)
{
    return Describe(*static_cast<Frame *>(block.buffer.owner), block);
}

void GigeStream::Deliver(BlockFrame const &block)
{
    auto *const frame = static_cast<Frame *>(block.buffer.owner);
    if (block.end == BlockFrame::End::Incomplete)
        Describe(*frame, block);
    frame->m_incomplete = block.end != BlockFrame::End::Complete;
    frame->m_arrival = block.arrival.count();
    frame->m_missingBytes = block.missingBytes;
    frame->m_losses = block.losses;
    {
        std::lock_guard const lock(m_mutex);
        m_filled.Push(frame);
    }
    m_wake.notify_one();
}

std::int32_t GigeStream::QueueBuffer(TovCam::Buffer *buffer)
{
    auto *const frame = static_cast<Frame *>(buffer);
    if (!m_receiver || !frame || !frame->m_held.exchange(false, std::memory_order_acq_rel))
        return TOV_CAM_ERR_INVALID_ARGUMENT;
    {
        std::lock_guard const lock(m_mutex);
        m_free.push_back(frame);
    }
    m_held.fetch_sub(1, std::memory_order_release); // from here on the stream may go
    return TOV_CAM_ERR_OK;
}

void GigeStream::CancelGetBuffer()
{
    std::lock_guard const lock(m_mutex);
    m_cancelled = true;
    m_wake.notify_all();
}

TovCam::Buffer *GigeStream::GetBuffer(std::uint32_t timeout, std::int32_t *error)
{
    StoreStatus(error, TOV_CAM_ERR_OK);
    Frame *frame = nullptr;
    {
        std::unique_lock lock(m_mutex);
        auto const isOver = [this] {
            return m_cancelled || (m_started && m_framesLeft != 0 && !m_filled.IsEmpty());
        };
        if (timeout == TovCam::WaitForever)
            m_wake.wait(lock, isOver);
        else if (!m_wake.wait_for(lock, std::chrono::milliseconds(timeout), isOver))
            return nullptr;
        if (std::exchange(m_cancelled, false))
            return nullptr;
        frame = m_filled.Pop();
        if (m_framesLeft > 0)
            --m_framesLeft;
    }
    std::uint64_t const id = frame->m_blockId;
    frame->m_image->frameID = frame->m_isDescribed ? m_frameIds.Next(id) : m_frameIds.Peek(id);
    frame->m_held.store(true, std::memory_order_relaxed);
    m_held.fetch_add(1, std::memory_order_relaxed);
    return frame;
}

// What the camera says about a frame, in our terms. Whether it is a picture that is wholly there.
bool GigeStream::Describe(Frame &frame, BlockFrame const &block) const
{
    bool whole = block.isWhole;
    StreamShape shape = m_format.shape;
    std::size_t offset = 0;
    frame.m_size = whole ? block.size : frame.m_payload;
    frame.m_chunks = {frame.m_memory + block.chunkOffset, block.chunkBytes};
    if (whole && block.picture) {
        shape = {block.picture->width, block.picture->height, block.picture->pixelFormat, block.picture->linePadding};
        offset = static_cast<std::size_t>(std::min<std::uint64_t>(block.picture->offset, frame.m_room));
    } else if (whole) {
        // Chunk data that does not describe its image is taken as announced.
        whole = block.payloadType == gvsp::ChunkData;
    }
    whole = frame.Describe(shape, offset, m_format) && whole;
    frame.m_isDescribed = whole;
    frame.m_blockId = block.blockId;
    // A camera without ticks, or whose clock stands still, counts the nanoseconds of this computer.
    frame.m_image->timestamp =
        m_format.tickFrequency != 0 ? block.timestamp : static_cast<std::uint64_t>(block.arrival.count());
    _TovImage const &image = *frame.m_image;
    return whole && static_cast<std::size_t>(image.imageData - frame.m_memory) + image.imageSize <= frame.m_size;
}
