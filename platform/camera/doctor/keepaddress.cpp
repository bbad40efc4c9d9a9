#include "keepaddress.h"

#include "gige/controlchannel.h"
#include "gige/gvcpclient.h"
#include "protocol/socketaddress.h"

#include <chrono>
#include <thread>
#include <utility>

namespace B = gvcp::bootstrap;

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds Patience{5}; // some cameras restart when they get an address
constexpr std::chrono::milliseconds Pause{100};

bool IsThere(std::string const &address, std::uint64_t mac)
{
    for (Clock::time_point const end = Clock::now() + Patience;;) {
        GvcpIdentity identity;
        TovCam::NetworkPlace place;
        if (GvcpClient(address).Discover(identity, &place))
            return place.mac == mac;
        if (Clock::now() >= end)
            return false;
        std::this_thread::sleep_for(Pause);
    }
}

// The switch comes last: a camera that goes in between comes up as it did before.
std::int32_t Store(ControlChannel &channel, TovCam::CameraAddress const &address)
{
    std::uint32_t capability = 0, configuration = 0;
    if (std::int32_t const status = channel.ReadRegister(B::NetworkInterfaceCapability, capability); status != 0)
        return status;
    if ((capability & gvcp::networkinterface::PersistentIp) == 0)
        return TOV_CAM_ERR_GENICAM_UNKNOWN_PARAM;
    if (std::int32_t const status = channel.ReadRegister(B::NetworkInterfaceConfiguration, configuration); status != 0)
        return status;
    std::pair<std::uint32_t, std::uint32_t> const values[] = {
        {B::PersistentIpAddress, address.address},
        {B::PersistentSubnetMask, address.mask},
        {B::PersistentDefaultGateway, address.gateway},
        {B::NetworkInterfaceConfiguration, configuration | gvcp::networkinterface::PersistentIp}};
    for (auto const &[place, value] : values) {
        if (std::int32_t const status = channel.WriteRegister(place, value); status != 0)
            return status;
    }
    for (auto const &[place, value] : values) {
        std::uint32_t kept = 0;
        if (std::int32_t const status = channel.ReadRegister(place, kept); status != 0)
            return status;
        if (kept != value)
            return TOV_CAM_ERR_UNKNOWN;
    }
    return TOV_CAM_ERR_OK;
}

} // namespace

std::int32_t KeepAddress(std::uint64_t mac, TovCam::CameraAddress const &address)
{
    std::string const text = AddressText(address.address);
    if (!IsThere(text, mac))
        return TOV_CAM_ERR_NO_DEVICE;
    ControlChannel channel(text);
    if (std::int32_t const status = channel.Open(); status != TOV_CAM_ERR_OK)
        return status;
    std::int32_t const status = Store(channel, address);
    channel.Close();
    bool const isKnown =
        status == TOV_CAM_ERR_OK || status == TOV_CAM_ERR_NO_DEVICE || status == TOV_CAM_ERR_GENICAM_UNKNOWN_PARAM;
    return isKnown ? status : static_cast<std::int32_t>(TOV_CAM_ERR_UNKNOWN);
}
