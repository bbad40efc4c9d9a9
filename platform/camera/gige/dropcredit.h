// Which of the packets that are missing the system has dropped for want of room.
//
// It tells only how many it has dropped so far, and not in front of which packet: what waits in a socket or in a ring
// may be older than the drops, and frames that lack nothing come before the one that does. So drops are kept until
// packets are missing, or until a frame begins that was sent when all that had waited then was read.
//
// One thread at a time.
#pragma once

#include <algorithm>
#include <cstdint>

class DropCredit
{
public:
    // So many packets may wait at most. One drop may be of so many packets, which the system had joined.
    void Begin(std::uint64_t waiting, std::uint64_t joined)
    {
        *this = {};
        m_waiting = waiting;
        m_joined = joined;
    }
    // When so many packets had been read.
    void Add(std::uint64_t drops, std::uint64_t read)
    {
        if (read > m_end)
            m_packets = 0;
        m_packets += drops * m_joined;
        m_end = read + m_waiting;
    }
    // Of `missing` packets around a frame that began when so many had been read.
    std::uint64_t Take(std::uint64_t missing, std::uint64_t begin)
    {
        std::uint64_t const dropped = begin > m_end ? 0 : std::min(missing, m_packets);
        m_packets -= dropped;
        return dropped;
    }

private:
    std::uint64_t m_waiting = 0, m_joined = 1;
    std::uint64_t m_packets = 0; // dropped at most, and not taken
    std::uint64_t m_end = 0;     // packets read until they count no more
};
