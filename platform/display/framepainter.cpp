#include "framepainter.h"

#include "vectorops.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <utility>

namespace {

constexpr int Weights = 256; // what the weights of a direction add up to
constexpr int Spare = 64;    // bytes behind a line, for vectors that reach over its end

std::uint32_t Rgb(unsigned red, unsigned green, unsigned blue)
{
    return 0xFF000000u | red << 16 | green << 8 | blue;
}

// On x86-64 this library's 128-bit vector code runs at half speed after another library has used wide registers without
// clearing them. Other processors have no such state.
void PutWideRegistersAway()
{
#if defined(__x86_64__)
    if (__builtin_cpu_supports("avx"))
        asm volatile("vzeroupper");
#endif
}

// Four bytes from each of four places. v_lut_quads would need aligned ones.
cv::v_uint8x16 Quads(std::uint8_t const *line, std::int32_t const *at)
{
    std::uint32_t quads[4];
    for (int i = 0; i < 4; ++i)
        std::memcpy(&quads[i], line + at[i], sizeof quads[i]);
    return cv::v_reinterpret_as_u8(cv::v_uint32x4(quads[0], quads[1], quads[2], quads[3]));
}

// The weighted mean of some lines.
template<int Count>
void Mix(std::uint8_t const *const *lines, int const *weights, int cells, std::uint8_t *out)
{
    cv::v_uint16x8 factors[Count];
    for (int k = 0; k < Count; ++k)
        factors[k] = cv::v_setall_u16(static_cast<std::uint16_t>(weights[k]));
    int x = 0;
    for (; x + 16 <= cells; x += 16) {
        cv::v_uint16x8 low = cv::v_setzero_u16();
        cv::v_uint16x8 high = cv::v_setzero_u16();
        for (int k = 0; k < Count; ++k) {
            cv::v_uint16x8 a;
            cv::v_uint16x8 b;
            cv::v_expand(cv::v_load(lines[k] + x), a, b);
            low = cv::v_add_wrap(low, cv::v_mul_wrap(a, factors[k]));
            high = cv::v_add_wrap(high, cv::v_mul_wrap(b, factors[k]));
        }
        cv::v_store(out + x, cv::v_rshr_pack<8>(low, high));
    }
    for (; x < cells; ++x) {
        int sum = Weights / 2;
        for (int k = 0; k < Count; ++k)
            sum += lines[k][x] * weights[k];
        out[x] = static_cast<std::uint8_t>(sum / Weights);
    }
}

} // namespace

int FramePainter::Taps::Begin() const
{
    return std::max(0, first.front() - margin);
}

int FramePainter::Taps::End() const
{
    return std::min(end, first.back() + TapCount * stride + margin);
}

void FramePainter::MakeTaps(ViewAxis const &axis, int begin, int end, int cell, Taps *taps)
{
    int const cells = std::max(1, axis.image / cell);
    double const step = 1.0 / (axis.scale * cell); // cells a device pixel
    int const pixels = end - begin;
    // Up to this many cells per device pixel, all count by their share; of more, some are picked.
    bool const all = step <= TapCount - 1;
    taps->end = cells;
    taps->stride = all ? 1
                       : std::clamp(static_cast<int>(std::lround(std::min(step, 1e9) / TapCount)), 1,
                                    std::max(1, cells / TapCount));
    int const span = (TapCount - 1) * taps->stride + 1;
    taps->margin = all ? 0 : static_cast<int>(std::ceil(std::clamp((step - span) / 2 + 0.5, 0.0, double(cells))));
    taps->first.resize(pixels);
    taps->weights.assign(std::size_t(pixels) * TapCount, Weights / TapCount);
    for (int i = 0; i < pixels; ++i) {
        double const from = (begin + i - axis.origin) * step;
        if (!all) {
            int const first = static_cast<int>(std::floor(from + (step - span) / 2 + 0.5));
            taps->first[i] = std::clamp(first, 0, std::max(0, cells - span));
            continue;
        }
        int const lowest = static_cast<int>(std::floor(from));
        int const first = std::clamp(lowest, 0, cells - 1);
        taps->first[i] = first;
        std::array<int, TapCount> shares{};
        int given = 0;
        for (int index = lowest; given < Weights; ++index) {
            int const until = static_cast<int>(std::lround(std::min(1.0, (index + 1 - from) / step) * Weights));
            shares[std::clamp(index - first, 0, TapCount - 1)] += until - given; // outside the image: to its edge
            given = until;
        }
        // A weight is a byte.
        for (int k = 0; k < TapCount; ++k) {
            if (shares[k] == Weights) {
                --shares[k];
                ++shares[k == 0 ? 1 : k - 1];
            }
        }
        std::copy(shares.begin(), shares.end(), &taps->weights[std::size_t(i) * TapCount]);
    }
}

void FramePainter::Paint(_TovImage const &image, TovPixelTypeInfo const &info, ViewGeometry const &geometry,
                         std::shared_ptr<DisplayLut const> const &lut, Picture *picture)
{
    PutWideRegistersAway();
    picture->geometry = geometry;
    picture->lut = lut;
    picture->x = geometry.x.First();
    picture->y = geometry.y.First();
    picture->width = geometry.x.End() - picture->x;
    picture->height = geometry.y.End() - picture->y;
    if (picture->width <= 0 || picture->height <= 0)
        return;
    picture->memory.Get(std::size_t(picture->width) * picture->height);

    DisplayLut::Tables const *tables = nullptr;
    if (lut) {
        if (m_tablesOf != lut || m_tables.depth != info.bitDepth) {
            m_tables = lut->MakeTables(info.bitDepth);
            m_tablesOf = lut;
        }
        tables = &m_tables;
    }

    bool const crisp = geometry.x.scale >= 1.0;
    int cell = 1;
    if (crisp) {
        m_begin = geometry.x.ToImage(picture->x);
        m_cells = geometry.x.ToImage(picture->x + picture->width - 1) + 1 - m_begin;
    } else {
        cell = geometry.x.scale <= 0.5 && LineSource::HasCells(image, info) ? 2 : 1;
        MakeTaps(geometry.x, picture->x, picture->x + picture->width, cell, &m_columns);
        MakeTaps(geometry.y, picture->y, picture->y + picture->height, cell, &m_rows);
        m_begin = m_columns.Begin();
        m_cells = m_columns.End() - m_begin;
    }
    m_source.Begin(image, info, cell, m_begin, m_begin + m_cells, tables);
    m_planes = m_source.Planes();
    if (crisp)
        PaintCrisp(picture);
    else
        PaintReduced(picture);
}

void FramePainter::PaintCrisp(Picture *picture)
{
    m_columns.first.resize(picture->width);
    for (int i = 0; i < picture->width; ++i)
        m_columns.first[i] = picture->geometry.x.ToImage(picture->x + i) - m_begin;
    std::int32_t const *const column = m_columns.first.data();
    std::uint32_t const *last = nullptr;
    int lastLine = -1;
    for (int i = 0; i < picture->height; ++i) {
        std::uint32_t *const out = picture->memory.Data() + std::size_t(i) * picture->width;
        int const y = picture->geometry.y.ToImage(picture->y + i);
        if (y == lastLine) {
            std::memcpy(out, last, std::size_t(picture->width) * sizeof *out);
            continue;
        }
        auto const planes = m_source.Line(y);
        if (m_planes == 1) {
            for (int x = 0; x < picture->width; ++x)
                out[x] = 0xFF000000u | planes[0][column[x]] * 0x010101u;
        } else {
            for (int x = 0; x < picture->width; ++x)
                out[x] = Rgb(planes[0][column[x]], planes[1][column[x]], planes[2][column[x]]);
        }
        if (m_source.HasMarks()) {
            std::uint16_t const *const marks = m_source.Marks(y);
            for (int x = 0; x < picture->width; ++x) {
                if (std::uint16_t const mark = marks[column[x]])
                    out[x] = m_tables.palette[mark];
            }
        }
        last = out;
        lastLine = y;
    }
}

// Brings the lines under a row of device pixels together.
void FramePainter::MixLines(int row)
{
    std::array<std::array<std::uint8_t const *, 2 * TapCount>, 3> lines; // by plane
    std::array<int, 2 * TapCount> weights;
    int count = 0;
    // Where cells are left out, each one picked brings its neighbour: half as many gaps for fine patterns to hide in.
    int const each = m_rows.stride > 1 ? 2 : 1;
    for (int k = 0; k < TapCount * each; ++k) {
        int const weight = m_rows.weights[std::size_t(row) * TapCount + k / each] / each;
        if (weight == 0)
            continue;
        int const y = std::min(m_rows.first[row] + k / each * m_rows.stride + k % each, m_rows.end - 1);
        auto const planes = m_source.Line(y);
        for (int plane = 0; plane < m_planes; ++plane)
            lines[plane][count] = planes[plane];
        weights[count++] = weight;
    }
    for (int plane = 0; plane < m_planes; ++plane) {
        std::uint8_t *const out = m_mixed.Data() + std::size_t(plane) * m_stride;
        switch (count) {
        case 1:
            Mix<1>(lines[plane].data(), weights.data(), m_cells, out);
            break;
        case 2:
            Mix<2>(lines[plane].data(), weights.data(), m_cells, out);
            break;
        case 3:
            Mix<3>(lines[plane].data(), weights.data(), m_cells, out);
            break;
        case 4:
            Mix<4>(lines[plane].data(), weights.data(), m_cells, out);
            break;
        default:
            Mix<8>(lines[plane].data(), weights.data(), m_cells, out);
            break;
        }
        if (m_columns.stride > 1) {
            for (int x = 0; x + 1 < m_cells; ++x)
                out[x] = static_cast<std::uint8_t>((out[x] + out[x + 1] + 1) / 2);
        }
        std::fill_n(out + m_cells, (TapCount - 1) * m_columns.stride, out[m_cells - 1]);
    }
}

// Brings the cells under each device pixel of a row together.
void FramePainter::ReduceLine(std::uint32_t *out) const
{
    int const pixels = static_cast<int>(m_columns.first.size());
    int const stride = m_columns.stride;
    std::uint8_t const *const weights = m_columns.weights.data();
    std::int32_t const *const first = m_columns.first.data();
    std::uint8_t const *const red = m_mixed.Data() - m_begin;
    std::uint8_t const *const green = red + (m_planes == 1 ? 0 : m_stride);
    std::uint8_t const *const blue = red + (m_planes == 1 ? 0 : 2 * m_stride);
    int i = 0;
    if (stride == 1) {
        cv::v_uint32x4 const half = cv::v_setall_u32(Weights / 2);
        cv::v_uint32x4 const opaque = cv::v_setall_u32(0xFF000000u);
        auto const mean = [half](std::uint8_t const *line, std::int32_t const *at, cv::v_uint8x16 const &shares) {
            return cv::v_shr<8>(Sum(cv::v_dotprod_expand(Quads(line, at), shares), half));
        };
        for (; i + 4 <= pixels; i += 4) {
            cv::v_uint8x16 const shares = cv::v_load(weights + std::size_t(i) * TapCount);
            cv::v_uint32x4 const r = mean(red, first + i, shares);
            cv::v_uint32x4 const g = m_planes == 1 ? r : mean(green, first + i, shares);
            cv::v_uint32x4 const b = m_planes == 1 ? r : mean(blue, first + i, shares);
            cv::v_store(out + i, Union(Union(opaque, cv::v_shl<16>(r)), Union(cv::v_shl<8>(g), b)));
        }
    }
    auto const mean = [=](std::uint8_t const *line, int pixel) {
        unsigned sum = Weights / 2;
        for (int k = 0; k < TapCount; ++k)
            sum += unsigned(line[first[pixel] + k * stride]) * weights[std::size_t(pixel) * TapCount + k];
        return sum / Weights;
    };
    for (; i < pixels; ++i)
        out[i] = Rgb(mean(red, i), mean(green, i), mean(blue, i));
}

// The cells that count for a mark: all under the device pixel, also those that no tap picks.
std::pair<int, int> FramePainter::Taps::Reach(int pixel) const
{
    int from = first[pixel] - margin;
    int until = first[pixel] + TapCount * stride + margin;
    std::uint8_t const *const shares = &weights[std::size_t(pixel) * TapCount];
    for (int k = 0; k < TapCount && shares[k] == 0; ++k)
        ++from;
    for (int k = TapCount; k-- > 0 && shares[k] == 0;)
        --until;
    return {std::max(from, 0), std::min(until, end)};
}

// Shows the highest mark under each device pixel of a row.
void FramePainter::PutMarks(int row, std::uint32_t *out)
{
    std::uint16_t *const highest = m_highestMarks.Get(m_cells);
    std::fill_n(highest, m_cells, 0);
    auto const [top, bottom] = m_rows.Reach(row);
    for (int y = top; y < bottom; ++y) {
        std::uint16_t const *const marks = m_source.Marks(y);
        for (int x = 0; x < m_cells; ++x)
            highest[x] = std::max(highest[x], marks[x]);
    }
    int const pixels = static_cast<int>(m_columns.first.size());
    for (int i = 0; i < pixels; ++i) {
        auto const [from, until] = m_columns.Reach(i);
        std::uint16_t mark = 0;
        for (int x = std::max(from - m_begin, 0); x < std::min(until - m_begin, m_cells); ++x)
            mark = std::max(mark, highest[x]);
        if (mark)
            out[i] = m_tables.palette[mark];
    }
}

void FramePainter::PaintReduced(Picture *picture)
{
    m_stride = (m_cells + (TapCount - 1) * m_columns.stride + Spare) & ~(Spare - 1);
    m_mixed.Get(std::size_t(m_stride) * m_planes);
    for (int i = 0; i < picture->height; ++i) {
        std::uint32_t *const out = picture->memory.Data() + std::size_t(i) * picture->width;
        MixLines(i);
        ReduceLine(out);
        if (m_source.HasMarks())
            PutMarks(i, out);
    }
}
