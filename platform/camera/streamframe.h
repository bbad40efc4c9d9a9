// The frames of a real camera, whoever receives them: memory from the pool, and what the camera says of its content.
#pragma once

#include "chunkfacts.h"
#include "tovcamera.h"
#include "tovimage.h"

#include <arv.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

// The announced shape of a frame; a single frame's may differ.
struct StreamShape
{
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint32_t pfnc = 0;
    std::uint32_t linePadding = 0; // bytes behind each line
    bool operator==(StreamShape const &other) const = default;
};

// What a camera's features say of its frames.
struct StreamFormat
{
    StreamShape shape;
    std::size_t payload = 0;         // bytes
    std::uint64_t tickFrequency = 0; // of timestamps; 0: the camera has none
    TovPixelTypeInfo const *info = nullptr;
    std::shared_ptr<ChunkFacts const> chunkFacts; // null where nothing comes with the frames
};

constexpr std::size_t StreamFrameLimit = std::size_t(1) << 30; // bytes; more than any sensor sends
constexpr std::uint32_t StreamQueueLimit = 10000;              // frames

// A status; TOV_CAM_ERR_GENICAM_OUT_OF_RANGE for frames that nobody could read. `chunkOrder` is that of the transport's
// chunks. With the device's lock held.
std::int32_t ReadStreamFormat(ArvDevice *device, std::endian chunkOrder, StreamFormat &format);

class StreamFrame : public TovCam::Buffer
{
public:
    StreamFrame() = default;
    virtual ~StreamFrame();
    StreamFrame(StreamFrame const &) = delete;
    StreamFrame &operator=(StreamFrame const &) = delete;

    // False without memory.
    bool Make(StreamFormat const &format);
    // The header for frames of that shape, whose pixels begin at `offset`. False when they would not fit.
    bool SetShape(StreamShape const &shape, TovPixelTypeInfo const &info, std::size_t offset = 0);
    // The same, with the announced shape in the place of one that does not fit; false then.
    bool Describe(StreamShape const &shape, std::size_t offset, StreamFormat const &announced);

    _TovImage *GetImage() override
    {
        return m_image;
    }
    std::uint64_t GetBufferSize() override
    {
        return m_size;
    }
    std::uint64_t GetTimestamp() override
    {
        return m_image->timestamp;
    }
    std::uint64_t GetFrameID() override
    {
        return m_image->frameID;
    }
    bool IsIncomplete() override
    {
        return m_incomplete;
    }

    bool GetFacts(TovCam::FrameFacts *facts) override
    {
        *facts = {};
        facts->arrival = m_arrival;
        facts->missingBytes = m_missingBytes;
        if (m_chunkFacts && !m_chunks.empty())
            m_chunkFacts->Read(m_chunks, *facts);
        return m_arrival != 0;
    }

    StreamShape m_shape; // of the header
    _TovImage *m_image = nullptr;
    std::uint8_t *m_memory = nullptr;
    std::size_t m_payload = 0;                      // announced
    std::size_t m_room = 0;                         // of the memory
    std::size_t m_size = 0;                         // received
    std::span<std::uint8_t const> m_chunks;         // the chunk data of a whole frame, for FindChunk; empty without
    std::shared_ptr<ChunkFacts const> m_chunkFacts; // the format's
    std::int64_t m_arrival = 0;                     // nanoseconds since 1970; 0: not known
    std::uint64_t m_missingBytes = 0;               // of an incomplete one, where that is known
    bool m_incomplete = false;
    std::atomic<bool> m_held{false}; // between GetBuffer and QueueBuffer
};
