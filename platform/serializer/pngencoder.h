// PNG files of grey and RGB pictures with 8 or 16 bits, fast enough to keep a disk busy.
#pragma once

#include "huffmandeflate.h"
#include "outfile.h"
#include "tovimage.h"

#include <vector>

class PngEncoder
{
public:
    // Whether the picture can be written: Mono8, Mono16, RGB8 and RGB16 can, up to the format's 2^31 - 1 pixels a side.
    static bool Takes(_TovImage const &image);
    // Appends a whole PNG to `file`. The upper `significantBits` of a sample carry the picture. Returns 0 or an errno
    // value.
    int Write(OutFile &file, _TovImage const &image, unsigned significantBits);

    enum class Filter : std::uint8_t { None, Sub, Up, Average }; // with the format's numbers

private:
    struct Shape
    {
        explicit Shape(_TovImage const &image);
        std::uint8_t const *Line(std::uint32_t y) const
        {
            return image.imageData + y * lineStep;
        }

        _TovImage const &image;
        bool wide; // 16 bits
        std::size_t channels;
        std::size_t pixelBytes;
        std::size_t lineBytes;
        std::uint64_t lineStep;
        std::uint32_t blockLines; // that share a filter and a deflate block
    };
    std::size_t MakeHead(Shape const &shape, unsigned significantBits);
    Filter ChooseFilter(Shape const &shape, std::uint32_t first, std::uint32_t lines);
    std::size_t FilterLines(Shape const &shape, std::uint32_t first, std::uint32_t lines, std::uint8_t const *&above);

    std::vector<std::uint8_t> m_lines;    // two lines, the bytes of 16-bit samples in PNG's order
    std::vector<std::uint8_t> m_filtered; // a block's lines behind their filters' numbers
    std::vector<std::uint8_t> m_out;
    HuffmanDeflate m_deflate;
};
