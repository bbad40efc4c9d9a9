// A number in a chunk: what a register node of a description says of its place and its form.
#pragma once

#include "nodeaccess.h"

#include <cstdint>
#include <optional>
#include <span>
#include <variant>

using ChunkNumber = std::variant<std::int64_t, double>;

struct ChunkRegister
{
    std::uint32_t chunk = 0;  // its id
    std::uint64_t offset = 0; // bytes, in the chunk
    unsigned length = 0;      // bytes: 1 to 8, of a real number 4 or 8
    bool isBigEndian = false;
    bool isReal = false;
    bool isSigned = false;
    unsigned lowest = 0, bits = 64; // that an integer takes of them

    // Nothing where the chunk is too short.
    std::optional<ChunkNumber> Read(std::span<std::uint8_t const> bytes) const;
};

// Whether the port of a register node leads into the frames instead of the camera's memory.
bool IsInChunk(ArvGcNode *node);
// Nothing for a node that is no number of at most eight bytes in a chunk. With the device's lock held; an address that
// is taken from the camera is asked for now.
std::optional<ChunkRegister> DescribeChunkRegister(ArvGcNode *node);
