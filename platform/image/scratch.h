// A piece of frame memory for the time of one conversion.
#pragma once

#include "tovimage.h"

#include <new>

namespace TovPixels {

template<class T>
class Scratch
{
public:
    explicit Scratch(std::size_t count) : m_data(static_cast<T *>(TovAllocFrameMemory(count * sizeof(T))))
    {
        if (!m_data)
            throw std::bad_alloc();
    }
    ~Scratch()
    {
        TovFreeFrameMemory(m_data);
    }
    Scratch(Scratch const &) = delete;
    Scratch &operator=(Scratch const &) = delete;

    T *Data() const
    {
        return m_data;
    }

private:
    T *const m_data;
};

} // namespace TovPixels
