// From the blocks of a packet socket's ring to UDP datagrams. Bytes come in and views of them go out: no socket, no
// memory of its own. Neither the lengths inside the packets nor the system's own are trusted.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

// A captured packet.
struct RingFrame
{
    std::span<std::uint8_t const> bytes; // what was captured of it, from the IP header on
    std::size_t size = 0;                // on the wire; at least as many
    std::int64_t arrival = 0;            // nanoseconds since 1970, by the system's clock
    bool isChecked = false;              // the adapter has verified its checksum, or it has not left this computer
};

struct RingDatagram
{
    std::span<std::uint8_t const> payload;
    std::size_t size = 0; // of the payload on the wire; more than is there only if it was cut short
    std::uint32_t source = 0, destination = 0; // IPv4, as numbers
    std::uint16_t sourcePort = 0, destinationPort = 0;
    std::int64_t arrival = 0;
};

enum class RingVerdict {
    Whole,
    CutShort, // less was captured than came; the datagram says how much
    Fragment, // of a datagram; the parts are not put together
    Malformed // no UDP over IPv4, lengths that do not fit, or a wrong checksum
};

// Fills `datagram` for Whole and CutShort.
RingVerdict ReadDatagram(RingFrame const &frame, RingDatagram &datagram);

// The packets of a block (TPACKET_V3) that the system has handed over, one after the other.
class RingBlock
{
public:
    RingBlock() = default;
    explicit RingBlock(std::span<std::uint8_t const> block);
    // False behind the last one.
    bool Next(RingFrame &frame);
    // Packets that the block announced and that could not be found in it.
    std::uint32_t GetLost() const
    {
        return m_isDamaged ? m_left : 0;
    }

private:
    std::span<std::uint8_t const> m_block;
    std::size_t m_at = 0;
    std::uint32_t m_left = 0;
    bool m_isDamaged = false;
};
