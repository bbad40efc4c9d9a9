// The local time of day, for tens of thousands of lines a second. Where TZ is not set, the C library looks at the
// zone's file at each call; here that happens once a minute. Zones change their offset on whole minutes, so every time
// is right, and a zone that the operator changes is followed within a minute.
//
// Thread-safety: any thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <limits>

class LocalClock
{
public:
    // Milliseconds since the start of the day; 0 where the system cannot tell.
    std::int64_t TimeOfDay(std::int64_t secondsSinceEpoch, long nanoseconds);

private:
    static constexpr std::int64_t MinuteBits = 40; // the rest is the offset

    // The minute since the epoch, and its offset in seconds plus a day, in one word.
    std::atomic<std::uint64_t> m_minute{std::numeric_limits<std::uint64_t>::max()};
};
