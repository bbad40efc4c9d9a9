#include "tovdoctor.h"

#include "addresses.h"
#include "forceaddress.h"
#include "hostcheck.h"
#include "hostfacts.h"
#include "keepaddress.h"

#include "protocol/socketaddress.h"

namespace {

std::vector<TovCam::HostAdapter> Describe(HostState const &host)
{
    std::vector<TovCam::HostAdapter> adapters;
    for (AdapterState const &state : host.adapters) {
        TovCam::HostAdapter adapter{state.name, {},          state.isUp, state.hasLink,
                                    state.mtu,  state.speed, state.ring, state.largestRing};
        for (SubnetAddress const &own : state.addresses)
            adapter.addresses.push_back(SubnetText(own.address, own.mask));
        adapters.push_back(std::move(adapter));
    }
    return adapters;
}

} // namespace

TovCam::HostReport TovCam_ExamineHost(std::vector<TovCam::ExaminedCamera> const &cameras)
{
    HostFacts const files;
    SystemCalls const calls = MakeSystemCalls();
    HostState const host = ReadHost(files, calls);
    std::vector<CameraState> states;
    for (TovCam::ExaminedCamera const &camera : cameras) {
        if (std::optional<CameraState> state = camera.info ? ReadCamera(camera, files, calls) : std::nullopt)
            states.push_back(std::move(*state));
    }
    return {host.isKnown, Describe(host), CheckHost(host, states)};
}

bool TovCam_ReadAddress(std::string const &address, std::string const &gateway, TovCam::CameraAddress *read)
{
    std::optional<SubnetAddress> const own = ParseSubnetAddress(address);
    std::optional<std::uint32_t> const router = gateway.empty() ? std::optional(0u) : ParseAddress(gateway);
    if (!own || !router || (*router != 0 && !IsHostAddress(*router, own->mask)))
        return false;
    *read = {own->address, own->mask, *router};
    return true;
}

std::string TovCam_AddressText(TovCam::CameraAddress const &address)
{
    return SubnetText(address.address, address.mask);
}

TovCam::CameraAddress TovCam_ProposeAddress(TovCam::DeviceInfo *info, std::vector<TovCam::DeviceInfo *> const &others)
{
    SystemCalls const calls = MakeSystemCalls();
    CameraState camera;
    camera.place = info->GetNetworkPlace();
    std::vector<std::uint32_t> taken;
    for (TovCam::DeviceInfo *const other : others) {
        if (other != info)
            taken.push_back(other->GetNetworkPlace().address);
    }
    return ProposeAddress(camera, ReadHost(HostFacts(), calls), taken);
}

TovCam::AddressUse TovCam_LookUpAddress(TovCam::DeviceInfo *info, std::vector<TovCam::DeviceInfo *> const &others,
                                        TovCam::CameraAddress const &address)
{
    TovCam::AddressUse use;
    for (TovCam::DeviceInfo *const other : others) {
        if (other != info && other->GetNetworkPlace().address == address.address)
            use.holder = other;
    }
    TovCam::NetworkPlace const place = info->GetNetworkPlace();
    HostState const host = ReadHost(HostFacts(), MakeSystemCalls());
    use.isOfHost = host.IsOwn(address.address) && !host.IsOwn(place.address);
    AdapterState const *const adapter = host.Find(place.adapter);
    use.isInReach = !adapter || adapter->Has(address.address);
    return use;
}

namespace {

// Without its hardware address a camera cannot be told from others.
bool CanHave(TovCam::NetworkPlace const &place, TovCam::CameraAddress const &address)
{
    return place.mac != 0 && IsHostAddress(address.address, address.mask) &&
           (address.gateway == 0 || IsHostAddress(address.gateway, address.mask));
}

} // namespace

std::int32_t TovCam_ForceAddress(TovCam::DeviceInfo *info, TovCam::CameraAddress const &address)
{
    TovCam::NetworkPlace const place = info ? info->GetNetworkPlace() : TovCam::NetworkPlace();
    return CanHave(place, address) ? ForceAddress(place, address)
                                   : static_cast<std::int32_t>(TOV_CAM_ERR_INVALID_ARGUMENT);
}

std::int32_t TovCam_KeepAddress(TovCam::DeviceInfo *info, TovCam::CameraAddress const &address)
{
    TovCam::NetworkPlace const place = info ? info->GetNetworkPlace() : TovCam::NetworkPlace();
    return CanHave(place, address) ? KeepAddress(place.mac, address)
                                   : static_cast<std::int32_t>(TOV_CAM_ERR_INVALID_ARGUMENT);
}
