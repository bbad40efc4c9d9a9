// Frame-sized memory that lives with its owner, grows when asked to and keeps its pages from frame to frame. One thread
// at a time.
#pragma once

#include "tovimage.h"

#include <cstddef>
#include <new>

template<class T>
class FrameMemory
{
public:
    FrameMemory() = default;
    // Room for `count` from the beginning. Throws std::bad_alloc.
    explicit FrameMemory(std::size_t count)
    {
        Get(count);
    }
    ~FrameMemory()
    {
        TovFreeFrameMemory(m_data);
    }
    FrameMemory(FrameMemory const &) = delete;
    FrameMemory &operator=(FrameMemory const &) = delete;

    // Room for `count` at least; the contents are lost when it has to grow. Null when there is no memory.
    T *TryGet(std::size_t count)
    {
        if (count > m_capacity) {
            TovFreeFrameMemory(m_data);
            m_data = static_cast<T *>(TovAllocFrameMemory(count * sizeof(T)));
            m_capacity = m_data ? count : 0;
        }
        return m_data;
    }
    // The same; throws std::bad_alloc.
    T *Get(std::size_t count)
    {
        T *const data = TryGet(count);
        if (!data && count > 0)
            throw std::bad_alloc();
        return data;
    }
    T *Data() const
    {
        return m_data;
    }

private:
    T *m_data = nullptr;
    std::size_t m_capacity = 0;
};
