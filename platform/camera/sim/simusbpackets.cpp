// The packets of a USB3 Vision camera.
#include "simpackets.h"

#include "protocol/usb3vision.h"

#include <algorithm>

namespace {

SimPacket Message(u3v::Prefix prefix, std::uint16_t lead, std::uint16_t code, std::size_t bodySize, std::uint16_t id)
{
    SimPacket packet(u3v::HeaderSize + bodySize);
    u3v::WriteHeader(std::span(packet).first<u3v::HeaderSize>(),
                     {prefix, lead, code, static_cast<std::uint16_t>(bodySize), id});
    return packet;
}

std::uint8_t *BodyOf(SimPacket &message)
{
    return message.data() + u3v::HeaderSize;
}

class Usb3VisionPackets final : public SimPackets
{
public:
    SimPacket Leader(SimFrameFacts const &facts) const override
    {
        using Field = u3v::ImageLeader;
        SimPacket packet(Field::Size);
        std::uint8_t *const leader = packet.data();
        StoreLittle32(leader + Field::Prefix, u3v::LeaderPrefix);
        StoreLittle16(leader + Field::LeaderSize, Field::Size);
        StoreLittle64(leader + Field::BlockId, facts.id);
        StoreLittle16(leader + Field::PayloadType, u3v::Image);
        StoreLittle64(leader + Field::Timestamp, facts.timestamp);
        StoreLittle32(leader + Field::PixelFormat, facts.pfnc);
        StoreLittle32(leader + Field::SizeX, facts.format.width);
        StoreLittle32(leader + Field::SizeY, facts.format.height);
        StoreLittle32(leader + Field::OffsetX, facts.format.offsetX);
        StoreLittle32(leader + Field::OffsetY, facts.format.offsetY);
        return packet;
    }
    SimPacket Trailer(SimFrameFacts const &facts, std::uint32_t, bool complete) const override
    {
        using Field = u3v::ImageTrailer;
        SimPacket packet(Field::Size);
        std::uint8_t *const trailer = packet.data();
        StoreLittle32(trailer + Field::Prefix, u3v::TrailerPrefix);
        StoreLittle16(trailer + Field::TrailerSize, Field::Size);
        StoreLittle64(trailer + Field::BlockId, facts.id);
        StoreLittle16(trailer + Field::Status, complete ? u3v::U3V_STATUS_GENCP_SUCCESS : u3v::U3V_STATUS_DATA_OVERRUN);
        StoreLittle64(trailer + Field::ValidPayloadSize, facts.validPayload);
        StoreLittle32(trailer + Field::SizeY, facts.format.height);
        return packet;
    }
    // Pixels go without a header, in transfers of the largest size that hosts commonly use.
    std::span<std::uint8_t const> PayloadHeader(SimFrameFacts const &, std::uint32_t, bool) override
    {
        return {};
    }
    std::size_t PayloadBytes(std::uint32_t) const override
    {
        return 65536;
    }
    SimPacket Resend(SimFrameFacts const &, std::uint32_t, std::uint32_t) override
    {
        return {};
    }
    // The frame's number is the event's data.
    SimPacket Event(std::uint16_t eventId, std::uint64_t frame, std::uint64_t timestamp) override
    {
        using Field = u3v::EventRecord;
        SimPacket packet = Message(u3v::EventPrefix, 0, u3v::EVENT_CMD, Field::Data + sizeof frame, m_eventRequest++);
        StoreLittle16(BodyOf(packet) + Field::EventId, eventId);
        StoreLittle64(BodyOf(packet) + Field::Timestamp, timestamp);
        StoreLittle64(BodyOf(packet) + Field::Data, frame);
        return packet;
    }
    SimPacket EventAcknowledge(SimPacket const &) const override
    {
        return {};
    }

private:
    SimPacket Command(SimAccess const &access) override
    {
        std::uint16_t const id = m_nextRequest++;
        SimPacket packet;
        if (access.write) {
            packet = Message(u3v::ControlPrefix, u3v::REQUEST_ACK, u3v::WRITEMEM_CMD,
                             u3v::MemoryWrite::Data + access.size, id);
            StoreLittle64(BodyOf(packet) + u3v::MemoryWrite::Address, access.address);
            std::copy_n(access.bytes, access.size, BodyOf(packet) + u3v::MemoryWrite::Data);
        } else {
            packet = Message(u3v::ControlPrefix, u3v::REQUEST_ACK, u3v::READMEM_CMD, u3v::MemoryRead::Size, id);
            StoreLittle64(BodyOf(packet) + u3v::MemoryRead::Address, access.address);
            StoreLittle16(BodyOf(packet) + u3v::MemoryRead::Count, static_cast<std::uint16_t>(access.size));
        }
        return packet;
    }
    SimPacket Acknowledge(SimAccess const &access) const override
    {
        auto const id = static_cast<std::uint16_t>(m_nextRequest - 1);
        std::uint16_t const status =
            access.failed ? u3v::U3V_STATUS_GENCP_ACCESS_DENIED : u3v::U3V_STATUS_GENCP_SUCCESS;
        std::size_t const size = access.failed ? 0 : access.size;
        if (access.write) {
            SimPacket packet = Message(u3v::ControlPrefix, status, u3v::WRITEMEM_ACK, u3v::WriteAck::Size, id);
            StoreLittle16(BodyOf(packet) + u3v::WriteAck::LengthWritten, static_cast<std::uint16_t>(size));
            return packet;
        }
        SimPacket packet = Message(u3v::ControlPrefix, status, u3v::READMEM_ACK, size, id);
        std::copy_n(access.bytes, size, BodyOf(packet));
        return packet;
    }

    std::uint16_t m_nextRequest = 0, m_eventRequest = 0;
};

} // namespace

std::unique_ptr<SimPackets> MakeUsb3VisionPackets()
{
    return std::make_unique<Usb3VisionPackets>();
}
