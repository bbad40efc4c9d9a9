#include "linesource.h"

#include "tovmisc.h"
#include "vectorops.h"

#include "tovmisc.h"

#include <algorithm>
#include <cstring>

namespace {

// Lines that a band makes at once, and what it takes in around them: demosaicing looks that far. Multiples of eight
// pixels begin on whole bytes in every packed form, and keep the phase of every mosaic.
constexpr int BandLines = 64;
constexpr int Margin = 8;

std::uint32_t Bayer8Type(TovBayerPhase phase)
{
    for (std::uint32_t row = 0; row < TOV_PIXEL_TYPE_ROWS; ++row) {
        TovPixelTypeInfo const *info = TovGetPixelTypeInfoByRow(row);
        if (info->bayer == phase && info->bitDepth == 8 && info->packing == TOV_UNPACKED)
            return info->pixelType;
    }
    return 0;
}

// Takes the cells of two lines apart: the colour of the line on top, that of the line below, and the mean of the
// greens.
template<bool GreenFirst>
void SplitCells(std::uint8_t const *top, std::uint8_t const *bottom, int cells, std::uint8_t *onTop,
                std::uint8_t *below, std::uint8_t *green)
{
    int x = 0;
    cv::v_uint16x8 const one = cv::v_setall_u16(1);
    auto const mean = [one](cv::v_uint8x16 const &a, cv::v_uint8x16 const &b) {
        cv::v_uint16x8 a0, a1, b0, b1;
        cv::v_expand(a, a0, a1);
        cv::v_expand(b, b0, b1);
        return cv::v_pack(cv::v_shr<1>(Sum(Sum(a0, b0), one)), cv::v_shr<1>(Sum(Sum(a1, b1), one)));
    };
    for (; x + 16 <= cells; x += 16) {
        cv::v_uint8x16 even, odd, evenBelow, oddBelow;
        cv::v_load_deinterleave(top + 2 * x, even, odd);
        cv::v_load_deinterleave(bottom + 2 * x, evenBelow, oddBelow);
        cv::v_store(onTop + x, GreenFirst ? odd : even);
        cv::v_store(below + x, GreenFirst ? evenBelow : oddBelow);
        cv::v_store(green + x, GreenFirst ? mean(even, oddBelow) : mean(odd, evenBelow));
    }
    constexpr int first = GreenFirst ? 1 : 0; // where the line on top has its colour
    for (; x < cells; ++x) {
        onTop[x] = top[2 * x + first];
        below[x] = bottom[2 * x + 1 - first];
        green[x] = static_cast<std::uint8_t>((top[2 * x + 1 - first] + bottom[2 * x + first] + 1) / 2);
    }
}

} // namespace

void LineSource::Begin(_TovImage const &image, TovPixelTypeInfo const &info, int cell, int begin, int end,
                       DisplayLut::Tables const *tables)
{
    m_image = &image;
    m_info = &info;
    m_tables = info.family == TOV_FAMILY_MONO || info.bayer != TOV_BAYER_NONE ? tables : nullptr;
    m_cell = cell;
    m_begin = begin;
    m_end = end;
    m_stride = (end - begin + 63) & ~63;
    m_planes = 3;
    bool const toned = m_tables && m_tables->hasTones;
    if (info.family == TOV_FAMILY_MONO) {
        m_kind = info.bitDepth == 8 && !toned ? Kind::Bytes : Kind::Mono;
        m_planes = 1;
    } else if (cell == 2) {
        m_kind = Kind::Cells;
    } else if (info.family == TOV_FAMILY_RGB) {
        m_kind = Kind::Colours;
    } else {
        m_kind = Kind::Converted;
    }
    m_slots.fill({});
    m_uses = 0;
    m_marksOf.fill(-1);
    m_bandBegin = m_bandEnd = 0;
    m_lines.Get(std::size_t(m_stride) * m_planes * Slots);
}

std::array<std::uint8_t const *, 3> LineSource::Line(int y)
{
    if (m_kind == Kind::Bytes)
        return {At(y) + m_begin, nullptr, nullptr};
    auto slot = std::find_if(m_slots.begin(), m_slots.end(), [y](Slot const &s) { return s.line == y; });
    bool const made = slot != m_slots.end();
    if (!made)
        slot = std::min_element(m_slots.begin(), m_slots.end(),
                                [](Slot const &a, Slot const &b) { return a.used < b.used; });
    slot->line = y;
    slot->used = ++m_uses;
    std::uint8_t *const line = m_lines.Data() + std::size_t(slot - m_slots.begin()) * m_planes * m_stride;
    if (!made) {
        switch (m_kind) {
        case Kind::Mono:
            ReadSamples(y, m_begin, m_end - m_begin, line);
            break;
        case Kind::Cells:
            MakeCells(y, line);
            break;
        default:
            MakeColours(y, line);
            break;
        }
    }
    return {line, line + m_stride, line + 2 * m_stride};
}

// One sample a pixel, as eight bits.
void LineSource::ReadSamples(int y, int begin, int count, std::uint8_t *out)
{
    if (!m_tables || !m_tables->hasTones) {
        TovUnpackLine8(m_info->pixelType, At(y), count, out, begin);
        return;
    }
    std::uint16_t *const levels = m_levels.Get(count);
    TovUnpackLine(m_info->pixelType, At(y), count, levels, begin);
    std::uint8_t const *const tones = m_tables->tones.data();
    std::size_t const mask = m_tables->tones.size() - 1;
    for (int x = 0; x < count; ++x)
        out[x] = tones[levels[x] & mask];
}

void LineSource::MakeCells(int y, std::uint8_t *out)
{
    int const cells = m_end - m_begin;
    std::array<std::uint8_t const *, 2> lines;
    for (int i = 0; i < 2; ++i) {
        if (m_info->bitDepth == 8 && !(m_tables && m_tables->hasTones)) {
            lines[i] = At(2 * y + i) + 2 * m_begin;
        } else {
            std::uint8_t *const samples = m_samples.Get(std::size_t(cells) * 4) + std::size_t(i) * cells * 2;
            ReadSamples(2 * y + i, 2 * m_begin, 2 * cells, samples);
            lines[i] = samples;
        }
    }

    TovBayerPhase const phase = m_info->bayer;
    bool const greenFirst = phase == TOV_BAYER_GR || phase == TOV_BAYER_GB;
    bool const redOnTop = phase == TOV_BAYER_GR || phase == TOV_BAYER_RG;
    std::uint8_t *const onTop = out + (redOnTop ? 0 : 2 * m_stride);
    std::uint8_t *const below = out + (redOnTop ? 2 * m_stride : 0);
    // A line's other colour is where the other line has its green.
    if (greenFirst)
        SplitCells<true>(lines[0], lines[1], cells, onTop, below, out + m_stride);
    else
        SplitCells<false>(lines[0], lines[1], cells, onTop, below, out + m_stride);
}

void LineSource::MakeColours(int y, std::uint8_t *out)
{
    int const count = m_end - m_begin;
    std::uint8_t const *pixels = nullptr;
    int each = 3;
    bool blueFirst = false;
    if (m_kind == Kind::Converted) {
        if (y < m_bandBegin || y >= m_bandEnd)
            ConvertBand(y);
        pixels = m_band.Data() + (std::size_t(y - m_bandTop) * m_bandWidth + m_bandSkip) * 3;
    } else {
        each = m_info->channels;
        blueFirst = m_info->name[0] == 'B';
        pixels = At(y) + m_begin * each;
        if (m_info->bitDepth != 8) {
            std::uint8_t *const samples = m_samples.Get(std::size_t(count) * each);
            TovUnpackLine8(m_info->pixelType, At(y), count, samples, m_begin);
            pixels = samples;
        }
    }
    std::uint8_t *const first = out + (blueFirst ? 2 * m_stride : 0);
    std::uint8_t *const second = out + m_stride;
    std::uint8_t *const third = out + (blueFirst ? 0 : 2 * m_stride);
    int x = 0;
    for (; x + 16 <= count; x += 16) {
        cv::v_uint8x16 a, b, c, alpha;
        if (each == 3)
            cv::v_load_deinterleave(pixels + 3 * x, a, b, c);
        else
            cv::v_load_deinterleave(pixels + 4 * x, a, b, c, alpha);
        cv::v_store(first + x, a);
        cv::v_store(second + x, b);
        cv::v_store(third + x, c);
    }
    for (; x < count; ++x) {
        first[x] = pixels[x * each];
        second[x] = pixels[x * each + 1];
        third[x] = pixels[x * each + 2];
    }
}

// Demosaics or converts the lines from y on, with what the interpolation sees beside them. The crop keeps the phase.
void LineSource::ConvertBand(int y)
{
    int const width = static_cast<int>(m_image->width);
    int const height = static_cast<int>(m_image->height);
    int const left = std::max(0, (m_begin & ~7) - Margin);
    int const right = std::min(width, ((m_end + 7) & ~7) + Margin);
    m_bandBegin = y;
    m_bandEnd = std::min(height, y + BandLines);
    m_bandTop = std::max(0, (y & ~7) - Margin);
    int const bottom = std::min(height, ((m_bandEnd + 7) & ~7) + Margin);
    m_bandWidth = right - left;
    m_bandSkip = m_begin - left;

    TovImageSize const size{static_cast<std::uint32_t>(m_bandWidth), static_cast<std::uint32_t>(bottom - m_bandTop)};
    std::size_t const pixels = std::size_t(size.width) * size.height;
    std::uint8_t *const band = m_band.Get(pixels * 3);
    _TovImage *raw = nullptr;
    _TovImage *colours = nullptr;
    TovCreateImageHeader(&colours, size, TV_PIXEL_RGB8, 0, band);
    Header const ownColours(colours);
    if (m_info->bayer != TOV_BAYER_NONE) {
        std::uint8_t *const mosaic = m_mosaic.Get(pixels);
        for (std::uint32_t line = 0; line < size.height; ++line)
            ReadSamples(m_bandTop + int(line), left, m_bandWidth, mosaic + std::size_t(line) * size.width);
        TovCreateImageHeader(&raw, size, Bayer8Type(m_info->bayer), 0, mosaic);
    } else {
        auto *const data = const_cast<std::uint8_t *>(At(m_bandTop)) + std::size_t(left) * m_info->bitsPerPixel / 8;
        TovCreateImageHeader(&raw, size, m_info->pixelType, m_image->lineStep, data);
    }
    Header const ownRaw(raw);
    if (!TovSucceeded(TovConvertImage(colours, raw)))
        std::memset(band, 0, pixels * 3);
}

std::uint16_t const *LineSource::Marks(int y)
{
    int const slot = y % Slots;
    int const count = m_end - m_begin;
    std::uint16_t *const marks = m_marks.Get(std::size_t(m_stride) * Slots) + std::size_t(slot) * m_stride;
    if (m_marksOf[slot] == y)
        return marks;
    m_marksOf[slot] = y;

    std::uint16_t const *const table = m_tables->marks.data();
    std::size_t const mask = m_tables->marks.size() - 1;
    int const samples = count * m_cell;
    std::uint16_t *const levels = m_levels.Get(samples);
    for (int line = 0; line < m_cell; ++line) {
        TovUnpackLine(m_info->pixelType, At(y * m_cell + line), samples, levels, m_begin * m_cell);
        if (m_cell == 1) {
            for (int x = 0; x < count; ++x)
                marks[x] = table[levels[x] & mask];
            continue;
        }
        for (int x = 0; x < count; ++x) {
            std::uint16_t const mark = std::max(table[levels[2 * x] & mask], table[levels[2 * x + 1] & mask]);
            marks[x] = line == 0 ? mark : std::max(marks[x], mark);
        }
    }
    return marks;
}
