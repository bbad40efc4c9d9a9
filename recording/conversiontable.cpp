// What a recording converts the pixels of a frame to.
#include "imagewriter.h"

#include "tovimage.h"

namespace {

constexpr std::uint32_t None = 0;
constexpr std::uint32_t FamilyShift = 24;

} // namespace

// Mono, then the mosaics in the order GR, RG, GB, BG: 8, 10, 12 bits, 10p, 12p, 10Packed, 12Packed.
std::uint32_t const ImageWriter::s_inputPixTypeMap[PixTypeCount] = {
    0x1080101, 0x1100202, 0x10A2203, 0x10C1204, 0x1100306, 0x10C2307, 0x10C1308, //
    0x308010D, 0x308010E, 0x308010F, 0x3080110,                                  //
    0x3100211, 0x3100212, 0x3100213, 0x3100214,                                  //
    0x3100315, 0x3100316, 0x3100317, 0x3100318,                                  //
    0x30A2219, 0x30A221B, 0x30A221D, 0x30A221F,                                  //
    0x30C2321, 0x30C2323, 0x30C2325, 0x30C2327,                                  //
    0x30C121A, 0x30C121C, 0x30C121E, 0x30C1220,                                  //
    0x30C1322, 0x30C1324, 0x30C1326, 0x30C1328,
};

// Columns: raw, tvi, bmp, jpg, png, tif, avi, tvm.
#define AS_IT_IS {None, None, None, None, None, None, None, None}
#define MONO(tif) {None, None, TV_PIXEL_MONO8, TV_PIXEL_MONO8, TV_PIXEL_MONO8, tif, TV_PIXEL_MONO8, None}
#define COLOUR(tif) {None, None, TV_PIXEL_BGR8, TV_PIXEL_RGB8, TV_PIXEL_RGB8, tif, TV_PIXEL_BGR8, None}
#define MOSAICS(tif) COLOUR(tif), COLOUR(tif), COLOUR(tif), COLOUR(tif)

std::uint32_t const ImageWriter::s_convertionPixTypeMap[PixTypeCount][FileFormatCount] = {
    AS_IT_IS,
    MONO(None),
    MONO(TV_PIXEL_MONO10),
    MONO(TV_PIXEL_MONO10),
    MONO(None),
    MONO(TV_PIXEL_MONO12),
    MONO(TV_PIXEL_MONO12),
    MOSAICS(TV_PIXEL_RGB8),
    MOSAICS(TV_PIXEL_RGB10),
    MOSAICS(TV_PIXEL_RGB12),
    MOSAICS(TV_PIXEL_RGB10),
    MOSAICS(TV_PIXEL_RGB12),
    MOSAICS(TV_PIXEL_RGB10),
    MOSAICS(TV_PIXEL_RGB12),
};

std::uint32_t ImageWriter::GetOutputPixType(std::uint32_t type, FileFormat format) const
{
    auto const row = m_inputPixTypes.find(type);
    if (row == m_inputPixTypes.end() || static_cast<std::uint64_t>(format) >= FileFormatCount)
        return type;
    std::uint32_t const output = s_convertionPixTypeMap[row->second][format];
    bool const eightBits = ((type >> 16) & 0xFF) == 8;
    if (format != FormatTif || !TovLoadBound(m_normalizedTiff) || eightBits)
        return output;
    return type >> FamilyShift == TOV_FAMILY_BAYER ? TV_PIXEL_RGB16 : TV_PIXEL_MONO16;
}
