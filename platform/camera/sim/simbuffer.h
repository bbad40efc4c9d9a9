// The buffers of a simulated camera's stream, and the queues they wait in.
#pragma once

#include "simmodel.h"

#include "tovcamera.h"
#include "tovlosses.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

// What a frame was made with.
struct SimTake
{
    double exposure = 0.0;   // us
    double gain = 1.0;       // factor
    std::int64_t period = 0; // ns
    std::uint32_t lines = 0; // bit n: line n was high
    std::chrono::system_clock::time_point began;
    std::chrono::steady_clock::time_point finished;
};

class SimBuffer final : public TovCam::Buffer
{
public:
    enum State { Held, Queued, Filling, Filled };

    ~SimBuffer();
    // Makes room for frames of this format; false without memory.
    bool Create(SimFormat const &format);
    // Takes frames of another format from now on; false where they need more room than there is.
    bool Fit(SimFormat const &format);
    _TovImage *GetImage() override;
    std::uint64_t GetBufferSize() override;
    std::uint64_t GetTimestamp() override;
    std::uint64_t GetFrameID() override;
    bool IsIncomplete() override;
    bool GetFacts(TovCam::FrameFacts *facts) override;
    bool GetLosses(TovCam::FrameLosses *losses) override;

    State state = Queued; // guarded by the stream's mutex
    // Written while Filling by the stream's thread, read while Held by the host.
    SimFormat format;
    _TovImage *image = nullptr;
    void *memory = nullptr;
    std::uint64_t capacity = 0, payload = 0;
    bool incomplete = false;
    std::uint64_t missingBytes = 0;
    TovCam::FrameLosses losses;
    SimTake take;
};

// A queue that allocates nothing once it has its size. It is given no more buffers than that.
class SimBufferRing
{
public:
    void Reset(std::size_t capacity);
    bool IsEmpty() const;
    void Push(SimBuffer *buffer);
    SimBuffer *Pop(); // null when there is none

private:
    std::vector<SimBuffer *> m_slots;
    std::size_t m_first = 0, m_count = 0;
};
