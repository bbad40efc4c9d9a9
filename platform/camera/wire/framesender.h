// The stream channel of a camera on the network: takes the frames of a SimStream and sends their packets, at the pace
// that the host has set, straight from the frame's memory. The last frames stay there for hosts that ask for packets
// again.
//
// Threads: the calls come from one thread, the camera's; a thread of its own sends. Everything a call sets is guarded
// by a mutex that is held for a few moves.
#pragma once

#include "streamchannel.h"
#include "wirefaults.h"

#include "sim/simmodel.h"

#include <cstdint>
#include <memory>

class SimStream;

struct StreamCounters
{
    std::uint64_t frames = 0;  // of which something was sent
    std::uint64_t packets = 0; // as far as nobody had to ask for them
    std::uint64_t resent = 0, refused = 0;
    std::uint64_t bytes = 0;   // of UDP payload, of all of them
    std::uint64_t leftOut = 0; // frames of the sensor of which nothing was sent, before one of which something was
};

class FrameSender
{
public:
    // What is kept for requests of packets: as many frames as the memory has room for, within limits.
    static constexpr std::uint64_t KeptBytes = 32 << 20;
    static constexpr std::uint32_t FewestKept = 4, MostKept = 64;

    FrameSender(SimModel const &model, SimStream &stream);
    ~FrameSender();
    FrameSender(FrameSender const &) = delete;
    FrameSender &operator=(FrameSender const &) = delete;

    // The channel is open, or changed, from now on; a frame that is being sent keeps what it began with. Throws
    // std::system_error where the local address cannot be had.
    void Open(StreamChannel const &channel);
    void Close();
    std::uint16_t GetLocalPort() const; // 0 while closed
    // One packet of the size set, for hosts that try out what the way carries; false where the system refused it.
    bool SendTestPacket();
    // Makes buffers for frames of the camera's present format, whose pixels take `frameBytes`, and takes frames. Before
    // the camera begins. Whatever was kept of earlier frames is gone. Throws std::bad_alloc without memory.
    void Begin(std::uint64_t frameBytes);
    // No further frame is taken. After the camera has ended. What was sent can still be asked for.
    void End();
    // Both ends are included; a range that goes on behind the block's last packet ends there. Requests that come faster
    // than they can be served are dropped.
    void Resend(std::uint64_t blockId, std::uint32_t first, std::uint32_t last);
    void SetFaults(StreamFaults const &faults);
    StreamCounters GetCounters() const;

private:
    struct Impl;
    std::unique_ptr<Impl> const m_impl;
};
