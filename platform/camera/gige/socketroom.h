// How much room a stream asks the system for.
#pragma once

#include <algorithm>
#include <cstdint>

// Room for bursts: two frames, whatever their size. Bytes; `frameSize` 0: the least that any stream asks for.
inline std::uint64_t SocketRoomFor(std::uint64_t frameSize)
{
    constexpr std::uint64_t Least = 4u << 20, Most = 64u << 20;
    return frameSize > Most ? Most : std::clamp(frameSize * 2, Least, Most);
}
