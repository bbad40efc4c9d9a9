// The frames of a USB camera: an ArvStream whose buffers wrap pooled memory of ours.
#pragma once

#include "frameids.h"
#include "reachability.h"
#include "streamframe.h"
#include "usblosses.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

class AravisStream final : public TovCam::Stream
{
public:
    // All of them outlive the stream.
    AravisStream(ArvDevice *device, std::recursive_mutex &access, Reachability &reachability);
    ~AravisStream();

    std::int32_t QueueBuffer(TovCam::Buffer *buffer) override;
    TovCam::Buffer *GetBuffer(std::uint32_t timeout, std::int32_t *error) override;
    void CancelGetBuffer() override;
    std::int32_t StartAcquisition(std::int64_t frames, std::uint32_t flags) override;
    std::int32_t StopAcquisition(std::uint32_t flags) override;
    std::int32_t AllocBufferQueue(void *context, std::uint32_t count) override;
    std::int32_t ReleaseBufferQueue() override;
    bool GetLosses(TovCam::StreamLosses *losses) override;

    // Stops and frees everything, buffers that were not given back included.
    void Close();

private:
    class Frame;

    std::int32_t CreateStream();
    // Frees the ArvStream and the buffers in the background; the device's lock is held.
    void Dispose();
    void RecycleFilled();
    Frame *Describe(ArvBuffer *buffer);
    static bool DescribeImage(ArvBuffer *buffer, std::uint8_t const *memory, StreamShape &shape, std::size_t &offset);

    ArvDevice *const m_device;
    std::recursive_mutex &m_access;
    Reachability &m_reachability;

    // Set by the thread that controls the acquisition while nobody is in GetBuffer.
    ArvStream *m_stream = nullptr;
    std::vector<std::unique_ptr<Frame>> m_frames;
    StreamFormat m_format;
    std::shared_ptr<BackgroundJob const> m_disposal; // of the last queue
    FrameIdCounter m_frameIds;                       // and by the thread in GetBuffer, as the next one
    UsbLosses m_losses;
    std::int64_t m_framesLeft = -1; // the same; -1 is endless

    std::atomic<bool> m_started{false};
    std::atomic<bool> m_cancelled{false};
    std::atomic<std::uint32_t> m_held{0}; // frames between GetBuffer and QueueBuffer
};
