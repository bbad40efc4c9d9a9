// The packets of a GigE Vision camera.
#include "simpackets.h"

#include "protocol/gigevision.h"

#include <algorithm>
#include <array>

namespace {

SimPacket Message(std::uint16_t lead, std::uint16_t code, std::size_t bodySize, std::uint16_t id)
{
    SimPacket packet(gvcp::HeaderSize + bodySize);
    gvcp::WriteHeader(std::span(packet).first<gvcp::HeaderSize>(),
                      {lead, code, static_cast<std::uint16_t>(bodySize), id});
    return packet;
}

std::uint8_t *BodyOf(SimPacket &message)
{
    return message.data() + gvcp::HeaderSize;
}

SimPacket StreamPacket(SimFrameFacts const &facts, gvsp::PacketFormat format, std::uint32_t packetId,
                       std::size_t bodySize)
{
    SimPacket packet(gvsp::HeaderSize + bodySize);
    gvsp::WriteHeader(std::span(packet).first<gvsp::HeaderSize>(),
                      {gvcp::GEV_STATUS_SUCCESS, gvsp::BlockId16(facts.id), format, packetId, false});
    return packet;
}

class GigEVisionPackets final : public SimPackets
{
public:
    SimPacket Leader(SimFrameFacts const &facts) const override
    {
        using Field = gvsp::ImageLeader;
        SimPacket packet = StreamPacket(facts, gvsp::DataLeader, 0, Field::Size);
        std::uint8_t *const leader = packet.data() + gvsp::HeaderSize;
        StoreBig16(leader + Field::PayloadType, gvsp::Image);
        StoreBig64(leader + Field::Timestamp, facts.timestamp);
        StoreBig32(leader + Field::PixelFormat, facts.pfnc);
        StoreBig32(leader + Field::SizeX, facts.format.width);
        StoreBig32(leader + Field::SizeY, facts.format.height);
        StoreBig32(leader + Field::OffsetX, facts.format.offsetX);
        StoreBig32(leader + Field::OffsetY, facts.format.offsetY);
        return packet;
    }
    SimPacket Trailer(SimFrameFacts const &facts, std::uint32_t packetId, bool) const override
    {
        using Field = gvsp::ImageTrailer;
        SimPacket packet = StreamPacket(facts, gvsp::DataTrailer, packetId, Field::Size);
        std::uint8_t *const trailer = packet.data() + gvsp::HeaderSize;
        StoreBig16(trailer + Field::PayloadType, gvsp::Image);
        StoreBig32(trailer + Field::SizeY, facts.format.height);
        return packet;
    }
    std::span<std::uint8_t const> PayloadHeader(SimFrameFacts const &facts, std::uint32_t packetId,
                                                bool resent) override
    {
        gvsp::WriteHeader(m_payloadHeader, {resent ? gvcp::GEV_STATUS_PACKET_RESEND : gvcp::GEV_STATUS_SUCCESS,
                                            gvsp::BlockId16(facts.id), gvsp::DataPayload, packetId, false});
        return m_payloadHeader;
    }
    std::size_t PayloadBytes(std::uint32_t packetSize) const override
    {
        return std::max<std::size_t>(packetSize, gvsp::SmallestPacket) - gvsp::IpHeaderSize - gvsp::UdpHeaderSize -
               gvsp::HeaderSize;
    }
    SimPacket Resend(SimFrameFacts const &facts, std::uint32_t first, std::uint32_t last) override
    {
        using Field = gvcp::PacketResend;
        m_resendRequest = gvcp::NextRequestId(m_resendRequest);
        // No acknowledge: the packets are the answer.
        SimPacket packet = Message(gvcp::CommandLead(0), gvcp::PACKETRESEND_CMD, Field::Size, m_resendRequest);
        StoreBig16(BodyOf(packet) + Field::BlockId, gvsp::BlockId16(facts.id));
        StoreBig32(BodyOf(packet) + Field::FirstPacketId, first);
        StoreBig32(BodyOf(packet) + Field::LastPacketId, last);
        return packet;
    }
    SimPacket Event(std::uint16_t eventId, std::uint64_t frame, std::uint64_t timestamp) override
    {
        using Field = gvcp::EventRecord;
        m_eventRequest = gvcp::NextRequestId(m_eventRequest);
        SimPacket packet = Message(gvcp::CommandLead(gvcp::ACKNOWLEDGE), gvcp::EVENT_CMD, Field::Size, m_eventRequest);
        StoreBig16(BodyOf(packet) + Field::EventId, eventId);
        StoreBig16(BodyOf(packet) + Field::BlockId, gvsp::BlockId16(frame));
        StoreBig64(BodyOf(packet) + Field::Timestamp, timestamp);
        return packet;
    }
    SimPacket EventAcknowledge(SimPacket const &event) const override
    {
        std::optional<gvcp::Header> const header = gvcp::ReadHeader(event);
        if (!header || (header->lead & gvcp::ACKNOWLEDGE) == 0)
            return {};
        return Message(gvcp::GEV_STATUS_SUCCESS, gvcp::AcknowledgeOf(header->code), 0, header->id);
    }

private:
    static bool IsRegister(SimAccess const &access)
    {
        return access.size == gvcp::RegisterSize && access.address % gvcp::RegisterSize == 0;
    }
    SimPacket Command(SimAccess const &access) override
    {
        constexpr std::uint16_t Lead = gvcp::CommandLead(gvcp::ACKNOWLEDGE);
        m_request = gvcp::NextRequestId(m_request);
        auto const address = static_cast<std::uint32_t>(access.address);
        SimPacket packet;
        if (access.write) {
            // Address and value of a register have the places of address and data of memory.
            static_assert(gvcp::RegisterWrite::Value == gvcp::MemoryData::Data);
            packet = Message(Lead, IsRegister(access) ? gvcp::WRITEREG_CMD : gvcp::WRITEMEM_CMD,
                             gvcp::MemoryData::Data + access.size, m_request);
            std::copy_n(access.bytes, access.size, BodyOf(packet) + gvcp::MemoryData::Data);
        } else if (IsRegister(access)) {
            packet = Message(Lead, gvcp::READREG_CMD, gvcp::RegisterSize, m_request);
        } else {
            packet = Message(Lead, gvcp::READMEM_CMD, gvcp::MemoryRead::Size, m_request);
            StoreBig16(BodyOf(packet) + gvcp::MemoryRead::Count, static_cast<std::uint16_t>(access.size));
        }
        StoreBig32(BodyOf(packet), address); // every body begins with it
        return packet;
    }
    SimPacket Acknowledge(SimAccess const &access) const override
    {
        std::uint16_t const status = access.failed ? gvcp::GEV_STATUS_ACCESS_DENIED : gvcp::GEV_STATUS_SUCCESS;
        bool const isRegister = IsRegister(access);
        if (access.write) {
            SimPacket packet =
                Message(status, isRegister ? gvcp::WRITEREG_ACK : gvcp::WRITEMEM_ACK, gvcp::WriteAck::Size, m_request);
            std::size_t const written = access.failed ? 0 : isRegister ? 1 : access.size;
            StoreBig16(BodyOf(packet) + gvcp::WriteAck::Index, static_cast<std::uint16_t>(written));
            return packet;
        }
        std::size_t const data = isRegister ? 0 : gvcp::MemoryData::Data;
        SimPacket packet = Message(status, isRegister ? gvcp::READREG_ACK : gvcp::READMEM_ACK,
                                   access.failed ? 0 : data + access.size, m_request);
        if (access.failed)
            return packet;
        if (!isRegister)
            StoreBig32(BodyOf(packet) + gvcp::MemoryData::Address, static_cast<std::uint32_t>(access.address));
        std::copy_n(access.bytes, access.size, BodyOf(packet) + data);
        return packet;
    }

    std::array<std::uint8_t, gvsp::HeaderSize> m_payloadHeader{};
    // The ids of the last requests: on the control channel, on the message channel, and by the stream's receiver.
    std::uint16_t m_request = 0, m_eventRequest = 0, m_resendRequest = 0;
};

} // namespace

std::unique_ptr<SimPackets> MakeGigEVisionPackets()
{
    return std::make_unique<GigEVisionPackets>();
}
