// What the program holds on the heap, for tests that repeat a step many times. Resident memory would also count what
// threads and pools settle at late. 0 under sanitizers, which find leaks themselves.
#pragma once

#include <malloc.h>

inline double HeapMegabytes()
{
    struct mallinfo2 const info = mallinfo2();
    return static_cast<double>(info.uordblks + info.hblkhd) / 1048576.0;
}
