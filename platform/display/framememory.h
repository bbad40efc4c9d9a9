// A block of frame memory that grows when asked to and keeps its pages from frame to frame. One thread at a time.
#pragma once

#include "tovimage.h"

#include <cstddef>
#include <new>

template<class T>
class FrameMemory
{
public:
    FrameMemory() = default;
    ~FrameMemory()
    {
        TovFreeFrameMemory(m_data);
    }
    FrameMemory(FrameMemory const &) = delete;
    FrameMemory &operator=(FrameMemory const &) = delete;

    // Room for so many; what stood there is gone when it has to grow.
    T *Get(std::size_t count)
    {
        if (count > m_capacity) {
            TovFreeFrameMemory(m_data);
            m_capacity = 0;
            m_data = static_cast<T *>(TovAllocFrameMemory(count * sizeof(T)));
            if (!m_data)
                throw std::bad_alloc();
            m_capacity = count;
        }
        return m_data;
    }
    T *Data() const
    {
        return m_data;
    }

private:
    T *m_data = nullptr;
    std::size_t m_capacity = 0;
};
