#include "simstream.h"

#include "protocol/gigevision.h"
#include "storestatus.h"
#include "tovmisc.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

namespace {

constexpr std::size_t LongestBacklog = 8192; // control packets for a slow subscriber; later ones count as missed
constexpr std::uint16_t ExposureEndEvent = gvcp::DeviceSpecificEvents + 1, FrameStartEvent = ExposureEndEvent + 1;
// Frames that are later than this move the schedule; others are made up for by a burst.
constexpr auto MostLate = std::chrono::milliseconds(50);
constexpr double MostDrift = 100000.0; // ppm

} // namespace

// ---- The camera's side -------------------------------------------------------------------------------------------

SimStream::SimStream(SimModel const &model, EventHub &events, std::function<std::int32_t(SimFormat &)> currentFormat,
                     Packets packets)
    : m_model(model),
      m_events(events),
      m_currentFormat(std::move(currentFormat)),
      m_packets(packets),
      m_clockStart(Clock::now()),
      m_scene(model.sensorWidth, model.sensorHeight, model.colour),
      m_sender(model.kind, events),
      m_loss(model.kind == TovCam::InterfaceKindGigEVision),
      m_thread([this] { Run(); })
{
}

SimStream::~SimStream()
{
    Shutdown();
}

void SimStream::Shutdown()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_quit = true;
    }
    m_wake.notify_all();
    if (m_thread.joinable())
        m_thread.join();
}

void SimStream::Begin(SimFormat const &format, SimSettings const &settings, std::int64_t frames)
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_lost || m_running.load(std::memory_order_relaxed))
            return;
        m_format = format;
        m_settings = settings;
        ++m_change;
        m_framesLeft = frames;
        m_nextFrame = m_model.firstFrameID;
        m_triggers = 0;
        m_running.store(true, std::memory_order_relaxed);
    }
    m_wake.notify_all();
}

void SimStream::End()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_running.store(false, std::memory_order_relaxed);
    }
    m_wake.notify_all();
}

bool SimStream::IsRunning() const
{
    return m_running.load(std::memory_order_relaxed);
}

void SimStream::Apply(SimSettings const &settings)
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_settings = settings;
        ++m_change;
    }
    m_wake.notify_all();
}

void SimStream::Trigger()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        // A sensor that is still busy overlooks the trigger; one may wait.
        m_triggers = 1;
    }
    m_wake.notify_all();
}

void SimStream::Lose()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_lost)
            return;
        m_lost = m_tellLost = true;
        m_running.store(false, std::memory_order_relaxed);
    }
    m_wake.notify_all();
}

void SimStream::Post(std::vector<SimPacket> packets)
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (SimPacket &packet : packets) {
            if (m_control.size() < LongestBacklog)
                m_control.push_back(std::move(packet));
            else
                ++m_missed;
        }
    }
    m_wake.notify_all();
}

void SimStream::NoteMissed()
{
    std::lock_guard<std::mutex> const lock(m_mutex);
    ++m_missed;
}

std::uint64_t SimStream::GetTicks() const
{
    std::unique_lock<std::mutex> lock(m_clockMutex);
    auto const ns = static_cast<std::uint64_t>(ReadClock(Clock::now()).count());
    lock.unlock();
    return ns / 1000000000u * m_model.tickFrequency + ns % 1000000000u * m_model.tickFrequency / 1000000000u;
}

// What the camera's clock shows. With its lock held.
std::chrono::nanoseconds SimStream::ReadClock(Clock::time_point now) const
{
    std::chrono::nanoseconds const since = std::max<Clock::duration>(now - m_clockStart, Clock::duration::zero());
    return m_clockOffset + since + std::chrono::nanoseconds(std::llround(static_cast<double>(since.count()) * m_drift));
}

void SimStream::ResetTicks()
{
    std::lock_guard<std::mutex> const lock(m_clockMutex);
    m_clockStart = Clock::now();
    m_clockOffset = std::chrono::nanoseconds(0);
}

void SimStream::SetDrift(double ppm)
{
    std::lock_guard<std::mutex> const lock(m_clockMutex);
    Clock::time_point const now = Clock::now();
    m_clockOffset = ReadClock(now);
    m_clockStart = now;
    m_drift = std::isnan(ppm) ? 0.0 : std::clamp(ppm, -MostDrift, MostDrift) * 1e-6;
}

void SimStream::SetEager(bool eager)
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_eager = eager;
    }
    m_wake.notify_all();
}

// ---- The host's side ---------------------------------------------------------------------------------------------

std::int32_t SimStream::QueueBuffer(TovCam::Buffer *buffer)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    for (auto const &known : m_buffers) {
        if (known.get() != buffer)
            continue;
        if (known->state != SimBuffer::Held)
            return TOV_CAM_ERR_INVALID_STATE;
        known->state = SimBuffer::Queued;
        m_input.Push(known.get());
        if (m_eager)
            m_wake.notify_all();
        return TOV_CAM_ERR_OK;
    }
    return TOV_CAM_ERR_INVALID_ARGUMENT;
}

TovCam::Buffer *SimStream::GetBuffer(std::uint32_t timeout, std::int32_t *error)
{
    StoreStatus(error, TOV_CAM_ERR_OK);
    std::unique_lock<std::mutex> lock(m_mutex);
    auto const ready = [this] {
        return m_cancelled || !m_output.IsEmpty();
    };
    if (timeout == TovCam::WaitForever)
        m_delivered.wait(lock, ready);
    else
        m_delivered.wait_until(lock, Clock::now() + std::chrono::milliseconds(timeout), ready);
    if (m_cancelled) {
        m_cancelled = false;
        return nullptr;
    }
    SimBuffer *const buffer = m_output.Pop();
    if (buffer)
        buffer->state = SimBuffer::Held;
    return buffer;
}

void SimStream::CancelGetBuffer()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_cancelled = true;
    }
    m_delivered.notify_all();
}

std::int32_t SimStream::StartAcquisition(std::int64_t frames, std::uint32_t)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_started || m_buffers.empty())
        return TOV_CAM_ERR_INVALID_STATE;
    if (frames < -1)
        return TOV_CAM_ERR_INVALID_ARGUMENT;
    m_cancelled = false;
    m_skipped = m_unbuffered = 0;
    m_hostFrames = frames;
    m_started = true;
    if (m_eager)
        m_wake.notify_all();
    return TOV_CAM_ERR_OK;
}

std::int32_t SimStream::StopAcquisition(std::uint32_t)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_started = false;
    m_settled.wait(lock, [this] { return !m_filling; });
    FlushFilled();
    return TOV_CAM_ERR_OK;
}

// Frames that nobody took make room for those of the next start. With the lock held.
void SimStream::FlushFilled()
{
    while (SimBuffer *buffer = m_output.Pop()) {
        buffer->state = SimBuffer::Queued;
        m_input.Push(buffer);
    }
}

std::int32_t SimStream::AllocBufferQueue(void *, std::uint32_t count)
{
    if (count == 0)
        return TOV_CAM_ERR_INVALID_ARGUMENT;
    // The device's lock comes before this class' mutex, so the format is asked first.
    SimFormat format;
    if (std::int32_t const status = m_currentFormat(format); status != TOV_CAM_ERR_OK)
        return status;
    std::vector<std::unique_ptr<SimBuffer>> buffers;
    for (std::uint32_t i = 0; i < count; ++i) {
        buffers.push_back(std::make_unique<SimBuffer>());
        if (!buffers.back()->Create(format))
            return TOV_CAM_ERR_UNKNOWN;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_buffers.empty())
        return TOV_CAM_ERR_INVALID_STATE;
    m_buffers = std::move(buffers);
    m_input.Reset(count);
    m_output.Reset(count);
    for (auto const &buffer : m_buffers)
        m_input.Push(buffer.get());
    return TOV_CAM_ERR_OK;
}

std::int32_t SimStream::ReleaseBufferQueue()
{
    std::vector<std::unique_ptr<SimBuffer>> released;
    std::unique_lock<std::mutex> lock(m_mutex);
    if (m_started)
        return TOV_CAM_ERR_INVALID_STATE;
    m_settled.wait(lock, [this] { return !m_filling; });
    for (auto const &buffer : m_buffers) {
        if (buffer->state == SimBuffer::Held)
            return TOV_CAM_ERR_INVALID_STATE;
    }
    released.swap(m_buffers);
    m_input.Reset(0);
    m_output.Reset(0);
    lock.unlock();
    return TOV_CAM_ERR_OK;
}

// ---- The thread --------------------------------------------------------------------------------------------------

void SimStream::Run()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    Clock::time_point due;
    bool running = false;
    while (!m_quit) {
        if (m_tellLost || !m_control.empty()) {
            EmitPending(lock);
            continue;
        }
        if (!m_running.load(std::memory_order_relaxed)) {
            running = false;
            m_wake.wait(lock, [this] {
                return m_quit || m_tellLost || !m_control.empty() || m_running.load(std::memory_order_relaxed);
            });
            continue;
        }
        if (m_change != m_drawnChange) {
            m_drawnChange = m_change;
            m_drawnFormat = m_format;
            m_drawn = m_settings;
            lock.unlock();
            m_scene.Prepare(m_drawnFormat, m_drawn.look);
            lock.lock();
            continue;
        }
        auto const period = std::chrono::nanoseconds(m_drawn.period);
        Clock::time_point const now = Clock::now();
        if (!running) {
            running = true;
            due = now + period;
        }
        if (m_drawn.triggered && m_triggers == 0) {
            m_wake.wait(lock);
            due = std::max(due, Clock::now());
            continue;
        }
        if (m_eager && !CanDeliver()) {
            m_wake.wait(lock);
            continue;
        }
        if (m_eager)
            due = std::min(due, now);
        if (now < due) {
            m_wake.wait_until(lock, due);
            continue;
        }
        m_triggers = 0;
        MakeFrame(lock, due);
        due += period;
        if (Clock::now() > due + MostLate)
            due = Clock::now();
    }
}

// Whether a frame would find a buffer now.
bool SimStream::CanDeliver() const
{
    return m_started && m_hostFrames != 0 && !m_input.IsEmpty();
}

// Calls the subscribers with what is pending. The lock is released meanwhile.
void SimStream::EmitPending(std::unique_lock<std::mutex> &lock)
{
    bool const lost = std::exchange(m_tellLost, false);
    std::deque<SimPacket> packets = std::exchange(m_control, {});
    std::uint64_t const missed = m_missed;
    bool const tellMissed = std::exchange(m_toldMissed, missed) != missed;
    lock.unlock();
    for (SimPacket const &packet : packets)
        Tell([&] { m_sender.SendControl(packet); });
    if (tellMissed)
        m_events.Emit(TovCam::EventPacketsMissed, &missed, sizeof missed);
    if (lost)
        m_events.Emit(TovCam::EventConnectionLost, nullptr, 0);
    lock.lock();
}

void SimStream::MakeFrame(std::unique_lock<std::mutex> &lock, Clock::time_point due)
{
    std::uint64_t const id = m_nextFrame++;
    if (m_framesLeft > 0 && --m_framesLeft == 0)
        m_running.store(false, std::memory_order_relaxed);
    std::uint64_t const number = id - m_model.firstFrameID + 1;
    bool const missing = m_drawn.faults.missingEvery != 0 && number % m_drawn.faults.missingEvery == 0;
    // The due time counts, not when the thread got to it: a sensor's clock does not wait for a host's scheduler.
    auto const late = std::max<Clock::duration>(Clock::now() - due, Clock::duration::zero());
    std::uint64_t const ticks = GetTicks();
    auto const lateTicks = static_cast<std::uint64_t>(static_cast<double>(late.count()) * 1e-9 *
                                                      static_cast<double>(m_model.tickFrequency));
    std::uint64_t const timestamp = ticks > lateTicks ? ticks - lateTicks : 0;

    SimBuffer *buffer = nullptr;
    if (m_started && !missing && m_hostFrames != 0 && (buffer = m_input.Pop())) {
        buffer->state = SimBuffer::Filling;
        m_filling = true;
    } else if (m_started && m_hostFrames != 0) {
        ++(missing ? m_skipped : m_unbuffered);
    }
    bool const events =
        m_events.IsWanted(TovCam::EventEventChannel) && (m_drawn.exposureEndEvent || m_drawn.frameStartEvent);
    if (!buffer && !events)
        return;
    lock.unlock();
    if (events) {
        if (m_drawn.frameStartEvent)
            Tell([&] { m_sender.SendEvent(FrameStartEvent, id, timestamp); });
        if (m_drawn.exposureEndEvent)
            Tell([&] { m_sender.SendEvent(ExposureEndEvent, id, timestamp); });
    }
    if (buffer)
        Fill(*buffer, id, timestamp);
    lock.lock();
    if (!buffer)
        return;
    m_filling = false;
    if (m_started) {
        if (m_hostFrames > 0)
            --m_hostFrames;
        buffer->take.finished = Clock::now();
        buffer->state = SimBuffer::Filled;
        CountLosses(*buffer);
        m_output.Push(buffer);
        m_delivered.notify_one();
    } else {
        buffer->state = SimBuffer::Queued;
        m_input.Push(buffer);
        m_settled.notify_all();
    }
}

void SimStream::CountLosses(SimBuffer &delivered)
{
    TovCam::FrameLosses &losses = delivered.losses;
    losses.skipped = std::exchange(m_skipped, 0);
    losses.unbuffered = std::exchange(m_unbuffered, 0);
    m_losses.skipped += losses.skipped;
    m_losses.unbuffered += losses.unbuffered;
    m_losses.missing += losses.missing;
}

bool SimStream::GetLosses(TovCam::StreamLosses *losses)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    *losses = m_losses;
    return true;
}

void SimStream::Fill(SimBuffer &buffer, std::uint64_t id, std::uint64_t timestamp)
{
    // The format may have been changed after the buffers had been made.
    bool const fits = buffer.Fit(m_drawnFormat);
    buffer.image->timestamp = timestamp;
    buffer.image->frameID = id;
    buffer.incomplete = !fits;
    buffer.missingBytes = 0;
    buffer.losses = {};
    buffer.take.began = std::chrono::system_clock::now();
    buffer.take.exposure = m_drawn.look.exposure;
    buffer.take.gain = m_drawn.look.gain;
    buffer.take.period = m_drawn.period;
    buffer.take.lines = m_drawn.lines;
    if (!fits) {
        std::memset(buffer.image->imageData, 0, buffer.capacity);
        return;
    }
    m_scene.Draw(id, static_cast<double>(timestamp) / static_cast<double>(m_model.tickFrequency),
                 buffer.image->imageData);
    if (m_packets == Packets::OfTaker)
        return;
    buffer.incomplete = LosePackets(buffer, id);
    // What gets lost shows on the control channel too.
    if (m_events.IsWanted(TovCam::EventStreamChannel) ||
        (!m_loss.IsNone() && m_events.IsWanted(TovCam::EventControlChannel)))
        Tell([&] { TellFrame(buffer, id, timestamp); });
}

// True when something of the frame is missing.
bool SimStream::LosePackets(SimBuffer &buffer, std::uint64_t id)
{
    std::size_t const bytes = m_sender.PayloadBytes(m_drawn.packetSize);
    double const rate =
        m_drawn.period > 0 ? static_cast<double>(buffer.payload) * 1e9 / static_cast<double>(m_drawn.period) : 0.0;
    std::size_t const packets = (buffer.payload + bytes - 1) / bytes;
    m_loss.Decide(m_drawn.faults, id - m_model.firstFrameID + 1, rate, packets);
    buffer.missingBytes = m_loss.Blacken(buffer.image->imageData, buffer.payload, bytes);
    buffer.losses.packets = static_cast<std::uint32_t>(packets);
    buffer.losses.missing = static_cast<std::uint32_t>((buffer.missingBytes + bytes - 1) / bytes);
    return buffer.missingBytes > 0;
}

// Gives the subscribers the packets that would have carried the frame.
void SimStream::TellFrame(SimBuffer const &buffer, std::uint64_t id, std::uint64_t timestamp)
{
    TovPixelTypeInfo const *const info = TovGetPixelTypeInfo(buffer.format.pixelType);
    m_sender.SendFrame({.facts = {buffer.format, info->pfnc, id, timestamp, buffer.payload},
                        .pixels = buffer.image->imageData,
                        .size = buffer.payload,
                        .packetBytes = m_sender.PayloadBytes(m_drawn.packetSize),
                        .incomplete = buffer.incomplete,
                        .resend = m_drawn.faults.resend},
                       m_loss);
}
