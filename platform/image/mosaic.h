// Colours out of mosaics, some lines at a time.
#pragma once

#include "tovimage.h"

#include <functional>

namespace TovPixels {

// Takes one finished line: three samples a pixel, red first or blue first.
template<class T>
using ColourLineSink = std::function<void(std::uint32_t y, T const *colours)>;

// Where finished lines may be written at once instead of being handed on: three bytes a pixel in the asked order.
struct ColourLines
{
    std::uint8_t *first;
    std::uint64_t lineStep;
};

// Interpolates the colours of a mosaic, line after line from the top, and hands them on; those that `direct` takes,
// where given, are not handed on. With T of 8 bits the samples are
// reduced to eight bits first, with 16 bits they keep their depth. The work goes on in strips that stay in the cache.
// Throws std::bad_alloc or cv::Exception.
template<class T>
void Demosaic(TovPixelTypeInfo const &info, _TovImage const &source, bool blueFirst, ColourLines const *direct,
              ColourLineSink<T> const &sink);

} // namespace TovPixels
