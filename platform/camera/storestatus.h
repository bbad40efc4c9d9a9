// How a function hands a status to a caller that may not want it.
#pragma once

#include <cstdint>

inline void StoreStatus(std::int32_t *error, std::int32_t status)
{
    if (error)
        *error = status;
}
