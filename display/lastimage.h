// The copy of the frame that the live view has shown last, for all that read its pixels: the read-out under the
// pointer, the analysis, and the view itself once no frame comes.
//
// Threads: MakeRoom and Store on the display thread; Release on the GUI thread, while the display thread sleeps; the
// rest on the GUI thread. An image is published whole and freed in Release alone, so a reader never loses it while
// reading. Its pixels have no lock: while the next frame is copied, they belong to two frames.
#pragma once

#include "tovmisc.h"

#include <atomic>
#include <cstdint>
#include <mutex>
#include <vector>

struct _TovImage;

class LastImage
{
public:
    LastImage() = default;
    ~LastImage();
    LastImage(LastImage const &) = delete;
    LastImage &operator=(LastImage const &) = delete;

    // An image of that shape from now on, without a frame yet; none if there is no memory for it.
    void MakeRoom(_TovImage const &shape);
    // Copies a frame of that shape. Fails as well where there was no memory.
    TovStatus Store(_TovImage const *frame);
    void Release();

    _TovImage *Get() const // null from Release to MakeRoom
    {
        return m_image;
    }
    // Frames stored since MakeRoom.
    std::uint64_t Count() const
    {
        return m_count.load(std::memory_order_acquire);
    }
    // Keeps the next frame from being stored for as long as it is held; empty when one is being stored right now.
    std::unique_lock<std::mutex> TryHold();

private:
    std::mutex m_overwriteMutex; // held while the pixels are overwritten
    std::atomic<_TovImage *> m_image{nullptr};
    std::atomic<std::uint64_t> m_count{0};
    std::vector<_TovImage *> m_replaced; // until Release, because a reader may hold them; used by MakeRoom and Release
};
