// Finds and opens USB3 Vision cameras through Aravis.
#include "aravisdevice.h"
#include "aravisversion.h"
#include "fixedparams.h"
#include "genicam/genicamerror.h"
#include "genicam/xmlcheck.h"
#include "hostfacts.h"
#include "usbrights.h"

#include <algorithm>
#include <mutex>
#include <tuple>

namespace {

using TovCam::OpenRefusal;

constexpr char Protocol[] = "USB3Vision";

// Aravis has one list of cameras for the whole process and does not lock it. While this object lives the list is ours
// and has USB3 Vision only: GigE Vision has a search of its own, and Aravis' fake camera is never wanted.
class DeviceList
{
public:
    DeviceList() : m_lock(s_mutex)
    {
        for (unsigned i = 0; i < arv_get_n_interfaces(); ++i) {
            char const *const id = arv_get_interface_id(i);
            if (g_strcmp0(id, Protocol) == 0)
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

class AravisBackend final : public Backend
{
public:
    AravisBackend() : m_interface(*this, TovCam::InterfaceKindUSB3Vision, "USB3 Vision", AravisVersion())
    {
    }

    std::vector<InterfaceImpl *> GetInterfaces() override
    {
        return {&m_interface};
    }

    std::int32_t Update() override
    {
        std::vector<DeviceInfoImpl *> visible;
        {
            DeviceList const list;
            arv_update_device_list();
            for (unsigned i = 0; i < arv_get_n_devices(); ++i) {
                if (g_strcmp0(arv_get_device_protocol(i), Protocol) == 0)
                    visible.push_back(Publish(IdentityAt(i), {}));
            }
        }
        for (ForbiddenUsbCamera const &one : FindForbiddenUsbCameras())
            visible.push_back(Publish({{}, one.vendor, one.model, one.serial, one.node},
                                      {OpenRefusal::NoRight, false, one.node, one.reason}));
        // Aravis gives them in no particular order.
        std::sort(visible.begin(), visible.end(), [](DeviceInfoImpl const *a, DeviceInfoImpl const *b) {
            return std::tie(a->displayName, a->id) < std::tie(b->displayName, b->id);
        });
        visible.erase(std::unique(visible.begin(), visible.end()), visible.end());
        m_interface.SetVisible(std::move(visible));
        return TOV_CAM_ERR_OK;
    }

    DeviceInfoImpl *FindByAddress(std::string const &, std::int32_t *) override
    {
        return nullptr;
    }

    TovCam::Device *Open(DeviceInfoImpl *info, std::int32_t *error) override
    {
        std::string const name = info->id.substr(0, info->id.find('\n'));
        if (name.empty()) { // which Aravis would take for any camera
            *error = TOV_CAM_ERR_GENICAM_ACCESS;
            return nullptr;
        }
        GError *failure = nullptr;
        ArvDevice *device;
        {
            DeviceList const list;
            device = arv_open_device(name.c_str(), &failure);
        }
        std::int32_t const status = failure ? StatusFromError(failure) : TOV_CAM_ERR_NO_DEVICE;
        std::string const reason = failure ? Text(failure->message) : "";
        g_clear_error(&failure);
        if (device)
            return Describe(new AravisDevice(device, info), device, info);
        bool const isThere = status == TOV_CAM_ERR_GENICAM_TREE;
        info->SetOpenFailure({isThere ? OpenRefusal::Description : OpenRefusal::NoAnswer, false, {}, reason});
        if (isThere)
            return MakeUndescribedDevice(info, status);
        *error = status;
        return nullptr;
    }

    TovCam::ParamArray *GetInterfaceParameters(InterfaceImpl *interface, std::int32_t *) override
    {
        std::lock_guard<std::mutex> const lock(m_paramsMutex);
        if (!m_params)
            m_params = MakeInterfaceParams(interface->GetInterfaceDescription(), "usb", nullptr);
        return m_params.get();
    }

    std::string GetHostInformation(DeviceInfoImpl *info) override
    {
        HostFacts const host;
        return AlignLines({{"Camera driver", AravisVersion()},
                           {"USB speed", host.GetUsbSpeed(info->serial)},
                           {"USB buffer", host.GetUsbBuffer()},
                           {"Kernel", host.GetKernel()}});
    }

private:
    struct Identity
    {
        std::string name; // Aravis' own; empty for a camera that it does not list
        std::string vendor, model, serial, address;
    };

    // Of the camera at that place of the list.
    static Identity IdentityAt(unsigned index)
    {
        return {Text(arv_get_device_id(index)), Text(arv_get_device_vendor(index)), Text(arv_get_device_model(index)),
                Text(arv_get_device_serial_nbr(index)), Text(arv_get_device_physical_id(index))};
    }

    // Another camera behind a known id needs another description.
    DeviceInfoImpl *Publish(Identity const &camera, TovCam::OpenFailure failure)
    {
        std::string const key = camera.name + '\n' + camera.vendor + '\n' + camera.model + '\n' + camera.serial + '\n';
        DeviceInfoImpl *const info = m_interface.FindOrAdd(key, [&] {
            auto made = std::make_unique<DeviceInfoImpl>();
            made->vendor = camera.vendor;
            made->model = camera.model;
            made->serial = camera.serial;
            made->address = camera.address;
            made->displayName = camera.vendor + ' ' + camera.model;
            if (!camera.serial.empty())
                made->displayName += " (" + camera.serial + ')';
            return made;
        });
        info->access.store(TovCam::DeviceInfo::AccessUnknown, std::memory_order_relaxed);
        if (failure.refusal != OpenRefusal::None)
            info->SetOpenFailure(std::move(failure));
        return info;
    }

    // What is wrong with the description of an opened camera, if anything is.
    static TovCam::Device *Describe(TovCam::Device *opened, ArvDevice *device, DeviceInfoImpl *info)
    {
        TovCam::OpenFailure failure;
        if (!opened->GetCameraParameters(nullptr)) {
            size_t size = 0;
            char const *const xml = arv_device_get_genicam_xml(device, &size);
            failure.refusal = OpenRefusal::Description;
            CheckGenicamXml(xml, xml ? size : 0, &failure.reason);
        }
        info->SetOpenFailure(std::move(failure));
        return opened;
    }

    InterfaceImpl m_interface;
    std::mutex m_paramsMutex; // guards the next one
    std::unique_ptr<FixedParams> m_params;
};

} // namespace

std::unique_ptr<Backend> MakeAravisBackend()
{
    return std::make_unique<AravisBackend>();
}
