// What is done to a line of samples on the way from one pixel type to another. Colours are three samples a pixel. In
// and out must not overlap.
#pragma once

#include "unpack.h"

namespace TovPixels {

// Grey from colours by ITU-R BT.601.
void GreyOfColours(std::uint8_t const *colours, std::size_t width, bool blueFirst, std::uint8_t *grey);
void GreyOfColours(std::uint16_t const *colours, std::size_t width, bool blueFirst, std::uint16_t *grey);

void ColoursOfGrey(std::uint8_t const *grey, std::size_t width, std::uint8_t *colours);
void ColoursOfGrey(std::uint16_t const *grey, std::size_t width, std::uint16_t *colours);

enum class YuvOrder { YUYV, UYVY, YUVA };

// Takes the samples of a YUV line apart: Y, U and V of every pixel, `width` apart. Pixels that share their chroma get
// the same; where the line ends inside a pair, the missing chroma is the pair's before.
void SplitYuv(std::uint8_t const *samples, std::size_t width, unsigned depth, YuvOrder order, std::uint8_t *channels);
void SplitYuv(std::uint16_t const *samples, std::size_t width, unsigned depth, YuvOrder order, std::uint16_t *channels);

// Colours from YUV by ITU-R BT.601, full range: Y, U and V of the line lie in `channels`, `width` apart.
void ColoursOfYuv(std::uint8_t const *channels, std::size_t width, unsigned depth, bool blueFirst,
                  std::uint8_t *colours);
void ColoursOfYuv(std::uint16_t const *channels, std::size_t width, unsigned depth, bool blueFirst,
                  std::uint16_t *colours);

// Red and blue change places; of four samples per pixel the last stays.
void SwapColours(std::uint8_t const *in, std::size_t width, std::uint8_t *out);
void SwapColours(std::uint16_t const *in, std::size_t width, std::uint16_t *out);
void SwapColoursWithAlpha(std::uint8_t const *in, std::size_t width, std::uint8_t *out);

// Between three and four samples a pixel; the added one is opaque.
void AddAlpha(std::uint8_t const *colours, std::size_t width, std::uint8_t *out);
void DropAlpha(std::uint8_t const *in, std::size_t width, std::uint8_t *colours);

// Moves samples of a depth into another.
void ShiftDepth(Sample16 const *in, std::size_t count, unsigned from, unsigned to, Sample16 *out);

} // namespace TovPixels
