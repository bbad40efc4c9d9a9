#include "packetbatch.h"

#include <algorithm>
#include <cerrno>

namespace {

constexpr std::uint64_t WrongBlockDistance = 1000;
constexpr std::uint8_t Excess[64] = {}; // of a datagram that is too long

void Truncate(PacketPieces &packet, std::size_t size)
{
    packet.size = size;
    std::size_t kept = 0;
    for (std::size_t left = size; left > 0; ++kept) {
        packet.pieces[kept].iov_len = std::min(packet.pieces[kept].iov_len, left);
        left -= packet.pieces[kept].iov_len;
    }
    packet.count = kept;
}

} // namespace

PacketBatch::PacketBatch()
{
    for (std::size_t i = 0; i < Most; ++i)
        m_messages[i].msg_hdr.msg_iov = m_pieces[i].data();
}

void PacketBatch::Add(FrameBlock const &block, PlannedPacket packet)
{
    gvsp::Header header = block.HeaderOf(packet.id);
    if (packet.damage == PacketDamage::WrongPacketId)
        header.packetId += block.Packets(); // which the block has not
    if (packet.damage == PacketDamage::WrongBlockId) {
        header.blockId += WrongBlockDistance;
        if (!header.isExtended)
            header.blockId = gvsp::BlockId16(header.blockId);
    }
    PacketPieces pieces = block.Lay(packet.id, header, m_headers[m_count]);
    if (packet.damage == PacketDamage::Truncated)
        Truncate(pieces, pieces.size / 2);
    AddPieces(pieces, Kind::First);
    if (packet.damage == PacketDamage::TooLong) {
        msghdr &message = m_messages[m_count - 1].msg_hdr;
        m_pieces[m_count - 1][message.msg_iovlen++] = {const_cast<std::uint8_t *>(Excess), sizeof Excess};
    }
}

void PacketBatch::AddResent(FrameBlock const &block, std::uint32_t id)
{
    gvsp::Header header = block.HeaderOf(id);
    header.status = gvcp::GEV_STATUS_PACKET_RESEND;
    header.flags = gvsp::PACKET_RESEND;
    AddPieces(block.Lay(id, header, m_headers[m_count]), Kind::Resent);
}

void PacketBatch::AddRefusal(gvsp::Header const &header)
{
    FrameBlock::HeaderRoom &room = m_headers[m_count];
    gvsp::WriteEitherHeader(std::span(room).first<gvsp::ExtendedHeaderSize>(), header);
    PacketPieces pieces;
    pieces.Add(room.data(), header.Size());
    AddPieces(pieces, Kind::Refused);
}

void PacketBatch::AddPieces(PacketPieces const &pieces, Kind kind)
{
    std::copy_n(pieces.pieces.begin(), pieces.count, m_pieces[m_count].begin());
    m_messages[m_count].msg_hdr.msg_iovlen = pieces.count;
    m_kinds[m_count++] = kind;
}

PacketBatch::Result PacketBatch::Send(int socket)
{
    Result result;
    bool again = false;
    for (std::size_t at = 0; at < m_count;) {
        int const sent = sendmmsg(socket, &m_messages[at], static_cast<unsigned>(m_count - at), MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR)
            continue;
        if (sent <= 0) {
            // A host that does not listen shows at the packet after the one that it is about.
            again = !again && errno == ECONNREFUSED;
            at += again ? 0 : 1;
            continue;
        }
        again = false;
        for (std::size_t const end = at + static_cast<std::size_t>(sent); at < end; ++at) {
            Tally &tally = m_kinds[at] == Kind::First    ? result.first
                           : m_kinds[at] == Kind::Resent ? result.resent
                                                         : result.refused;
            ++tally.packets;
            tally.bytes += m_messages[at].msg_len;
        }
    }
    m_count = 0;
    return result;
}
