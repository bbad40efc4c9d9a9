#include "framerate.h"

extern "C" {
#include <libavutil/rational.h>
}

#include <algorithm>
#include <climits>
#include <cmath>

FrameRate ToFrameRate(double fps)
{
    fps = std::clamp(fps, 1e-6, 1e6);
    // Fine enough for the rates of television, and for one frame in ten days. Others take larger numbers.
    constexpr int Plain = 1001000;
    constexpr double Near = 1e-8;
    AVRational rate = av_d2q(fps, Plain);
    if (std::abs(av_q2d(rate) / fps - 1) > Near)
        rate = av_d2q(fps, INT_MAX);
    return {std::max(rate.num, 1), std::max(rate.den, 1)};
}
