// What became of the frames of one recording.
#pragma once

#include <cstdint>

struct RecordingLedger
{
    std::int64_t acquired = 0;        // came in while it ran, complete or not, or waited in the FIFO when it began
    std::int64_t incomplete = 0;      // of those that came in; they are written like any other
    std::int64_t saved = 0;           // readers of the files find them
    std::int64_t savedIncomplete = 0; // of the saved ones
    std::int64_t unwanted = 0;        // the rule did not want them
    std::int64_t failed = 0;          // could not be converted or written, or are not in the file after all
    std::int64_t droppedSW = 0;       // by the full FIFO
    std::int64_t queued = 0;          // given up at the stop, in the FIFO or with the display
    std::int64_t missing = 0;         // never arrived, and are not among the acquired ones

    bool AddsUp() const
    {
        return acquired == saved + unwanted + failed + droppedSW + queued;
    }
    bool IsWhole() const
    {
        return failed + droppedSW + missing + savedIncomplete == 0;
    }
};
