#include "localclock.h"

#include <ctime>

namespace {

constexpr std::int64_t MinuteLength = 60, DayLength = 86400; // seconds

} // namespace

std::int64_t LocalClock::TimeOfDay(std::int64_t secondsSinceEpoch, long nanoseconds)
{
    auto const minute = static_cast<std::uint64_t>(secondsSinceEpoch / MinuteLength);
    std::uint64_t known = m_minute.load(std::memory_order_relaxed);
    if (known >> (64 - MinuteBits) != minute) {
        tzset();
        std::time_t const time = secondsSinceEpoch;
        std::tm local;
        if (secondsSinceEpoch < 0 || !localtime_r(&time, &local))
            return 0;
        known = minute << (64 - MinuteBits) | static_cast<std::uint64_t>(local.tm_gmtoff + DayLength);
        m_minute.store(known, std::memory_order_relaxed);
    }
    auto const offset = static_cast<std::int64_t>(known & ((1u << (64 - MinuteBits)) - 1)) - DayLength;
    return (secondsSinceEpoch + offset + DayLength) % DayLength * 1000 + nanoseconds / 1000000;
}
