// Packets of GigE Vision blocks, as a camera sends them: a picture whose pixels tell their frame and their place.
#pragma once

#include "protocol/gigevision.h"

#include <cstdint>
#include <vector>

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint32_t Mono8 = 0x01080001;
constexpr std::uint32_t Width = 100, Height = 20, PacketSize = 576;
constexpr std::size_t Payload = Width * Height;
constexpr std::size_t StandardData = PacketSize - 36; // 540: three packets of it and one of 380
constexpr std::uint32_t TrailerId = 5;                // of such a block
constexpr std::uint8_t Untouched = 0xEE;

inline std::uint8_t Pixel(std::uint64_t block, std::size_t offset)
{
    return static_cast<std::uint8_t>((block * 31 + offset * 7) % 200); // never Untouched
}

// The packets of a block, as a camera sends them.
struct Sender
{
    bool isExtended = false;
    std::uint32_t lines = Height, trailerLines = Height;
    std::size_t dataSize = StandardData, payload = Payload;
    std::uint64_t ticks = 1000; // a block
    std::uint16_t type = gvsp::Image, status = 0;

    Bytes Head(std::uint64_t block, std::uint8_t format, std::uint32_t id, std::uint8_t parts = 0) const
    {
        gvsp::Header const header{status, block, format, id, isExtended, 0, parts};
        Bytes packet(header.Size());
        if (isExtended)
            gvsp::WriteExtendedHeader(std::span(packet).first<gvsp::ExtendedHeaderSize>(), header);
        else
            gvsp::WriteHeader(std::span(packet).first<gvsp::HeaderSize>(), header);
        return packet;
    }
    Bytes LeaderBody(std::uint64_t block) const
    {
        Bytes body(gvsp::ImageLeader::Size);
        StoreBig16(&body[gvsp::ImageLeader::PayloadType], type);
        StoreBig64(&body[gvsp::ImageLeader::Timestamp], ticks * block);
        StoreBig32(&body[gvsp::ImageLeader::PixelFormat], Mono8);
        StoreBig32(&body[gvsp::ImageLeader::SizeX], Width);
        StoreBig32(&body[gvsp::ImageLeader::SizeY], lines);
        return body;
    }
    Bytes TrailerBody() const
    {
        Bytes body(gvsp::ImageTrailer::Size);
        StoreBig16(&body[gvsp::ImageTrailer::PayloadType], type);
        StoreBig32(&body[gvsp::ImageTrailer::SizeY], trailerLines);
        return body;
    }
    std::uint32_t Last() const
    {
        return static_cast<std::uint32_t>((payload + dataSize - 1) / dataSize + 1);
    }
    static Bytes Join(Bytes front, Bytes const &back)
    {
        front.insert(front.end(), back.begin(), back.end());
        return front;
    }
    static Bytes Pixels(std::uint64_t block, std::size_t begin, std::size_t end)
    {
        Bytes pixels;
        for (; begin < end; ++begin)
            pixels.push_back(Pixel(block, begin));
        return pixels;
    }
    Bytes Packet(std::uint64_t block, std::uint32_t id) const
    {
        if (id == 0)
            return Join(Head(block, gvsp::DataLeader, 0), LeaderBody(block));
        if (id == Last())
            return Join(Head(block, gvsp::DataTrailer, id), TrailerBody());
        return Join(Head(block, gvsp::DataPayload, id),
                    Pixels(block, (id - 1) * dataSize, std::min(id * dataSize, payload)));
    }
};
