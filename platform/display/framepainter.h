// Makes the picture that a view shows out of a frame: the visible part only, at the view's scale.
//
// Enlarged pictures have crisp pixels. Reduced ones are the mean of the pixels under each device pixel, of up to four
// by four of them; a Bayer frame reduced to half or less takes each 2 x 2 cell as one pixel of its colours. Marked
// levels of a colour map stay visible: one of them under a device pixel is enough to show its colour.
#pragma once

#include "displaylut.h"
#include "framememory.h"
#include "linesource.h"
#include "viewgeometry.h"

#include "tovimage.h"

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

// A finished picture: what to paint where, for one geometry.
struct Picture
{
    FrameMemory<std::uint32_t> memory; // 0xFFRRGGBB, line after line
    ViewGeometry geometry;
    std::shared_ptr<DisplayLut const> lut;
    int x = 0; // in device pixels of the view
    int y = 0;
    int width = 0;
    int height = 0;
};

// One thread at a time; keeps its working memory from frame to frame.
class FramePainter
{
public:
    // The image has pixels of a known type, geometry.x.image and geometry.y.image are its size. Throws std::bad_alloc.
    void Paint(_TovImage const &image, TovPixelTypeInfo const &info, ViewGeometry const &geometry,
               std::shared_ptr<DisplayLut const> const &lut, Picture *picture);

private:
    static constexpr int TapCount = 4;

    // Which cells a row of device pixels is made of: TapCount of them, `stride` apart, from `first` on, with weights
    // that add up to 256. Cells after the last repeat it.
    struct Taps
    {
        int stride = 1;
        int margin = 0; // cells under a device pixel that lie before the first or behind the last that is picked
        int end = 0;    // behind the last cell
        std::vector<std::int32_t> first;
        std::vector<std::uint8_t> weights; // TapCount a device pixel

        int Begin() const;
        int End() const;
        std::pair<int, int> Reach(int pixel) const;
    };
    static void MakeTaps(ViewAxis const &axis, int begin, int end, int cell, Taps *taps);

    void PaintCrisp(Picture *picture);
    void PaintReduced(Picture *picture);
    void MixLines(int row);
    void ReduceLine(std::uint32_t *out) const;
    void PutMarks(int row, std::uint32_t *out);

    LineSource m_source;
    DisplayLut::Tables m_tables;
    std::shared_ptr<DisplayLut const> m_tablesOf; // the map that m_tables belong to
    Taps m_columns;
    Taps m_rows;
    int m_planes = 1;
    int m_begin = 0;                   // first cell of the lines asked for
    int m_cells = 0;                   // their number
    int m_stride = 0;                  // from plane to plane of m_mixed
    FrameMemory<std::uint8_t> m_mixed; // one line of cells for a row of device pixels
    FrameMemory<std::uint16_t> m_highestMarks;
};
