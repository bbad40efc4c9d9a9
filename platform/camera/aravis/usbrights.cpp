#include "usbrights.h"

#include "hostfacts.h"
#include "packettap/usbframing.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

bool IsCamera(std::string const &device)
{
    std::ifstream file(device + "/descriptors", std::ios::binary);
    std::string const bytes{std::istreambuf_iterator<char>(file), {}};
    UsbEndpoints endpoints;
    return ParseUsbDescriptors(reinterpret_cast<std::uint8_t const *>(bytes.data()), bytes.size(), endpoints);
}

// Of the device file, below the root; "" where the numbers are none.
std::string NodeOf(HostFacts const &host, std::string const &device)
{
    int const bus = std::atoi(host.Read(device + "/busnum").c_str());
    int const address = std::atoi(host.Read(device + "/devnum").c_str());
    if (bus <= 0 || bus > 999 || address <= 0 || address > 127)
        return {};
    std::array<char, 40> node{};
    std::snprintf(node.data(), node.size(), "/dev/bus/usb/%03d/%03d", bus, address);
    return node.data();
}

} // namespace

std::vector<ForbiddenUsbCamera> FindForbiddenUsbCameras(std::string const &root)
{
    HostFacts const host(root);
    std::string const folder = "/sys/bus/usb/devices";
    std::vector<std::string> devices;
    std::error_code error;
    for (fs::directory_iterator i(root + folder, error), end; !error && i != end; i.increment(error))
        devices.push_back(folder + '/' + i->path().filename().string());
    std::sort(devices.begin(), devices.end());
    std::vector<ForbiddenUsbCamera> found;
    for (std::string const &device : devices) {
        std::string const node = NodeOf(host, device);
        if (node.empty() || !IsCamera(root + device))
            continue;
        // As the process has its rights, which is what opening goes by.
        if (faccessat(AT_FDCWD, (root + node).c_str(), R_OK | W_OK, AT_EACCESS) == 0 || errno != EACCES)
            continue;
        found.push_back({host.Read(device + "/manufacturer"), host.Read(device + "/product"),
                         host.Read(device + "/serial"), node, std::strerror(EACCES)});
    }
    return found;
}
