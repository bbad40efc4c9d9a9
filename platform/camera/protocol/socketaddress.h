// IPv4 addresses and UDP ports in host byte order, as the rest of the library has them, and the calls of the system
// that want them in its own form. What fails leaves its reason in errno, as the call under it does. Any thread.
#pragma once

#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <netinet/in.h>
#include <optional>
#include <span>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

struct SocketAddress
{
    std::uint32_t address = 0; // INADDR_ANY
    std::uint16_t port = 0;    // any

    bool operator==(SocketAddress const &) const = default;
};

inline sockaddr_in ToSockaddr(SocketAddress const &name)
{
    sockaddr_in raw{};
    raw.sin_family = AF_INET;
    raw.sin_addr.s_addr = htonl(name.address);
    raw.sin_port = htons(name.port);
    return raw;
}

inline SocketAddress FromSockaddr(sockaddr_in const &raw)
{
    return {ntohl(raw.sin_addr.s_addr), ntohs(raw.sin_port)};
}

// Of what may be null or of another family, as getifaddrs() tells it.
inline std::optional<std::uint32_t> Ipv4AddressOf(sockaddr const *raw)
{
    if (!raw || raw->sa_family != AF_INET)
        return std::nullopt;
    sockaddr_in name;
    std::memcpy(&name, raw, sizeof name);
    return FromSockaddr(name).address;
}

// The name of the adapter, of a name that getifaddrs() tells: an address may have a label, "eth1:0".
inline std::string AdapterOfLabel(std::string const &label)
{
    return label.substr(0, label.find(':'));
}

// ---- Text: dotted, four decimal numbers --------------------------------------------------------------------------

inline std::optional<std::uint32_t> ParseAddress(std::string const &text)
{
    in_addr raw{};
    if (inet_pton(AF_INET, text.c_str(), &raw) != 1)
        return std::nullopt;
    return ntohl(raw.s_addr);
}

inline std::string AddressText(std::uint32_t address)
{
    in_addr const raw{htonl(address)};
    std::array<char, INET_ADDRSTRLEN> text{};
    inet_ntop(AF_INET, &raw, text.data(), text.size());
    return text.data();
}

// ---- Sockets -----------------------------------------------------------------------------------------------------

inline bool BindSocket(int socket, SocketAddress const &local)
{
    sockaddr_in const raw = ToSockaddr(local);
    return bind(socket, reinterpret_cast<sockaddr const *>(&raw), sizeof raw) == 0;
}

// A UDP socket that may send to all and does not block; with the name of an adapter, one that sends there and hears
// what comes from there alone, broadcasts too. -1 where there is none; who asked closes it.
inline int OpenBroadcastSocket(std::uint32_t local, std::string const &adapter = {})
{
    int const made = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0), on = 1;
    if (made < 0)
        return -1;
    setsockopt(made, SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
    bool const isOnAdapter = adapter.empty() || setsockopt(made, SOL_SOCKET, SO_BINDTODEVICE, adapter.c_str(),
                                                           static_cast<socklen_t>(adapter.size())) == 0;
    if (isOnAdapter && BindSocket(made, {local, 0}))
        return made;
    int const reason = errno;
    close(made);
    errno = reason;
    return -1;
}

inline bool ConnectSocket(int socket, SocketAddress const &remote)
{
    sockaddr_in const raw = ToSockaddr(remote);
    return connect(socket, reinterpret_cast<sockaddr const *>(&raw), sizeof raw) == 0;
}

// This end's, of a socket that is bound or connected; zeros of one that is neither, and of none.
inline SocketAddress AddressOfSocket(int socket)
{
    sockaddr_in raw{};
    socklen_t size = sizeof raw;
    if (getsockname(socket, reinterpret_cast<sockaddr *>(&raw), &size) != 0)
        return {};
    return FromSockaddr(raw);
}

// As sendto().
inline ssize_t SendDatagram(int socket, std::span<std::uint8_t const> bytes, SocketAddress const &to, int flags = 0)
{
    sockaddr_in const raw = ToSockaddr(to);
    return sendto(socket, bytes.data(), bytes.size(), flags, reinterpret_cast<sockaddr const *>(&raw), sizeof raw);
}

// As recvfrom(); `from` is told where something came.
inline ssize_t ReceiveDatagram(int socket, std::span<std::uint8_t> room, SocketAddress &from, int flags = 0)
{
    sockaddr_in raw{};
    socklen_t size = sizeof raw;
    ssize_t const length = recvfrom(socket, room.data(), room.size(), flags, reinterpret_cast<sockaddr *>(&raw), &size);
    if (length >= 0)
        from = FromSockaddr(raw);
    return length;
}
