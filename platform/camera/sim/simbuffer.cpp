#include "simbuffer.h"

#include "tovmisc.h"

#include <cmath>
#include <cstring>

namespace {

// A header over the buffer's memory, null without memory for one.
_TovImage *MakeHeader(SimFormat const &format, void *memory)
{
    _TovImage *header = nullptr;
    return TovSucceeded(TovCreateImageHeader(&header, {format.width, format.height}, format.pixelType,
                                             format.LineBytes(), memory))
               ? header
               : nullptr;
}

} // namespace

SimBuffer::~SimBuffer()
{
    TovReleaseImageHeader(&image);
    TovFreeFrameMemory(memory);
}

bool SimBuffer::Create(SimFormat const &newFormat)
{
    format = newFormat;
    capacity = payload = format.Payload();
    // Behind the pixels is room for a line of 16-bit samples, zeroed, as in every image.
    std::size_t const tail = std::size_t{format.width} * 2;
    memory = TovAllocFrameMemory(capacity + tail);
    if (!memory)
        return false;
    std::memset(static_cast<std::uint8_t *>(memory) + capacity, 0, tail);
    image = MakeHeader(format, memory);
    return image != nullptr;
}

bool SimBuffer::Fit(SimFormat const &newFormat)
{
    if (format == newFormat)
        return true;
    if (newFormat.Payload() > capacity)
        return false;
    if (_TovImage *const header = MakeHeader(newFormat, memory)) {
        TovReleaseImageHeader(&image);
        image = header;
        format = newFormat;
        payload = newFormat.Payload();
    }
    return true;
}

_TovImage *SimBuffer::GetImage()
{
    return image;
}

std::uint64_t SimBuffer::GetBufferSize()
{
    return payload;
}

std::uint64_t SimBuffer::GetTimestamp()
{
    return image->timestamp;
}

std::uint64_t SimBuffer::GetFrameID()
{
    return image->frameID;
}

bool SimBuffer::IsIncomplete()
{
    return incomplete;
}

bool SimBuffer::GetFacts(TovCam::FrameFacts *facts)
{
    facts->arrival = std::chrono::duration_cast<std::chrono::nanoseconds>(take.began.time_since_epoch()).count();
    facts->exposure = take.exposure;
    facts->gain = std::round(200.0 * std::log10(take.gain)) / 10.0; // as the feature Gain
    facts->missingBytes = missingBytes;
    return true;
}

bool SimBuffer::GetLosses(TovCam::FrameLosses *out)
{
    *out = losses;
    return true;
}

void SimBufferRing::Reset(std::size_t capacity)
{
    m_slots.assign(capacity, nullptr);
    m_first = m_count = 0;
}

bool SimBufferRing::IsEmpty() const
{
    return m_count == 0;
}

void SimBufferRing::Push(SimBuffer *buffer)
{
    m_slots[(m_first + m_count++) % m_slots.size()] = buffer;
}

SimBuffer *SimBufferRing::Pop()
{
    if (m_count == 0)
        return nullptr;
    SimBuffer *const buffer = m_slots[m_first];
    m_first = (m_first + 1) % m_slots.size();
    --m_count;
    return buffer;
}
