#include "colormodel.h"

#include "tovimage.h"

#include <cstring>
#include <string>
#include <vector>

static_assert(ColorModelRows == TOV_PIXEL_TYPE_ROWS);

int GetIndexMONO(char16_t letter)
{
    return letter == u'Y' ? 0 : -1;
}

int GetIndexRGB(char16_t letter)
{
    return letter == u'R' ? 0 : letter == u'G' ? 1 : letter == u'B' ? 2 : -1;
}

int GetIndexBGR(char16_t letter)
{
    return letter == u'B' ? 0 : letter == u'G' ? 1 : letter == u'R' ? 2 : -1;
}

int GetIndexRGBA(char16_t letter)
{
    return letter == u'A' ? 3 : GetIndexRGB(letter);
}

int GetIndexBGRA(char16_t letter)
{
    return letter == u'A' ? 3 : GetIndexBGR(letter);
}

int GetIndexYUV(char16_t letter)
{
    return letter == u'Y' ? 0 : letter == u'U' ? 1 : letter == u'V' ? 2 : -1;
}

namespace {

class Table
{
public:
    Table()
    {
        m_trueSense.reserve(ColorModelRows); // the rows point into the texts
        for (std::uint32_t row = 0; row < ColorModelRows; ++row)
            m_rows[row] = Describe(*TovGetPixelTypeInfoByRow(row));
    }
    ColorModelDescription const (&Rows() const)[ColorModelRows]
    {
        return m_rows;
    }

private:
    ColorModelDescription Describe(TovPixelTypeInfo const &info)
    {
        ColorModelDescription row{info.name, "Y", info.channels, info.bitDepth, GetIndexMONO, 0, info.pixelType};
        switch (info.family) {
        case TOV_FAMILY_MONO:
            // Users of the table get 10 bits here, although the type's code says 12.
            if (std::strcmp(info.name, "Mono12p") == 0)
                row.bitsPerChannel = 10;
            break;
        case TOV_FAMILY_BAYER: {
            static constexpr char const *layouts[] = {"", "G R G2 B", "R G B G2", "G B G2 R", "B G R G2"};
            row.layout = layouts[info.bayer];
            break;
        }
        case TOV_FAMILY_TRUESENSE:
            row.layout = TrueSenseLayout(info);
            row.mosaicPhase = info.phase;
            break;
        case TOV_FAMILY_RGB: {
            bool const blueFirst = info.name[0] == 'B';
            if (info.channels == 4) {
                row.layout = blueFirst ? "B G R A" : "R G B A";
                row.getIndex = blueFirst ? GetIndexBGRA : GetIndexRGBA;
            } else {
                row.layout = blueFirst ? "B G R" : "R G B";
                row.getIndex = blueFirst ? GetIndexBGR : GetIndexRGB;
            }
            break;
        }
        default:
            row.getIndex = GetIndexYUV;
            if (std::strcmp(info.name, "YUV444_8") == 0)
                row.layout = "Y U V A";
            else if (std::strcmp(info.name, "YCbCr422_8") == 0)
                row.layout = "Y Cb Y Cr";
            else if (std::strcmp(info.name, "YUV422_8_UYVY") == 0)
                row.layout = "U Y V Y";
            else
                row.layout = "Y U Y V";
            break;
        }
        return row;
    }

    char const *TrueSenseLayout(TovPixelTypeInfo const &info)
    {
        std::string text;
        for (std::uint32_t i = 0; i < 16; ++i) {
            if (i)
                text += ' ';
            text += TovGetFilterColour(&info, i % 4, i / 4);
        }
        m_trueSense.push_back(std::move(text));
        return m_trueSense.back().c_str();
    }

    ColorModelDescription m_rows[ColorModelRows];
    std::vector<std::string> m_trueSense;
};

Table const &GetTable()
{
    static Table const table;
    return table;
}

} // namespace

ColorModelDescription const (&s_colorModelDescription)[ColorModelRows] = GetTable().Rows();

ColorModelDescription const *GetColorModel(std::uint32_t pixelType)
{
    std::uint32_t const row = (pixelType & 255) - 1;
    return row < ColorModelRows ? &s_colorModelDescription[row] : nullptr;
}
