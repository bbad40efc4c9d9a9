#include "hostfacts.h"

#include "protocol/socketaddress.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <ifaddrs.h>

namespace fs = std::filesystem;

std::string AlignLines(std::vector<std::pair<std::string, std::string>> const &facts)
{
    std::size_t widest = 0;
    for (auto const &[label, value] : facts) {
        if (!value.empty())
            widest = std::max(widest, label.size());
    }
    std::string text;
    for (auto const &[label, value] : facts) {
        if (!value.empty())
            text += label + ": " + std::string(widest - label.size(), ' ') + value + '\n';
    }
    return text;
}

HostFacts::HostFacts(std::string root) : m_root(std::move(root))
{
}

std::string HostFacts::Read(std::string const &file) const
{
    std::ifstream stream(m_root + file);
    std::string line;
    std::getline(stream, line);
    return line;
}

NetworkAdapter HostFacts::GetAdapter(std::string const &name) const
{
    NetworkAdapter adapter;
    std::string const folder = "/sys/class/net/" + name;
    std::error_code error;
    if (name.empty() || name.find('/') != std::string::npos || !fs::exists(m_root + folder, error))
        return adapter;
    adapter.name = name;
    for (char const c : Read(folder + "/address")) {
        if (c != ':')
            adapter.mac =
                adapter.mac << 4 | static_cast<std::uint64_t>(std::string_view("0123456789abcdef").find(c) & 15);
    }
    if (std::string const mtu = Read(folder + "/mtu"); !mtu.empty())
        adapter.mtu = mtu + " bytes";
    // What is down, or has no speed, says -1 or nothing.
    if (std::string const speed = Read(folder + "/speed"); std::atoi(speed.c_str()) > 0)
        adapter.speed = speed + " Mb/s";
    fs::path const driver = fs::read_symlink(m_root + folder + "/device/driver", error).filename();
    if (!error) {
        std::string const version = Read("/sys/module/" + driver.string() + "/version");
        adapter.driver = driver.string() + (version.empty() ? ", kernel " + GetKernel() : ' ' + version);
    }
    return adapter;
}

std::string HostFacts::GetReceiveBuffer() const
{
    std::string const bytes = Read("/proc/sys/net/core/rmem_max");
    return bytes.empty() ? bytes : bytes + " bytes at most (net.core.rmem_max)";
}

std::string HostFacts::GetUsbBuffer() const
{
    std::string const megabytes = Read("/sys/module/usbcore/parameters/usbfs_memory_mb");
    if (megabytes == "0")
        return "without limit (usbfs_memory_mb)";
    return megabytes.empty() ? megabytes : megabytes + " MB (usbfs_memory_mb)";
}

std::string HostFacts::GetKernel() const
{
    return Read("/proc/sys/kernel/osrelease");
}

std::string HostFacts::GetUsbSpeed(std::string const &serialNumber) const
{
    std::string const device = FindUsbDevice(serialNumber);
    std::string const speed = device.empty() ? device : Read(device + "/speed");
    return speed.empty() ? speed : speed + " Mb/s";
}

std::string HostFacts::FindUsbDevice(std::string const &serialNumber) const
{
    std::string const folder = "/sys/bus/usb/devices";
    std::error_code error;
    for (fs::directory_iterator i(m_root + folder, error), end; !error && i != end; i.increment(error)) {
        std::string const device = folder + '/' + i->path().filename().string();
        if (!serialNumber.empty() && Read(device + "/serial") == serialNumber)
            return device;
    }
    return {};
}

std::string FindAdapter(std::string const &address)
{
    std::optional<std::uint32_t> const wanted = ParseAddress(address);
    ifaddrs *all = nullptr;
    if (!wanted || getifaddrs(&all) != 0)
        return {};
    std::string name;
    for (ifaddrs const *one = all; one && name.empty(); one = one->ifa_next) {
        if (Ipv4AddressOf(one->ifa_addr) == wanted)
            name = one->ifa_name;
    }
    freeifaddrs(all);
    return name;
}
