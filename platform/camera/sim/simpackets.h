// The packets that a camera would have exchanged with its host, byte by byte as on the wire. One class for each
// transport; each counts its own requests.
//
// Used by one thread at a time.
#pragma once

#include "simmodel.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
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

// What a frame's packets say about it.
struct SimFrameFacts
{
    SimFormat format;
    std::uint32_t pfnc;
    std::uint64_t id, timestamp, validPayload;
};

class SimPackets
{
public:
    virtual ~SimPackets() = default;

    // Commands and acknowledges, in order; long accesses take several.
    std::vector<SimPacket> Control(SimAccess const &access);
    virtual SimPacket Leader(SimFrameFacts const &facts) const = 0;
    virtual SimPacket Trailer(SimFrameFacts const &facts, std::uint32_t packetId, bool complete) const = 0;
    // Header of a payload packet; the pixels follow. Good until the next call.
    virtual std::span<std::uint8_t const> PayloadHeader(SimFrameFacts const &facts, std::uint32_t packetId,
                                                        bool resent) = 0;
    // Bytes of pixels in a payload packet.
    virtual std::size_t PayloadBytes(std::uint32_t packetSize) const = 0;
    // The host asks for packets of a frame again, both ends included; empty where the transport has no such request.
    virtual SimPacket Resend(SimFrameFacts const &facts, std::uint32_t first, std::uint32_t last) = 0;
    virtual SimPacket Event(std::uint16_t eventId, std::uint64_t frame, std::uint64_t timestamp) = 0;
    // What the host answers to an event; empty where the camera asks for no answer.
    virtual SimPacket EventAcknowledge(SimPacket const &event) const = 0;

private:
    // The command and the acknowledge of an access that one packet carries.
    virtual SimPacket Command(SimAccess const &access) = 0;
    virtual SimPacket Acknowledge(SimAccess const &access) const = 0;
};

// `interfaceKind` is the TovCam::InterfaceKind of a transport.
std::unique_ptr<SimPackets> MakeSimPackets(std::uint32_t interfaceKind);

// The two that it chooses from.
std::unique_ptr<SimPackets> MakeGigEVisionPackets();
std::unique_ptr<SimPackets> MakeUsb3VisionPackets();
