#include "grabbingfifo.h"

#include "tovlog.h"
#include "waitingaction.h"

#include <algorithm>
#include <chrono>
#include <limits>
#include <optional>
#include <thread>
#include <utility>

namespace {

constexpr std::int64_t CounterMaximum = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t AnyMinimum = std::numeric_limits<std::int64_t>::min();
constexpr double RateMaximum = std::numeric_limits<double>::max();
// Buffers of the queue that stay outside the FIFO while capturing: one each for stream, display and recorder.
constexpr std::int64_t BuffersOutside = 3;
constexpr double BytesPerMegabyte = 1048576.0;
constexpr double SlowestSpeed = 0.1;
constexpr auto WrongStatePause = std::chrono::milliseconds(10);

// A library that gives neither a node nor an error leaves a frequency of 0, with which every rate reads 0.
std::optional<std::int64_t> ReadTickFrequency(TovCam::Device *device)
{
    TovCam::ParamArray *const params = device->GetCameraParameters(nullptr);
    if (!params)
        return std::nullopt;
    std::int32_t error = 0;
    TovCam::IntParam *const node = params->GetInt("GevTimestampTickFrequency", &error);
    std::int64_t frequency = 0;
    if (node && TovSucceeded(static_cast<TovStatus>(error)))
        frequency = node->GetValue(&error);
    return TovSucceeded(static_cast<TovStatus>(error)) ? std::optional(frequency) : std::nullopt;
}

// Some of a stream's calls talk to the camera. None is left out: once given up, the camera library refuses.
template<typename F>
std::int32_t WaitForStream(F const &call)
{
    return WaitFor(call, IfGivenUp::CallAllTheSame);
}

} // namespace

GrabbingFifo::GrabbingFifo(QObject *parent, TovCam::Device *device)
    : QObject(parent),
      WorkingThread("GrabbingFifo"),
      TovComponentImp(202),
      m_stream(device->GetStreamByIndex(0))
{
    TovLog::Debug(0, "GrabbingFifo::GrabbingFifo()");
    RegisterParams();

    // The default, nanoseconds, stays where the lookup fails.
    if (auto const frequency = WaitFor([device] { return ReadTickFrequency(device); }))
        m_tickFrequency = *frequency;
}

GrabbingFifo::~GrabbingFifo()
{
    TovLog::Debug(0, "GrabbingFifo::~GrabbingFifo()");
}

void GrabbingFifo::RegisterParams()
{
    AddIntParam("FramesAcquired", &m_framesAcquired, 0, 0, CounterMaximum);
    AddIntParam("FramesDroppedHW", &m_framesDroppedHW, 0, 0, CounterMaximum);
    AddIntParam("FramesDroppedSW", &m_framesDroppedSW, 0, 0, CounterMaximum);
    AddIntParam("QueueFilled", &m_queueFilled, 0, 0, CounterMaximum);
    AddIntParam("QueueSize", &m_queueSize, 16, BuffersOutside, CounterMaximum);
    AddIntParam("Timestamp", &m_timestamp, 0, AnyMinimum, CounterMaximum);
    AddIntParam("FrameID", &m_frameId, 0, AnyMinimum, CounterMaximum);
    AddIntParam("FramesIncomp", &m_framesIncomplete, 0, AnyMinimum, CounterMaximum);
    AddFloatParam("FpsAvg", &m_rate1, 0, 0, RateMaximum);
    AddFloatParam("FpsInst", &m_rate2, 0, 0, RateMaximum);
    AddFloatParam("Speed", &m_speed, 0, 0, RateMaximum);
}

int GrabbingFifo::SetState(SessionState state)
{
    TovLog::Debug(static_cast<unsigned long>(state), "GrabbingFifo::SetState()");
    m_state.store(state, std::memory_order_relaxed);
    return 1;
}

std::int32_t GrabbingFifo::CreateBuffers()
{
    std::int64_t const count = TovLoadBound(m_queueSize);
    TovLog::Debug(static_cast<unsigned long>(count), "GrabbingFifo::CreateBuffers() -> ENTER");
    constexpr std::int64_t most = std::numeric_limits<std::uint32_t>::max();
    std::int32_t const status = m_stream ? WaitForStream([&] {
        return m_stream->AllocBufferQueue(this, static_cast<std::uint32_t>(std::min(count, most)));
    })
                                         : static_cast<std::int32_t>(TOV_CAM_ERR_INVALID_INDEX);
    if (status != 0) {
        TovLog::Error(static_cast<unsigned long>(status), "GrabbingFifo::CreateBuffers(): AllocBufferQueue() failed");
        return status;
    }
    TovLog::Debug(static_cast<unsigned long>(count), "GrabbingFifo::CreateBuffers() <- LEAVE");
    return 0;
}

bool GrabbingFifo::StartGrabbing()
{
    TovLog::Debug(0, "GrabbingFifo::StartGrabbing() -> ENTER");
    std::int32_t const status = WaitForStream([this] { return m_stream->StartAcquisition(-1, 0); });
    if (status != 0) {
        TovLog::Error(static_cast<unsigned long>(status), "GrabbingFifo::StartGrabbing() : StartAcquisition failed");
        return false;
    }
    SetParamInt("FramesAcquired", 0);
    SetParamInt("FramesDroppedHW", 0);
    SetParamInt("FramesDroppedSW", 0);
    SetParamInt("FramesIncomp", 0);
    // The timestamps stay: the first rate after a restart spans the pause, and the next frame corrects it.
    TovStoreBound(m_firstTimestamp, 0);
    TovStoreBound(m_frameId, 0);
    {
        std::lock_guard const lock(m_fifoMutex);
        m_lastId.reset();
        m_withoutId = 0;
        m_droppedSince = {};
    }
    m_lossLook.Begin(*m_stream);
    bool const started = WorkingThread::Start();
    TovLog::Debug(started, "GrabbingFifo::StartGrabbing() <- LEAVE");
    return started;
}

bool GrabbingFifo::StopGrabbing()
{
    TovLog::Debug(0, "GrabbingFifo::StopGrabbing() -> ENTER");
    if (!Stop()) {
        TovLog::Error(0, "GrabbingFifo::StopGrabbing(): Stop() failed");
        return false;
    }
    std::int32_t const status = WaitForStream([this] { return m_stream->StopAcquisition(1); });
    if (status != 0) {
        TovLog::Error(static_cast<unsigned long>(status), "GrabbingFifo::StopGrabbing(): StopAcquisition() failed");
        return false;
    }
    TovLog::Debug(0, "GrabbingFifo::Stop() <- LEAVE");
    return true;
}

int GrabbingFifo::Stop()
{
    TovLog::Debug(0, "GrabbingFifo::Stop() -> ENTER");
    if (!m_bStart) {
        TovLog::Error(0, "GrabbingFifo::Stop(): grabbing was not started ");
        return 0;
    }
    {
        std::lock_guard const lock(m_startMutex);
        m_bStart = false;
    }
    m_startCondition.notify_all();
    m_stream->CancelGetBuffer();
    {
        std::unique_lock lock(m_stopMutex);
        m_stopCondition.wait(lock, [this] { return m_stopped; });
        m_stopped = false;
    }
    TovLog::Notice("GrabbingFifo::Stop() : Grabbing thread stopped");
    TovLog::Debug(0, "GrabbingFifo::Stop() <- LEAVE");
    return 1;
}

std::int32_t GrabbingFifo::ReleaseBuffers()
{
    std::int64_t const queueSize = TovLoadBound(m_queueSize);
    TovLog::Debug(static_cast<unsigned long>(queueSize), "GrabbingFifo::ReleaseBuffers() -> ENTER");
    {
        std::lock_guard const lock(m_fifoMutex);
        while (!m_grab_fifo.empty()) {
            m_stream->QueueBuffer(m_grab_fifo.back());
            m_grab_fifo.pop_back();
        }
        m_gaps.clear();
        WriteQueueFilled();
    }
    std::int32_t const status = m_stream ? WaitForStream([this] { return m_stream->ReleaseBufferQueue(); })
                                         : static_cast<std::int32_t>(TOV_CAM_ERR_INVALID_INDEX);
    if (status != 0) {
        // Under the name of CreateBuffers, so that one search finds whatever fails with the buffer queue.
        TovLog::Error(static_cast<unsigned long>(status), "GrabbingFifo::CreateBuffers(): ReleaseBufferQueue() failed");
        return status;
    }
    TovLog::Debug(static_cast<unsigned long>(queueSize), "GrabbingFifo::ReleaseBuffers() <- LEAVE");
    return 0;
}

std::int32_t GrabbingFifo::GetNewestBuffer(TovCam::Buffer **buffer, bool bKeepInFifo)
{
    TovLog::Debug(0, "GrabbingFifo::GetNewestBuffer() -> ENTER");
    SessionState const state = m_state.load(std::memory_order_relaxed);
    if (state < SessionStateAcquisition) {
        TovLog::Error(static_cast<unsigned long>(state), "GrabbingFifo::GetNewestBuffer(): TOV_CAM_ERR_INVALID_STATE");
        std::this_thread::sleep_for(WrongStatePause);
        return TOV_CAM_ERR_INVALID_STATE;
    }
    std::unique_lock wait(m_waitMutex);
    if (std::unique_lock const fifo = WaitForFrame(wait)) {
        *buffer = m_grab_fifo.front();
        int const id = static_cast<int>((*buffer)->GetFrameID());
        TovLog::Info(0, "GrabbingFifo::GetNewestBuffer(): buffer id=%i returned", id);
        if (!bKeepInFifo) {
            TovLog::Info(0, "GrabbingFifo::GetNewestBuffer(): buffer id=%i poped from m_grab_fifo, bKeepInFifo=false",
                         id);
            m_grab_fifo.pop_front();
            ++m_withConsumers;
        }
        WriteQueueFilled();
    } else {
        TovLog::Info(0, "GrabbingFifo::GetNewestBuffer(): m_cvFifoEmpty.wait quit by m_bBlockCallerThread");
    }
    TovLog::Debug(0, "GrabbingFifo::GetNewestBuffer() <- LEAVE");
    return 0;
}

std::int32_t GrabbingFifo::PopOldestBuffer(TovCam::Buffer **buffer, std::optional<std::chrono::milliseconds> most)
{
    TovLog::Debug(0, "GrabbingFifo::PopOldestBuffer() -> ENTER");
    SessionState const state = m_state.load(std::memory_order_relaxed);
    if (state < SessionStateAcquisition) {
        TovLog::Error(static_cast<unsigned long>(state), "GrabbingFifo::PopOldestBuffer(): TOV_CAM_ERR_INVALID_STATE");
        return TOV_CAM_ERR_INVALID_STATE;
    }
    std::unique_lock wait(m_waitMutex);
    if (std::unique_lock const fifo = WaitForFrame(wait, most)) {
        *buffer = m_grab_fifo.back();
        m_grab_fifo.pop_back();
        ++m_withConsumers;
        TovLog::Info(0, "GrabbingFifo::PopOldestBuffer(): buffer id=%i poped from m_grab_fifo, and returned to caller",
                     static_cast<int>((*buffer)->GetFrameID()));
        WriteQueueFilled();
    } else if (!m_bBlockCallerThread) {
        TovLog::Info(0, "GrabbingFifo::PopOldestBuffer(): m_cvFifoEmpty.wait quit by m_bBlockCallerThread");
    }
    TovLog::Debug(0, "GrabbingFifo::PopOldestBuffer() <- LEAVE");
    return 0;
}

std::int32_t GrabbingFifo::ReleaseBuffer(TovCam::Buffer *buffer)
{
    TovLog::Debug(0, "GrabbingFifo::ReleaseBuffer()");
    std::lock_guard const lock(m_fifoMutex);
    --m_withConsumers;
    return m_stream->QueueBuffer(buffer);
}

std::int32_t GrabbingFifo::ReturnBuffer(TovCam::Buffer *buffer)
{
    TovLog::Debug(0, "GrabbingFifo::ReturnBuffer()");
    {
        // The state is read under the lock: whoever asks for the accounts after a change of state finds them settled.
        std::lock_guard const lock(m_fifoMutex);
        --m_withConsumers;
        if (m_state.load(std::memory_order_relaxed) != SessionStateCapturing)
            return m_stream->QueueBuffer(buffer);
        // Past frames that came in the meantime, and beyond the limit: the recording loses no frame to the display.
        m_grab_fifo.push_front(buffer);
    }
    WakeConsumers();
    return 0;
}

void GrabbingFifo::SetGrabberThtreadBlocking(bool blocking)
{
    {
        std::lock_guard const lock(m_waitMutex);
        m_bBlockCallerThread = blocking;
    }
    m_cvFifoEmpty.notify_all();
}

double GrabbingFifo::GetCurrentFPS()
{
    std::uint64_t const first = TovLoadBound(m_firstTimestamp);
    std::uint64_t const last = static_cast<std::uint64_t>(TovLoadBound(m_timestamp));
    if (first == last)
        return 0.0;
    return static_cast<double>(TovLoadBound(m_framesAcquired)) / static_cast<double>(last - first);
}

GrabbingFifo::Accounts GrabbingFifo::GetAccounts()
{
    std::lock_guard const lock(m_fifoMutex);
    return {m_arrived,
            m_arrivedIncomplete,
            TovLoadBound(m_framesDroppedSW),
            static_cast<std::int64_t>(m_grab_fifo.size()),
            m_withConsumers,
            m_missing};
}

std::int64_t GrabbingFifo::GetFramesAcquired() const
{
    return TovLoadBound(m_framesAcquired);
}

std::int64_t GrabbingFifo::GetFramesDroppedHW() const
{
    return TovLoadBound(m_framesDroppedHW);
}

std::int64_t GrabbingFifo::GetFramesDroppedSW() const
{
    return TovLoadBound(m_framesDroppedSW);
}

void GrabbingFifo::Work()
{
    std::int32_t const status = GrabNewBuffer(TovCam::WaitForever);
    if (status != 0)
        TovLog::Error(static_cast<unsigned long>(status), "GrabbingFifo::Work: GrabNewBuffer failed: %i", status);
    else
        TovLog::Notice("GrabbingFifo::Work: GrabNewBuffer OK");
}

std::int32_t GrabbingFifo::GrabNewBuffer(std::uint32_t timeout)
{
    TovLog::Debug(0, "GrabbingFifo::GrabNewBuffer() -> ENTER");
    SessionState const state = m_state.load(std::memory_order_relaxed);
    if (state < SessionStateAcquisition) {
        // The thread starts a moment before the session says that acquisition has begun.
        std::this_thread::sleep_for(WrongStatePause);
        TovLog::Error(static_cast<unsigned long>(state), "GrabbingFifo::GrabNewBuffer(): TOV_CAM_ERR_INVALID_STATE");
        return TOV_CAM_ERR_INVALID_STATE;
    }
    std::int32_t error = 0;
    TovCam::Buffer *buffer = m_stream->GetBuffer(timeout, &error);
    bool const incomplete = buffer && buffer->IsIncomplete();
    if (error != 0 || incomplete) {
        if (incomplete) {
            TovStoreBound(m_framesIncomplete, TovLoadBound(m_framesIncomplete) + 1);
            SetParamInt("FramesIncomp", TovLoadBound(m_framesIncomplete));
        }
        if (m_discard) {
            if (buffer) {
                std::lock_guard const lock(m_fifoMutex);
                m_stream->QueueBuffer(buffer);
                buffer = nullptr;
            }
            TovLog::Error(static_cast<unsigned long>(error), "GrabbingFifo::GrabNewBuffer(): GetBuffer() failed");
        }
    }
    if (buffer && !incomplete)
        UpdateStatistics(buffer);
    LossEvidence const evidence = buffer ? m_lossLook.Look(*m_stream, *buffer, incomplete) : LossEvidence();
    {
        std::lock_guard const lock(m_fifoMutex);
        if (buffer)
            CountArrival(buffer, incomplete, evidence);
        PutIntoFifo(buffer);
        WriteQueueFilled();
    }
    WakeConsumers();
    TovLog::Debug(0, "GrabbingFifo::GrabNewBuffer() <- LEAVE");
    return 0;
}

void GrabbingFifo::UpdateStatistics(TovCam::Buffer *buffer)
{
    std::int64_t const acquired = TovLoadBound(m_framesAcquired) + 1;
    TovStoreBound(m_framesAcquired, acquired);
    SetParamInt("FramesAcquired", acquired);

    std::uint64_t const previous = static_cast<std::uint64_t>(TovLoadBound(m_timestamp));
    std::uint64_t const timestamp = buffer->GetTimestamp();
    m_previousTimestamp = previous;
    TovStoreBound(m_timestamp, static_cast<std::int64_t>(timestamp));
    SetParamInt("Timestamp", static_cast<std::int64_t>(timestamp));
    if (TovLoadBound(m_firstTimestamp) == 0)
        TovStoreBound(m_firstTimestamp, timestamp);

    std::uint64_t const id = buffer->GetFrameID();
    std::uint64_t const last = static_cast<std::uint64_t>(TovLoadBound(m_frameId));
    if (last != 0 && id != last + 1) {
        // A counter that wraps or starts again loses nothing.
        std::int64_t const lost = id > last ? static_cast<std::int64_t>(id - last - 1) : 0;
        TovStoreBound(m_framesDroppedHW, TovLoadBound(m_framesDroppedHW) + lost);
        SetParamInt("FramesDroppedHW", TovLoadBound(m_framesDroppedHW));
    }

    double const ticks = static_cast<double>(m_tickFrequency);
    std::uint64_t const dtInst = timestamp - m_previousTimestamp;
    std::uint64_t const dtAvg = timestamp - TovLoadBound(m_firstTimestamp);
    // The variables cross: "FpsAvg" is bound to m_rate1 and "FpsInst" to m_rate2. The average, written second, ends up
    // in both, so whoever reads "FpsInst" between frames sees a steady number; only its listeners hear of single
    // frames.
    if (dtInst != 0 && id > last) {
        double const rate = static_cast<double>(id - last) * ticks / static_cast<double>(dtInst);
        TovStoreBound(m_rate1, rate);
        SetParamFloat("FpsInst", rate);
    }
    if (dtAvg != 0) {
        double const frames = static_cast<double>(acquired + TovLoadBound(m_framesDroppedHW));
        double const rate = frames * ticks / static_cast<double>(dtAvg);
        TovStoreBound(m_rate2, rate);
        SetParamFloat("FpsAvg", rate);
    }
    std::uint64_t const size = buffer->GetBufferSize();
    if (static_cast<std::int64_t>(dtInst) > 0) {
        double speed = ticks * static_cast<double>(size) / (static_cast<double>(dtInst) * BytesPerMegabyte);
        if (speed < SlowestSpeed)
            speed = 0.0;
        TovStoreBound(m_speed, speed);
        SetParamFloat("Speed", speed);
    }
    TovStoreBound(m_frameId, static_cast<std::int64_t>(id));
    SetParamInt("FrameID", static_cast<std::int64_t>(id));
}

void GrabbingFifo::CountArrival(TovCam::Buffer *buffer, bool incomplete, LossEvidence const &evidence)
{
    ++m_arrived;
    m_arrivedIncomplete += incomplete;
    std::uint64_t const id = buffer->GetFrameID();
    Loss &loss = m_gaps[buffer];
    loss = {};
    if (incomplete) {
        LossPlace const place = PlaceOfIncomplete(evidence);
        ++m_lost.At(place).incomplete;
        m_lost.At(place).packets += evidence.frame.missing;
        loss.own.Add(place);
    }
    // Without its first packet a frame may lack its id: it is then one of those that the next gap counts.
    if (incomplete && (id == 0 || (m_lastId && id <= *m_lastId))) {
        ++m_withoutId;
        return;
    }
    // A counter that wraps or starts again loses nothing.
    if (m_lastId && id > *m_lastId) {
        std::uint64_t const gap = id - *m_lastId - 1;
        loss.frames = gap - std::min(gap, m_withoutId);
        m_missing += static_cast<std::int64_t>(loss.frames);
        CountMissing(loss, evidence);
    }
    m_lastId = id;
    m_withoutId = 0;
}

void GrabbingFifo::PutIntoFifo(TovCam::Buffer *buffer)
{
    bool push = buffer != nullptr;
    if (m_state.load(std::memory_order_relaxed) == SessionStateCapturing) {
        while (static_cast<std::int64_t>(m_grab_fifo.size()) >= TovLoadBound(m_queueSize) - BuffersOutside) {
            if (m_grab_fifo.empty()) {
                // The limit is 0: nothing in the FIFO can make room.
                if (buffer) {
                    CountSoftwareDrop(buffer);
                    m_stream->QueueBuffer(buffer);
                }
                return;
            }
            if (m_dropMode == DropNewest) {
                CountSoftwareDrop(m_grab_fifo.front());
                m_stream->QueueBuffer(m_grab_fifo.front());
                m_grab_fifo.pop_front();
            } else if (m_dropMode == DropOldest) {
                CountSoftwareDrop(m_grab_fifo.back());
                m_stream->QueueBuffer(m_grab_fifo.back());
                m_grab_fifo.pop_back();
                if (!m_grab_fifo.empty())
                    m_gaps[m_grab_fifo.back()].Add(std::exchange(m_droppedSince, {}));
            } else {
                CountSoftwareDrop(buffer);
                push = false; // the incoming frame is dropped, and its buffer stays outside the stream
                break;
            }
        }
    } else {
        std::size_t const kept = buffer ? 0 : 1;
        while (m_grab_fifo.size() > kept) {
            m_stream->QueueBuffer(m_grab_fifo.back());
            m_grab_fifo.pop_back();
        }
    }
    if (push) {
        m_gaps[buffer].Add(std::exchange(m_droppedSince, {}));
        m_grab_fifo.push_front(buffer);
        TovLog::Info(0, "Frame added to m_grab_fifo id=%i", static_cast<int>(TovLoadBound(m_frameId)));
    }
}

void GrabbingFifo::CountSoftwareDrop(TovCam::Buffer const *dropped)
{
    if (auto const found = m_gaps.find(dropped); found != m_gaps.end()) {
        m_droppedSince.Add(found->second);
        ++m_droppedSince.frames;
        ++m_droppedSince.dropped;
        m_droppedSince.before.Add(LossPlace::Fifo);
    }
    ++m_lost.At(LossPlace::Fifo).missing;
    TovStoreBound(m_framesDroppedSW, TovLoadBound(m_framesDroppedSW) + 1);
    SetParamInt("FramesDroppedSW", TovLoadBound(m_framesDroppedSW));
}

void GrabbingFifo::WriteQueueFilled()
{
    auto const count = static_cast<std::int64_t>(m_grab_fifo.size());
    if (TovLoadBound(m_queueFilled) != count)
        SetParamInt("QueueFilled", count);
}

std::unique_lock<std::mutex> GrabbingFifo::WaitForFrame(std::unique_lock<std::mutex> &wait,
                                                        std::optional<std::chrono::milliseconds> most)
{
    auto const end = std::chrono::steady_clock::now() + most.value_or(std::chrono::milliseconds(0));
    while (m_bBlockCallerThread) {
        std::unique_lock fifo(m_fifoMutex);
        if (!m_grab_fifo.empty())
            return fifo;
        fifo.unlock();
        if (!most)
            m_cvFifoEmpty.wait(wait);
        else if (m_cvFifoEmpty.wait_until(wait, end) == std::cv_status::timeout)
            break;
    }
    return {};
}

void GrabbingFifo::WakeConsumers()
{
    // A consumer between its look at the FIFO and its sleep holds m_waitMutex; afterwards it hears the call.
    {
        std::lock_guard const lock(m_waitMutex);
    }
    m_cvFifoEmpty.notify_all();
}
