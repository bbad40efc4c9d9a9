// How the packets of a stream are to look, and where they go.
#pragma once

#include "sim/simmodel.h"

#include <chrono>
#include <cstdint>

// Where the packets go and how they look; from the bootstrap registers.
struct StreamChannel
{
    std::uint32_t localAddress = 0; // host byte order
    std::uint16_t localPort = 0;    // 0: any
    std::uint32_t address = 0;      // host byte order
    std::uint16_t port = 0;
    std::uint32_t packetSize = 1500; // with the headers of IP, UDP and GVSP
    bool doNotFragment = false;
    std::chrono::nanoseconds packetDelay{0}; // from the beginning of one packet to that of the next, at least
    bool extendedIds = false, allIn = false;
    bool multiPart = false;   // needs extendedIds; without them frames go as images
    std::uint32_t chunks = 0; // bit n: WireChunk n is sent
    bool chunkMode = false;
    bool extendedStatus = false; // statuses of version 2.0 tell why a packet cannot be sent again
};

// Bytes of a frame without leader and trailer: what a host has to have room for.
std::uint64_t PayloadSize(StreamChannel const &channel, SimFormat const &format);
