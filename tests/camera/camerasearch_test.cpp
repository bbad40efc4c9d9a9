// The search for cameras beside hosts that answer it ill. Runs in a network namespace of its own.
#include "gige/camerasearch.h"

#include "backend.h"
#include "protocol/socketaddress.h"
#include "wait.h"
#include "wirecamera.h"

#include <array>
#include <atomic>
#include <cstring>
#include <functional>
#include <map>
#include <set>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

namespace bootstrap = gvcp::bootstrap;
using Bytes = std::vector<std::uint8_t>;
using Datagrams = std::vector<Bytes>;

constexpr std::uint32_t Good = INADDR_LOOPBACK, Liar = 0x7F020000;

Bytes Answer(std::uint16_t id, std::string const &serial = "S", std::size_t size = gvcp::DiscoveryAck::Size)
{
    std::array<std::uint8_t, gvcp::DiscoveryAck::Size> body{};
    std::memcpy(&body[bootstrap::ManufacturerName], "Maker", 5);
    std::memcpy(&body[bootstrap::SerialNumber], serial.data(), std::min(serial.size(), bootstrap::IdentitySize));
    Bytes answer(gvcp::HeaderSize + body.size());
    std::copy(body.begin(), body.end(), answer.begin() + gvcp::HeaderSize);
    answer.resize(gvcp::HeaderSize + size);
    gvcp::WriteHeader(std::span(answer).first<gvcp::HeaderSize>(),
                      {0, gvcp::DISCOVERY_ACK, static_cast<std::uint16_t>(size), id});
    return answer;
}

// Hears every search on loopback and answers under whatever address.
class Host
{
public:
    // Calls `send` for each answer to the request with this id; again and again, if it is endless.
    using Send = std::function<void(std::uint32_t address, Bytes const &datagram)>;
    using Script = std::function<void(std::uint16_t id, Send const &send)>;

    Host(Script script, bool isEndless, std::uint16_t port)
        : m_script(std::move(script)),
          m_isEndless(isEndless),
          m_ear(Bind(INADDR_BROADCAST, gvcp::Port)),
          m_mouth(Bind(Liar, port)),
          m_thread([this] { Serve(); })
    {
    }
    ~Host()
    {
        m_stop = true;
        m_thread.join();
        close(m_ear);
        close(m_mouth);
    }

private:
    static int Bind(std::uint32_t address, std::uint16_t port)
    {
        int const made = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0), on = 1;
        timeval const patience{0, 20000};
        setsockopt(made, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        setsockopt(made, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        EXPECT_TRUE(BindSocket(made, {address, port}));
        return made;
    }
    void SendAs(std::uint32_t address, Bytes const &datagram, SocketAddress const &asker) const
    {
        sockaddr_in to = ToSockaddr(asker);
        alignas(cmsghdr) std::array<std::uint8_t, CMSG_SPACE(sizeof(in_pktinfo))> control{};
        iovec bytes{const_cast<std::uint8_t *>(datagram.data()), datagram.size()};
        msghdr message{&to, sizeof to, &bytes, 1, control.data(), control.size(), 0};
        cmsghdr *const source = CMSG_FIRSTHDR(&message);
        *source = {CMSG_LEN(sizeof(in_pktinfo)), IPPROTO_IP, IP_PKTINFO};
        in_pktinfo const info{0, {htonl(address)}, {}};
        std::memcpy(CMSG_DATA(source), &info, sizeof info);
        sendmsg(m_mouth, &message, 0);
    }
    void Serve() const
    {
        std::array<std::uint8_t, 64> request;
        SocketAddress from;
        bool isAsked = false;
        while (!m_stop) {
            isAsked = ReceiveDatagram(m_ear, request, from, isAsked && m_isEndless ? MSG_DONTWAIT : 0) >= 8 ||
                      (isAsked && m_isEndless);
            if (isAsked)
                m_script(LoadBig16(&request[6]),
                         [&](std::uint32_t address, Bytes const &datagram) { SendAs(address, datagram, from); });
        }
    }

    Script const m_script;
    bool const m_isEndless;
    int const m_ear, m_mouth;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

// Each row is a host of its own, and all answer the same search.
TEST(CameraSearch, EndsInItsTimeWithTheGoodCamera)
{
    struct Row
    {
        char const *name;
        std::function<Datagrams(std::uint16_t id)> make;
        std::vector<std::string> serials; // of those that are listed
    };
    auto const patched = [](std::size_t at, std::uint16_t value) {
        return [=](std::uint16_t id) {
            Bytes answer = Answer(id);
            StoreBig16(&answer[at], value);
            return Datagrams{answer};
        };
    };
    auto const sized = [](std::size_t size) {
        return [=](std::uint16_t id) {
            return Datagrams{Answer(id, "S", size)};
        };
    };
    auto const named = [](std::string const &serial) {
        return [=](std::uint16_t id) {
            return Datagrams{Answer(id, serial)};
        };
    };
    constexpr std::size_t Size = gvcp::DiscoveryAck::Size;
    Row const rows[] = {
        {"a camera", sized(Size), {"S"}},
        {"a longer answer", sized(500), {"S"}},
        {"nothing", [](std::uint16_t) { return Datagrams{Bytes()}; }, {}},
        {"half a header", [](std::uint16_t) { return Datagrams{Bytes(7)}; }, {}},
        {"a short body", sized(Size - 1), {}},
        {"longer than it says", patched(4, Size - 4), {}},
        {"shorter than it says", patched(4, 0xFFFF), {}},
        {"too long", sized(60000), {}},
        {"to another command", patched(2, gvcp::READREG_ACK), {}},
        {"a command", patched(2, gvcp::DISCOVERY_CMD), {}},
        {"a refusal", patched(0, gvcp::GEV_STATUS_BUSY), {}},
        {"to another search", [](std::uint16_t id) { return Datagrams{Answer(id ^ 1)}; }, {}},
        {"a text without an end", named(std::string(40, 'x')), {std::string(16, 'x')}},
        {"control characters", named("a\n\x1b[2J\x7f\tb"), {"a[2Jb"}},
        {"twice", [](std::uint16_t id) { return Datagrams(2, Answer(id)); }, {"S"}},
        {"many at one address",
         [](std::uint16_t id) {
             Datagrams answers;
             for (int i = 10; i < 50; ++i)
                 answers.push_back(Answer(id, std::to_string(i)));
             return answers;
         },
         {"10", "11", "12", "13"}},
    };
    WireCamera const good({GetWireModels()[0], "127.0.0.1", "W", {}});
    for (auto const &[isEndless, port] :
         {std::pair{false, gvcp::Port}, {true, gvcp::Port}, {false, std::uint16_t{3957}}}) {
        Host const host(
            [&rows](std::uint16_t id, Host::Send const &send) {
                for (std::size_t i = 0; i < std::size(rows); ++i) {
                    for (Bytes const &datagram : rows[i].make(id))
                        send(Liar + static_cast<std::uint32_t>(i), datagram);
                }
            },
            isEndless, port);
        std::map<std::uint32_t, std::vector<std::string>> serials;
        for (CameraRoll::Camera const &camera : FindCameras({})) {
            serials[camera.address].push_back(camera.identity.serial);
            EXPECT_EQ(camera.isControlled.has_value(), camera.address == Good); // the others do not tell
            EXPECT_EQ(camera.identity == (GvcpIdentity{"Velmor", "VG-2048M", "W", ""}), camera.address == Good);
        }
        EXPECT_EQ(serials[Good], std::vector<std::string>{"W"});
        for (std::size_t i = 0; i < std::size(rows); ++i)
            EXPECT_EQ(serials[Liar + static_cast<std::uint32_t>(i)],
                      port == gvcp::Port ? rows[i].serials : std::vector<std::string>())
                << rows[i].name << isEndless;
    }
}

// Ten thousand that exist only in what one host sends.
TEST(CameraSearch, ACrowdDoesNotPushTheGoodCameraOut)
{
    CameraRoll roll(7, 8);
    auto const privilege = [](std::uint16_t id, std::uint32_t value) {
        Bytes answer{0, 0, 0, gvcp::READREG_ACK, 0, 4, 0, static_cast<std::uint8_t>(id), 0, 0, 0, 0};
        StoreBig32(&answer[gvcp::HeaderSize], value);
        return answer;
    };
    roll.TakeDiscovery(Good, Answer(7, "good"));
    roll.TakePrivilege(Good, privilege(9, 0)); // not what was asked
    EXPECT_FALSE(roll.GetCameras()[0].isControlled.has_value());
    roll.TakePrivilege(Good, privilege(8, gvcp::ControlAccess));
    for (std::uint32_t i = 0; i < 10000; ++i)
        roll.TakeDiscovery(Liar + i, Answer(7, std::to_string(i)));
    EXPECT_EQ(roll.GetCameras().size(), CameraRoll::MostCameras);
    EXPECT_TRUE(roll.Has(Good));
    EXPECT_TRUE(roll.Has(Liar + 9999)); // room for one more
    EXPECT_EQ(roll.GetCameras()[0].isControlled, true);

    WireCamera const good({GetWireModels()[0], "127.0.0.1", "W", {}});
    std::uint32_t next = 0;
    Host const host(
        [&next](std::uint16_t id, Host::Send const &send) {
            for (int i = 0; i < 10000; ++i, ++next)
                send(Liar + next % 0x10000, Answer(id, std::to_string(next)));
        },
        false, gvcp::Port);
    // Whoever is known is asked by himself, in all that noise.
    for (std::vector<std::uint32_t> const &known : {std::vector<std::uint32_t>{}, {Good}}) {
        EXPECT_TRUE(Eventually([&] {
            std::vector<CameraRoll::Camera> const found = FindCameras(known);
            EXPECT_LE(found.size(), CameraRoll::MostCameras + known.size());
            return std::any_of(found.begin(), found.end(), [](CameraRoll::Camera const &camera) {
                return camera.address == Good && camera.isControlled == false;
            });
        }));
    }
    // What was seen is kept as long as the program runs, so its number is bounded too.
    std::unique_ptr<Backend> const backend = MakeGigeBackend();
    std::set<TovCam::DeviceInfo *> seen;
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(backend->Update(), 0);
        for (std::uint32_t j = 0; j < backend->GetInterfaces()[0]->GetDeviceCount(); ++j)
            seen.insert(backend->GetInterfaces()[0]->GetDeviceInfoByIndex(j));
    }
    EXPECT_LE(seen.size(), 1024u);
    std::int32_t error = 0;
    DeviceInfoImpl *const info = backend->FindByAddress("127.0.0.1", &error);
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->serial, "W");
}

} // namespace
