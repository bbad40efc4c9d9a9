// A datagram of a camera's control or message channel, and who gets it.
#pragma once

#include "protocol/socketaddress.h"

#include <cstdint>
#include <vector>

using GvcpPeer = SocketAddress; // who sent a request, or is sent something

struct GvcpDatagram
{
    GvcpPeer to;
    std::vector<std::uint8_t> bytes;
    bool message = false; // leaves by the message channel's source port
};
