// The optional status argument of the camera interfaces.
#pragma once

#include <cstdint>

// `error` may be null: the caller does not want to know.
inline void Store(std::int32_t *error, std::int32_t status)
{
    if (error)
        *error = status;
}
