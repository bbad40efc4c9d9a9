// Colours out of mosaics, some lines at a time.
#pragma once

#include "tovimage.h"

#include <functional>

namespace TovPixels {

// Takes one finished line: three samples a pixel, red first or blue first.
template<class T>
using ColourLineSink = std::function<void(std::uint32_t y, T const *colours)>;

// Interpolates the colours of a mosaic and hands on line after line, from the top. With T of 8 bits the samples are
// reduced to eight bits first, with 16 bits they keep their depth. The work goes on in strips that stay in the cache.
// Throws std::bad_alloc or cv::Exception.
template<class T>
void Demosaic(TovPixelTypeInfo const &info, _TovImage const &source, bool blueFirst, ColourLineSink<T> const &sink);

} // namespace TovPixels
