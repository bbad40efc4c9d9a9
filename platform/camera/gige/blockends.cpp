#include "blockends.h"

#include "protocol/gigevision.h"
#include "tovimage.h"

#include <limits>

namespace {

using Bytes = std::span<std::uint8_t const>;

constexpr std::size_t PayloadTypeOffset = 2, GenericLeaderSize = 12, GenericTrailerSize = 4;
constexpr std::size_t ChunkLengthOffset = 4, ChunkTrailerSize = 8; // of a trailer of chunk data

BlockPicture ReadPicture(std::uint8_t const *body)
{
    using Field = gvsp::ImageLeader;
    return {LoadBig32(body + Field::SizeX), LoadBig32(body + Field::SizeY), LoadBig32(body + Field::PixelFormat),
            LoadBig16(body + Field::PaddingX), 0};
}

// False where the leader is shorter than its parts.
bool ReadParts(Bytes body, std::uint8_t parts, BlockLeader &leader)
{
    using Info = gvsp::PartInfo;
    if (parts == 0 || parts > leader.partLengths.size() ||
        (body.size() - gvsp::MultiPartLeader::Parts) / Info::Size < parts)
        return false;
    std::uint8_t const *info = body.data() + gvsp::MultiPartLeader::Parts;
    for (; leader.parts < parts; ++leader.parts, info += Info::Size) {
        if (LoadBig16(info + Info::DataType) == gvsp::Image2D && !leader.picture)
            leader.picture = {LoadBig32(info + Info::SizeX), LoadBig32(info + Info::SizeY),
                              LoadBig32(info + Info::PixelFormat), LoadBig16(info + Info::PaddingX), leader.partBytes};
        std::uint64_t const length = LoadBig48(info + Info::PartLength);
        if (LoadBig16(info + Info::DataType) == gvsp::Chunks && leader.chunkBytes == 0) {
            leader.chunkOffset = leader.partBytes;
            leader.chunkBytes = length;
        }
        leader.partLengths[leader.parts] = length;
        leader.hasZones = leader.hasZones || info[Info::AdditionalZones] != 0;
        leader.partBytes += length;
    }
    return true;
}

} // namespace

std::uint64_t BlockPicture::Bytes(std::uint32_t lines) const
{
    TovPixelTypeInfo const *const info = TovGetPixelTypeInfoByPfnc(pixelFormat);
    std::uint64_t const line = info ? TovLineBytes(info->pixelType, width) + linePadding : 0;
    constexpr auto Most = std::numeric_limits<std::uint64_t>::max();
    return lines != 0 && line > Most / lines ? Most : line * lines;
}

std::optional<BlockLeader> ReadBlockLeader(Bytes body, std::uint8_t parts)
{
    if (body.size() < GenericLeaderSize)
        return std::nullopt;
    BlockLeader leader;
    std::uint16_t const type = LoadBig16(&body[PayloadTypeOffset]);
    leader.hasChunks = (type & gvsp::ExtendedChunkMode) != 0;
    leader.payloadType = static_cast<std::uint16_t>(type & ~gvsp::ExtendedChunkMode);
    leader.timestamp = LoadBig64(&body[gvsp::ImageLeader::Timestamp]);
    switch (leader.payloadType) {
    case gvsp::Image:
    case gvsp::ExtendedChunkData:
        if (body.size() < gvsp::ImageLeader::Size)
            return std::nullopt;
        leader.picture = ReadPicture(body.data());
        break;
    case gvsp::MultiPart:
        if (!ReadParts(body, parts, leader))
            return std::nullopt;
        break;
    default:
        break; // its data are kept, whatever they are
    }
    return leader;
}

std::optional<BlockTrailer> ReadBlockTrailer(Bytes body, BlockLeader const &leader)
{
    if (body.size() < GenericTrailerSize ||
        (LoadBig16(&body[PayloadTypeOffset]) & ~gvsp::ExtendedChunkMode) != leader.payloadType)
        return std::nullopt;
    BlockTrailer trailer;
    std::size_t size = GenericTrailerSize;
    switch (leader.payloadType) {
    case gvsp::Image:
        size = gvsp::ImageTrailer::Size;
        if (body.size() < size)
            return std::nullopt;
        trailer.lines = LoadBig32(&body[gvsp::ImageTrailer::SizeY]);
        break;
    case gvsp::ChunkData:
    case gvsp::ExtendedChunkData:
        if (body.size() >= ChunkTrailerSize && LoadBig32(&body[ChunkLengthOffset]) != 0)
            trailer.dataBytes = LoadBig32(&body[ChunkLengthOffset]);
        return trailer;
    case gvsp::MultiPart: {
        using Field = gvsp::PartTrailer;
        size = gvsp::MultiPartTrailer::Parts + leader.parts * Field::Size;
        if (body.size() < size)
            return std::nullopt;
        std::uint64_t sum = 0;
        for (std::size_t at = gvsp::MultiPartTrailer::Parts; at < size; at += Field::Size)
            sum += LoadBig48(&body[at + Field::PartLength]);
        trailer.dataBytes = sum;
        return trailer; // chunk lengths are those of a part
    }
    default:
        return trailer;
    }
    if (leader.hasChunks && body.size() >= size + gvsp::ExtendedChunkTrailer::Size) {
        std::uint32_t const length = LoadBig32(&body[size + gvsp::ExtendedChunkTrailer::ChunkDataPayloadLength]);
        if (length != 0)
            trailer.dataBytes = length;
    }
    return trailer;
}

std::optional<std::size_t> AllInEndsSize(Bytes body)
{
    if (body.size() < gvsp::ImageLeader::Size)
        return std::nullopt;
    std::uint16_t const type = LoadBig16(&body[PayloadTypeOffset]);
    if ((type & ~gvsp::ExtendedChunkMode) != gvsp::Image)
        return std::nullopt;
    std::size_t const chunks = (type & gvsp::ExtendedChunkMode) != 0 ? gvsp::ExtendedChunkTrailer::Size : 0;
    std::size_t const size = gvsp::ImageLeader::Size + gvsp::ImageTrailer::Size + chunks;
    return body.size() < size ? std::nullopt : std::optional(size);
}
