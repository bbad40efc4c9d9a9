// Images: making, copying and releasing them.
#include "tovimage.h"

#include <atomic>
#include <cstring>
#include <limits>
#include <new>

namespace {

// The private header word: whose image this is, and whether the pixels are its own.
constexpr std::uint64_t Magic = 0x544F56494D470000; // low 16 bits: flags
constexpr std::uint64_t OwnsPixels = 1;

bool IsOurs(_TovImage const *image)
{
    return (image->header & ~std::uint64_t(0xFFFF)) == Magic;
}

template<typename T>
void StoreRelaxed(T &variable, T value)
{
    std::atomic_ref<T>(variable).store(value, std::memory_order_relaxed);
}

// As fast as memcpy, and a concurrent reader sees old or new words, without a data race.
void CopyRelaxed(std::uint8_t *destination, std::uint8_t const *source, std::size_t size)
{
    constexpr std::size_t Word = sizeof(std::uint64_t);
    std::size_t i = 0;
    for (; i < size && reinterpret_cast<std::uintptr_t>(destination + i) % Word != 0; ++i)
        StoreRelaxed(destination[i], source[i]);
    for (; i + Word <= size; i += Word) {
        std::uint64_t word;
        std::memcpy(&word, source + i, Word);
        StoreRelaxed(*reinterpret_cast<std::uint64_t *>(destination + i), word);
    }
    for (; i < size; ++i)
        StoreRelaxed(destination[i], source[i]);
}

// Fills all but the pixel pointer; fails for an unknown type, no pixels, or more bytes than imageSize can hold.
unsigned long FillHeader(_TovImage *image, TovImageSize size, std::uint32_t pixelType, std::uint64_t lineStep)
{
    TovPixelTypeInfo const *info = TovGetPixelTypeInfo(pixelType);
    if (!info || size.width == 0 || size.height == 0)
        return TOV_IMAGE_ERR_ARGUMENT;
    std::uint64_t const lineBytes = TovLineBytes(pixelType, size.width);
    if (lineStep == 0)
        lineStep = lineBytes;
    if (lineStep < lineBytes || lineStep > std::numeric_limits<std::uint32_t>::max() / size.height)
        return TOV_IMAGE_ERR_ARGUMENT;

    *image = {};
    image->header = Magic;
    image->pixelType = pixelType;
    image->bitDepth = info->bitDepth;
    image->formatClass = info->formatClass;
    image->bitsPerPixel = info->bitsPerPixel;
    image->width = size.width;
    image->height = size.height;
    image->imageSize = std::uint32_t(lineStep * size.height);
    image->lineStep = lineStep;
    return TOV_IMAGE_OK;
}

unsigned long Release(_TovImage **image)
{
    if (!image || !*image)
        return TOV_IMAGE_OK;
    if (!IsOurs(*image))
        return TOV_IMAGE_ERR_ARGUMENT;
    if ((*image)->header & OwnsPixels)
        TovFreeFrameMemory((*image)->imageData);
    (*image)->header = 0;
    delete *image;
    return TOV_IMAGE_OK;
}

} // namespace

unsigned long TovCreateImageHeader(_TovImage **image, TovImageSize size, std::uint32_t pixelType,
                                   std::uint64_t lineStep, void *data)
{
    if (!image)
        return TOV_IMAGE_ERR_ARGUMENT;
    _TovImage filled;
    if (unsigned long const status = FillHeader(&filled, size, pixelType, lineStep))
        return status;
    _TovImage *made = new (std::nothrow) _TovImage(filled);
    if (!made)
        return TOV_IMAGE_ERR_MEMORY;
    made->imageData = static_cast<std::uint8_t *>(data);
    *image = made;
    return TOV_IMAGE_OK;
}

unsigned long TovCreateImage(_TovImage **image, TovImageSize size, std::uint32_t pixelType)
{
    if (!image)
        return TOV_IMAGE_ERR_ARGUMENT;
    _TovImage *made = nullptr;
    if (unsigned long const status = TovCreateImageHeader(&made, size, pixelType))
        return status;
    std::size_t const bytes = TovFrameMemorySize(pixelType, size);
    void *pixels = TovAllocFrameMemory(bytes);
    if (!pixels) {
        Release(&made);
        return TOV_IMAGE_ERR_MEMORY;
    }
    std::memset(pixels, 0, bytes);
    made->imageData = static_cast<std::uint8_t *>(pixels);
    made->header |= OwnsPixels;
    *image = made;
    return TOV_IMAGE_OK;
}

std::size_t TovFrameMemorySize(std::uint32_t pixelType, TovImageSize size)
{
    std::uint64_t const lineBytes = TovLineBytes(pixelType, size.width);
    if (size.height == 0 || lineBytes > std::numeric_limits<std::uint32_t>::max() / size.height)
        return 0;
    // The room behind the pixels: readers of deep images take two bytes a pixel, packed or not.
    return lineBytes == 0 ? 0 : lineBytes * size.height + std::size_t(size.width) * 2;
}

unsigned long TovCopyImage(_TovImage *destination, _TovImage const *source)
{
    if (!destination || !source || !destination->imageData || !source->imageData)
        return TOV_IMAGE_ERR_ARGUMENT;
    if (destination->width != source->width || destination->height != source->height ||
        destination->pixelType != source->pixelType)
        return TOV_IMAGE_ERR_SHAPE;
    std::uint64_t const lineBytes = TovLineBytes(source->pixelType, source->width);
    if (lineBytes == 0 || destination->lineStep < lineBytes || source->lineStep < lineBytes)
        return TOV_IMAGE_ERR_ARGUMENT;

    if (destination != source && destination->imageData != source->imageData) {
        if (destination->lineStep == lineBytes && source->lineStep == lineBytes) {
            CopyRelaxed(destination->imageData, source->imageData, lineBytes * source->height);
        } else {
            // Line by line: the bytes between the destination's lines may belong to another picture.
            for (std::uint64_t y = 0; y < source->height; ++y)
                CopyRelaxed(destination->imageData + y * destination->lineStep,
                            source->imageData + y * source->lineStep, lineBytes);
        }
    }
    StoreRelaxed(destination->bitDepth, source->bitDepth);
    StoreRelaxed(destination->formatClass, source->formatClass);
    StoreRelaxed(destination->bitsPerPixel, source->bitsPerPixel);
    StoreRelaxed(destination->timestamp, source->timestamp);
    StoreRelaxed(destination->frameID, source->frameID);
    return TOV_IMAGE_OK;
}

unsigned long TovReleaseImage(_TovImage **image)
{
    return Release(image);
}

unsigned long TovReleaseImageHeader(_TovImage **image)
{
    return Release(image);
}
