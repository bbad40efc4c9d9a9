// What the doctor asks the system by other ways than files. A network namespace has its adapters here, also where /sys
// still shows those of another.
#include "hoststate.h"

#include "capture/capturehelper.h"
#include "hostfacts.h"
#include "protocol/socketaddress.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <ifaddrs.h>
#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <memory>
#include <net/if.h>
#include <new>
#include <sys/ioctl.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace {

class AnySocket
{
public:
    AnySocket(int family, int kind) : m_socket(socket(family, kind | SOCK_CLOEXEC, 0))
    {
    }
    ~AnySocket()
    {
        if (m_socket >= 0)
            close(m_socket);
    }
    AnySocket(AnySocket const &) = delete;
    AnySocket &operator=(AnySocket const &) = delete;

    int Get() const
    {
        return m_socket;
    }

private:
    int const m_socket;
};

ifreq RequestFor(std::string const &adapter)
{
    ifreq request{};
    adapter.copy(request.ifr_name, IFNAMSIZ - 1);
    return request;
}

template<class Command>
bool AskDriver(int socket, std::string const &adapter, Command &command)
{
    ifreq request = RequestFor(adapter);
    request.ifr_data = reinterpret_cast<char *>(&command);
    return ioctl(socket, SIOCETHTOOL, &request) == 0;
}

void ReadLink(int socket, AdapterState &adapter)
{
    // The first answer is how many words the lists of modes have, negative; they follow the structure in the second.
    constexpr std::size_t MostModes = 3 * sizeof(std::uint32_t) * SCHAR_MAX;
    alignas(ethtool_link_settings) std::array<std::byte, sizeof(ethtool_link_settings) + MostModes> memory{};
    auto *const link = new (memory.data()) ethtool_link_settings{};
    link->cmd = ETHTOOL_GLINKSETTINGS;
    if (!AskDriver(socket, adapter.name, *link) || link->link_mode_masks_nwords >= 0)
        return;
    link->link_mode_masks_nwords = static_cast<__s8>(-link->link_mode_masks_nwords);
    link->cmd = ETHTOOL_GLINKSETTINGS;
    if (!AskDriver(socket, adapter.name, *link))
        return;
    if (link->speed != static_cast<std::uint32_t>(SPEED_UNKNOWN))
        adapter.speed = link->speed;
    adapter.isHalfDuplex = link->duplex == DUPLEX_HALF;
}

void AskForDetails(int socket, AdapterState &adapter)
{
    ifreq request = RequestFor(adapter.name);
    if (ioctl(socket, SIOCGIFMTU, &request) == 0)
        adapter.mtu = static_cast<std::uint32_t>(request.ifr_mtu);
    if (adapter.isLoopback)
        return;
    ReadLink(socket, adapter);
    ethtool_ringparam ring{};
    ring.cmd = ETHTOOL_GRINGPARAM;
    if (AskDriver(socket, adapter.name, ring)) {
        adapter.ring = ring.rx_pending;
        adapter.largestRing = ring.rx_max_pending;
    }
}

std::optional<std::vector<AdapterState>> ListAdapters()
{
    ifaddrs *all = nullptr;
    AnySocket const socket(AF_INET, SOCK_DGRAM);
    if (socket.Get() < 0 || getifaddrs(&all) != 0)
        return std::nullopt;
    std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> const holder(all, freeifaddrs);
    std::vector<AdapterState> adapters;
    for (ifaddrs const *one = all; one; one = one->ifa_next) {
        std::string const name = AdapterOfLabel(one->ifa_name);
        auto found = std::find_if(adapters.begin(), adapters.end(),
                                  [&name](AdapterState const &adapter) { return adapter.name == name; });
        if (found == adapters.end()) {
            AdapterState made;
            made.name = name;
            made.isUp = (one->ifa_flags & IFF_UP) != 0;
            made.hasLink = (one->ifa_flags & IFF_RUNNING) != 0;
            made.isLoopback = (one->ifa_flags & IFF_LOOPBACK) != 0;
            AskForDetails(socket.Get(), made);
            found = adapters.insert(adapters.end(), std::move(made));
        }
        if (std::optional<std::uint32_t> const address = Ipv4AddressOf(one->ifa_addr))
            found->addresses.push_back({*address, Ipv4AddressOf(one->ifa_netmask).value_or(~0u)});
    }
    std::sort(adapters.begin(), adapters.end(),
              [](AdapterState const &a, AdapterState const &b) { return a.name < b.name; });
    return adapters;
}

// As a stream's receiver asks for it. The system doubles what it grants, for its own accounts.
std::uint64_t GetSocketRoom(std::uint64_t wanted)
{
    AnySocket const socket(AF_INET, SOCK_DGRAM);
    int const bytes = static_cast<int>(wanted);
    if (setsockopt(socket.Get(), SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof bytes) != 0)
        setsockopt(socket.Get(), SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
    int granted = 0;
    socklen_t size = sizeof granted;
    if (getsockopt(socket.Get(), SOL_SOCKET, SO_RCVBUF, &granted, &size) != 0 || granted < 0)
        return 0;
    return static_cast<std::uint64_t>(granted) / 2;
}

// By a right of its own, or by the helper, where that may be started and has the right. Captures nothing.
bool MayCapture()
{
    if (AnySocket(AF_PACKET, SOCK_DGRAM).Get() >= 0)
        return true;
    std::string const helper = GetCaptureHelper();
    return access(helper.c_str(), X_OK) == 0 && getxattr(helper.c_str(), "security.capability", nullptr, 0) > 0;
}

} // namespace

SystemCalls MakeSystemCalls()
{
    return {ListAdapters, GetSocketRoom,
            [](std::uint32_t address) { return FindAdapter(AddressText(GetHostAddressTowards(address))); }, MayCapture};
}
