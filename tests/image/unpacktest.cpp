#include "reference.h"

#include <gtest/gtest.h>

namespace {

// Any start in a line and any length, over memory that ends with the last pixel.
TEST(Unpack, EverySampleOfEveryTypeAtEveryPlace)
{
    std::vector<std::uint32_t> widths = {64, 100, 255};
    for (std::uint32_t w = 1; w <= 35; ++w)
        widths.push_back(w);
    for (std::uint32_t row = 0; row < TOV_PIXEL_TYPE_ROWS; ++row) {
        TovPixelTypeInfo const &info = *TovGetPixelTypeInfoByRow(row);
        std::uint32_t const each = TovSamplesPerPixel(info.pixelType);
        SCOPED_TRACE(info.name);
        for (std::uint32_t width : widths) {
            Pixels const pixels(info.pixelType, width, 1, 0, width);
            for (std::uint32_t first = 0; first < std::min(width, 9u); ++first) {
                std::uint32_t const count = width - first;
                std::vector<std::uint16_t> deep(count * each + 1, 0xABCD);
                std::vector<std::uint8_t> bytes(count * each + 1, 0xEF);
                ASSERT_TRUE(TovUnpackLine(info.pixelType, pixels.Line(0), count, deep.data(), first));
                ASSERT_TRUE(TovUnpackLine8(info.pixelType, pixels.Line(0), count, bytes.data(), first));
                for (std::size_t i = 0; i < count * each; ++i) {
                    unsigned const expected = pixels.Sample(0, first * each + i);
                    ASSERT_EQ(deep[i], expected) << width << " from " << first << " at " << i;
                    ASSERT_EQ(bytes[i], expected >> (info.bitDepth - 8)) << width << " from " << first << " at " << i;
                }
                ASSERT_EQ(deep.back(), 0xABCD);
                ASSERT_EQ(bytes.back(), 0xEF);
            }
        }
    }
}

TEST(Unpack, PackedFormsByTheLetter)
{
    struct
    {
        std::uint32_t type;
        std::vector<std::uint8_t> bytes;
        std::vector<std::uint16_t> samples;
    } const forms[] = {
        {0x010C1308, {0x12, 0xC3, 0xAB}, {0x123, 0xABC}},
        {0x010C1204, {0x48, 0x23, 0xFF}, {0x123, 0x3FE}},
        {0x010C2307, {0x23, 0xC1, 0xAB}, {0x123, 0xABC}},
        {0x010C3309, {0x12, 0x3A, 0xBC}, {0x123, 0xABC}},
        {0x010A2203, {0x23, 0xF9, 0x0F, 0x40, 0x80}, {0x123, 0x3FE, 0x000, 0x201}},
        {0x010A3205, {0x48, 0xFF, 0xE0, 0x02, 0x01}, {0x123, 0x3FE, 0x000, 0x201}},
    };
    for (auto const &form : forms) {
        std::vector<std::uint16_t> samples(form.samples.size());
        ASSERT_TRUE(TovUnpackLine(form.type, form.bytes.data(), std::uint32_t(samples.size()), samples.data()));
        EXPECT_EQ(samples, form.samples) << TovGetPixelTypeInfo(form.type)->name;
    }
    std::uint16_t untouched = 7;
    EXPECT_FALSE(TovUnpackLine(0, &untouched, 1, &untouched));
    EXPECT_EQ(untouched, 7);
}

} // namespace
