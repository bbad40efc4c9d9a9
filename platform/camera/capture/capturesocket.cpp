#include "capturesocket.h"

#include "capturefilter.h"
#include "protocol/socketaddress.h"

#include <cerrno>
#include <cstring>
#include <ifaddrs.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

CaptureAnswer Answer(CaptureStatus status, int error = 0)
{
    return {CaptureVersion, status, error};
}

// False where there is no such adapter.
bool GetFlags(std::uint32_t adapter, int &flags)
{
    ifreq request{};
    int const any = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    bool const known = any >= 0 && adapter != 0 && if_indextoname(adapter, request.ifr_name) &&
                       ioctl(any, SIOCGIFFLAGS, &request) == 0;
    flags = known ? static_cast<unsigned short>(request.ifr_flags) : 0;
    if (any >= 0)
        close(any);
    return known;
}

bool IsUnicast(std::uint32_t address)
{
    return address >> 24 != 0 && address >> 28 < 0xE; // neither "this network" nor multicast and what is reserved
}

struct KnownAddresses
{
    bool hasHost = false;      // as one of this computer's
    bool hasBroadcast = false; // the camera's, as everybody's in one of its networks
};

KnownAddresses LookUp(CaptureRequest const &request)
{
    KnownAddresses known;
    known.hasHost = request.host >> 24 == IN_LOOPBACKNET;
    ifaddrs *all = nullptr;
    if (getifaddrs(&all) != 0)
        return known;
    for (ifaddrs const *one = all; one; one = one->ifa_next) {
        known.hasHost |= Ipv4AddressOf(one->ifa_addr) == request.host;
        known.hasBroadcast |=
            (one->ifa_flags & IFF_BROADCAST) != 0 && Ipv4AddressOf(one->ifa_broadaddr) == request.camera;
    }
    freeifaddrs(all);
    return known;
}

template<typename Value>
bool SetOption(int socket, int level, int option, Value const &value)
{
    return setsockopt(socket, level, option, &value, sizeof value) == 0;
}

// In this order: nothing is captured before the filter is there, and whoever gets the socket cannot change it.
bool Prepare(int socket, CaptureRequest const &request)
{
    std::vector<sock_filter> filter = MakeCaptureFilter(request);
    sock_fprog const program{static_cast<unsigned short>(filter.size()), filter.data()};
    if (!SetOption(socket, SOL_SOCKET, SO_ATTACH_FILTER, program) || !SetOption(socket, SOL_SOCKET, SO_LOCK_FILTER, 1))
        return false;
    int flags;
    // A packet on loopback goes out and comes in; once is enough.
    if (GetFlags(request.adapter, flags) && (flags & IFF_LOOPBACK) != 0 &&
        !SetOption(socket, SOL_PACKET, PACKET_IGNORE_OUTGOING, 1))
        return false;
    // What this computer sends is seen by those alone who listen to all protocols.
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(request.kind == CaptureTraffic ? ETH_P_ALL : ETH_P_IP);
    address.sll_ifindex = static_cast<int>(request.adapter);
    return bind(socket, reinterpret_cast<sockaddr const *>(&address), sizeof address) == 0;
}

} // namespace

CaptureAnswer CheckCapture(CaptureRequest const &request)
{
    bool const isStream = request.kind == CaptureStream;
    if (request.version != CaptureVersion || (request.kind != CaptureTraffic && !isStream) ||
        request.port > UINT16_MAX || (request.port != 0) != isStream)
        return Answer(CaptureStatus::BadRequest, EINVAL);
    int flags;
    if (!GetFlags(request.adapter, flags))
        return Answer(CaptureStatus::NoAdapter, ENODEV);
    if ((flags & IFF_UP) == 0)
        return Answer(CaptureStatus::AdapterDown, ENETDOWN);
    KnownAddresses const known = LookUp(request);
    if (!IsUnicast(request.camera) || known.hasBroadcast)
        return Answer(CaptureStatus::NotUnicast, EADDRNOTAVAIL);
    if (!IsUnicast(request.host) || !known.hasHost)
        return Answer(CaptureStatus::NotThisHost, EADDRNOTAVAIL);
    return Answer(CaptureStatus::Done);
}

int OpenCapture(CaptureRequest const &request, CaptureAnswer &answer)
{
    // Without link headers, which differ between kinds of adapters; bound to no protocol, it hears nothing yet.
    int const one = socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (one < 0) {
        answer = Answer(errno == EPERM || errno == EACCES ? CaptureStatus::NoRight : CaptureStatus::SystemError, errno);
        return -1;
    }
    if (!Prepare(one, request)) {
        answer = Answer(CaptureStatus::SystemError, errno);
        close(one);
        return -1;
    }
    answer = Answer(CaptureStatus::Done);
    return one;
}
