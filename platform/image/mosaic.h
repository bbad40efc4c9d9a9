// Colours out of mosaics, some lines at a time.
#pragma once

#include "tovimage.h"

#include <functional>

namespace TovPixels {

// Takes one finished line: three samples a pixel, red first or blue first.
template<class T>
using ColourLineSink = std::function<void(std::uint32_t y, T const *colours)>;

// Where finished lines of three samples T a pixel may be written at once instead of being handed on.
struct ColourLines
{
    std::uint8_t *first;
    std::uint64_t lineStep;
    unsigned shift; // bits that samples are shifted up
};

// Interpolates the colours of a mosaic and hands line after line on, from the top; of a Bayer mosaic, writes them where
// `direct` says, if given, in any order and, where the picture is large, on OpenCV's threads. With T of 8 bits the
// samples are reduced to eight bits first, with 16 bits they keep their depth. Nothing of a frame's size is
// allocated. Throws std::bad_alloc or cv::Exception.
template<class T>
void Demosaic(TovPixelTypeInfo const &info, _TovImage const &source, bool blueFirst, ColourLines const *direct,
              ColourLineSink<T> const &sink);

} // namespace TovPixels
