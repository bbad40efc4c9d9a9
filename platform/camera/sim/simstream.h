// The frames of a simulated camera: a thread that paces them as the sensor would, draws each into a queued buffer, and
// hands it over. A frame that finds no buffer is lost, and its number with it.
//
// Two sides: the camera's (Begin, End, Apply, Trigger, Lose), called under the device's lock, and the host's, which is
// TovCam::Stream. Everything that the camera tells by events is called back on the thread of this class.
#pragma once

#include "devicebase.h"
#include "packettap/packetframing.h"
#include "simpackets.h"
#include "simscene.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <random>
#include <thread>

class SimStream final : public TovCam::Stream
{
public:
    // `currentFormat` answers AllocBufferQueue; it returns a status.
    SimStream(SimModel const &model, EventHub &events, std::function<std::int32_t(SimFormat &)> currentFormat);
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
    void NoteMissed(); // one more packet that could not be told; any thread
    std::uint64_t GetTicks() const;
    void ResetTicks();
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

private:
    using Clock = std::chrono::steady_clock;

    class SimBuffer final : public TovCam::Buffer
    {
    public:
        enum State { Held, Queued, Filling, Filled };

        ~SimBuffer();
        bool Create(SimFormat const &format);
        _TovImage *GetImage() override;
        std::uint64_t GetBufferSize() override;
        std::uint64_t GetTimestamp() override;
        std::uint64_t GetFrameID() override;
        bool IsIncomplete() override;

        State state = Queued; // guarded by the stream's mutex
        // Written while Filling by the stream's thread, read while Held by the host.
        SimFormat format;
        _TovImage *image = nullptr;
        void *memory = nullptr;
        std::uint64_t capacity = 0, payload = 0;
        bool incomplete = false;
    };

    // A queue that allocates nothing once it has its size.
    class Ring
    {
    public:
        void Reset(std::size_t capacity);
        bool IsEmpty() const;
        void Push(SimBuffer *buffer);
        SimBuffer *Pop();

    private:
        std::vector<SimBuffer *> m_slots;
        std::size_t m_first = 0, m_count = 0;
    };

    void Run();
    void EmitPending(std::unique_lock<std::mutex> &lock);
    void MakeFrame(std::unique_lock<std::mutex> &lock, Clock::time_point due);
    void Fill(SimBuffer &buffer, std::uint64_t id, std::uint64_t timestamp);
    bool LosePackets(SimBuffer &buffer, std::uint64_t id);
    void EmitFrame(SimBuffer const &buffer, std::uint64_t id, std::uint64_t timestamp);
    void EmitPayload(SimBuffer const &buffer, SimFrameFacts const &facts, std::size_t index, bool resent);
    void EmitResends(SimBuffer const &buffer, SimFrameFacts const &facts, std::size_t first, std::size_t last);
    // Packets that there is no memory for are missed, and end no thread. Without the lock.
    template<class Packets>
    void Tell(Packets const &packets)
    {
        try {
            packets();
        } catch (std::bad_alloc const &) {
            NoteMissed();
        }
    }
    void EmitEvent(std::uint16_t eventId, std::uint64_t frame, std::uint64_t timestamp);
    void EmitBytes(std::uint32_t channel, SimPacket const &head, std::uint8_t const *body, std::size_t size);
    void FlushFilled();

    SimModel const &m_model;
    EventHub &m_events;
    std::function<std::int32_t(SimFormat &)> const m_currentFormat;

    std::mutex m_mutex;                  // guards everything down to the blank line
    std::condition_variable m_wake;      // the thread: something to do
    std::condition_variable m_delivered; // GetBuffer: a buffer, or a cancel
    std::condition_variable m_settled;   // StopAcquisition: no buffer is being filled
    std::vector<std::unique_ptr<SimBuffer>> m_buffers;
    Ring m_input, m_output;
    bool m_started = false; // the host's side
    bool m_cancelled = false;
    bool m_filling = false;
    std::int64_t m_hostFrames = -1; // left to deliver, -1: endless
    bool m_quit = false, m_lost = false, m_tellLost = false;
    std::deque<SimPacket> m_control;
    std::uint64_t m_missed = 0, m_toldMissed = 0; // control packets that found no place there
    SimFormat m_format;
    SimSettings m_settings;
    std::uint64_t m_change = 0;     // rises with m_format and m_settings
    std::int64_t m_framesLeft = -1; // of the acquisition
    std::uint64_t m_nextFrame = 0;
    std::uint32_t m_triggers = 0;

    std::atomic<bool> m_running{false};
    std::atomic<Clock::rep> m_clockStart;

    // The thread's own.
    SimScene m_scene;
    SimPackets m_packets;
    SimFormat m_drawnFormat;
    SimSettings m_drawn;
    std::uint64_t m_drawnChange = 0;
    // How the packets of the present frame came, empty where each came by itself: as the answer to which request, 0 for
    // none, LostForGood for not at all.
    std::vector<std::uint8_t> m_arrivals;
    PacketBuffer m_bytes;
    std::minstd_rand m_random{2024};

    std::thread m_thread; // last: it uses everything above
};
