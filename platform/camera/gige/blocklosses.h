// What is known of the losses around each frame: what happened between the first packet of the frame before and its own
// end. A packet that is dropped while two frames are under way may be missing in either.
//
// One thread at a time.
#pragma once

#include "streamstatistics.h"
#include "tovlosses.h"

class BlockLosses
{
public:
    // A frame that is over.
    struct Ended
    {
        std::uint64_t begin = 0; // what Now() gave when it began
        std::uint32_t packets = 0, missing = 0;
        bool hasFirst = false, hasLast = false; // of its packets
    };

    explicit BlockLosses(StreamStatistics const &statistics) : m_statistics(statistics)
    {
    }
    // Forgets what was before.
    void Begin();
    std::uint64_t Now() const;
    // Before the next frame that is over.
    void AddSkipped(std::uint64_t frames);
    void AddUnbuffered();
    // In the order of the frames.
    TovCam::FrameLosses Of(Ended const &frame);

private:
    StreamStatistics const &m_statistics;
    std::uint64_t m_mark = 0; // when the frame before began
    bool m_isTailMissing = false;
    TovCam::FrameLosses m_next;
};
