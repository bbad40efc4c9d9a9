// USB3 Vision on the wire: control, event and stream, under the standard's own names. Numbers are little-endian.
// Offsets count from the beginning of the part that they belong to; a byte that no name covers is reserved and zero.
#pragma once

#include "byteorder.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace u3v {

// The interface descriptors of a camera: class, subclass, and as protocol what the interface is for. The class is
// USB_CLASS_MISC.
constexpr std::uint8_t InterfaceSubclass = 0x05;
enum InterfaceProtocol : std::uint8_t { ControlInterface = 0, EventInterface = 1, StreamInterface = 2 };

// The first four bytes of every packet but a stream's payload.
enum Prefix : std::uint32_t {
    ControlPrefix = 0x43563355, // "U3VC"
    EventPrefix = 0x45563355,   // "U3VE"
    LeaderPrefix = 0x4C563355,  // "U3VL"
    TrailerPrefix = 0x54563355, // "U3VT"
};

enum Code : std::uint16_t {
    READMEM_CMD = 0x0800,
    READMEM_ACK = 0x0801,
    WRITEMEM_CMD = 0x0802,
    WRITEMEM_ACK = 0x0803,
    PENDING_ACK = 0x0805, // to either
    EVENT_CMD = 0x0C00,
};

// Of a command.
enum Flag : std::uint16_t {
    REQUEST_ACK = 0x4000,
    COMMAND_RESEND = 0x8000,
};

// Of an acknowledge, and of a trailer.
enum Status : std::uint16_t {
    U3V_STATUS_GENCP_SUCCESS = 0x0000,
    U3V_STATUS_GENCP_NOT_IMPLEMENTED = 0x8001,
    U3V_STATUS_GENCP_INVALID_PARAMETER = 0x8002,
    U3V_STATUS_GENCP_INVALID_ADDRESS = 0x8003,
    U3V_STATUS_GENCP_WRITE_PROTECT = 0x8004,
    U3V_STATUS_GENCP_BAD_ALIGNMENT = 0x8005,
    U3V_STATUS_GENCP_ACCESS_DENIED = 0x8006,
    U3V_STATUS_GENCP_BUSY = 0x8007,
    U3V_STATUS_GENCP_MSG_TIMEOUT = 0x800B,
    U3V_STATUS_GENCP_INVALID_HEADER = 0x800E,
    U3V_STATUS_GENCP_WRONG_CONFIG = 0x800F,
    U3V_STATUS_GENCP_ERROR = 0x8FFF,
    U3V_STATUS_RESEND_NOT_SUPPORTED = 0xA001,
    U3V_STATUS_DSI_ENDPOINT_HALTED = 0xA002,
    U3V_STATUS_SI_PAYLOAD_SIZE_NOT_ALIGNED = 0xA003,
    U3V_STATUS_SI_REGISTERS_INCONSISTENT = 0xA004,
    U3V_STATUS_DATA_DISCARDED = 0xA100,
    U3V_STATUS_DATA_OVERRUN = 0xA101,
};

// ---- Packets -----------------------------------------------------------------------------------------------------

constexpr std::size_t HeaderSize = 12; // of control and event packets

struct Header
{
    std::uint32_t prefix;
    std::uint16_t lead; // a command's flags, or an acknowledge's status
    std::uint16_t code;
    std::uint16_t length; // of the body
    std::uint16_t id;     // of the request, the same in its acknowledge
};

inline void WriteHeader(std::span<std::uint8_t, HeaderSize> out, Header const &header)
{
    StoreLittle32(&out[0], header.prefix);
    StoreLittle16(&out[4], header.lead);
    StoreLittle16(&out[6], header.code);
    StoreLittle16(&out[8], header.length);
    StoreLittle16(&out[10], header.id);
}

// Nothing where the packet is too short for a prefix.
inline std::optional<std::uint32_t> ReadPrefix(std::span<std::uint8_t const> packet)
{
    if (packet.size() < sizeof(std::uint32_t))
        return std::nullopt;
    return LoadLittle32(packet.data());
}

// Bodies: offsets of their fields, and their sizes. READMEM_ACK is nothing but the data.
struct MemoryRead // READMEM_CMD
{
    static constexpr std::size_t Address = 0, Count = 10, Size = 12;
};
struct MemoryWrite // WRITEMEM_CMD; the data end with the body
{
    static constexpr std::size_t Address = 0, Data = 8;
};
struct WriteAck // WRITEMEM_ACK
{
    static constexpr std::size_t LengthWritten = 2, Size = 4;
};
struct EventRecord // EVENT_CMD; the data end with the body
{
    static constexpr std::size_t EventId = 2, Timestamp = 4, Data = 12;
};

// Leaders and trailers, from their prefix on.
struct ImageLeader
{
    static constexpr std::size_t Prefix = 0, LeaderSize = 6, BlockId = 8, PayloadType = 18, Timestamp = 20,
                                 PixelFormat = 28, SizeX = 32, SizeY = 36, OffsetX = 40, OffsetY = 44, PaddingX = 48,
                                 Size = 52;
};
struct ImageTrailer
{
    static constexpr std::size_t Prefix = 0, TrailerSize = 6, BlockId = 8, Status = 16, ValidPayloadSize = 20,
                                 SizeY = 28, Size = 32;
};

enum PayloadType : std::uint16_t {
    Image = 0x0001,
    ImageExtendedChunk = 0x4001,
    Chunk = 0x4000,
};

// ---- Bootstrap registers -----------------------------------------------------------------------------------------

// The technology agnostic bootstrap register map, which every camera has at address 0. Of 4 bytes where nothing else is
// said; texts of TextSize.
namespace abrm {

enum : std::uint32_t {
    GenCpVersion = 0x0000,
    ManufacturerName = 0x0004,          // text
    ModelName = 0x0044,                 // text
    FamilyName = 0x0084,                // text
    DeviceVersion = 0x00C4,             // text
    ManufacturerInfo = 0x0104,          // text
    SerialNumber = 0x0144,              // text
    UserDefinedName = 0x0184,           // text
    DeviceCapability = 0x01C4,          // 8 bytes
    MaximumDeviceResponseTime = 0x01CC, // ms
    ManifestTableAddress = 0x01D0,      // 8 bytes
    SbrmAddress = 0x01D8,               // 8 bytes
    DeviceConfiguration = 0x01E0,       // 8 bytes
    HeartbeatTimeout = 0x01E8,          // ms
    MessageChannelId = 0x01EC,
    Timestamp = 0x01F0, // 8 bytes, ns, as latched
    TimestampLatch = 0x01F8,
    TimestampIncrement = 0x01FC, // 8 bytes
    AccessPrivilege = 0x0204,
};
constexpr std::size_t TextSize = 64;

} // namespace abrm

// The technology specific bootstrap register map, from SbrmAddress on.
namespace sbrm {

enum : std::uint32_t {
    U3vVersion = 0x0000,
    U3vcpCapability = 0x0004,    // 8 bytes
    U3vcpConfiguration = 0x000C, // 8 bytes
    MaximumCommandTransferLength = 0x0014,
    MaximumAcknowledgeTransferLength = 0x0018,
    NumberOfStreamChannels = 0x001C,
    SirmAddress = 0x0020, // 8 bytes
    SirmLength = 0x0028,
    EirmAddress = 0x002C, // 8 bytes
    EirmLength = 0x0034,
    Iidc2Address = 0x0038, // 8 bytes
    CurrentSpeed = 0x0040,
};

} // namespace sbrm

// The streaming interface register map, from SirmAddress on.
namespace sirm {

enum : std::uint32_t {
    SiInfo = 0x0000,
    SiControl = 0x0004,
    SiRequiredPayloadSize = 0x0008, // 8 bytes
    SiRequiredLeaderSize = 0x0010,
    SiRequiredTrailerSize = 0x0014,
    SiMaximumLeaderSize = 0x0018,
    SiPayloadTransferSize = 0x001C,
    SiPayloadTransferCount = 0x0020,
    SiPayloadFinalTransfer1Size = 0x0024,
    SiPayloadFinalTransfer2Size = 0x0028,
    SiMaximumTrailerSize = 0x002C,
};

} // namespace sirm

} // namespace u3v
