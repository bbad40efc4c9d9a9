#include "tiffreader.h"

#include "tovmisc.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include <tiffio.h>

namespace {

std::string s_lastError; // libtiff has one handler for all files

void KeepError(char const *, char const *format, std::va_list arguments)
{
    char text[300];
    std::vsnprintf(text, sizeof text, format, arguments);
    s_lastError = text;
}

template<class T>
T Field(TIFF *tiff, std::uint32_t tag, T otherwise)
{
    T value = otherwise;
    return TIFFGetFieldDefaulted(tiff, tag, &value) ? value : otherwise;
}

// Significant bits of 16-bit samples, where the file tells the largest value.
unsigned Depth(TIFF *tiff)
{
    std::uint16_t most = 0;
    if (!TIFFGetField(tiff, TIFFTAG_MAXSAMPLEVALUE, &most))
        return 16;
    return most == 0x3FF ? 10 : most == 0xFFF ? 12 : most == 0x3FFF ? 14 : 16;
}

} // namespace

TiffReader::~TiffReader()
{
    TovReleaseImageHeader(&m_image);
    if (m_tiff)
        TIFFClose(m_tiff);
}

bool TiffReader::Fail(std::string problem)
{
    m_problem = std::move(problem);
    return false;
}

bool TiffReader::Open(std::string const &name)
{
    TIFFSetErrorHandler(KeepError);
    TIFFSetWarningHandler(nullptr);
    if (m_tiff)
        TIFFClose(m_tiff);
    m_problem.clear();
    s_lastError.clear();
    m_atFirst = true;
    m_tiff = TIFFOpen(name.c_str(), "rm");
    m_isStack = m_tiff && !TIFFLastDirectory(m_tiff);
    return m_tiff || Fail(s_lastError.empty() ? "not a TIFF file" : s_lastError);
}

// Of the picture; 0, with the problem, for one that has none.
std::uint32_t TiffReader::PixelType()
{
    auto const bits = Field<std::uint16_t>(m_tiff, TIFFTAG_BITSPERSAMPLE, 1);
    auto const samples = Field<std::uint16_t>(m_tiff, TIFFTAG_SAMPLESPERPIXEL, 1);
    auto const kind = Field<std::uint16_t>(m_tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_PALETTE);
    auto const format = Field<std::uint16_t>(m_tiff, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT);
    auto const planes = Field<std::uint16_t>(m_tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    bool const grey = samples == 1 && kind == PHOTOMETRIC_MINISBLACK;
    bool const colour = samples == 3 && kind == PHOTOMETRIC_RGB && planes == PLANARCONFIG_CONTIG;
    if ((bits == 8 || bits == 16) && (grey || colour) && format == SAMPLEFORMAT_UINT && !TIFFIsTiled(m_tiff)) {
        unsigned const depth = bits == 8 ? 8 : Depth(m_tiff);
        for (std::uint32_t row = 0; row < TOV_PIXEL_TYPE_ROWS; ++row) {
            TovPixelTypeInfo const *info = TovGetPixelTypeInfoByRow(row); // RGB comes before BGR
            if (info->family == (grey ? TOV_FAMILY_MONO : TOV_FAMILY_RGB) && info->packing == TOV_UNPACKED &&
                info->bitDepth == depth && info->channels == samples)
                return info->pixelType;
        }
    }
    Fail("only pictures of 8 or 16 bits, grey (black is zero) or RGB, in strips, can be imported");
    return 0;
}

bool TiffReader::ReadLines(std::uint32_t height, std::uint64_t lineBytes)
{
    if (std::uint64_t(TIFFScanlineSize64(m_tiff)) != lineBytes)
        return Fail("its lines are not as long as its width");
    for (std::uint32_t y = 0; y < height; ++y) {
        if (TIFFReadScanline(m_tiff, m_memory.Data() + y * lineBytes, y, 0) != 1)
            return Fail(s_lastError.empty() ? "damaged" : s_lastError);
    }
    return true;
}

bool TiffReader::Next()
{
    if (!m_tiff || (!m_atFirst && !TIFFReadDirectory(m_tiff)))
        return false;
    m_atFirst = false;
    auto const width = Field<std::uint32_t>(m_tiff, TIFFTAG_IMAGEWIDTH, 0);
    auto const height = Field<std::uint32_t>(m_tiff, TIFFTAG_IMAGELENGTH, 0);
    std::uint32_t const type = PixelType();
    if (type == 0)
        return false;
    std::size_t const room = TovFrameMemorySize(type, {width, height});
    if (room == 0)
        return Fail("a picture of no pixels, or of too many");
    std::uint8_t *const pixels = m_memory.TryGet(room);
    if (!pixels)
        return Fail("Out of memory");
    std::uint64_t const bytes = TovLineBytes(type, width);
    if (!ReadLines(height, bytes))
        return false;
    std::memset(pixels + bytes * height, 0, room - std::size_t(bytes * height));
    TovReleaseImageHeader(&m_image);
    m_image = nullptr;
    return TovSucceeded(TovCreateImageHeader(&m_image, {width, height}, type, 0, pixels)) || Fail("Out of memory");
}
