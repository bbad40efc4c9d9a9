// Exposure and gain of a frame, as its chunk data tell.
#pragma once

#include "tovcamera.h"

#include <arv.h>

#include <bit>
#include <cstdint>
#include <memory>
#include <span>

class ChunkValue;

class ChunkFacts
{
public:
    // Null for a camera whose description has none of them. `order` as FindChunk's. With the device's lock held; the
    // camera may be asked.
    static std::shared_ptr<ChunkFacts const> Find(ArvDevice *device, std::endian order);
    ~ChunkFacts();

    // What the chunks do not have becomes no number. Any thread.
    void Read(std::span<std::uint8_t const> chunks, TovCam::FrameFacts &facts) const;

private:
    explicit ChunkFacts(std::endian order);

    // Set by Find.
    std::endian const m_order;
    std::unique_ptr<ChunkValue> m_exposure, m_gain; // null: not told
    double m_microseconds = 1;                      // in the exposure's unit
};
