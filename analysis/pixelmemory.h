// Headers of OpenCV over the pixels of an image, which end where the image ends.
#pragma once

#include "tovimage.h"

#include <opencv2/core.hpp>

#include <cstddef>
#include <cstdint>

// The pixels of an image, from the first byte of the first line to the last byte of the last one.
struct PixelMemory
{
    std::uint8_t *data = nullptr;
    std::uint64_t size = 0;
};

PixelMemory GetPixelMemory(_TovImage const &image);

// The low half alone counts.
inline std::size_t GetLineStep(_TovImage const &image)
{
    return static_cast<std::uint32_t>(image.lineStep);
}

// A header of `rows` by `columns` pixels of an OpenCV type, `offset` bytes after the first pixel. It wraps the memory
// itself, or a copy when it would reach out of the image: what lies outside reads as zeros. Throws cv::Exception for
// what OpenCV cannot wrap: no memory, an odd step of 16-bit pixels, a step shorter than a line.
cv::Mat WrapPixels(PixelMemory const &memory, std::int64_t offset, std::int64_t rows, std::int64_t columns, int type,
                   std::size_t step = cv::Mat::AUTO_STEP);

// One pixel of 1 or 2 bytes. The display thread may be writing it: a relaxed read, like its stores.
std::int32_t LoadPixel(std::uint8_t *pixel, std::size_t bytes);
