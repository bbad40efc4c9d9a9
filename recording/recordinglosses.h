// What a recording loses itself, and where the frames were lost that are missing between those it has written. Whether
// the disk is to blame for a full queue, or the program, is told by where the recording thread spends its time.
//
// Threads: the recording thread, or any while that sleeps; AddTo on any.
#pragma once

#include "grabbingfifo.h"
#include "lossfindings.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>

class RecordingLosses
{
public:
    // A recording begins.
    void Begin();
    // A frame is in hand, before which that was lost.
    void Take(GrabbingFifo::Loss const &loss);
    // For that frame's row: where frames were lost since the row before, and what this one lacks.
    std::string Words() const;
    // What became of it, and the time that it took, a part of which the disk had.
    void Written();
    void Failed(bool byDisk);
    void Spent(std::chrono::nanoseconds all, std::chrono::nanoseconds disk);
    // The recording ends; the FIFO has dropped so many frames meanwhile, and so many that were written are lost.
    void End(std::int64_t dropped, std::int64_t lost);

    // Adds what was lost by all recordings to what the FIFO knows.
    void AddTo(LossCounts &counts) const;

private:
    bool IsDiskSlow() const
    {
        return m_disk * 2 > m_time;
    }
    void BlameDisk(std::int64_t dropped);

    LossPlaces m_before, m_own;    // of the frame in hand
    LossPlaces m_since;            // the row before, of frames that failed
    bool m_any = false;            // row
    double m_time = 0, m_disk = 0; // nanoseconds, the last frames' for the most part
    std::int64_t m_dropped = 0;    // by the FIFO, before frames that were taken
    std::atomic<std::int64_t> m_droppedByDisk{0}, m_unwritten{0}, m_unconverted{0};
};
