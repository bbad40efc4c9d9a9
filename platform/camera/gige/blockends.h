// What leaders and trailers say of their block. Any bytes may be read: what is too short is nothing.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

// A two-dimensional picture within a frame, as its leader describes it.
struct BlockPicture
{
    std::uint32_t width = 0, height = 0, pixelFormat = 0, linePadding = 0;
    std::uint64_t offset = 0; // of its first byte

    // With so many of its lines; 0 where the format is none that we know, the largest number where there is none.
    std::uint64_t Bytes(std::uint32_t lines) const;
};

struct BlockLeader
{
    std::uint16_t payloadType = 0; // gvsp::PayloadType without ExtendedChunkMode
    bool hasChunks = false;        // ExtendedChunkMode
    std::uint64_t timestamp = 0;   // ticks
    std::optional<BlockPicture> picture;
    std::uint64_t chunkOffset = 0, chunkBytes = 0; // of the first part that is chunk data
    std::uint64_t partBytes = 0;                   // of all parts together
    std::uint8_t parts = 0;                        // 0: not a block of parts
    std::array<std::uint64_t, 21> partLengths{};
    bool hasZones = false; // within parts, each of which may end with a shorter packet
};

struct BlockTrailer
{
    std::optional<std::uint32_t> lines;
    std::optional<std::uint64_t> dataBytes; // that the block has
};

constexpr std::size_t LongestLeader = 1024; // what is read of one; of parts there are as many as fit

// `parts` of the header.
std::optional<BlockLeader> ReadBlockLeader(std::span<std::uint8_t const> body, std::uint8_t parts);
std::optional<BlockTrailer> ReadBlockTrailer(std::span<std::uint8_t const> body, BlockLeader const &leader);
// The bytes of an image's leader and trailer where both are in one packet with the data; nothing for other payloads.
std::optional<std::size_t> AllInEndsSize(std::span<std::uint8_t const> body);
