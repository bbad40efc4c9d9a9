// The frames of a simulated camera: a thread that paces them as the sensor would, draws each into a queued buffer, and
// hands it over. A frame that finds no buffer is lost, and its number with it; an eager camera waits for one instead.
//
// Two sides: the camera's (Begin, End, Apply, Trigger, Lose), called under the device's lock, and the host's, which is
// TovCam::Stream. All events of the camera are called back on the thread of this class.
#pragma once

#include "devicebase.h"
#include "simbuffer.h"
#include "simloss.h"
#include "simscene.h"
#include "simsender.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <thread>

class SimStream final : public TovCam::Stream
{
public:
    // Whose packets the frames take to the host: those that only subscribers see, or a taker's that sends them really;
    // then frames come whole, and no packet is told here.
    enum class Packets { Imagined, OfTaker };

    // `currentFormat` answers AllocBufferQueue; it returns a status.
    SimStream(SimModel const &model, EventHub &events, std::function<std::int32_t(SimFormat &)> currentFormat,
              Packets packets = Packets::Imagined);
    ~SimStream();

    // ---- The camera's side ----
    void Begin(SimFormat const &format, SimSettings const &settings, std::int64_t frames); // -1: endless
    void End();
    bool IsRunning() const; // until the last frame is out
    void Apply(SimSettings const &settings);
    void Trigger();
    // The camera is gone: frames end, and the subscriber of EventConnectionLost is told.
    void Lose();
    // Hands packets of the control channel to the thread.
    void Post(std::vector<SimPacket> packets);
    void NoteMissed(); // one more packet that could not be delivered; any thread
    std::uint64_t GetTicks() const;
    void ResetTicks();
    // The camera's clock is fast by so many parts per million from now on, a tenth at most; it does not jump. Any
    // thread.
    void SetDrift(double ppm);
    // Frames follow each other as soon as a buffer is free, whatever the period.
    void SetEager(bool eager);
    // Ends the thread. The last call on the camera's side.
    void Shutdown();

    // ---- The host's side ----
    std::int32_t QueueBuffer(TovCam::Buffer *buffer) override;
    TovCam::Buffer *GetBuffer(std::uint32_t timeout, std::int32_t *error) override;
    void CancelGetBuffer() override;
    std::int32_t StartAcquisition(std::int64_t frames, std::uint32_t flags) override;
    std::int32_t StopAcquisition(std::uint32_t flags) override;
    std::int32_t AllocBufferQueue(void *context, std::uint32_t count) override;
    std::int32_t ReleaseBufferQueue() override;
    bool GetLosses(TovCam::StreamLosses *losses) override;

private:
    using Clock = std::chrono::steady_clock;

    std::chrono::nanoseconds ReadClock(Clock::time_point now) const;
    void Run();
    void EmitPending(std::unique_lock<std::mutex> &lock);
    void MakeFrame(std::unique_lock<std::mutex> &lock, Clock::time_point due);
    void Fill(SimBuffer &buffer, std::uint64_t id, std::uint64_t timestamp);
    bool LosePackets(SimBuffer &buffer, std::uint64_t id);
    void TellFrame(SimBuffer const &buffer, std::uint64_t id, std::uint64_t timestamp);
    // Packets for which there is no memory count as missed; the thread goes on. Without the lock.
    template<class Packets>
    void Tell(Packets const &packets)
    {
        try {
            packets();
        } catch (std::bad_alloc const &) {
            NoteMissed();
        }
    }
    void CountLosses(SimBuffer &delivered);
    void FlushFilled();
    bool CanDeliver() const;

    SimModel const &m_model;
    EventHub &m_events;
    std::function<std::int32_t(SimFormat &)> const m_currentFormat;
    Packets const m_packets;

    std::mutex m_mutex;                  // guards everything down to the blank line
    std::condition_variable m_wake;      // the thread: something to do
    std::condition_variable m_delivered; // GetBuffer: a buffer, or a cancel
    std::condition_variable m_settled;   // StopAcquisition: no buffer is being filled
    std::vector<std::unique_ptr<SimBuffer>> m_buffers;
    SimBufferRing m_input, m_output;
    bool m_started = false; // the host's side
    bool m_cancelled = false;
    bool m_filling = false;
    std::int64_t m_hostFrames = -1; // left to deliver, -1: endless
    bool m_quit = false, m_lost = false, m_tellLost = false;
    std::deque<SimPacket> m_control;
    std::uint64_t m_missed = 0, m_toldMissed = 0; // control packets that found no room there
    SimFormat m_format;
    SimSettings m_settings;
    std::uint64_t m_change = 0;     // rises with m_format and m_settings
    std::int64_t m_framesLeft = -1; // of the acquisition
    std::uint64_t m_nextFrame = 0;
    std::uint32_t m_triggers = 0;
    bool m_eager = false;
    TovCam::StreamLosses m_losses;
    std::uint64_t m_skipped = 0, m_unbuffered = 0; // frames since the last one that was delivered

    std::atomic<bool> m_running{false};
    std::mutex mutable m_clockMutex; // guards everything down to the blank line; taken last
    Clock::time_point m_clockStart;  // when the clock showed m_clockOffset
    std::chrono::nanoseconds m_clockOffset{0};
    double m_drift = 0.0; // parts of 1

    // The thread's own.
    SimScene m_scene;
    SimSender m_sender;
    SimLoss m_loss;
    SimFormat m_drawnFormat;
    SimSettings m_drawn;
    std::uint64_t m_drawnChange = 0;

    std::thread m_thread; // last: it uses everything above
};
