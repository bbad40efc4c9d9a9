#include "framerate.h"

extern "C" {
#include <libavutil/rational.h>
}

#include <algorithm>

FrameRate ToFrameRate(double fps)
{
    // Fine enough for the rates of television, and for one frame in ten days.
    AVRational const rate = av_d2q(std::clamp(fps, 1e-6, 1e6), 1001000);
    return {std::max(rate.num, 1), std::max(rate.den, 1)};
}
