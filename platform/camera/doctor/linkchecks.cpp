#include "findings.h"

#include "gige/socketroom.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace {

using Check = TovCam::HostCheck;
using Severity = Findings::Severity;

constexpr std::uint32_t LargeMtu = 8000, WantedMtu = 9000, UsualMtu = 1500; // bytes
constexpr std::uint32_t Gigabit = 1000;                                     // Mbit/s
constexpr double Megabit = 1e6;
// What the headers of IP, UDP and GVSP take of a packet, and what Ethernet needs for each beside it.
constexpr double PacketHeaders = 36, EthernetShare = 38;
constexpr double RingPatience = 0.010; // seconds in which a busy system gets to its adapter

void CheckPacketSize(Findings &findings, AdapterState const &adapter, std::vector<CameraState const *> const &cameras)
{
    std::string const mtu = std::to_string(adapter.mtu) + " bytes";
    std::string const mending = "sudo ip link set " + adapter.name + " mtu " + std::to_string(WantedMtu);
    if (adapter.mtu == 0)
        return;
    bool isTooSmall = false;
    for (CameraState const *const camera : cameras) {
        std::uint32_t const size = camera->needs.packetSize;
        if (size > adapter.mtu) {
            isTooSmall = true;
            findings.Add(Check::PacketSize, Severity::Fault, camera->info, adapter.name,
                         {camera->name + " sends packets of " + std::to_string(size) + " bytes, and " + adapter.name +
                              " takes " + mtu + " at most.",
                          "Larger ones do not get through whole.", mending});
        } else if (adapter.mtu >= LargeMtu && size != 0 && size <= UsualMtu) {
            findings.Add(Check::PacketSize, Severity::Hint, camera->info, adapter.name,
                         {camera->name + " sends packets of " + std::to_string(size) + " bytes, though " +
                              adapter.name + " takes " + mtu + '.',
                          "Something between the two does not carry large packets, which take less processor time.",
                          {},
                          "Allow large packets (jumbo frames) on the switch, and in the camera."});
        }
    }
    if (isTooSmall || adapter.mtu >= LargeMtu)
        return;
    findings.Add(Check::PacketSize, adapter.speed > Gigabit ? Severity::Warning : Severity::Hint, nullptr, adapter.name,
                 {adapter.name + " takes packets of " + mtu + " at most (MTU).",
                  "Small packets are more packets, each of which takes processor time.", mending});
}

void CheckRing(Findings &findings, AdapterState const &adapter)
{
    if (adapter.ring == 0 || adapter.ring >= adapter.largestRing)
        return;
    double const packet = adapter.mtu != 0 ? adapter.mtu : UsualMtu;
    double const speed = std::max(adapter.speed, Gigabit) * Megabit / 8;
    double const time = adapter.ring * packet / speed;
    if (time >= RingPatience)
        return;
    std::array<char, 32> text;
    std::snprintf(text.data(), text.size(), "%.1f ms", time * 1e3);
    findings.Add(Check::Ring, Severity::Warning, nullptr, adapter.name,
                 {"The ring of " + adapter.name + " holds " + std::to_string(adapter.ring) + " packets of " +
                      std::to_string(adapter.largestRing) + " that it could.",
                  std::string("That is ") + text.data() +
                      " of a full link; if the system takes longer to get there, packets are lost.",
                  "sudo ethtool -G " + adapter.name + " rx " + std::to_string(adapter.largestRing)});
}

void CheckSpeed(Findings &findings, AdapterState const &adapter)
{
    if (adapter.speed != 0 && adapter.speed < Gigabit)
        findings.Add(Check::LinkSpeed, Severity::Warning, nullptr, adapter.name,
                     {"The link of " + adapter.name + " runs at " + SpeedText(adapter.speed) + '.',
                      "A GigE Vision camera is made for 1 Gb/s; a cable with a bad pair or an old switch is slower.",
                      {},
                      "Use a cable of category 5e or better, and ports for 1 Gb/s."});
    if (adapter.isHalfDuplex)
        findings.Add(Check::LinkSpeed, Severity::Warning, nullptr, adapter.name,
                     {"The link of " + adapter.name + " sends or receives, but not both at once (half duplex).",
                      "What collides is lost.", "sudo ethtool -s " + adapter.name + " autoneg on"});
}

// Mbit/s on the wire; 0: not known.
double Demand(CameraState const &camera, AdapterState const &adapter)
{
    TovCam::StreamNeeds const &needs = camera.needs;
    std::uint32_t const told = needs.packetSize != 0 ? needs.packetSize : adapter.mtu;
    double const packet = std::max<std::uint32_t>(told, UsualMtu);
    double const share = (packet + EthernetShare) / (packet - PacketHeaders);
    return static_cast<double>(needs.frameSize) * needs.frameRate * 8 / Megabit * share;
}

void CheckShare(Findings &findings, AdapterState const &adapter, std::vector<CameraState const *> const &cameras)
{
    if (adapter.speed == 0)
        return;
    double sum = 0;
    bool isKnown = true;
    for (CameraState const *const camera : cameras) {
        double const demand = Demand(*camera, adapter);
        sum += demand;
        isKnown = isKnown && demand > 0;
    }
    std::size_t const count = cameras.size();
    bool const isMuch = sum > adapter.speed;
    // Those that are not known are taken for such as fill a link of 1 Gb/s.
    if (!isMuch && (isKnown || count < 2 || adapter.speed >= count * Gigabit))
        return;
    double const each = adapter.speed * Megabit / 8 * 0.9 / static_cast<double>(count);
    auto const limit = static_cast<unsigned long>(each / 1e6);
    std::string const who = count == 1 ? cameras.front()->name + " is"
                                       : "The " + std::to_string(count) + " cameras at " + adapter.name + " are";
    findings.Add(Check::LinkShare, isMuch ? Severity::Warning : Severity::Hint,
                 count == 1 ? cameras.front()->info : nullptr, adapter.name,
                 {isMuch
                      ? who + " to send " + SpeedText(sum) + ", and the link carries " + SpeedText(adapter.speed) + '.'
                      : std::to_string(count) + " cameras share the link of " + adapter.name + ", " +
                            SpeedText(adapter.speed) + '.',
                  isMuch ? "What does not fit is lost." : "If together they send more than that, packets are lost.",
                  {},
                  "Have each send " + std::to_string(limit) +
                      " MB/s at most (DeviceLinkThroughputLimit, or a lower frame rate)" +
                      (count == 1 ? "." : ", or give each an adapter of its own.")});
}

} // namespace

std::string SizeText(std::uint64_t bytes)
{
    constexpr double Kilobyte = 1 << 10, Megabyte = 1 << 20;
    auto const size = static_cast<double>(bytes);
    std::array<char, 32> text;
    bool const isWhole = bytes % (1u << 20) == 0;
    if (size < Megabyte)
        std::snprintf(text.data(), text.size(), "%.0f KB", size / Kilobyte);
    else
        std::snprintf(text.data(), text.size(), isWhole ? "%.0f MB" : "%.1f MB", size / Megabyte);
    return text.data();
}

std::string SpeedText(double megabits)
{
    std::array<char, 32> text;
    if (megabits < Gigabit)
        std::snprintf(text.data(), text.size(), "%.0f Mb/s", megabits);
    else
        std::snprintf(text.data(), text.size(), "%.3g Gb/s", megabits / Gigabit);
    return text.data();
}

void CheckAdapters(Findings &findings)
{
    for (AdapterState const &adapter : findings.host.adapters) {
        std::vector<CameraState const *> const cameras = findings.CamerasOf(adapter);
        if (adapter.isLoopback || cameras.empty())
            continue;
        CheckPacketSize(findings, adapter, cameras);
        CheckRing(findings, adapter);
        CheckSpeed(findings, adapter);
        CheckShare(findings, adapter, cameras);
    }
}

void CheckStreams(Findings &findings)
{
    constexpr std::uint64_t Recommended = 32u << 20;
    std::uint64_t const room = findings.host.socketRoom;
    if (room == 0 || findings.host.mayCapture)
        return;
    std::uint64_t wanted = 0;
    CameraState const *most = nullptr;
    for (CameraState const &camera : findings.cameras) {
        std::uint64_t const own = camera.isUsb ? 0 : SocketRoomFor(camera.needs.frameSize);
        if (own > wanted) {
            wanted = own;
            most = &camera;
        }
    }
    if (wanted <= room)
        return;
    std::string const whom = 2 * most->needs.frameSize == wanted ? "two frames of " + most->name + " are "
                                                                 : std::string("a stream asks for ");
    findings.Add(Check::ReceiveBuffer, Severity::Warning, nullptr, {},
                 {"A socket gets a receive buffer of " + SizeText(room) + "; " + whom + SizeText(wanted) + '.',
                  "Packets wait there while the program is busy; what does not fit is lost.",
                  "sudo sysctl -w net.core.rmem_max=" + std::to_string(std::max(Recommended, wanted))});
}

void CheckUsb(Findings &findings)
{
    constexpr std::uint32_t SuperSpeed = 5000;          // Mbit/s
    constexpr std::uint64_t LeastForCamera = 16u << 20; // bytes
    std::uint64_t wanted = 0;
    std::size_t count = 0;
    for (CameraState const &camera : findings.cameras) {
        if (!camera.isUsb)
            continue;
        ++count;
        wanted += std::max(LeastForCamera, 2 * camera.needs.frameSize);
        if (camera.usbSpeed != 0 && camera.usbSpeed < SuperSpeed)
            findings.Add(Check::UsbSpeed, Severity::Warning, camera.info, {},
                         {camera.name + " is connected at " + SpeedText(camera.usbSpeed) + '.',
                          "A USB3 Vision camera needs 5 Gb/s; a wrong port, cable or hub is slower.",
                          {},
                          "Plug it into a USB 3 port, by a USB 3 cable and without a hub."});
    }
    std::uint64_t const memory = findings.host.usbMemory.value_or(0);
    if (memory != 0 && memory < wanted)
        findings.Add(Check::UsbMemory, Severity::Warning, nullptr, {},
                     {"All USB transfers share " + SizeText(memory) + " of memory; " +
                          (count == 1 ? "the camera needs " : std::to_string(count) + " cameras need ") +
                          SizeText(wanted) + '.',
                      "Without it, transfers fail and frames are lost.",
                      "echo 1000 | sudo tee /sys/module/usbcore/parameters/usbfs_memory_mb"});
}
