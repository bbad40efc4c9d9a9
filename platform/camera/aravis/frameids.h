// Frame ids and timestamps as Aravis gives them, turned into what cameras count.
#pragma once

#include <cstdint>

// Makes one rising count out of block ids, which without extended ids are 16 bits wide and skip 0.
class FrameIdCounter
{
public:
    // `wraps` for ids of GigE Vision.
    void Reset(bool wraps);
    // The id of a complete frame.
    std::uint64_t Next(std::uint64_t id);
    // The id of an incomplete one, which may be stale: changes nothing.
    std::uint64_t Peek(std::uint64_t id) const;

private:
    bool m_wraps = false;
    bool m_any = false;
    std::uint64_t m_raw = 0;
    std::uint64_t m_count = 0;
};

// Turns nanoseconds that were made of ticks back into the very same ticks, where the clock is no faster than 1 GHz.
std::uint64_t TicksFromNanoseconds(std::uint64_t nanoseconds, std::uint64_t frequency);
