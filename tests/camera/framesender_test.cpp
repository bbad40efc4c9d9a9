// The stream channel of a camera on the network, received on loopback: every way a frame can go, what is asked for
// again, and each fault.
#include "wire/framesender.h"
#include "wire/packetplan.h"

#include "eventhub.h"
#include "protocol/gigevision.h"
#include "protocol/socketaddress.h"
#include "sim/simscene.h"
#include "sim/simstream.h"

#include "asleep.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <sys/socket.h>

namespace {

using namespace std::chrono_literals;
using Bytes = std::vector<std::uint8_t>;

constexpr std::uint64_t FirstFrame = 5;
constexpr std::size_t Pixels = 128 * 96;
SimModel const s_model{"T", "T", "1",     "",         "", TovCam::InterfaceKindGigEVision, 136, 100, false, 0x01080001,
                       2,   0,   1000000, FirstFrame, 1.0};

// Appends numbers of so many bytes, big-endian; those of no bytes are left out.
void Put(Bytes &bytes, std::initializer_list<std::pair<std::size_t, std::uint64_t>> numbers)
{
    for (auto const &[size, number] : numbers) {
        for (std::size_t i = size; i > 0; --i)
            bytes.push_back(static_cast<std::uint8_t>(i > 8 ? 0 : number >> 8 * (i - 1)));
    }
}

template<class Value>
StreamFaults With(Value StreamFaults::*fault, std::type_identity_t<Value> const &value)
{
    StreamFaults faults;
    faults.*fault = value;
    return faults;
}

// The other end of the channel.
class Receiver
{
public:
    Receiver()
    {
        int const room = 4 << 20;
        setsockopt(m_socket, SOL_SOCKET, SO_RCVBUFFORCE, &room, sizeof room);
        BindSocket(m_socket, {INADDR_LOOPBACK, 0});
        port = AddressOfSocket(m_socket).port;
    }
    ~Receiver()
    {
        close(m_socket);
    }
    // All that has come once nobody sends any more.
    std::vector<Bytes> TakeAll() const
    {
        EXPECT_TRUE(OthersFallAsleep());
        std::vector<Bytes> all;
        Bytes bytes(65536);
        for (ssize_t size; (size = recv(m_socket, bytes.data(), bytes.size(), MSG_DONTWAIT)) >= 0;)
            all.emplace_back(bytes.begin(), bytes.begin() + size);
        return all;
    }
    // The same: block, id and size of each.
    std::string TakeAllAsText() const
    {
        std::string text;
        for (Bytes const &bytes : TakeAll()) {
            gvsp::Header const header = gvsp::ReadHeader(bytes).value();
            text += (text.empty() ? "" : " ") + std::to_string(header.blockId) + '/' + std::to_string(header.packetId) +
                    ':' + std::to_string(bytes.size());
        }
        return text;
    }

    std::uint16_t port;

private:
    int const m_socket = socket(AF_INET, SOCK_DGRAM, 0);
};

struct Way
{
    char const *name;
    StreamChannel channel;
    std::uint32_t packets; // of a frame
    std::uint16_t type;    // of payload
    std::size_t extra;     // bytes behind the pixels
};

class FrameSenderTest : public testing::Test
{
protected:
    FrameSenderTest()
    {
        m_settings.period = std::chrono::nanoseconds(1h).count();
        m_settings.look.gain = 2.0;
        m_settings.look.exposure = 1234.5;
        m_settings.lines = 2;
        m_scene.Prepare(m_format, m_settings.look);
        m_stream.SetEager(true); // frames come nevertheless, and none is lost
    }
    void Start(std::int64_t frames)
    {
        m_sender.Begin(FrameSender::KeptBytes); // said to be so large that the fewest are kept
        m_stream.Begin(m_format, m_settings, frames);
    }
    void Stop()
    {
        m_stream.End();
        m_sender.End();
    }
    StreamChannel ToUs(StreamChannel channel) const
    {
        channel.localAddress = channel.address = INADDR_LOOPBACK;
        channel.port = m_receiver.port;
        return channel;
    }
    // Pixels and chunks of frame `count` of the acquisition.
    Bytes PayloadOf(Way const &way, std::uint64_t count, std::uint64_t timestamp)
    {
        Bytes payload(Pixels);
        m_scene.Draw(FirstFrame + count - 1, static_cast<double>(timestamp) * 1e-6, payload.data());
        if (way.type == 0x4001)
            Put(payload, {{4, ImageChunkId}, {4, Pixels}});
        std::uint64_t const values[] = {timestamp, count, std::bit_cast<std::uint64_t>(1234.5),
                                        std::bit_cast<std::uint64_t>(20.0 * std::log10(2.0)), 2};
        for (std::uint32_t chunk = 0; way.channel.chunkMode && chunk < WireChunks; ++chunk) {
            if ((way.channel.chunks >> chunk & 1) != 0)
                Put(payload, {{chunk < 4 ? 8u : 4u, values[chunk]}, {4, 0x54560001 + chunk}, {4, chunk < 4 ? 8u : 4u}});
        }
        return payload;
    }

    SimFormat m_format{TV_PIXEL_MONO8, 128, 96, 8, 4};
    SimSettings m_settings;
    SimScene m_scene{s_model.sensorWidth, s_model.sensorHeight, s_model.colour};
    Receiver m_receiver;
    EventHub m_hub;
    SimStream m_stream{s_model, m_hub, [this](SimFormat &format) { return format = m_format, 0; },
                       SimStream::Packets::OfTaker};
    FrameSender m_sender{s_model, m_stream};
};

// Appends the packets of the frame with this payload.
void AppendFrame(Way const &way, std::uint64_t count, std::uint64_t timestamp, Bytes const &payload,
                 std::vector<Bytes> &packets)
{
    bool const parts = (way.type & 0xFF) == gvsp::MultiPart, extended = way.channel.extendedIds;
    // Fields that only parts have, chunks, or the second part.
    std::size_t const part = parts ? 1 : 0, has = way.extra > 0 ? 1 : 0, second = part * has;
    Bytes leader, trailer;
    Put(leader, {{4, way.type}, {8, timestamp}, {part * 2, 1}, {part * 6, Pixels}, {4, 0x01080001}, {part * 12, 0}});
    Put(leader, {{4, 128}, {4, 96}, {4, 8}, {4, 4}, {4 + part * 4, 0}});
    Put(leader, {{second * 2, 10}, {second * 6, way.extra}, {second * 40, 0}});
    Put(trailer, {{4, way.type}, {part * 2, 1}, {part * 6, Pixels}, {4, 96}, {part * 4, 0}});
    Put(trailer, {{second * 2, 10}, {second * 6, way.extra}, {second * 8, 0}});
    // The layout has an id of its own.
    Put(trailer, {{has * 4, parts ? way.extra : payload.size()}, {has * 4, (Pixels << 5) + way.channel.chunks + 1}});
    std::size_t const room = std::max(way.channel.packetSize, 576u) - 28 - (extended ? 20 : 8) - (parts ? 8 : 0);
    std::size_t at = 0;
    for (std::uint32_t i = 0; i < way.packets; ++i) {
        bool const all = way.packets == 1, first = i == 0, last = i + 1 == way.packets;
        std::uint64_t const format = all ? 4 : first ? 1 : last ? 2 : parts ? 7 : 3;
        Bytes &packet = packets.emplace_back();
        if (extended)
            Put(packet, {{4, 0}, {1, 0x80 | format}, {3, first ? part + second : 0}, {8, count}, {4, i}});
        else
            Put(packet, {{4, count}, {1, format}, {3, i}});
        if (first)
            packet.insert(packet.end(), leader.begin(), leader.end());
        if (last)
            packet.insert(packet.end(), trailer.begin(), trailer.end());
        if ((first || last) && !all)
            continue;
        std::size_t const limit = parts && at < Pixels ? Pixels : payload.size();
        std::size_t const end = std::min(at + room, limit);
        if (parts)
            Put(packet, {{1, at < Pixels ? 0 : 1}, {1, end == limit ? 0x41 : 0}, {6, at}});
        packet.insert(packet.end(), payload.data() + at, payload.data() + end);
        at = end;
    }
}

TEST_F(FrameSenderTest, AFrameGoesByEveryWayAsItIs)
{
    Way const ways[] = {
        {"too small", {.packetSize = 100, .extendedIds = true}, 26, 0x0001, 0},
        {"jumbo", {.packetSize = 9000, .extendedIds = true, .chunks = 0x1F}, 4, 0x0001, 0},
        {"all in one", {.packetSize = 12380, .extendedIds = true, .allIn = true}, 1, 0x0001, 0},
        {"all but a byte", {.packetSize = 12367, .allIn = true}, 3, 0x0001, 0},
        {"all with chunks", {.packetSize = 16000, .allIn = true, .chunks = 0x1F, .chunkMode = true}, 1, 0x4001, 84},
        {"chunks", {.chunks = 0x1F, .chunkMode = true}, 11, 0x4001, 84},
        {"chunks across two packets", {.packetSize = 1574, .chunks = 0x12, .chunkMode = true}, 11, 0x4001, 36},
        {"no chunk but the image", {.extendedIds = true, .chunkMode = true}, 11, 0x4001, 8},
        {"multi-part", {.extendedIds = true, .allIn = true, .multiPart = true}, 11, 0x000A, 0},
        {"all parts", {.extendedIds = true, .multiPart = true, .chunks = 0x1F, .chunkMode = true}, 12, 0x400A, 76},
        {"multi-part needs extended ids", {.multiPart = true}, 11, 0x0001, 0},
    };
    for (Way const &way : ways) {
        SCOPED_TRACE(way.name);
        EXPECT_EQ(PayloadSize(way.channel, m_format), Pixels + way.extra);
        m_sender.Open(ToUs(way.channel));
        Start(2);
        std::vector<Bytes> const packets = m_receiver.TakeAll();
        ASSERT_EQ(packets.size(), 2 * way.packets);
        std::vector<Bytes> expected;
        for (std::uint64_t count : {1, 2}) {
            std::uint8_t const *const leader = packets[expected.size()].data() + (way.channel.extendedIds ? 20 : 8);
            std::uint64_t const timestamp = LoadBig64(leader + gvsp::ImageLeader::Timestamp);
            AppendFrame(way, count, timestamp, PayloadOf(way, count, timestamp), expected);
        }
        EXPECT_EQ(packets, expected);
    }
}

TEST_F(FrameSenderTest, PacketsAreSentAgainAsLongAsTheirFrameIsKept)
{
    struct
    {
        std::uint64_t block;
        std::uint32_t first, last, sent, refused;
        std::uint64_t status; // of those refused, where it is extended
    } const rows[] = {
        {9, 0, 0, 1, 0, 0},                 // the leader
        {6, 3, 5, 3, 0, 0},                 // data of the oldest frame that is kept
        {8, 0, 10, 11, 0, 0},               // a whole frame
        {8, 9, 0xFFFFFFFF, 2, 0, 0},        // a frame up to its end
        {9, 10, 12, 1, 2, 0x800C},          // what is behind the end
        {9, 11, 0xFFFFFFFE, 0, 32, 0x800C}, // a huge range
        {5, 2, 3, 0, 2, 0x8012},            // a frame that is gone
        {10, 2, 0xFFFFFFFF, 0, 32, 0x8010}, // a frame that is yet to come
        {9, 5, 4, 0, 0, 0},                 // an empty range
    };
    std::uint64_t resent = 0, refused = 0;
    for (bool const extendedStatus : {false, true}) {
        m_sender.Open(ToUs({.extendedIds = true, .extendedStatus = extendedStatus}));
        Start(9);
        std::vector<Bytes> const sent = m_receiver.TakeAll();
        ASSERT_EQ(sent.size(), 9 * 11u);
        for (auto const &row : rows) {
            std::vector<Bytes> expected(row.sent + row.refused);
            for (std::uint32_t i = 0; i < expected.size(); ++i) {
                std::uint64_t const flags = row.status == 0x800C ? 5 : 1;
                std::uint64_t const status = extendedStatus ? row.status : 0x800C;
                if (i < row.sent) {
                    expected[i] = sent[(row.block - 1) * 11 + row.first + i];
                    StoreBig32(expected[i].data(), 0x01000001);
                } else {
                    Put(expected[i], {{2, status}, {2, flags}, {4, 0x83000000}, {8, row.block}, {4, row.first + i}});
                }
            }
            m_sender.Resend(row.block, row.first, row.last);
            EXPECT_EQ(m_receiver.TakeAll(), expected) << row.block << '/' << row.first;
            EXPECT_EQ(m_sender.GetCounters().resent, resent += row.sent) << row.block << '/' << row.first;
            EXPECT_EQ(m_sender.GetCounters().refused, refused += row.refused) << row.block << '/' << row.first;
        }
    }
}

TEST_F(FrameSenderTest, NothingWaitsForASlowPace)
{
    StreamChannel channel = ToUs({.packetDelay = 1h});
    m_sender.Open(channel);
    channel.localPort = m_sender.GetLocalPort();
    Start(-1);
    EXPECT_EQ(m_receiver.TakeAllAsText(), "1/0:44");
    m_sender.Resend(1, 3, 4);
    EXPECT_EQ(m_receiver.TakeAllAsText(), "1/3:1472 1/4:1472");
    Stop();
    Start(-1); // drops the frame under way
    EXPECT_EQ(m_receiver.TakeAllAsText(), "1/0:44");
    m_sender.Close();
    EXPECT_EQ(m_sender.GetLocalPort(), 0);
    EXPECT_FALSE(m_sender.SendTestPacket());
    m_sender.Open(channel); // the six frames that were made before do not go
    EXPECT_EQ(m_sender.GetLocalPort(), channel.localPort);
    EXPECT_EQ(m_receiver.TakeAllAsText(), "8/0:44");
    channel.localAddress = 0x01010101;
    EXPECT_THROW(m_sender.Open(channel), std::system_error);
}

TEST_F(FrameSenderTest, CallsRaceWithFrames)
{
    for (unsigned i = 0; i < 60; ++i) {
        m_sender.Open(ToUs({.packetSize = i % 2 != 0 ? 600u : 1500u, .packetDelay = std::chrono::microseconds(i % 3)}));
        std::uint64_t const before = m_sender.GetCounters().frames;
        Start(-1);
        EXPECT_TRUE(Becomes([&] { return m_sender.GetCounters().frames >= before + i % 4; }));
        m_sender.SetFaults(With(&StreamFaults::loss, 0.1 * (i % 5)));
        m_sender.Resend(1 + i % 4, 0, 0xFFFFFFFF);
        EXPECT_TRUE(m_sender.SendTestPacket());
        m_stream.SetDrift(i);
        if (i % 2 != 0)
            m_sender.Close();
        if (i % 3 != 0)
            Stop();
    }
}

TEST_F(FrameSenderTest, ATestPacketHasTheSizeThatIsSetAndNoHostThatLeftStopsFrames)
{
    for (std::uint32_t const size : {576u, 1500u, 65535u}) {
        m_sender.Open(ToUs({.packetSize = size, .doNotFragment = size != 576}));
        EXPECT_TRUE(m_sender.SendTestPacket());
        EXPECT_EQ(m_receiver.TakeAllAsText(), "0/0:" + std::to_string(size - 28));
    }
    StreamChannel channel = ToUs({.packetSize = 65536}); // more than the system has
    m_sender.Open(channel);
    EXPECT_FALSE(m_sender.SendTestPacket());
    channel.port = Receiver().port; // which nobody has any more
    m_sender.Open(channel);
    Start(-1);
    EXPECT_TRUE(Becomes([&] { return m_sender.GetCounters().frames >= 20; }));
}

TEST_F(FrameSenderTest, FaultsBefallThePacketsAsTheyAreSet)
{
    struct
    {
        StreamFaults faults;
        std::string packets, resent; // of those, packet 1
    } const rows[] = {
        {With(&StreamFaults::truncate, 1), "1/0:22 1/1:4000 1/2:2152 1/3:8", "1/1:8000"},
        {With(&StreamFaults::wrongLength, 1), "1/0:108 1/1:8064 1/2:4368 1/3:80", "1/1:8000"},
        {With(&StreamFaults::wrongPacketId, 1), "1/4:44 1/5:8000 1/6:4304 1/7:16", "1/1:8000"},
        {With(&StreamFaults::wrongBlockId, 1), "1001/0:44 1001/1:8000 1001/2:4304 1001/3:16", "1/1:8000"},
        {With(&StreamFaults::ignoreResend, true), "1/0:44 1/1:8000 1/2:4304 1/3:16", ""},
        {With(&StreamFaults::incompleteEvery, 1), "1/0:44 1/1:8000 1/3:16", "1/1:8000"},
        {With(&StreamFaults::linkLimit, 1), "1/0:44 1/2:4304 1/3:16", ""},
        {With(&StreamFaults::silent, true), "", ""},
        {With(&StreamFaults::loss, 1), "", ""},
    };
    m_sender.Open(ToUs({.packetSize = 8028}));
    for (auto const &row : rows) {
        m_sender.SetFaults(row.faults);
        Start(1);
        EXPECT_EQ(m_receiver.TakeAllAsText(), row.packets);
        m_sender.Resend(1, 1, 1);
        EXPECT_EQ(m_receiver.TakeAllAsText(), row.resent) << row.packets;
    }
}

// Beside the clock of another camera, which is exact.
TEST_F(FrameSenderTest, TheClockDriftsWithoutAJump)
{
    SimStream const other(s_model, m_hub, {});
    for (auto const &[ppm, rate] : {std::pair{1e5, 1.1}, {-1e5, 0.9}, {1e9, 1.1}, {std::nan(""), 1.0}, {0.0, 1.0}}) {
        std::uint64_t const a = other.GetTicks(), before = m_stream.GetTicks();
        m_stream.SetDrift(ppm);
        std::uint64_t const first = m_stream.GetTicks(), b = other.GetTicks();
        ASSERT_TRUE(Becomes([&] { return other.GetTicks() > b + 3000; }));
        std::uint64_t const c = other.GetTicks(), last = m_stream.GetTicks(), d = other.GetTicks();
        EXPECT_LE(static_cast<double>(first - before), static_cast<double>(b - a) * 1.1 + 2);
        EXPECT_GE(static_cast<double>(last - first), static_cast<double>(c - b) * rate - 2);
        EXPECT_LE(static_cast<double>(last - first), static_cast<double>(d - a) * rate + 2);
    }
}

PacketPlan Planned(StreamFaults const &faults, std::uint64_t number, std::uint32_t packets, double rate = 0.0)
{
    PacketPlan plan;
    plan.SetFaults(faults);
    plan.Make(number, packets, rate);
    return plan;
}

TEST(PacketPlanTest, WhatIsCertainHitsWhatItIsAbout)
{
    StreamFaults const listed{.lostPackets = "0,2-3,last", .lostEvery = 3};
    struct
    {
        StreamFaults faults;
        std::uint64_t number;
        std::uint32_t packets;
        double rate;
        std::string expected; // a digit for each packet that goes out
    } const rows[] = {
        {listed, 2, 6, 0, "012345"},
        {listed, 3, 6, 0, "14"},
        {With(&StreamFaults::incompleteEvery, 2), 1, 7, 0, "all"},
        {With(&StreamFaults::incompleteEvery, 2), 2, 7, 0, "012456"},
        {With(&StreamFaults::incompleteEvery, 2), 2, 1, 0, ""},
        {With(&StreamFaults::linkLimit, 75), 1, 10, 75, "all"},
        {With(&StreamFaults::linkLimit, 75), 1, 10, 100, "02346789"},
        {With(&StreamFaults::duplicate, 1), 1, 3, 0, "001122"},
        {With(&StreamFaults::lostPackets, "9"), 1, 4, 0, "0123"}, // which the frame has not
        {With(&StreamFaults::lostPackets, " 3 , 5 - 6,last"), 1, 10, 0, "012478"},
        {With(&StreamFaults::lostPackets, "5-last"), 1, 8, 0, "01234"},
    };
    auto const sent = [](PacketPlan const &plan) {
        std::string ids = plan.IsPlain() ? "all" : "";
        for (PlannedPacket const &packet : plan.GetPackets())
            ids += static_cast<char>('0' + packet.id);
        return ids;
    };
    for (auto const &row : rows)
        EXPECT_EQ(sent(Planned(row.faults, row.number, row.packets, row.rate)), row.expected) << row.expected;
    for (char const *const none :
         {"", "3,", ",", "9-7", "last-3", "-3", "3-", "1-2-3", "3x", "4294967295", "9999999999"})
        EXPECT_EQ(sent(Planned(With(&StreamFaults::lostPackets, none), 1, 10)), "all") << none;
}

TEST(PacketPlanTest, DiceFallByTheirShareAndTheSameInEveryRun)
{
    constexpr std::uint32_t Packets = 100000;
    using Faults = StreamFaults;
    for (auto const &[share, burst, expected] :
         {std::tuple(&Faults::loss, 1u, 0.02), std::tuple(&Faults::loss, 5u, 0.1 / 1.08),
          std::tuple(&Faults::duplicate, 1u, 0.02), std::tuple(&Faults::truncate, 1u, 0.02),
          std::tuple(&Faults::wrongLength, 1u, 0.02), std::tuple(&Faults::wrongPacketId, 1u, 0.02),
          std::tuple(&Faults::wrongBlockId, 1u, 0.02), std::tuple(&Faults::reorder, 1u, 0.02)}) {
        StreamFaults faults = With(share, 0.02);
        faults.burst = burst;
        faults.reorderDistance = 3;
        PacketPlan const plan = Planned(faults, 1, Packets);
        std::vector<int> came(Packets);
        std::uint32_t newest = 0;
        std::ptrdiff_t hit = 0;
        for (PlannedPacket const &packet : plan.GetPackets()) {
            bool const late = packet.id < newest;
            EXPECT_TRUE(!late || newest - packet.id <= 5); // 3, but for those that are reordered close to each other
            newest = std::max(newest, packet.id);
            hit += came[packet.id]++ != 0 || packet.damage != PacketDamage::None || late;
        }
        hit += std::count(came.begin(), came.end(), 0);
        EXPECT_NEAR(static_cast<double>(hit) / Packets, expected, 0.1 * expected);
        EXPECT_TRUE(std::ranges::equal(plan.GetPackets(), Planned(faults, 1, Packets).GetPackets()));
    }
}

} // namespace
