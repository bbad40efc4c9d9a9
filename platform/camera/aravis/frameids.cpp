#include "frameids.h"

#include "protocol/gigevision.h"

void FrameIdCounter::Reset(bool wraps)
{
    *this = {};
    m_wraps = wraps;
}

std::uint64_t FrameIdCounter::Peek(std::uint64_t id) const
{
    if (!m_any || !m_wraps)
        return id;
    constexpr std::uint64_t Period = gvsp::LastBlockId; // from 1 on
    bool const wide = id > Period || m_raw > Period;
    std::uint64_t const step = wide ? id - m_raw : (id + Period - m_raw) % Period;
    // The camera has started over; how many frames were lost meanwhile is unknown.
    if (step > (wide ? UINT64_MAX / 2 : Period / 2))
        return m_count + 1;
    return m_count + step;
}

std::uint64_t FrameIdCounter::Next(std::uint64_t id)
{
    m_count = Peek(id);
    m_raw = id;
    m_any = true;
    return m_count;
}

std::uint64_t TicksFromNanoseconds(std::uint64_t nanoseconds, std::uint64_t frequency)
{
    constexpr std::uint64_t Second = 1000000000;
    if (frequency == Second)
        return nanoseconds;
    // The conversion to nanoseconds rounds down.
    std::uint64_t const rest = nanoseconds % Second;
    return nanoseconds / Second * frequency +
           static_cast<std::uint64_t>((static_cast<unsigned __int128>(rest) * frequency + (Second - 1)) / Second);
}
