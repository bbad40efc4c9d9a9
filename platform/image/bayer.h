// Colours out of one line of a Bayer mosaic.
#pragma once

#include "unpack.h"

namespace TovPixels {

// How the filters of a line lie, and the order of the colours asked for.
struct BayerLine
{
    bool greenFirst; // the first pixel is green
    bool ownFirst;   // the line's other colour comes first in a pixel; else it is third
};

// Interpolates bilinearly, rounding halves up; at the left and right edge the pattern goes on as it lies inside.
// `above` and `below` are the neighbouring lines; all three hold `width` samples. Three samples a pixel come out,
// shifted up by `shift` bits. Input and output may have any alignment and must not overlap.
void InterpolateBayer(std::uint8_t const *above, std::uint8_t const *at, std::uint8_t const *below, std::size_t width,
                      BayerLine line, std::uint8_t *colours);
void InterpolateBayer(Sample16 const *above, Sample16 const *at, Sample16 const *below, std::size_t width,
                      BayerLine line, unsigned shift, Sample16 *colours);

} // namespace TovPixels
