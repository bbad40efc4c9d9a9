// How long a thread has waited for the system to make and write files.
#pragma once

#include <chrono>
#include <cstdint>

// Counts for as long as it lives; what is within another one counts once.
class DiskTime
{
public:
    DiskTime()
    {
        if (s_depth++ == 0)
            s_begin = std::chrono::steady_clock::now();
    }
    ~DiskTime()
    {
        if (--s_depth == 0)
            s_spent += static_cast<std::uint64_t>((std::chrono::steady_clock::now() - s_begin).count());
    }
    DiskTime(DiskTime const &) = delete;
    DiskTime &operator=(DiskTime const &) = delete;

    static std::uint64_t Spent() // nanoseconds, by this thread
    {
        return s_spent;
    }

private:
    static inline thread_local int s_depth = 0;
    static inline thread_local std::uint64_t s_spent = 0;
    static inline thread_local std::chrono::steady_clock::time_point s_begin;
};
