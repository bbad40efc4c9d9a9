// A frame as a block of GVSP packets: how many there are, and the bytes of each. The pixels stay where they are; a
// packet refers to them.
//
// Used by one thread at a time.
#pragma once

#include "streamchannel.h"

#include "protocol/gigevision.h"
#include "sim/simbuffer.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <sys/uio.h>

// The pieces of a datagram in order.
struct PacketPieces
{
    static constexpr std::size_t Most = 4;
    std::array<iovec, Most> pieces;
    std::size_t count = 0, size = 0;

    void Add(void const *bytes, std::size_t length)
    {
        if (length == 0)
            return;
        pieces[count++] = {const_cast<void *>(bytes), length};
        size += length;
    }
};

class FrameBlock
{
public:
    // Room for a packet's header and what stands before the data of each packet.
    using HeaderRoom = std::array<std::uint8_t, gvsp::ExtendedHeaderSize + gvsp::MultiPartData::Size>;

    // The `count`th block of the acquisition, from 1. The buffer's memory is used until the next call.
    void Set(StreamChannel const &channel, SimBuffer const &buffer, std::uint64_t count);
    std::uint32_t Packets() const
    {
        return m_packets;
    }
    std::uint64_t BlockId() const // as on the wire
    {
        return m_blockId;
    }
    bool IsExtended() const
    {
        return m_channel.extendedIds;
    }
    // The header that the packet has, if nothing befalls it. Packets that the block has not are data packets.
    gvsp::Header HeaderOf(std::uint32_t id) const;
    // The packet with this header in front; `id` says which it is, whatever the header does. Good until the next call
    // with the same room.
    PacketPieces Lay(std::uint32_t id, gvsp::Header const &header, HeaderRoom &room) const;

private:
    static constexpr std::size_t ChunkRoom = 128, EndsRoom = 192;

    bool IsMultiPart() const;
    void FillChunks(SimBuffer const &buffer, std::uint64_t count);
    void FillImageEnds(SimBuffer const &buffer);
    void FillMultiPartEnds(SimBuffer const &buffer);
    void FillChunkTrailer(std::uint64_t length);
    void CountPackets();
    void AddData(std::uint64_t begin, std::uint64_t end, PacketPieces &packet) const;

    StreamChannel m_channel;
    std::uint64_t m_blockId = 0;
    std::uint8_t const *m_pixels = nullptr;
    std::uint64_t m_pixelBytes = 0;
    std::array<std::uint8_t, ChunkRoom> m_chunks; // behind the pixels
    std::size_t m_chunkBytes = 0;
    std::array<std::uint8_t, EndsRoom> m_ends; // the leader's body, and the trailer's behind it
    std::size_t m_leaderBytes = 0, m_trailerBytes = 0;
    std::uint8_t m_parts = 0; // 0: the frame is an image
    bool m_allIn = false;
    std::uint32_t m_room = 0; // for data in a packet
    std::uint32_t m_packets = 0, m_pixelPackets = 0;
};
