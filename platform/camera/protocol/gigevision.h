// GigE Vision on the wire: control packets (GVCP) and stream packets (GVSP), under the standard's own names. Numbers
// are big-endian. Offsets count from the beginning of the part that they belong to; a byte that no name covers is
// reserved and zero.
//
// Functions that read take any bytes and check their number; functions that write get enough room.
#pragma once

#include "byteorder.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace gvcp {

constexpr std::uint16_t Port = 3956; // of the camera

enum Code : std::uint16_t {
    DISCOVERY_CMD = 0x0002,
    DISCOVERY_ACK = 0x0003,
    FORCEIP_CMD = 0x0004,
    FORCEIP_ACK = 0x0005,
    PACKETRESEND_CMD = 0x0040, // its answer is the packets
    READREG_CMD = 0x0080,
    READREG_ACK = 0x0081,
    WRITEREG_CMD = 0x0082,
    WRITEREG_ACK = 0x0083,
    READMEM_CMD = 0x0084,
    READMEM_ACK = 0x0085,
    WRITEMEM_CMD = 0x0086,
    WRITEMEM_ACK = 0x0087,
    PENDING_ACK = 0x0089, // to any command
    EVENT_CMD = 0x00C0,
    EVENT_ACK = 0x00C1,
    EVENTDATA_CMD = 0x00C2,
    EVENTDATA_ACK = 0x00C3,
    ACTION_CMD = 0x0100,
    ACTION_ACK = 0x0101,
};

constexpr std::uint16_t AcknowledgeOf(std::uint16_t command)
{
    return static_cast<std::uint16_t>(command + 1);
}

// Of a command. Bits with two names belong to different commands.
enum Flag : std::uint8_t {
    ACKNOWLEDGE = 0x01,         // is asked for
    EXTENDED_ID = 0x10,         // PACKETRESEND_CMD, EVENT_CMD, EVENTDATA_CMD: ids as with gvsp::ExtendedId
    ALLOW_BROADCAST_ACK = 0x10, // DISCOVERY_CMD, FORCEIP_CMD
    SCHEDULED_ACTION = 0x80,    // ACTION_CMD
};

// Of an acknowledge, and of a stream packet.
enum Status : std::uint16_t {
    GEV_STATUS_SUCCESS = 0x0000,
    GEV_STATUS_PACKET_RESEND = 0x0100, // of a stream packet that was asked for again
    GEV_STATUS_NOT_IMPLEMENTED = 0x8001,
    GEV_STATUS_INVALID_PARAMETER = 0x8002,
    GEV_STATUS_INVALID_ADDRESS = 0x8003,
    GEV_STATUS_WRITE_PROTECT = 0x8004,
    GEV_STATUS_BAD_ALIGNMENT = 0x8005,
    GEV_STATUS_ACCESS_DENIED = 0x8006,
    GEV_STATUS_BUSY = 0x8007,
    GEV_STATUS_PACKET_UNAVAILABLE = 0x800C,
    GEV_STATUS_DATA_OVERRUN = 0x800D,
    GEV_STATUS_INVALID_HEADER = 0x800E,
    GEV_STATUS_PACKET_NOT_YET_AVAILABLE = 0x8010,
    GEV_STATUS_PACKET_AND_PREV_REMOVED_FROM_MEMORY = 0x8011,
    GEV_STATUS_PACKET_REMOVED_FROM_MEMORY = 0x8012,
    GEV_STATUS_NO_REF_TIME = 0x8013,
    GEV_STATUS_PACKET_TEMPORARILY_UNAVAILABLE = 0x8014,
    GEV_STATUS_OVERFLOW = 0x8015,
    GEV_STATUS_ACTION_LATE = 0x8016,
    GEV_STATUS_LEADER_TRAILER_OVERFLOW = 0x8017,
    GEV_STATUS_ERROR = 0x8FFF,
};

// ---- Packets -----------------------------------------------------------------------------------------------------

constexpr std::size_t HeaderSize = 8;
constexpr std::size_t LongestBody = 540; // behind the header
constexpr std::size_t RegisterSize = 4;
constexpr std::uint8_t Key = 0x42; // the first byte of every command

// A command and an acknowledge begin alike but for the first two bytes.
struct Header
{
    std::uint16_t lead; // CommandLead(), or an acknowledge's status
    std::uint16_t code;
    std::uint16_t length; // of the body
    std::uint16_t id;     // of the request, the same in its acknowledge; never 0
};

constexpr std::uint16_t CommandLead(std::uint8_t flags)
{
    return static_cast<std::uint16_t>(Key << 8 | flags);
}

// The id of the request after the one with this id.
constexpr std::uint16_t NextRequestId(std::uint16_t id)
{
    return id == 0xFFFF ? std::uint16_t{1} : static_cast<std::uint16_t>(id + 1);
}

// Nothing where the packet is too short for a header.
inline std::optional<Header> ReadHeader(std::span<std::uint8_t const> packet)
{
    if (packet.size() < HeaderSize)
        return std::nullopt;
    std::uint8_t const *const bytes = packet.data();
    return Header{LoadBig16(bytes), LoadBig16(bytes + 2), LoadBig16(bytes + 4), LoadBig16(bytes + 6)};
}

// What follows the header of a packet that has one: as much as it announces and the packet holds.
inline std::span<std::uint8_t const> BodyOf(std::span<std::uint8_t const> packet, Header const &header)
{
    return packet.subspan(HeaderSize, std::min<std::size_t>(header.length, packet.size() - HeaderSize));
}

inline void WriteHeader(std::span<std::uint8_t, HeaderSize> out, Header const &header)
{
    StoreBig16(&out[0], header.lead);
    StoreBig16(&out[2], header.code);
    StoreBig16(&out[4], header.length);
    StoreBig16(&out[6], header.id);
}

// Bodies: offsets of their fields, and their sizes. READREG_CMD is addresses, READREG_ACK values, RegisterSize each;
// the body of a DISCOVERY_ACK is the bootstrap registers from 0 up to DiscoveryAck::Size.
struct RegisterWrite // WRITEREG_CMD, repeated
{
    static constexpr std::size_t Address = 0, Value = 4, Size = 8;
};
struct MemoryRead // READMEM_CMD
{
    static constexpr std::size_t Address = 0, Count = 6, Size = 8;
};
struct MemoryData // READMEM_ACK and WRITEMEM_CMD; the data end with the body
{
    static constexpr std::size_t Address = 0, Data = 4;
};
struct WriteAck // WRITEREG_ACK: registers written; WRITEMEM_ACK: bytes written
{
    static constexpr std::size_t Index = 2, Size = 4;
};
struct PacketResend // PACKETRESEND_CMD without EXTENDED_ID; both packets belong to what is asked for
{
    static constexpr std::size_t StreamChannelIndex = 0, BlockId = 2, FirstPacketId = 4, LastPacketId = 8, Size = 12;
};
struct ExtendedPacketResend // PACKETRESEND_CMD with EXTENDED_ID
{
    static constexpr std::size_t StreamChannelIndex = 0, FirstPacketId = 4, LastPacketId = 8, BlockId = 12, Size = 20;
};
struct EventRecord // EVENT_CMD without EXTENDED_ID, repeated
{
    static constexpr std::size_t EventId = 2, StreamChannelIndex = 4, BlockId = 6, Timestamp = 8, Size = 16;
};
struct ExtendedEventRecord // EVENT_CMD with EXTENDED_ID, repeated
{
    static constexpr std::size_t EventId = 2, StreamChannelIndex = 4, BlockId = 8, Timestamp = 16, Size = 24;
};
struct ForceIp // FORCEIP_CMD; FORCEIP_ACK has no body
{
    static constexpr std::size_t MacAddressHigh = 2, MacAddressLow = 4, IpAddress = 20, SubnetMask = 36,
                                 DefaultGateway = 52, Size = 56;
};
struct PendingAck // PENDING_ACK; milliseconds until the command is done
{
    static constexpr std::size_t TimeToCompletion = 2, Size = 4;
};
struct Action // ACTION_CMD; the time stands there with SCHEDULED_ACTION
{
    static constexpr std::size_t DeviceKey = 0, GroupKey = 4, GroupMask = 8, Size = 12, Time = 12, ScheduledSize = 20;
};
struct DiscoveryAck
{
    static constexpr std::size_t Size = 0x00F8;
};

constexpr std::uint16_t DeviceSpecificEvents = 0x9000; // ids from here on are the maker's
constexpr std::uint16_t NoStreamChannel = 0xFFFF;      // the index in an event that belongs to no stream

// ---- Bootstrap registers -----------------------------------------------------------------------------------------

// Of 4 bytes where nothing else is said. Those of network interface 0, stream channel 0 and action 0; the others follow
// in steps.
namespace bootstrap {

enum : std::uint32_t {
    Version = 0x0000,
    DeviceMode = 0x0004,
    DeviceMacAddressHigh = 0x0008,
    DeviceMacAddressLow = 0x000C,
    NetworkInterfaceCapability = 0x0010,
    NetworkInterfaceConfiguration = 0x0014,
    CurrentIpAddress = 0x0024,
    CurrentSubnetMask = 0x0034,
    CurrentDefaultGateway = 0x0044,
    ManufacturerName = 0x0048,                // text of NameSize
    ModelName = 0x0068,                       // text of NameSize
    DeviceVersion = 0x0088,                   // text of NameSize
    ManufacturerSpecificInformation = 0x00A8, // text of InformationSize
    SerialNumber = 0x00D8,                    // text of IdentitySize
    UserDefinedName = 0x00E8,                 // text of IdentitySize
    FirstUrl = 0x0200,                        // text of UrlSize
    SecondUrl = 0x0400,                       // text of UrlSize
    NumberOfNetworkInterfaces = 0x0600,
    PersistentIpAddress = 0x064C,
    PersistentSubnetMask = 0x065C,
    PersistentDefaultGateway = 0x066C,
    LinkSpeed = 0x0670,
    NumberOfMessageChannels = 0x0900,
    NumberOfStreamChannels = 0x0904,
    NumberOfActionSignals = 0x0908,
    ActionDeviceKey = 0x090C,
    NumberOfActiveLinks = 0x0910,
    GvspCapability = 0x092C,
    MessageChannelCapability = 0x0930,
    GvcpCapability = 0x0934,
    HeartbeatTimeout = 0x0938, // ms
    TimestampTickFrequencyHigh = 0x093C,
    TimestampTickFrequencyLow = 0x0940,
    TimestampControl = 0x0944,
    TimestampValueHigh = 0x0948, // as latched
    TimestampValueLow = 0x094C,
    DiscoveryAckDelay = 0x0950, // ms
    GvcpConfiguration = 0x0954,
    PendingTimeout = 0x0958, // ms
    ControlSwitchoverKey = 0x095C,
    GvspConfiguration = 0x0960,
    PhysicalLinkConfigurationCapability = 0x0964,
    PhysicalLinkConfiguration = 0x0968,
    Ieee1588Status = 0x096C,
    ScheduledActionCommandQueueSize = 0x0970,
    ControlChannelPrivilege = 0x0A00, // Privilege
    PrimaryApplicationPort = 0x0A04,
    PrimaryApplicationIpAddress = 0x0A14,
    MessageChannelPort = 0x0B00, // of the host; 0 closes the channel
    MessageChannelDestinationAddress = 0x0B10,
    MessageChannelTransmissionTimeout = 0x0B14, // ms
    MessageChannelRetryCount = 0x0B18,
    MessageChannelSourcePort = 0x0B1C,
    StreamChannelPort = 0x0D00,        // of the host; 0 closes the channel
    StreamChannelPacketSize = 0x0D04,  // with the headers of IP, UDP and GVSP
    StreamChannelPacketDelay = 0x0D08, // ticks
    StreamChannelDestinationAddress = 0x0D18,
    StreamChannelSourcePort = 0x0D1C,
    StreamChannelCapability = 0x0D20,
    StreamChannelConfiguration = 0x0D24,
    StreamChannelZone = 0x0D28,
    StreamChannelZoneDirection = 0x0D2C,
    ManifestTable = 0x9000,
    ActionGroupKey = 0x9800,
    ActionGroupMask = 0x9804,
    ManufacturerRegisters = 0xA000, // from here on
};

constexpr std::size_t NameSize = 32, InformationSize = 48, IdentitySize = 16, UrlSize = 512;
constexpr std::uint32_t StreamChannelStep = 0x40, ActionStep = 0x10;

} // namespace bootstrap

// Bits of the control channel privilege. Its upper half is the key of who takes control over from another.
enum Privilege : std::uint32_t {
    ExclusiveAccess = 0x1,
    ControlAccess = 0x2,
    ControlSwitchover = 0x4,
};
constexpr unsigned SwitchoverKeyShift = 16;

// Bits of the other registers, a namespace for each.
namespace devicemode {
enum : std::uint32_t { BigEndian = 0x80000000, Utf8 = 0x1 }; // a transmitter with a single link
}
namespace networkinterface { // capability and configuration
enum : std::uint32_t { LinkLocalAddress = 0x4, Dhcp = 0x2, PersistentIp = 0x1 };
}
namespace gvspcapability {
enum : std::uint32_t { SourcePort = 0x80000000, BlockId16 = 0x40000000 };
}
namespace messagechannelcapability {
enum : std::uint32_t { SourcePort = 0x80000000 };
}
namespace gvcpcapability {
enum : std::uint32_t {
    UserDefinedName = 0x80000000,
    SerialNumber = 0x40000000,
    HeartbeatDisable = 0x20000000,
    LinkSpeed = 0x10000000,
    PrimaryApplication = 0x08000000, // its port and IP address can be read
    ManifestTable = 0x04000000,
    TestData = 0x02000000,
    DiscoveryAckDelay = 0x01000000,
    WritableDiscoveryAckDelay = 0x00800000,
    ExtendedStatusCodes11 = 0x00400000,
    PrimaryApplicationSwitchover = 0x00200000,
    UnconditionalAction = 0x00100000,
    Ieee1588 = 0x00080000,
    ExtendedStatusCodes20 = 0x00040000,
    ScheduledAction = 0x00020000,
    Action = 0x40,
    PendingAck = 0x20,
    EventData = 0x10,
    Event = 0x8,
    PacketResend = 0x4,
    WriteMem = 0x2,
    Concatenation = 0x1, // several registers in one READREG_CMD or WRITEREG_CMD
};
}
namespace gvcpconfiguration {
enum : std::uint32_t {
    Ieee1588 = 0x00080000,
    ExtendedStatusCodes20 = 0x00040000, // GEV_STATUS_NO_REF_TIME and above
    UnconditionalAction = 0x8,
    ExtendedStatusCodes11 = 0x4,
    PendingAck = 0x2,
    HeartbeatDisable = 0x1,
};
}
namespace gvspconfiguration {
enum : std::uint32_t { BlockId64 = 0x40000000 };
}
namespace timestampcontrol {
enum : std::uint32_t { Latch = 0x2, Reset = 0x1 };
}
namespace physicallink { // capability
enum : std::uint32_t { SingleLink = 0x1 };
}
namespace packetsize { // of the stream channel
enum : std::uint32_t { FireTestPacket = 0x80000000, DoNotFragment = 0x40000000, Mask = 0xFFFF };
}
namespace streamchannel { // capability and configuration
enum : std::uint32_t { MultiPart = 0x40, AllInTransmission = 0x4, UnconditionalStreaming = 0x2 };
}

} // namespace gvcp

namespace gvsp {

enum PacketFormat : std::uint8_t {
    DataLeader = 1,
    DataTrailer = 2,
    DataPayload = 3,
    AllIn = 4, // leader, trailer and data in one
    H264Payload = 5,
    MultiZonePayload = 6,
    MultiPartPayload = 7,
    GenDcPayload = 8,
};
constexpr std::uint8_t PacketFormatMask = 0x0F;
constexpr std::uint8_t ExtendedId = 0x80; // beside the packet format: the extended header

enum PayloadType : std::uint16_t {
    Image = 0x0001,
    RawData = 0x0002,
    File = 0x0003,
    ChunkData = 0x0004,
    ExtendedChunkData = 0x0005,
    Jpeg = 0x0006,
    Jpeg2000 = 0x0007,
    H264 = 0x0008,
    MultiZoneImage = 0x0009,
    MultiPart = 0x000A,
    GenDc = 0x000B,
    ExtendedChunkMode = 0x4000, // with one of the others
};

constexpr std::size_t HeaderSize = 8, ExtendedHeaderSize = 20;
constexpr std::size_t IpHeaderSize = 20, UdpHeaderSize = 8; // in front of it
constexpr std::size_t SmallestPacket = 576;                 // with all headers; every network carries it

// Of an extended header.
enum Flag : std::uint16_t {
    PACKET_RESEND = 0x0001,
    PREVIOUS_BLOCK_DROPPED = 0x0002,
    RESEND_RANGE_ERROR = 0x0004, // asked for, but the block has no such packet
};

struct Header
{
    std::uint16_t status;   // gvcp::Status
    std::uint64_t blockId;  // 16 bits, 64 of an extended header; never 0
    std::uint8_t format;    // PacketFormat
    std::uint32_t packetId; // of a block, the leader's is 0; 24 bits, 32 of an extended header
    bool isExtended;
    // Only in an extended header.
    std::uint16_t flags = 0; // Flag
    std::uint8_t parts = 0;  // of a multi-part leader: how many follow

    std::size_t Size() const
    {
        return isExtended ? ExtendedHeaderSize : HeaderSize;
    }
};

// The last block id of a header that is not extended; the next one is 1.
constexpr std::uint16_t LastBlockId = 0xFFFF;

// The id in such a header of the `count`th block, counted from 1.
constexpr std::uint16_t BlockId16(std::uint64_t count)
{
    return static_cast<std::uint16_t>((count - 1) % LastBlockId + 1);
}

// Nothing where the packet is too short for its header.
inline std::optional<Header> ReadHeader(std::span<std::uint8_t const> packet)
{
    if (packet.size() < HeaderSize)
        return std::nullopt;
    std::uint8_t const *const bytes = packet.data();
    auto const format = static_cast<std::uint8_t>(bytes[4] & PacketFormatMask);
    if ((bytes[4] & ExtendedId) == 0)
        return Header{LoadBig16(bytes), LoadBig16(bytes + 2), format, LoadBig32(bytes + 4) & 0x00FFFFFF, false};
    if (packet.size() < ExtendedHeaderSize)
        return std::nullopt;
    return Header{LoadBig16(bytes), LoadBig64(bytes + 8), format, LoadBig32(bytes + 16), true, LoadBig16(bytes + 2),
                  bytes[7]};
}

inline void WriteExtendedHeader(std::span<std::uint8_t, ExtendedHeaderSize> out, Header const &header)
{
    StoreBig16(&out[0], header.status);
    StoreBig16(&out[2], header.flags);
    StoreBig32(&out[4], std::uint32_t{ExtendedId} << 24 | std::uint32_t{header.format} << 24 | header.parts);
    StoreBig64(&out[8], header.blockId);
    StoreBig32(&out[16], header.packetId);
}

// One that is not extended.
inline void WriteHeader(std::span<std::uint8_t, HeaderSize> out, Header const &header)
{
    StoreBig16(&out[0], header.status);
    StoreBig16(&out[2], static_cast<std::uint16_t>(header.blockId));
    StoreBig32(&out[4], std::uint32_t{header.format} << 24 | (header.packetId & 0x00FFFFFF));
}

// In the form that its ids need; the shorter one leaves the rest of `out` as it is.
inline void WriteEitherHeader(std::span<std::uint8_t, ExtendedHeaderSize> out, Header const &header)
{
    if (header.isExtended)
        WriteExtendedHeader(out, header);
    else
        WriteHeader(out.first<HeaderSize>(), header);
}

// What follows the header of a leader and of a trailer. Both begin with the same two fields, whatever the payload.
struct ImageLeader
{
    static constexpr std::size_t PayloadType = 2, Timestamp = 4, PixelFormat = 12, SizeX = 16, SizeY = 20, OffsetX = 24,
                                 OffsetY = 28, PaddingX = 32, PaddingY = 34, Size = 36;
};
struct ImageTrailer
{
    static constexpr std::size_t PayloadType = 2, SizeY = 4, Size = 8;
};
// In an all-in packet the leader comes first, the trailer next, and then the data.

// Behind every trailer with ExtendedChunkMode.
struct ExtendedChunkTrailer
{
    static constexpr std::size_t ChunkDataPayloadLength = 0, ChunkLayoutId = 4, Size = 8;
};
// Behind the data of each chunk. The first chunk is the image.
struct ChunkTrailer
{
    static constexpr std::size_t ChunkId = 0, Length = 4, Size = 8;
};

// Multi-part, which needs extended headers. A packet carries data of one part.
enum PartDataType : std::uint16_t {
    Image2D = 0x0001,
    Chunks = 0x000A,
};
struct MultiPartLeader
{
    static constexpr std::size_t PayloadType = 2, Timestamp = 4, Parts = 12; // PartInfo, repeated
};
struct PartInfo
{
    static constexpr std::size_t DataType = 0, PartLength = 2 /* 48 bits */, PixelFormat = 8, SourceId = 14,
                                 AdditionalZones = 15, ZoneDirections = 16, DataPurposeId = 20, RegionId = 22,
                                 SizeX = 24, SizeY = 28, OffsetX = 32, OffsetY = 36, PaddingX = 40, PaddingY = 42,
                                 Size = 48;
};
struct MultiPartTrailer
{
    static constexpr std::size_t PayloadType = 2, Parts = 4; // PartTrailer, repeated
};
struct PartTrailer
{
    static constexpr std::size_t DataType = 0, PartLength = 2 /* 48 bits */, SizeY = 8, Size = 16;
};
struct MultiPartData // in front of the data of a packet
{
    static constexpr std::size_t PartId = 0, ZoneInfo = 1,
                                 AddressOffset = 2 /* 48 bits: from the beginning of the first part */, Size = 8;
};
enum ZoneInfo : std::uint8_t { END_OF_ZONE = 0x01, END_OF_PART = 0x40 };

} // namespace gvsp
