#include "pixelmemory.h"

#include <algorithm>
#include <atomic>
#include <climits>

namespace {

std::uint8_t LoadByte(std::uint8_t *byte)
{
    return std::atomic_ref<std::uint8_t>(*byte).load(std::memory_order_relaxed);
}

} // namespace

PixelMemory GetPixelMemory(_TovImage const &image)
{
    if (!image.imageData || image.height == 0)
        return {};
    // The last line may have no padding.
    std::uint64_t const step = GetLineStep(image);
    std::uint64_t const packed = TovLineBytes(image.pixelType, image.width);
    std::uint64_t const lastLine = packed == 0 ? step : std::min(step, packed);
    return {image.imageData, step * (image.height - 1) + lastLine};
}

cv::Mat WrapPixels(PixelMemory const &memory, std::int64_t offset, std::int64_t rows, std::int64_t columns, int type,
                   std::size_t step)
{
    if (rows < 0 || columns < 0 || rows > INT_MAX || columns > INT_MAX)
        CV_Error(cv::Error::StsBadSize, "no such image");
    auto const begin = static_cast<std::uint64_t>(offset);
    bool const starts = offset >= 0 && begin <= memory.size;
    cv::Mat const header(static_cast<int>(rows), static_cast<int>(columns), type,
                         starts ? memory.data + begin : memory.data, step);
    if (header.empty())
        return header;
    std::uint64_t const lineBytes = header.elemSize() * header.cols;
    std::uint64_t const lineStep = header.step;
    if (starts && lineStep * (header.rows - 1) + lineBytes <= memory.size - begin)
        return header;

    cv::Mat copy = cv::Mat::zeros(header.size(), type);
    auto const end = static_cast<std::int64_t>(memory.size);
    for (int y = 0; y < copy.rows; ++y) {
        std::int64_t const line = offset + static_cast<std::int64_t>(lineStep) * y;
        std::int64_t const from = std::max<std::int64_t>(0, -line);
        std::int64_t const to = std::min(static_cast<std::int64_t>(lineBytes), end - line);
        std::uint8_t *const target = copy.ptr(y);
        for (std::int64_t i = from; i < to; ++i)
            target[i] = LoadByte(memory.data + line + i);
    }
    return copy;
}

std::int32_t LoadPixel(std::uint8_t *pixel, std::size_t bytes)
{
    return bytes == 1 ? LoadByte(pixel) : LoadByte(pixel) | LoadByte(pixel + 1) << 8;
}
