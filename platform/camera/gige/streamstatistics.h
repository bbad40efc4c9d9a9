// What became of a stream's packets and frames, since its buffers were announced.
//
// Threads: one writes, the receiver's while there is one; any thread reads, and may see numbers that are a moment old
// and do not yet sum up.
//
// Once the stream has stopped, these hold:
//   received = packets + duplicate + late + foreign + malformed + refused + ignored
//   frames that began = complete + unfit + incomplete + lost + aborted
//   block ids from the first frame to the last = frames that began + skipped, unless the camera began to count anew
#pragma once

#include <atomic>
#include <cstdint>

// A number that one thread counts.
class StreamCounter
{
public:
    void Add(std::uint64_t count = 1)
    {
        m_value.store(m_value.load(std::memory_order_relaxed) + count, std::memory_order_relaxed);
    }
    void Set(std::uint64_t value)
    {
        m_value.store(value, std::memory_order_relaxed);
    }
    std::uint64_t Get() const
    {
        return m_value.load(std::memory_order_relaxed);
    }

private:
    std::atomic<std::uint64_t> m_value{0};
};

struct StreamStatistics
{
    // Datagrams.
    StreamCounter received;  // at the stream's port, from anybody
    StreamCounter packets;   // that became part of a frame
    StreamCounter duplicate; // were there already
    StreamCounter late;      // belong to a frame that was over, or that had no buffer
    StreamCounter foreign;   // not from the camera
    StreamCounter malformed; // contradict themselves, their frame, or what was announced
    StreamCounter refused;   // tell that a packet cannot be had, or carry another error
    StreamCounter ignored;   // test packets
    // Packets of frames.
    StreamCounter missing; // frames ended without them
    StreamCounter asked;   // asked for again; one that is asked for twice counts twice
    StreamCounter resent;  // of `packets`: came after they had been asked for
    // As the system tells it.
    StreamCounter socketDrops; // datagrams that the socket had no room for
    StreamCounter socketRoom;  // bytes that the socket was given; 0: a packet ring has its place
    StreamCounter wantedRoom;  // bytes that it was to have
    // Frames by what became of them.
    StreamCounter complete;
    StreamCounter unfit;      // all of it came, but no picture that fits what was announced
    StreamCounter incomplete; // some of it came
    StreamCounter lost;       // came when no buffer was free
    StreamCounter aborted;    // were under way when the stream stopped
    StreamCounter skipped;    // ids of which nothing came before a later frame was over
};
