// What the doctor knows of the host, its network adapters and its cameras, and where that comes from.
#pragma once

#include "tovdoctor.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

class HostFacts;

struct SubnetAddress
{
    std::uint32_t address = 0, mask = 0;

    bool Has(std::uint32_t other) const
    {
        return ((address ^ other) & mask) == 0;
    }
};

struct AdapterState // zeros: not known
{
    std::string name;
    std::vector<SubnetAddress> addresses;
    bool isUp = false, hasLink = false, isLoopback = false, isHalfDuplex = false;
    bool isHardware = false;
    std::uint32_t mtu = 0;                   // bytes
    std::uint32_t speed = 0;                 // Mbit/s
    std::uint32_t ring = 0, largestRing = 0; // packets
    int returnPathFilter = 0;                // as it takes effect: 0 off, 1 strict, 2 loose

    bool Has(std::uint32_t address) const; // in one of its subnets
};

struct HostState
{
    bool isKnown = false; // the adapters
    std::vector<AdapterState> adapters;
    bool hasDefaultRoute = false;
    std::uint64_t socketRoom = 0;           // bytes that a socket gets of the most that a stream asks for; 0: not known
    bool mayCapture = false;                // streams come through a ring of their own
    std::optional<std::uint64_t> usbMemory; // bytes for all transfers; 0: without limit

    AdapterState const *Find(std::string const &adapter) const; // null: none
    bool IsOwn(std::uint32_t address) const;                    // of this host
};

struct CameraState
{
    TovCam::DeviceInfo *info = nullptr;
    TovCam::StreamNeeds needs;
    std::string name, serial;
    bool isUsb = false;
    TovCam::NetworkPlace place;
    std::string routeAdapter;   // by which the system would send to it; empty: not known
    std::uint32_t usbSpeed = 0; // Mbit/s of its port; 0: not known
};

// What is not in files; tests replace it.
struct SystemCalls
{
    std::function<std::optional<std::vector<AdapterState>>()> listAdapters; // without what is in files
    std::function<std::uint64_t(std::uint64_t wanted)> getSocketRoom;
    std::function<std::string(std::uint32_t address)> findRoute;
    std::function<bool()> mayCapture;
};
SystemCalls MakeSystemCalls();

HostState ReadHost(HostFacts const &files, SystemCalls const &calls);
// Nothing for a simulated camera.
std::optional<CameraState> ReadCamera(TovCam::ExaminedCamera const &camera, HostFacts const &files,
                                      SystemCalls const &calls);
