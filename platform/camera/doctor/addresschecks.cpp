#include "addresses.h"
#include "findings.h"
#include "hostcheck.h"

#include "protocol/socketaddress.h"

#include <algorithm>
#include <string_view>

namespace {

using Check = TovCam::HostCheck;
using Severity = Findings::Severity;

// How tovdoctor is told which camera. A camera chooses its serial number, and the line is for a shell.
std::string CommandName(CameraState const &camera)
{
    constexpr std::string_view Plain = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz_.";
    bool const isPlain = !camera.serial.empty() && camera.serial.find_first_not_of(Plain) == std::string::npos;
    return isPlain ? camera.serial : AddressText(camera.place.address);
}

std::string SetAddress(CameraState const &camera, std::uint32_t address, std::uint32_t mask)
{
    return "tovdoctor --set-address " + CommandName(camera) + ' ' + SubnetText(address, mask);
}

std::vector<std::uint32_t> AddressesOf(std::vector<CameraState> const &cameras)
{
    std::vector<std::uint32_t> addresses;
    addresses.reserve(cameras.size());
    for (CameraState const &camera : cameras)
        addresses.push_back(camera.place.address);
    return addresses;
}

void CheckForeign(Findings &findings, CameraState const &camera)
{
    AdapterState const *const adapter = findings.host.Find(camera.place.adapter);
    if (!adapter || adapter->addresses.empty())
        return;
    SubnetAddress const own = adapter->addresses.front();
    Findings::Texts texts{"Wrong subnet: " + camera.name + " is at " +
                              SubnetText(camera.place.address, camera.place.mask) + ", and " + adapter->name +
                              ", which sees it, at " + SubnetText(own.address, own.mask) + '.',
                          "It cannot be opened until both are in one subnet.",
                          {}};
    TovCam::CameraAddress const proposed = ProposeAddress(camera, findings.host, AddressesOf(findings.cameras));
    if (proposed.address != 0)
        texts.command = SetAddress(camera, proposed.address, proposed.mask);
    else
        texts.advice = "Give " + adapter->name + " an address in the camera's subnet.";
    findings.Add(Check::Subnet, Severity::Fault, camera.info, adapter->name, std::move(texts));
}

// Each must find the other in its own subnet.
void CheckMask(Findings &findings, CameraState const &camera, AdapterState const &adapter)
{
    TovCam::NetworkPlace const &place = camera.place;
    auto const own = std::find_if(adapter.addresses.begin(), adapter.addresses.end(),
                                  [&](SubnetAddress const &one) { return one.Has(place.address); });
    if (own == adapter.addresses.end() || place.mask == 0 || place.mask == own->mask)
        return;
    bool const isFar = !SubnetAddress{place.address, place.mask}.Has(own->address);
    std::string const why = isFar ? "By that it takes this computer for one behind a router, and frames do not come."
                                  : "What is in the subnet for one of the two is behind a router for the other.";
    findings.Add(Check::Subnet, isFar ? Severity::Fault : Severity::Hint, camera.info, adapter.name,
                 {camera.name + " has the netmask " + AddressText(place.mask) + ", and " + adapter.name + ' ' +
                      AddressText(own->mask) + '.',
                  why, SetAddress(camera, place.address, own->mask)});
}

void CheckTwins(Findings &findings, CameraState const &camera)
{
    auto const twin = std::find_if(findings.cameras.begin(), findings.cameras.end(), [&](CameraState const &other) {
        return !other.isUsb && other.place.address == camera.place.address;
    });
    if (&*twin == &camera)
        return;
    TovCam::CameraAddress const proposed = ProposeAddress(camera, findings.host, AddressesOf(findings.cameras));
    Findings::Texts texts{twin->name + " and " + camera.name + " are both at " + AddressText(camera.place.address) +
                              '.',
                          "Neither can be used until one of them has another address.",
                          {},
                          "Switch the first one off, and give the second another address."};
    if (proposed.address != 0 && CommandName(camera) == camera.serial && camera.serial != twin->serial)
        texts.command = SetAddress(camera, proposed.address, proposed.mask);
    findings.Add(Check::Subnet, Severity::Fault, camera.info, camera.place.adapter, std::move(texts));
}

void CheckRoute(Findings &findings, CameraState const &camera, AdapterState const &adapter)
{
    constexpr int Strict = 1;
    if (camera.routeAdapter.empty() || camera.routeAdapter == adapter.name)
        return;
    bool const isCutOff = adapter.returnPathFilter == Strict;
    std::string const why = isCutOff
                                ? "The return-path filter of " + adapter.name + " then discards what comes from it."
                                : "Both have addresses in its subnet, and the system takes one of them.";
    findings.Add(
        Check::Route, isCutOff ? Severity::Fault : Severity::Warning, camera.info, adapter.name,
        {camera.name + " is at " + adapter.name + ", but what is sent to it leaves by " + camera.routeAdapter + '.',
         why, "sudo ip route add " + AddressText(camera.place.address) + "/32 dev " + adapter.name});
}

// Of an adapter where nobody was found, who may be there all the same.
void CheckReturnPath(Findings &findings, AdapterState const &adapter)
{
    constexpr int Off = 0, Loose = 2; // lets everybody through whom a route leads to, be it the default one
    int const wanted = findings.host.hasDefaultRoute ? Loose : Off;
    if (adapter.returnPathFilter == Off || (adapter.returnPathFilter == Loose && wanted == Loose))
        return;
    std::string name = adapter.name; // sysctl has another meaning for dots
    std::replace(name.begin(), name.end(), '.', '/');
    std::string const off = wanted == Off ? "net.ipv4.conf.all.rp_filter=0 " : "";
    findings.Add(Check::ReturnPath, Severity::Hint, nullptr, adapter.name,
                 {"The return-path filter of " + adapter.name + " is on (rp_filter " +
                      std::to_string(adapter.returnPathFilter) + ").",
                  "A camera there that is in a wrong subnet is not found.",
                  "sudo sysctl -w " + off + "net.ipv4.conf." + name + ".rp_filter=" + std::to_string(wanted)});
}

void CheckHasAddress(Findings &findings, AdapterState const &adapter)
{
    if (!adapter.addresses.empty() || !adapter.isHardware)
        return;
    std::uint32_t network = 0xC0A84D00; // 192.168.77.0
    for (auto const has =
             [&](AdapterState const &one) {
                 return one.Has(network);
             };
         std::any_of(findings.host.adapters.begin(), findings.host.adapters.end(), has);)
        network += 0x100;
    findings.Add(Check::Adapter, Severity::Hint, nullptr, adapter.name,
                 {adapter.name + " has a link, but no IPv4 address.",
                  "Cameras are looked for by adapters with an address alone.",
                  "sudo ip address add " + SubnetText(network + 1, 0xFFFFFF00) + " brd + dev " + adapter.name});
}

} // namespace

TovCam::CameraAddress ProposeAddress(CameraState const &camera, HostState const &host,
                                     std::vector<std::uint32_t> const &others)
{
    AdapterState const *const adapter = host.Find(camera.place.adapter);
    if (!adapter || adapter->isLoopback)
        return {};
    std::vector<std::uint32_t> taken = others;
    for (AdapterState const &one : host.adapters) {
        for (SubnetAddress const &own : one.addresses)
            taken.push_back(own.address);
    }
    for (SubnetAddress const &own : adapter->addresses) {
        if (std::uint32_t const address = FindFreeAddress(own, camera.place.address, taken))
            return {address, own.mask, 0};
    }
    return {};
}

void CheckAddresses(Findings &findings)
{
    for (CameraState const &camera : findings.cameras) {
        if (!camera.isUsb && camera.place.isForeign)
            CheckForeign(findings, camera);
        if (!camera.isUsb)
            CheckTwins(findings, camera);
    }
    for (AdapterState const &adapter : findings.host.adapters) {
        if (adapter.isLoopback || !adapter.isUp || !adapter.hasLink)
            continue;
        std::vector<CameraState const *> const here = findings.CamerasOf(adapter);
        for (CameraState const *const camera : here) {
            CheckMask(findings, *camera, adapter);
            CheckRoute(findings, *camera, adapter);
        }
        CheckHasAddress(findings, adapter);
        if (here.empty() && !adapter.addresses.empty())
            CheckReturnPath(findings, adapter);
    }
}
