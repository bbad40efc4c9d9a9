#include "framepainter.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

constexpr int MAX_TAPS = 4;  // of a direction, where a device pixel covers more than that
constexpr int WEIGHTS = 256; // what the weights of a direction add up to

std::uint32_t Rgb(unsigned red, unsigned green, unsigned blue)
{
    return 0xFF000000u | red << 16 | green << 8 | blue;
}

} // namespace

int FramePainter::Taps::Begin() const
{
    return first.empty() ? 0 : first.front();
}

int FramePainter::Taps::End() const
{
    return first.empty() ? 0 : first.back() + (count - 1) * stride + 1;
}

void FramePainter::MakeTaps(ViewAxis const &axis, int begin, int end, int cell, Taps *taps)
{
    int const cells = std::max(1, axis.image / cell);
    double const step = 1.0 / (axis.scale * cell); // cells a device pixel
    int const pixels = end - begin;
    taps->stride = 1;
    bool const sampled = step > MAX_TAPS;
    if (sampled) {
        taps->count = std::min(MAX_TAPS, cells);
        taps->stride =
            std::clamp(static_cast<int>(std::min(step, 1e9)) / MAX_TAPS, 1, std::max(1, (cells - 1) / MAX_TAPS));
    } else {
        taps->count = std::min(static_cast<int>(std::ceil(step)) + 1, cells);
    }
    int const span = (taps->count - 1) * taps->stride + 1;
    taps->first.resize(pixels);
    taps->weights.assign(std::size_t(pixels) * taps->count, 0);
    for (int i = 0; i < pixels; ++i) {
        double const from = (begin + i - axis.origin) * step;
        std::uint16_t *const weights = &taps->weights[std::size_t(i) * taps->count];
        if (sampled) {
            int const middle = static_cast<int>(std::floor(from + (step - span) / 2 + 0.5));
            taps->first[i] = std::clamp(middle, 0, cells - span);
            std::fill_n(weights, taps->count, std::uint16_t(WEIGHTS / taps->count));
            weights[0] = static_cast<std::uint16_t>(weights[0] + WEIGHTS % taps->count);
            continue;
        }
        // The share of each cell in the device pixel; what lies outside the image goes to the cell at its edge.
        int const lowest = static_cast<int>(std::floor(from));
        int const first = std::clamp(lowest, 0, cells - taps->count);
        taps->first[i] = first;
        int given = 0;
        for (int cellIndex = lowest; given < WEIGHTS; ++cellIndex) {
            double const until = std::min(1.0, (cellIndex + 1 - from) / step);
            int const sum = static_cast<int>(std::lround(until * WEIGHTS));
            weights[std::clamp(cellIndex - first, 0, taps->count - 1)] += static_cast<std::uint16_t>(sum - given);
            given = sum;
        }
    }
}

void FramePainter::Paint(_TovImage const &image, TovPixelTypeInfo const &info, ViewGeometry const &geometry,
                         std::shared_ptr<ColourMap const> const &map, Picture *picture)
{
    picture->geometry = geometry;
    picture->map = map;
    picture->x = geometry.x.First();
    picture->y = geometry.y.First();
    picture->width = geometry.x.End() - picture->x;
    picture->height = geometry.y.End() - picture->y;
    if (picture->width <= 0 || picture->height <= 0)
        return;
    picture->memory.Get(std::size_t(picture->width) * picture->height);

    ColourMap::Tables const *tables = nullptr;
    if (map) {
        if (m_tablesOf != map || m_tables.depth != info.bitDepth) {
            m_tables = map->MakeTables(info.bitDepth);
            m_tablesOf = map;
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
        if (std::uint16_t const *marks = m_source.Marks(y)) {
            for (int x = 0; x < picture->width; ++x) {
                if (std::uint16_t const mark = marks[column[x]])
                    out[x] = m_tables.palette[mark];
            }
        }
        last = out;
        lastLine = y;
    }
}

// Adds a line's cells to the sums: 8 bits times weights that add up to 256 fit 16.
void FramePainter::AddLine(std::uint8_t const *const *planes, int weight, bool first)
{
    for (int plane = 0; plane < m_planes; ++plane) {
        std::uint16_t *__restrict const sums = m_sums.Data() + plane * m_stride;
        std::uint8_t const *__restrict const line = planes[plane];
        auto const factor = static_cast<std::uint16_t>(weight);
        if (first) {
            for (int x = 0; x < m_cells; ++x)
                sums[x] = static_cast<std::uint16_t>(line[x] * factor);
        } else {
            for (int x = 0; x < m_cells; ++x)
                sums[x] = static_cast<std::uint16_t>(sums[x] + line[x] * factor);
        }
    }
}

template<int Count>
void FramePainter::ReduceLine(std::uint32_t *out) const
{
    int const pixels = static_cast<int>(m_columns.first.size());
    int const stride = m_columns.stride;
    std::uint16_t const *const weights = m_columns.weights.data();
    auto const reduce = [&](std::uint16_t const *sums, int i) {
        std::uint16_t const *const cells = sums + m_columns.first[i] - m_begin;
        std::uint32_t sum = 1u << 15;
        for (int k = 0; k < Count; ++k)
            sum += std::uint32_t(cells[k * stride]) * weights[i * Count + k];
        return sum >> 16;
    };
    std::uint16_t const *const sums = m_sums.Data();
    if (m_planes == 1) {
        for (int i = 0; i < pixels; ++i)
            out[i] = 0xFF000000u | reduce(sums, i) * 0x010101u;
    } else {
        for (int i = 0; i < pixels; ++i)
            out[i] = Rgb(reduce(sums, i), reduce(sums + m_stride, i), reduce(sums + 2 * m_stride, i));
    }
}

void FramePainter::PutMarks(std::uint16_t const *marks, std::uint32_t *out) const
{
    int const pixels = static_cast<int>(m_columns.first.size());
    for (int i = 0; i < pixels; ++i) {
        std::uint16_t const *const cells = marks + m_columns.first[i] - m_begin;
        std::uint16_t mark = 0;
        for (int k = 0; k < m_columns.count; ++k) {
            if (m_columns.weights[std::size_t(i) * m_columns.count + k] != 0)
                mark = std::max(mark, cells[k * m_columns.stride]);
        }
        if (mark)
            out[i] = m_tables.palette[mark];
    }
}

void FramePainter::PaintReduced(Picture *picture)
{
    m_stride = (m_cells + 31) & ~31;
    m_sums.Get(std::size_t(m_stride) * m_planes);
    for (int i = 0; i < picture->height; ++i) {
        std::uint32_t *const out = picture->memory.Data() + std::size_t(i) * picture->width;
        bool first = true;
        bool marked = false;
        for (int k = 0; k < m_rows.count; ++k) {
            int const weight = m_rows.weights[std::size_t(i) * m_rows.count + k];
            if (weight == 0)
                continue;
            int const y = m_rows.first[i] + k * m_rows.stride;
            auto const planes = m_source.Line(y);
            AddLine(planes.data(), weight, first);
            if (std::uint16_t const *marks = m_source.Marks(y)) {
                std::uint16_t *const sums = m_markSums.Get(m_cells);
                if (!marked)
                    std::copy_n(marks, m_cells, sums);
                else
                    std::transform(marks, marks + m_cells, sums, sums,
                                   [](std::uint16_t a, std::uint16_t b) { return std::max(a, b); });
                marked = true;
            }
            first = false;
        }
        switch (m_columns.count) {
        case 1:
            ReduceLine<1>(out);
            break;
        case 2:
            ReduceLine<2>(out);
            break;
        case 3:
            ReduceLine<3>(out);
            break;
        case 4:
            ReduceLine<4>(out);
            break;
        default:
            ReduceLine<5>(out);
            break;
        }
        if (marked)
            PutMarks(m_markSums.Data(), out);
    }
}
