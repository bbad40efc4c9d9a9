// Plain, slow readings of pixels to compare the library with.
#pragma once

#include "tovimage.h"

#include <cstdint>
#include <random>
#include <string_view>
#include <vector>

inline TovPixelTypeInfo const &InfoOf(std::string_view name)
{
    std::uint32_t row = 0;
    while (TovGetPixelTypeInfoByRow(row)->name != name)
        ++row;
    return *TovGetPixelTypeInfoByRow(row);
}

inline std::uint32_t TypeOf(std::string_view name)
{
    return InfoOf(name).pixelType;
}

// Where bit `b` of sample `i` of a line lies, counted from the lowest bit of the first byte.
inline std::size_t BitOf(TovPixelTypeInfo const &info, std::size_t i, unsigned b)
{
    unsigned const depth = info.bitDepth, low = depth - 8;
    std::size_t const first = i * depth;
    switch (info.packing) {
    case TOV_UNPACKED:
        return i * (depth == 8 ? 8 : 16) + b;
    case TOV_PACKED_GEV: // the lower bits in the middle one of three bytes, the upper ones before or behind it
        return i / 2 * 24 + (b < low ? 8 + i % 2 * 4 + b : i % 2 * 16 + b - low);
    case TOV_PACKED_P:
        return first + b;
    default: // counted from the top of the first byte
        return (first + depth - 1 - b) / 8 * 8 + 7 - (first + depth - 1 - b) % 8;
    }
}

// Sample `i` of a line, bit by bit; of unpacked ones those above the depth, too.
inline unsigned ReferenceSample(TovPixelTypeInfo const &info, std::uint8_t const *line, std::size_t i)
{
    unsigned value = 0;
    for (unsigned b = info.packing == TOV_UNPACKED && info.bitDepth > 8 ? 16 : info.bitDepth; b-- > 0;) {
        std::size_t const bit = BitOf(info, i, b);
        value = value << 1 | (line[bit / 8] >> bit % 8 & 1);
    }
    return value;
}

// Pixel memory of exactly the bytes that an image may touch: the last line ends with its last pixel. A margin of odd
// size puts every line at any address.
class Pixels
{
public:
    Pixels(std::uint32_t type, std::uint32_t width, std::uint32_t height, std::uint32_t padding, unsigned seed)
        : m_info(*TovGetPixelTypeInfo(type)),
          m_lineBytes(TovLineBytes(type, width)),
          m_memory((m_lineBytes + padding) * (height - 1) + m_lineBytes)
    {
        m_memory.shrink_to_fit();
        std::mt19937 random(seed);
        for (std::uint8_t &byte : m_memory)
            byte = std::uint8_t(random());
        TovCreateImageHeader(&m_image, {width, height}, type, m_lineBytes + padding, m_memory.data());
        // Samples in two bytes stay within their depth.
        for (std::uint32_t y = 0; y < height && m_info.packing == TOV_UNPACKED && m_info.bitDepth > 8; ++y)
            for (std::size_t i = 1; i < m_lineBytes; i += 2)
                Line(y)[i] &= 0xFF >> (16 - m_info.bitDepth);
    }
    ~Pixels()
    {
        TovReleaseImageHeader(&m_image);
    }
    Pixels(Pixels const &) = delete;
    Pixels &operator=(Pixels const &) = delete;

    TovPixelTypeInfo const &Info() const
    {
        return m_info;
    }
    _TovImage *Image() const
    {
        return m_image;
    }
    std::uint8_t *Line(std::size_t y) const
    {
        return m_image->imageData + y * m_image->lineStep;
    }
    unsigned Sample(std::size_t y, std::size_t i) const
    {
        return ReferenceSample(m_info, Line(y), i);
    }
    void SetSample(std::size_t y, std::size_t i, unsigned value) const
    {
        for (unsigned b = 0; b < m_info.bitDepth; ++b) {
            std::size_t const bit = BitOf(m_info, i, b);
            std::uint8_t &byte = Line(y)[bit / 8];
            byte = std::uint8_t((byte & ~(1 << bit % 8)) | (value >> b & 1) << bit % 8);
        }
    }
    std::vector<std::uint8_t> &Memory()
    {
        return m_memory;
    }

private:
    TovPixelTypeInfo const &m_info;
    std::size_t m_lineBytes;
    std::vector<std::uint8_t> m_memory;
    _TovImage *m_image = nullptr;
};
