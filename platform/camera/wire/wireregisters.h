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
    // What a camera does that wants to harm its hosts.
    StreamForgery = 0x20108, // WireStreamForgery
    AnswerForgery = 0x20110, // WireAnswerForgery
    RegisterLie = 0x20118,   // WireRegisterLie
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
    // The camera's own, with a category "Hostile" of these.
    Divisions,     // formulas that divide the smallest number by -1, and by 0
    Shifts,        // formulas that shift by 64 and more, and by less than nothing
    NotNumbers,    // formulas whose values are infinite or no numbers, where integers are expected
    DeepFormula,   // a formula with 20,000 brackets in each other
    DeepNodes,     // 10,000 features, each the value of the next
    Selectors,     // 3,000 features, of which each selects 20
    ManyFeatures,  // 8,000 features in one category
    ManyEntries,   // an enumeration with 20,000 entries
    HugeTexts,     // texts of a megabyte, and a feature with a name of 60,000 letters
    Markup,        // texts with HTML, line breaks and turned directions
    HugeRegisters, // texts and registers of 2 GB
    Restless,      // 500 features to be polled every millisecond
    WrongTypes,    // Width is a text, Height a command, PixelFormat a real number, PayloadSize a category
};

// How the packets of a stream are forged. "Added" ones come beside those of the camera, the others instead of them;
// what is sent again is forged as well.
enum class WireStreamForgery : std::uint32_t {
    Off,
    HugePacketIds,   // added: data with the largest packet id there is
    HugeTrailer,     // added: a trailer with the largest packet id, and data behind it
    Backwards,       // the trailer comes first and the leader last
    EarlyTrailer,    // the trailer says that the block ends in its middle
    TrailerLines,    // the trailer says that there are no lines, and every second packet is missing
    LeaderHuge,      // pictures of 4,294,967,295 x 4,294,967,295
    LeaderEmpty,     // pictures of 0 x 0
    LeaderTall,      // pictures that are twice as high as their data
    LeaderFormat,    // a pixel format that there is not
    LeaderPadding,   // lines with 65,535 bytes of padding
    LeaderTypes,     // a payload type by chance, of every block another
    LeaderShort,     // leaders that end in their middle
    LeaderTwice,     // added: a second leader that says something else
    Timestamps,      // the smallest and the largest time by turns
    PartsAbsurd,     // leaders that announce 255 parts of 2^48 - 1 bytes
    PartsOutside,    // parts at offsets behind every memory
    PartsOverlap,    // a part whose packets all have offset 0
    Formats,         // packet formats by chance
    StrangerPort,    // added: each packet with other data before it, from another port
    StrangerHost,    // the same, from another address
    BlocksJump,      // block ids that jump half around
    BlocksRepeat,    // all blocks have one id
    BlocksBackwards, // block ids that count down
    BlocksZero,      // block id 0
    BlocksMixed,     // each packet has another block id
    BlocksAhead,     // added: 64 leaders of blocks to come
    IdsMixed,        // every second packet has the other kind of ids, extended or not
    Flood,           // added: 20 datagrams of random bytes for each
    Shards,          // added: datagrams of 0 to 19 bytes
    Giants,          // added: datagrams of 65,507 bytes
    Errors,          // every packet says that there is an error
    Crumbs,          // data of one byte a packet
    ChunkLengths,    // chunks that are longer than the block
    AllInAbsurd,     // all in one packet that has no room for it
    Mutated,         // a byte of each packet's first 64 is another
    ResendsLie,      // every fifth packet does not come; what is sent again is something else
    ResendsFlood,    // every fifth packet does not come; what is sent again comes 50 times
};

// How answers to commands are forged; those to searches are left alone.
enum class WireAnswerForgery : std::uint32_t {
    Off,
    Empty,         // no bytes
    Cut,           // the first four bytes
    Oversized,     // 60,000 bytes behind the answer, announced as far as a length can
    Longer,        // four bytes more than was asked for, and announced
    Shorter,       // four bytes less than was asked for, and announced
    WrongCode,     // the acknowledge of another command
    WrongAddress,  // memory of another address
    Duplicate,     // ten times
    Stale,         // behind a hundred answers to other requests
    OtherPort,     // from another port
    Pending,       // asks for more time without end, and never answers
    PendingFlood,  // a hundred times asks for more time, and answers then
    Busy,          // the camera is busy, always
    BadStatus,     // a status by chance
    CutPending,    // asks for more time without saying how much, and answers then
    Events,        // behind event packets of wrong lengths
    RandomBytes,   // random bytes with the right request id
    RandomContent, // the right form with random content
};

// What registers say that does not hold.
enum class WireRegisterLie : std::uint32_t {
    Off,
    PayloadZero,     // a payload of 0 bytes
    PayloadTiny,     // a payload of 1 byte
    PayloadHuge,     // a payload of 4,294,967,295 bytes
    WidthZero,       // a width of 0
    WidthHuge,       // a width of 4,294,967,295
    SizeLarge,       // width and height of 60,000
    SizeHuge,        // width and height of 2,147,483,647
    FormatUnknown,   // a pixel format that there is not
    PacketSizeZero,  // packets of 0 bytes
    PacketSizeHuge,  // packets of 65,535 bytes
    StreamPort,      // the stream goes to another port
    SourcePort,      // the stream comes from another port
    Destination,     // the stream goes to another host
    PrivilegeLost,   // nobody has control
    OtherController, // another host has control
    HeartbeatZero,   // control ends after 0 ms
    HeartbeatHuge,   // control ends after 4,294,967,295 ms
    TicksZero,       // the clock does not tick
    TicksHuge,       // the clock ticks 2^64 - 1 times a second
    NoCapabilities,  // the camera can do nothing
    AllCapabilities, // the camera can do everything
    NoChannels,      // there is no stream channel
    Zeros,           // every register but those of the description is 0
    Ones,            // every register but those of the description is all ones
    Random,          // every register but those of the description says something else each time
    Names,           // names and texts with markup and control characters, without an end
};

// Chunks behind the picture, by ChunkSelector; their ids are WireChunkId() of it.
enum class WireChunk : std::uint32_t { Timestamp, FrameId, ExposureTime, Gain, LineStatus };
constexpr std::uint32_t WireChunks = 5;
constexpr std::uint32_t WireChunkId(WireChunk chunk)
{
    return 0x54560001 + static_cast<std::uint32_t>(chunk);
}
constexpr std::uint32_t ImageChunkId = 0x54560000;
