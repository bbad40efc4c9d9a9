#include "reference.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

TEST(Image, CreatedImageIsZeroedAlignedAndRoomy)
{
    for (std::uint32_t row = 0; row < TOV_PIXEL_TYPE_ROWS; ++row) {
        TovPixelTypeInfo const *info = TovGetPixelTypeInfoByRow(row);
        // A used block must not show through.
        std::size_t const bytes = TovFrameMemorySize(info->pixelType, {333, 201});
        void *used = TovAllocFrameMemory(bytes);
        std::fill_n(static_cast<char *>(used), bytes, 'x');
        TovFreeFrameMemory(used);

        _TovImage *image = nullptr;
        ASSERT_EQ(TovCreateImage(&image, {333, 201}, info->pixelType), TOV_IMAGE_OK);
        EXPECT_EQ(image->lineStep, (333u * (image->pixelType >> 16 & 255) + 7) / 8) << info->name;
        EXPECT_EQ(image->imageSize, image->lineStep * 201);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(image->imageData) % 64, 0u);
        // Sixteen-bit reads of a line behind the last one.
        auto const end = image->imageData + image->imageSize + 2 * 333;
        EXPECT_EQ(std::find_if(image->imageData, end, [](std::uint8_t b) { return b != 0; }), end) << info->name;
        EXPECT_EQ(TovReleaseImage(&image), TOV_IMAGE_OK);
    }
}

TEST(Image, RefusesWhatItCannotDescribe)
{
    _TovImage *image = nullptr;
    for (TovImageSize const size : {TovImageSize{0, 1}, {1, 0}, {65536, 65536}, {~0u, ~0u}, {0x80000000, 1}}) {
        EXPECT_EQ(TovCreateImageHeader(&image, size, TV_PIXEL_MONO16), TOV_IMAGE_ERR_ARGUMENT);
        EXPECT_EQ(TovCreateImage(&image, size, TV_PIXEL_MONO16), TOV_IMAGE_ERR_ARGUMENT);
    }
    for (std::uint64_t step : {9ull, 0x2000000000000000ull})
        EXPECT_EQ(TovCreateImageHeader(&image, {10, 10}, TV_PIXEL_MONO8, step), TOV_IMAGE_ERR_ARGUMENT);
    EXPECT_EQ(TovCreateImage(&image, {1, 1}, 0x01080102), TOV_IMAGE_ERR_ARGUMENT);
    EXPECT_EQ(TovReleaseImage(&image), TOV_IMAGE_OK);
    _TovImage foreign{};
    image = &foreign;
    EXPECT_EQ(TovReleaseImage(&image), TOV_IMAGE_ERR_ARGUMENT);
}

TEST(Image, CopyTakesPixelsAndFieldsAcrossLineSteps)
{
    std::uint32_t const type = TypeOf("Mono10p"); // lines end inside a byte: 7 bytes
    Pixels const source(type, 5, 3, 5, 1), copy(type, 5, 3, 2, 2), other(type, 6, 3, 0, 3);
    source.Image()->timestamp = 77;
    source.Image()->frameID = 5;
    std::uint8_t const behind = copy.Line(0)[7];
    ASSERT_EQ(TovCopyImage(copy.Image(), source.Image()), TOV_IMAGE_OK);
    EXPECT_EQ(copy.Image()->timestamp, 77u);
    EXPECT_EQ(copy.Image()->frameID, 5u);
    EXPECT_EQ(copy.Image()->lineStep, 9u);
    for (std::size_t y = 0; y < 3; ++y)
        EXPECT_TRUE(std::equal(source.Line(y), source.Line(y) + 7, copy.Line(y)));
    EXPECT_EQ(copy.Line(0)[7], behind);
    EXPECT_EQ(TovCopyImage(other.Image(), source.Image()), TOV_IMAGE_ERR_SHAPE);
    source.Image()->imageData = nullptr;
    EXPECT_EQ(TovCopyImage(copy.Image(), source.Image()), TOV_IMAGE_ERR_ARGUMENT);
}

} // namespace
