// What every open camera has: its node map, its lock, its events.
#pragma once

#include "backend.h"
#include "eventhub.h"
#include "genicam/configuration.h"
#include "giveupwatch.h"

#include <memory>
#include <mutex>

// Base of the simulated and the real devices.
//
// A device owns itself until Release; after that it is kept by whoever holds its node map and by a slow access under
// way, at whose end the camera is closed.
class DeviceBase : public TovCam::Device
{
public:
    void Release() override;
    TovCam::DeviceInfo *GetDeviceInfo() override;
    // The subclass says which ids the device can serve (CanServe).
    std::int32_t RegisterEvent(std::uint32_t id, TovCam::EventCallback callback, void *user) override;
    std::int32_t UnregisterEvent(std::uint32_t id, TovCam::EventCallback callback, void *user) override;
    TovCam::ParamArray *GetCameraParameters(std::int32_t *error) override;
    std::int32_t ReadRegister(std::uint64_t address, void *buffer, std::size_t size) override;
    std::int32_t SaveConfiguration(char const *path) override;
    std::int32_t LoadConfiguration(char const *path) override;
    TovCam::ConfigurationReport GetConfigurationReport() override;
    void SetGiveUp(std::shared_ptr<std::atomic<bool> const> const &flag) override;

protected:
    // Takes over the caller's reference on the device.
    DeviceBase(ArvDevice *device, DeviceInfoImpl *info);
    virtual ~DeviceBase();
    virtual bool CanServe(std::uint32_t eventId) const = 0;
    // The steps of Release. Comes before accesses are ended; false when Release runs later, on another thread.
    virtual bool BeginRelease();
    // Ends what uses the ArvDevice. With the device's lock held; perhaps on a thread of the background.
    virtual void Close() = 0;
    // Drops the last reference. `mayWait`: on the caller's thread.
    virtual void SayGoodbye(ArvDevice *device, bool mayWait);

private:
    CameraIdentity Identify();
    std::int32_t Save(char const *path, Configuration *configuration);
    std::int32_t Load(char const *path, Configuration *configuration);
    void SetReport(TovCam::ConfigurationReport report, std::int32_t status);
    void CloseAll(std::unique_lock<std::recursive_mutex> lock, bool mayWait);

    SystemHold m_hold;                  // the device information outlives the device
    std::shared_ptr<DeviceBase> m_self; // until Release
    std::mutex m_reportMutex;           // guards the next one; alone
    TovCam::ConfigurationReport m_report;

protected:
    ArvDevice *const m_device; // referenced until it is closed
    DeviceInfoImpl *const m_info;
    std::recursive_mutex m_access; // one a device: ArvGc and register access are not thread-safe
    EventHub m_events;
    NodeMap m_nodes;
    std::shared_ptr<GiveUpWatch> const m_giveUp = std::make_shared<GiveUpWatch>(); // also of what outlives the device
};
