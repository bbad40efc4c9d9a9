#include "simpackets.h"

#include "tovcamera.h"

#include <algorithm>

namespace {

constexpr std::size_t LongestAccess = 512; // data bytes of one control packet; both protocols carry a few more

// Appends numbers in one byte order.
class Writer
{
public:
    Writer(SimPacket &out, bool big) : m_out(out), m_big(big)
    {
    }
    template<class T>
    Writer &Put(T value)
    {
        std::size_t const at = m_out.size();
        m_out.resize(at + sizeof(T));
        for (std::size_t i = 0; i < sizeof(T); ++i) {
            std::size_t const shift = 8 * (m_big ? sizeof(T) - 1 - i : i);
            m_out[at + i] = static_cast<std::uint8_t>(static_cast<std::uint64_t>(value) >> shift);
        }
        return *this;
    }
    Writer &Bytes(std::uint8_t const *bytes, std::size_t size)
    {
        m_out.insert(m_out.end(), bytes, bytes + size);
        return *this;
    }

private:
    SimPacket &m_out;
    bool const m_big;
};

using U8 = std::uint8_t;
using U16 = std::uint16_t;
using U32 = std::uint32_t;
using U64 = std::uint64_t;

constexpr U16 ImagePayload = 1;
constexpr U32 ControlMagic = 0x43563355, EventMagic = 0x45563355, LeaderMagic = 0x4C563355, TrailerMagic = 0x54563355;
constexpr U16 AnswerWanted = 0x4000; // flag of a USB3 Vision command
constexpr U16 GvcpKey = 0x4201;      // key byte, and the flag that asks for an acknowledge
constexpr U16 AccessDenied = 0x8006; // the same status in both protocols
constexpr U16 ResendKey = 0x4200;    // no acknowledge: the packets are the answer
constexpr U16 ResentStatus = 0x0100; // of a stream packet
constexpr U8 GvspLeader = 1, GvspTrailer = 2, GvspPayload = 3;

// Sixteen bits that skip 0.
U16 BlockId16(U64 id)
{
    return static_cast<U16>((id - 1) % 0xFFFF + 1);
}

SimPacket Gvcp(U16 first, U16 code, U16 length, U16 id)
{
    SimPacket packet;
    Writer(packet, true).Put(first).Put(code).Put(length).Put(id);
    return packet;
}

SimPacket Uvcp(U32 magic, U16 flags, U16 code, U16 length, U16 id)
{
    SimPacket packet;
    Writer(packet, false).Put(magic).Put(flags).Put(code).Put(length).Put(id);
    return packet;
}

SimPacket Gvsp(U64 id, U8 format, U32 packetId, U16 status = 0)
{
    SimPacket packet;
    Writer(packet, true).Put(status).Put(BlockId16(id)).Put(U32{format} << 24 | (packetId & 0xFFFFFF));
    return packet;
}

} // namespace

SimPackets::SimPackets(std::uint32_t interfaceKind) : m_usb(interfaceKind == TovCam::InterfaceKindUSB3Vision)
{
}

std::vector<SimPacket> SimPackets::Control(SimAccess const &access)
{
    std::vector<SimPacket> packets;
    U16 const status = access.failed ? AccessDenied : 0;
    for (std::size_t done = 0; done < access.size; done += LongestAccess) {
        auto const size = static_cast<U16>(std::min(LongestAccess, access.size - done));
        U64 const address = access.address + done;
        std::uint8_t const *const bytes = access.bytes + done;
        U16 const request = m_usb ? m_request++ : static_cast<U16>(m_request = m_request == 0xFFFF ? 1 : m_request + 1);
        bool const isRegister = size == 4 && address % 4 == 0;
        SimPacket command, answer;
        if (m_usb && access.write) {
            command = Uvcp(ControlMagic, AnswerWanted, 0x0802, static_cast<U16>(8 + size), request);
            Writer(command, false).Put(address).Bytes(bytes, size);
            answer = Uvcp(ControlMagic, status, 0x0803, 4, request);
            Writer(answer, false).Put(U16{0}).Put(static_cast<U16>(access.failed ? 0 : size));
        } else if (m_usb) {
            command = Uvcp(ControlMagic, AnswerWanted, 0x0800, 12, request);
            Writer(command, false).Put(address).Put(U16{0}).Put(size);
            answer = Uvcp(ControlMagic, status, 0x0801, access.failed ? U16{0} : size, request);
            if (!access.failed)
                Writer(answer, false).Bytes(bytes, size);
        } else if (access.write) {
            U16 const code = isRegister ? 0x0082 : 0x0086;
            command = Gvcp(GvcpKey, code, static_cast<U16>(4 + size), request);
            Writer(command, true).Put(static_cast<U32>(address)).Bytes(bytes, size);
            // The answer counts registers or bytes.
            answer = Gvcp(status, static_cast<U16>(code + 1), 4, request);
            Writer(answer, true).Put(U16{0}).Put(static_cast<U16>(access.failed ? 0 : isRegister ? 1 : size));
        } else if (isRegister) {
            command = Gvcp(GvcpKey, 0x0080, 4, request);
            Writer(command, true).Put(static_cast<U32>(address));
            answer = Gvcp(status, 0x0081, access.failed ? 0 : 4, request);
            if (!access.failed)
                Writer(answer, true).Bytes(bytes, size);
        } else {
            command = Gvcp(GvcpKey, 0x0084, 8, request);
            Writer(command, true).Put(static_cast<U32>(address)).Put(U16{0}).Put(size);
            answer = Gvcp(status, 0x0085, access.failed ? U16{0} : static_cast<U16>(4 + size), request);
            if (!access.failed)
                Writer(answer, true).Put(static_cast<U32>(address)).Bytes(bytes, size);
        }
        packets.push_back(std::move(command));
        packets.push_back(std::move(answer));
    }
    return packets;
}

SimPacket SimPackets::Leader(SimFrameFacts const &facts) const
{
    SimFormat const &f = facts.format;
    SimPacket packet;
    if (m_usb) {
        Writer w(packet, false);
        w.Put(LeaderMagic).Put(U16{0}).Put(U16{52}).Put(facts.id).Put(U16{0}).Put(ImagePayload).Put(facts.timestamp);
        w.Put(facts.pfnc).Put(f.width).Put(f.height).Put(f.offsetX).Put(f.offsetY).Put(U16{0}).Put(U16{0});
    } else {
        packet = Gvsp(facts.id, GvspLeader, 0);
        Writer w(packet, true);
        w.Put(U16{0}).Put(ImagePayload).Put(facts.timestamp).Put(facts.pfnc);
        w.Put(f.width).Put(f.height).Put(f.offsetX).Put(f.offsetY).Put(U16{0}).Put(U16{0});
    }
    return packet;
}

SimPacket SimPackets::Trailer(SimFrameFacts const &facts, std::uint32_t packetId, bool complete) const
{
    SimPacket packet;
    if (m_usb) {
        constexpr U16 Incomplete = 0xA101;
        Writer w(packet, false);
        w.Put(TrailerMagic).Put(U16{0}).Put(U16{32}).Put(facts.id).Put(complete ? U16{0} : Incomplete).Put(U16{0});
        w.Put(facts.validPayload).Put(facts.format.height);
    } else {
        packet = Gvsp(facts.id, GvspTrailer, packetId);
        Writer(packet, true).Put(U16{0}).Put(ImagePayload).Put(facts.format.height);
    }
    return packet;
}

SimPacket SimPackets::PayloadHeader(SimFrameFacts const &facts, std::uint32_t packetId, bool resent) const
{
    return m_usb ? SimPacket() : Gvsp(facts.id, GvspPayload, packetId, resent ? ResentStatus : U16{0});
}

SimPacket SimPackets::Resend(SimFrameFacts const &facts, std::uint32_t first, std::uint32_t last)
{
    m_resendRequest = m_resendRequest == 0xFFFF ? 1 : m_resendRequest + 1;
    SimPacket packet = Gvcp(ResendKey, 0x0040, 12, m_resendRequest);
    Writer(packet, true).Put(U16{0}).Put(BlockId16(facts.id)).Put(first).Put(last);
    return packet;
}

SimPacket SimPackets::Event(std::uint16_t eventId, std::uint64_t frame, std::uint64_t timestamp)
{
    SimPacket packet;
    if (m_usb) {
        // The frame's number is the event's data.
        packet = Uvcp(EventMagic, 0, 0x0C00, 20, m_eventRequest++);
        Writer(packet, false).Put(U16{0}).Put(eventId).Put(timestamp).Put(frame);
    } else {
        m_eventRequest = m_eventRequest == 0xFFFF ? 1 : m_eventRequest + 1;
        packet = Gvcp(GvcpKey, 0x00C0, 16, m_eventRequest);
        Writer(packet, true).Put(U16{0}).Put(eventId).Put(U16{0}).Put(BlockId16(frame)).Put(timestamp);
    }
    return packet;
}

SimPacket SimPackets::EventAcknowledge(SimPacket const &event) const
{
    constexpr U8 Wanted = GvcpKey & 0xFF;
    if (m_usb || (event[1] & Wanted) == 0)
        return {};
    return Gvcp(0, 0x00C1, 0, static_cast<U16>(event[6] << 8 | event[7]));
}

std::size_t SimPackets::PayloadBytes(std::uint32_t packetSize) const
{
    constexpr std::size_t GigEHeaders = 20 + 8 + 8; // IP, UDP, GVSP
    constexpr std::size_t UsbTransfer = 65536;
    return m_usb ? UsbTransfer : std::max<std::size_t>(packetSize, 576) - GigEHeaders;
}
