// The taps without a network: what becomes a packet, and threads that switch channels while packets come.
#include "aravis/usbrights.h"
#include "bareparams.h"
#include "packettap/gigeframing.h"
#include "packettap/packettap.h"
#include "packettap/usbframing.h"
#include "udpframe.h"
#include "wait.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <pcap/dlt.h>
#include <thread>
#include <unistd.h>

namespace {

// ---- Framing -----------------------------------------------------------------------------------------------------

constexpr std::uint32_t Camera = 0xC0A80005, Host = 0xC0A80001;
constexpr std::uint16_t StreamPort = 50000, MessagePort = 50001, Control = gvcp::Port;

Bytes Datagram(std::uint32_t from, std::uint16_t fromPort, std::uint32_t to, std::uint16_t toPort, Bytes const &data)
{
    Bytes frame = UdpFrame(from, fromPort, to, toPort, data.size());
    std::copy(data.begin(), data.end(), frame.begin() + UdpAt + 8);
    return frame;
}

Bytes Gvcp(std::uint16_t code, std::uint16_t id, std::vector<std::uint32_t> const &words)
{
    Bytes packet(8 + 4 * words.size());
    Put(packet, 0, (code % 2 ? 0u : 0x42010000u) | code, 4);
    Put(packet, 4, 4 * words.size() << 16 | id, 4);
    for (std::size_t i = 0; i < words.size(); ++i)
        Put(packet, 8 + 4 * i, words[i], 4);
    return packet;
}

Bytes Payload(std::size_t size = 1000)
{
    Bytes packet(size, 0xAB);
    Put(packet, 0, 0x0000000703000001, 8);
    return packet;
}

// The channel that a frame is told on, 0 for none. The capture holds no more than `captured` bytes.
std::uint32_t ChannelOf(PacketFraming &framing, Bytes const &frame, std::size_t captured = 65536)
{
    // Of its own size, so that reading beyond it is noticed.
    Bytes const taken(frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(std::min(captured, frame.size())));
    TapPacket packet{};
    if (!framing.Unpack({taken.data(), taken.size(), frame.size()}, packet))
        return 0;
    EXPECT_LE(packet.captured, packet.size);
    EXPECT_LE(packet.bytes + packet.captured, taken.data() + taken.size());
    return packet.channel;
}

Bytes const s_toStream = Datagram(Camera, 40000, Host, StreamPort, Payload());

TEST(GigEFraming, TellsThePortsByListening)
{
    struct
    {
        char const *what;
        std::vector<Bytes> heard; // control packets, answers by their odd codes
        bool stream, message;
    } const cases[] = {
        {"registers written", {Gvcp(0x82, 1, {0x0D00, StreamPort, 0x0B00, MessagePort})}, true, true},
        {"memory written", {Gvcp(0x86, 1, {0x0AFC, 1, MessagePort})}, false, true},
        {"memory read", {Gvcp(0x85, 1, {0x0CF8, 1, 2, StreamPort, 3})}, true, false},
        {"registers read", {Gvcp(0x80, 9, {0, 0x0D00}), Gvcp(0x81, 9, {1, StreamPort})}, true, false},
        {"another answer", {Gvcp(0x80, 9, {0, 0x0D00}), Gvcp(0x81, 8, {1, StreamPort})}, false, false},
        {"the last but one", {Gvcp(0x82, 1, {0x0D00, StreamPort}), Gvcp(0x82, 2, {0x0D00, 7})}, true, false},
        {"closed", {Gvcp(0x82, 1, {0x0D00, StreamPort}), Gvcp(0x82, 2, {0x0D00, 0})}, true, false},
        {"forgotten",
         {Gvcp(0x82, 1, {0x0D00, StreamPort}), Gvcp(0x82, 2, {0x0D00, 7}), Gvcp(0x82, 2, {0x0D00, 8})},
         false,
         false},
    };
    for (std::uint32_t const known : {Camera, 0u}) {
        for (auto const &c : cases) {
            SCOPED_TRACE(c.what);
            GigEFraming framing(DLT_EN10MB, known);
            for (Bytes const &packet : c.heard) {
                bool const answer = packet[3] % 2 != 0;
                EXPECT_EQ(ChannelOf(framing, answer ? Datagram(Camera, Control, Host, 1234, packet)
                                                    : Datagram(Host, 1234, Camera, Control, packet)),
                          TovCam::EventControlChannel);
            }
            EXPECT_EQ(ChannelOf(framing, s_toStream), c.stream ? TovCam::EventStreamChannel : 0u);
            Bytes const event = Gvcp(0xC0, 1, {0x9001, 0, 0, 0});
            std::uint32_t const channel = c.message ? TovCam::EventEventChannel : 0u;
            EXPECT_EQ(ChannelOf(framing, Datagram(Camera, 41000, Host, MessagePort, event)), channel);
            EXPECT_EQ(ChannelOf(framing, Datagram(Host, MessagePort, Camera, 41000, Gvcp(0xC1, 1, {}))), channel);
        }
    }
}

TEST(GigEFraming, HandsOnWholePacketsOfThisCamera)
{
    auto const changed = [](Bytes frame, std::size_t at, std::uint64_t value, int size) {
        Put(frame, at, value, size);
        return frame;
    };
    Bytes const read = Datagram(Host, 1234, Camera, Control, Gvcp(0x80, 1, {4}));
    Bytes tagged = s_toStream;
    tagged.insert(tagged.begin() + 12, {0x81, 0x00, 0x00, 0x05});
    struct
    {
        char const *what;
        Bytes frame;
        std::size_t captured;
        std::uint32_t channel;
    } const cases[] = {
        {"stream", s_toStream, 65536, 1001},
        {"as much of it as a line shows", s_toStream, UdpAt + 8 + GigEFraming::StreamBytesShown, 1001},
        {"less of it", s_toStream, UdpAt + 7 + GigEFraming::StreamBytesShown, 0},
        {"a short one, whole", Datagram(Camera, 40000, Host, StreamPort, Payload(20)), 65536, 1001},
        {"control", read, 65536, 1000},
        {"a part of it", read, read.size() - 1, 0},
        {"with a tag", tagged, 65536, 1001},
        {"first fragment", changed(s_toStream, IpAt + 6, 0x2000, 2), 65536, 0},
        {"later fragment", changed(s_toStream, IpAt + 6, 0x0010, 2), 65536, 0},
        {"longer than the frame, says IP", changed(s_toStream, IpAt + 2, 1029, 2), 65536, 0},
        {"longer than the packet, says UDP", changed(s_toStream, UdpAt + 4, 1009, 2), 65536, 0},
        {"shorter, says UDP", changed(s_toStream, UdpAt + 4, 900, 2), 65536, 1001},
        {"another protocol", changed(s_toStream, IpAt + 9, 6, 1), 65536, 0},
        {"another camera", changed(s_toStream, IpAt + 12, Camera + 1, 4), 65536, 0},
    };
    for (auto const &c : cases) {
        SCOPED_TRACE(c.what);
        GigEFraming framing(DLT_EN10MB, Camera);
        ChannelOf(framing, Datagram(Host, 1234, Camera, Control, Gvcp(0x82, 1, {0x0D00, StreamPort})));
        EXPECT_EQ(ChannelOf(framing, c.frame, c.captured), c.channel);
        // Cut anywhere, it is handed on or not, and nothing is read past its end.
        for (std::size_t captured = 0; captured < std::min<std::size_t>(c.frame.size(), 200); ++captured)
            ChannelOf(framing, c.frame, captured);
    }
}

struct Transfer
{
    char event = 'C';
    std::uint8_t type = 3, endpoint = 0x81, address = 5;
    std::uint16_t bus = 2;
    char dataFlag = 0;
    std::int32_t status = 0;
    std::uint32_t length = 20, captured = 20;

    Bytes Frame() const
    {
        Bytes frame(64 + captured);
        auto const put = [&frame](std::size_t at, auto value) {
            std::memcpy(&frame[at], &value, sizeof value);
        };
        put(8, event);
        put(9, type);
        put(10, endpoint);
        put(11, address);
        put(12, bus);
        put(15, dataFlag);
        put(28, status);
        put(32, length);
        put(36, captured);
        return frame;
    }
};

TEST(UsbFraming, TellsTransfersByTheirEndpoint)
{
    struct
    {
        char const *what;
        Transfer transfer;
        std::uint32_t channel;
    } const cases[] = {
        {"answer", {}, 1000},
        {"command", {.event = 'S', .endpoint = 0x01}, 1000},
        {"event", {.endpoint = 0x82}, 1002},
        {"stream", {.endpoint = 0x83, .length = 65536, .captured = 50}, 1001},
        {"of which too little is there", {.endpoint = 0x83, .length = 65536, .captured = 49}, 0},
        {"part of an answer", {.length = 21}, 0},
        {"a command that is done", {.endpoint = 0x01}, 0},
        {"another endpoint", {.endpoint = 0x84}, 0},
        {"another device", {.address = 6}, 0},
        {"without data", {.dataFlag = '<'}, 0},
        {"cancelled", {.status = -2}, 0},
        {"fewer bytes than asked for", {.status = -121}, 1000},
        {"absurdly long", {.endpoint = 0x83, .length = 0xFFFFFFFF, .captured = 50}, 0},
    };
    for (auto const &c : cases) {
        SCOPED_TRACE(c.what);
        UsbFraming framing(DLT_USB_LINUX_MMAPPED, {2, 5, {0x01, 0x81, 0x82, 0x83}});
        EXPECT_EQ(ChannelOf(framing, c.transfer.Frame()), c.channel);
        for (std::size_t captured = 0; captured < 64; ++captured)
            EXPECT_EQ(ChannelOf(framing, c.transfer.Frame(), captured), 0u);
    }
}

TEST(UsbFraming, FindsTheCameraAndItsEndpoints)
{
    // Device and configuration; the interfaces of control, event and stream with their endpoints, and a foreign one.
    Bytes const descriptors{18, 1,    0, 3,    0xEF, 2,    1, 9, 1, 2, 3,    4,    5, 6, 1, 2, 3,    1,    9,  2, 0, 0,
                            4,  1,    0, 0x80, 50,   9,    4, 0, 0, 2, 0xEF, 5,    0, 0, 7, 5, 0x81, 2,    0,  4, 0, 7,
                            5,  0x01, 2, 0,    4,    0,    9, 4, 1, 0, 1,    0xEF, 5, 1, 0, 7, 5,    0x82, 2,  0, 4, 0,
                            9,  4,    2, 0,    1,    0xEF, 5, 2, 0, 7, 5,    0x83, 2, 0, 4, 0, 6,    48,   15, 0, 0, 0,
                            9,  4,    3, 0,    1,    0x01, 1, 0, 0, 7, 5,    0x84, 2, 0, 4, 0};
    std::filesystem::path const root = testing::TempDir() + "tap_root";
    std::filesystem::path const folder = root / "sys/bus/usb/devices/2-1";
    std::filesystem::create_directories(folder);
    for (auto const &[file, text] :
         {std::pair("serial", "S1"), {"manufacturer", "Maker"}, {"busnum", "2"}, {"devnum", "17"}})
        std::ofstream(folder / file) << text << '\n';
    std::ofstream(folder / "descriptors", std::ios::binary)
        .write(reinterpret_cast<char const *>(descriptors.data()), static_cast<std::streamsize>(descriptors.size()));
    UsbCamera camera;
    EXPECT_TRUE(FindUsbCamera("Maker", "S1", camera, root));
    EXPECT_EQ(std::pair(int(camera.bus), int(camera.address)), std::pair(2, 17));
    UsbEndpoints const &found = camera.endpoints;
    EXPECT_EQ((std::vector<int>{found.commands, found.answers, found.events, found.stream}),
              (std::vector<int>{0x01, 0x81, 0x82, 0x83}));
    EXPECT_FALSE(FindUsbCamera("Maker", "S2", camera, root) || FindUsbCamera("Other", "S1", camera, root));
    // One that may not be opened. The superuser may all.
    std::filesystem::path const node = root / "dev/bus/usb/002/017";
    std::filesystem::create_directories(node.parent_path());
    EXPECT_TRUE(FindForbiddenUsbCameras(root).empty()); // that has just gone
    std::ofstream(node) << "";
    std::filesystem::permissions(node, std::filesystem::perms::none);
    uid_t const self = geteuid();
    EXPECT_TRUE(self != 0 || seteuid(65534) == 0);
    std::vector<ForbiddenUsbCamera> const forbidden = FindForbiddenUsbCameras(root);
    EXPECT_EQ(seteuid(self), 0);
    ASSERT_EQ(forbidden.size(), 1u);
    EXPECT_EQ(forbidden[0].vendor + ' ' + forbidden[0].serial + ' ' + forbidden[0].node + ": " + forbidden[0].reason,
              "Maker S1 /dev/bus/usb/002/017: Permission denied");
    std::filesystem::permissions(node, std::filesystem::perms::owner_all);
    EXPECT_EQ(FindForbiddenUsbCameras(root).size(), 0u);
    UsbEndpoints endpoints;
    for (std::size_t size = 0; size < descriptors.size(); ++size) {
        Bytes const cut(descriptors.begin(), descriptors.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_EQ(ParseUsbDescriptors(cut.data(), cut.size(), endpoints), size >= 50) << size;
    }
    std::filesystem::remove_all(root);
}

// ---- Threads -----------------------------------------------------------------------------------------------------

constexpr std::uint32_t Channels[] = {TovCam::EventControlChannel, TovCam::EventStreamChannel,
                                      TovCam::EventEventChannel};

// Packets of all channels without an end, and ever more of them missed.
class EndlessSource final : public PacketSource
{
public:
    explicit EndlessSource(std::atomic<int> &open) : m_open(open)
    {
        ++m_open;
    }
    ~EndlessSource() override
    {
        --m_open;
    }
    bool Read(Sink const &sink, std::chrono::milliseconds) override
    {
        std::uint8_t const bytes[] = {1, 2, 3};
        for (std::uint32_t const channel : Channels) {
            if (!sink({channel, bytes, 3, 100}))
                break;
        }
        std::this_thread::yield();
        return true;
    }
    FAKE_GIVES(void Wake(), void());
    FAKE_GIVES(std::uint64_t GetMissed(), ++m_missed);
    FAKE_GIVES(void SetStreamWanted(bool), void());

private:
    std::atomic<int> &m_open;
    std::uint64_t m_missed = 0;
};

struct Listener
{
    PacketTaps &taps;
    std::uint32_t const channel;
    bool const leavesByItself;
    std::atomic<int> calls{0}, inside{0};
    std::atomic<bool> left{false};

    static void Call(void const *data, unsigned long size, void *user)
    {
        auto *const self = static_cast<Listener *>(user);
        ++self->inside;
        auto const *const bytes = static_cast<std::uint8_t const *>(data);
        EXPECT_EQ(size, 100u);
        EXPECT_EQ(bytes[3], 0);
        EXPECT_EQ(bytes[size + PacketBuffer::ZeroTail - 1], 0);
        EXPECT_TRUE(self->taps.IsOnThread());
        ++self->calls;
        if (self->leavesByItself && !self->left) {
            EXPECT_EQ(self->taps.Unregister(self->channel, Call, self), 0);
            self->left = true;
        }
        --self->inside; // the last access, where the listener waits for it
    }
};

// A thread a channel: the tap begins and ends with the first and the last of them, in every order. With one channel
// each round has a tap of its own.
TEST(PacketTaps, ChannelsGoOnAndOffWhilePacketsCome)
{
    EventHub hub;
    std::atomic<int> open{0};
    PacketTaps taps(hub, [&open](std::int32_t *) { return std::make_unique<EndlessSource>(open); });
    auto const operate = [&taps](std::uint32_t channel) {
        for (int i = 0; i < 3000; ++i) {
            Listener listener{taps, channel, i % 7 == 0};
            ASSERT_EQ(taps.Register(channel, Listener::Call, &listener), 0);
            EXPECT_TRUE(i % 5 != 0 || Eventually([&] { return listener.calls != 0; }));
            if (listener.leavesByItself) {
                EXPECT_TRUE(Eventually([&] { return listener.left && listener.inside == 0; }));
                continue;
            }
            ASSERT_EQ(taps.Unregister(channel, Listener::Call, &listener), 0);
            int const calls = listener.calls;
            EXPECT_EQ(listener.inside, 0);
            EXPECT_EQ(listener.calls, calls);
        }
    };
    for (int const channels : {3, 1}) {
        std::vector<std::thread> operators;
        for (int i = 0; i < channels; ++i)
            operators.emplace_back(operate, Channels[i]);
        for (std::thread &one : operators)
            one.join();
    }
    EXPECT_FALSE(taps.IsOnThread());
    taps.Close();
    EXPECT_EQ(open, 0);
}

} // namespace
