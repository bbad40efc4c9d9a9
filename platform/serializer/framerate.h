// A movie's frame rate as files keep it.
#pragma once

// Frames a second: rate / scale.
struct FrameRate
{
    int rate;
    int scale;
};

// The fraction nearest to `fps`, neither part 0 or above 1,001,000. Rates outside 1e-6 to 1e6 become the nearest of
// these.
FrameRate ToFrameRate(double fps);
