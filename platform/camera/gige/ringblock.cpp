#include "ringblock.h"

#include "protocol/byteorder.h"

#include <algorithm>
#include <cstring>
#include <linux/if_packet.h>
#include <netinet/in.h>

namespace {

// Offsets and bits of the IPv4 header and the UDP header.
struct Ip
{
    static constexpr std::size_t Length = 2, Fragment = 6, Protocol = 9, Source = 12, Destination = 16, Size = 20;
    static constexpr std::uint16_t FragmentBits = 0x3FFF; // more of them, and where this one belongs
};
struct Udp
{
    static constexpr std::size_t SourcePort = 0, DestinationPort = 2, Length = 4, Checksum = 6, Size = 8;
};

constexpr std::size_t CacheLine = 64;

// As the internet protocols sum: 16-bit words with the carry added, an odd byte last. Folded at the end.
std::uint64_t Sum(std::span<std::uint8_t const> bytes)
{
    std::uint64_t sum = 0;
    std::size_t at = 0;
    for (; at + 4 <= bytes.size(); at += 4)
        sum += LoadBig32(&bytes[at]);
    for (; at + 2 <= bytes.size(); at += 2)
        sum += LoadBig16(&bytes[at]);
    if (at < bytes.size())
        sum += std::uint64_t{bytes[at]} << 8;
    return sum;
}

// Of a datagram with its addresses in front: all words together, the checksum among them, give zero.
bool HasRightSum(std::span<std::uint8_t const> addresses, std::span<std::uint8_t const> datagram)
{
    if (LoadBig16(&datagram[Udp::Checksum]) == 0)
        return true; // the sender has not made one
    std::uint64_t sum = Sum(addresses) + IPPROTO_UDP + datagram.size() + Sum(datagram);
    while (sum >> 16 != 0)
        sum = (sum & 0xFFFF) + (sum >> 16);
    return sum == 0xFFFF;
}

template<typename Header>
bool LoadHeader(std::span<std::uint8_t const> block, std::size_t at, Header &header)
{
    if (at > block.size() || block.size() - at < sizeof header)
        return false;
    std::memcpy(&header, &block[at], sizeof header);
    return true;
}

} // namespace

RingVerdict ReadDatagram(RingFrame const &frame, RingDatagram &datagram)
{
    std::span<std::uint8_t const> const ip = frame.bytes;
    if (ip.size() < Ip::Size || ip.size() > frame.size || ip[0] >> 4 != 4 || ip[Ip::Protocol] != IPPROTO_UDP)
        return RingVerdict::Malformed;
    std::size_t const header = (ip[0] & 0xFu) * 4, total = LoadBig16(&ip[Ip::Length]);
    if (header < Ip::Size || total < header + Udp::Size || total > frame.size || ip.size() < header + Udp::Size)
        return RingVerdict::Malformed;
    if ((LoadBig16(&ip[Ip::Fragment]) & Ip::FragmentBits) != 0)
        return RingVerdict::Fragment;
    std::span<std::uint8_t const> const udp = ip.subspan(header);
    std::size_t const length = LoadBig16(&udp[Udp::Length]);
    if (length < Udp::Size || length > total - header)
        return RingVerdict::Malformed;
    bool const isWhole = udp.size() >= length;
    if (isWhole && !frame.isChecked && !HasRightSum(ip.subspan(Ip::Source, Ip::Size - Ip::Source), udp.first(length)))
        return RingVerdict::Malformed;
    datagram.size = length - Udp::Size;
    datagram.payload = udp.subspan(Udp::Size, std::min(udp.size(), length) - Udp::Size);
    datagram.source = LoadBig32(&ip[Ip::Source]);
    datagram.destination = LoadBig32(&ip[Ip::Destination]);
    datagram.sourcePort = LoadBig16(&udp[Udp::SourcePort]);
    datagram.destinationPort = LoadBig16(&udp[Udp::DestinationPort]);
    datagram.arrival = frame.arrival;
    return isWhole ? RingVerdict::Whole : RingVerdict::CutShort;
}

RingBlock::RingBlock(std::span<std::uint8_t const> block)
{
    tpacket_block_desc description;
    if (!LoadHeader(block, 0, description))
        return;
    tpacket_hdr_v1 const &header = description.hdr.bh1;
    m_block = block.first(std::min<std::size_t>(block.size(), header.blk_len));
    m_at = header.offset_to_first_pkt;
    m_left = header.num_pkts;
}

bool RingBlock::Next(RingFrame &frame)
{
    if (m_left == 0 || m_isDamaged)
        return false;
    tpacket3_hdr header;
    // Packets stand behind each other, so that no chain of them is endless.
    if (!LoadHeader(m_block, m_at, header) || header.tp_mac < sizeof header || header.tp_net < header.tp_mac ||
        (m_left > 1 && header.tp_next_offset < sizeof header)) {
        m_isDamaged = true;
        return false;
    }
    std::size_t const linkHeader = header.tp_net - header.tp_mac, there = m_block.size() - m_at;
    if (header.tp_snaplen < linkHeader || header.tp_len < header.tp_snaplen || header.tp_mac > there ||
        header.tp_snaplen > there - header.tp_mac) {
        m_isDamaged = true;
        return false;
    }
    frame.bytes = m_block.subspan(m_at + header.tp_net, header.tp_snaplen - linkHeader);
    frame.size = header.tp_len - linkHeader;
    frame.arrival = std::int64_t{header.tp_sec} * 1'000'000'000 + header.tp_nsec;
    frame.isChecked = (header.tp_status & (TP_STATUS_CSUM_VALID | TP_STATUS_CSUMNOTREADY)) != 0;
    m_at += header.tp_next_offset;
    --m_left;
    // Another processor has written the headers of the next packet: they come while this one is dealt with.
    if (m_left > 0 && m_at < m_block.size()) {
        __builtin_prefetch(m_block.data() + m_at);
        __builtin_prefetch(m_block.data() + m_at + CacheLine);
    }
    return true;
}
