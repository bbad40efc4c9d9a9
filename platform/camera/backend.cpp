#include "backend.h"

#include "storestatus.h"

TovCam::Interface *DeviceInfoImpl::GetInterface()
{
    return interface;
}

char const *DeviceInfoImpl::GetDisplayName()
{
    return displayName.c_str();
}

char const *DeviceInfoImpl::GetHostInformation()
{
    std::string text = interface->GetBackend().GetHostInformation(this);
    std::lock_guard<std::mutex> lock(m_mutex);
    // An unchanged text keeps its place in memory, so that a second caller does not pull it away from the first.
    if (text != m_hostInformation)
        m_hostInformation = std::move(text);
    return m_hostInformation.empty() ? nullptr : m_hostInformation.c_str();
}

char const *DeviceInfoImpl::GetVendorName()
{
    return vendor.c_str();
}

char const *DeviceInfoImpl::GetModelName()
{
    return model.c_str();
}

char const *DeviceInfoImpl::GetSerialNumber()
{
    return serial.c_str();
}

char const *DeviceInfoImpl::GetUserID()
{
    return userID.c_str();
}

char const *DeviceInfoImpl::GetAddress()
{
    return address.c_str();
}

TovCam::DeviceInfo::AccessStatus DeviceInfoImpl::GetAccessStatus()
{
    return access.load(std::memory_order_relaxed);
}

TovCam::NetworkPlace DeviceInfoImpl::GetNetworkPlace()
{
    std::lock_guard<std::mutex> const lock(m_mutex);
    return m_place;
}

void DeviceInfoImpl::SetNetworkPlace(TovCam::NetworkPlace place)
{
    std::lock_guard<std::mutex> const lock(m_mutex);
    m_place = std::move(place);
}

TovCam::OpenFailure DeviceInfoImpl::GetOpenFailure()
{
    std::lock_guard<std::mutex> const lock(m_mutex);
    return m_openFailure;
}

void DeviceInfoImpl::SetOpenFailure(TovCam::OpenFailure failure)
{
    std::lock_guard<std::mutex> const lock(m_mutex);
    m_openFailure = std::move(failure);
}

void DeviceInfoImpl::SetFacts(void const *owner, std::function<Facts()> facts)
{
    std::lock_guard<std::mutex> const lock(m_factsMutex);
    if (!facts && owner != m_factsOwner)
        return;
    m_factsOwner = owner;
    m_facts = std::move(facts);
}

DeviceInfoImpl::Facts DeviceInfoImpl::GetFacts()
{
    std::lock_guard<std::mutex> const lock(m_factsMutex);
    return m_facts ? m_facts() : Facts();
}

bool DeviceInfoImpl::HasFacts()
{
    std::lock_guard<std::mutex> const lock(m_factsMutex);
    return static_cast<bool>(m_facts);
}

void DeviceInfoImpl::SetOpenProgress(TovCam::OpenProgress *progress)
{
    m_openProgress = progress;
}

TovCam::OpenProgress *DeviceInfoImpl::GetOpenProgress() const
{
    return m_openProgress;
}

InterfaceImpl::InterfaceImpl(Backend &backend, std::uint32_t kind, std::string description, std::string version)
    : m_backend(backend),
      m_kind(kind),
      m_description(std::move(description)),
      m_version(std::move(version))
{
}

Backend &InterfaceImpl::GetBackend()
{
    return m_backend;
}

TovCam::DeviceInfo *InterfaceImpl::GetFirstDeviceInfo()
{
    return GetDeviceInfoByIndex(0);
}

std::uint32_t InterfaceImpl::GetInterfaceKind()
{
    return m_kind;
}

char const *InterfaceImpl::GetInterfaceDescription()
{
    return m_description.c_str();
}

char const *InterfaceImpl::GetDriverVersion()
{
    return m_version.c_str();
}

TovCam::ParamArray *InterfaceImpl::GetInterfaceParameters(std::int32_t *error)
{
    StoreStatus(error, TOV_CAM_ERR_OK);
    return m_backend.GetInterfaceParameters(this, error);
}

std::uint32_t InterfaceImpl::GetDeviceCount()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return static_cast<std::uint32_t>(m_visible.size());
}

TovCam::DeviceInfo *InterfaceImpl::GetDeviceInfoByIndex(std::uint32_t index)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return index < m_visible.size() ? m_visible[index] : nullptr;
}

DeviceInfoImpl *InterfaceImpl::FindOrAdd(std::string const &id,
                                         std::function<std::unique_ptr<DeviceInfoImpl>()> const &make)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    for (auto const &info : m_known) {
        if (info->id == id)
            return info.get();
    }
    std::unique_ptr<DeviceInfoImpl> info = make();
    if (!info)
        return nullptr;
    info->interface = this;
    info->id = id;
    m_known.push_back(std::move(info));
    return m_known.back().get();
}

void InterfaceImpl::SetVisible(std::vector<DeviceInfoImpl *> visible)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_visible = std::move(visible);
}
