// A datagram of a camera's control or message channel, and who gets it.
#pragma once

#include <cstdint>
#include <vector>

struct GvcpPeer
{
    std::uint32_t address = 0; // host byte order, as all addresses here
    std::uint16_t port = 0;

    bool operator==(GvcpPeer const &) const = default;
};

struct GvcpDatagram
{
    GvcpPeer to;
    std::vector<std::uint8_t> bytes;
    bool message = false; // leaves by the message channel's source port
};
