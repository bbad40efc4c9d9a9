#include "tovimage.h"

#include <gtest/gtest.h>

#include <arv.h>

#include <set>
#include <string>

namespace {

struct Known
{
    std::uint32_t row; // one-based
    char const *name;
    std::uint32_t code;
    std::uint32_t pfnc;
};

TEST(PixelTable, KnowsWhatItsClientsRelyOn)
{
    Known const known[] = {
        {1, "Mono8", TV_PIXEL_MONO8, ARV_PIXEL_FORMAT_MONO_8},
        {2, "Mono10", TV_PIXEL_MONO10, ARV_PIXEL_FORMAT_MONO_10},
        {3, "Mono10p", 0x010A2203, 0x010A0046},
        {4, "Mono10Packed", 0x010C1204, ARV_PIXEL_FORMAT_MONO_10_PACKED},
        {6, "Mono12", TV_PIXEL_MONO12, ARV_PIXEL_FORMAT_MONO_12},
        {7, "Mono12p", 0x010C2307, 0x010C0047},
        {8, "Mono12Packed", 0x010C1308, ARV_PIXEL_FORMAT_MONO_12_PACKED},
        {10, "Mono14", 0x0110040A, ARV_PIXEL_FORMAT_MONO_14},
        {11, "Mono16", TV_PIXEL_MONO16, ARV_PIXEL_FORMAT_MONO_16},
        {13, "BayerGR8", 0x0308010D, ARV_PIXEL_FORMAT_BAYER_GR_8},
        {14, "BayerRG8", 0x0308010E, ARV_PIXEL_FORMAT_BAYER_RG_8},
        {15, "BayerGB8", 0x0308010F, ARV_PIXEL_FORMAT_BAYER_GB_8},
        {16, "BayerBG8", 0x03080110, ARV_PIXEL_FORMAT_BAYER_BG_8},
        {20, "BayerBG10", 0x03100214, ARV_PIXEL_FORMAT_BAYER_BG_10},
        {24, "BayerBG12", 0x03100318, ARV_PIXEL_FORMAT_BAYER_BG_12},
        {25, "BayerGR10p", 0x030A2219, ARV_PIXEL_FORMAT_BAYER_GR_10P},
        {26, "BayerGR10Packed", 0x030C121A, ARV_PIXEL_FORMAT_BAYER_GR_10_PACKED},
        {31, "BayerBG10p", 0x030A221F, ARV_PIXEL_FORMAT_BAYER_BG_10P},
        {33, "BayerGR12p", 0x030C2321, ARV_PIXEL_FORMAT_BAYER_GR_12P},
        {40, "BayerBG12Packed", 0x030C1328, ARV_PIXEL_FORMAT_BAYER_BG_12_PACKED},
        {46, "BayerRG16", 0x0310052E, ARV_PIXEL_FORMAT_BAYER_RG_16},
        {49, "TrueSense_BGGR_WBBW_0_8", 0x04080131, 0x01080067},
        {58, "TrueSense_GRBG_WGGW_1_8", 0x0408013A, 0},
        {112, "TrueSense_RGGB_WRRW_3_14", 0x04100470, 0},
        {113, "RGB8", TV_PIXEL_RGB8, ARV_PIXEL_FORMAT_RGB_8_PACKED},
        {114, "BGR8", TV_PIXEL_BGR8, ARV_PIXEL_FORMAT_BGR_8_PACKED},
        {115, "RGBa8", TV_PIXEL_RGBA8, ARV_PIXEL_FORMAT_RGBA_8_PACKED},
        {116, "BGRa8", TV_PIXEL_BGRA8, ARV_PIXEL_FORMAT_BGRA_8_PACKED},
        {117, "RGB10", TV_PIXEL_RGB10, ARV_PIXEL_FORMAT_RGB_10_PACKED},
        {119, "RGB12", TV_PIXEL_RGB12, ARV_PIXEL_FORMAT_RGB_12_PACKED},
        {123, "RGB16", TV_PIXEL_RGB16, 0x02300033},
        {127, "RGB_12_WEFT_Packed", 0x0224337F, 0},
        {129, "YUV422_8", 0x05100181, ARV_PIXEL_FORMAT_YUV_422_YUYV_PACKED},
        {133, "YCbCr422_8", 0x05100185, 0x0210003B},
    };
    for (Known const &row : known) {
        SCOPED_TRACE(row.name);
        TovPixelTypeInfo const *info = TovGetPixelTypeInfoByRow(row.row - 1);
        ASSERT_NE(info, nullptr);
        EXPECT_STREQ(info->name, row.name);
        EXPECT_EQ(info->pixelType, row.code);
        EXPECT_EQ(info->pfnc, row.pfnc);
        EXPECT_EQ(TovGetPixelTypeInfo(row.code), info);
        if (row.pfnc) {
            EXPECT_EQ(TovGetPixelTypeInfoByPfnc(row.pfnc), info);
        }
    }
}

TEST(PixelTable, RowsAreDistinctAndRefuseOtherCodes)
{
    std::set<std::string> names;
    std::set<std::uint32_t> standard;
    for (std::uint32_t row = 0; row < TOV_PIXEL_TYPE_ROWS; ++row) {
        TovPixelTypeInfo const *info = TovGetPixelTypeInfoByRow(row);
        EXPECT_TRUE(names.insert(info->name).second) << info->name;
        EXPECT_EQ(info->pixelType & 255, row + 1);
        EXPECT_TRUE(info->pfnc == 0 || standard.insert(info->pfnc).second) << info->name;
        EXPECT_EQ(info->pfnc != 0, info->pfncName != nullptr);
        EXPECT_EQ(TovGetPixelTypeInfo(info->pixelType ^ 0x100), nullptr);
    }
    for (std::uint32_t code : {0u, 0xFFFFFFFFu, 0x01080100u, 0x01080186u})
        EXPECT_EQ(TovGetPixelTypeInfo(code), nullptr);
    EXPECT_EQ(TovGetPixelTypeInfoByRow(TOV_PIXEL_TYPE_ROWS), nullptr);
    EXPECT_EQ(TovGetPixelTypeInfoByPfnc(0), nullptr);
}

TEST(PixelTable, FiltersStandWhereTheNamesSay)
{
    struct
    {
        std::uint32_t row;
        char const *tile; // four lines of four
    } const tiles[] = {
        {13, "GRGRBGBGGRGRBGBG"},
        {14, "RGRGGBGBRGRGGBGB"},
        {15, "GBGBRGRGGBGBRGRG"},
        {16, "BGBGGRGRBGBGGRGR"},
        {49, "WBWGBWGWWGWRGWRW"},
        {50, "BWGWWGWBGWRWWRWG"},
        {51, "BWGWWGWRGWRWWBWG"},
        {52, "WGWBGWRWWRWGBWGW"},
        {53, "WGWBGWBWWRWGRWGW"},
        {61, "WRWGRWGWWGWBGWBW"},
        {1, nullptr},
    };
    for (auto const &row : tiles) {
        TovPixelTypeInfo const *info = TovGetPixelTypeInfoByRow(row.row - 1);
        for (std::uint32_t i = 0; i < 16; ++i)
            EXPECT_EQ(TovGetFilterColour(info, i % 4 + 8, i / 4 + 4), row.tile ? row.tile[i] : 0) << info->name << i;
    }
}

} // namespace
