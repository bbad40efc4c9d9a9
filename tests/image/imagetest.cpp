#include "tovimage.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace {

TEST(Image, CreatedImageIsZeroedAlignedAndRoomy)
{
    for (std::uint32_t row = 0; row < TOV_PIXEL_TYPE_ROWS; ++row) {
        TovPixelTypeInfo const *info = TovGetPixelTypeInfoByRow(row);
        SCOPED_TRACE(info->name);
        // A used block must not show through.
        std::size_t const bytes = TovFrameMemorySize(info->pixelType, {333, 201});
        void *used = TovAllocFrameMemory(bytes);
        std::fill_n(static_cast<char *>(used), bytes, 'x');
        TovFreeFrameMemory(used);

        _TovImage *image = nullptr;
        ASSERT_EQ(TovCreateImage(&image, {333, 201}, info->pixelType), TOV_IMAGE_OK);
        EXPECT_EQ(image->lineStep, (333u * info->bitsPerPixel + 7) / 8);
        EXPECT_EQ(image->imageSize, image->lineStep * 201);
        EXPECT_EQ(image->bitDepth, info->bitDepth);
        EXPECT_EQ(image->bitsPerPixel, image->pixelType >> 16 & 255);
        EXPECT_EQ(image->formatClass, info->formatClass);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(image->imageData) % 64, 0u);
        // Sixteen-bit reads of a line behind the last one.
        auto const end = image->imageData + image->imageSize + 2 * 333;
        EXPECT_EQ(std::find_if(image->imageData, end, [](std::uint8_t b) { return b != 0; }), end);
        EXPECT_EQ(TovReleaseImage(&image), TOV_IMAGE_OK);
    }
}

TEST(Image, RefusesWhatItCannotDescribe)
{
    struct
    {
        TovImageSize size;
        std::uint32_t type;
        std::uint64_t step;
    } const refused[] = {
        {{0, 1}, TV_PIXEL_MONO8, 0},
        {{1, 0}, TV_PIXEL_MONO8, 0},
        {{1, 1}, 0x01080102, 0},
        {{65536, 65536}, TV_PIXEL_MONO8, 0},
        {{0xFFFFFFFF, 0xFFFFFFFF}, TV_PIXEL_RGB16, 0},
        {{0x80000000, 1}, TV_PIXEL_MONO16, 0},
        {{10, 10}, TV_PIXEL_MONO8, 9},
        {{10, 10}, TV_PIXEL_MONO8, 0x2000000000000000},
    };
    for (auto const &c : refused) {
        _TovImage *image = nullptr;
        EXPECT_EQ(TovCreateImageHeader(&image, c.size, c.type, c.step), TOV_IMAGE_ERR_ARGUMENT);
        if (c.step == 0) {
            EXPECT_EQ(TovCreateImage(&image, c.size, c.type), TOV_IMAGE_ERR_ARGUMENT);
            EXPECT_EQ(TovFrameMemorySize(c.type, c.size), 0u);
        }
        EXPECT_EQ(image, nullptr);
    }
    EXPECT_EQ(TovCreateImage(nullptr, {1, 1}, TV_PIXEL_MONO8), TOV_IMAGE_ERR_ARGUMENT);
    _TovImage *none = nullptr;
    EXPECT_EQ(TovReleaseImage(&none), TOV_IMAGE_OK);
    EXPECT_EQ(TovReleaseImageHeader(nullptr), TOV_IMAGE_OK);
    _TovImage foreign{};
    _TovImage *pointer = &foreign;
    EXPECT_EQ(TovReleaseImage(&pointer), TOV_IMAGE_ERR_ARGUMENT);
}

TEST(Image, CopyTakesPixelsAndFieldsAcrossLineSteps)
{
    constexpr std::uint32_t WIDTH = 5, HEIGHT = 3, TYPE = 0x010A2203; // lines end inside a byte: 7 bytes
    std::vector<std::uint8_t> from(2 * 12 + 7), to(2 * 9 + 7, 0xEE);
    for (std::size_t i = 0; i < from.size(); ++i)
        from[i] = std::uint8_t(i);
    _TovImage *source = nullptr, *copy = nullptr, *plain = nullptr;
    ASSERT_EQ(TovCreateImageHeader(&source, {WIDTH, HEIGHT}, TYPE, 12, from.data()), TOV_IMAGE_OK);
    ASSERT_EQ(TovCreateImageHeader(&copy, {WIDTH, HEIGHT}, TYPE, 9, to.data()), TOV_IMAGE_OK);
    ASSERT_EQ(TovCreateImage(&plain, {WIDTH, HEIGHT}, TYPE), TOV_IMAGE_OK);
    source->timestamp = 77;
    source->frameID = 5;
    for (_TovImage *destination : {copy, plain}) {
        ASSERT_EQ(TovCopyImage(destination, source), TOV_IMAGE_OK);
        EXPECT_EQ(destination->timestamp, 77u);
        EXPECT_EQ(destination->frameID, 5u);
        for (std::size_t y = 0; y < HEIGHT; ++y)
            EXPECT_TRUE(
                std::equal(&from[y * 12], &from[y * 12] + 7, destination->imageData + y * destination->lineStep));
    }
    EXPECT_EQ(copy->lineStep, 9u);
    EXPECT_EQ(to[7], 0xEE);

    _TovImage *other = nullptr;
    ASSERT_EQ(TovCreateImage(&other, {WIDTH + 1, HEIGHT}, TYPE), TOV_IMAGE_OK);
    EXPECT_EQ(TovCopyImage(other, source), TOV_IMAGE_ERR_SHAPE);
    source->imageData = nullptr;
    EXPECT_EQ(TovCopyImage(copy, source), TOV_IMAGE_ERR_ARGUMENT);
    for (_TovImage *image : {source, copy, plain, other})
        EXPECT_EQ(TovReleaseImageHeader(&image), TOV_IMAGE_OK);
}

} // namespace
