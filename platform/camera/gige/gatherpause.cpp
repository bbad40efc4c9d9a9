#include "gatherpause.h"

#include <algorithm>
#include <utility>

using namespace std::chrono_literals;

namespace {

constexpr std::chrono::nanoseconds Window = 1ms; // to measure a pace in
constexpr std::chrono::nanoseconds Idle = 5ms;   // without a packet: longer than any pause
constexpr double Forget = 7.0 / 8;               // of a higher pace, with each window
constexpr std::chrono::nanoseconds Least = 250us, Most = 2ms;
constexpr double PaceShare = 6, BurstShare = 4; // of the room: a third at the pace, and 5/8 at 1.25 bytes a nanosecond

} // namespace

std::chrono::nanoseconds GatherPause::Next(std::size_t bytes, Time now)
{
    m_bytes += static_cast<double>(bytes);
    if (now - std::exchange(m_last, now) > Idle) {
        m_since = now;
        m_bytes = 0;
    }
    if (std::chrono::nanoseconds const elapsed = now - m_since; elapsed >= Window) {
        m_pace = std::max(m_bytes / static_cast<double>(elapsed.count()), m_pace * Forget);
        m_since = now;
        m_bytes = 0;
    }
    double const room = std::min(m_room / BurstShare, m_room / (PaceShare * std::max(m_pace, 1e-3)));
    auto const pause = std::chrono::nanoseconds(static_cast<long>(std::min(room, static_cast<double>(Most.count()))));
    return pause < Least ? 0ns : pause;
}
