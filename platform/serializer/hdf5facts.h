// What is known of a frame beside its picture.
#pragma once

#include <cstdint>
#include <limits>

struct Hdf5Facts
{
    std::int64_t arrival = 0;                                   // nanoseconds since 1970, UTC; 0: not known
    double exposure = std::numeric_limits<double>::quiet_NaN(); // microseconds
    double gain = std::numeric_limits<double>::quiet_NaN();     // as the camera tells
    bool incomplete = false;
    std::uint64_t missingBytes = 0; // of an incomplete one; 0 where that is not known
    std::uint64_t gapBefore = 0;    // frames that were never seen between the frame before and this one
};
