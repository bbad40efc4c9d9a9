#include "camerasearch.h"

#include "protocol/socketaddress.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <ifaddrs.h>
#include <net/if.h>
#include <optional>
#include <poll.h>
#include <random>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr int Rounds = 4; // and one in which nobody new is listened to
constexpr int DatagramsAtOnce = 256;
constexpr int BufferSize = 1 << 20;
constexpr std::size_t LongestDatagram = 1024; // more than any answer

class Socket
{
public:
    // With an adapter, one that also hears broadcasts, and from there alone.
    explicit Socket(std::uint32_t address, std::string const &adapter = {})
        : m_socket(OpenBroadcastSocket(address, adapter))
    {
        setsockopt(m_socket, SOL_SOCKET, SO_RCVBUF, &BufferSize, sizeof BufferSize);
    }
    ~Socket()
    {
        if (m_socket >= 0)
            close(m_socket);
    }
    Socket(Socket &&other) noexcept : m_socket(std::exchange(other.m_socket, -1))
    {
    }
    Socket &operator=(Socket &&) = delete;

    int Get() const
    {
        return m_socket;
    }
    // What cannot be sent is lost, as on any network.
    void Send(std::uint16_t command, std::uint16_t id, std::span<std::uint8_t const> body, std::uint32_t address,
              std::uint8_t flags = gvcp::ACKNOWLEDGE) const
    {
        std::array<std::uint8_t, gvcp::HeaderSize + gvcp::RegisterSize> packet;
        gvcp::WriteHeader(std::span(packet).first<gvcp::HeaderSize>(),
                          {gvcp::CommandLead(flags), command, static_cast<std::uint16_t>(body.size()), id});
        std::copy(body.begin(), body.end(), packet.begin() + gvcp::HeaderSize);
        SendDatagram(m_socket, std::span(packet).first(gvcp::HeaderSize + body.size()), {address, gvcp::Port});
    }
    // Hands what came from a camera's port to `take`, so that a flood leaves time for other things.
    template<class Take>
    void Receive(Take const &take) const
    {
        std::array<std::uint8_t, LongestDatagram> bytes;
        for (int i = 0; i < DatagramsAtOnce; ++i) {
            SocketAddress from;
            ssize_t const size = ReceiveDatagram(m_socket, bytes, from, MSG_TRUNC);
            if (size < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
                return;
            if (size >= 0 && static_cast<std::size_t>(size) <= bytes.size() && from.port == gvcp::Port)
                take(from.address, std::span(bytes).first(static_cast<std::size_t>(size)));
        }
    }

private:
    int m_socket;
};

// One address of an adapter that is up, which is where a search starts from.
struct Network
{
    Network(std::string name, std::uint32_t host, std::uint32_t own, CameraRoll const &empty)
        : adapter(std::move(name)),
          socket(host),
          broadcast(own),
          roll(empty),
          foreign(empty)
    {
    }
    std::string adapter;
    Socket socket;
    // Hears what is answered by broadcast. None on loopback, beside another of the adapter, and on a kernel that does
    // not let us.
    std::optional<Socket> ear;
    std::uint32_t broadcast; // of the subnet; 0 where there is none
    CameraRoll roll;
    CameraRoll foreign; // in none of the adapter's subnets
};

struct Subnet
{
    std::string adapter;
    std::uint32_t host, mask;
    bool isLoopback;
};

class Search
{
public:
    explicit Search(std::vector<std::uint32_t> const &known)
        : m_known(known),
          m_direct(0),
          m_named(m_id, m_privilegeId, m_controllerId)
    {
        ifaddrs *all = nullptr;
        if (getifaddrs(&all) != 0)
            return;
        for (ifaddrs const *one = all; one; one = one->ifa_next) {
            std::uint32_t const host = Ipv4AddressOf(one->ifa_addr).value_or(0);
            if (host == 0 || (one->ifa_flags & IFF_UP) == 0 || (one->ifa_flags & IFF_POINTOPOINT) != 0)
                continue;
            bool const broadcasts = (one->ifa_flags & IFF_BROADCAST) != 0;
            bool const isLoopback = (one->ifa_flags & IFF_LOOPBACK) != 0;
            std::string const adapter = AdapterOfLabel(one->ifa_name);
            m_subnets.push_back({adapter, host, Ipv4AddressOf(one->ifa_netmask).value_or(0), isLoopback});
            bool const isFirst = std::none_of(m_networks.begin(), m_networks.end(),
                                              [&](Network const &network) { return network.adapter == adapter; });
            Network &made =
                m_networks.emplace_back(adapter, host, broadcasts ? Ipv4AddressOf(one->ifa_broadaddr).value_or(0) : 0,
                                        CameraRoll(m_id, m_privilegeId, m_controllerId));
            if (isFirst && broadcasts && !isLoopback)
                made.ear.emplace(INADDR_ANY, made.adapter);
            if (made.ear && made.ear->Get() < 0)
                made.ear.reset();
            if (made.socket.Get() < 0)
                m_networks.pop_back();
        }
        freeifaddrs(all);
    }

    std::vector<CameraRoll::Camera> Run()
    {
        Clock::time_point const start = Clock::now();
        for (int round = 0; round < Rounds; ++round) {
            if (round % 2 == 0)
                Broadcast();
            AskAgain();
            for (Clock::time_point const end = start + (round + 1) * s_searchRound; Clock::now() < end;)
                Listen(end, true);
        }
        AskAgain();
        for (Clock::time_point const end = start + (Rounds + 1) * s_searchRound; Clock::now() < end && !IsComplete();)
            Listen(end, false);
        return Collect();
    }

private:
    // Any but 0.
    static std::uint16_t MakeId()
    {
        return static_cast<std::uint16_t>(std::random_device()() % 0xFFFF + 1);
    }
    template<class Do>
    void ForRolls(Do const &act)
    {
        act(m_named);
        for (Network &network : m_networks)
            act(network.roll);
    }

    void Broadcast()
    {
        for (Network const &network : m_networks) {
            network.socket.Send(gvcp::DISCOVERY_CMD, m_id, {}, INADDR_BROADCAST);
            if (network.broadcast != 0)
                network.socket.Send(gvcp::DISCOVERY_CMD, m_id, {}, network.broadcast);
            if (network.ear)
                network.ear->Send(gvcp::DISCOVERY_CMD, m_id, {}, INADDR_BROADCAST,
                                  gvcp::ACKNOWLEDGE | gvcp::ALLOW_BROADCAST_ACK);
        }
    }
    // Those that a busy network may have kept from answering.
    void AskAgain()
    {
        for (std::uint32_t const address : m_known) {
            if (!m_named.Has(address))
                m_direct.Send(gvcp::DISCOVERY_CMD, m_id, {}, address);
        }
        ForRolls([](CameraRoll &roll) {
            for (CameraRoll::Camera &camera : roll.GetCameras()) {
                camera.isAsked = camera.isControlled.has_value();
                camera.isAskedForHost = camera.controller != 0;
            }
        });
        AskForControl();
    }
    void AskForControl()
    {
        std::array<std::uint8_t, gvcp::RegisterSize> privilege, host;
        StoreBig32(privilege.data(), gvcp::bootstrap::ControlChannelPrivilege);
        StoreBig32(host.data(), gvcp::bootstrap::PrimaryApplicationIpAddress);
        ForRolls([&](CameraRoll &roll) {
            for (CameraRoll::Camera &camera : roll.GetCameras()) {
                if (!std::exchange(camera.isAsked, true))
                    m_direct.Send(gvcp::READREG_CMD, m_privilegeId, privilege, camera.address);
                // Not every camera has the register, so nothing waits for the answer.
                if (camera.isControlled.value_or(false) && !std::exchange(camera.isAskedForHost, true))
                    m_direct.Send(gvcp::READREG_CMD, m_controllerId, host, camera.address);
            }
        });
    }

    bool IsComplete()
    {
        bool complete = true;
        ForRolls([&complete](CameraRoll const &roll) { complete = complete && roll.IsComplete(); });
        return complete;
    }

    // What comes until some of it has come, or the time is over.
    void Listen(Clock::time_point end, bool takesNew)
    {
        std::vector<pollfd> events{{m_direct.Get(), POLLIN, 0}};
        for (Network const &network : m_networks) {
            if (takesNew)
                events.push_back({network.socket.Get(), POLLIN, 0});
            if (takesNew && network.ear)
                events.push_back({network.ear->Get(), POLLIN, 0});
        }
        auto const left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
        if (poll(events.data(), events.size(), std::max(0, static_cast<int>(left.count()))) <= 0)
            return;
        m_direct.Receive([&](std::uint32_t address, std::span<std::uint8_t const> datagram) {
            ForRolls([&](CameraRoll &roll) {
                roll.TakePrivilege(address, datagram);
                roll.TakeController(address, datagram);
            });
            if (takesNew && std::find(m_known.begin(), m_known.end(), address) != m_known.end())
                m_named.TakeDiscovery(address, datagram);
        });
        for (Network &network : m_networks) {
            if (!takesNew)
                break;
            auto const take = [&](std::uint32_t address, std::span<std::uint8_t const> datagram) {
                (IsNear(network.adapter, address) ? network.roll : network.foreign).TakeDiscovery(address, datagram);
            };
            network.socket.Receive(take);
            if (network.ear)
                network.ear->Receive(take);
        }
        AskForControl();
    }

    // What answers there need not be asked for a way: it is in a subnet of the adapter, or this host.
    bool IsNear(std::string const &adapter, std::uint32_t address) const
    {
        return std::any_of(m_subnets.begin(), m_subnets.end(), [&](Subnet const &subnet) {
            return subnet.host == address ||
                   (subnet.adapter == adapter && (subnet.isLoopback || ((subnet.host ^ address) & subnet.mask) == 0));
        });
    }

    // Those that have answered by name come first, and are not found again; who is near by one adapter is not foreign
    // by another.
    std::vector<CameraRoll::Camera> Collect()
    {
        std::vector<CameraRoll::Camera> found;
        auto const add = [&found](CameraRoll &roll, std::string const &adapter, bool isForeign) {
            for (CameraRoll::Camera &camera : roll.GetCameras()) {
                auto const same = std::find_if(found.begin(), found.end(), [&](CameraRoll::Camera const &other) {
                    return other.address == camera.address && other.identity == camera.identity;
                });
                if (same != found.end()) {
                    if (same->place.adapter.empty())
                        same->place.adapter = adapter;
                    continue;
                }
                found.push_back(std::move(camera));
                found.back().place.adapter = adapter;
                found.back().place.isForeign = isForeign;
            }
        };
        add(m_named, {}, false);
        for (Network &network : m_networks)
            add(network.roll, network.adapter, false);
        for (Network &network : m_networks)
            add(network.foreign, network.adapter, true);
        return found;
    }

    // An answer to an earlier search is none to this one, and the second is told to nobody but the asked.
    std::uint16_t const m_id = MakeId(), m_privilegeId = MakeId();
    std::uint16_t const m_controllerId = static_cast<std::uint16_t>(m_privilegeId % 0xFFFF + 1); // another than that
    std::vector<std::uint32_t> const &m_known;
    Socket m_direct; // for what is asked of one camera alone
    CameraRoll m_named;
    std::vector<Network> m_networks;
    std::vector<Subnet> m_subnets;
};

} // namespace

std::chrono::milliseconds s_searchRound{250};

std::vector<CameraRoll::Camera> FindCameras(std::vector<std::uint32_t> const &known)
{
    return Search(known).Run();
}
