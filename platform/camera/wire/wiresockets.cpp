#include "wiresockets.h"

#include <arpa/inet.h>
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

sockaddr_in SocketAddress(std::uint32_t address, std::uint16_t port)
{
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_addr.s_addr = htonl(address);
    name.sin_port = htons(port);
    return name;
}

std::uint32_t AddressOf(sockaddr const *name)
{
    return name && name->sa_family == AF_INET ? ntohl(reinterpret_cast<sockaddr_in const *>(name)->sin_addr.s_addr) : 0;
}

} // namespace

std::optional<LocalAddress> FindLocalAddress(std::uint32_t address)
{
    ifaddrs *interfaces = nullptr;
    if (getifaddrs(&interfaces) != 0)
        return std::nullopt;
    std::optional<LocalAddress> found;
    for (ifaddrs const *i = interfaces; i && !found; i = i->ifa_next) {
        std::uint32_t const own = AddressOf(i->ifa_addr), mask = AddressOf(i->ifa_netmask);
        bool const loopback = (i->ifa_flags & IFF_LOOPBACK) != 0;
        if (own == 0 || (loopback ? (own ^ address) & mask : own ^ address) != 0)
            continue;
        bool const broadcasts = (i->ifa_flags & IFF_BROADCAST) != 0;
        found = LocalAddress{address, mask, broadcasts || loopback ? address | ~mask : 0};
    }
    freeifaddrs(interfaces);
    return found;
}

std::optional<std::uint32_t> ParseAddress(std::string const &text)
{
    in_addr address{};
    if (inet_pton(AF_INET, text.c_str(), &address) != 1)
        return std::nullopt;
    return ntohl(address.s_addr);
}

std::string AddressText(std::uint32_t address)
{
    in_addr const name{htonl(address)};
    std::array<char, INET_ADDRSTRLEN> text{};
    inet_ntop(AF_INET, &name, text.data(), text.size());
    return text.data();
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
    sockaddr_in const name = SocketAddress(address, port);
    if (bind(made, reinterpret_cast<sockaddr const *>(&name), sizeof name) == 0)
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
    sockaddr_in name{};
    socklen_t size = sizeof name;
    if (getsockname(m_sockets[Message], reinterpret_cast<sockaddr *>(&name), &size) != 0)
        return 0;
    return ntohs(name.sin_port);
}

void WireSockets::Send(GvcpDatagram const &datagram)
{
    sockaddr_in const name = SocketAddress(datagram.to.address, datagram.to.port);
    // What cannot be sent is lost, as on any network.
    sendto(m_sockets[datagram.message ? Message : Control], datagram.bytes.data(), datagram.bytes.size(), MSG_NOSIGNAL,
           reinterpret_cast<sockaddr const *>(&name), sizeof name);
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
            sockaddr_in from{};
            socklen_t length = sizeof from;
            ssize_t const size = recvfrom(m_sockets[channel], bytes.data(), bytes.size(), 0,
                                          reinterpret_cast<sockaddr *>(&from), &length);
            if (size < 0 && errno == ECONNREFUSED) // of something sent before
                continue;
            if (size < 0)
                break;
            receiver({bytes.data(), static_cast<std::size_t>(size)},
                     {ntohl(from.sin_addr.s_addr), ntohs(from.sin_port)},
                     channel == AllNetworks || channel == OwnNetwork);
        }
    }
}
