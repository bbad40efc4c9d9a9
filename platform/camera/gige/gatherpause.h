// How long a receiver lets packets gather in its socket before it reads on.
#pragma once

#include <chrono>
#include <cstddef>

// To be woken costs a thread as much as ten packets do and more, so what trickles in is left to gather: up to 2 ms, for
// as long as a third of the socket's room holds at the pace of late. A burst at 10 Gbit/s that follows a slow stream
// fills no more than two thirds. One thread's.
class GatherPause
{
public:
    using Time = std::chrono::steady_clock::time_point;

    // In bytes, as the system counts them: a packet takes twice its size.
    explicit GatherPause(std::size_t room = 0) : m_room(static_cast<double>(room))
    {
    }

    // So many bytes have been read since it was asked last, and no more are there. Zero: not worth a pause.
    std::chrono::nanoseconds Next(std::size_t bytes, Time now);

private:
    static constexpr double Fastest = 12.5; // bytes a nanosecond: 100 Gbit/s

    double m_room;
    double m_pace = Fastest; // the highest of late, bytes a nanosecond; nothing is known at first
    Time m_last;
    Time m_since; // the pace is measured
    double m_bytes = 0;
};
