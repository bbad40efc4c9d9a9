#include "gigeframing.h"

#include "bigendian.h"

#include "tovcamera.h"

#include <algorithm>
#include <pcap/dlt.h>

namespace {

constexpr std::uint16_t EtherTypeIp = 0x0800, EtherTypeVlan = 0x8100, EtherTypeServiceVlan = 0x88A8;
constexpr std::uint32_t StreamPortRegister = 0x0D00, MessagePortRegister = 0x0B00;
constexpr std::size_t ControlHeader = 8, StreamHeader = 8;
constexpr int LinkRawIp = 101; // how files spell DLT_RAW

// A leader has packet id 0 and tells an image.
bool LooksLikeLeader(std::uint8_t const *packet, std::size_t captured)
{
    constexpr std::uint8_t Format = 0x0F, Extended = 0x80, Leader = 1;
    bool const extended = captured > 4 && (packet[4] & Extended) != 0;
    if (captured < (extended ? 56 : 44) || (packet[4] & Format) != Leader)
        return false;
    return extended ? Big32(packet + 16) == 0 && Big16(packet + 22) == 1
                    : (Big32(packet + 4) & 0xFFFFFF) == 0 && Big16(packet + 10) == 1;
}

} // namespace

void FollowedPort::Note(std::uint16_t port)
{
    if (port != 0 && port != m_ports[0])
        m_ports = {port, m_ports[0]};
}

bool GigEFraming::Knows(int linkType)
{
    switch (linkType) {
    case DLT_EN10MB:
    case DLT_RAW:
    case LinkRawIp:
    case DLT_NULL:
    case DLT_LINUX_SLL:
    case DLT_LINUX_SLL2:
        return true;
    }
    return false;
}

GigEFraming::GigEFraming(int linkType, std::uint32_t camera) : m_linkType(linkType), m_camera(camera)
{
}

bool GigEFraming::FindIp(CapturedFrame const &frame, std::size_t &at) const
{
    std::size_t type; // where the protocol of what follows is told
    switch (m_linkType) {
    case DLT_EN10MB:
        type = 12;
        at = 14;
        while (at + 4 <= frame.captured &&
               (Big16(frame.bytes + type) == EtherTypeVlan || Big16(frame.bytes + type) == EtherTypeServiceVlan)) {
            type += 4;
            at += 4;
        }
        break;
    case DLT_LINUX_SLL:
        type = 14;
        at = 16;
        break;
    case DLT_LINUX_SLL2:
        type = 0;
        at = 20;
        break;
    case DLT_NULL:
        at = 4; // in the byte order of the host that captured it; the IP version is looked at anyway
        return true;
    default:
        at = 0;
        return true;
    }
    return at <= frame.captured && Big16(frame.bytes + type) == EtherTypeIp;
}

bool GigEFraming::FindDatagram(CapturedFrame const &frame, Datagram &datagram) const
{
    constexpr std::uint8_t Udp = 17;
    constexpr std::size_t LeastIp = 20, UdpHeader = 8;
    std::size_t at;
    if (frame.captured > frame.length || !FindIp(frame, at) || frame.captured < at + LeastIp)
        return false;
    std::uint8_t const *const ip = frame.bytes + at;
    std::size_t const header = (ip[0] & 0x0Fu) * 4u, total = Big16(ip + 2);
    if (ip[0] >> 4 != 4 || header < LeastIp || total < header + UdpHeader || at + total > frame.length ||
        frame.captured < at + header + UdpHeader || ip[9] != Udp)
        return false;
    // A fragment is no whole packet, the first one included. Cameras send none: a stream's packets may not be split.
    if ((Big16(ip + 6) & 0x3FFF) != 0)
        return false;
    std::uint8_t const *const udp = ip + header;
    std::size_t const length = Big16(udp + 4);
    if (length < UdpHeader || length > total - header)
        return false;
    datagram.source = Big32(ip + 12);
    datagram.destination = Big32(ip + 16);
    datagram.sourcePort = Big16(udp);
    datagram.destinationPort = Big16(udp + 2);
    datagram.bytes = udp + UdpHeader;
    datagram.size = length - UdpHeader;
    datagram.captured = std::min(frame.captured - (at + header + UdpHeader), datagram.size);
    return true;
}

bool GigEFraming::Unpack(CapturedFrame const &frame, TapPacket &packet)
{
    Datagram datagram;
    if (!FindDatagram(frame, datagram))
        return false;
    if (m_camera == 0)
        FindCamera(datagram);
    bool const from = datagram.source == m_camera, to = datagram.destination == m_camera;
    packet.bytes = datagram.bytes;
    packet.captured = datagram.captured;
    packet.size = datagram.size;
    bool const control =
        (from && datagram.sourcePort == ControlPort) || (to && datagram.destinationPort == ControlPort);
    if (control || (from && m_messagePort.Has(datagram.destinationPort)) ||
        (to && m_messagePort.Has(datagram.sourcePort))) {
        packet.channel = control ? TovCam::EventControlChannel : TovCam::EventEventChannel;
        if (packet.size < ControlHeader || !AcceptMessage(packet.captured == packet.size))
            return false;
        if (control)
            Listen(packet.bytes, packet.size);
        return true;
    }
    if (!from || packet.size < StreamHeader)
        return false;
    // With no word about the port, as in a capture that begins later, the first image tells it.
    if (!m_streamPort.IsKnown() && LooksLikeLeader(packet.bytes, packet.captured))
        m_streamPort.Note(datagram.destinationPort);
    packet.channel = TovCam::EventStreamChannel;
    return m_streamPort.Has(datagram.destinationPort) &&
           AcceptStream(packet.captured >= std::min(packet.size, StreamBytesShown));
}

// The end of a control channel that answers, or that is asked for registers; other commands go to everybody.
void GigEFraming::FindCamera(Datagram const &datagram)
{
    if (datagram.captured < ControlHeader)
        return;
    std::uint16_t const code = Big16(datagram.bytes + 2);
    if (datagram.sourcePort == ControlPort)
        m_camera = datagram.source;
    else if (datagram.destinationPort == ControlPort && code >= 0x0080 && code <= 0x0086)
        m_camera = datagram.destination;
}

void GigEFraming::Listen(std::uint8_t const *packet, std::size_t size)
{
    enum : std::uint16_t {
        ReadRegisters = 0x0080,
        RegistersRead = 0x0081,
        WriteRegisters = 0x0082,
        MemoryRead = 0x0085,
        WriteMemory = 0x0086
    };
    std::uint16_t const id = Big16(packet + 6);
    std::uint8_t const *const body = packet + ControlHeader;
    std::size_t const length = std::min<std::size_t>(Big16(packet + 4), size - ControlHeader);
    switch (Big16(packet + 2)) {
    case ReadRegisters: {
        bool ofInterest = false;
        for (std::size_t i = 0; i + 4 <= length; i += 4)
            ofInterest = ofInterest || Big32(body + i) == StreamPortRegister || Big32(body + i) == MessagePortRegister;
        if (!ofInterest)
            break;
        m_askedBy = id;
        m_asked.clear();
        for (std::size_t i = 0; i + 4 <= length; i += 4)
            m_asked.push_back(Big32(body + i));
        break;
    }
    case RegistersRead:
        if (id != m_askedBy)
            break;
        for (std::size_t i = 0; i < m_asked.size() && 4 * i + 4 <= length; ++i)
            NoteRegister(m_asked[i], Big32(body + 4 * i));
        break;
    case WriteRegisters:
        for (std::size_t i = 0; i + 8 <= length; i += 8)
            NoteRegister(Big32(body + i), Big32(body + i + 4));
        break;
    case MemoryRead:
    case WriteMemory:
        for (std::uint32_t const wanted : {StreamPortRegister, MessagePortRegister}) {
            if (length < 4 || wanted < Big32(body))
                continue;
            std::size_t const offset = 4 + std::size_t{wanted - Big32(body)};
            if (offset + 4 <= length)
                NoteRegister(wanted, Big32(body + offset));
        }
        break;
    }
}

void GigEFraming::NoteRegister(std::uint32_t address, std::uint32_t value)
{
    if (address == StreamPortRegister)
        m_streamPort.Note(static_cast<std::uint16_t>(value));
    else if (address == MessagePortRegister)
        m_messagePort.Note(static_cast<std::uint16_t>(value));
}
