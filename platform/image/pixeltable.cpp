// The pixel format table: 133 rows, numbered as the low byte of the codes, one-based.
#include "tovimage.h"

#include <array>
#include <cstdio>
#include <iterator>
#include <utility>

namespace {

constexpr std::uint8_t Mono = TOV_FAMILY_MONO;
constexpr std::uint8_t RGB = TOV_FAMILY_RGB;
constexpr std::uint8_t Bayer = TOV_FAMILY_BAYER;
constexpr std::uint8_t YUV = TOV_FAMILY_YUV;
constexpr TovPacking Bytes = TOV_UNPACKED;
constexpr TovPacking GEV = TOV_PACKED_GEV;
constexpr TovPacking LSB = TOV_PACKED_P;
constexpr TovPacking WEFT = TOV_PACKED_WEFT;

// What of a row cannot be derived; MakeRow works out the rest.
struct RowSeed
{
    char const *name;
    std::uint8_t family;
    std::uint8_t depth;
    TovPacking packing;
    TovBayerPhase bayer;
    std::uint8_t channels;
    std::uint8_t samples; // samples that one pixel takes; two where pairs of pixels share their chroma
    std::uint32_t pfnc;   // 0: the standard has no such layout. Where it has, its name is ours
};

constexpr TovBayerPhase NO = TOV_BAYER_NONE;
constexpr TovBayerPhase GR = TOV_BAYER_GR;
constexpr TovBayerPhase RG = TOV_BAYER_RG;
constexpr TovBayerPhase GB = TOV_BAYER_GB;
constexpr TovBayerPhase BG = TOV_BAYER_BG;

constexpr RowSeed s_beforeTrueSense[] = {
    {"Mono8", Mono, 8, Bytes, NO, 1, 1, 0x01080001},       {"Mono10", Mono, 10, Bytes, NO, 1, 1, 0x01100003},
    {"Mono10p", Mono, 10, LSB, NO, 1, 1, 0x010A0046},      {"Mono10Packed", Mono, 10, GEV, NO, 1, 1, 0x010C0004},
    {"Mono10_WEftPacked", Mono, 10, WEFT, NO, 1, 1, 0},    {"Mono12", Mono, 12, Bytes, NO, 1, 1, 0x01100005},
    {"Mono12p", Mono, 12, LSB, NO, 1, 1, 0x010C0047},      {"Mono12Packed", Mono, 12, GEV, NO, 1, 1, 0x010C0006},
    {"Mono12_WEftPacked", Mono, 12, WEFT, NO, 1, 1, 0},    {"Mono14", Mono, 14, Bytes, NO, 1, 1, 0x01100025},
    {"Mono16", Mono, 16, Bytes, NO, 1, 1, 0x01100007},     {"Mono8_WEftPacked", Mono, 8, WEFT, NO, 1, 1, 0},
    {"BayerGR8", Bayer, 8, Bytes, GR, 1, 1, 0x01080008},   {"BayerRG8", Bayer, 8, Bytes, RG, 1, 1, 0x01080009},
    {"BayerGB8", Bayer, 8, Bytes, GB, 1, 1, 0x0108000A},   {"BayerBG8", Bayer, 8, Bytes, BG, 1, 1, 0x0108000B},
    {"BayerGR10", Bayer, 10, Bytes, GR, 1, 1, 0x0110000C}, {"BayerRG10", Bayer, 10, Bytes, RG, 1, 1, 0x0110000D},
    {"BayerGB10", Bayer, 10, Bytes, GB, 1, 1, 0x0110000E}, {"BayerBG10", Bayer, 10, Bytes, BG, 1, 1, 0x0110000F},
    {"BayerGR12", Bayer, 12, Bytes, GR, 1, 1, 0x01100010}, {"BayerRG12", Bayer, 12, Bytes, RG, 1, 1, 0x01100011},
    {"BayerGB12", Bayer, 12, Bytes, GB, 1, 1, 0x01100012}, {"BayerBG12", Bayer, 12, Bytes, BG, 1, 1, 0x01100013},
    {"BayerGR10p", Bayer, 10, LSB, GR, 1, 1, 0x010A0056},  {"BayerGR10Packed", Bayer, 10, GEV, GR, 1, 1, 0x010C0026},
    {"BayerRG10p", Bayer, 10, LSB, RG, 1, 1, 0x010A0058},  {"BayerRG10Packed", Bayer, 10, GEV, RG, 1, 1, 0x010C0027},
    {"BayerGB10p", Bayer, 10, LSB, GB, 1, 1, 0x010A0054},  {"BayerGB10Packed", Bayer, 10, GEV, GB, 1, 1, 0x010C0028},
    {"BayerBG10p", Bayer, 10, LSB, BG, 1, 1, 0x010A0052},  {"BayerBG10Packed", Bayer, 10, GEV, BG, 1, 1, 0x010C0029},
    {"BayerGR12p", Bayer, 12, LSB, GR, 1, 1, 0x010C0057},  {"BayerGR12Packed", Bayer, 12, GEV, GR, 1, 1, 0x010C002A},
    {"BayerRG12p", Bayer, 12, LSB, RG, 1, 1, 0x010C0059},  {"BayerRG12Packed", Bayer, 12, GEV, RG, 1, 1, 0x010C002B},
    {"BayerGB12p", Bayer, 12, LSB, GB, 1, 1, 0x010C0055},  {"BayerGB12Packed", Bayer, 12, GEV, GB, 1, 1, 0x010C002C},
    {"BayerBG12p", Bayer, 12, LSB, BG, 1, 1, 0x010C0053},  {"BayerBG12Packed", Bayer, 12, GEV, BG, 1, 1, 0x010C002D},
    {"BayerGR14", Bayer, 14, Bytes, GR, 1, 1, 0x01100109}, {"BayerRG14", Bayer, 14, Bytes, RG, 1, 1, 0x0110010A},
    {"BayerGB14", Bayer, 14, Bytes, GB, 1, 1, 0x0110010B}, {"BayerBG14", Bayer, 14, Bytes, BG, 1, 1, 0x0110010C},
    {"BayerGR16", Bayer, 16, Bytes, GR, 1, 1, 0x0110002E}, {"BayerRG16", Bayer, 16, Bytes, RG, 1, 1, 0x0110002F},
    {"BayerGB16", Bayer, 16, Bytes, GB, 1, 1, 0x01100030}, {"BayerBG16", Bayer, 16, Bytes, BG, 1, 1, 0x01100031},
};

constexpr RowSeed s_afterTrueSense[] = {
    {"RGB8", RGB, 8, Bytes, NO, 3, 3, 0x02180014},       {"BGR8", RGB, 8, Bytes, NO, 3, 3, 0x02180015},
    {"RGBa8", RGB, 8, Bytes, NO, 4, 4, 0x02200016},      {"BGRa8", RGB, 8, Bytes, NO, 4, 4, 0x02200017},
    {"RGB10", RGB, 10, Bytes, NO, 3, 3, 0x02300018},     {"BGR10", RGB, 10, Bytes, NO, 3, 3, 0x02300019},
    {"RGB12", RGB, 12, Bytes, NO, 3, 3, 0x0230001A},     {"BGR12", RGB, 12, Bytes, NO, 3, 3, 0x0230001B},
    {"RGB14", RGB, 14, Bytes, NO, 3, 3, 0x0230005E},     {"BGR14", RGB, 14, Bytes, NO, 3, 3, 0x0230004A},
    {"RGB16", RGB, 16, Bytes, NO, 3, 3, 0x02300033},     {"BGR16", RGB, 16, Bytes, NO, 3, 3, 0x0230004B},
    {"RGB_8_WEFT_Packed", RGB, 8, WEFT, NO, 3, 3, 0},    {"RGB_10_WEFT_Packed", RGB, 10, WEFT, NO, 3, 3, 0},
    {"RGB_12_WEFT_Packed", RGB, 12, WEFT, NO, 3, 3, 0},  {"YUV422_8_UYVY", YUV, 8, Bytes, NO, 3, 2, 0x0210001F},
    {"YUV422_8", YUV, 8, Bytes, NO, 3, 2, 0x02100032},   {"YUV422_10", YUV, 10, Bytes, NO, 3, 2, 0},
    {"YUV422_10_PACKED", YUV, 10, GEV, NO, 3, 2, 0},     {"YUV444_8", YUV, 8, Bytes, NO, 4, 4, 0},
    {"YCbCr422_8", YUV, 8, Bytes, NO, 3, 2, 0x0210003B},
};

// The mosaics with white pixels, by the colours of their four 2 x 2 blocks and by the standard's name and 8-bit code.
struct TrueSenseMosaic
{
    char const *blocks;
    char colour; // of the first block
    char const *pfncName;
    std::uint8_t pfncID; // of the 8-bit form; the deeper unpacked ones follow at 1, 3 and 5
};
constexpr TrueSenseMosaic s_trueSense[] = {
    {"BGGR", 'B', "SCF1WBWG", 0x67},
    {"GBRG", 'G', "SCF1WGWB", 0x6E},
    {"GRBG", 'G', "SCF1WGWR", 0x75},
    {"RGGB", 'R', "SCF1WRWG", 0x7C},
};
constexpr std::uint8_t s_trueSenseDepths[] = {8, 10, 12, 14};
constexpr std::size_t TruesenseRows = std::size(s_trueSenseDepths) * std::size(s_trueSense) * 4;
static_assert(std::size(s_beforeTrueSense) + TruesenseRows + std::size(s_afterTrueSense) == TOV_PIXEL_TYPE_ROWS);

std::uint32_t FormatClass(RowSeed const &seed)
{
    if (seed.family == TOV_FAMILY_RGB)
        return TOV_CLASS_RGB;
    if (seed.family == TOV_FAMILY_YUV)
        return TOV_CLASS_YUV;
    if (seed.depth == 8)
        return TOV_CLASS_8BIT;
    if (seed.packing != TOV_UNPACKED)
        return TOV_CLASS_PACKED;
    return seed.family == TOV_FAMILY_MONO ? TOV_CLASS_MONO_UNPACKED : TOV_CLASS_BAYER_UNPACKED;
}

TovPixelTypeInfo MakeRow(RowSeed const &seed, std::uint32_t row)
{
    unsigned sampleBits = seed.depth;
    if (seed.packing == TOV_UNPACKED)
        sampleBits = seed.depth == 8 ? 8 : 16;
    else if (seed.packing == TOV_PACKED_GEV)
        sampleBits = 12;
    unsigned const bits = sampleBits * seed.samples;
    unsigned const depthCode = seed.depth == 8 ? 1 : seed.depth / 2 - 3;

    TovPixelTypeInfo info{};
    info.pixelType =
        std::uint32_t(seed.family) << 24 | bits << 16 | std::uint32_t(seed.packing) << 12 | depthCode << 8 | (row + 1);
    info.pfnc = seed.pfnc;
    info.name = seed.name;
    info.pfncName = seed.pfnc ? seed.name : nullptr;
    info.family = seed.family;
    info.bitsPerPixel = std::uint8_t(bits);
    info.bitDepth = seed.depth;
    info.channels = seed.channels;
    info.packing = seed.packing;
    info.bayer = seed.bayer;
    info.formatClass = FormatClass(seed);
    return info;
}

class PixelTable
{
public:
    PixelTable()
    {
        std::uint32_t row = 0;
        for (RowSeed const &seed : s_beforeTrueSense) {
            m_rows[row] = MakeRow(seed, row);
            ++row;
        }
        std::size_t text = 0;
        for (std::size_t depth = 0; depth < std::size(s_trueSenseDepths); ++depth) {
            for (std::size_t mosaic = 0; mosaic < std::size(s_trueSense); ++mosaic) {
                for (unsigned phase = 0; phase < 4; ++phase, ++text, ++row)
                    m_rows[row] = MakeTrueSenseRow(row, text, depth, mosaic, phase);
            }
        }
        for (RowSeed const &seed : s_afterTrueSense) {
            m_rows[row] = MakeRow(seed, row);
            ++row;
        }
    }

    std::array<TovPixelTypeInfo, TOV_PIXEL_TYPE_ROWS> const &Rows() const
    {
        return m_rows;
    }

private:
    TovPixelTypeInfo MakeTrueSenseRow(std::uint32_t row, std::size_t text, std::size_t depthIndex, std::size_t mosaic,
                                      unsigned phase)
    {
        TrueSenseMosaic const &form = s_trueSense[mosaic];
        std::uint8_t const depth = s_trueSenseDepths[depthIndex];
        char const c = form.colour;
        std::snprintf(m_names[text].data(), m_names[text].size(), "TrueSense_%s_W%c%cW_%u_%u", form.blocks, c, c, phase,
                      unsigned(depth));
        TovPixelTypeInfo info = MakeRow({m_names[text].data(), TOV_FAMILY_TRUESENSE, depth, Bytes, NO, 1, 1, 0}, row);
        info.mosaic = std::uint8_t(mosaic);
        info.phase = std::uint8_t(phase);
        // The standard names only the mosaics that begin at the corner of a tile.
        if (phase == 0) {
            std::uint32_t const id = form.pfncID + (depthIndex ? 2 * std::uint32_t(depthIndex) - 1 : 0);
            std::snprintf(m_pfncNames[text].data(), m_pfncNames[text].size(), "%s%u", form.pfncName, unsigned(depth));
            info.pfnc = 0x01000000 | std::uint32_t(info.bitsPerPixel) << 16 | id;
            info.pfncName = m_pfncNames[text].data();
        }
        return info;
    }

    std::array<TovPixelTypeInfo, TOV_PIXEL_TYPE_ROWS> m_rows;
    std::array<std::array<char, 32>, TruesenseRows> m_names{};
    std::array<std::array<char, 16>, TruesenseRows> m_pfncNames{};
};

PixelTable const &Table()
{
    static PixelTable const table;
    return table;
}

} // namespace

TovPixelTypeInfo const *TovGetPixelTypeInfoByRow(std::uint32_t row)
{
    return row < TOV_PIXEL_TYPE_ROWS ? &Table().Rows()[row] : nullptr;
}

TovPixelTypeInfo const *TovGetPixelTypeInfo(std::uint32_t pixelType)
{
    TovPixelTypeInfo const *info = TovGetPixelTypeInfoByRow((pixelType & 255) - 1);
    return info && info->pixelType == pixelType ? info : nullptr;
}

TovPixelTypeInfo const *TovGetPixelTypeInfoByPfnc(std::uint32_t pfnc)
{
    if (pfnc == 0)
        return nullptr;
    for (TovPixelTypeInfo const &info : Table().Rows()) {
        if (info.pfnc == pfnc)
            return &info;
    }
    return nullptr;
}

char TovGetFilterColour(TovPixelTypeInfo const *info, std::uint32_t x, std::uint32_t y)
{
    if (!info)
        return 0;
    if (info->family == TOV_FAMILY_BAYER) {
        static constexpr char const *tiles[] = {"", "GRBG", "RGGB", "GBRG", "BGGR"};
        return tiles[info->bayer][(y & 1) * 2 + (x & 1)];
    }
    if (info->family == TOV_FAMILY_TRUESENSE) {
        x += info->phase & 1;
        y += info->phase >> 1;
        if (((x + y) & 1) == 0)
            return 'W';
        return s_trueSense[info->mosaic].blocks[(y & 2) + (x >> 1 & 1)];
    }
    return 0;
}

std::uint64_t TovLineBytes(std::uint32_t pixelType, std::uint32_t width)
{
    TovPixelTypeInfo const *info = TovGetPixelTypeInfo(pixelType);
    return info ? (std::uint64_t(width) * info->bitsPerPixel + 7) / 8 : 0;
}
