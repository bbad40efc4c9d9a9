// The packets that a camera of this kind would have exchanged with its host, byte by byte as they stand on the wire.
// The builders append to `out`; GigE Vision packets are big-endian, USB3 Vision ones little-endian.
#pragma once

#include "simmodel.h"

#include <cstddef>
#include <cstdint>
#include <vector>

using SimPacket = std::vector<std::uint8_t>;

// One access to registers: the command and its answer. Bytes as the register memory holds them.
struct SimAccess
{
    bool write;
    bool failed;
    std::uint64_t address;
    std::uint8_t const *bytes;
    std::size_t size;
};

// What a frame's packets tell about it.
struct SimFrameFacts
{
    SimFormat format;
    std::uint32_t pfnc;
    std::uint64_t id, timestamp, validPayload;
};

class SimPackets
{
public:
    explicit SimPackets(std::uint32_t interfaceKind);

    // Commands and acknowledges, in order; long accesses take several. Counts the requests up.
    std::vector<SimPacket> Control(SimAccess const &access);
    // The host asks for packets of a frame again, both ends included. GigE Vision only, as is what it brings.
    SimPacket Resend(SimFrameFacts const &facts, std::uint32_t first, std::uint32_t last);
    SimPacket Leader(SimFrameFacts const &facts) const;
    SimPacket Trailer(SimFrameFacts const &facts, std::uint32_t packetId, bool complete) const;
    // Header of a payload packet; the pixels follow. Empty for USB3 Vision, which sends them bare.
    SimPacket PayloadHeader(SimFrameFacts const &facts, std::uint32_t packetId, bool resent = false) const;
    SimPacket Event(std::uint16_t eventId, std::uint64_t frame, std::uint64_t timestamp);
    // What the host answers to an event; empty where the camera asks for no answer, as on USB3 Vision.
    SimPacket EventAcknowledge(SimPacket const &event) const;
    // Bytes of pixels in a payload packet.
    std::size_t PayloadBytes(std::uint32_t packetSize) const;

private:
    bool const m_usb;
    std::uint16_t m_request = 0; // of the control channel; never 0 on GigE Vision
    std::uint16_t m_eventRequest = 0;
    std::uint16_t m_resendRequest = 0; // the receiver of the stream counts its own
};
