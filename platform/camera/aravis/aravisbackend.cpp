// Finds real cameras, and opens those on USB, through Aravis.
#include "aravisdevice.h"
#include "fixedparams.h"
#include "genicam/genicamerror.h"
#include "gige/gigedevice.h"
#include "gige/openwatch.h"
#include "gvcpclient.h"
#include "hostfacts.h"
#include "protocol/gigevision.h"

#include <algorithm>
#include <arv.h>
#include <map>
#include <mutex>

namespace {

char const *ProtocolName(std::uint32_t kind)
{
    return kind == TovCam::InterfaceKindGigEVision ? "GigEVision" : "USB3Vision";
}

std::string AravisVersion()
{
    return "Aravis " + std::to_string(arv_get_major_version()) + '.' + std::to_string(arv_get_minor_version()) + '.' +
           std::to_string(arv_get_micro_version());
}

// Aravis has one list of cameras for the whole process and does not lock it. While this object lives the list is ours
// and has one transport only: the other one would be searched each time, and Aravis' fake camera is never wanted.
class DeviceList
{
public:
    explicit DeviceList(std::uint32_t kind) : m_lock(s_mutex)
    {
        for (unsigned i = 0; i < arv_get_n_interfaces(); ++i) {
            char const *const id = arv_get_interface_id(i);
            if (g_strcmp0(id, ProtocolName(kind)) == 0)
                arv_enable_interface(id);
            else
                arv_disable_interface(id);
        }
    }

private:
    static std::mutex s_mutex;
    std::lock_guard<std::mutex> m_lock;
};

std::mutex DeviceList::s_mutex;

std::string Text(char const *text)
{
    return text ? text : "";
}

// What is known of a camera before it gets its place in the list.
struct Sighting
{
    std::string aravisId; // USB3 Vision: the id by which Aravis opens it
    std::string address;
    GvcpIdentity identity;
    TovCam::DeviceInfo::AccessStatus access = TovCam::DeviceInfo::AccessUnknown;
};

// Asks a GigE Vision camera itself. False when it does not answer.
bool Ask(Sighting &sighting)
{
    GvcpClient camera(sighting.address);
    if (!camera.Discover(sighting.identity))
        return false;
    std::uint32_t privilege;
    if (camera.ReadRegister(gvcp::bootstrap::ControlChannelPrivilege, privilege))
        sighting.access = GvcpIsControlled(privilege) ? TovCam::DeviceInfo::AccessBusy : TovCam::DeviceInfo::AccessFree;
    return true;
}

class AravisBackend final : public Backend
{
public:
    explicit AravisBackend(std::uint32_t kind)
        : m_kind(kind),
          m_interface(*this, kind, kind == TovCam::InterfaceKindGigEVision ? "GigE Vision" : "USB3 Vision",
                      AravisVersion())
    {
    }

    std::vector<InterfaceImpl *> GetInterfaces() override
    {
        return {&m_interface};
    }

    std::int32_t Update() override
    {
        std::vector<Sighting> sightings = Enumerate();
        if (IsGigE()) {
            for (Sighting &sighting : sightings)
                Ask(sighting);
            // Cameras that were named by their address may be out of the reach of a broadcast.
            for (std::string const &address : m_asked) {
                if (std::any_of(sightings.begin(), sightings.end(),
                                [&address](Sighting const &one) { return one.address == address; }))
                    continue;
                Sighting sighting;
                sighting.address = address;
                if (Ask(sighting))
                    sightings.push_back(std::move(sighting));
            }
        }
        std::vector<DeviceInfoImpl *> visible;
        visible.reserve(sightings.size());
        for (Sighting const &sighting : sightings)
            visible.push_back(Publish(sighting));
        // Aravis gives them in no particular order.
        std::sort(visible.begin(), visible.end(), [](DeviceInfoImpl const *a, DeviceInfoImpl const *b) {
            return std::tie(a->displayName, a->id) < std::tie(b->displayName, b->id);
        });
        visible.erase(std::unique(visible.begin(), visible.end()), visible.end());
        m_interface.SetVisible(visible);
        m_visible = std::move(visible);
        return TOV_CAM_ERR_OK;
    }

    DeviceInfoImpl *FindByAddress(std::string const &address, std::int32_t *) override
    {
        Sighting sighting;
        sighting.address = address;
        if (!IsGigE() || !Ask(sighting))
            return nullptr;
        DeviceInfoImpl *const info = Publish(sighting);
        if (std::find(m_asked.begin(), m_asked.end(), address) == m_asked.end())
            m_asked.push_back(address);
        if (std::find(m_visible.begin(), m_visible.end(), info) == m_visible.end()) {
            m_visible.push_back(info);
            m_interface.SetVisible(m_visible);
        }
        return info;
    }

    TovCam::Device *Open(DeviceInfoImpl *info, std::int32_t *error) override
    {
        return IsGigE() ? OpenGigE(info, error) : OpenUSB3(info, error);
    }

    // Of the adapter that leads to the camera opened last, or to the first one of the list.
    TovCam::ParamArray *GetInterfaceParameters(InterfaceImpl *interface, std::int32_t *) override
    {
        std::string name;
        if (IsGigE()) {
            std::string address;
            {
                std::lock_guard<std::mutex> lock(m_paramsMutex);
                address = m_openedAddress;
            }
            if (TovCam::DeviceInfo *const first = interface->GetFirstDeviceInfo(); first && address.empty())
                address = first->GetAddress();
            name = address.empty() ? "" : FindAdapter(GvcpClient(address).GetLocalAddress());
            if (name.empty())
                return nullptr;
        }
        std::lock_guard<std::mutex> lock(m_paramsMutex);
        std::unique_ptr<FixedParams> &params = m_params[name];
        if (!params && IsGigE()) {
            std::uint64_t const mac = HostFacts().GetAdapter(name).mac;
            params = MakeInterfaceParams(name, "eth:" + name, &mac);
        } else if (!params) {
            params = MakeInterfaceParams(interface->GetInterfaceDescription(), "usb", nullptr);
        }
        return params.get();
    }

    std::string GetHostInformation(DeviceInfoImpl *info) override
    {
        HostFacts const host;
        if (!IsGigE()) {
            return AlignLines({{"Camera driver", AravisVersion()},
                               {"USB speed", host.GetUsbSpeed(info->serial)},
                               {"USB buffer", host.GetUsbBuffer()},
                               {"Kernel", host.GetKernel()}});
        }
        std::string const address = GvcpClient(info->address).GetLocalAddress();
        NetworkAdapter const adapter = host.GetAdapter(FindAdapter(address));
        DeviceInfoImpl::Facts facts{{"Camera driver", AravisVersion()}, {"Camera address", info->address},
                                    {"Host address", address},          {"Adapter", adapter.name},
                                    {"Adapter driver", adapter.driver}, {"MTU", adapter.mtu},
                                    {"Link speed", adapter.speed},      {"Receive buffer", host.GetReceiveBuffer()},
                                    {"Kernel", host.GetKernel()}};
        DeviceInfoImpl::Facts const open = info->GetFacts();
        facts.insert(facts.end(), open.begin(), open.end());
        return AlignLines(facts);
    }

private:
    bool IsGigE() const
    {
        return m_kind == TovCam::InterfaceKindGigEVision;
    }

    std::vector<Sighting> Enumerate()
    {
        std::vector<Sighting> sightings;
        DeviceList const list(m_kind);
        arv_update_device_list();
        for (unsigned i = 0; i < arv_get_n_devices(); ++i) {
            if (g_strcmp0(arv_get_device_protocol(i), ProtocolName(m_kind)) != 0)
                continue;
            Sighting sighting;
            sighting.aravisId = Text(arv_get_device_id(i));
            sighting.address = Text(IsGigE() ? arv_get_device_address(i) : arv_get_device_physical_id(i));
            sighting.identity = {Text(arv_get_device_vendor(i)), Text(arv_get_device_model(i)),
                                 Text(arv_get_device_serial_nbr(i)), ""};
            sightings.push_back(std::move(sighting));
        }
        return sightings;
    }

    // Another camera at a known address, or a changed user id, needs another description.
    DeviceInfoImpl *Publish(Sighting const &sighting)
    {
        GvcpIdentity const &identity = sighting.identity;
        std::string key = IsGigE() ? sighting.address : sighting.aravisId;
        for (std::string const *part : {&identity.vendor, &identity.model, &identity.serial, &identity.userID})
            key += '\n' + *part;
        DeviceInfoImpl *const info = m_interface.FindOrAdd(key, [&] {
            auto made = std::make_unique<DeviceInfoImpl>();
            made->vendor = identity.vendor;
            made->model = identity.model;
            made->serial = identity.serial;
            made->userID = identity.userID;
            made->address = sighting.address;
            made->displayName = identity.vendor + ' ' + identity.model;
            if (!identity.serial.empty())
                made->displayName += " (" + identity.serial + ')';
            return made;
        });
        info->access.store(sighting.access, std::memory_order_relaxed);
        return info;
    }

    TovCam::Device *OpenGigE(DeviceInfoImpl *info, std::int32_t *error)
    {
        auto const fail = [error](std::int32_t status) {
            *error = status;
            return nullptr;
        };
        OpenWatch watch(info->GetOpenProgress());
        watch.Enter(TovCam::OpenProgress::Stage::Asking);
        // Seconds are not to be waited where nobody answers or another application has control.
        GvcpClient camera(info->address);
        GvcpIdentity identity;
        if (!camera.Discover(identity) || identity.vendor != info->vendor || identity.model != info->model ||
            identity.serial != info->serial)
            return fail(TOV_CAM_ERR_NO_DEVICE);
        std::uint32_t privilege = 0;
        if (camera.ReadRegister(gvcp::bootstrap::ControlChannelPrivilege, privilege) && GvcpIsControlled(privilege)) {
            info->access.store(TovCam::DeviceInfo::AccessBusy, std::memory_order_relaxed);
            return fail(TOV_CAM_ERR_GENICAM_ACCESS);
        }
        std::int32_t status = TOV_CAM_ERR_OK;
        GigeDevice *const device = GigeDevice::Open(info, watch, &status);
        if (status == TOV_CAM_ERR_GENICAM_TREE)
            return MakeUndescribedDevice(info, status);
        if (!device)
            return fail(status);
        info->access.store(TovCam::DeviceInfo::AccessBusy, std::memory_order_relaxed);
        std::lock_guard<std::mutex> lock(m_paramsMutex);
        m_openedAddress = info->address;
        return device;
    }

    TovCam::Device *OpenUSB3(DeviceInfoImpl *info, std::int32_t *error)
    {
        GError *failure = nullptr;
        ArvDevice *device;
        {
            DeviceList const list(m_kind);
            device = arv_open_device(info->id.substr(0, info->id.find('\n')).c_str(), &failure);
        }
        std::int32_t const status = failure ? StatusFromError(failure) : TOV_CAM_ERR_NO_DEVICE;
        g_clear_error(&failure);
        if (device)
            return new AravisDevice(device, info);
        if (status == TOV_CAM_ERR_GENICAM_TREE)
            return MakeUndescribedDevice(info, status);
        *error = status;
        return nullptr;
    }

    std::uint32_t const m_kind;
    InterfaceImpl m_interface;
    // Used by Update and Find, which are called one at a time.
    std::vector<DeviceInfoImpl *> m_visible;
    std::vector<std::string> m_asked; // addresses

    std::mutex m_paramsMutex;                                     // guards the two below
    std::string m_openedAddress;                                  // of the camera opened last
    std::map<std::string, std::unique_ptr<FixedParams>> m_params; // by adapter; kept, as callers hold them
};

} // namespace

std::unique_ptr<Backend> MakeAravisBackend(std::uint32_t kind)
{
    return std::make_unique<AravisBackend>(kind);
}
