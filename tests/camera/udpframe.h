// Ethernet frames with UDP datagrams, as a capture sees them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t IpAt = 14, UdpAt = 34; // without options

// A number of so many bytes, big-endian.
inline void Put(Bytes &bytes, std::size_t at, std::uint64_t value, int size)
{
    for (int i = 0; i < size; ++i)
        bytes[at + static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(value >> 8 * (size - 1 - i));
}

// With an empty hardware address, room for options in the IP header, and `size` zeros as payload.
inline Bytes UdpFrame(std::uint32_t from, std::uint16_t fromPort, std::uint32_t to, std::uint16_t toPort,
                      std::size_t size, std::size_t options = 0)
{
    Bytes frame(UdpAt + options + 8 + size);
    Put(frame, 12, 0x0800, 2);
    Put(frame, IpAt, 0x45 + options / 4, 1);
    Put(frame, IpAt + 2, frame.size() - IpAt, 2);
    Put(frame, IpAt + 8, 0x4011, 2);
    Put(frame, IpAt + 12, std::uint64_t{from} << 32 | to, 8);
    Put(frame, UdpAt + options, std::uint64_t{fromPort} << 32 | std::uint64_t{toPort} << 16 | (8 + size), 6);
    return frame;
}
