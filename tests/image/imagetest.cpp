#include "reference.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>

#include <unistd.h>

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

TEST(FramePool, GivesBackWhatIsBeyondItsBound)
{
    auto const virtualPages = [] {
        std::size_t pages = 0;
        std::ifstream("/proc/self/statm") >> pages;
        return pages;
    };
    std::size_t const before = virtualPages();
    // 3 GB of large blocks, then many small ones.
    std::vector<void *> blocks;
    for (std::size_t i = 0; i < 540; ++i)
        blocks.push_back(TovAllocFrameMemory(i < 40 ? (40u << 20) + i * (2u << 20) : 40000));
    for (void *block : blocks)
        TovFreeFrameMemory(block);
    EXPECT_EQ(TovAllocFrameMemory(~std::size_t(0)), nullptr);
    EXPECT_EQ(TovAllocFrameMemory(std::size_t(1) << 60), nullptr);
    EXPECT_LT(virtualPages(), before + (std::size_t(1) << 30) / std::size_t(sysconf(_SC_PAGESIZE)));
}

TEST(Unpack, PackedFormsByTheLetter)
{
    struct
    {
        char const *type;
        std::vector<std::uint8_t> bytes;
        std::vector<std::uint16_t> samples;
    } const forms[] = {
        {"Mono12Packed", {0x12, 0xC3, 0xAB}, {0x123, 0xABC}},
        {"Mono10Packed", {0x48, 0x23, 0xFF}, {0x123, 0x3FE}},
        {"Mono12p", {0x23, 0xC1, 0xAB}, {0x123, 0xABC}},
        {"Mono10p", {0x23, 0xF9, 0x0F, 0x40, 0x80}, {0x123, 0x3FE, 0x000, 0x201}},
        {"Mono12_WEftPacked", {0x12, 0x3A, 0xBC}, {0x123, 0xABC}},
    };
    for (auto const &form : forms) {
        std::vector<std::uint16_t> samples(form.samples.size());
        TovUnpackLine(TypeOf(form.type), form.bytes.data(), std::uint32_t(samples.size()), samples.data());
        EXPECT_EQ(samples, form.samples) << form.type;
    }
}

} // namespace
