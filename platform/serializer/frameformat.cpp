#include "frameformat.h"

#include "pixellayout.h"

#include <libdeflate.h>

#include <cstring>

namespace FrameFormat {

namespace {

constexpr std::uint32_t Version = 1;
constexpr std::size_t MagicSize = 8;
constexpr char ImageMagic[] = "TOVIMAGE", FrameMagic[] = "TOVFRAME", MovieMagic[] = "TOVMOVIE",
               IndexMagic[] = "TOVINDEX";

// Fields one after another; the same list of them writes and reads.
class Writer
{
public:
    explicit Writer(std::uint8_t *bytes) : m_at(bytes)
    {
    }
    template<class T>
    bool operator()(T const &value)
    {
        for (std::size_t i = 0; i < sizeof value; ++i)
            *m_at++ = std::uint8_t(value >> (8 * i));
        return true;
    }

private:
    std::uint8_t *m_at;
};

class Reader
{
public:
    explicit Reader(std::uint8_t const *bytes) : m_at(bytes)
    {
    }
    template<class T>
    bool operator()(T &value)
    {
        value = 0;
        for (std::size_t i = 0; i < sizeof value; ++i)
            value |= T(T(*m_at++) << (8 * i));
        return true;
    }

private:
    std::uint8_t const *m_at;
};

template<class Transfer, class Header>
void Fields(Transfer &transfer, Header &header)
    requires requires { header.pixelType; }
{
    transfer(header.headerBytes), transfer(header.pixelType), transfer(header.width), transfer(header.height);
    transfer(header.bitDepth), transfer(header.pixelCheck), transfer(header.lineBytes), transfer(header.pixelBytes);
    transfer(header.recordBytes), transfer(header.number), transfer(header.timestamp), transfer(header.frameId);
}

template<class Transfer, class Header>
void Fields(Transfer &transfer, Header &header)
    requires requires { header.indexOffset; }
{
    transfer(header.headerBytes), transfer(header.alignment), transfer(header.rate), transfer(header.scale);
    transfer(header.frameCount), transfer(header.indexOffset);
}

// Every header: its magic, the version, the fields, zeros, and in the last four bytes the check of everything before.
template<class Header>
std::array<std::uint8_t, Header::Size> EncodeHeader(Header const &header, char const *magic)
{
    std::array<std::uint8_t, Header::Size> bytes{};
    std::memcpy(bytes.data(), magic, MagicSize);
    Writer write(bytes.data() + MagicSize);
    write(Version);
    Fields(write, header);
    Writer(bytes.data() + bytes.size() - 4)(libdeflate_crc32(0, bytes.data(), bytes.size() - 4));
    return bytes;
}

template<class Header>
bool DecodeHeader(std::uint8_t const *bytes, Header &header, char const *magic)
{
    std::uint32_t check, version;
    Reader(bytes + Header::Size - 4)(check);
    Reader read(bytes + MagicSize);
    read(version);
    if (std::memcmp(bytes, magic, MagicSize) != 0 || version != Version ||
        check != libdeflate_crc32(0, bytes, Header::Size - 4))
        return false;
    Fields(read, header);
    return true;
}

} // namespace

FrameHeader Describe(_TovImage const &image)
{
    FrameHeader header;
    header.pixelType = image.pixelType;
    header.width = image.width;
    header.height = image.height;
    header.bitDepth = image.bitDepth;
    header.lineBytes = LineBytes(image);
    header.pixelBytes = header.lineBytes * image.height;
    header.timestamp = image.timestamp;
    header.frameId = image.frameID;
    if (IsPacked(image)) {
        header.pixelCheck = libdeflate_crc32(0, image.imageData, std::size_t(header.pixelBytes));
    } else {
        for (std::uint32_t y = 0; y < image.height; ++y)
            header.pixelCheck = libdeflate_crc32(header.pixelCheck, image.imageData + y * image.lineStep,
                                                 std::size_t(header.lineBytes));
    }
    return header;
}

std::array<std::uint8_t, FrameHeader::Size> Encode(FrameHeader const &header, Kind kind)
{
    return EncodeHeader(header, kind == Kind::Image ? ImageMagic : FrameMagic);
}

std::array<std::uint8_t, MovieHeader::Size> Encode(MovieHeader const &header)
{
    return EncodeHeader(header, MovieMagic);
}

bool Decode(std::uint8_t const *bytes, Kind kind, FrameHeader &header)
{
    return DecodeHeader(bytes, header, kind == Kind::Image ? ImageMagic : FrameMagic) &&
           header.headerBytes >= FrameHeader::Size && header.height > 0 &&
           header.lineBytes <= ~std::uint64_t(0) / header.height &&
           header.pixelBytes == header.lineBytes * header.height && header.pixelBytes < std::uint64_t(1) << 40 &&
           header.recordBytes >= header.headerBytes + header.pixelBytes && header.recordBytes < std::uint64_t(1) << 41;
}

bool Decode(std::uint8_t const *bytes, MovieHeader &header)
{
    return DecodeHeader(bytes, header, MovieMagic) && header.headerBytes >= MovieHeader::Size && header.alignment > 0 &&
           header.headerBytes % header.alignment == 0;
}

std::vector<std::uint8_t> EncodeIndex(std::vector<std::uint64_t> const &offsets)
{
    std::vector<std::uint8_t> bytes(IndexBytes(offsets.size()));
    std::memcpy(bytes.data(), IndexMagic, MagicSize);
    Writer write(bytes.data() + MagicSize);
    write(Version);
    write(std::uint32_t(0)); // the check, below
    write(std::uint64_t(offsets.size()));
    write(std::uint64_t(0));
    for (std::uint64_t const offset : offsets)
        write(offset);
    Writer(bytes.data() + 12)(libdeflate_crc32(0, bytes.data() + 16, bytes.size() - 16));
    return bytes;
}

bool DecodeIndex(std::uint8_t const *bytes, std::size_t size, std::vector<std::uint64_t> &offsets)
{
    if (size < IndexHeaderSize || std::memcmp(bytes, IndexMagic, MagicSize) != 0)
        return false;
    std::uint32_t version, check;
    std::uint64_t count;
    Reader read(bytes + MagicSize);
    read(version), read(check), read(count);
    if (version != Version || count > (size - IndexHeaderSize) / 8 ||
        check != libdeflate_crc32(0, bytes + 16, std::size_t(IndexBytes(count)) - 16))
        return false;
    offsets.resize(count);
    Reader list(bytes + IndexHeaderSize);
    for (std::uint64_t &offset : offsets)
        list(offset);
    return true;
}

} // namespace FrameFormat
