// Pictures as programs see them that know samples of one or two whole bytes and nothing else.
#pragma once

#include "tovimage.h"

#include <cstdint>
#include <string>

struct SampleLayout
{
    unsigned bytes = 1;        // of a sample, 1 or 2
    std::uint64_t perLine = 0; // pixels, or bytes where samples take no whole ones
    unsigned channels = 1;
    bool whole = false;
};

// `lineBytes` as the pixels have them; `info` is null for an unknown type.
inline SampleLayout SamplesOf(TovPixelTypeInfo const *info, std::uint32_t width, std::uint64_t lineBytes)
{
    if (info && (info->packing == TOV_UNPACKED || info->bitDepth == 8)) {
        SampleLayout const samples{info->bitDepth > 8 ? 2u : 1u, width, TovSamplesPerPixel(info->pixelType), true};
        if (samples.bytes * samples.perLine * samples.channels == lineBytes)
            return samples;
    }
    return {1, lineBytes, 1, false};
}

// The colours of a mosaic's filters, line by line; empty for what has none.
inline std::string MosaicColours(TovPixelTypeInfo const *info)
{
    std::string colours;
    unsigned const side = !info                                  ? 0
                          : info->family == TOV_FAMILY_BAYER     ? 2
                          : info->family == TOV_FAMILY_TRUESENSE ? 4
                                                                 : 0;
    for (unsigned i = 0; i < side * side; ++i)
        colours += TovGetFilterColour(info, i % side, i / side);
    return colours;
}
