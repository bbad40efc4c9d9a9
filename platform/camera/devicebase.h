// What every open camera has: its node map, its lock, its event subscriptions.
#pragma once

#include "backend.h"
#include "genicam/nodemap.h"

#include <array>
#include <atomic>
#include <condition_variable>
#include <memory>
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
        TovCam::EventCallback callback;
        void *user;
        std::vector<std::thread::id> inside; // threads in the callback, one entry a call; guarded by the hub's mutex
    };
    // -1 for an id that no camera has.
    static int IndexOf(std::uint32_t id);
    std::int32_t Remove(int index, TovCam::EventCallback callback, void *user);

    std::mutex m_mutex; // guards the subscriptions
    std::condition_variable m_idle;
    std::array<std::shared_ptr<Subscription>, 4> m_subscriptions; // 1000, 1001, 1002, 1004
    std::array<std::atomic<bool>, 4> m_wanted{};
};

// Base of the simulated and the real devices. A subclass' Release stops what runs, calls EndEvents and deletes itself.
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
    // Takes over the caller's reference on the device.
    DeviceBase(ArvDevice *device, DeviceInfoImpl *info);
    virtual ~DeviceBase();
    virtual bool CanServe(std::uint32_t eventId) const = 0;
    // No callback of this device runs when it returns.
    void EndEvents();

private:
    struct Unref
    {
        void operator()(ArvDevice *device) const;
    };
    SystemHold m_hold; // the device information outlives the device
    std::unique_ptr<ArvDevice, Unref> m_owner;

protected:
    ArvDevice *const m_device;
    DeviceInfoImpl *const m_info;
    std::recursive_mutex m_access; // one a device: ArvGc and register access are not thread-safe
    EventHub m_events;
    NodeMap m_nodes;
};
