// Finds and opens GigE Vision cameras.
#include "aravis/aravisversion.h"
#include "camerasearch.h"
#include "fixedparams.h"
#include "gigedevice.h"
#include "gvcpclient.h"
#include "hostfacts.h"
#include "openwatch.h"
#include "protocol/socketaddress.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <tuple>

namespace {

// Of those that nobody has asked for by their address. A camera that was seen is kept for as long as the program runs,
// and whoever sends to this host can make up as many as he likes.
constexpr std::size_t MostSeen = 1024;

TovCam::DeviceInfo::AccessStatus AccessOf(std::optional<bool> isControlled)
{
    using Info = TovCam::DeviceInfo;
    if (!isControlled.has_value())
        return Info::AccessUnknown;
    return *isControlled ? Info::AccessBusy : Info::AccessFree;
}

class GigeBackend final : public Backend
{
public:
    GigeBackend() : m_interface(*this, TovCam::InterfaceKindGigEVision, "GigE Vision", AravisVersion())
    {
    }

    std::vector<InterfaceImpl *> GetInterfaces() override
    {
        return {&m_interface};
    }

    std::int32_t Update() override
    {
        // What was in the list is asked by itself too, and so is found however busy the network is; not who is out of
        // reach.
        std::vector<std::uint32_t> known = m_asked;
        for (DeviceInfoImpl *info : m_visible) {
            if (!info->GetNetworkPlace().isForeign)
                known.push_back(ParseAddress(info->address).value_or(0));
        }
        std::sort(known.begin(), known.end());
        known.erase(std::unique(known.begin(), known.end()), known.end());
        std::vector<DeviceInfoImpl *> visible;
        for (CameraRoll::Camera const &camera : FindCameras(known)) {
            bool const isAsked = std::find(m_asked.begin(), m_asked.end(), camera.address) != m_asked.end();
            if (DeviceInfoImpl *const info = Publish(camera, isAsked))
                visible.push_back(info);
        }
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
        CameraRoll::Camera camera{ParseAddress(address).value_or(0), {}};
        GvcpClient client(address);
        if (!client.Discover(camera.identity, &camera.place))
            return nullptr;
        if (std::uint32_t privilege; client.ReadRegister(gvcp::bootstrap::ControlChannelPrivilege, privilege))
            camera.isControlled = GvcpIsControlled(privilege);
        if (camera.isControlled.value_or(false)) // not every camera tells more
            client.ReadRegister(gvcp::bootstrap::PrimaryApplicationIpAddress, camera.controller);
        DeviceInfoImpl *const info = Publish(camera, true);
        if (std::find(m_asked.begin(), m_asked.end(), camera.address) == m_asked.end())
            m_asked.push_back(camera.address);
        if (std::find(m_visible.begin(), m_visible.end(), info) == m_visible.end()) {
            m_visible.push_back(info);
            m_interface.SetVisible(m_visible);
        }
        return info;
    }

    TovCam::Device *Open(DeviceInfoImpl *info, std::int32_t *error) override
    {
        TovCam::OpenFailure failure;
        TovCam::Device *const device = TryOpen(info, error, failure);
        info->SetOpenFailure(std::move(failure));
        return device;
    }

    // Of the adapter that leads to the camera opened last, or to the first one of the list.
    TovCam::ParamArray *GetInterfaceParameters(InterfaceImpl *interface, std::int32_t *) override
    {
        std::string address;
        {
            std::lock_guard<std::mutex> lock(m_paramsMutex);
            address = m_openedAddress;
        }
        if (TovCam::DeviceInfo *const first = interface->GetFirstDeviceInfo(); first && address.empty())
            address = first->GetAddress();
        std::string const name = address.empty() ? "" : FindAdapter(GvcpClient(address).GetLocalAddress());
        if (name.empty())
            return nullptr;
        std::lock_guard<std::mutex> lock(m_paramsMutex);
        std::unique_ptr<FixedParams> &params = m_params[name];
        if (!params) {
            std::uint64_t const mac = HostFacts().GetAdapter(name).mac;
            params = MakeInterfaceParams(name, "eth:" + name, &mac);
        }
        return params.get();
    }

    std::string GetHostInformation(DeviceInfoImpl *info) override
    {
        HostFacts const host;
        // The way to a foreign camera's address is not the one to the camera.
        TovCam::NetworkPlace const place = info->GetNetworkPlace();
        std::string const address = place.isForeign ? "" : GvcpClient(info->address).GetLocalAddress();
        NetworkAdapter const adapter = host.GetAdapter(place.isForeign ? place.adapter : FindAdapter(address));
        DeviceInfoImpl::Facts facts{{"Camera driver", AravisVersion()},
                                    {"Camera address", info->address + (place.isForeign ? " (wrong subnet)" : "")},
                                    {"Host address", address},
                                    {"Adapter", adapter.name},
                                    {"Adapter driver", adapter.driver},
                                    {"MTU", adapter.mtu},
                                    {"Link speed", adapter.speed},
                                    {"Receive buffer", host.GetReceiveBuffer()},
                                    {"Kernel", host.GetKernel()}};
        if (TovCam::OpenFailure const failure = info->GetOpenFailure();
            failure.refusal == TovCam::OpenRefusal::InUse && !failure.isOurs)
            facts.emplace_back("In use by", failure.place);
        DeviceInfoImpl::Facts const open = info->GetFacts();
        facts.insert(facts.end(), open.begin(), open.end());
        return AlignLines(facts);
    }

private:
    static TovCam::OpenFailure InUse(DeviceInfoImpl *info, std::uint32_t controller)
    {
        return {TovCam::OpenRefusal::InUse, info->HasFacts(), controller != 0 ? AddressText(controller) : "", {}};
    }

    TovCam::Device *TryOpen(DeviceInfoImpl *info, std::int32_t *error, TovCam::OpenFailure &failure)
    {
        using TovCam::OpenRefusal;
        auto const fail = [&](std::int32_t status, OpenRefusal refusal) {
            if (failure.refusal == OpenRefusal::None)
                failure.refusal = refusal;
            *error = status;
            return nullptr;
        };
        OpenWatch watch(info->GetOpenProgress());
        watch.Enter(TovCam::OpenProgress::Stage::Asking);
        // Seconds are not to be waited where nobody answers or another application has control.
        GvcpClient camera(info->address);
        GvcpIdentity identity;
        if (!camera.Discover(identity))
            return fail(TOV_CAM_ERR_NO_DEVICE, OpenRefusal::NoAnswer);
        if (identity.vendor != info->vendor || identity.model != info->model || identity.serial != info->serial) {
            failure.reason = "another camera has its address";
            return fail(TOV_CAM_ERR_NO_DEVICE, OpenRefusal::NoAnswer);
        }
        std::uint32_t privilege = 0;
        if (camera.ReadRegister(gvcp::bootstrap::ControlChannelPrivilege, privilege) && GvcpIsControlled(privilege)) {
            info->access.store(TovCam::DeviceInfo::AccessBusy, std::memory_order_relaxed);
            std::uint32_t controller = 0; // not every camera tells
            camera.ReadRegister(gvcp::bootstrap::PrimaryApplicationIpAddress, controller);
            failure = InUse(info, controller);
            return fail(TOV_CAM_ERR_GENICAM_ACCESS, OpenRefusal::InUse);
        }
        std::int32_t status = TOV_CAM_ERR_OK;
        GigeDevice *const device = GigeDevice::Open(info, watch, &status, &failure.reason);
        if (status == TOV_CAM_ERR_GENICAM_TREE) {
            failure.refusal = OpenRefusal::Description;
            return MakeUndescribedDevice(info, status);
        }
        if (!device)
            return fail(status, status == TOV_CAM_ERR_GENICAM_ACCESS ? OpenRefusal::InUse
                                : watch.IsOver()                     ? OpenRefusal::None
                                                                     : OpenRefusal::NoAnswer);
        failure = {};
        info->access.store(TovCam::DeviceInfo::AccessBusy, std::memory_order_relaxed);
        std::lock_guard<std::mutex> lock(m_paramsMutex);
        m_openedAddress = info->address;
        return device;
    }

    // Whom the search has found in control, and that a camera answers again.
    static void NoteSearch(CameraRoll::Camera const &camera, DeviceInfoImpl *info)
    {
        using TovCam::OpenRefusal;
        OpenRefusal const before = info->GetOpenFailure().refusal;
        if (camera.isControlled.value_or(false)) {
            if (camera.controller != 0 || before != OpenRefusal::InUse) // an answer may have been lost
                info->SetOpenFailure(InUse(info, camera.controller));
            return;
        }
        if (before == OpenRefusal::NoAnswer || (before == OpenRefusal::InUse && camera.isControlled))
            info->SetOpenFailure({});
    }

    // Another camera at a known address, or a changed user id, needs another description. Null for one more than are
    // kept, unless it was asked for.
    DeviceInfoImpl *Publish(CameraRoll::Camera const &camera, bool isAsked)
    {
        GvcpIdentity const &identity = camera.identity;
        std::string const address = AddressText(camera.address);
        std::string key = address;
        for (std::string const *part : {&identity.vendor, &identity.model, &identity.serial, &identity.userID})
            key += '\n' + *part;
        DeviceInfoImpl *const info = m_interface.FindOrAdd(key, [&]() -> std::unique_ptr<DeviceInfoImpl> {
            if (!isAsked && m_seen++ >= MostSeen)
                return nullptr;
            auto made = std::make_unique<DeviceInfoImpl>();
            made->vendor = identity.vendor;
            made->model = identity.model;
            made->serial = identity.serial;
            made->userID = identity.userID;
            made->address = address;
            made->displayName = identity.vendor + ' ' + identity.model;
            if (!identity.serial.empty())
                made->displayName += " (" + identity.serial + ')';
            return made;
        });
        if (info) {
            info->access.store(AccessOf(camera.isControlled), std::memory_order_relaxed);
            info->SetNetworkPlace(camera.place);
            NoteSearch(camera, info);
        }
        return info;
    }

    InterfaceImpl m_interface;
    // Used by Update and Find, which are called one at a time.
    std::vector<DeviceInfoImpl *> m_visible;
    std::vector<std::uint32_t> m_asked; // addresses
    std::size_t m_seen = 0;

    std::mutex m_paramsMutex;                                     // guards the next ones
    std::string m_openedAddress;                                  // of the camera opened last
    std::map<std::string, std::unique_ptr<FixedParams>> m_params; // by adapter; kept, as callers hold them
};

} // namespace

std::unique_ptr<Backend> MakeGigeBackend()
{
    return std::make_unique<GigeBackend>();
}
