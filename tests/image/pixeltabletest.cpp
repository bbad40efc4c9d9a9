#include "reference.h"

#include <gtest/gtest.h>

#include <array>
#include <set>
#include <sstream>
#include <string>

namespace {

TEST(PixelTable, KnowsTheStandardsCodes)
{
    std::pair<char const *, std::vector<std::uint32_t>> const series[] = {
        {"Bayer**8", {0x01080008, 0x01080009, 0x0108000A, 0x0108000B}},
        {"Bayer**10", {0x0110000C, 0x0110000D, 0x0110000E, 0x0110000F}},
        {"Bayer**12", {0x01100010, 0x01100011, 0x01100012, 0x01100013}},
        {"Bayer**14", {0x01100109, 0x0110010A, 0x0110010B, 0x0110010C}},
        {"Bayer**16", {0x0110002E, 0x0110002F, 0x01100030, 0x01100031}},
        {"Bayer**10p", {0x010A0056, 0x010A0058, 0x010A0054, 0x010A0052}},
        {"Bayer**12p", {0x010C0057, 0x010C0059, 0x010C0055, 0x010C0053}},
        {"Bayer**10Packed", {0x010C0026, 0x010C0027, 0x010C0028, 0x010C0029}},
        {"Bayer**12Packed", {0x010C002A, 0x010C002B, 0x010C002C, 0x010C002D}},
        {"RGB8 BGR8 RGBa8 BGRa8", {0x02180014, 0x02180015, 0x02200016, 0x02200017}},
        {"RGB10 BGR10 RGB12 BGR12", {0x02300018, 0x02300019, 0x0230001A, 0x0230001B}},
        {"RGB14 BGR14 RGB16 BGR16", {0x0230005E, 0x0230004A, 0x02300033, 0x0230004B}},
        {"Mono8 Mono12Packed YCbCr422_8", {0x01080001, 0x010C0006, 0x0210003B}},
        {"TrueSense_BGGR_WBBW_0_8 TrueSense_GBRG_WGGW_0_8", {0x01080067, 0x0108006E}},
        {"TrueSense_GRBG_WGGW_0_8 TrueSense_RGGB_WRRW_0_10", {0x01080075, 0x0110007D}},
        {"TrueSense_RGGB_WRRW_3_14 RGB_10_WEFT_Packed", {0, 0}},
        {"YUV422_8_UYVY YUV422_8 Mono10 Mono16", {0x0210001F, 0x02100032, 0x01100003, 0x01100007}},
    };
    for (auto const &[text, codes] : series) {
        std::istringstream words(text);
        for (std::size_t i = 0; i < codes.size(); ++i) {
            std::string name = text;
            if (name[5] == '*')
                name.replace(5, 2, std::array{"GR", "RG", "GB", "BG"}[i]);
            else
                words >> name;
            EXPECT_EQ(InfoOf(name).pfnc, codes[i]) << name;
        }
    }
    for (std::uint32_t code : {0u, 0xFFFFFFFFu, 0x01080100u, 0x01080186u})
        EXPECT_EQ(TovGetPixelTypeInfo(code), nullptr);
    EXPECT_EQ(TovGetPixelTypeInfoByRow(TOV_PIXEL_TYPE_ROWS), nullptr);
    EXPECT_EQ(TovGetPixelTypeInfoByPfnc(0), nullptr);
}

TEST(PixelTable, RowsAreWhatTheirNamesSay)
{
    std::set<std::string> names;
    for (std::uint32_t row = 0; row < TOV_PIXEL_TYPE_ROWS; ++row) {
        TovPixelTypeInfo const *info = TovGetPixelTypeInfoByRow(row);
        std::string const name = info->name;
        SCOPED_TRACE(name);
        auto const has = [&](char const *part) {
            return name.find(part) != std::string::npos;
        };
        EXPECT_TRUE(names.insert(name).second);
        EXPECT_TRUE(info->pfnc == 0 || TovGetPixelTypeInfoByPfnc(info->pfnc) == info);
        EXPECT_EQ(TovGetPixelTypeInfo(info->pixelType), info);
        EXPECT_EQ(TovGetPixelTypeInfo(info->pixelType ^ 0x100), nullptr);

        bool const bayer = has("Bayer"), mosaic = has("TrueSense"), yuv = name[0] == 'Y';
        std::size_t const depth =
            mosaic ? name.rfind('_') + 1 : name.find_first_of("0123456789", yuv ? name.find('_') : 0);
        EXPECT_EQ(info->bitDepth, std::stoul(name.substr(depth)));
        EXPECT_EQ(info->packing, has("WEft") || has("WEFT")       ? TOV_PACKED_WEFT
                                 : has("Packed") || has("PACKED") ? TOV_PACKED_GEV
                                 : name.back() == 'p'             ? TOV_PACKED_P
                                                                  : TOV_UNPACKED);
        EXPECT_EQ(info->family, bayer         ? TOV_FAMILY_BAYER
                                : mosaic      ? TOV_FAMILY_TRUESENSE
                                : yuv         ? TOV_FAMILY_YUV
                                : has("Mono") ? TOV_FAMILY_MONO
                                              : TOV_FAMILY_RGB);
        EXPECT_EQ(info->channels, has("a8") || has("444") ? 4 : yuv || info->family == TOV_FAMILY_RGB ? 3 : 1);
        if (bayer) {
            char const first = name[5], second = name[6], other = first == 'G' ? second : first;
            char const opposite = other == 'R' ? 'B' : 'R';
            char const tile[] = {first, second, first == 'G' ? opposite : 'G', first == 'G' ? 'G' : opposite};
            for (std::uint32_t i = 0; i < 4; ++i)
                EXPECT_EQ(TovGetFilterColour(info, i % 2 + 6, i / 2 + 4), tile[i]);
        }
    }
}

TEST(PixelTable, WhitePixelsStandWhereTheNamesSay)
{
    std::pair<std::uint32_t, char const *> const tiles[] = {
        {49, "WBWGBWGWWGWRGWRW"}, {50, "BWGWWGWBGWRWWRWG"}, {51, "BWGWWGWRGWRWWBWG"}, {52, "WGWBGWRWWRWGBWGW"},
        {53, "WGWBGWBWWRWGRWGW"}, {57, "WGWRGWRWWBWGBWGW"}, {61, "WRWGRWGWWGWBGWBW"},
    };
    for (auto const &[row, tile] : tiles)
        for (std::uint32_t i = 0; i < 64; ++i) // at each depth
            EXPECT_EQ(TovGetFilterColour(TovGetPixelTypeInfoByRow(row - 1 + i / 16 * 16), i % 4 + 8, i / 4 % 4 + 4),
                      tile[i % 16])
                << row << " " << i / 16;
}

} // namespace
