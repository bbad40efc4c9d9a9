// A deflate encoder for filtered camera pictures: noise, which only its distribution can shorten, and flat parts. It
// looks for repeated bytes and for nothing else.
//
// Ours and no library's, because a series of PNGs has to keep up with a camera: zlib and libdeflate take several times
// as long for files of the same size, even when told to search as little (png_bench, docs/performance.md).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

class HuffmanDeflate
{
public:
    static constexpr unsigned Literals = 286; // bytes, the end of a block, and lengths of repetitions
    struct Code
    {
        std::uint16_t bits; // in the order in which they are sent
        std::uint16_t length;
    };

    // Bytes that a block's stream may take at most, with what is left over of the one before.
    static constexpr std::size_t Bound(std::size_t size)
    {
        return size + size / 2 + 1024;
    }

    // Forgets the stream before.
    void Begin();
    // One block of the stream to `out`; returns the bytes written. With `last` the stream is complete.
    std::size_t Block(std::uint8_t const *data, std::size_t size, bool last, std::uint8_t *out);

private:
    struct Run
    {
        std::uint32_t begin; // bytes from here on repeat the one before
        std::uint32_t length;
    };
    struct BitWriter;
    using Counts = std::array<std::uint32_t, Literals>;
    using Codes = std::array<Code, Literals>;
    void FindRuns(std::uint8_t const *data, std::size_t size);
    Counts CountSymbols(std::uint8_t const *data) const;
    static void WriteHead(std::array<std::uint8_t, Literals + 1> const &lengths, bool last, BitWriter &writer);
    void WriteSymbols(std::uint8_t const *data, Codes const &codes, BitWriter &writer) const;

    std::vector<Run> m_runs;
    std::uint64_t m_bits = 0; // not yet written, the lowest first
    unsigned m_bitCount = 0;  // below 8 between blocks
};
