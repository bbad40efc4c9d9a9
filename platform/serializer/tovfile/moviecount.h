// What a movie of others' formats holds, as their libraries read it.
#pragma once

#include <cstdint>

struct MovieCount
{
    std::int64_t frames = -1; // whole ones; -1 for what cannot be read
    bool isEnded = false;     // false where its writer died, or is still at it
};
