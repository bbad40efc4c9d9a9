#include "gigeframing.h"

#include "protocol/gigevision.h"

#include "tovcamera.h"

#include <algorithm>
#include <cstring>
#include <linux/if_ether.h>
#include <netinet/ip.h>
#include <netinet/udp.h>
#include <pcap/dlt.h>
#include <pcap/sll.h>

namespace {

constexpr int LinkRawIp = 101; // how files spell DLT_RAW

// A leader that announces an image.
bool LooksLikeLeader(std::span<std::uint8_t const> packet)
{
    std::optional<gvsp::Header> const header = gvsp::ReadHeader(packet);
    return header && header->format == gvsp::DataLeader && header->packetId == 0 &&
           packet.size() >= header->Size() + gvsp::ImageLeader::Size &&
           LoadBig16(&packet[header->Size() + gvsp::ImageLeader::PayloadType]) == gvsp::Image;
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
    constexpr std::size_t TagSize = 4, LoopbackHeader = 4;
    std::size_t type; // where the protocol of what follows is named
    switch (m_linkType) {
    case DLT_EN10MB:
        type = offsetof(ethhdr, h_proto);
        at = sizeof(ethhdr);
        while (at + TagSize <= frame.captured &&
               (LoadBig16(frame.bytes + type) == ETH_P_8021Q || LoadBig16(frame.bytes + type) == ETH_P_8021AD)) {
            type += TagSize;
            at += TagSize;
        }
        break;
    case DLT_LINUX_SLL:
        type = offsetof(sll_header, sll_protocol);
        at = SLL_HDR_LEN;
        break;
    case DLT_LINUX_SLL2:
        type = offsetof(sll2_header, sll2_protocol);
        at = SLL2_HDR_LEN;
        break;
    case DLT_NULL:
        at = LoopbackHeader; // in the byte order of the capturing host; the IP version is checked anyway
        return true;
    default:
        at = 0;
        return true;
    }
    return at <= frame.captured && LoadBig16(frame.bytes + type) == ETH_P_IP;
}

bool GigEFraming::FindDatagram(CapturedFrame const &frame, Datagram &datagram) const
{
    std::size_t at;
    iphdr ip;
    if (frame.captured > frame.length || !FindIp(frame, at) || frame.captured < at + sizeof ip)
        return false;
    std::memcpy(&ip, frame.bytes + at, sizeof ip);
    udphdr udp;
    std::size_t const header = ip.ihl * 4u, total = ntohs(ip.tot_len);
    if (ip.version != IPVERSION || header < sizeof ip || total < header + sizeof udp || at + total > frame.length ||
        frame.captured < at + header + sizeof udp || ip.protocol != IPPROTO_UDP)
        return false;
    // A fragment is not a whole packet, not even the first one. Cameras send none: stream packets must not be split.
    if ((ntohs(ip.frag_off) & (IP_MF | IP_OFFMASK)) != 0)
        return false;
    std::memcpy(&udp, frame.bytes + at + header, sizeof udp);
    std::size_t const length = ntohs(udp.len);
    if (length < sizeof udp || length > total - header)
        return false;
    std::size_t const data = at + header + sizeof udp;
    datagram.source = ntohl(ip.saddr);
    datagram.destination = ntohl(ip.daddr);
    datagram.sourcePort = ntohs(udp.source);
    datagram.destinationPort = ntohs(udp.dest);
    datagram.bytes = frame.bytes + data;
    datagram.size = length - sizeof udp;
    datagram.captured = std::min(frame.captured - data, datagram.size);
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
    bool const control = (from && datagram.sourcePort == gvcp::Port) || (to && datagram.destinationPort == gvcp::Port);
    if (control || (from && m_messagePort.Has(datagram.destinationPort)) ||
        (to && m_messagePort.Has(datagram.sourcePort))) {
        packet.channel = control ? TovCam::EventControlChannel : TovCam::EventEventChannel;
        if (packet.size < gvcp::HeaderSize || !AcceptMessage(packet.captured == packet.size))
            return false;
        if (control)
            Listen({packet.bytes, packet.size});
        return true;
    }
    if (!from || packet.size < gvsp::HeaderSize)
        return false;
    // Where the port is not known, as in a capture that begins later, the first image gives it away.
    if (!m_streamPort.IsKnown() && LooksLikeLeader({packet.bytes, packet.captured}))
        m_streamPort.Note(datagram.destinationPort);
    packet.channel = TovCam::EventStreamChannel;
    return m_streamPort.Has(datagram.destinationPort) &&
           AcceptStream(packet.captured >= std::min(packet.size, StreamBytesShown));
}

// The end of a control channel that answers, or that is asked for registers; other commands go to everybody.
void GigEFraming::FindCamera(Datagram const &datagram)
{
    std::optional<gvcp::Header> const header = gvcp::ReadHeader({datagram.bytes, datagram.captured});
    if (!header)
        return;
    if (datagram.sourcePort == gvcp::Port)
        m_camera = datagram.source;
    else if (datagram.destinationPort == gvcp::Port && header->code >= gvcp::READREG_CMD &&
             header->code <= gvcp::WRITEMEM_CMD)
        m_camera = datagram.destination;
}

void GigEFraming::Listen(std::span<std::uint8_t const> packet)
{
    std::optional<gvcp::Header> const header = gvcp::ReadHeader(packet);
    if (!header)
        return;
    std::span<std::uint8_t const> const body = gvcp::BodyOf(packet, *header);
    switch (header->code) {
    case gvcp::READREG_CMD:
        NoteRequest(header->id, body);
        break;
    case gvcp::READREG_ACK:
        if (header->id != m_askedBy)
            break;
        for (std::size_t i = 0; i < m_asked.size() && gvcp::RegisterSize * (i + 1) <= body.size(); ++i)
            NoteRegister(m_asked[i], LoadBig32(&body[gvcp::RegisterSize * i]));
        break;
    case gvcp::WRITEREG_CMD:
        for (std::size_t i = 0; i + gvcp::RegisterWrite::Size <= body.size(); i += gvcp::RegisterWrite::Size)
            NoteRegister(LoadBig32(&body[i + gvcp::RegisterWrite::Address]),
                         LoadBig32(&body[i + gvcp::RegisterWrite::Value]));
        break;
    case gvcp::READMEM_ACK:
    case gvcp::WRITEMEM_CMD:
        NoteMemory(body);
        break;
    }
}

// Registers that are asked for, if one of interest is among them.
void GigEFraming::NoteRequest(std::uint16_t id, std::span<std::uint8_t const> addresses)
{
    bool ofInterest = false;
    for (std::size_t i = 0; i + gvcp::RegisterSize <= addresses.size(); i += gvcp::RegisterSize) {
        std::uint32_t const address = LoadBig32(&addresses[i]);
        ofInterest = ofInterest || address == gvcp::bootstrap::StreamChannelPort ||
                     address == gvcp::bootstrap::MessageChannelPort;
    }
    if (!ofInterest)
        return;
    m_askedBy = id;
    m_asked.clear();
    for (std::size_t i = 0; i + gvcp::RegisterSize <= addresses.size(); i += gvcp::RegisterSize)
        m_asked.push_back(LoadBig32(&addresses[i]));
}

// Memory that was read or is written; the registers of interest may be in it.
void GigEFraming::NoteMemory(std::span<std::uint8_t const> body)
{
    if (body.size() < gvcp::MemoryData::Data)
        return;
    std::uint32_t const address = LoadBig32(&body[gvcp::MemoryData::Address]);
    for (std::uint32_t const wanted : {gvcp::bootstrap::StreamChannelPort, gvcp::bootstrap::MessageChannelPort}) {
        if (wanted < address)
            continue;
        std::size_t const at = gvcp::MemoryData::Data + std::size_t{wanted - address};
        if (at + sizeof wanted <= body.size())
            NoteRegister(wanted, LoadBig32(&body[at]));
    }
}

void GigEFraming::NoteRegister(std::uint32_t address, std::uint32_t value)
{
    if (address == gvcp::bootstrap::StreamChannelPort)
        m_streamPort.Note(static_cast<std::uint16_t>(value));
    else if (address == gvcp::bootstrap::MessageChannelPort)
        m_messagePort.Note(static_cast<std::uint16_t>(value));
}
