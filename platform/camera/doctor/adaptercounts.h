// What a network adapter has lost, as the system tells it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

// Packets, since the adapter has been there.
struct AdapterCounts
{
    std::uint64_t noRoom = 0;     // in its memory
    std::uint64_t dropped = 0;    // by the system, which had no room for them or nobody who wanted them
    std::uint64_t damaged = 0;    // checksum, frame or length
    std::uint64_t linkLosses = 0; // times that the link went down
};

// Nothing where there is no such adapter. Any thread; some 20 microseconds.
std::optional<AdapterCounts> ReadAdapterCounts(std::string const &adapter);
