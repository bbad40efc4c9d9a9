// The packets of a simulated camera: its frames, its events and its registers while features are set.
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
        m_packets.clear();
        Channel channels[] = {
            {this, TovCam::EventControlChannel}, {this, TovCam::EventStreamChannel}, {this, TovCam::EventEventChannel}};
        for (Channel &channel : channels)
            m_device->RegisterEvent(channel.id, Take, &channel);
        TovCam::Stream *const stream = m_device->GetStreamByIndex(0);
        setFeatures(*Nodes());
        stream->AllocBufferQueue(nullptr, 4);
        stream->StartAcquisition(-1, 0);
        Nodes()->ExecuteCommand("AcquisitionStart");
        for (int i = 0; i < frames; ++i) {
            if (TovCam::Buffer *const buffer = stream->GetBuffer(90000, nullptr))
                stream->QueueBuffer(buffer);
        }
        Nodes()->ExecuteCommand("AcquisitionStop");
        stream->StopAcquisition(0);
        stream->ReleaseBufferQueue();
        for (Channel &channel : channels)
            m_device->UnregisterEvent(channel.id, Take, &channel);
        return std::move(m_packets);
    }

private:
    struct Channel
    {
        SimTraffic *traffic;
        std::uint32_t id;
    };
    static void Take(void const *data, unsigned long size, void *user)
    {
        auto const *const channel = static_cast<Channel *>(user);
        auto const *const bytes = static_cast<std::uint8_t const *>(data);
        std::lock_guard<std::mutex> const lock(channel->traffic->m_mutex);
        channel->traffic->m_packets.push_back({channel->id, {bytes, bytes + size}});
    }

    TovCam::System *const m_system;
    TovCam::Device *m_device = nullptr;
    std::mutex m_mutex;
    std::vector<SimPacketSeen> m_packets; // m_mutex while channels are registered
};
