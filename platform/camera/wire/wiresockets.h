// The UDP sockets of a camera's control and message channels.
//
// Used by one thread at a time.
#pragma once

#include "gvcpserver.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <span>

// An address that this computer has, and its network. Host byte order.
struct LocalAddress
{
    std::uint32_t address = 0, mask = 0, broadcast = 0; // broadcast 0: there is none
};

// Nothing where no interface has the address; every one of loopback's network counts as one that it has.
std::optional<LocalAddress> FindLocalAddress(std::uint32_t address);

class WireSockets
{
public:
    using Receiver = std::function<void(std::span<std::uint8_t const>, GvcpPeer, bool broadcast)>;

    // Throws std::runtime_error with a text for the user.
    explicit WireSockets(LocalAddress const &local);
    ~WireSockets();
    WireSockets(WireSockets const &) = delete;
    WireSockets &operator=(WireSockets const &) = delete;

    LocalAddress const &GetLocal() const
    {
        return m_local;
    }
    std::uint16_t GetMessagePort() const;
    void Send(GvcpDatagram const &datagram);
    // Hands on all that has come, up to a number that leaves time for the rest. `wake` is a further descriptor to wait
    // for; returns when something came, when it is readable, or after `timeout` (null: never).
    void Receive(int wake, timespec const *timeout, Receiver const &receiver);

private:
    enum Channel { Control, AllNetworks, OwnNetwork, Message, Channels };

    int Bind(std::uint32_t address, std::uint16_t port, bool shared);
    void Close();

    LocalAddress const m_local;
    int m_sockets[Channels] = {-1, -1, -1, -1};
};
