// The acquisition engine: a thread that takes filled buffers from the stream, keeps the frame statistics, and holds the
// buffers until the display and the recording thread have taken them. Only pointers move.
//
// While the operator only watches, the FIFO holds at most the newest frame and older ones go back to the stream
// unclaimed. While capturing it keeps frames in order up to "QueueSize" - 3; the rest counts as software drops.
//
// Threads: SetState, CreateBuffers, StartGrabbing, StopGrabbing, ReleaseBuffers on the GUI thread; GetNewestBuffer,
// PopOldestBuffer, ReleaseBuffer, ReturnBuffer on the consumers' threads; Work on its own thread. Locks: m_waitMutex
// comes before m_fifoMutex, and the grabbing thread never holds both. Statuses are those of the camera library.
#pragma once

#include "losscauses.h"
#include "lossfindings.h"
#include "sessionstate.h"
#include "tovcomponentimp.h"
#include "workingthread.h"

#include "tovcamera.h"

#include <QObject>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <unordered_map>

class GrabbingFifo : public QObject, public WorkingThread, public TovComponentImp
{
    Q_OBJECT
public:
    GrabbingFifo(QObject *parent, TovCam::Device *device);
    ~GrabbingFifo() override;

    int SetState(SessionState state); // always 1
    std::int32_t CreateBuffers();
    bool StartGrabbing();
    bool StopGrabbing();
    int Stop() override; // also wakes GetBuffer
    // After both consumers have given their buffers back.
    std::int32_t ReleaseBuffers();

    // The front of the FIFO. Sleeps while it is empty; 0 with `*buffer` untouched when the blocking flag is cleared.
    std::int32_t GetNewestBuffer(TovCam::Buffer **buffer, bool bKeepInFifo);
    // The back of the FIFO, taken out; otherwise the same. It sleeps no longer than `most`, where that is given.
    std::int32_t PopOldestBuffer(TovCam::Buffer **buffer, std::optional<std::chrono::milliseconds> most = {});
    // Gives a buffer back to the stream.
    std::int32_t ReleaseBuffer(TovCam::Buffer *buffer);
    // Gives a buffer back to whoever needs it next: the recorder while capturing, otherwise the stream.
    std::int32_t ReturnBuffer(TovCam::Buffer *buffer);
    // Clearing it wakes every consumer asleep in the FIFO. It is set otherwise.
    void SetGrabberThtreadBlocking(bool blocking);
    double GetCurrentFPS(); // frames per tick since StartGrabbing; 0.0 before two timestamps

    // What has become of the frames, all read at one moment: while capturing, each one that arrived is dropped, queued,
    // with a consumer, or given back by one. Any thread.
    struct Accounts
    {
        std::int64_t arrived;    // at the FIFO, complete or not
        std::int64_t incomplete; // of those that arrived
        std::int64_t droppedSW;
        std::int64_t queued;        // in the FIFO
        std::int64_t withConsumers; // taken and not given back yet
        // Never arrived, by the gaps between the ids of those that did. "FramesDroppedHW" knows complete frames alone,
        // and takes an incomplete one between two of them for a gap.
        std::int64_t missing;
    };
    Accounts GetAccounts();
    // Frames that the camera counted directly before one that a consumer has taken, and that nobody got: they never
    // arrived, or the full FIFO dropped them.
    struct Loss
    {
        std::uint64_t frames = 0;
        std::uint64_t dropped = 0; // of them, by the full FIFO
        LossPlaces before, own;    // of those frames, and of what the frame itself lacks
        void Add(Loss const &other);
    };
    Loss GetLossBefore(TovCam::Buffer const *buffer); // any thread
    // What was lost so far, and where. Any thread.
    LossCounts GetLossCounts();

    // Read by the recording thread without a lock; a stale value is corrected on its next pass.
    std::int64_t GetFramesAcquired() const;
    std::int64_t GetFramesDroppedHW() const;
    std::int64_t GetFramesDroppedSW() const;

protected:
    void Work() override;

private:
    std::int32_t GrabNewBuffer(std::uint32_t timeout);
    enum DropMode : std::int32_t { DropNewest = 0, DropOldest = 1, DropIncoming = 2 };

    void RegisterParams();
    void UpdateStatistics(TovCam::Buffer *buffer); // of a complete frame; grabbing thread
    // With m_fifoMutex held.
    void CountArrival(TovCam::Buffer *buffer, bool incomplete, LossEvidence const &evidence);
    void CountMissing(Loss &loss, LossEvidence const &evidence);
    void PutIntoFifo(TovCam::Buffer *buffer);
    void CountSoftwareDrop(TovCam::Buffer const *dropped);
    void WriteQueueFilled();
    // Sleeps on `wait`, a lock of m_waitMutex, until a frame is there, and returns the lock of m_fifoMutex that keeps
    // it there; no lock when the blocking flag is cleared or the time is up.
    std::unique_lock<std::mutex> WaitForFrame(std::unique_lock<std::mutex> &wait,
                                              std::optional<std::chrono::milliseconds> most = {});
    void WakeConsumers(); // with no lock held

    std::atomic<SessionState> m_state{SessionStateIdle}; // a reader that sees the old state for one pass is harmless
    std::int32_t m_dropMode = DropNewest;                // of a full FIFO; set before the thread starts
    std::mutex m_fifoMutex;                              // guards m_grab_fifo and every QueueBuffer
    TovCam::Stream *m_stream;                            // the device's
    std::int64_t m_queueSize = 16;                       // bound; relaxed atomic access
    std::int64_t m_queueFilled = 0;                      // bound; written under m_fifoMutex
    std::deque<TovCam::Buffer *> m_grab_fifo;            // front newest, back oldest; m_fifoMutex
    std::int64_t m_arrived = 0;                          // frames put into the FIFO; m_fifoMutex
    std::int64_t m_arrivedIncomplete = 0;                // m_fifoMutex
    std::int64_t m_withConsumers = 0;                    // m_fifoMutex
    std::int64_t m_missing = 0;                          // m_fifoMutex, as the two below
    std::optional<std::uint64_t> m_lastId;               // of the frames that arrived since StartGrabbing
    std::uint64_t m_withoutId = 0;                       // incomplete ones since m_lastId whose id is unknown
    std::unordered_map<TovCam::Buffer const *, Loss> m_gaps; // before each; m_fifoMutex, as the two below
    Loss m_droppedSince;                                     // that the next frame's gap has to count
    LossTally m_lost;
    LossLook m_lossLook;                          // grabbing thread, or while that sleeps
    bool m_discard = false;                       // incomplete frames go back at once; set before the start
    std::atomic<bool> m_bBlockCallerThread{true}; // written under m_waitMutex
    std::condition_variable m_cvFifoEmpty;        // with m_waitMutex
    std::mutex m_waitMutex;                       // before m_fifoMutex

    // Bound counters: written by the grabbing thread, or by the GUI thread while it is stopped; read by anyone, by
    // relaxed atomic access.
    std::int64_t m_framesAcquired = 0;
    std::int64_t m_framesIncomplete = 0;
    std::uint64_t m_firstTimestamp = 0; // of the first complete frame since StartGrabbing; not bound, the same access
    std::int64_t m_timestamp = 0;       // unsigned 64-bit value in the signed variable that the key binds
    std::uint64_t m_previousTimestamp = 0; // grabbing thread
    std::int64_t m_framesDroppedHW = 0;
    std::int64_t m_framesDroppedSW = 0;
    std::int64_t m_frameId = 0;
    double m_rate1 = 0;                        // bound to "FpsAvg"
    double m_rate2 = 0;                        // bound to "FpsInst"
    double m_speed = 0;                        // bound to "Speed"; megabytes of 2^20 bytes a second
    std::int64_t m_tickFrequency = 1000000000; // timestamp ticks per second; set in the constructor
};
