#include "pixelreadout.h"

#include "colormodel.h"

#include "tovimage.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>

PixelValues ReadPixel(_TovImage const &image, int x, int y)
{
    // The low 32 bits of the line step, as the analysis of an image takes it.
    std::uint8_t *const line =
        image.imageData + static_cast<std::uint64_t>(y) * static_cast<std::uint32_t>(image.lineStep);
    auto const column = static_cast<std::size_t>(x);
    auto const byte = [line](std::size_t at) -> int {
        return std::atomic_ref<std::uint8_t>(line[at]).load(std::memory_order_relaxed);
    };
    auto const word = [byte](std::size_t at) {
        return byte(at) | byte(at + 1) << 8;
    };
    switch (image.pixelType) {
    case TV_PIXEL_RGB8:
    case TV_PIXEL_BGR8:
    case TV_PIXEL_RGBA8:
    case TV_PIXEL_BGRA8: {
        std::size_t const pixel = column * (image.bitsPerPixel / 8);
        ColorModelDescription const *const model = GetColorModel(image.pixelType);
        if (model && std::strstr(model->name, "RGB"))
            return {byte(pixel), byte(pixel + 1), byte(pixel + 2)};
        return {byte(pixel + 2), byte(pixel + 1), byte(pixel)};
    }
    case TV_PIXEL_MONO8:
        return {-1, byte(column), -1};
    default:
        break;
    }
    if (image.bitsPerPixel == 16)
        return {-1, word(2 * column), -1};
    if (image.bitsPerPixel == 48) {
        std::size_t const pixel = 6 * column;
        return {word(pixel), word(pixel + 2), word(pixel + 4)};
    }
    return {};
}
