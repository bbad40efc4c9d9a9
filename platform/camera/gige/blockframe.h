// What goes into a table of frames under way, and what comes out: datagrams, buffers, frames.
#pragma once

#include "blockends.h"
#include "tovlosses.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

// Memory for one frame. `owner` is whatever the supply wants to know it by.
struct BlockBuffer
{
    std::uint8_t *memory = nullptr;
    std::size_t room = 0;
    void *owner = nullptr;
};

struct BlockFrame;

class BufferSupply
{
public:
    // False while no buffer is free.
    virtual bool TakeBuffer(BlockBuffer &buffer) = 0;
    // Whether a complete frame is one that can be used: it is counted, and ends, as Unfit otherwise.
    virtual bool Accepts(BlockFrame const &)
    {
        return true;
    }

protected:
    ~BufferSupply() = default;
};

// A datagram in up to three pieces, in order.
struct Datagram
{
    std::array<std::span<std::uint8_t const>, 3> pieces;
    std::uint32_t address = 0; // of the sender, in the computer's byte order
    std::uint16_t port = 0;
    std::chrono::nanoseconds arrival{0}; // since 1970
    bool truncated = false;              // its end is missing: there was no room for it

    std::size_t Size() const
    {
        return pieces[0].size() + pieces[1].size() + pieces[2].size();
    }
    // Bytes from `offset` on; fewer than `out` holds where the datagram ends.
    std::size_t Copy(std::size_t offset, std::span<std::uint8_t> out) const;
};

enum class Verdict : std::uint8_t {
    Taken,
    Held, // taken or malformed: what comes next decides
    Duplicate,
    Late,
    Foreign,
    Malformed,
    Refused,
    Ignored,
};

struct BlockFrame
{
    enum class End : std::uint8_t { Complete, Unfit, Incomplete, Lost, Aborted };
    BlockBuffer buffer; // none of a lost one
    End end = End::Incomplete;
    bool isWhole = false; // every packet came, though perhaps with fewer bytes than the picture needs
    bool hasLeader = false;
    std::uint64_t blockId = 0;
    std::uint16_t payloadType = 0; // gvsp::PayloadType
    std::uint64_t timestamp = 0;   // ticks of the camera; 0 without a leader
    std::optional<BlockPicture> picture;
    std::size_t size = 0; // bytes, without a gap, of a whole one
    // Where its chunk data are, for FindChunk; nowhere in a frame that is not whole.
    std::size_t chunkOffset = 0, chunkBytes = 0;
    std::chrono::nanoseconds arrival{0}; // of its first packet
    std::uint32_t packets = 0, missing = 0;
    TovCam::FrameLosses losses;     // but for what the system has dropped
    std::uint64_t begin = 0;        // datagrams of the stream that had been taken when its first one came
    std::uint64_t missingBytes = 0; // of an incomplete one: what it lacks of what leader and trailer promise, or else
                                    // of what was announced
};
