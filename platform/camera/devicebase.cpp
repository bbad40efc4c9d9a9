#include "devicebase.h"

#include "background.h"
#include "storestatus.h"

#include <algorithm>
#include <chrono>
#include <thread>

namespace {

using namespace std::chrono_literals;

// A healthy camera's accesses are far shorter.
constexpr auto AccessPatience = 100ms;

// Not by a timed mutex, which ThreadSanitizer does not know.
bool LockWithin(std::unique_lock<std::recursive_mutex> &lock, std::chrono::milliseconds patience)
{
    auto const end = std::chrono::steady_clock::now() + patience;
    while (!lock.try_lock()) {
        if (std::chrono::steady_clock::now() >= end)
            return false;
        std::this_thread::sleep_for(1ms);
    }
    return true;
}

} // namespace

DeviceBase::DeviceBase(ArvDevice *device, DeviceInfoImpl *info)
    : m_self(this, [](DeviceBase *self) { delete self; }),
      m_device(device),
      m_info(info),
      m_nodes(device, m_access)
{
    m_nodes.SetOwner(m_self);
}

DeviceBase::~DeviceBase() = default;

void DeviceBase::Release()
{
    if (!BeginRelease())
        return;
    m_nodes.Refuse();
    m_events.UnregisterAll();
    std::shared_ptr<DeviceBase> self = std::move(m_self);
    std::unique_lock<std::recursive_mutex> lock(m_access, std::defer_lock);
    if (LockWithin(lock, AccessPatience)) {
        CloseAll(std::move(lock), true);
        return;
    }
    Background::Run(
        [self = std::move(self)] { self->CloseAll(std::unique_lock<std::recursive_mutex>(self->m_access), false); },
        0ms);
}

void DeviceBase::CloseAll(std::unique_lock<std::recursive_mutex> lock, bool mayWait)
{
    Close();
    m_nodes.Drop();
    lock.unlock();
    SayGoodbye(m_device, mayWait);
}

bool DeviceBase::BeginRelease()
{
    return true;
}

void DeviceBase::SayGoodbye(ArvDevice *device, bool)
{
    g_object_unref(device);
}

TovCam::DeviceInfo *DeviceBase::GetDeviceInfo()
{
    return m_info;
}

std::int32_t DeviceBase::RegisterEvent(std::uint32_t id, TovCam::EventCallback callback, void *user)
{
    return CanServe(id) ? m_events.Register(id, callback, user) : TOV_CAM_ERR_INVALID_ARGUMENT;
}

std::int32_t DeviceBase::UnregisterEvent(std::uint32_t id, TovCam::EventCallback callback, void *user)
{
    return m_events.Unregister(id, callback, user);
}

TovCam::ParamArray *DeviceBase::GetCameraParameters(std::int32_t *error)
{
    std::int32_t const status = m_nodes.GetStatus();
    StoreStatus(error, status);
    return status == TOV_CAM_ERR_OK ? &m_nodes : nullptr;
}

std::int32_t DeviceBase::ReadRegister(std::uint64_t address, void *buffer, std::size_t size)
{
    if (!buffer || size == 0 || size > 0x10000)
        return TOV_CAM_ERR_INVALID_ARGUMENT;
    ErrorSlot error;
    {
        std::lock_guard<std::recursive_mutex> lock(m_access);
        // Four bytes are a register, which arrives in the host's byte order whatever the transport's is.
        if (size == sizeof(guint32) && address % sizeof(guint32) == 0) {
            guint32 value = 0;
            if (arv_device_read_register(m_device, address, &value, error) && error.Status() == TOV_CAM_ERR_OK)
                std::copy_n(reinterpret_cast<char const *>(&value), sizeof value, static_cast<char *>(buffer));
        } else {
            std::vector<char> bytes(size);
            if (arv_device_read_memory(m_device, address, static_cast<guint32>(size), bytes.data(), error) &&
                error.Status() == TOV_CAM_ERR_OK)
                std::copy(bytes.begin(), bytes.end(), static_cast<char *>(buffer));
        }
    }
    return error.Status();
}

CameraIdentity DeviceBase::Identify()
{
    CameraIdentity identity{m_info->interface->GetInterfaceKind(), m_info->vendor, m_info->model, m_info->serial,
                            m_info->userID};
    for (char const *name : {"DeviceUserID", "DeviceUserDefinedName"}) {
        if (TovCam::StringParam *const userID = m_nodes.GetString(name, nullptr))
            identity.userID = userID->GetValue(nullptr);
    }
    return identity;
}

std::int32_t DeviceBase::SaveConfiguration(char const *path)
{
    Configuration configuration;
    std::int32_t const status = path && *path ? Save(path, &configuration) : TOV_CAM_ERR_INVALID_ARGUMENT;
    SetReport(std::move(configuration.report), status);
    return status;
}

std::int32_t DeviceBase::Save(char const *path, Configuration *configuration)
{
    configuration->cancel = [this] {
        return m_giveUp->IsGivenUp();
    };
    {
        // Nobody else sees the selectors move.
        std::lock_guard<std::recursive_mutex> lock(m_access);
        configuration->camera = Identify();
        if (std::int32_t const status = configuration->Take(m_nodes); status != TOV_CAM_ERR_OK)
            return status;
    }
    return configuration->Write(path);
}

std::int32_t DeviceBase::LoadConfiguration(char const *path)
{
    Configuration configuration;
    std::int32_t const status = path && *path ? Load(path, &configuration) : TOV_CAM_ERR_INVALID_ARGUMENT;
    SetReport(std::move(configuration.report), status);
    return status;
}

std::int32_t DeviceBase::Load(char const *path, Configuration *configuration)
{
    if (std::int32_t const status = configuration->Read(path); status != TOV_CAM_ERR_OK)
        return status;
    CameraIdentity const &camera = configuration->camera;
    if (camera.vendor != m_info->vendor || camera.model != m_info->model) {
        configuration->report.problem = TovCam::ConfigurationReport::Problem::OtherCamera;
        return TOV_CAM_ERR_WRONG_CONFIGURATION;
    }
    configuration->cancel = [this, progress = m_info->GetOpenProgress()] {
        return m_giveUp->IsGivenUp() || (progress && progress->cancel);
    };
    std::lock_guard<std::recursive_mutex> lock(m_access);
    return configuration->Apply(m_nodes, camera.serial == m_info->serial);
}

TovCam::ConfigurationReport DeviceBase::GetConfigurationReport()
{
    std::lock_guard<std::mutex> lock(m_reportMutex);
    return m_report;
}

void DeviceBase::SetGiveUp(std::shared_ptr<std::atomic<bool> const> const &flag)
{
    m_giveUp->Follow(flag);
}

void DeviceBase::SetReport(TovCam::ConfigurationReport report, std::int32_t status)
{
    report.status = status;
    std::lock_guard<std::mutex> lock(m_reportMutex);
    m_report = std::move(report);
}
