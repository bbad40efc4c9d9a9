// What a simulated sensor sees, in the pixel format that is asked for: a test chart with gradients, a star, line pairs
// and patches, and on it parts that move, the frame's number, and noise.
//
// Expensive work is done when the format or the look changes. A frame is then one copy: each band of its lines is taken
// from one of a few finished pictures that differ in their noise, and the moving parts are finished as well.
//
// Used by one thread at a time.
#pragma once

#include "simmodel.h"

#include <memory>
#include <vector>

class SimScene
{
public:
    SimScene(std::uint32_t sensorWidth, std::uint32_t sensorHeight, bool colour);
    ~SimScene();
    // Makes the finished pictures anew if something has changed.
    void Prepare(SimFormat const &format, SimLook const &look);
    // One frame of `Payload()` bytes into `out`. `seconds` is the time of the frame, which moves what moves.
    void Draw(std::uint64_t frame, double seconds, std::uint8_t *out) const;

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};
