// TIFF files of unpacked mono and RGB pictures, their samples as they are.
#pragma once

#include "framememory.h"
#include "outfile.h"
#include "tovimage.h"

class TiffWriter
{
public:
    // What a file takes besides its pixels, at most.
    static constexpr std::uint64_t Overhead = 2 * OutFile::Page;

    // A whole file into an empty one. An errno value, or -1 for a picture that the format cannot hold.
    int Write(OutFile &file, _TovImage const &image);

private:
    FrameMemory<std::uint8_t> m_packed; // the lines without gaps, where the image has gaps
};
