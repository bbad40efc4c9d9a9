// What the packets that came tell of the losses around each frame: in it, and between it and the frame before.
//
// One thread at a time.
#pragma once

#include "tovlosses.h"

class BlockLosses
{
public:
    // A frame that is over.
    struct Ended
    {
        std::uint32_t packets = 0, missing = 0;
        bool hasFirst = false, hasLast = false; // of its packets
    };

    // Forgets what was before.
    void Begin();
    // Before the next frame that is over.
    void AddSkipped(std::uint64_t frames);
    void AddUnbuffered();
    // In the order of the frames.
    TovCam::FrameLosses Of(Ended const &frame);

private:
    bool m_isTailMissing = false;
    TovCam::FrameLosses m_next;
};
