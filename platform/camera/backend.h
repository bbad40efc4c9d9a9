// What the system, the simulator and the Aravis side share: interfaces, camera descriptions, backends.
#pragma once

#include "tovcamera.h"

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

class Backend;
class InterfaceImpl;

// One camera that was seen. The texts are set before it is published and never change; it lives as long as the system.
class DeviceInfoImpl : public TovCam::DeviceInfo
{
public:
    InterfaceImpl *interface = nullptr;
    std::string id; // the backend's own key
    std::string displayName, vendor, model, serial, userID, address;
    std::atomic<AccessStatus> access{AccessUnknown};

    TovCam::Interface *GetInterface() override;
    char const *GetDisplayName() override;
    char const *GetHostInformation() override; // asks the backend, which may answer anew each time
    char const *GetVendorName() override;
    char const *GetModelName() override;
    char const *GetSerialNumber() override;
    char const *GetUserID() override;
    char const *GetAddress() override;
    AccessStatus GetAccessStatus() override;
    void SetOpenProgress(TovCam::OpenProgress *progress) override;
    TovCam::NetworkPlace GetNetworkPlace() override;
    void SetNetworkPlace(TovCam::NetworkPlace place); // which changes from search to search
    TovCam::OpenFailure GetOpenFailure() override;
    void SetOpenFailure(TovCam::OpenFailure failure);
    // What an open camera adds to the information; called by whoever asks for that. The owner's are dropped by no
    // facts, unless another has put its own in their place; none of their calls is under way then.
    using Facts = std::vector<std::pair<std::string, std::string>>;
    void SetFacts(void const *owner, std::function<Facts()> facts);
    Facts GetFacts();
    // Whether there are such facts, and so an open camera.
    bool HasFacts();
    // Null where nobody waits for an opening.
    TovCam::OpenProgress *GetOpenProgress() const;

private:
    std::atomic<TovCam::OpenProgress *> m_openProgress{nullptr};
    std::mutex m_factsMutex; // guards the next two, and the calls; taken last
    std::function<Facts()> m_facts;
    void const *m_factsOwner = nullptr;
    std::mutex m_mutex; // guards the next ones
    std::string m_hostInformation;
    TovCam::NetworkPlace m_place;
    TovCam::OpenFailure m_openFailure;
};

// One interface with the cameras of the last enumeration. Cameras that are gone leave the list and stay alive.
class InterfaceImpl : public TovCam::Interface
{
public:
    InterfaceImpl(Backend &backend, std::uint32_t kind, std::string description, std::string version);
    Backend &GetBackend();

    TovCam::DeviceInfo *GetFirstDeviceInfo() override;
    std::uint32_t GetInterfaceKind() override;
    char const *GetInterfaceDescription() override;
    char const *GetDriverVersion() override;
    TovCam::ParamArray *GetInterfaceParameters(std::int32_t *error) override;
    std::uint32_t GetDeviceCount() override;
    TovCam::DeviceInfo *GetDeviceInfoByIndex(std::uint32_t index) override;

    // The camera with that id. On first sight `make` makes it and fills its texts; id and interface are set here.
    DeviceInfoImpl *FindOrAdd(std::string const &id, std::function<std::unique_ptr<DeviceInfoImpl>()> const &make);
    // What the list shows from now on.
    void SetVisible(std::vector<DeviceInfoImpl *> visible);

private:
    Backend &m_backend;
    std::uint32_t const m_kind;
    std::string const m_description, m_version;
    std::mutex m_mutex; // guards the two lists
    std::vector<std::unique_ptr<DeviceInfoImpl>> m_known;
    std::vector<DeviceInfoImpl *> m_visible;
};

// A source of cameras. Update and Find are called one at a time, from any thread.
class Backend
{
public:
    virtual ~Backend() = default;
    virtual std::vector<InterfaceImpl *> GetInterfaces() = 0;
    virtual std::int32_t Update() = 0;
    virtual DeviceInfoImpl *FindByAddress(std::string const &address, std::int32_t *error) = 0; // null: not ours
    virtual TovCam::Device *Open(DeviceInfoImpl *info, std::int32_t *error) = 0;
    // Null where the interface has no parameters of its own.
    virtual TovCam::ParamArray *GetInterfaceParameters(InterfaceImpl *interface, std::int32_t *error) = 0;
    virtual std::string GetHostInformation(DeviceInfoImpl *info) = 0; // "" when there is none
};

// Keeps the system, and with it every DeviceInfoImpl, alive for as long as something of it is in use.
class SystemHold
{
public:
    SystemHold();
    ~SystemHold();
    SystemHold(SystemHold const &) = delete;
    SystemHold &operator=(SystemHold const &) = delete;

private:
    TovCam::System *m_system;
};

std::unique_ptr<Backend> MakeSimBackend();
std::unique_ptr<Backend> MakeGigeBackend();
std::unique_ptr<Backend> MakeAravisBackend(); // USB3 Vision
