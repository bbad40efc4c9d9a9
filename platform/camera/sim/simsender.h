// Gives the subscribers of a simulated camera's packet channels the packets that the camera and its host exchange.
//
// Used by one thread at a time. Every call calls subscribers back and may throw std::bad_alloc.
#pragma once

#include "simloss.h"
#include "simpackets.h"

#include "eventhub.h"
#include "packettap/packetframing.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

// A frame that went over the link, with the pixels as they arrived.
struct SimSentFrame
{
    SimFrameFacts facts;
    std::uint8_t const *pixels;
    std::size_t size;        // of all pixels
    std::size_t packetBytes; // of pixels in a packet
    bool incomplete;
    bool resend; // the host asks for lost packets again
};

class SimSender
{
public:
    SimSender(std::uint32_t interfaceKind, EventHub &events);

    // Bytes of pixels in a payload packet.
    std::size_t PayloadBytes(std::uint32_t packetSize) const;
    // Leader, payload and trailer, and the requests for what was lost.
    void SendFrame(SimSentFrame frame, SimLoss const &loss);
    void SendEvent(std::uint16_t eventId, std::uint64_t frame, std::uint64_t timestamp);
    void SendControl(SimPacket const &packet);

private:
    void SendPayload(SimSentFrame const &frame, std::size_t index, bool resent);
    void SendResends(SimSentFrame const &frame, SimLoss const &loss, std::size_t first, std::size_t last);
    void Send(std::uint32_t channel, std::span<std::uint8_t const> head, std::span<std::uint8_t const> body = {});

    EventHub &m_events;
    std::unique_ptr<SimPackets> const m_packets;
    PacketBuffer m_bytes;
};
