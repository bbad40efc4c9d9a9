// The question before each access to a camera: is it worth asking?
#pragma once

#include "haste.h"

#include <cstdint>

// Where a camera may be gone and each request to it would wait for seconds, the gate refuses the access at once. Called
// with the device's lock held, but for Hurry.
class AccessGate : public Hurried
{
public:
    virtual std::int32_t Enter() = 0; // 0, or the status with which the access is refused unasked
    virtual void Leave() = 0;         // after every Enter

protected:
    ~AccessGate() = default;
};
