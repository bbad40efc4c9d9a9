// Lines of a frame as 8-bit planes, made when asked for: only what a view shows is unpacked or demosaiced.
#pragma once

#include "displaylut.h"
#include "framememory.h"

#include "tovimage.h"

#include <array>
#include <cstdint>
#include <memory>

class LineSource
{
public:
    // Between Begin and the last line the image and the tables stay as they are. Lines are cells of `cell` x `cell`
    // pixels: 2 takes each colour of a Bayer cell as it is, 1 the (demosaiced) pixels. Only the columns from `begin` to
    // before `end`, counted in cells, are made. `tables` may be null; they apply to formats of one sample a pixel.
    void Begin(_TovImage const &image, TovPixelTypeInfo const &info, int cell, int begin, int end,
               DisplayLut::Tables const *tables);

    // 1 grey plane, or 3: red, green, blue.
    int Planes() const
    {
        return m_planes;
    }
    // Columns `begin` to `end` of a line. Good until eight further lines have been asked for; best in rising order.
    std::array<std::uint8_t const *, 3> Line(int y);
    // The marks of a line's cells, if there are any. Good until the next call.
    bool HasMarks() const
    {
        return m_tables && m_tables->hasMarks;
    }
    std::uint16_t const *Marks(int y);

    // Whether cells of 2 x 2 can be asked for.
    static bool HasCells(_TovImage const &image, TovPixelTypeInfo const &info)
    {
        return info.bayer != TOV_BAYER_NONE && image.width >= 2 && image.height >= 2;
    }

private:
    enum class Kind { Bytes, Mono, Cells, Colours, Converted };
    static constexpr int Slots = 12;

    struct HeaderRelease
    {
        void operator()(_TovImage *header) const
        {
            TovReleaseImageHeader(&header);
        }
    };
    using Header = std::unique_ptr<_TovImage, HeaderRelease>;

    std::uint8_t const *At(int y) const
    {
        return m_image->imageData + std::size_t(y) * m_image->lineStep;
    }
    void ReadSamples(int y, int begin, int count, std::uint8_t *out);
    void MakeCells(int y, std::uint8_t *out);
    void MakeColours(int y, std::uint8_t *out);
    void ConvertBand(int y);

    _TovImage const *m_image = nullptr;
    TovPixelTypeInfo const *m_info = nullptr;
    DisplayLut::Tables const *m_tables = nullptr;
    Kind m_kind = Kind::Bytes;
    int m_planes = 1;
    int m_cell = 1;
    int m_begin = 0;
    int m_end = 0;
    int m_stride = 0; // from one plane of a line to the next

    // The lines made last, by their number; the one unused for longest gives way.
    struct Slot
    {
        int line = -1;
        unsigned used = 0;
    };
    std::array<Slot, Slots> m_slots;
    unsigned m_uses = 0;
    std::array<int, Slots> m_marksOf{};
    FrameMemory<std::uint8_t> m_lines;
    FrameMemory<std::uint16_t> m_marks;
    FrameMemory<std::uint8_t> m_samples;
    FrameMemory<std::uint16_t> m_levels;

    // Kind::Converted: lines m_bandBegin to before m_bandEnd as RGB8, beginning m_bandSkip pixels left of m_begin.
    FrameMemory<std::uint8_t> m_band;
    FrameMemory<std::uint8_t> m_mosaic;
    int m_bandBegin = 0;
    int m_bandEnd = 0;
    int m_bandTop = 0; // the line that the band's memory begins with
    int m_bandWidth = 0;
    int m_bandSkip = 0;
};
