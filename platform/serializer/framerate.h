// A movie's frame rate as files keep it.
#pragma once

// Frames a second: rate / scale.
struct FrameRate
{
    int rate;
    int scale;
};

// A fraction that differs from `fps` by at most 1e-8 of it, in small numbers where they do; neither part is 0. Rates
// outside 1e-6 to 1e6 become the nearest of these.
FrameRate ToFrameRate(double fps);
