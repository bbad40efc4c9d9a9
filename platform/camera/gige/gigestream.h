// The frames of a GigE camera: what a Receiver brings, in pooled memory of ours.
#pragma once

#include "adapterwatch.h"
#include "receiver.h"
#include "streamstatistics.h"

#include "aravis/frameids.h"
#include "aravis/reachability.h"
#include "streamframe.h"

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

class GigeStream final : public TovCam::Stream, private FrameSink
{
public:
    // Device, lock and reachability outlive the stream. The device is asked for its features alone. The control is kept
    // as long as a goodbye to the camera takes, which may be longer.
    GigeStream(ArvDevice *device, std::recursive_mutex &access, Reachability &reachability,
               std::shared_ptr<StreamControl> control);
    ~GigeStream();

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
    // Where the datagrams are to come from, for the next queue of buffers: null for the socket. Told the port that the
    // camera sends to. By the thread that controls the acquisition.
    using MakeSource = std::function<std::unique_ptr<DatagramSource>(std::uint16_t port)>;
    void SetSource(MakeSource makeSource);
    // Since the device was opened. Any thread.
    StreamStatistics const &GetStatistics() const
    {
        return m_statistics;
    }

private:
    class Frame;
    // Frames in the order in which they came; as many as there are, at most.
    class Ring
    {
    public:
        void Reset(std::size_t most);
        bool IsEmpty() const
        {
            return m_count == 0;
        }
        void Push(Frame *frame);
        Frame *Pop();

    private:
        std::vector<Frame *> m_frames;
        std::size_t m_first = 0, m_count = 0;
    };

    // The receiver's calls.
    bool TakeBuffer(BlockBuffer &buffer) override;
    bool Accepts(BlockFrame const &frame) override;
    void Deliver(BlockFrame const &frame) override;
    void GiveBack(BlockBuffer const &buffer) override;

    std::int32_t OpenChannel();
    std::int32_t MakeFrames(std::uint32_t count);
    // Closes the channel, in the background where the camera does not answer at once; the device's lock is held.
    void Dispose();
    bool Describe(Frame &frame, BlockFrame const &block) const;

    ArvDevice *const m_device;
    std::recursive_mutex &m_access;
    Reachability &m_reachability;
    std::shared_ptr<StreamControl> const m_control;
    StreamStatistics m_statistics;
    AdapterWatch m_adapter;
    MakeSource m_makeSource;

    // Set by the thread that controls the acquisition while nobody is in GetBuffer.
    std::unique_ptr<Receiver> m_receiver;
    std::vector<std::unique_ptr<Frame>> m_frames;
    BlockLayout m_layout;
    StreamFormat m_format;
    std::shared_ptr<BackgroundJob const> m_disposal; // of the last queue
    FrameIdCounter m_frameIds;                       // and by the thread in GetBuffer

    std::mutex m_mutex; // guards what follows; alone, and held for pointer moves
    std::condition_variable m_wake;
    std::vector<Frame *> m_free; // the last one is still in the processor's cache
    Ring m_filled;
    std::int64_t m_framesLeft = -1; // -1 is endless
    bool m_started = false, m_cancelled = false;

    std::atomic<std::uint32_t> m_held{0}; // frames between GetBuffer and QueueBuffer
};
