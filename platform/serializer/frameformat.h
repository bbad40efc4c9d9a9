// The bytes of tvi and tvm files; docs/formats.md is their description. Numbers are little endian.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

struct _TovImage;

namespace FrameFormat {

// A frame's record: its header, the pixels from `headerBytes` on, and nothing or zeros up to `recordBytes`.
struct FrameHeader
{
    static constexpr std::size_t Size = 96;

    std::uint32_t headerBytes = 0; // from the record's beginning to its pixels
    std::uint32_t pixelType = 0;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint32_t bitDepth = 0;
    std::uint32_t pixelCheck = 0; // CRC-32 of the pixels
    std::uint64_t lineBytes = 0;  // a line's; the next follows at once
    std::uint64_t pixelBytes = 0;
    std::uint64_t recordBytes = 0;
    std::uint64_t number = 0; // of the record in its file, from 0 on
    std::uint64_t timestamp = 0;
    std::uint64_t frameId = 0;
};

struct MovieHeader
{
    static constexpr std::size_t Size = 64;

    std::uint32_t headerBytes = 0; // where the first record begins
    std::uint32_t alignment = 0;   // every record begins at a multiple of it
    std::uint32_t rate = 0;        // frames per second: rate / scale
    std::uint32_t scale = 0;
    std::uint64_t frameCount = 0;  // 0 until the movie was closed
    std::uint64_t indexOffset = 0; // 0 until the movie was closed
};

// Describes an image, with the check of its pixels; the record's own numbers are left to the caller.
FrameHeader Describe(_TovImage const &image);

enum class Kind { Image, MovieFrame }; // of a record: the one of a tvi, one of a tvm

std::array<std::uint8_t, FrameHeader::Size> Encode(FrameHeader const &header, Kind kind);
std::array<std::uint8_t, MovieHeader::Size> Encode(MovieHeader const &header);
// The index record: the offset of each frame's record.
std::vector<std::uint8_t> EncodeIndex(std::vector<std::uint64_t> const &offsets);

// False for anything but a whole and valid header of a known version; `bytes` has Size of them.
bool Decode(std::uint8_t const *bytes, Kind kind, FrameHeader &header);
bool Decode(std::uint8_t const *bytes, MovieHeader &header);
constexpr std::size_t IndexHeaderSize = 32;
bool DecodeIndex(std::uint8_t const *bytes, std::size_t size, std::vector<std::uint64_t> &offsets);
// Bytes that an index of so many frames takes.
constexpr std::uint64_t IndexBytes(std::uint64_t frames)
{
    return IndexHeaderSize + 8 * frames;
}

} // namespace FrameFormat
