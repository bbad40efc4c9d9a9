#include "wiresockets.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <ifaddrs.h>
#include <net/if.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr int DatagramsAtOnce = 64;

} // namespace

std::optional<LocalAddress> FindLocalAddress(std::uint32_t address)
{
    ifaddrs *interfaces = nullptr;
    if (getifaddrs(&interfaces) != 0)
        return std::nullopt;
    std::optional<LocalAddress> found;
    for (ifaddrs const *i = interfaces; i && !found; i = i->ifa_next) {
        std::uint32_t const own = Ipv4AddressOf(i->ifa_addr).value_or(0);
        std::uint32_t const mask = Ipv4AddressOf(i->ifa_netmask).value_or(0);
        bool const loopback = (i->ifa_flags & IFF_LOOPBACK) != 0;
        if (own == 0 || (loopback ? (own ^ address) & mask : own ^ address) != 0)
            continue;
        bool const broadcasts = (i->ifa_flags & IFF_BROADCAST) != 0;
        found = LocalAddress{address, mask, broadcasts || loopback ? address | ~mask : 0};
    }
    freeifaddrs(interfaces);
    return found;
}

WireSockets::WireSockets(LocalAddress const &local) : m_local(local)
{
    try {
        m_sockets[Control] = Bind(local.address, gvcp::Port, false);
        m_sockets[Message] = Bind(local.address, 0, false);
        // Searches. Every camera of this computer gets them, so the ports are shared.
        m_sockets[AllNetworks] = Bind(INADDR_BROADCAST, gvcp::Port, true);
        if (local.broadcast != 0)
            m_sockets[OwnNetwork] = Bind(local.broadcast, gvcp::Port, true);
    } catch (...) {
        Close();
        throw;
    }
}

WireSockets::~WireSockets()
{
    Close();
}

void WireSockets::Close()
{
    for (int &socket : m_sockets) {
        if (socket >= 0)
            close(socket);
        socket = -1;
    }
}

int WireSockets::Bind(std::uint32_t address, std::uint16_t port, bool shared)
{
    int const made = socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (made < 0)
        throw std::runtime_error(std::string("no socket: ") + std::strerror(errno));
    int const on = 1;
    setsockopt(made, SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
    if (shared)
        setsockopt(made, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (BindSocket(made, {address, port}))
        return made;
    int const reason = errno;
    close(made);
    if (reason == EADDRINUSE)
        throw std::runtime_error("port " + std::to_string(port) + " of " + AddressText(address) +
                                 " is taken; another camera may be served there");
    throw std::runtime_error(AddressText(address) + ": " + std::strerror(reason));
}

std::uint16_t WireSockets::GetMessagePort() const
{
    return AddressOfSocket(m_sockets[Message]).port;
}

void WireSockets::Send(GvcpDatagram const &datagram)
{
    // What cannot be sent is lost, as on any network.
    SendDatagram(m_sockets[datagram.message ? Message : Control], datagram.bytes, datagram.to, MSG_NOSIGNAL);
}

void WireSockets::Receive(int wake, timespec const *timeout, Receiver const &receiver)
{
    std::array<pollfd, Channels + 1> waiting{};
    for (int i = 0; i < Channels; ++i)
        waiting[static_cast<std::size_t>(i)] = {m_sockets[i], POLLIN, 0};
    waiting[Channels] = {wake, POLLIN, 0};
    if (ppoll(waiting.data(), waiting.size(), timeout, nullptr) <= 0)
        return;
    std::array<std::uint8_t, 65536> bytes;
    for (int channel = 0; channel < Channels; ++channel) {
        if (waiting[static_cast<std::size_t>(channel)].revents == 0)
            continue;
        for (int i = 0; i < DatagramsAtOnce; ++i) {
            GvcpPeer from;
            ssize_t const size = ReceiveDatagram(m_sockets[channel], bytes, from);
            if (size < 0 && errno == ECONNREFUSED) // of something sent before
                continue;
            if (size < 0)
                break;
            receiver({bytes.data(), static_cast<std::size_t>(size)}, from,
                     channel == AllNetworks || channel == OwnNetwork);
        }
    }
}
