// A camera library whose cameras come and go as a test says, and whose search takes as long as the test says.
#pragma once

#include "tovcamera.h"

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

struct FakeCamera final : TovCam::DeviceInfo
{
    std::string name, vendor = "Fabrik", serial = "1", userID, address;
    std::atomic<AccessStatus> access{AccessFree};

    explicit FakeCamera(char const *name) : name(name)
    {
    }
    TovCam::Interface *GetInterface() override
    {
        return nullptr;
    }
    char const *GetDisplayName() override
    {
        return name.c_str();
    }
    char const *GetHostInformation() override
    {
        return nullptr;
    }
    char const *GetVendorName() override
    {
        return vendor.c_str();
    }
    char const *GetModelName() override
    {
        return name.c_str();
    }
    char const *GetSerialNumber() override
    {
        return serial.c_str();
    }
    char const *GetUserID() override
    {
        return userID.c_str();
    }
    char const *GetAddress() override
    {
        return address.c_str();
    }
    AccessStatus GetAccessStatus() override
    {
        return access;
    }
};

struct FakeInterface final : TovCam::Interface
{
    std::string description;
    std::vector<FakeCamera *> cameras;

    TovCam::DeviceInfo *GetFirstDeviceInfo() override
    {
        return GetDeviceInfoByIndex(0);
    }
    std::uint32_t GetInterfaceKind() override
    {
        return TovCam::InterfaceKindGigEVision;
    }
    char const *GetInterfaceDescription() override
    {
        return description.c_str();
    }
    char const *GetDriverVersion() override
    {
        return "7.1";
    }
    TovCam::ParamArray *GetInterfaceParameters(std::int32_t *) override
    {
        return nullptr;
    }
    std::uint32_t GetDeviceCount() override
    {
        return std::uint32_t(cameras.size());
    }
    TovCam::DeviceInfo *GetDeviceInfoByIndex(std::uint32_t index) override
    {
        return index < cameras.size() ? cameras[index] : nullptr;
    }
};

class FakeSystem final : public TovCam::System, TovCam::ObjectList
{
public:
    FakeInterface gige, usb; // as the last search left them

    // What the next search will find; any thread.
    void SetCameras(std::vector<FakeCamera *> onGigE, std::vector<FakeCamera *> onUsb);
    void SetReachable(std::string const &address, FakeCamera *camera); // by its address only
    void SetResult(std::int32_t result);                               // of the next searches
    void Hold();                                                       // the next search blocks ...
    void Proceed();                                                    // ... until now
    bool IsBlocked();                                                  // a search blocks
    int Searches() const
    {
        return m_searches;
    }
    bool Overlapped() const
    {
        return m_overlapped;
    } // two searches at the same time
    int References() const
    {
        return m_references;
    }

    void AddReference()
    {
        ++m_references;
    }
    void Release() override
    {
        --m_references;
    }
    TovCam::ObjectList *GetInterfaceList(std::uint32_t) override
    {
        return this;
    }
    TovCam::Device *OpenDeviceFromConfiguration(char const *, std::int32_t *) override
    {
        return nullptr;
    }
    std::int32_t LoadTransportLayer(char const *) override
    {
        return 0;
    }
    std::int32_t UpdateDeviceList() override;
    TovCam::DeviceInfo *FindDeviceByAddress(char const *address, std::int32_t *error) override;

private:
    TovCam::Interface *GetFirst() override;
    TovCam::Interface *GetNext() override;

    std::mutex m_mutex; // guards what follows
    std::condition_variable m_changed;
    std::vector<FakeCamera *> m_nextGigE, m_nextUsb;
    std::string m_address;
    FakeCamera *m_reachable = nullptr;
    std::int32_t m_result = 0;
    bool m_held = false, m_blocked = false;

    int m_position = 0; // search thread
    std::atomic<int> m_searches{0}, m_running{0}, m_references{0};
    std::atomic<bool> m_overlapped{false};
};

// The system that TovCam_GetSystem gives.
extern FakeSystem *g_fakeSystem;
