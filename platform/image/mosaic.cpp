#include "mosaic.h"

#include "bayer.h"
#include "framememory.h"

#include <algorithm>

#include <opencv2/imgproc.hpp>

namespace TovPixels {

namespace {

// A strip of so many pixels stays in the cache.
constexpr std::size_t StripPixels = 90000;
// A picture from this size on is shared among OpenCV's threads, as OpenCV's own operations are; waking them does not
// pay for the bands that the display asks for.
constexpr std::size_t SharedPixels = 1u << 20;
constexpr double PixelsAShare = 1u << 18;

// Has `work` do the lines from `begin` to `end`, more than once and on several threads where the picture is large.
template<class Work>
void ForLines(_TovImage const &picture, Work const &work)
{
    int const height = int(picture.height);
#if !defined(__SANITIZE_THREAD__) // which cannot see how the threads of an uninstrumented library synchronise
    std::size_t const pixels = std::size_t(picture.width) * picture.height;
    if (pixels >= SharedPixels) {
        cv::parallel_for_(
            cv::Range(0, height), [&work](cv::Range const &lines) { work(lines.start, lines.end); },
            double(pixels) / PixelsAShare);
        return;
    }
#endif
    work(0, height);
}

// The nearest index inside [0, size) that lies in the same place of the mosaic's tile, of `period` pixels.
int SamePlace(int index, int size, int period)
{
    while (index < 0)
        index += period;
    while (index >= size)
        index -= period;
    return std::max(index, 0); // a picture smaller than the tile
}

void UnpackInto(TovPixelTypeInfo const &info, std::uint8_t const *line, std::size_t width, std::uint8_t *out)
{
    Unpack8(info, line, 0, width, out);
}

void UnpackInto(TovPixelTypeInfo const &info, std::uint8_t const *line, std::size_t width, std::uint16_t *out)
{
    Unpack16(info, line, 0, width, out);
}

// Lines of the mosaic with a margin of pixels around them, which continues the pattern over the picture's edges.
template<class T>
class Strip
{
public:
    Strip(TovPixelTypeInfo const &info, _TovImage const &source, int margin, int period)
        : m_info(info),
          m_source(source),
          m_margin(margin),
          m_period(period),
          m_width(int(source.width)),
          m_height(int(source.height)),
          m_step(source.width + 2 * std::size_t(margin)),
          m_lines(std::min(std::clamp(int(StripPixels / m_step) - 2 * margin, 8, 64), m_height + 3) / 4 * 4),
          m_samples(m_step * std::size_t(m_lines + 2 * margin))
    {
    }

    // Lines that one strip yields, a multiple of four.
    int Lines() const
    {
        return m_lines;
    }
    std::size_t Step() const
    {
        return m_step;
    }
    // The first sample of the margin's first line.
    T *Data() const
    {
        return m_samples.Data();
    }

    // Takes `count` lines from `top` on, and the margin around them.
    void Fill(int top, int count)
    {
        for (int i = 0; i < count + 2 * m_margin; ++i) {
            int const y = SamePlace(top - m_margin + i, m_height, m_period);
            T *line = Data() + std::size_t(i) * m_step;
            UnpackInto(m_info, m_source.imageData + std::uint64_t(y) * m_source.lineStep, m_source.width,
                       line + m_margin);
            for (int x = 1; x <= m_margin; ++x) {
                line[m_margin - x] = line[m_margin + SamePlace(-x, m_width, m_period)];
                line[m_margin + m_width - 1 + x] = line[m_margin + SamePlace(m_width - 1 + x, m_width, m_period)];
            }
        }
    }

private:
    TovPixelTypeInfo const &m_info;
    _TovImage const &m_source;
    int const m_margin;
    int const m_period;
    int const m_width;
    int const m_height;
    std::size_t const m_step;
    int const m_lines;
    FrameMemory<T> const m_samples;
};

// The lines of a mosaic as samples T: in place if they are such already, else unpacked, a few at a time.
template<class T>
class MosaicLines
{
public:
    // Lines asked for may lie at most that many apart.
    static constexpr int Reach = 3;

    MosaicLines(TovPixelTypeInfo const &info, _TovImage const &source)
        : m_info(info),
          m_source(source),
          m_inPlace(info.packing == TOV_UNPACKED && (info.bitDepth > 8 ? 2 : 1) == sizeof(T)),
          m_samples(m_inPlace ? 0 : std::size_t(Reach) * source.width)
    {
    }

    std::uint8_t const *At(int y)
    {
        std::uint8_t const *line = m_source.imageData + std::uint64_t(y) * m_source.lineStep;
        if (m_inPlace)
            return line;
        int const slot = y % Reach;
        T *samples = m_samples.Data() + std::size_t(slot) * m_source.width;
        if (m_held[slot] != y) {
            UnpackInto(m_info, line, m_source.width, samples);
            m_held[slot] = y;
        }
        return reinterpret_cast<std::uint8_t const *>(samples);
    }

private:
    TovPixelTypeInfo const &m_info;
    _TovImage const &m_source;
    bool const m_inPlace;
    FrameMemory<T> const m_samples;
    int m_held[Reach] = {-1, -1, -1};
};

// One line interpolated, shifted up by `shift` bits.
void InterpolateAt(MosaicLines<std::uint8_t> &lines, int above, int y, int below, std::size_t width, BayerLine line,
                   unsigned, std::uint8_t *out)
{
    InterpolateBayer(lines.At(above), lines.At(y), lines.At(below), width, line, out);
}

void InterpolateAt(MosaicLines<std::uint16_t> &lines, int above, int y, int below, std::size_t width, BayerLine line,
                   unsigned shift, std::uint8_t *out)
{
    auto const samples = [&lines](int at) {
        return reinterpret_cast<Sample16 const *>(lines.At(at));
    };
    InterpolateBayer(samples(above), samples(y), samples(below), width, line, shift, reinterpret_cast<Sample16 *>(out));
}

template<class T>
void DemosaicBayer(TovPixelTypeInfo const &info, _TovImage const &source, bool blueFirst, ColourLines const *direct,
                   ColourLineSink<T> const &sink)
{
    int const height = int(source.height);
    auto const interpolate = [&](MosaicLines<T> &lines, int y, unsigned shift, std::uint8_t *out) {
        int const above = SamePlace(y - 1, height, 2);
        int const below = SamePlace(y + 1, height, 2);
        char const first = TovGetFilterColour(&info, 0, std::uint32_t(y));
        char const own = first != 'G' ? first : TovGetFilterColour(&info, 1, std::uint32_t(y));
        BayerLine const line{first == 'G', (own == 'R') != blueFirst};
        InterpolateAt(lines, above, y, below, source.width, line, shift, out);
    };
    if (direct) {
        ForLines(source, [&](int begin, int end) {
            MosaicLines<T> lines(info, source);
            for (int y = begin; y < end; ++y)
                interpolate(lines, y, direct->shift, direct->first + std::uint64_t(y) * direct->lineStep);
        });
        return;
    }
    MosaicLines<T> lines(info, source);
    FrameMemory<T> const colours(3 * std::size_t(source.width));
    for (int y = 0; y < height; ++y) {
        interpolate(lines, y, 0, reinterpret_cast<std::uint8_t *>(colours.Data()));
        sink(std::uint32_t(y), colours.Data());
    }
}

constexpr int TilePeriod = 4; // of the mosaics with white pixels

// The tile of such a mosaic.
struct WhiteTile
{
    WhiteTile(TovPixelTypeInfo const &info, bool blueFirst)
    {
        for (unsigned y = 0; y < TilePeriod; ++y) {
            for (unsigned x = 0; x < TilePeriod; ++x) {
                char const colour = TovGetFilterColour(&info, x, y);
                place[y][x] = colour == 'W' ? -1 : colour == 'G' ? 1 : (colour == 'R') != blueFirst ? 0 : 2;
                if (place[y][x] >= 0)
                    ++filters[place[y][x]];
            }
        }
    }

    int place[TilePeriod][TilePeriod]; // of the colour in the output, or -1 for white
    int filters[3] = {0, 0, 0};        // of each colour
};

// White at every pixel but the outermost of a strip that begins with a tile, and where there is a colour's filter, how
// much it differs from white.
template<class T>
void SplitWhite(WhiteTile const &tile, T const *strip, cv::Mat &white, cv::Mat &difference)
{
    int const step = white.cols;
    difference.setTo(0);
    for (int y = 1; y < white.rows - 1; ++y) {
        T const *samples = strip + std::size_t(y) * step;
        float *whites = white.ptr<float>(y);
        float *differences = difference.ptr<float>(y);
        for (int x = 1; x < step - 1; ++x) {
            int const colour = tile.place[y % TilePeriod][x % TilePeriod];
            if (colour < 0) {
                whites[x] = samples[x];
            } else {
                whites[x] = 0.25F * (float(samples[x - 1]) + float(samples[x + 1]) + float(samples[x - step]) +
                                     float(samples[x + step]));
                differences[3 * x + colour] = float(samples[x]) - whites[x];
            }
        }
    }
}

// Half of the pixels are white, in a checkerboard. They give the brightness at every pixel; how much a colour differs
// from it is taken where there is such a filter, and spread over the pixels between. The spreading weights, a triangle
// as wide as two tiles, add up to the same everywhere, as each filter has a fixed place in the tile.
template<class T>
void DemosaicTrueSense(TovPixelTypeInfo const &info, _TovImage const &source, bool blueFirst,
                       ColourLineSink<T> const &sink)
{
    constexpr int Reach = TilePeriod - 1; // of the spreading
    constexpr int Margin = Reach + 1;     // and one more for the white beside it; as wide as the tile
    Strip<T> strip(info, source, Margin, TilePeriod);
    WhiteTile const tile(info, blueFirst);
    int const width = int(source.width);
    int const height = int(source.height);
    int const step = int(strip.Step());
    float const largest = sizeof(T) == 1 ? 255.F : float((1 << info.bitDepth) - 1);

    std::size_t const pixels = std::size_t(step) * std::size_t(strip.Lines() + 2 * Margin);
    FrameMemory<float> const whiteMemory(pixels), differenceMemory(3 * pixels), spreadMemory(3 * pixels);
    FrameMemory<T> const line(3 * std::size_t(width));
    cv::Mat const weights = (cv::Mat_<float>(1, 2 * Reach + 1) << 1, 2, 3, 4, 3, 2, 1);

    for (int top = 0; top < height; top += strip.Lines()) {
        int const count = std::min(strip.Lines(), height - top);
        strip.Fill(top, count);
        cv::Mat white(count + 2 * Margin, step, CV_32F, whiteMemory.Data());
        cv::Mat difference(white.size(), CV_32FC3, differenceMemory.Data());
        cv::Mat spread(white.size(), CV_32FC3, spreadMemory.Data());
        SplitWhite(tile, strip.Data(), white, difference);
        cv::sepFilter2D(difference, spread, CV_32F, weights, weights, cv::Point(-1, -1), 0, cv::BORDER_REPLICATE);
        for (int i = 0; i < count; ++i) {
            float const *whites = white.ptr<float>(i + Margin) + Margin;
            float const *spreads = spread.ptr<float>(i + Margin) + 3 * Margin;
            T *out = line.Data();
            for (int x = 0; x < width; ++x) {
                for (int c = 0; c < 3; ++c) {
                    // The triangle weighs one filter a tile with 4 x 4.
                    float const value =
                        whites[x] + spreads[3 * x + c] / float(TilePeriod * TilePeriod * tile.filters[c]);
                    out[3 * x + c] = T(std::clamp(value, 0.F, largest) + 0.5F);
                }
            }
            sink(std::uint32_t(top + i), out);
        }
    }
}

} // namespace

template<class T>
void Demosaic(TovPixelTypeInfo const &info, _TovImage const &source, bool blueFirst, ColourLines const *direct,
              ColourLineSink<T> const &sink)
{
    if (info.family == TOV_FAMILY_TRUESENSE)
        DemosaicTrueSense<T>(info, source, blueFirst, sink);
    else
        DemosaicBayer<T>(info, source, blueFirst, direct, sink);
}

template void Demosaic<std::uint8_t>(TovPixelTypeInfo const &, _TovImage const &, bool, ColourLines const *,
                                     ColourLineSink<std::uint8_t> const &);
template void Demosaic<std::uint16_t>(TovPixelTypeInfo const &, _TovImage const &, bool, ColourLines const *,
                                      ColourLineSink<std::uint16_t> const &);

} // namespace TovPixels
