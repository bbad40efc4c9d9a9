#include "streamforger.h"

#include "protocol/socketaddress.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace {

using Random = std::minstd_rand;
using Bytes = std::vector<std::uint8_t>;
using Sender = ForgedPacket::Sender;

constexpr std::uint8_t Foreign = 0xA5; // what others than the camera send instead of its data
constexpr std::uint32_t Everything = 0xFFFFFFFF;
constexpr std::uint64_t LongestPart = (std::uint64_t{1} << 48) - 1;
constexpr std::size_t LargestDatagram = 65507;
constexpr std::uint32_t GapEvery = 5; // packets, where some do not come

std::uint32_t Throw(Random &random, std::uint32_t end)
{
    return std::uniform_int_distribution<std::uint32_t>(0, end - 1)(random);
}

Bytes RandomBytes(Random &random, std::size_t size)
{
    Bytes bytes(size);
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<std::uint8_t>(Throw(random, 256)); });
    return bytes;
}

std::uint32_t LastPacketId(gvsp::Header const &header)
{
    return header.isExtended ? Everything : 0x00FFFFFF;
}

void SetBlockId(gvsp::Header &header, std::uint64_t id)
{
    header.blockId = header.isExtended ? id : gvsp::BlockId16((id - 1) % gvsp::LastBlockId + 1);
}

bool IsLeader(ForgedPacket const &packet)
{
    return packet.header.format == gvsp::DataLeader || packet.header.format == gvsp::AllIn;
}

bool IsTrailer(ForgedPacket const &packet)
{
    return packet.header.format == gvsp::DataTrailer;
}

bool IsData(ForgedPacket const &packet)
{
    return packet.header.format == gvsp::DataPayload;
}

// Fields of bodies that are too short for them stay.
void Set16(Bytes &body, std::size_t at, std::uint16_t value)
{
    if (body.size() >= at + sizeof value)
        StoreBig16(&body[at], value);
}

void Set32(Bytes &body, std::size_t at, std::uint32_t value)
{
    if (body.size() >= at + sizeof value)
        StoreBig32(&body[at], value);
}

template<class Change>
void ForLeader(ForgedBlock &block, Change change)
{
    for (ForgedPacket &packet : block.packets) {
        if (IsLeader(packet))
            change(packet);
    }
}

void SetSize(ForgedPacket &leader, std::uint32_t width, std::uint32_t height)
{
    Set32(leader.body, gvsp::ImageLeader::SizeX, width);
    Set32(leader.body, gvsp::ImageLeader::SizeY, height);
}

// Puts what `make` makes of a packet before it, `times` times. What is sent again is left alone.
template<class Make>
void AddBefore(ForgedBlock &block, std::size_t times, Make make)
{
    if (block.again)
        return;
    std::vector<ForgedPacket> all;
    for (ForgedPacket &packet : block.packets) {
        for (std::size_t i = 0; i < times; ++i)
            all.push_back(make(packet));
        all.push_back(std::move(packet));
    }
    block.packets = std::move(all);
}

ForgedPacket Bare(Bytes bytes)
{
    ForgedPacket packet;
    packet.body = std::move(bytes);
    packet.isBare = true;
    return packet;
}

ForgedPacket FromStranger(ForgedPacket packet, Sender sender)
{
    std::fill(packet.body.begin(), packet.body.end(), Foreign);
    packet.sender = sender;
    return packet;
}

// ---- Ends of blocks ----------------------------------------------------------------------------------------------

void ForgeHugeTrailer(ForgedBlock &block, Random &)
{
    if (block.again || block.packets.empty())
        return;
    ForgedPacket trailer = block.packets.back(), data = trailer;
    trailer.header.packetId = data.header.packetId = LastPacketId(trailer.header);
    data.header.format = gvsp::DataPayload;
    --trailer.header.packetId;
    block.packets.insert(block.packets.begin(), {trailer, data});
}

void ForgeEarlyTrailer(ForgedBlock &block, Random &)
{
    auto const found = std::find_if(block.packets.begin(), block.packets.end(), IsTrailer);
    if (found == block.packets.end())
        return;
    ForgedPacket trailer = std::move(*found);
    trailer.header.packetId = std::max(block.total / 2, 1u);
    block.packets.erase(found);
    block.packets.insert(block.packets.begin(), std::move(trailer));
}

void ForgeTrailerLines(ForgedBlock &block, Random &)
{
    std::erase_if(block.packets,
                  [](ForgedPacket const &packet) { return IsData(packet) && packet.header.packetId % 2 == 0; });
    for (ForgedPacket &packet : block.packets) {
        if (IsTrailer(packet))
            Set32(packet.body, gvsp::ImageTrailer::SizeY, 0);
    }
}

void ForgeLeaderTwice(ForgedBlock &block, Random &)
{
    if (block.again || block.packets.empty() || !IsLeader(block.packets.front()))
        return;
    ForgedPacket second = block.packets.front();
    SetSize(second, 1, 1);
    block.packets.insert(block.packets.begin() + 1, std::move(second));
}

void ForgeTimestamps(ForgedBlock &block, Random &)
{
    ForLeader(block, [&](ForgedPacket &leader) {
        std::uint32_t const half = block.number % 2 == 0 ? 0 : Everything;
        Set32(leader.body, gvsp::ImageLeader::Timestamp, half);
        Set32(leader.body, gvsp::ImageLeader::Timestamp + 4, half);
    });
}

// ---- Parts -------------------------------------------------------------------------------------------------------

void MakePartsLeader(ForgedPacket &leader, std::uint8_t parts, std::uint64_t length)
{
    using Leader = gvsp::MultiPartLeader;
    using Info = gvsp::PartInfo;
    Bytes body(Leader::Parts + parts * Info::Size);
    std::copy_n(leader.body.begin(), std::min(leader.body.size(), Leader::Parts), body.begin());
    Set16(body, Leader::PayloadType, gvsp::MultiPart);
    for (std::size_t at = Leader::Parts; at < body.size(); at += Info::Size) {
        StoreBig16(&body[at + Info::DataType], gvsp::Image2D);
        StoreBig48(&body[at + Info::PartLength], length);
        if (leader.body.size() < gvsp::ImageLeader::Size)
            continue;
        // Format, size and offset stand in the same order in both.
        std::copy_n(&leader.body[gvsp::ImageLeader::PixelFormat], 4, &body[at + Info::PixelFormat]);
        std::copy_n(&leader.body[gvsp::ImageLeader::SizeX], 16, &body[at + Info::SizeX]);
    }
    leader.header.parts = parts;
    leader.body = std::move(body);
}

void MakePartsTrailer(ForgedPacket &trailer, std::uint8_t parts, std::uint64_t length)
{
    using Trailer = gvsp::MultiPartTrailer;
    trailer.body.assign(Trailer::Parts + parts * gvsp::PartTrailer::Size, 0);
    Set16(trailer.body, Trailer::PayloadType, gvsp::MultiPart);
    for (std::size_t at = Trailer::Parts; at < trailer.body.size(); at += gvsp::PartTrailer::Size)
        StoreBig48(&trailer.body[at + gvsp::PartTrailer::PartLength], length);
}

// As one part, or as many, whose data are all at one place.
void ForgeParts(ForgedBlock &block, std::uint8_t parts, std::uint64_t length, std::uint64_t offset)
{
    for (ForgedPacket &packet : block.packets) {
        packet.header.isExtended = true;
        if (IsLeader(packet)) {
            MakePartsLeader(packet, parts, length);
        } else if (IsTrailer(packet)) {
            MakePartsTrailer(packet, parts, length);
        } else if (IsData(packet)) {
            packet.header.format = gvsp::MultiPartPayload;
            packet.body.insert(packet.body.begin(), gvsp::MultiPartData::Size, 0);
            StoreBig48(&packet.body[gvsp::MultiPartData::AddressOffset], offset);
        }
    }
}

void ForgePartsOverlap(ForgedBlock &block, Random &)
{
    // What sent again does not tell is what the block has.
    static constexpr std::uint64_t Small = 64 << 10;
    std::uint64_t length = 0;
    for (ForgedPacket const &packet : block.packets)
        length += IsData(packet) ? packet.body.size() : 0;
    ForgeParts(block, 1, block.again ? Small : length, 0);
}

// ---- Blocks and senders ------------------------------------------------------------------------------------------

void ForgeBlocksAhead(ForgedBlock &block, Random &)
{
    constexpr std::uint64_t Ahead = 64;
    if (block.again || block.packets.empty() || !IsLeader(block.packets.front()))
        return;
    ForgedPacket leader = block.packets.front();
    for (std::uint64_t i = 1; i <= Ahead; ++i) {
        SetBlockId(leader.header, block.packets.front().header.blockId + i);
        block.packets.push_back(leader);
    }
}

template<class IdOf>
void ForgeBlockIds(ForgedBlock &block, IdOf idOf)
{
    for (ForgedPacket &packet : block.packets)
        SetBlockId(packet.header, idOf(packet));
}

void ForgeGiants(ForgedBlock &block, Random &)
{
    constexpr std::size_t Giants = 4;
    for (std::size_t i = 0; !block.again && i < Giants && i < block.packets.size(); ++i) {
        ForgedPacket giant = block.packets[i];
        giant.body.resize(LargestDatagram - giant.header.Size(), Foreign);
        block.packets.insert(block.packets.begin(), std::move(giant));
    }
}

// ---- Contents ----------------------------------------------------------------------------------------------------

void ForgeCrumbs(ForgedBlock &block, Random &)
{
    for (ForgedPacket &packet : block.packets) {
        if (IsData(packet))
            packet.body.resize(std::min<std::size_t>(packet.body.size(), 1));
    }
}

void ForgeChunkLengths(ForgedBlock &block, Random &)
{
    constexpr std::uint16_t Type = gvsp::Image | gvsp::ExtendedChunkMode;
    for (ForgedPacket &packet : block.packets) {
        if (IsLeader(packet)) {
            Set16(packet.body, gvsp::ImageLeader::PayloadType, Type);
        } else if (IsTrailer(packet)) {
            packet.body.resize(gvsp::ImageTrailer::Size + gvsp::ExtendedChunkTrailer::Size);
            Set16(packet.body, gvsp::ImageTrailer::PayloadType, Type);
            Set32(packet.body, gvsp::ImageTrailer::Size + gvsp::ExtendedChunkTrailer::ChunkDataPayloadLength,
                  Everything);
        } else if (packet.header.packetId + 2 == block.total && packet.body.size() >= gvsp::ChunkTrailer::Size) {
            Set32(packet.body, packet.body.size() - 4, Everything); // the length of the last chunk
        }
    }
}

void ForgeAllInAbsurd(ForgedBlock &block, Random &)
{
    std::erase_if(block.packets, [](ForgedPacket const &packet) { return !IsLeader(packet); });
    ForLeader(block, [](ForgedPacket &leader) {
        leader.header.format = gvsp::AllIn;
        leader.body.resize(gvsp::ImageLeader::Size + gvsp::ImageTrailer::Size + 16, Foreign);
        Set16(leader.body, gvsp::ImageLeader::Size + gvsp::ImageTrailer::PayloadType, gvsp::Image);
    });
}

void ForgeMutated(ForgedBlock &block, Random &random)
{
    constexpr std::uint32_t Front = 64;
    for (ForgedPacket &packet : block.packets) {
        std::array<std::uint8_t, gvsp::ExtendedHeaderSize> header{};
        gvsp::WriteEitherHeader(header, packet.header);
        packet.body.insert(packet.body.begin(), header.begin(),
                           header.begin() + static_cast<std::ptrdiff_t>(packet.header.Size()));
        packet.isBare = true;
        auto const end = std::min(Front, static_cast<std::uint32_t>(packet.body.size()));
        packet.body[Throw(random, end)] ^= static_cast<std::uint8_t>(1 + Throw(random, 255));
    }
}

void DropSome(ForgedBlock &block)
{
    if (!block.again) {
        std::erase_if(block.packets,
                      [](ForgedPacket const &packet) { return packet.header.packetId % GapEvery == GapEvery - 1; });
    }
}

void ForgeResendsLie(ForgedBlock &block, Random &random)
{
    DropSome(block);
    if (!block.again)
        return;
    for (ForgedPacket &packet : block.packets) {
        switch (Throw(random, 5)) {
        case 0:
            packet.header.packetId += block.total;
            break;
        case 1:
            SetBlockId(packet.header, packet.header.blockId + 1);
            break;
        case 2:
            packet.body.resize(packet.body.size() / 2);
            break;
        case 3:
            packet.body.resize(packet.body.size() + 64, Foreign);
            break;
        default:
            packet.header.format = gvsp::DataTrailer;
            break;
        }
    }
}

void ForgeResendsFlood(ForgedBlock &block, Random &)
{
    constexpr std::size_t Times = 50;
    DropSome(block);
    if (block.again && !block.packets.empty())
        block.packets.resize(Times, ForgedPacket(block.packets.front()));
}

// ---- All of them -------------------------------------------------------------------------------------------------

struct Forgery
{
    WireStreamForgery kind;
    void (*forge)(ForgedBlock &block, Random &random);
};

using K = WireStreamForgery;
using B = ForgedBlock;
using P = ForgedPacket;

Forgery const Forgeries[] = {
    {K::HugePacketIds,
     [](B &block, Random &) {
         AddBefore(block, 1, [](P packet) {
             packet.header.format = gvsp::DataPayload;
             packet.header.packetId = LastPacketId(packet.header);
             return packet;
         });
     }},
    {K::HugeTrailer, ForgeHugeTrailer},
    {K::Backwards,
     [](B &block, Random &) {
         std::reverse(block.packets.begin(), block.packets.end());
     }},
    {K::EarlyTrailer, ForgeEarlyTrailer},
    {K::TrailerLines, ForgeTrailerLines},
    {K::LeaderHuge,
     [](B &block, Random &) {
         ForLeader(block, [](P &leader) { SetSize(leader, Everything, Everything); });
     }},
    {K::LeaderEmpty,
     [](B &block, Random &) {
         ForLeader(block, [](P &leader) { SetSize(leader, 0, 0); });
     }},
    {K::LeaderTall,
     [](B &block, Random &) {
         ForLeader(block, [](P &leader) {
             if (leader.body.size() >= gvsp::ImageLeader::Size)
                 Set32(leader.body, gvsp::ImageLeader::SizeY, 2 * LoadBig32(&leader.body[gvsp::ImageLeader::SizeY]));
         });
     }},
    {K::LeaderFormat,
     [](B &block, Random &) {
         ForLeader(block, [](P &leader) { Set32(leader.body, gvsp::ImageLeader::PixelFormat, 0xDEADBEEF); });
     }},
    {K::LeaderPadding,
     [](B &block, Random &) {
         ForLeader(block, [](P &leader) { Set32(leader.body, gvsp::ImageLeader::PaddingX, Everything); });
     }},
    {K::LeaderTypes,
     [](B &block, Random &random) {
         ForLeader(block, [&](P &leader) {
             Set16(leader.body, gvsp::ImageLeader::PayloadType, static_cast<std::uint16_t>(2 + Throw(random, 0xFFFE)));
         });
     }},
    {K::LeaderShort,
     [](B &block, Random &random) {
         ForLeader(block, [&](P &leader) { leader.body.resize(Throw(random, gvsp::ImageLeader::Size)); });
     }},
    {K::LeaderTwice, ForgeLeaderTwice},
    {K::Timestamps, ForgeTimestamps},
    {K::PartsAbsurd,
     [](B &block, Random &) {
         ForLeader(block, [](P &leader) {
             leader.header.isExtended = true;
             MakePartsLeader(leader, 255, LongestPart);
             leader.body.resize(std::min<std::size_t>(leader.body.size(), 1400)); // one packet's
         });
     }},
    {K::PartsOutside,
     [](B &block, Random &) {
         ForgeParts(block, 1, LongestPart, LongestPart - 100);
     }},
    {K::PartsOverlap, ForgePartsOverlap},
    {K::Formats,
     [](B &block, Random &random) {
         for (P &packet : block.packets)
             packet.header.format = static_cast<std::uint8_t>(Throw(random, 16));
     }},
    {K::StrangerPort,
     [](B &block, Random &) {
         AddBefore(block, 1, [](P const &packet) { return FromStranger(packet, Sender::OtherPort); });
     }},
    {K::StrangerHost,
     [](B &block, Random &) {
         AddBefore(block, 1, [](P const &packet) { return FromStranger(packet, Sender::OtherHost); });
     }},
    {K::BlocksJump,
     [](B &block, Random &) {
         ForgeBlockIds(block, [&](P &) { return block.number * 0x7FF1; });
     }},
    {K::BlocksRepeat,
     [](B &block, Random &) {
         ForgeBlockIds(block, [](P &) { return 1; });
     }},
    {K::BlocksBackwards,
     [](B &block, Random &) {
         ForgeBlockIds(block, [&](P &) { return 0xFFFFFFF - block.number; });
     }},
    {K::BlocksZero,
     [](B &block, Random &) {
         for (P &packet : block.packets)
             packet.header.blockId = 0;
     }},
    {K::BlocksMixed,
     [](B &block, Random &) {
         ForgeBlockIds(block, [&](P &packet) { return block.number * 1000 + packet.header.packetId % 1000; });
     }},
    {K::BlocksAhead, ForgeBlocksAhead},
    {K::IdsMixed,
     [](B &block, Random &) {
         for (P &packet : block.packets)
             packet.header.isExtended = packet.header.packetId % 2 == 1;
     }},
    {K::Flood,
     [](B &block, Random &random) {
         AddBefore(block, 20, [&](P const &) { return Bare(RandomBytes(random, Throw(random, 100))); });
     }},
    {K::Shards,
     [](B &block, Random &random) {
         AddBefore(block, 2, [&](P packet) {
             packet.body.clear();
             Bytes front(gvsp::ExtendedHeaderSize);
             gvsp::WriteEitherHeader(std::span(front).first<gvsp::ExtendedHeaderSize>(), packet.header);
             front.resize(Throw(random, gvsp::ExtendedHeaderSize));
             return Bare(std::move(front));
         });
     }},
    {K::Giants, ForgeGiants},
    {K::Errors,
     [](B &block, Random &random) {
         for (P &packet : block.packets)
             packet.header.status = static_cast<std::uint16_t>(0x8000 | Throw(random, 0x20));
     }},
    {K::Crumbs, ForgeCrumbs},
    {K::ChunkLengths, ForgeChunkLengths},
    {K::AllInAbsurd, ForgeAllInAbsurd},
    {K::Mutated, ForgeMutated},
    {K::ResendsLie, ForgeResendsLie},
    {K::ResendsFlood, ForgeResendsFlood},
};

} // namespace

StreamForger::~StreamForger()
{
    for (int const stranger : m_strangers) {
        if (stranger >= 0)
            close(stranger);
    }
}

void StreamForger::Forge(WireStreamForgery kind, ForgedBlock &block)
{
    for (Forgery const &forgery : Forgeries) {
        if (forgery.kind == kind)
            forgery.forge(block, m_random);
    }
}

int StreamForger::StrangerSocket(Sender sender, StreamChannel const &channel)
{
    if (m_address != channel.address || m_port != channel.port) {
        for (int &stranger : m_strangers) {
            if (stranger >= 0)
                close(stranger);
            stranger = -1;
        }
        m_address = channel.address;
        m_port = channel.port;
    }
    int &made = m_strangers[sender == Sender::OtherHost ? 1 : 0];
    if (made >= 0)
        return made;
    // The neighbour is this computer too on loopback.
    std::uint32_t const local = channel.localAddress ^ (sender == Sender::OtherHost ? 0x100 : 0);
    int const tried = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (tried < 0)
        return -1;
    if (!BindSocket(tried, {local, 0}) || !ConnectSocket(tried, {channel.address, channel.port})) {
        close(tried);
        return -1;
    }
    return made = tried;
}

std::size_t StreamForger::Send(ForgedPacket const &packet, int cameraSocket, StreamChannel const &channel)
{
    int const by = packet.sender == Sender::Camera ? cameraSocket : StrangerSocket(packet.sender, channel);
    if (by < 0)
        return 0;
    m_datagram.clear();
    if (!packet.isBare) {
        m_datagram.resize(gvsp::ExtendedHeaderSize);
        gvsp::WriteEitherHeader(std::span(m_datagram).first<gvsp::ExtendedHeaderSize>(), packet.header);
        m_datagram.resize(packet.header.Size());
    }
    m_datagram.insert(m_datagram.end(), packet.body.begin(), packet.body.end());
    auto const send = [&] {
        return ::send(by, m_datagram.data(), m_datagram.size(), MSG_NOSIGNAL);
    };
    ssize_t sent = send();
    if (sent < 0 && errno == ECONNREFUSED) // of an earlier packet that nobody listened to
        sent = send();
    return sent < 0 ? 0 : static_cast<std::size_t>(sent);
}
