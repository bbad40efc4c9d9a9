// The accesses of a control channel: registers, memory, and packets that are asked for again.
#include "controlchannel.h"

#include "protocol/gigevision.h"
#include "tovcamera.h"

#include <algorithm>

namespace {

constexpr std::size_t MemoryBlock = 512; // what every camera can send and take in one packet

} // namespace

std::int32_t ControlChannel::ReadRegisterBy(Effort const &effort, std::uint32_t address, std::uint32_t &value)
{
    std::array<std::uint8_t, gvcp::RegisterSize> body, answer;
    StoreBig32(body.data(), address);
    std::int32_t const status = Ask({gvcp::READREG_CMD, 0, body, answer.size()}, effort, answer);
    if (status == TOV_CAM_ERR_OK)
        value = LoadBig32(answer.data());
    return status;
}

std::int32_t ControlChannel::ReadRegister(std::uint32_t address, std::uint32_t &value)
{
    return ReadRegisterBy(Access, address, value);
}

std::int32_t ControlChannel::WriteRegister(std::uint32_t address, std::uint32_t value)
{
    std::int32_t const status = SetRegister(address, value);
    if (address == gvcp::bootstrap::HeartbeatTimeout)
        m_timeoutChanged = true;
    return status;
}

std::int32_t ControlChannel::SetRegister(std::uint32_t address, std::uint32_t value)
{
    std::array<std::uint8_t, gvcp::RegisterWrite::Size> body;
    StoreBig32(&body[gvcp::RegisterWrite::Address], address);
    StoreBig32(&body[gvcp::RegisterWrite::Value], value);
    return Ask({gvcp::WRITEREG_CMD, 0, body}, Access, {});
}

// Whole registers, a block of them at most.
std::int32_t ControlChannel::ReadBlock(std::uint32_t address, std::span<std::uint8_t> out)
{
    std::array<std::uint8_t, gvcp::MemoryRead::Size> body{};
    StoreBig32(&body[gvcp::MemoryRead::Address], address);
    StoreBig16(&body[gvcp::MemoryRead::Count], static_cast<std::uint16_t>(out.size()));
    return Ask({gvcp::READMEM_CMD, 0, body, gvcp::MemoryData::Data + out.size()}, Access, out);
}

std::int32_t ControlChannel::WriteBlock(std::uint32_t address, std::span<std::uint8_t const> bytes)
{
    std::array<std::uint8_t, gvcp::MemoryData::Data + MemoryBlock> body;
    StoreBig32(&body[gvcp::MemoryData::Address], address);
    std::copy(bytes.begin(), bytes.end(), body.begin() + gvcp::MemoryData::Data);
    return Ask({gvcp::WRITEMEM_CMD, 0, std::span(body).first(gvcp::MemoryData::Data + bytes.size())}, Access, {});
}

namespace {

// Calls `access` with blocks of whole registers that hold all of the range: address, size, and the place of the range's
// first byte against the block's. Ends with the first status that is not 0.
template<class Access>
std::int32_t ForBlocks(std::uint32_t address, std::size_t size, Access const &access)
{
    constexpr std::uint64_t Word = gvcp::RegisterSize, Space = std::uint64_t{1} << 32;
    std::uint64_t const end = (std::uint64_t{address} + size + Word - 1) / Word * Word;
    if (size > Space || end > Space)
        return TOV_CAM_ERR_GENICAM_INVALID_ARGUMENT;
    for (std::uint64_t at = address / Word * Word; at < end; at += MemoryBlock) {
        auto const block = static_cast<std::size_t>(std::min<std::uint64_t>(MemoryBlock, end - at));
        std::int32_t const status = access(static_cast<std::uint32_t>(at), block,
                                           static_cast<std::ptrdiff_t>(address) - static_cast<std::ptrdiff_t>(at));
        if (status != TOV_CAM_ERR_OK)
            return status;
    }
    return TOV_CAM_ERR_OK;
}

// The part of a block that belongs to the range, and of the range that belongs to the block.
struct Overlap
{
    Overlap(std::ptrdiff_t first, std::size_t size, std::size_t block)
        : inBlock(static_cast<std::size_t>(std::max<std::ptrdiff_t>(first, 0))),
          inRange(static_cast<std::size_t>(std::max<std::ptrdiff_t>(-first, 0))),
          length(std::min(block - inBlock, size - inRange))
    {
    }
    std::size_t inBlock, inRange, length;
};

} // namespace

std::int32_t ControlChannel::ReadMemory(std::uint32_t address, std::span<std::uint8_t> out)
{
    return ForBlocks(address, out.size(), [&](std::uint32_t at, std::size_t size, std::ptrdiff_t first) {
        std::array<std::uint8_t, MemoryBlock> block;
        std::int32_t const status = ReadBlock(at, std::span(block).first(size));
        Overlap const part(first, out.size(), size);
        if (status == TOV_CAM_ERR_OK)
            std::copy_n(&block[part.inBlock], part.length, &out[part.inRange]);
        return status;
    });
}

std::int32_t ControlChannel::WriteMemory(std::uint32_t address, std::span<std::uint8_t const> bytes)
{
    using gvcp::bootstrap::HeartbeatTimeout;
    std::int32_t const status =
        ForBlocks(address, bytes.size(), [&](std::uint32_t at, std::size_t size, std::ptrdiff_t first) {
            std::array<std::uint8_t, MemoryBlock> block;
            Overlap const part(first, bytes.size(), size);
            // What stands beside the bytes in their registers stays.
            std::size_t const lastWord = size - gvcp::RegisterSize;
            std::int32_t status = TOV_CAM_ERR_OK;
            if (part.inBlock != 0)
                status = ReadBlock(at, std::span(block).first(gvcp::RegisterSize));
            if (status == TOV_CAM_ERR_OK && part.inBlock + part.length != size)
                status = ReadBlock(static_cast<std::uint32_t>(at + lastWord),
                                   std::span(block).subspan(lastWord, gvcp::RegisterSize));
            std::copy_n(&bytes[part.inRange], part.length, &block[part.inBlock]);
            return status == TOV_CAM_ERR_OK ? WriteBlock(at, std::span(block).first(size)) : status;
        });
    if (address < HeartbeatTimeout + gvcp::RegisterSize && HeartbeatTimeout < std::uint64_t{address} + bytes.size())
        m_timeoutChanged = true;
    return status;
}

void ControlChannel::RequestPackets(PacketRequest const &request)
{
    std::array<std::uint8_t, gvcp::HeaderSize + gvcp::ExtendedPacketResend::Size> packet{};
    std::uint8_t *const body = &packet[gvcp::HeaderSize];
    std::size_t const size = request.isExtended ? gvcp::ExtendedPacketResend::Size : gvcp::PacketResend::Size;
    constexpr std::uint32_t PacketIdMask = 0x00FFFFFF; // without extended ids
    if (request.isExtended) {
        using Body = gvcp::ExtendedPacketResend;
        StoreBig16(body + Body::StreamChannelIndex, request.channel);
        StoreBig32(body + Body::FirstPacketId, request.first);
        StoreBig32(body + Body::LastPacketId, request.last);
        StoreBig64(body + Body::BlockId, request.blockId);
    } else {
        using Body = gvcp::PacketResend;
        StoreBig16(body + Body::StreamChannelIndex, request.channel);
        StoreBig16(body + Body::BlockId, static_cast<std::uint16_t>(request.blockId));
        StoreBig32(body + Body::FirstPacketId, request.first & PacketIdMask);
        StoreBig32(body + Body::LastPacketId, request.last & PacketIdMask);
    }
    std::uint8_t const flags = request.isExtended ? gvcp::EXTENDED_ID : 0;
    gvcp::WriteHeader(std::span(packet).first<gvcp::HeaderSize>(),
                      {gvcp::CommandLead(flags), gvcp::PACKETRESEND_CMD, static_cast<std::uint16_t>(size), NextId()});
    if (m_open && !m_lost)
        Transmit(std::span(packet).first(gvcp::HeaderSize + size));
}

std::int32_t ControlChannel::ReadController(std::uint32_t &address, std::uint16_t &port)
{
    return ReadControllerBy(Access, address, port);
}

std::int32_t ControlChannel::ReadControllerBy(Effort const &effort, std::uint32_t &address, std::uint16_t &port)
{
    std::uint32_t portRegister = 0;
    std::int32_t status = ReadRegisterBy(effort, gvcp::bootstrap::PrimaryApplicationPort, portRegister);
    if (status == TOV_CAM_ERR_OK)
        status = ReadRegisterBy(effort, gvcp::bootstrap::PrimaryApplicationIpAddress, address);
    port = static_cast<std::uint16_t>(portRegister);
    return status;
}
