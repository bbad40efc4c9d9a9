#include "bayer.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#if defined(__aarch64__)
#include <opencv2/core/hal/intrin.hpp>
#endif

namespace TovPixels {

namespace {

constexpr std::size_t Vector = 16;
using Bytes = std::uint8_t __attribute__((vector_size(16)));
using Words = std::uint16_t __attribute__((vector_size(16)));
using Longs = std::uint32_t __attribute__((vector_size(16)));

// Vectors of samples, and of pairs of them: the pair's first sample is in its lower half.
template<class T>
struct Lanes;
template<>
struct Lanes<std::uint8_t>
{
    using Samples = Bytes;
    using Pairs = Words;
};
template<>
struct Lanes<std::uint16_t>
{
    using Samples = Words;
    using Pairs = Longs;
};

// The samples of three vectors one after another: a0 b0 c0 a1 ...
#if defined(__aarch64__)

TOV_ALWAYS_INLINE void StoreColours(Bytes a, Bytes b, Bytes c, std::uint8_t *out)
{
    using V = cv::v_uint8x16;
    cv::v_store_interleave(out, V((uint8x16_t)a), V((uint8x16_t)b), V((uint8x16_t)c));
}

TOV_ALWAYS_INLINE void StoreColours(Words a, Words b, Words c, std::uint8_t *out)
{
    using V = cv::v_uint16x8;
    cv::v_store_interleave(reinterpret_cast<Sample16 *>(out), V((uint16x8_t)a), V((uint16x8_t)b), V((uint16x8_t)c));
}

#else

// Three has no divisor in common with the samples of a vector, so that each sample of a vector has a place of its own
// in the output, modulo the vector: one shuffle brings it there, and the rest is choosing.
template<class T, std::size_t Colour>
struct Spread
{
    static constexpr std::array<std::uint8_t, Vector> value = [] {
        std::array<std::uint8_t, Vector> from{};
        for (std::size_t i = 0; i < Vector; ++i)
            from[(i / sizeof(T) * 3 + Colour) * sizeof(T) % Vector + i % sizeof(T)] = std::uint8_t(i);
        return from;
    }();
};

// Which bytes of the output's `Part`th vector are of that colour.
template<class T, std::size_t Colour, std::size_t Part>
struct Choice
{
    static constexpr std::array<std::uint8_t, Vector> value = [] {
        std::array<std::uint8_t, Vector> mask{};
        for (std::size_t i = 0; i < Vector; ++i)
            mask[i] = (Part * Vector + i) / sizeof(T) % 3 == Colour ? 0xFF : 0;
        return mask;
    }();
};

template<class Indices, std::size_t... I>
TOV_ALWAYS_INLINE Bytes Constant(std::index_sequence<I...>)
{
    return Bytes{Indices::value[I]...};
}

template<class Indices>
TOV_ALWAYS_INLINE Bytes Constant()
{
    return Constant<Indices>(std::make_index_sequence<Vector>());
}

template<class Indices, std::size_t... I>
TOV_ALWAYS_INLINE Bytes Shuffle(Bytes a, std::index_sequence<I...>)
{
#if defined(__clang__)
    return __builtin_shufflevector(a, a, Indices::value[I]...);
#else
    return __builtin_shuffle(a, Bytes{Indices::value[I]...});
#endif
}

template<class T, std::size_t Part>
TOV_ALWAYS_INLINE void StorePart(Bytes a, Bytes b, Bytes c, std::uint8_t *out)
{
    Bytes const isA = Constant<Choice<T, 0, Part>>();
    Bytes const isB = Constant<Choice<T, 1, Part>>();
    Bytes const rest = (b & isB) | (c & ~isB);
    Bytes const part = (a & isA) | (rest & ~isA);
    std::memcpy(out + Part * Vector, &part, Vector);
}

template<class Samples>
TOV_ALWAYS_INLINE void StoreColours(Samples a, Samples b, Samples c, std::uint8_t *out)
{
    using T = std::remove_cvref_t<decltype(a[0])>;
    constexpr auto all = std::make_index_sequence<Vector>();
    Bytes const as = Shuffle<Spread<T, 0>>((Bytes)a, all);
    Bytes const bs = Shuffle<Spread<T, 1>>((Bytes)b, all);
    Bytes const cs = Shuffle<Spread<T, 2>>((Bytes)c, all);
    StorePart<T, 0>(as, bs, cs, out);
    StorePart<T, 1>(as, bs, cs, out);
    StorePart<T, 2>(as, bs, cs, out);
}

#endif

// The lines a pixel is interpolated from, of samples T with any alignment.
struct Lines
{
    std::uint8_t const *above;
    std::uint8_t const *at;
    std::uint8_t const *below;
};

template<class V>
TOV_ALWAYS_INLINE V Load(std::uint8_t const *from)
{
    V v;
    std::memcpy(&v, from, sizeof v);
    return v;
}

// One vector of pixels, the first of which is not green. Reads one sample more on either side.
template<class T, bool OwnFirst, bool Shifted>
TOV_ALWAYS_INLINE void InterpolateVector(Lines const &lines, std::size_t x, unsigned shift, std::uint8_t *out)
{
    using Pairs = typename Lanes<T>::Pairs;
    using Samples = typename Lanes<T>::Samples;
    constexpr int Half = 8 * sizeof(T);
    Pairs const lower = Pairs{} + T(~T(0));

    // Pairs that begin at x, and one pixel to the left and right of it.
    std::size_t const byte = x * sizeof(T);
    Pairs const at = Load<Pairs>(lines.at + byte);
    Pairs const atLeft = Load<Pairs>(lines.at + byte - sizeof(T));
    Pairs const atRight = Load<Pairs>(lines.at + byte + sizeof(T));
    Pairs const above = Load<Pairs>(lines.above + byte);
    Pairs const aboveLeft = Load<Pairs>(lines.above + byte - sizeof(T));
    Pairs const below = Load<Pairs>(lines.below + byte);
    Pairs const belowLeft = Load<Pairs>(lines.below + byte - sizeof(T));

    // First pixels of the pairs have the line's own colour, second ones green. Sums of up to four stay within a pair.
    Pairs const first = at & lower;
    Pairs const upright1 = (above & lower) + (below & lower);
    Pairs const upright2 = (above >> Half) + (below >> Half);
    Pairs const uprightLeft = (aboveLeft & lower) + (belowLeft & lower);
    Pairs const cross = ((atLeft & lower) + (at >> Half) + upright1 + 2) >> 2;
    Pairs const corners = (uprightLeft + upright2 + 2) >> 2;
    Pairs const level2 = (first + (atRight >> Half) + 1) >> 1;

    Samples own = (Samples)(first | level2 << Half);
    Samples green = (Samples)(cross | (at & ~lower));
    Samples other = (Samples)(corners | ((upright2 + 1) >> 1) << Half);
    if constexpr (Shifted) {
        own = own << shift;
        green = green << shift;
        other = other << shift;
    }
    if constexpr (OwnFirst)
        StoreColours(own, green, other, out + 3 * byte);
    else
        StoreColours(other, green, own, out + 3 * byte);
}

template<class T>
TOV_ALWAYS_INLINE unsigned At(std::uint8_t const *line, std::size_t x)
{
    return Load<T>(line + x * sizeof(T));
}

template<class T, bool OwnFirst>
TOV_ALWAYS_INLINE void InterpolatePixel(Lines const &lines, std::size_t x, std::size_t width, bool green,
                                        unsigned shift, std::uint8_t *out)
{
    std::size_t const inside = width > 1 ? 1 : 0; // a place beyond an edge is taken from this far inside
    std::size_t const left = x > 0 ? x - 1 : inside;
    std::size_t const right = x + 1 < width ? x + 1 : x - inside;
    unsigned const at = At<T>(lines.at, x);
    unsigned const level = At<T>(lines.at, left) + At<T>(lines.at, right);
    unsigned const upright = At<T>(lines.above, x) + At<T>(lines.below, x);
    T colours[3];
    if (green) {
        colours[OwnFirst ? 0 : 2] = T((level + 1) / 2 << shift);
        colours[1] = T(at << shift);
        colours[OwnFirst ? 2 : 0] = T((upright + 1) / 2 << shift);
    } else {
        unsigned const corners =
            At<T>(lines.above, left) + At<T>(lines.above, right) + At<T>(lines.below, left) + At<T>(lines.below, right);
        colours[OwnFirst ? 0 : 2] = T(at << shift);
        colours[1] = T((level + upright + 2) / 4 << shift);
        colours[OwnFirst ? 2 : 0] = T((corners + 2) / 4 << shift);
    }
    std::memcpy(out + 3 * sizeof(T) * x, colours, sizeof colours);
}

template<class T, bool OwnFirst, bool Shifted>
TOV_ALWAYS_INLINE void InterpolateLine(Lines const &lines, std::size_t width, bool greenFirst, unsigned shift,
                                       std::uint8_t *out)
{
    constexpr std::size_t Step = Vector / sizeof(T);
    // Vectors begin at the first pixel with a neighbour on its left that is not green.
    std::size_t const begin = greenFirst ? 1 : 2;
    std::size_t done = 0;
    for (; done < std::min(begin, width); ++done)
        InterpolatePixel<T, OwnFirst>(lines, done, width, greenFirst == (done % 2 == 0), shift, out);
    if (width >= begin + Step + 1) {
        // The last vector goes back over the one before, to end where the line does.
        std::size_t const last = begin + ((width - 1 - Step - begin) & ~std::size_t(1));
        for (std::size_t x = begin; x < last; x += Step)
            InterpolateVector<T, OwnFirst, Shifted>(lines, x, shift, out);
        InterpolateVector<T, OwnFirst, Shifted>(lines, last, shift, out);
        done = last + Step;
    }
    for (; done < width; ++done)
        InterpolatePixel<T, OwnFirst>(lines, done, width, greenFirst == (done % 2 == 0), shift, out);
}

template<class T, bool Shifted>
TOV_ALWAYS_INLINE void InterpolateOrdered(Lines const &lines, std::size_t width, BayerLine line, unsigned shift,
                                          std::uint8_t *out)
{
    if (line.ownFirst)
        InterpolateLine<T, true, Shifted>(lines, width, line.greenFirst, shift, out);
    else
        InterpolateLine<T, false, Shifted>(lines, width, line.greenFirst, shift, out);
}

} // namespace

TOV_CPU_CLONES void InterpolateBayer(std::uint8_t const *above, std::uint8_t const *at, std::uint8_t const *below,
                                     std::size_t width, BayerLine line, std::uint8_t *colours)
{
    InterpolateOrdered<std::uint8_t, false>({above, at, below}, width, line, 0, colours);
}

TOV_CPU_CLONES void InterpolateBayer(Sample16 const *above, Sample16 const *at, Sample16 const *below,
                                     std::size_t width, BayerLine line, unsigned shift, Sample16 *colours)
{
    auto const bytes = [](Sample16 const *samples) {
        return reinterpret_cast<std::uint8_t const *>(samples);
    };
    Lines const lines{bytes(above), bytes(at), bytes(below)};
    auto *out = reinterpret_cast<std::uint8_t *>(colours);
    if (shift != 0)
        InterpolateOrdered<std::uint16_t, true>(lines, width, line, shift, out);
    else
        InterpolateOrdered<std::uint16_t, false>(lines, width, line, 0, out);
}

} // namespace TovPixels
