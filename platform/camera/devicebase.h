// What every open camera has: its node map, its lock, its event subscriptions.
#pragma once

#include "backend.h"
#include "genicam/nodemap.h"

#include <array>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

// Subscriptions of one device. Any thread. No lock is held while a callback runs.
class EventHub
{
public:
    // One subscription per event id; a second one is refused with TOV_CAM_ERR_INVALID_STATE.
    std::int32_t Register(std::uint32_t id, TovCam::EventCallback callback, void *user);
    // Waits until a running callback of the subscription has returned, unless called from within it.
    std::int32_t Unregister(std::uint32_t id, TovCam::EventCallback callback, void *user);
    void UnregisterAll();
    // One relaxed load: whether making a packet for that channel is worth it.
    bool IsWanted(std::uint32_t id) const;
    void Emit(std::uint32_t id, void const *data, std::size_t size);

private:
    struct Subscription
    {
        TovCam::EventCallback callback = nullptr;
        void *user = nullptr;
        int running = 0;                     // callbacks under way
        std::vector<std::thread::id> inside; // their threads
        std::atomic<bool> wanted{false};
    };
    Subscription *Find(std::uint32_t id);
    Subscription const *Find(std::uint32_t id) const;

    std::mutex m_mutex; // guards everything below but `wanted`
    std::condition_variable m_idle;
    std::array<Subscription, 4> m_subscriptions; // 1000, 1001, 1002, 1004
};

// Base of the simulated and the real devices. Owns a reference on the ArvDevice.
class DeviceBase : public TovCam::Device
{
public:
    TovCam::DeviceInfo *GetDeviceInfo() override;
    // Which ids the device can serve is the subclass's to say (CanServe).
    std::int32_t RegisterEvent(std::uint32_t id, TovCam::EventCallback callback, void *user) override;
    std::int32_t UnregisterEvent(std::uint32_t id, TovCam::EventCallback callback, void *user) override;
    TovCam::ParamArray *GetCameraParameters(std::int32_t *error) override;
    std::int32_t ReadRegister(std::uint64_t address, void *buffer, std::size_t size) override;
    std::int32_t SaveConfiguration(char const *path) override;
    std::int32_t LoadConfiguration(char const *path) override;

protected:
    DeviceBase(ArvDevice *device, DeviceInfoImpl *info);
    virtual ~DeviceBase();
    virtual bool CanServe(std::uint32_t eventId) const = 0;

    ArvDevice *const m_device;
    DeviceInfoImpl *const m_info;
    std::recursive_mutex m_access; // one a device: ArvGc and register access are not thread-safe
    EventHub m_events;
    NodeMap m_nodes;
};
