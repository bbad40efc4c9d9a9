#include "unpack.h"

#include <array>
#include <cstring>
#include <utility>

namespace TovPixels {

namespace {

using Bytes = std::uint8_t __attribute__((vector_size(16)));
using Words = std::uint16_t __attribute__((vector_size(16)));
constexpr std::size_t Vector = sizeof(Bytes);
constexpr std::size_t Lanes = Vector / 2;

// The bytes of `a`, then of `b`, that the indices name.
template<class Indices, std::size_t... I>
TOV_ALWAYS_INLINE Bytes Shuffle(Bytes a, Bytes b, std::index_sequence<I...>)
{
#if defined(__clang__)
    return __builtin_shufflevector(a, b, Indices::value[I]...);
#else
    return __builtin_shuffle(a, b, Bytes{Indices::value[I]...});
#endif
}

template<class Indices>
TOV_ALWAYS_INLINE Bytes Shuffle(Bytes a, Bytes b)
{
    return Shuffle<Indices>(a, b, std::make_index_sequence<Vector>());
}

template<class V>
TOV_ALWAYS_INLINE V Load(std::uint8_t const *from)
{
    V v;
    std::memcpy(&v, from, sizeof v);
    return v;
}

// The upper bytes of the words of two vectors.
struct OddBytes
{
    static constexpr std::array<std::uint8_t, Vector> value = {1,  3,  5,  7,  9,  11, 13, 15,
                                                               17, 19, 21, 23, 25, 27, 29, 31};
};

// How the samples of a packed form lie in memory. Each lies in two neighbouring bytes; as a 16-bit word these are `low`
// and `high`.
template<TovPacking Packing, unsigned Depth>
struct Form
{
    static constexpr unsigned SampleDepth = Depth;
    static constexpr unsigned Bits = Packing == TOV_PACKED_GEV ? 12 : Depth; // that a sample takes
    // Eight samples are this many bytes; a group is the fewest samples that are whole bytes.
    static constexpr std::size_t BytesOf8 = Bits;
    static constexpr std::size_t Group = Bits == 12 ? 2 : 4;

    static constexpr std::size_t Low(std::size_t i)
    {
        if (Packing == TOV_PACKED_GEV)
            return i / 2 * 3 + 1;
        return i * Bits / 8 + (Packing == TOV_PACKED_WEFT ? 1 : 0);
    }
    static constexpr std::size_t High(std::size_t i)
    {
        if (Packing == TOV_PACKED_GEV)
            return i / 2 * 3 + i % 2 * 2;
        return i * Bits / 8 + (Packing == TOV_PACKED_WEFT ? 0 : 1);
    }
    // What brings the sample to the top of its word, but for GigE Vision's, whose low bits are apart.
    static constexpr std::uint16_t Factor(std::size_t i)
    {
        std::size_t const skipped = i * Bits % 8;
        return std::uint16_t(1u << (Packing == TOV_PACKED_WEFT ? skipped : 16 - Depth - skipped));
    }

    // Where the bytes of eight samples go.
    struct Places
    {
        static constexpr std::array<std::uint8_t, Vector> value = [] {
            std::array<std::uint8_t, Vector> places{};
            for (std::size_t i = 0; i < Lanes; ++i) {
                places[2 * i] = std::uint8_t(Low(i));
                places[2 * i + 1] = std::uint8_t(High(i));
            }
            return places;
        }();
    };

    // Where the upper eight bits of sixteen samples are, in the sixteen bytes of the first eight and of the others.
    struct HighPlaces
    {
        static constexpr std::array<std::uint8_t, Vector> value = [] {
            std::array<std::uint8_t, Vector> places{};
            for (std::size_t i = 0; i < Vector; ++i)
                places[i] = std::uint8_t(High(i % Lanes) + i / Lanes * Vector);
            return places;
        }();
    };

    // The words of eight samples of a group on. Reads sixteen bytes.
    static TOV_ALWAYS_INLINE Words Gather(std::uint8_t const *from)
    {
        Bytes const bytes = Load<Bytes>(from);
        return (Words)Shuffle<Places>(bytes, bytes);
    }

    // The samples of a contiguous form at the top of their words.
    static TOV_ALWAYS_INLINE Words AtTop(std::uint8_t const *from)
    {
        constexpr Words factors = {Factor(0), Factor(1), Factor(2), Factor(3),
                                   Factor(4), Factor(5), Factor(6), Factor(7)};
        return Gather(from) * factors;
    }

    // Eight samples of a group on, right-aligned. Reads sixteen bytes.
    static TOV_ALWAYS_INLINE Words Samples(std::uint8_t const *from)
    {
        if constexpr (Packing != TOV_PACKED_GEV) {
            return AtTop(from) >> (16 - Depth);
        } else {
            // The upper byte is the sample's; of the other, the lower half belongs to the even sample, the upper
            // half to the odd one.
            constexpr std::uint16_t Low = (1u << (Depth - 8)) - 1;
            constexpr std::uint16_t High = 0xFF << (Depth - 8);
            Words const words = Gather(from);
            Words const low = words & Words{Low, 0, Low, 0, Low, 0, Low, 0};
            if constexpr (Depth == 12) {
                constexpr std::uint16_t All = High | Low;
                return ((words >> 4) & Words{High, All, High, All, High, All, High, All}) | low;
            } else {
                return ((words >> (16 - Depth)) & High) | ((words >> 4) & Words{0, Low, 0, Low, 0, Low, 0, Low}) | low;
            }
        }
    }

    // The upper eight bits of sixteen samples of a group on. Reads sixteen bytes from where the last eight begin.
    static TOV_ALWAYS_INLINE Bytes HighBytes(std::uint8_t const *from)
    {
        if constexpr (Packing == TOV_PACKED_GEV) {
            return Shuffle<HighPlaces>(Load<Bytes>(from), Load<Bytes>(from + BytesOf8));
        } else {
            return Shuffle<OddBytes>((Bytes)AtTop(from), (Bytes)AtTop(from + BytesOf8));
        }
    }

    // One sample, reading no byte but its own.
    static TOV_ALWAYS_INLINE unsigned Sample(std::uint8_t const *line, std::size_t i)
    {
        unsigned const word = line[Low(i)] | line[High(i)] << 8;
        if constexpr (Packing == TOV_PACKED_GEV) {
            constexpr unsigned Low = (1u << (Depth - 8)) - 1;
            return (word >> 8) << (Depth - 8) | (word >> (i % 2 * 4) & Low);
        } else {
            return std::uint16_t(word * Factor(i)) >> (16 - Depth);
        }
    }
};

// Output may have any alignment: an attribute of a type does not reach through a template's argument.
template<class Out>
TOV_ALWAYS_INLINE void Put(Out sample, std::uint8_t *out)
{
    std::memcpy(out, &sample, sizeof sample);
}

// Deep samples are shifted up by `up` bits, which is 0 unless Shifted.
template<class F, class Out, bool Shifted>
TOV_ALWAYS_INLINE void UnpackForm(std::uint8_t const *line, std::size_t first, std::size_t count, unsigned up,
                                  std::uint8_t *out)
{
    constexpr unsigned Shift = sizeof(Out) == 1 ? F::SampleDepth - 8 : 0;
    std::size_t i = first;
    std::size_t const end = first + count;
    for (; i < end && i % F::Group != 0; ++i, out += sizeof(Out))
        Put(Out(F::Sample(line, i) >> Shift << up), out);

    // A step reads its last sixteen bytes from where its last eight samples begin.
    constexpr std::size_t Step = sizeof(Out) == 1 ? 2 * Lanes : Lanes;
    constexpr std::size_t StepBytes = Step / Lanes * F::BytesOf8;
    constexpr std::size_t StepReads = StepBytes - F::BytesOf8 + Vector;
    std::uint8_t const *from = line + i * F::Bits / 8;
    std::size_t const bytes = (end * F::Bits + 7) / 8 - i * F::Bits / 8;
    std::size_t steps = (end - i) / Step;
    if (bytes < StepReads)
        steps = 0;
    else if ((bytes - StepReads) / StepBytes + 1 < steps)
        steps = (bytes - StepReads) / StepBytes + 1;
    i += steps * Step;
#pragma GCC unroll 4
    for (; steps != 0; --steps, from += StepBytes, out += Step * sizeof(Out)) {
        if constexpr (sizeof(Out) == 1) {
            Bytes const step = F::HighBytes(from);
            std::memcpy(out, &step, sizeof step);
        } else {
            Words step = F::Samples(from);
            if constexpr (Shifted)
                step = step << up;
            std::memcpy(out, &step, sizeof step);
        }
    }
    for (; i < end; ++i, out += sizeof(Out))
        Put(Out(F::Sample(line, i) >> Shift << up), out);
}

// `packing` and `depth` are one of the six packed forms.
template<class Out, bool Shifted>
TOV_ALWAYS_INLINE void UnpackAny(TovPacking packing, unsigned depth, std::uint8_t const *line, std::size_t first,
                                 std::size_t count, unsigned up, std::uint8_t *out)
{
    bool const ten = depth == 10;
    if (packing == TOV_PACKED_GEV)
        ten ? UnpackForm<Form<TOV_PACKED_GEV, 10>, Out, Shifted>(line, first, count, up, out)
            : UnpackForm<Form<TOV_PACKED_GEV, 12>, Out, Shifted>(line, first, count, up, out);
    else if (packing == TOV_PACKED_P)
        ten ? UnpackForm<Form<TOV_PACKED_P, 10>, Out, Shifted>(line, first, count, up, out)
            : UnpackForm<Form<TOV_PACKED_P, 12>, Out, Shifted>(line, first, count, up, out);
    else
        ten ? UnpackForm<Form<TOV_PACKED_WEFT, 10>, Out, Shifted>(line, first, count, up, out)
            : UnpackForm<Form<TOV_PACKED_WEFT, 12>, Out, Shifted>(line, first, count, up, out);
}

template<unsigned Shift>
TOV_ALWAYS_INLINE void Narrow(Sample16 const *__restrict in, std::size_t count, std::uint8_t *__restrict out)
{
    for (std::size_t i = 0; i < count; ++i)
        out[i] = std::uint8_t(in[i] >> Shift);
}

bool IsBytes(TovPixelTypeInfo const &info)
{
    return info.bitDepth == 8; // Mono8_WEftPacked and RGB_8_WEFT_Packed have nothing to pack
}

} // namespace

// Outside the unnamed namespace: the loader resolves the clones by their symbols.

TOV_CPU_CLONES void UnpackPacked16(TovPacking packing, unsigned depth, std::uint8_t const *line, std::size_t first,
                                   std::size_t count, Sample16 *samples)
{
    UnpackAny<std::uint16_t, false>(packing, depth, line, first, count, 0, reinterpret_cast<std::uint8_t *>(samples));
}

TOV_CPU_CLONES void UnpackShifted16(TovPacking packing, unsigned depth, std::uint8_t const *line, std::size_t first,
                                    std::size_t count, unsigned shift, Sample16 *samples)
{
    UnpackAny<std::uint16_t, true>(packing, depth, line, first, count, shift,
                                   reinterpret_cast<std::uint8_t *>(samples));
}

TOV_CPU_CLONES void UnpackPacked8(TovPacking packing, unsigned depth, std::uint8_t const *line, std::size_t first,
                                  std::size_t count, std::uint8_t *samples)
{
    UnpackAny<std::uint8_t, false>(packing, depth, line, first, count, 0, samples);
}

TOV_CPU_CLONES void NarrowSamples(unsigned depth, Sample16 const *in, std::size_t count, std::uint8_t *out)
{
    // A shift that the compiler knows stays within 16-bit lanes.
    switch (depth) {
    case 10:
        return Narrow<2>(in, count, out);
    case 12:
        return Narrow<4>(in, count, out);
    case 14:
        return Narrow<6>(in, count, out);
    default:
        return Narrow<8>(in, count, out);
    }
}

TOV_CPU_CLONES void WidenSamples(std::uint8_t const *__restrict in, std::size_t count, Sample16 *__restrict out)
{
    for (std::size_t i = 0; i < count; ++i)
        out[i] = in[i];
}

std::uint32_t SamplesPerPixel(TovPixelTypeInfo const &info)
{
    // Pairs of 4:2:2 pixels share their chroma; all others have a sample for each of their channels.
    return info.family == TOV_FAMILY_YUV && info.channels == 3 ? 2 : info.channels;
}

void Unpack16(TovPixelTypeInfo const &info, std::uint8_t const *line, std::size_t first, std::size_t count,
              Sample16 *samples, unsigned shift)
{
    if (IsBytes(info))
        WidenSamples(line + first, count, samples);
    else if (info.packing == TOV_UNPACKED)
        std::memcpy(samples, line + first * 2, count * 2);
    else if (shift != 0)
        UnpackShifted16(info.packing, info.bitDepth, line, first, count, shift, samples);
    else
        UnpackPacked16(info.packing, info.bitDepth, line, first, count, samples);
}

void Unpack8(TovPixelTypeInfo const &info, std::uint8_t const *line, std::size_t first, std::size_t count,
             std::uint8_t *samples)
{
    if (IsBytes(info))
        std::memcpy(samples, line + first, count);
    else if (info.packing == TOV_UNPACKED)
        NarrowSamples(info.bitDepth, reinterpret_cast<Sample16 const *>(line + first * 2), count, samples);
    else
        UnpackPacked8(info.packing, info.bitDepth, line, first, count, samples);
}

} // namespace TovPixels

std::uint32_t TovSamplesPerPixel(std::uint32_t pixelType)
{
    TovPixelTypeInfo const *info = TovGetPixelTypeInfo(pixelType);
    return info ? TovPixels::SamplesPerPixel(*info) : 0;
}

bool TovUnpackLine(std::uint32_t pixelType, void const *line, std::uint32_t width, std::uint16_t *samples,
                   std::uint32_t first)
{
    TovPixelTypeInfo const *info = TovGetPixelTypeInfo(pixelType);
    if (!info)
        return false;
    std::size_t const each = TovPixels::SamplesPerPixel(*info);
    TovPixels::Unpack16(*info, static_cast<std::uint8_t const *>(line), first * each, width * each, samples);
    return true;
}

bool TovUnpackLine8(std::uint32_t pixelType, void const *line, std::uint32_t width, std::uint8_t *samples,
                    std::uint32_t first)
{
    TovPixelTypeInfo const *info = TovGetPixelTypeInfo(pixelType);
    if (!info)
        return false;
    std::size_t const each = TovPixels::SamplesPerPixel(*info);
    TovPixels::Unpack8(*info, static_cast<std::uint8_t const *>(line), first * each, width * each, samples);
    return true;
}
