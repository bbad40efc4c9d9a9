// The helper that opens captures: what it refuses, what its captures see, and how the library comes by one. Runs in a
// network namespace of its own, as its administrator.
#include "capture/capturefilter.h"
#include "capture/capturehelper.h"
#include "gige/packetring.h"

#include "asleep.h"
#include "captureright.h"
#include "udpframe.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/socket.h>
#include <sys/wait.h>

namespace {

constexpr std::uint32_t Host = 0x0A090001, Camera = 0x0A090005, Broadcast = 0x0A0900FF;
constexpr std::uint16_t StreamPort = 50000;

// Two cables: what is sent into "cable" comes in at "host"; "idle" is down.
class CaptureHelper : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        ASSERT_EQ(
            std::system("ip link add host type veth peer name cable && ip link add idle type veth peer name end &&"
                        "ip addr add 10.9.0.1/24 broadcast 10.9.0.255 dev host && ip link set host up &&"
                        "ip link set cable up && ip neigh add 10.9.0.5 lladdr 02:00:00:00:00:05 dev host"),
            0);
    }
    static void TearDownTestSuite()
    {
        EXPECT_EQ(std::system("ip link del host && ip link del idle"), 0);
    }
    static CaptureRequest Traffic()
    {
        return {CaptureVersion, CaptureTraffic, if_nametoindex("host"), Camera, Host, 0};
    }
    static CaptureRequest Stream()
    {
        return {CaptureVersion, CaptureStream, if_nametoindex("host"), Camera, Host, StreamPort};
    }
};

// The exit status of the helper. `before` runs in its process first.
int RunHelper(std::function<void()> const &before, char const *argument = nullptr)
{
    pid_t const process = fork();
    if (process == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        // Another user may not reach the folder.
        int const found = open(TOVSCOPE_CAPTURE, O_PATH | O_CLOEXEC);
        int const program = fcntl(found, F_DUPFD_CLOEXEC, CaptureSocketFd + 1);
        close(found);
        before();
        char name[] = "tovscope-capture";
        char *const arguments[] = {name, const_cast<char *>(argument), nullptr};
        execveat(program, "", arguments, environ, AT_EMPTY_PATH);
        _exit(127);
    }
    int status = 0;
    EXPECT_TRUE(Eventually([&] { return waitpid(process, &status, WNOHANG) == process; }));
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

struct Pair
{
    Pair(int type = SOCK_SEQPACKET)
    {
        EXPECT_EQ(socketpair(AF_UNIX, type | SOCK_CLOEXEC, 0, ends), 0);
    }
    ~Pair()
    {
        close(ends[0]);
        close(ends[1]);
    }
    void GiveAway() const // in the helper's process
    {
        dup2(ends[1], CaptureSocketFd);
    }
    int ends[2];
};

struct Reply
{
    int exit = -1;
    CaptureAnswer answer;
    int capture = -1;
};

Reply Ask(void const *request, std::size_t size)
{
    Pair pair;
    EXPECT_EQ(send(pair.ends[0], request, size, MSG_NOSIGNAL), static_cast<ssize_t>(size));
    Reply reply;
    reply.exit = RunHelper([&] { pair.GiveAway(); });
    iovec part{&reply.answer, sizeof reply.answer};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))]{};
    msghdr message{nullptr, 0, &part, 1, control, sizeof control, 0};
    if (recvmsg(pair.ends[0], &message, MSG_DONTWAIT) == static_cast<ssize_t>(sizeof reply.answer) &&
        message.msg_controllen > 0)
        std::memcpy(&reply.capture, CMSG_DATA(CMSG_FIRSTHDR(&message)), sizeof reply.capture);
    return reply;
}

TEST_F(CaptureHelper, RefusesWhatIsNoRequestForACameraOfOurs)
{
    using enum CaptureStatus;
    using Change = void (*)(CaptureRequest &);
    struct
    {
        char const *what;
        CaptureRequest request;
        Change change;
        CaptureStatus status;
    } const cases[] = {
        {"traffic", Traffic(), [](CaptureRequest &) {}, Done},
        {"stream", Stream(), [](CaptureRequest &) {}, Done},
        {"another version", Traffic(), [](CaptureRequest &r) { r.version = 2; }, BadRequest},
        {"no kind", Traffic(), [](CaptureRequest &r) { r.kind = 0; }, BadRequest},
        {"unknown kind", Traffic(), [](CaptureRequest &r) { r.kind = 3; }, BadRequest},
        {"a port too many", Traffic(), [](CaptureRequest &r) { r.port = 1; }, BadRequest},
        {"no port", Stream(), [](CaptureRequest &r) { r.port = 0; }, BadRequest},
        {"no such port", Stream(), [](CaptureRequest &r) { r.port = 0x10000; }, BadRequest},
        {"all adapters", Traffic(), [](CaptureRequest &r) { r.adapter = 0; }, NoAdapter},
        {"no such adapter", Traffic(), [](CaptureRequest &r) { r.adapter = 9999; }, NoAdapter},
        {"negative adapter", Traffic(), [](CaptureRequest &r) { r.adapter = ~0u; }, NoAdapter},
        {"adapter down", Traffic(), [](CaptureRequest &r) { r.adapter = if_nametoindex("idle"); }, AdapterDown},
        {"no camera", Traffic(), [](CaptureRequest &r) { r.camera = 0; }, NotUnicast},
        {"this network", Traffic(), [](CaptureRequest &r) { r.camera = 5; }, NotUnicast},
        {"multicast", Traffic(), [](CaptureRequest &r) { r.camera = 0xE0000001; }, NotUnicast},
        {"reserved", Stream(), [](CaptureRequest &r) { r.camera = 0xF0000001; }, NotUnicast},
        {"everybody", Stream(), [](CaptureRequest &r) { r.camera = ~0u; }, NotUnicast},
        {"everybody there", Stream(), [](CaptureRequest &r) { r.camera = Broadcast; }, NotUnicast},
        {"no host", Traffic(), [](CaptureRequest &r) { r.host = 0; }, NotThisHost},
        {"another host", Traffic(), [](CaptureRequest &r) { r.host = Host + 1; }, NotThisHost},
        {"hosts", Traffic(), [](CaptureRequest &r) { r.host = 0xE0000001; }, NotThisHost},
        {"all hosts", Stream(), [](CaptureRequest &r) { r.host = Broadcast; }, NotThisHost},
    };
    for (auto const &c : cases) {
        SCOPED_TRACE(c.what);
        CaptureRequest request = c.request;
        c.change(request);
        Reply const reply = Ask(&request, sizeof request);
        EXPECT_EQ(reply.answer.status, c.status);
        EXPECT_EQ(reply.exit, c.status == Done ? CaptureServed : CaptureRefused);
        EXPECT_EQ(reply.capture >= 0, c.status == Done);
        EXPECT_EQ(reply.answer.error != 0, c.status != Done);
        close(reply.capture);
    }
}

TEST_F(CaptureHelper, EndsWhenItIsStartedInAnotherWay)
{
    CaptureRequest const request = Traffic();
    Bytes message(sizeof request + 1);
    std::memcpy(message.data(), &request, sizeof request);
    for (std::size_t const size : {std::size_t{0}, std::size_t{1}, sizeof request - 1, sizeof request + 1})
        EXPECT_EQ(Ask(message.data(), size).exit, CaptureNoRequest) << size;

    auto const leave = [&] {
        Pair left;
        send(left.ends[0], &request, sizeof request, 0);
        left.GiveAway();
    };
    Pair const open, bytes(SOCK_STREAM);
    struct
    {
        char const *what;
        std::function<void()> before;
        int exit;
        char const *argument = nullptr;
    } const cases[] = {
        {"nothing", [] { close(CaptureSocketFd); }, CaptureNotStartedByUs},
        {"a file", [] { dup2(::open("/dev/null", O_RDWR), CaptureSocketFd); }, CaptureNotStartedByUs},
        {"a network socket", [] { dup2(socket(AF_INET, SOCK_DGRAM, 0), CaptureSocketFd); }, CaptureNotStartedByUs},
        {"one without a peer", [] { dup2(socket(AF_UNIX, SOCK_SEQPACKET, 0), CaptureSocketFd); },
         CaptureNotStartedByUs},
        {"one without messages", [&] { bytes.GiveAway(); }, CaptureNotStartedByUs},
        {"another user's", [&] { open.GiveAway(), setresuid(1, 1, 1) == 0 || (_exit(CaptureNotStartedByUs), 1); },
         CaptureNotStartedByUs},
        {"nobody there any more", [&] { Pair().GiveAway(); }, CaptureNoRequest},
        {"nothing comes", [&] { open.GiveAway(); }, CaptureNoRequest},
        {"nobody waits for the answer", leave, CaptureNobodyListens},
        {"with an argument", leave, CaptureUsage, "argument"},
        {"asked for its version", [] {}, 0, "--version"},
    };
    for (auto const &c : cases)
        EXPECT_EQ(RunHelper(c.before, c.argument), c.exit) << c.what;
}

struct Packet
{
    std::uint32_t from = Camera, to = Host;
    std::uint16_t fromPort = 40000, toPort = StreamPort;
    std::size_t size = 1000; // of the payload
    std::uint8_t first = 0;  // byte of it
    std::uint8_t protocol = 17;
    std::uint16_t type = 0x0800, fragment = 0;
    std::size_t options = 0; // bytes in the IP header

    Bytes Frame() const
    {
        Bytes frame = UdpFrame(from, fromPort, to, toPort, size, options);
        Put(frame, 0, 0x02000000, 4);
        Put(frame, 12, type, 2);
        Put(frame, IpAt + 6, fragment, 2);
        Put(frame, IpAt + 9, protocol, 1);
        if (size > 0)
            Put(frame, UdpAt + options + 8, first, 1);
        return frame;
    }
};

// Puts frames on the cable.
class Cable
{
public:
    ~Cable()
    {
        close(m_socket);
    }
    void Send(Bytes const &frame) const
    {
        sockaddr_ll to{};
        to.sll_family = AF_PACKET;
        to.sll_ifindex = static_cast<int>(if_nametoindex("cable"));
        ASSERT_EQ(sendto(m_socket, frame.data(), frame.size(), 0, reinterpret_cast<sockaddr *>(&to), sizeof to),
                  static_cast<ssize_t>(frame.size()));
    }

private:
    int const m_socket = socket(AF_PACKET, SOCK_RAW, 0);
};

// What a capture sees of the packets: so many bytes, 0 for those that it does not see. No two begin with the same. One
// more, which every capture sees, says that the others have come or will not.
std::vector<std::size_t> SeenOf(int capture, std::vector<Packet> packets)
{
    packets.push_back({.fromPort = 3956});
    std::vector<std::size_t> seen(packets.size());
    Cable const cable;
    for (Packet const &packet : packets)
        cable.Send(packet.Frame());
    std::size_t at = 0;
    EXPECT_TRUE(Becomes([&] {
        Bytes bytes(65536);
        ssize_t const size = recv(capture, bytes.data(), bytes.size(), 0);
        if (size <= 0)
            return false;
        while (at < packets.size()) {
            Bytes const frame = packets[at++].Frame();
            std::size_t const shown = std::min<std::size_t>(static_cast<std::size_t>(size), frame.size() - 14);
            if (std::memcmp(bytes.data(), &frame[14], shown) == 0) {
                seen[at - 1] = static_cast<std::size_t>(size);
                break;
            }
        }
        return at == packets.size();
    }));
    seen.pop_back();
    return seen;
}

TEST_F(CaptureHelper, ItsCapturesSeeWhatWasAskedForAndNothingElse)
{
    struct
    {
        char const *what;
        Packet packet;
        std::size_t traffic, stream; // so many bytes
    } const cases[] = {
        {"stream", {.size = 1001}, CaptureStreamSnap, 1029},
        {"a short one", {.size = 10}, 38, 38},
        {"with options", {.size = 1002, .options = 8}, CaptureStreamSnap, 1038},
        {"to another port", {.toPort = 50001}, CaptureStreamSnap, 0},
        {"control", {.fromPort = 3956, .toPort = 1234, .size = 548}, 576, 0},
        {"event", {.toPort = 50001, .size = 500, .first = 0x42}, 528, 0},
        {"from another camera", {.from = Camera + 1}, 0, 0},
        {"its control", {.from = Camera + 1, .fromPort = 3956}, 0, 0},
        {"to another host", {.to = Host + 1}, 0, 0},
        {"to everybody", {.to = ~0u}, 0, 0},
        {"from another host to the camera", {.from = Host + 1, .to = Camera, .toPort = 3956}, 0, 0},
        {"TCP", {.protocol = 6}, 0, 0},
        {"ICMP", {.protocol = 1}, 0, 0},
        {"not IP", {.type = 0x88B5}, 0, 0},
        {"first fragment", {.size = 1003, .fragment = 0x2000}, CaptureStreamSnap, 1031},
        {"later fragment", {.fragment = 0x0010}, 0, 0},
    };
    std::vector<Packet> packets;
    for (auto const &c : cases)
        packets.push_back(c.packet);
    for (bool const stream : {false, true}) {
        SCOPED_TRACE(stream ? "stream" : "traffic");
        CaptureRequest const request = stream ? Stream() : Traffic();
        Reply const reply = Ask(&request, sizeof request);
        ASSERT_GE(reply.capture, 0);
        std::size_t i = 0;
        std::vector<std::size_t> const seen = SeenOf(reply.capture, packets);
        for (auto const &c : cases)
            EXPECT_EQ(seen[i++], stream ? c.stream : c.traffic) << c.what;
        sock_filter everything{BPF_RET | BPF_K, 0, 0, 0xFFFF};
        sock_fprog const program{1, &everything};
        EXPECT_EQ(setsockopt(reply.capture, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program), -1);
        EXPECT_EQ(setsockopt(reply.capture, SOL_SOCKET, SO_DETACH_FILTER, &program, sizeof program), -1);
        // What this computer sends.
        int const any = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_in const camera{AF_INET, htons(3956), {htonl(Camera)}, {}};
        EXPECT_EQ(sendto(any, cases, 17, 0, reinterpret_cast<sockaddr const *>(&camera), sizeof camera), 17);
        close(any);
        Bytes bytes(100);
        EXPECT_EQ(recv(reply.capture, bytes.data(), bytes.size(), MSG_TRUNC), stream ? -1 : 45);
        EXPECT_EQ(recv(reply.capture, bytes.data(), bytes.size(), MSG_TRUNC), -1) << "twice";
        close(reply.capture);
    }
}

// ---- The library ---------------------------------------------------------------------------------------------------

std::ptrdiff_t CountOpenFiles()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

TEST_F(CaptureHelper, TheLibraryUsesItWhereItHasNoRight)
{
    using TovCam::CaptureRefusal;
    EXPECT_EQ(GetHostAddressTowards(Camera), Host);
    EXPECT_EQ(GetHostAddressTowards(0x7F000001), 0x7F000001u);
    CaptureTarget const target{CaptureTraffic, "host", Camera, Host, 0};
    std::string const tests = GetCaptureHelper();
    EXPECT_TRUE(tests.ends_with("/tovscope/tovscope-capture") && tests.starts_with('/')) << tests;
    struct
    {
        char const *what, *helper; // "" for the one that belongs to the library, which is not there
        bool processHasRight, helperHasRight;
        CaptureRefusal refusal;
        int error;
    } const cases[] = {
        {"its own right", "", true, true, CaptureRefusal::None, 0},
        {"the helper's", TOVSCOPE_CAPTURE, false, true, CaptureRefusal::None, 0},
        {"nobody's", TOVSCOPE_CAPTURE, false, false, CaptureRefusal::NoRight, EPERM},
        {"not installed", "", false, true, CaptureRefusal::NoRight, ENOENT},
        {"no program", "/etc/passwd", false, true, CaptureRefusal::NoRight, EACCES},
        {"ends at once", "/bin/true", false, true, CaptureRefusal::NoAdapter, EPROTO},
        {"never answers", "/usr/bin/yes", false, true, CaptureRefusal::NoAdapter, ETIMEDOUT},
    };
    for (auto const &c : cases) {
        SCOPED_TRACE(c.what);
        std::ptrdiff_t const open = CountOpenFiles();
        TovCam::CaptureFailure failure;
        std::int32_t status = 1;
        ASSERT_TRUE(SetRightToCapture(c.processHasRight, c.helperHasRight));
        int const capture = *c.helper ? RequestCaptureSocket(target, c.helper, &status, &failure)
                                      : RequestCaptureSocket(target, &status, &failure);
        ASSERT_TRUE(SetRightToCapture(true, true));
        bool const done = c.refusal == CaptureRefusal::None, denied = c.refusal == CaptureRefusal::NoRight;
        EXPECT_EQ(status, done ? TOV_CAM_ERR_OK : denied ? TOV_CAM_ERR_GENICAM_ACCESS : TOV_CAM_ERR_NO_DEVICE);
        EXPECT_EQ(failure.refusal, c.refusal);
        EXPECT_EQ(failure.reason, done ? "" : std::strerror(c.error));
        EXPECT_EQ(failure.place, done ? "" : !denied ? "host" : *c.helper ? c.helper : tests);
        ASSERT_EQ(capture >= 0, done);
        if (done) {
            EXPECT_EQ(fcntl(capture, F_GETFD), FD_CLOEXEC);
            EXPECT_EQ(SeenOf(capture, {{}, {.to = Host + 1}}), (std::vector<std::size_t>{CaptureStreamSnap, 0}));
            close(capture);
        }
        EXPECT_EQ(CountOpenFiles(), open);
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a process is left";
    }
}

// ---- The ring ------------------------------------------------------------------------------------------------------

TEST(RingDatagrams, AreWholeOrNotTold)
{
    using enum RingVerdict;
    auto const changed = [](std::size_t at, std::uint64_t value, int size) { // behind the Ethernet header
        Bytes frame = Packet{.size = 101}.Frame();
        Put(frame, 14 + at, value, size);
        return frame;
    };
    // Sums of an odd number of bytes, by hand: 2 * (8 + 101) + 17 + addresses + ports, and one's complement of it.
    constexpr std::uint16_t RightSum = 0xFFFF - (2 * 109 + 17 + 0x0A09 + 5 + 0x0A09 + 1 + 40000 + 50000) % 0xFFFF;
    struct
    {
        char const *what;
        Bytes frame;
        std::size_t captured; // of its 129 bytes
        RingVerdict verdict, checked;
    } const cases[] = {
        {"whole", changed(0, 0x45, 1), 129, Whole, Whole},
        {"a byte less", changed(0, 0x45, 1), 128, CutShort, CutShort},
        {"less than headers", changed(0, 0x45, 1), 27, Malformed, Malformed},
        {"with its sum", changed(26, RightSum, 2), 129, Whole, Whole},
        {"with another", changed(26, RightSum - 1, 2), 129, Malformed, Whole},
        {"more follow", changed(6, 0x20, 1), 129, Fragment, Fragment},
        {"the last part", changed(7, 0x10, 1), 129, Fragment, Fragment},
        {"no IPv4", changed(0, 0x65, 1), 129, Malformed, Malformed},
        {"no UDP", changed(9, 6, 1), 129, Malformed, Malformed},
        {"no header", changed(0, 0x44, 1), 129, Malformed, Malformed},
        {"a header behind the end", changed(0, 0x4F, 1), 60, Malformed, Malformed},
        {"longer, says IP", changed(2, 130, 2), 129, Malformed, Malformed},
        {"shorter than headers", changed(2, 27, 2), 129, Malformed, Malformed},
        {"longer, says UDP", changed(24, 110, 2), 129, Malformed, Malformed},
        {"shorter than its header", changed(24, 7, 2), 129, Malformed, Malformed},
        {"empty", changed(24, 8, 2), 129, Whole, Whole},
    };
    for (auto const &c : cases) {
        SCOPED_TRACE(c.what);
        Bytes const captured(c.frame.begin() + 14, c.frame.begin() + 14 + static_cast<std::ptrdiff_t>(c.captured));
        RingDatagram datagram;
        EXPECT_EQ(ReadDatagram({captured, 129, 7, false}, datagram), c.verdict);
        EXPECT_EQ(ReadDatagram({captured, 129, 7, true}, datagram), c.checked);
        if (c.checked == CutShort) {
            EXPECT_EQ((std::pair{datagram.size, datagram.payload.size()}), (std::pair{101ul, c.captured - 28}));
        }
    }
}

TEST_F(CaptureHelper, TheRingGivesDatagramsInOrderAndCountsTheRest)
{
    std::int32_t status;
    int const capture = RequestCaptureSocket({CaptureStream, "host", Camera, Host, StreamPort}, &status, nullptr);
    ASSERT_GE(capture, 0);
    std::unique_ptr<PacketRing> const ring = PacketRing::Make(capture);
    ASSERT_NE(ring, nullptr);
    Cable const cable;
    timespec before;
    clock_gettime(CLOCK_REALTIME, &before);
    Packet packet;
    Bytes longer = packet.Frame(), summed = packet.Frame();
    Put(longer, 14 + 20 + 4, 1009, 2);
    Put(summed, 14 + 20 + 6, 0x1234, 2);
    for (std::size_t i = 0; i < 1000; ++i) {
        packet.size = i;
        packet.options = i % 3 * 4;
        cable.Send(packet.Frame());
        if (i % 100 == 0) {
            cable.Send(longer);
            cable.Send(summed);
            cable.Send(Packet{.fragment = 0x2000}.Frame());
        }
    }
    std::size_t next = 0;
    EXPECT_TRUE(Becomes([&] {
        ring->Wait(std::chrono::milliseconds(100));
        ring->ReadDatagrams([&](RingDatagram const &datagram) {
            EXPECT_EQ(datagram.payload.size(), next);
            EXPECT_EQ(datagram.size, next);
            EXPECT_EQ((std::pair{datagram.source, datagram.destination}), (std::pair{Camera, Host}));
            EXPECT_EQ((std::pair{datagram.sourcePort, datagram.destinationPort}),
                      (std::pair{packet.fromPort, StreamPort}));
            EXPECT_GE(datagram.arrival, before.tv_sec * 1'000'000'000 + before.tv_nsec);
            return ++next % 7 != 0; // and goes on there
        });
        return next == 1000;
    }));
    EXPECT_EQ(ring->GetFragments(), 10u);
    EXPECT_EQ(ring->GetMalformed(), 20u);
    EXPECT_EQ(ring->GetDropped(), 0u);
    ring->Wake();
    ring->Wait(std::chrono::hours(1));
}

} // namespace
