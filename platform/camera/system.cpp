#include "backend.h"
#include "genicam/configuration.h"
#include "storestatus.h"

#include <glib.h>

#include <atomic>
#include <cstdlib>
#include <sstream>

namespace {

class InterfaceList final : public TovCam::ObjectList
{
public:
    TovCam::Interface *GetFirst() override
    {
        m_next = 0;
        return GetNext();
    }
    TovCam::Interface *GetNext() override
    {
        return m_next < m_interfaces.size() ? m_interfaces[m_next++] : nullptr;
    }
    void Set(std::vector<InterfaceImpl *> interfaces)
    {
        m_interfaces = std::move(interfaces);
        m_next = 0;
    }

private:
    std::vector<InterfaceImpl *> m_interfaces;
    std::size_t m_next = 0;
};

// TOV_CAMERA_INTERFACES is a comma list of backends; without it all of them are used.
bool IsBackendWanted(char const *name)
{
    char const *const list = std::getenv("TOV_CAMERA_INTERFACES");
    if (!list)
        return true;
    std::istringstream words{std::string(list)};
    for (std::string word; std::getline(words, word, ',');) {
        if (word == name)
            return true;
    }
    return false;
}

class SystemImpl final : public TovCam::System
{
public:
    SystemImpl()
    {
        // The order of the list: what is plugged in comes before what is simulated.
        if (IsBackendWanted("gige"))
            m_backends.push_back(MakeGigeBackend());
        if (IsBackendWanted("usb3"))
            m_backends.push_back(MakeAravisBackend());
        if (IsBackendWanted("sim"))
            m_backends.push_back(MakeSimBackend());
    }

    void Release() override;

    TovCam::ObjectList *GetInterfaceList(std::uint32_t kindMask) override
    {
        {
            std::lock_guard<std::mutex> lock(m_updateMutex);
            if (!m_updated)
                Update();
        }
        std::vector<InterfaceImpl *> found;
        for (auto const &backend : m_backends) {
            for (InterfaceImpl *interface : backend->GetInterfaces()) {
                std::uint32_t const kind = interface->GetInterfaceKind();
                if (kindMask == 255 || (kind >= 1 && kind <= 32 && (kindMask >> (kind - 1) & 1)))
                    found.push_back(interface);
            }
        }
        // Whoever goes through it on another thread has one of his own.
        thread_local InterfaceList list;
        list.Set(std::move(found));
        return &list;
    }

    TovCam::Device *OpenDeviceFromConfiguration(char const *path, std::int32_t *error) override
    {
        Configuration configuration;
        std::int32_t status = path && *path ? configuration.Read(path) : TOV_CAM_ERR_INVALID_ARGUMENT;
        DeviceInfoImpl *info = nullptr;
        if (status == TOV_CAM_ERR_OK) {
            std::lock_guard<std::mutex> lock(m_updateMutex);
            if (m_updated)
                info = FindCamera(configuration.camera);
            // It may have been plugged in since the last search.
            if (!info && (status = Update()) == TOV_CAM_ERR_OK)
                info = FindCamera(configuration.camera);
            if (!info && status == TOV_CAM_ERR_OK)
                status = TOV_CAM_ERR_NO_DEVICE;
        }
        using Problem = TovCam::ConfigurationReport::Problem;
        TovCam::ConfigurationReport report = std::move(configuration.report);
        if (status == TOV_CAM_ERR_NO_DEVICE)
            report.problem = Problem::NoCamera;
        TovCam::OpenProgress *const progress = m_openProgress;
        if (info && progress)
            info->SetOpenProgress(progress);
        TovCam::Device *device = info ? TovCam_CreateDevice(info, 2, &status) : nullptr;
        if (info && !device && (status == TOV_CAM_ERR_INVALID_STATE || status == TOV_CAM_ERR_GENICAM_ACCESS))
            report.problem = Problem::CameraInUse;
        if (device) {
            if (progress)
                progress->stage = TovCam::OpenProgress::Stage::Preparing;
            status = device->LoadConfiguration(path);
            report = device->GetConfigurationReport();
            bool const cancelled = progress && progress->cancel;
            // What could be applied stays applied; a file that was not usable for this camera opens none.
            if (cancelled || (status <= TOV_CAM_ERR_FILE_NOT_FOUND && status >= TOV_CAM_ERR_WRONG_CONFIGURATION)) {
                device->Release();
                device = nullptr;
            }
            if (cancelled)
                status = TOV_CAM_ERR_NO_DEVICE;
        }
        if (info && progress)
            info->SetOpenProgress(nullptr);
        if (progress)
            progress->stage = TovCam::OpenProgress::Stage::Over;
        StoreStatus(error, status);
        report.status = status;
        TovCam::OpenFailure failure = info ? info->GetOpenFailure() : TovCam::OpenFailure();
        std::lock_guard<std::mutex> lock(m_reportMutex);
        m_report = std::move(report);
        m_openFailure = std::move(failure);
        return device;
    }

    TovCam::ConfigurationReport GetConfigurationReport() override
    {
        std::lock_guard<std::mutex> lock(m_reportMutex);
        return m_report;
    }

    void SetOpenProgress(TovCam::OpenProgress *progress) override
    {
        m_openProgress = progress;
    }

    TovCam::OpenFailure GetOpenFailure() override
    {
        std::lock_guard<std::mutex> lock(m_reportMutex);
        return m_openFailure;
    }

    std::int32_t LoadTransportLayer(char const *file) override
    {
        if (!file || !*file)
            return TOV_CAM_ERR_INVALID_ARGUMENT;
        // No producer is ever loaded; the transports are built in.
        return g_file_test(file, G_FILE_TEST_EXISTS) ? TOV_CAM_ERR_INVALID_STATE : TOV_CAM_ERR_FILE_NOT_FOUND;
    }

    std::int32_t UpdateDeviceList() override
    {
        std::lock_guard<std::mutex> lock(m_updateMutex);
        return Update();
    }

    TovCam::DeviceInfo *FindDeviceByAddress(char const *address, std::int32_t *error) override
    {
        if (!address || !*address) {
            StoreStatus(error, TOV_CAM_ERR_INVALID_ARGUMENT);
            return nullptr;
        }
        std::lock_guard<std::mutex> lock(m_updateMutex);
        std::int32_t status = TOV_CAM_ERR_NO_DEVICE;
        for (auto const &backend : m_backends) {
            std::int32_t answer = TOV_CAM_ERR_OK;
            if (DeviceInfoImpl *info = backend->FindByAddress(address, &answer)) {
                StoreStatus(error, TOV_CAM_ERR_OK);
                return info;
            }
            if (answer != TOV_CAM_ERR_OK)
                status = answer;
        }
        StoreStatus(error, status);
        return nullptr;
    }

private:
    // The camera itself, else one of its model, and rather one that is free. With m_updateMutex held.
    DeviceInfoImpl *FindCamera(CameraIdentity const &camera)
    {
        DeviceInfoImpl *found = nullptr;
        for (auto const &backend : m_backends) {
            for (InterfaceImpl *interface : backend->GetInterfaces()) {
                for (std::uint32_t i = 0; i < interface->GetDeviceCount(); ++i) {
                    auto *const info = static_cast<DeviceInfoImpl *>(interface->GetDeviceInfoByIndex(i));
                    if (!info || info->vendor != camera.vendor || info->model != camera.model)
                        continue;
                    if (!camera.serial.empty() && info->serial == camera.serial)
                        return info;
                    if (!found || (found->GetAccessStatus() == TovCam::DeviceInfo::AccessBusy &&
                                   info->GetAccessStatus() != TovCam::DeviceInfo::AccessBusy))
                        found = info;
                }
            }
        }
        return found;
    }

    // With m_updateMutex held.
    std::int32_t Update()
    {
        std::int32_t status = TOV_CAM_ERR_OK;
        for (auto const &backend : m_backends) {
            std::int32_t const one = backend->Update();
            if (status == TOV_CAM_ERR_OK)
                status = one;
        }
        m_updated = true;
        return status;
    }

    std::vector<std::unique_ptr<Backend>> m_backends; // set before the system is published
    std::mutex m_updateMutex;                         // one enumeration at a time; guards the next one
    bool m_updated = false;
    std::atomic<TovCam::OpenProgress *> m_openProgress{nullptr};
    std::mutex m_reportMutex; // guards the next two; alone
    TovCam::ConfigurationReport m_report;
    TovCam::OpenFailure m_openFailure;
};

std::mutex s_systemMutex; // guards the two below
SystemImpl *s_system = nullptr;
std::size_t s_systemUses = 0;

void SystemImpl::Release()
{
    std::lock_guard<std::mutex> lock(s_systemMutex);
    if (this == s_system && --s_systemUses == 0) {
        delete s_system;
        s_system = nullptr;
    }
}

} // namespace

SystemHold::SystemHold() : m_system(TovCam_GetSystem())
{
}

SystemHold::~SystemHold()
{
    m_system->Release();
}

TovCam::System *TovCam_GetSystem()
{
    std::lock_guard<std::mutex> lock(s_systemMutex);
    if (!s_system)
        s_system = new SystemImpl;
    ++s_systemUses;
    return s_system;
}

TovCam::Device *TovCam_CreateDevice(TovCam::DeviceInfo *info, std::uint32_t mode, std::int32_t *error)
{
    constexpr std::uint32_t ControlMode = 2;
    if (!info || mode != ControlMode) {
        StoreStatus(error, TOV_CAM_ERR_INVALID_ARGUMENT);
        return nullptr;
    }
    auto *const implementation = static_cast<DeviceInfoImpl *>(info);
    std::int32_t status = TOV_CAM_ERR_OK;
    TovCam::Device *const device = implementation->interface->GetBackend().Open(implementation, &status);
    if (!device && status == TOV_CAM_ERR_OK)
        status = TOV_CAM_ERR_UNKNOWN;
    if (TovCam::OpenProgress *const progress = implementation->GetOpenProgress())
        progress->stage = TovCam::OpenProgress::Stage::Over;
    StoreStatus(error, device ? TOV_CAM_ERR_OK : status);
    return device;
}
