#include "lineops.h"

#include <algorithm>

namespace TovPixels {

namespace {

// Weights of the colours in grey, as fractions of 2^16: they add up to 1, so that a sum just fits 32 bits.
constexpr int GreyFraction = 16;
constexpr std::uint32_t GreyR = 19595;
constexpr std::uint32_t GreyG = 38470;
constexpr std::uint32_t GreyB = 7471;
// What chroma adds to luma, as fractions of 2^14.
constexpr int Fraction = 14;
constexpr int Half = 1 << (Fraction - 1);
constexpr int RFromV = 22970;
constexpr int GFromU = -5638;
constexpr int GFromV = -11700;
constexpr int BFromU = 29032;

template<class T>
TOV_ALWAYS_INLINE void Grey(T const *__restrict colours, std::size_t width, bool blueFirst, T *__restrict grey)
{
    std::uint32_t const first = blueFirst ? GreyB : GreyR;
    std::uint32_t const third = blueFirst ? GreyR : GreyB;
    for (std::size_t x = 0; x < width; ++x) {
        std::uint32_t const sum = colours[3 * x] * first + colours[3 * x + 1] * GreyG + colours[3 * x + 2] * third;
        grey[x] = T((sum + (1u << (GreyFraction - 1))) >> GreyFraction);
    }
}

template<class T>
TOV_ALWAYS_INLINE void Spread(T const *__restrict grey, std::size_t width, T *__restrict colours)
{
    for (std::size_t x = 0; x < width; ++x) {
        colours[3 * x] = grey[x];
        colours[3 * x + 1] = grey[x];
        colours[3 * x + 2] = grey[x];
    }
}

template<class T, std::size_t Channels>
TOV_ALWAYS_INLINE void Swap(T const *__restrict in, std::size_t width, T *__restrict out)
{
    for (std::size_t x = 0; x < width; ++x) {
        out[Channels * x] = in[Channels * x + 2];
        out[Channels * x + 1] = in[Channels * x + 1];
        out[Channels * x + 2] = in[Channels * x];
        if constexpr (Channels == 4)
            out[Channels * x + 3] = in[Channels * x + 3];
    }
}

template<class T, std::size_t Luma>
TOV_ALWAYS_INLINE void SplitPairs(T const *__restrict samples, std::size_t width, unsigned depth, T *__restrict y)
{
    T *u = y + width;
    T *v = u + width;
    for (std::size_t pair = 0; pair < width / 2; ++pair) {
        T const *four = samples + 4 * pair;
        y[2 * pair] = four[Luma];
        y[2 * pair + 1] = four[Luma + 2];
        u[2 * pair] = u[2 * pair + 1] = four[1 - Luma];
        v[2 * pair] = v[2 * pair + 1] = four[3 - Luma];
    }
    if (width % 2) {
        std::size_t const x = width - 1;
        y[x] = samples[2 * x + Luma];
        u[x] = samples[2 * x + 1 - Luma];
        v[x] = x ? v[x - 1] : T(1u << (depth - 1));
    }
}

template<class T>
TOV_ALWAYS_INLINE void Split(T const *__restrict samples, std::size_t width, unsigned depth, YuvOrder order,
                             T *__restrict channels)
{
    if (order == YuvOrder::YUYV)
        return SplitPairs<T, 0>(samples, width, depth, channels);
    if (order == YuvOrder::UYVY)
        return SplitPairs<T, 1>(samples, width, depth, channels);
    for (std::size_t x = 0; x < width; ++x) {
        channels[x] = samples[4 * x];
        channels[width + x] = samples[4 * x + 1];
        channels[2 * width + x] = samples[4 * x + 2];
    }
}

template<class T, std::size_t Red>
TOV_ALWAYS_INLINE void Yuv(T const *__restrict channels, std::size_t width, unsigned depth, T *__restrict colours)
{
    int const neutral = 1 << (depth - 1);
    int const largest = (1 << depth) - 1;
    T const *u = channels + width;
    T const *v = channels + 2 * width;
    for (std::size_t x = 0; x < width; ++x) {
        int const y = channels[x];
        int const cb = int(u[x]) - neutral;
        int const cr = int(v[x]) - neutral;
        int const r = y + ((RFromV * cr + Half) >> Fraction);
        int const g = y + ((GFromU * cb + GFromV * cr + Half) >> Fraction);
        int const b = y + ((BFromU * cb + Half) >> Fraction);
        colours[3 * x + Red] = T(std::clamp(r, 0, largest));
        colours[3 * x + 1] = T(std::clamp(g, 0, largest));
        colours[3 * x + 2 - Red] = T(std::clamp(b, 0, largest));
    }
}

} // namespace

TOV_CPU_CLONES void GreyOfColours(std::uint8_t const *colours, std::size_t width, bool blueFirst, std::uint8_t *grey)
{
    Grey(colours, width, blueFirst, grey);
}

TOV_CPU_CLONES void GreyOfColours(std::uint16_t const *colours, std::size_t width, bool blueFirst, std::uint16_t *grey)
{
    Grey(colours, width, blueFirst, grey);
}

TOV_CPU_CLONES void ColoursOfGrey(std::uint8_t const *grey, std::size_t width, std::uint8_t *colours)
{
    Spread(grey, width, colours);
}

TOV_CPU_CLONES void ColoursOfGrey(std::uint16_t const *grey, std::size_t width, std::uint16_t *colours)
{
    Spread(grey, width, colours);
}

TOV_CPU_CLONES void SplitYuv(std::uint8_t const *samples, std::size_t width, unsigned depth, YuvOrder order,
                             std::uint8_t *channels)
{
    Split(samples, width, depth, order, channels);
}

TOV_CPU_CLONES void SplitYuv(std::uint16_t const *samples, std::size_t width, unsigned depth, YuvOrder order,
                             std::uint16_t *channels)
{
    Split(samples, width, depth, order, channels);
}

TOV_CPU_CLONES void ColoursOfYuv(std::uint8_t const *channels, std::size_t width, unsigned depth, bool blueFirst,
                                 std::uint8_t *colours)
{
    blueFirst ? Yuv<std::uint8_t, 2>(channels, width, depth, colours)
              : Yuv<std::uint8_t, 0>(channels, width, depth, colours);
}

TOV_CPU_CLONES void ColoursOfYuv(std::uint16_t const *channels, std::size_t width, unsigned depth, bool blueFirst,
                                 std::uint16_t *colours)
{
    blueFirst ? Yuv<std::uint16_t, 2>(channels, width, depth, colours)
              : Yuv<std::uint16_t, 0>(channels, width, depth, colours);
}

TOV_CPU_CLONES void SwapColours(std::uint8_t const *in, std::size_t width, std::uint8_t *out)
{
    Swap<std::uint8_t, 3>(in, width, out);
}

TOV_CPU_CLONES void SwapColours(std::uint16_t const *in, std::size_t width, std::uint16_t *out)
{
    Swap<std::uint16_t, 3>(in, width, out);
}

TOV_CPU_CLONES void SwapColoursWithAlpha(std::uint8_t const *in, std::size_t width, std::uint8_t *out)
{
    Swap<std::uint8_t, 4>(in, width, out);
}

TOV_CPU_CLONES void AddAlpha(std::uint8_t const *__restrict colours, std::size_t width, std::uint8_t *__restrict out)
{
    for (std::size_t x = 0; x < width; ++x) {
        out[4 * x] = colours[3 * x];
        out[4 * x + 1] = colours[3 * x + 1];
        out[4 * x + 2] = colours[3 * x + 2];
        out[4 * x + 3] = 255;
    }
}

TOV_CPU_CLONES void DropAlpha(std::uint8_t const *__restrict in, std::size_t width, std::uint8_t *__restrict colours)
{
    for (std::size_t x = 0; x < width; ++x) {
        colours[3 * x] = in[4 * x];
        colours[3 * x + 1] = in[4 * x + 1];
        colours[3 * x + 2] = in[4 * x + 2];
    }
}

TOV_CPU_CLONES void ShiftDepth(Sample16 const *__restrict in, std::size_t count, unsigned from, unsigned to,
                               Sample16 *__restrict out)
{
    // A product stays within 16-bit lanes, which a shift by a variable does not.
    auto const factor = std::uint16_t(to >= from ? 1u << (to - from) : 1u);
    unsigned const down = to >= from ? 0 : from - to;
    if (down == 0) {
        for (std::size_t i = 0; i < count; ++i)
            out[i] = std::uint16_t(in[i] * factor);
    } else {
        for (std::size_t i = 0; i < count; ++i)
            out[i] = std::uint16_t(in[i] >> down);
    }
}

} // namespace TovPixels
