// What a stream channel needs of its camera's control channel.
#pragma once

#include "haste.h"

#include <cstdint>

// Packets of one frame that are to be sent again: the first and the last of them, inclusive.
struct PacketRequest
{
    std::uint16_t channel = 0;
    std::uint64_t blockId = 0;
    std::uint32_t first = 0, last = 0;
    bool isExtended = false; // ids of 64 and 32 bits
};

class StreamControl : public Hurried
{
public:
    virtual ~StreamControl() = default;

    // A register of the bootstrap block. Answers a status; may wait for the camera. One thread at a time.
    virtual std::int32_t ReadRegister(std::uint32_t address, std::uint32_t &value) = 0;
    virtual std::int32_t WriteRegister(std::uint32_t address, std::uint32_t value) = 0;

    // Sends a request and waits for nothing: what comes of it shows in the stream. Any thread.
    virtual void RequestPackets(PacketRequest const &request) = 0;

    // IPv4 in the computer's byte order: the camera, and this host on the way to it.
    virtual std::uint32_t GetCameraAddress() const = 0;
    virtual std::uint32_t GetHostAddress() const = 0;
};
