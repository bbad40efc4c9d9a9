// What every open camera has: its node map, its lock, its event subscriptions.
#pragma once

#include "backend.h"
#include "genicam/configuration.h"

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
    std::array<std::shared_ptr<Subscription>, 5> m_subscriptions; // 1000, 1001, 1002, 1004, 1005
    std::array<std::atomic<bool>, 5> m_wanted{};
};

// Base of the simulated and the real devices.
//
// A device belongs to itself until Release, and beyond it to whoever holds its node map and to a slow access that is
// under way, at whose end the camera is closed.
class DeviceBase : public TovCam::Device
{
public:
    void Release() override;
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
    // The steps of Release. No access has ended yet, and false puts Release off.
    virtual bool BeginRelease();
    // Ends what uses the ArvDevice. With the device's lock held; perhaps on a thread of the background.
    virtual void Close() = 0;
    // The last reference goes. `mayWait`: on the caller's thread.
    virtual void SayGoodbye(ArvDevice *device, bool mayWait);

private:
    CameraIdentity Identify();
    void CloseAll(std::unique_lock<std::recursive_mutex> lock, bool mayWait);

    SystemHold m_hold;                  // the device information outlives the device
    std::shared_ptr<DeviceBase> m_self; // until Release

protected:
    ArvDevice *const m_device; // referenced until it is closed
    DeviceInfoImpl *const m_info;
    std::recursive_mutex m_access; // one a device: ArvGc and register access are not thread-safe
    EventHub m_events;
    NodeMap m_nodes;
};
