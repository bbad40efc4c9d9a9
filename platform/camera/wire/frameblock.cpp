#include "frameblock.h"

#include "wireregisters.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace {

constexpr std::uint32_t LargestPacket = 65535; // with the headers of IP, UDP and GVSP

constexpr std::size_t ChunkBytes(std::uint32_t chunk)
{
    return chunk == static_cast<std::uint32_t>(WireChunk::LineStatus) ? 4 : 8;
}

bool SendsParts(StreamChannel const &channel)
{
    return channel.multiPart && channel.extendedIds;
}

bool HasChunk(StreamChannel const &channel, std::uint32_t chunk)
{
    return (channel.chunks >> chunk & 1) != 0;
}

// All that follows the pixels. Of a multi-part block the pixels are a part of their own instead of a chunk.
std::size_t ChunkSize(StreamChannel const &channel)
{
    if (!channel.chunkMode)
        return 0;
    std::size_t size = SendsParts(channel) ? 0 : gvsp::ChunkTrailer::Size;
    for (std::uint32_t chunk = 0; chunk < WireChunks; ++chunk)
        size += HasChunk(channel, chunk) ? ChunkBytes(chunk) + gvsp::ChunkTrailer::Size : 0;
    return size;
}

std::uint32_t PacketRoom(StreamChannel const &channel)
{
    std::size_t const headers =
        gvsp::IpHeaderSize + gvsp::UdpHeaderSize + (channel.extendedIds ? gvsp::ExtendedHeaderSize : gvsp::HeaderSize);
    std::uint32_t const size =
        std::clamp(channel.packetSize, static_cast<std::uint32_t>(gvsp::SmallestPacket), LargestPacket);
    return size - static_cast<std::uint32_t>(headers);
}

} // namespace

std::uint64_t PayloadSize(StreamChannel const &channel, SimFormat const &format)
{
    return format.Payload() + ChunkSize(channel);
}

void FrameBlock::Set(StreamChannel const &channel, SimBuffer const &buffer, std::uint64_t count)
{
    m_channel = channel;
    m_blockId = channel.extendedIds ? count : gvsp::BlockId16(count);
    m_pixels = buffer.image->imageData;
    m_pixelBytes = buffer.payload;
    m_chunkBytes = ChunkSize(channel);
    FillChunks(buffer, count);
    m_parts = SendsParts(channel) ? (m_chunkBytes > 0 ? 2 : 1) : 0;
    m_ends.fill(0);
    if (IsMultiPart())
        FillMultiPartEnds(buffer);
    else
        FillImageEnds(buffer);
    CountPackets();
}

bool FrameBlock::IsMultiPart() const
{
    return m_parts != 0;
}

void FrameBlock::FillChunks(SimBuffer const &buffer, std::uint64_t count)
{
    if (m_chunkBytes == 0)
        return;
    std::uint8_t *out = m_chunks.data();
    auto const end = [&out](std::uint32_t id, std::uint64_t length) {
        StoreBig32(out + gvsp::ChunkTrailer::ChunkId, id);
        StoreBig32(out + gvsp::ChunkTrailer::Length, static_cast<std::uint32_t>(length));
        out += gvsp::ChunkTrailer::Size;
    };
    if (!SendsParts(m_channel))
        end(ImageChunkId, m_pixelBytes);
    std::uint64_t const values[WireChunks] = {
        buffer.image->timestamp, count, std::bit_cast<std::uint64_t>(buffer.take.exposure),
        std::bit_cast<std::uint64_t>(20.0 * std::log10(buffer.take.gain)), buffer.take.lines};
    for (std::uint32_t chunk = 0; chunk < WireChunks; ++chunk) {
        if (!HasChunk(m_channel, chunk))
            continue;
        if (ChunkBytes(chunk) == 4)
            StoreBig32(out, static_cast<std::uint32_t>(values[chunk]));
        else
            StoreBig64(out, values[chunk]);
        out += ChunkBytes(chunk);
        end(WireChunkId(static_cast<WireChunk>(chunk)), ChunkBytes(chunk));
    }
}

void FrameBlock::FillImageEnds(SimBuffer const &buffer)
{
    using Leader = gvsp::ImageLeader;
    using Trailer = gvsp::ImageTrailer;
    auto const type = static_cast<std::uint16_t>(gvsp::Image | (m_chunkBytes > 0 ? gvsp::ExtendedChunkMode : 0));
    std::uint8_t *const leader = m_ends.data();
    StoreBig16(leader + Leader::PayloadType, type);
    StoreBig64(leader + Leader::Timestamp, buffer.image->timestamp);
    StoreBig32(leader + Leader::PixelFormat, TovGetPixelTypeInfo(buffer.format.pixelType)->pfnc);
    StoreBig32(leader + Leader::SizeX, buffer.format.width);
    StoreBig32(leader + Leader::SizeY, buffer.format.height);
    StoreBig32(leader + Leader::OffsetX, buffer.format.offsetX);
    StoreBig32(leader + Leader::OffsetY, buffer.format.offsetY);
    m_leaderBytes = Leader::Size;
    std::uint8_t *const trailer = leader + m_leaderBytes;
    StoreBig16(trailer + Trailer::PayloadType, type);
    StoreBig32(trailer + Trailer::SizeY, buffer.format.height);
    m_trailerBytes = Trailer::Size;
    FillChunkTrailer(m_pixelBytes + m_chunkBytes);
}

void FrameBlock::FillMultiPartEnds(SimBuffer const &buffer)
{
    using Leader = gvsp::MultiPartLeader;
    using Trailer = gvsp::MultiPartTrailer;
    using Info = gvsp::PartInfo;
    auto const type = static_cast<std::uint16_t>(gvsp::MultiPart | (m_chunkBytes > 0 ? gvsp::ExtendedChunkMode : 0));
    m_leaderBytes = Leader::Parts + m_parts * Info::Size;
    m_trailerBytes = Trailer::Parts + m_parts * gvsp::PartTrailer::Size;
    std::uint8_t *const leader = m_ends.data();
    StoreBig16(leader + Leader::PayloadType, type);
    StoreBig64(leader + Leader::Timestamp, buffer.image->timestamp);
    std::uint8_t *info = leader + Leader::Parts;
    StoreBig16(info + Info::DataType, gvsp::Image2D);
    StoreBig48(info + Info::PartLength, m_pixelBytes);
    StoreBig32(info + Info::PixelFormat, TovGetPixelTypeInfo(buffer.format.pixelType)->pfnc);
    StoreBig32(info + Info::SizeX, buffer.format.width);
    StoreBig32(info + Info::SizeY, buffer.format.height);
    StoreBig32(info + Info::OffsetX, buffer.format.offsetX);
    StoreBig32(info + Info::OffsetY, buffer.format.offsetY);
    std::uint8_t *const trailer = leader + m_leaderBytes;
    StoreBig16(trailer + Trailer::PayloadType, type);
    std::uint8_t *part = trailer + Trailer::Parts;
    StoreBig16(part + gvsp::PartTrailer::DataType, gvsp::Image2D);
    StoreBig48(part + gvsp::PartTrailer::PartLength, m_pixelBytes);
    StoreBig32(part + gvsp::PartTrailer::SizeY, buffer.format.height);
    if (m_parts < 2)
        return;
    info += Info::Size;
    StoreBig16(info + Info::DataType, gvsp::Chunks);
    StoreBig48(info + Info::PartLength, m_chunkBytes);
    part += gvsp::PartTrailer::Size;
    StoreBig16(part + gvsp::PartTrailer::DataType, gvsp::Chunks);
    StoreBig48(part + gvsp::PartTrailer::PartLength, m_chunkBytes);
    FillChunkTrailer(m_chunkBytes);
}

// What a trailer has behind it where there are chunks, which take so many bytes.
void FrameBlock::FillChunkTrailer(std::uint64_t length)
{
    using Field = gvsp::ExtendedChunkTrailer;
    if (m_chunkBytes == 0)
        return;
    std::uint8_t *const out = m_ends.data() + m_leaderBytes + m_trailerBytes;
    StoreBig32(out + Field::ChunkDataPayloadLength, static_cast<std::uint32_t>(length));
    // Another one for each layout, and never 0.
    StoreBig32(out + Field::ChunkLayoutId, static_cast<std::uint32_t>(m_pixelBytes << WireChunks) +
                                               (m_channel.chunks & ((1u << WireChunks) - 1)) + 1);
    m_trailerBytes += Field::Size;
}

void FrameBlock::CountPackets()
{
    m_room = PacketRoom(m_channel);
    std::uint64_t const data = m_pixelBytes + m_chunkBytes;
    m_allIn = m_channel.allIn && !IsMultiPart() && m_leaderBytes + m_trailerBytes + data <= m_room;
    if (IsMultiPart())
        m_room -= gvsp::MultiPartData::Size;
    auto const count = [this](std::uint64_t bytes) {
        return static_cast<std::uint32_t>((bytes + m_room - 1) / m_room);
    };
    // A packet of a multi-part block belongs to one part.
    m_pixelPackets = count(m_pixelBytes);
    m_packets = m_allIn ? 1 : 2 + (IsMultiPart() ? m_pixelPackets + count(m_chunkBytes) : count(data));
}

gvsp::Header FrameBlock::HeaderOf(std::uint32_t id) const
{
    gvsp::Header header{gvcp::GEV_STATUS_SUCCESS, m_blockId, gvsp::DataPayload, id, m_channel.extendedIds};
    if (m_allIn && id == 0) {
        header.format = gvsp::AllIn;
    } else if (id == 0) {
        header.format = gvsp::DataLeader;
        header.parts = m_parts;
    } else if (id + 1 == m_packets) {
        header.format = gvsp::DataTrailer;
    } else if (IsMultiPart()) {
        header.format = gvsp::MultiPartPayload;
    }
    return header;
}

PacketPieces FrameBlock::Lay(std::uint32_t id, gvsp::Header const &header, HeaderRoom &room) const
{
    gvsp::WriteEitherHeader(std::span(room).first<gvsp::ExtendedHeaderSize>(), header);
    PacketPieces packet;
    if (id == 0) {
        packet.Add(room.data(), header.Size());
        packet.Add(m_ends.data(), m_leaderBytes + (m_allIn ? m_trailerBytes : 0));
        if (m_allIn)
            AddData(0, m_pixelBytes + m_chunkBytes, packet);
        return packet;
    }
    if (id + 1 >= m_packets) {
        packet.Add(room.data(), header.Size());
        packet.Add(m_ends.data() + m_leaderBytes, m_trailerBytes);
        return packet;
    }
    std::uint64_t begin = std::uint64_t{id - 1} * m_room, limit = m_pixelBytes + m_chunkBytes;
    std::size_t front = header.Size();
    if (IsMultiPart()) {
        bool const pixels = id <= m_pixelPackets;
        if (pixels)
            limit = m_pixelBytes;
        else
            begin = m_pixelBytes + std::uint64_t{id - 1 - m_pixelPackets} * m_room;
        std::uint8_t *const part = room.data() + front;
        part[gvsp::MultiPartData::PartId] = pixels ? 0 : 1;
        part[gvsp::MultiPartData::ZoneInfo] = begin + m_room >= limit ? gvsp::END_OF_ZONE | gvsp::END_OF_PART : 0;
        StoreBig48(part + gvsp::MultiPartData::AddressOffset, begin);
        front += gvsp::MultiPartData::Size;
    }
    packet.Add(room.data(), front);
    AddData(begin, std::min(begin + m_room, limit), packet);
    return packet;
}

// Of the pixels and the chunks behind them.
void FrameBlock::AddData(std::uint64_t begin, std::uint64_t end, PacketPieces &packet) const
{
    if (begin < m_pixelBytes)
        packet.Add(m_pixels + begin, std::min(end, m_pixelBytes) - begin);
    if (end > m_pixelBytes) {
        std::uint64_t const from = std::max(begin, m_pixelBytes);
        packet.Add(m_chunks.data() + (from - m_pixelBytes), end - from);
    }
}
