// What BlockTable keeps of a block; for its own files alone.
#pragma once

#include "blockframe.h"

#include "protocol/gigevision.h"

#include <vector>

constexpr std::uint32_t NoTrailer = 0xFFFFFFFF;
constexpr std::chrono::milliseconds ReorderPatience{20}; // of a camera that sends nothing again

inline bool IsError(gvsp::Header const &header)
{
    return (header.status & 0x8000) != 0;
}

// Of a packet that is missing, but for the place of its data, which packets of multi-part blocks have when they came.
struct BlockPacketState
{
    std::chrono::steady_clock::time_point due; // for the next request
    std::uint32_t offset = 0, size = 0;
    std::uint8_t tries = 0;
    bool gone = false; // is not asked for any more
};

struct BlockUnderWay
{
    enum class Kind : std::uint8_t { Unknown, Plain, Parts };

    bool Has(std::uint32_t id) const
    {
        return (came[id / 64] >> (id % 64) & 1) != 0;
    }
    bool IsComplete() const
    {
        return leader && trailerId != NoTrailer && have == trailerId + 1;
    }
    std::uint32_t Missing() const
    {
        return next - have;
    }

    bool inUse = false;
    std::vector<std::uint64_t> came;      // a bit for each packet
    std::vector<BlockPacketState> states; // of a packet that `next` has passed

    std::uint64_t sequence = 0, blockId = 0;
    bool isExtended = false;
    Kind kind = Kind::Unknown;
    BlockBuffer buffer;
    std::optional<BlockLeader> leader;
    std::array<std::uint8_t, LongestLeader> trailerBody; // read when the leader is known
    std::size_t trailerSize = 0;
    std::uint32_t trailerId = NoTrailer;
    std::uint32_t next = 0;        // above every packet that came or is missing
    std::uint32_t have = 0;        // packets that came
    std::uint32_t highestData = 0; // id
    std::size_t dataEnd = 0;       // behind all data that are there
    std::size_t dataBytes = 0;     // of all data that are there
    std::uint32_t asked = 0;
    std::uint32_t shortId = 0; // a data packet that may be a damaged one, or the last of a smaller frame; 0: none
    std::size_t shortSize = 0;
    bool shortTaken = false;
    bool tailOpen = false; // what follows the newest packet counts as missing
    bool over = false;
    BlockFrame::End end = BlockFrame::End::Incomplete;
    bool isWhole = false;
    std::size_t size = 0;
    std::chrono::steady_clock::time_point lastPacket;
    std::chrono::nanoseconds arrival{0};
    std::uint64_t begin = 0; // as in BlockFrame
};

// Packets whose block is far from all others.
struct BlockSuspect
{
    int count = 0;
    std::uint64_t blockId = 0;
    bool isExtended = false;
    // The leader of that block, if it came.
    std::array<std::uint8_t, gvsp::ExtendedHeaderSize + LongestLeader> bytes;
    std::size_t size = 0;
};
