// Plain, slow arithmetic to compare the analysis with.
#pragma once

#include "histo.h"

#include "../image/reference.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

enum class Picture { Random, Black, Flat, Saturated };

inline void Fill(Pixels &pixels, Picture picture)
{
    if (picture == Picture::Random)
        return;
    int const byte = picture == Picture::Black ? 0 : picture == Picture::Flat ? 0x25 : 0xFF;
    std::fill(pixels.Memory().begin(), pixels.Memory().end(), byte);
    TovPixelTypeInfo const &info = pixels.Info();
    if (info.packing != TOV_UNPACKED || info.bitDepth <= 8)
        return;
    for (std::uint32_t y = 0; y < pixels.Image()->height; ++y)
        for (std::size_t i = 1; i < TovLineBytes(info.pixelType, pixels.Image()->width); i += 2)
            pixels.Line(y)[i] &= 0xFF >> (16 - info.bitDepth);
}

// The sample at that byte; past the end, zero.
inline int SampleAt(Pixels &pixels, std::int64_t offset, int bytes)
{
    int value = 0;
    for (int i = 0; i < bytes; ++i)
        if (offset + i >= 0 && offset + i < std::int64_t(pixels.Memory().size()))
            value |= pixels.Memory()[std::size_t(offset + i)] << 8 * i;
    return value;
}

struct Moments
{
    double mean = 0.0, stdDev = 0.0;
};

inline Moments MomentsOf(std::vector<std::int32_t> const &values)
{
    Moments moments;
    for (double const value : values)
        moments.mean += value / double(values.size());
    for (double const value : values)
        moments.stdDev += (value - moments.mean) * (value - moments.mean) / double(values.size());
    moments.stdDev = std::sqrt(moments.stdDev);
    return moments;
}

inline void ExpectMoments(SimpleHisto const &series, Moments const &expected)
{
    EXPECT_NEAR(series.mean, expected.mean, 1e-6 * (1 + expected.mean));
    // A deviation near zero is the root of what rounding leaves.
    EXPECT_NEAR(series.stdDev, expected.stdDev, 1e-6 * (1 + expected.stdDev) + 1e-6 * expected.mean);
}
