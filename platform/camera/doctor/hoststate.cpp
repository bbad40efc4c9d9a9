#include "hoststate.h"

#include "gige/socketroom.h"
#include "hostfacts.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <sstream>

namespace fs = std::filesystem;

namespace {

// Destination and netmask are the second and the eighth of its words.
bool HasDefaultRoute(std::string const &root)
{
    std::ifstream routes(root + "/proc/net/route");
    std::string line;
    std::getline(routes, line); // the heading
    while (std::getline(routes, line)) {
        std::istringstream words(line);
        std::vector<std::string> word(8);
        for (std::string &one : word)
            words >> one;
        if (word[1] == "00000000" && word[7] == "00000000")
            return true;
    }
    return false;
}

// The system takes the larger one of the two.
int ReturnPathFilter(HostFacts const &files, std::string const &adapter)
{
    std::string const folder = "/proc/sys/net/ipv4/conf/";
    return std::max(std::atoi(files.Read(folder + "all/rp_filter").c_str()),
                    std::atoi(files.Read(folder + adapter + "/rp_filter").c_str()));
}

} // namespace

bool AdapterState::Has(std::uint32_t address) const
{
    return std::any_of(addresses.begin(), addresses.end(),
                       [address](SubnetAddress const &own) { return own.Has(address); });
}

AdapterState const *HostState::Find(std::string const &adapter) const
{
    auto const found = std::find_if(adapters.begin(), adapters.end(),
                                    [&adapter](AdapterState const &one) { return one.name == adapter; });
    return found == adapters.end() ? nullptr : &*found;
}

bool HostState::IsOwn(std::uint32_t address) const
{
    constexpr std::uint32_t Loopback = 127; // the first part of all its addresses
    return address >> 24 == Loopback ||
           std::any_of(adapters.begin(), adapters.end(), [address](AdapterState const &one) {
               return std::any_of(one.addresses.begin(), one.addresses.end(),
                                  [address](SubnetAddress const &own) { return own.address == address; });
           });
}

HostState ReadHost(HostFacts const &files, SystemCalls const &calls)
{
    HostState host;
    if (std::optional<std::vector<AdapterState>> adapters = calls.listAdapters()) {
        host.isKnown = true;
        host.adapters = std::move(*adapters);
    }
    std::error_code none;
    for (AdapterState &adapter : host.adapters) {
        adapter.isHardware = fs::exists(files.GetRoot() + "/sys/class/net/" + adapter.name + "/device", none);
        adapter.returnPathFilter = ReturnPathFilter(files, adapter.name);
    }
    host.hasDefaultRoute = HasDefaultRoute(files.GetRoot());
    host.socketRoom = calls.getSocketRoom(SocketRoomFor(std::numeric_limits<std::uint64_t>::max()));
    host.mayCapture = calls.mayCapture();
    std::string const megabytes = files.Read("/sys/module/usbcore/parameters/usbfs_memory_mb");
    if (!megabytes.empty())
        host.usbMemory = std::strtoull(megabytes.c_str(), nullptr, 10) << 20;
    return host;
}

std::optional<CameraState> ReadCamera(TovCam::ExaminedCamera const &camera, HostFacts const &files,
                                      SystemCalls const &calls)
{
    CameraState state;
    state.info = camera.info;
    state.needs = camera.needs;
    state.name = camera.info->GetDisplayName();
    state.serial = camera.info->GetSerialNumber();
    state.isUsb = camera.info->GetInterface()->GetInterfaceKind() == TovCam::InterfaceKindUSB3Vision;
    state.place = camera.info->GetNetworkPlace();
    // A simulated camera is nowhere.
    if (state.isUsb ? *camera.info->GetAddress() == '\0' : state.place.address == 0)
        return std::nullopt;
    if (state.isUsb) {
        if (std::string const device = files.FindUsbDevice(state.serial); !device.empty())
            state.usbSpeed = static_cast<std::uint32_t>(std::atoi(files.Read(device + "/speed").c_str()));
    } else if (!state.place.isForeign) {
        state.routeAdapter = calls.findRoute(state.place.address);
    }
    return state;
}
