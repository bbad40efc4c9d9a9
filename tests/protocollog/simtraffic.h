// The packets of a camera: its frames, its events and its registers.
#pragma once

#include "../support/simcamera.h"

#include <functional>
#include <mutex>
#include <vector>

struct SimPacketSeen
{
    std::uint32_t channel;
    std::vector<std::uint8_t> bytes;
};

// What the channels of a camera tell from here on.
class PacketCollector
{
public:
    explicit PacketCollector(TovCam::Device &device) : m_device(device)
    {
        for (Channel &channel : m_channels)
            m_device.RegisterEvent(channel.id, Take, &channel);
    }
    PacketCollector(PacketCollector const &) = delete;
    PacketCollector &operator=(PacketCollector const &) = delete;

    std::vector<SimPacketSeen> Stop()
    {
        for (Channel &channel : m_channels)
            m_device.UnregisterEvent(channel.id, Take, &channel);
        return std::move(m_packets);
    }

private:
    struct Channel
    {
        PacketCollector *collector;
        std::uint32_t id;
    };
    static void Take(void const *data, unsigned long size, void *user)
    {
        auto const *const channel = static_cast<Channel *>(user);
        auto const *const bytes = static_cast<std::uint8_t const *>(data);
        std::lock_guard const lock(channel->collector->m_mutex);
        channel->collector->m_packets.push_back({channel->id, {bytes, bytes + size}});
    }

    TovCam::Device &m_device;
    Channel m_channels[3] = {
        {this, TovCam::EventControlChannel}, {this, TovCam::EventStreamChannel}, {this, TovCam::EventEventChannel}};
    std::mutex m_mutex;
    std::vector<SimPacketSeen> m_packets; // m_mutex while channels are registered
};

// Whether all of them came.
inline bool RunFrames(TovCam::Device &device, int frames)
{
    TovCam::Stream *const stream = device.GetStreamByIndex(0);
    TovCam::ParamArray *const nodes = device.GetCameraParameters(nullptr);
    bool all = stream->AllocBufferQueue(nullptr, 8) == 0 && stream->StartAcquisition(-1, 0) == 0 &&
               nodes->ExecuteCommand("AcquisitionStart") == 0;
    for (int i = 0; i < frames && all; ++i) {
        TovCam::Buffer *const buffer = stream->GetBuffer(90000, nullptr);
        all = buffer && stream->QueueBuffer(buffer) == 0;
    }
    all = nodes->ExecuteCommand("AcquisitionStop") == 0 && all;
    stream->StopAcquisition(0);
    stream->ReleaseBufferQueue();
    return all;
}

class SimTraffic
{
public:
    explicit SimTraffic(char const *model) : m_system(TovCam_GetSystem())
    {
        m_device = TovCam_CreateDevice(FindSimulated(m_system, model), 2, nullptr);
    }
    ~SimTraffic()
    {
        if (m_device)
            m_device->Release();
        m_system->Release();
    }
    SimTraffic(SimTraffic const &) = delete;
    SimTraffic &operator=(SimTraffic const &) = delete;

    TovCam::ParamArray *Nodes() const
    {
        return m_device ? m_device->GetCameraParameters(nullptr) : nullptr;
    }
    // What is told while these many frames run and the features are set.
    std::vector<SimPacketSeen> Collect(int frames, std::function<void(TovCam::ParamArray &)> const &setFeatures)
    {
        PacketCollector collector(*m_device);
        setFeatures(*Nodes());
        RunFrames(*m_device, frames);
        return collector.Stop();
    }

private:
    TovCam::System *const m_system;
    TovCam::Device *m_device = nullptr;
};
