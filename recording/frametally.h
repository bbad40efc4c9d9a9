// What the recording thread has done with the frames that it took, for the ledger. A frame that the serializer has
// taken may be in an encoder still, and is saved once a reader of the file would find it.
//
// Threads: the recording thread, or any while that sleeps; SavedIncomplete on any.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>

class FrameTally
{
public:
    // A recording begins.
    void Clear();
    void AddUnwanted();
    void AddFailed();
    // The serializer has taken a frame, and `readable` frames are in its file by now: -1 where it does not know, which
    // counts as all.
    void AddWritten(bool incomplete, std::int64_t readable);
    // The file is closed. What was taken and is not in it has failed. Returns how many failed that were not known to
    // have failed before; negative if frames that were refused with an error have got into the file all the same.
    std::int64_t Close(std::int64_t readable);

    std::int64_t Written() const // taken by the serializer
    {
        return m_written;
    }
    std::int64_t Saved() const
    {
        return m_saved;
    }
    std::int64_t SavedIncomplete() const // of the saved ones
    {
        return m_savedIncomplete.load(std::memory_order_relaxed);
    }
    std::int64_t Unwanted() const
    {
        return m_unwanted;
    }
    std::int64_t Failed() const
    {
        return m_failed;
    }

private:
    void Settle(std::int64_t readable);

    std::int64_t m_written = 0;
    std::int64_t m_saved = 0;
    std::atomic<std::int64_t> m_savedIncomplete{0};
    std::deque<bool> m_underWay; // for each frame written but not known to be in the file, a second's worth: whether it
                                 // is incomplete
    std::int64_t m_unwanted = 0;
    std::int64_t m_failed = 0;
    bool m_readableKnown = false; // when the last frame was written
};
