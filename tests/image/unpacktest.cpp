#include "reference.h"

#include <gtest/gtest.h>

#include <numeric>

namespace {

// Any start in a line and any length, over memory that ends with the last pixel.
TEST(Unpack, EverySampleOfEveryTypeAtEveryPlace)
{
    std::vector<std::uint32_t> widths(35);
    std::iota(widths.begin(), widths.end(), 1);
    widths.insert(widths.end(), {64, 100, 255});
    for (std::uint32_t row = 0; row < TOV_PIXEL_TYPE_ROWS; ++row) {
        TovPixelTypeInfo const &info = *TovGetPixelTypeInfoByRow(row);
        std::uint32_t const each = TovSamplesPerPixel(info.pixelType);
        for (std::uint32_t width : widths) {
            Pixels const pixels(info.pixelType, width, 1, 0, width);
            for (std::uint32_t first = 0; first < std::min(width, 9u); ++first) {
                std::uint32_t const count = width - first;
                std::vector<std::uint16_t> deep(count * each + 1, 0xABCD), expected(deep);
                std::vector<std::uint8_t> bytes(count * each + 1, 0xEF), expectedBytes(bytes);
                ASSERT_TRUE(TovUnpackLine(info.pixelType, pixels.Line(0), count, deep.data(), first));
                ASSERT_TRUE(TovUnpackLine8(info.pixelType, pixels.Line(0), count, bytes.data(), first));
                for (std::size_t i = 0; i < count * each; ++i) {
                    expected[i] = std::uint16_t(pixels.Sample(0, first * each + i));
                    expectedBytes[i] = std::uint8_t(expected[i] >> (info.bitDepth - 8));
                }
                ASSERT_EQ(deep, expected) << info.name << " " << width << " from " << first;
                ASSERT_EQ(bytes, expectedBytes) << info.name << " " << width << " from " << first;
            }
        }
    }
    std::uint16_t untouched = 7;
    EXPECT_FALSE(TovUnpackLine(0, &untouched, 1, &untouched));
    EXPECT_EQ(untouched, 7);
}

// The reference as well.
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
