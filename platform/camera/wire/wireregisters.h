// Registers that a camera on the network has beside those of SimRegister; wire.xml names the same addresses.
// Big-endian, 4 bytes where nothing else is said. "Share" is a double in percent: of the datagrams that it is about,
// each is hit with that probability.
#pragma once

#include <cstdint>

namespace WireRegister {

enum : std::uint32_t {
    Begin = 0x20000,
    // What befalls the packets of the stream.
    PacketLoss = 0x20000,      // share; those that are sent again can get lost as well
    LossBurst = 0x20008,       // packets that one loss takes, in a row; 0 as 1
    LostPackets = 0x20040,     // text of 64: packet ids such as "3,7-9,last", lost when first sent
    LostEvery = 0x20010,       // LostPackets is about every n-th frame; 0 as 1
    Reorder = 0x20018,         // share
    ReorderDistance = 0x20020, // packets that overtake a reordered one; 0 as 1
    Duplicate = 0x20028,       // share
    Truncate = 0x20030,        // share: the datagram ends in its middle
    WrongLength = 0x20080,     // share: the datagram goes on behind its end
    WrongPacketId = 0x20088,   // share
    WrongBlockId = 0x20090,    // share
    Delay = 0x20098,           // ms that each packet is late
    IgnoreResend = 0x200A0,    // 1: packets that are asked for again do not come
    // What befalls the control channel.
    AnswerLoss = 0x200A8,        // share
    AnswerWrongId = 0x200B0,     // share
    AnswerWrongLength = 0x200B8, // share: the header promises more than there is
    AnswerDelay = 0x200C0,       // ms, of every answer but those to searches
    // What befalls the camera.
    Silence = 0x200C8,       // WireSilence
    Description = 0x200D0,   // WireDescription
    Die = 0x200D8,           // 1: the camera is gone, as if unplugged
    DownTime = 0x200E0,      // ms until it is back; 0: it stays away
    ReturnAddress = 0x200E8, // IPv4; 0: the same
    ReturnReset = 0x200F0,   // 1: with the settings of power-up
    ClockDrift = 0x200F8,    // double, parts per million that the camera's clock is fast
    Eager = 0x20100,         // 1: frames follow each other as fast as they can be sent, whatever the sensor
    // Chunk data.
    ChunkModeActive = 0x20200,
    ChunkSelector = 0x20208,
    ChunkEnable = 0x20210, // WireChunks of 8 bytes
    // Statistics, read-only, 8 bytes each, since power-up.
    FramesSent = 0x20300,
    PacketsSent = 0x20308,
    PacketsResent = 0x20310,
    PacketsRefused = 0x20318, // asked for again, but not there any more
    End = 0x20400,
};

} // namespace WireRegister

enum class WireSilence : std::uint32_t { Off, Control, Stream, All };

// What the camera's description is like. Those but the first are made to hurt the reader.
enum class WireDescription : std::uint32_t {
    Good,
    Truncated,   // ends in the middle
    NotXml,      // random bytes
    Empty,       // no bytes
    Entities,    // entities that unfold to gigabytes
    Nested,      // elements 100,000 deep
    Circle,      // features that depend on themselves
    BadZip,      // an archive with a damaged entry
    ZipBomb,     // an archive that unfolds to gigabytes
    HugeUrl,     // an URL that announces 2 GB
    FileUrl,     // an URL of a file on the host: File:///etc/passwd
    OutsideUrl,  // an URL of addresses that the camera does not have
    ChangesOnce, // the second download brings another description
};

// Chunks behind the picture, by ChunkSelector; their ids are WireChunkId() of it.
enum class WireChunk : std::uint32_t { Timestamp, FrameId, ExposureTime, Gain, LineStatus };
constexpr std::uint32_t WireChunks = 5;
constexpr std::uint32_t WireChunkId(WireChunk chunk)
{
    return 0x54560001 + static_cast<std::uint32_t>(chunk);
}
constexpr std::uint32_t ImageChunkId = 0x54560000;
