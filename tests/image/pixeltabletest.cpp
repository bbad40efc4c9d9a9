#include "reference.h"

#include <gtest/gtest.h>

#include <arv.h>

#include <set>
#include <string>

namespace {

TEST(PixelTable, KnowsTheStandardsCodes)
{
    struct
    {
        std::uint32_t row; // one-based
        char const *name;
        std::uint32_t code, pfnc;
    } const known[] = {
        {1, "Mono8", TV_PIXEL_MONO8, ARV_PIXEL_FORMAT_MONO_8},
        {8, "Mono12Packed", 0x010C1308, ARV_PIXEL_FORMAT_MONO_12_PACKED},
        {14, "BayerRG8", 0x0308010E, ARV_PIXEL_FORMAT_BAYER_RG_8},
        {25, "BayerGR10p", 0x030A2219, ARV_PIXEL_FORMAT_BAYER_GR_10P},
        {40, "BayerBG12Packed", 0x030C1328, ARV_PIXEL_FORMAT_BAYER_BG_12_PACKED},
        {49, "TrueSense_BGGR_WBBW_0_8", 0x04080131, 0x01080067},
        {112, "TrueSense_RGGB_WRRW_3_14", 0x04100470, 0},
        {116, "BGRa8", TV_PIXEL_BGRA8, ARV_PIXEL_FORMAT_BGRA_8_PACKED},
        {129, "YUV422_8", 0x05100181, ARV_PIXEL_FORMAT_YUV_422_YUYV_PACKED},
        {133, "YCbCr422_8", 0x05100185, 0x0210003B},
    };
    for (auto const &row : known) {
        TovPixelTypeInfo const *info = TovGetPixelTypeInfoByRow(row.row - 1);
        EXPECT_STREQ(info->name, row.name);
        EXPECT_EQ(info->pixelType, row.code) << row.name;
        EXPECT_EQ(info->pfnc, row.pfnc) << row.name;
    }
    std::set<std::string> names;
    for (std::uint32_t row = 0; row < TOV_PIXEL_TYPE_ROWS; ++row) {
        TovPixelTypeInfo const *info = TovGetPixelTypeInfoByRow(row);
        EXPECT_TRUE(names.insert(info->name).second) << info->name;
        EXPECT_TRUE(info->pfnc == 0 || TovGetPixelTypeInfoByPfnc(info->pfnc) == info) << info->name;
        EXPECT_EQ(TovGetPixelTypeInfo(info->pixelType), info);
        EXPECT_EQ(TovGetPixelTypeInfo(info->pixelType ^ 0x100), nullptr);
    }
    for (std::uint32_t code : {0u, 0xFFFFFFFFu, 0x01080100u, 0x01080186u})
        EXPECT_EQ(TovGetPixelTypeInfo(code), nullptr);
    EXPECT_EQ(TovGetPixelTypeInfoByRow(TOV_PIXEL_TYPE_ROWS), nullptr);
    EXPECT_EQ(TovGetPixelTypeInfoByPfnc(0), nullptr);
}

TEST(PixelTable, FiltersStandWhereTheNamesSay)
{
    std::pair<std::uint32_t, char const *> const tiles[] = {
        {13, "GRGRBGBGGRGRBGBG"}, {14, "RGRGGBGBRGRGGBGB"}, {15, "GBGBRGRGGBGBRGRG"}, {16, "BGBGGRGRBGBGGRGR"},
        {49, "WBWGBWGWWGWRGWRW"}, {50, "BWGWWGWBGWRWWRWG"}, {51, "BWGWWGWRGWRWWBWG"}, {52, "WGWBGWRWWRWGBWGW"},
        {53, "WGWBGWBWWRWGRWGW"}, {61, "WRWGRWGWWGWBGWBW"},
    };
    for (auto const &[row, tile] : tiles)
        for (std::uint32_t i = 0; i < 16; ++i)
            EXPECT_EQ(TovGetFilterColour(TovGetPixelTypeInfoByRow(row - 1), i % 4 + 8, i / 4 + 4), tile[i]) << row;
}

} // namespace
