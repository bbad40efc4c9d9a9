// PNG files of grey and RGB pictures with 8 or 16 bits, as fast as the disk wants them.
#pragma once

#include "huffmandeflate.h"
#include "outfile.h"
#include "tovimage.h"

#include <vector>

class PngEncoder
{
public:
    // Whether the picture can be told: Mono8, Mono16, RGB8 and RGB16 can, up to the format's 2^31 - 1 pixels a side.
    static bool Takes(_TovImage const &image);
    // A whole file behind what `file` holds. `significantBits` of a sample carry the picture, the upper ones. Errno
    // value.
    int Write(OutFile &file, _TovImage const &image, unsigned significantBits);

private:
    std::vector<std::uint8_t> m_lines;    // two lines, the bytes of 16-bit samples in PNG's order
    std::vector<std::uint8_t> m_filtered; // a block's lines behind their filters' numbers
    std::vector<std::uint8_t> m_out;
    HuffmanDeflate m_deflate;
};
