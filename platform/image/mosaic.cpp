#include "mosaic.h"

#include "scratch.h"
#include "unpack.h"

#include <algorithm>

#include <opencv2/imgproc.hpp>

namespace TovPixels {

namespace {

// Below this many pixels OpenCV keeps a demosaicing on the calling thread, and a strip stays in the cache.
constexpr std::size_t STRIP_PIXELS = 90000;

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

// Lines of the mosaic with a margin of pixels around, which continues the pattern over the picture's edges.
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
          m_lines(std::min(std::clamp(int(STRIP_PIXELS / m_step) - 2 * margin, 8, 64), m_height + 3) / 4 * 4),
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
    Scratch<T> const m_samples;
};

// OpenCV calls a pattern by the pixels one line down and one column on. `phase` is the one that begins there.
int BayerCode(TovBayerPhase phase, bool blueFirst)
{
    switch (phase) {
    case TOV_BAYER_GR:
        return blueFirst ? cv::COLOR_BayerGR2BGR : cv::COLOR_BayerGR2RGB;
    case TOV_BAYER_RG:
        return blueFirst ? cv::COLOR_BayerRG2BGR : cv::COLOR_BayerRG2RGB;
    case TOV_BAYER_GB:
        return blueFirst ? cv::COLOR_BayerGB2BGR : cv::COLOR_BayerGB2RGB;
    default:
        return blueFirst ? cv::COLOR_BayerBG2BGR : cv::COLOR_BayerBG2RGB;
    }
}

// The pattern from the next column on.
TovBayerPhase NextColumn(TovBayerPhase phase)
{
    switch (phase) {
    case TOV_BAYER_GR:
        return TOV_BAYER_RG;
    case TOV_BAYER_RG:
        return TOV_BAYER_GR;
    case TOV_BAYER_GB:
        return TOV_BAYER_BG;
    default:
        return TOV_BAYER_GB;
    }
}

// One pixel as OpenCV interpolates it. `at` is its sample, `here` its filter and `beside` that of the next column.
template<class T>
void InterpolatePixel(T const *at, std::ptrdiff_t step, char here, char beside, bool blueFirst, T *out)
{
    auto const place = [blueFirst](char colour) {
        return colour == 'G' ? 1 : (colour == 'R') != blueFirst ? 0 : 2;
    };
    int const level = (at[-1] + at[1] + 1) / 2;
    int const upright = (at[-step] + at[step] + 1) / 2;
    if (here == 'G') {
        out[1] = *at;
        out[place(beside)] = T(level);
        out[2 - place(beside)] = T(upright);
    } else {
        out[place(here)] = *at;
        out[1] = T((at[-1] + at[1] + at[-step] + at[step] + 2) / 4);
        out[2 - place(here)] = T((at[-step - 1] + at[-step + 1] + at[step - 1] + at[step + 1] + 2) / 4);
    }
}

template<class T>
void DemosaicBayer(TovPixelTypeInfo const &info, _TovImage const &source, bool blueFirst, ColourLines const *direct,
                   ColourLineSink<T> const &sink)
{
    // OpenCV computes no pixel at the edge; the margin is what it leaves out.
    constexpr int MARGIN = 1;
    Strip<T> strip(info, source, MARGIN, 2);
    int const depth = sizeof(T) == 1 ? CV_8U : CV_16U;
    int const width = int(source.width);
    int const height = int(source.height);
    Scratch<T> colours(strip.Step() * 3 * std::size_t(strip.Lines() + 2 * MARGIN));

    for (int top = 0; top < height; top += strip.Lines()) {
        int const count = std::min(strip.Lines(), height - top);
        strip.Fill(top, count);
        if constexpr (sizeof(T) == 1) {
            if (direct && width > 2 && top > 0 && top + count < height) {
                // Straight into the destination. OpenCV also writes the lines above and below, as edges: the upper
                // one is finished and has to be kept, the lower one is the next strip's. Its edge columns are wrong
                // too, having no margin here.
                std::uint8_t *above = direct->first + std::uint64_t(top - 1) * direct->lineStep;
                std::copy_n(above, 3 * width, colours.Data());
                cv::Mat const mosaic(count + 2, width, CV_8UC1, strip.Data() + MARGIN, strip.Step());
                cv::Mat picture(count + 2, width, CV_8UC3, above, direct->lineStep);
                cv::demosaicing(mosaic, picture, BayerCode(NextColumn(info.bayer), blueFirst));
                std::copy_n(colours.Data(), 3 * width, above);
                for (int i = 1; i <= count; ++i) {
                    for (int x : {0, width - 1}) {
                        char const here = TovGetFilterColour(&info, std::uint32_t(x), std::uint32_t(top + i - 1));
                        char const beside = TovGetFilterColour(&info, std::uint32_t(x + 1), std::uint32_t(top + i - 1));
                        InterpolatePixel(strip.Data() + std::size_t(i) * strip.Step() + MARGIN + x,
                                         std::ptrdiff_t(strip.Step()), here, beside, blueFirst,
                                         picture.ptr<T>(i) + 3 * x);
                    }
                }
                continue;
            }
        }
        cv::Mat const mosaic(count + 2 * MARGIN, int(strip.Step()), CV_MAKETYPE(depth, 1), strip.Data());
        cv::Mat picture(mosaic.size(), CV_MAKETYPE(depth, 3), colours.Data());
        cv::demosaicing(mosaic, picture, BayerCode(info.bayer, blueFirst));
        for (int i = 0; i < count; ++i)
            sink(std::uint32_t(top + i), picture.ptr<T>(i + MARGIN) + 3 * MARGIN);
    }
}

// Half of the pixels are white, in a checkerboard. They give the brightness at every pixel; how much a colour differs
// from it is taken where there is such a filter, and spread over the pixels between. The spreading weights, a triangle
// as wide as two tiles, add up to the same everywhere, as each filter has a fixed place in the tile.
template<class T>
void DemosaicTrueSense(TovPixelTypeInfo const &info, _TovImage const &source, bool blueFirst,
                       ColourLineSink<T> const &sink)
{
    constexpr int PERIOD = 4;
    constexpr int REACH = PERIOD - 1; // of the spreading
    constexpr int MARGIN = REACH + 1; // and one more for the white beside it
    Strip<T> strip(info, source, MARGIN, PERIOD);
    int const width = int(source.width);
    int const height = int(source.height);
    int const step = int(strip.Step());
    float const largest = sizeof(T) == 1 ? 255.F : float((1 << info.bitDepth) - 1);

    // The tile over the strip's memory, whose margin is as wide as the tile: the place of its colour in the
    // output, or -1 for white.
    int place[PERIOD][PERIOD];
    int filters[3] = {0, 0, 0};
    for (unsigned y = 0; y < PERIOD; ++y) {
        for (unsigned x = 0; x < PERIOD; ++x) {
            char const colour = TovGetFilterColour(&info, x, y);
            place[y][x] = colour == 'W' ? -1 : colour == 'G' ? 1 : (colour == 'R') != blueFirst ? 0 : 2;
            if (place[y][x] >= 0)
                ++filters[place[y][x]];
        }
    }

    int const rows = strip.Lines() + 2 * MARGIN;
    Scratch<float> whiteMemory(std::size_t(step) * rows);
    Scratch<float> differenceMemory(3 * std::size_t(step) * rows);
    Scratch<float> spreadMemory(3 * std::size_t(step) * rows);
    Scratch<T> line(3 * std::size_t(width));
    cv::Mat const weights = (cv::Mat_<float>(1, 2 * REACH + 1) << 1, 2, 3, 4, 3, 2, 1);

    for (int top = 0; top < height; top += strip.Lines()) {
        int const count = std::min(strip.Lines(), height - top);
        strip.Fill(top, count);
        cv::Mat white(count + 2 * MARGIN, step, CV_32F, whiteMemory.Data());
        cv::Mat difference(white.size(), CV_32FC3, differenceMemory.Data());
        cv::Mat spread(white.size(), CV_32FC3, spreadMemory.Data());
        difference.setTo(0);
        for (int y = 1; y < white.rows - 1; ++y) {
            T const *samples = strip.Data() + std::size_t(y) * step;
            float *whites = white.ptr<float>(y);
            float *differences = difference.ptr<float>(y);
            for (int x = 1; x < step - 1; ++x) {
                int const colour = place[y % PERIOD][x % PERIOD];
                if (colour < 0) {
                    whites[x] = samples[x];
                } else {
                    whites[x] = 0.25F * (float(samples[x - 1]) + float(samples[x + 1]) + float(samples[x - step]) +
                                         float(samples[x + step]));
                    differences[3 * x + colour] = float(samples[x]) - whites[x];
                }
            }
        }
        cv::sepFilter2D(difference, spread, CV_32F, weights, weights, cv::Point(-1, -1), 0, cv::BORDER_REPLICATE);
        for (int i = 0; i < count; ++i) {
            float const *whites = white.ptr<float>(i + MARGIN) + MARGIN;
            float const *spreads = spread.ptr<float>(i + MARGIN) + 3 * MARGIN;
            T *out = line.Data();
            for (int x = 0; x < width; ++x) {
                for (int c = 0; c < 3; ++c) {
                    // The triangle weighs one filter a tile with 4 x 4.
                    float const value = whites[x] + spreads[3 * x + c] / float(PERIOD * PERIOD * filters[c]);
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
