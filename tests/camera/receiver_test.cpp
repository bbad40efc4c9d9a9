// Datagrams through a real socket and a real packet ring, in every order that confuses where their payloads land. Runs
// in a network namespace of its own.
#include "gige/gatherpause.h"
#include "gige/receiver.h"
#include "gige/ringsource.h"
#include "protocol/socketaddress.h"

#include "asleep.h"
#include "blockpackets.h"

#include <algorithm>
#include <deque>
#include <mutex>
#include <netinet/in.h>
#include <netinet/udp.h>
#include <numeric>
#include <random>
#include <sys/socket.h>

namespace {

using namespace std::chrono_literals;

// A camera that never sends anything again.
class Control final : public StreamControl
{
public:
    std::int32_t ReadRegister(std::uint32_t, std::uint32_t &) override
    {
        return -1;
    }
    std::int32_t WriteRegister(std::uint32_t, std::uint32_t) override
    {
        return -1;
    }
    void RequestPackets(PacketRequest const &request) override
    {
        asked += request.last - request.first + 1;
    }
    std::uint32_t GetCameraAddress() const override
    {
        return INADDR_LOOPBACK;
    }
    std::uint32_t GetHostAddress() const override
    {
        return INADDR_LOOPBACK;
    }

    std::atomic<std::uint32_t> asked{0};
};

// Looks at each frame, and has its buffer filled again.
class Sink final : public FrameSink
{
public:
    explicit Sink(std::size_t buffers)
    {
        for (std::size_t i = 0; i < buffers; ++i)
            m_memory.emplace_back(Payload + 64, Untouched);
        for (Bytes &memory : m_memory)
            m_free.push_back({memory.data(), Payload, &memory});
    }
    bool TakeBuffer(BlockBuffer &buffer) override
    {
        std::lock_guard const lock(m_mutex);
        if (m_free.empty())
            return false;
        buffer = m_free.front();
        m_free.pop_front();
        return true;
    }
    void Deliver(BlockFrame const &frame) override
    {
        Bytes &memory = *static_cast<Bytes *>(frame.buffer.owner);
        if (frame.end == BlockFrame::End::Complete) {
            EXPECT_EQ(frame.size, Payload);
            EXPECT_TRUE(Bytes(memory.begin(), memory.begin() + Payload) == Sender::Pixels(frame.blockId, 0, Payload))
                << frame.blockId;
            EXPECT_GT(frame.arrival, 1s);
            ++complete;
        }
        EXPECT_EQ(Bytes(memory.begin() + Payload, memory.end()), Bytes(64, Untouched));
        GiveBack(frame.buffer);
        dropped[frame.blockId % dropped.size()] = frame.losses.dropped;
        ++delivered;
    }
    void GiveBack(BlockBuffer const &buffer) override
    {
        Bytes &memory = *static_cast<Bytes *>(buffer.owner);
        std::fill(memory.begin(), memory.end(), Untouched);
        std::lock_guard const lock(m_mutex);
        m_free.push_back(buffer);
    }
    std::size_t Free()
    {
        std::lock_guard const lock(m_mutex);
        return m_free.size();
    }

    std::atomic<int> complete{0}, delivered{0};
    std::array<std::atomic<std::uint64_t>, 256> dropped{}; // as each frame tells

private:
    std::deque<Bytes> m_memory;
    std::mutex m_mutex; // guards the rest
    std::deque<BlockBuffer> m_free;
};

enum class By { Socket, Trains, Ring };

void PrintTo(By by, std::ostream *out)
{
    constexpr char const *Names[] = {"Socket", "Trains", "Ring"};
    *out << Names[static_cast<int>(by)];
}

class ReceiverTest : public testing::TestWithParam<By>
{
protected:
    ReceiverTest()
    {
        EXPECT_TRUE(receiver.Open(8 << 20));
        if (GetParam() == By::Ring)
            receiver.SetSource(OpenRingSource(INADDR_LOOPBACK, INADDR_LOOPBACK, receiver.GetPort()));
        EXPECT_TRUE(BindSocket(camera, {INADDR_LOOPBACK, 0}));
        EXPECT_TRUE(BindSocket(stranger, {INADDR_LOOPBACK + 8, 0}));
    }
    ~ReceiverTest() override
    {
        receiver.Stop();
        EXPECT_EQ(sink.Free(), Buffers);
        EXPECT_EQ(sink.delivered, static_cast<int>(statistics.complete.Get() + statistics.incomplete.Get()));
        StreamStatistics const &s = statistics;
        EXPECT_EQ(s.received.Get(), s.packets.Get() + s.duplicate.Get() + s.late.Get() + s.foreign.Get() +
                                        s.malformed.Get() + s.refused.Get() + s.ignored.Get());
        close(camera);
        close(stranger);
    }
    void Start()
    {
        BlockLayout layout;
        layout.payload = Payload;
        layout.packetSize = PacketSize;
        layout.buffers = Buffers;
        layout.address = INADDR_LOOPBACK;
        receiver.Start(layout);
    }
    // All at once, so that they are read in batches, or joined to trains as the system joins what it receives.
    void Send(int from, std::vector<Bytes> const &datagrams)
    {
        if (from == camera && GetParam() == By::Trains) {
            for (auto first = datagrams.begin(); first != datagrams.end();)
                first = SendTrain(first, datagrams.end());
        } else {
            SendEach(from, datagrams);
        }
        (from == camera ? sent : strange) += datagrams.size();
    }
    // Datagrams of one length, the last of which may be shorter. Returns what is left.
    using Iterator = std::vector<Bytes>::const_iterator;
    Iterator SendTrain(Iterator first, Iterator end)
    {
        constexpr std::size_t Longest = 64;
        std::size_t const length = first->size();
        std::size_t count = 0;
        Bytes train;
        bool isOpen = true;
        for (; first != end && isOpen && first->size() <= length && count < Longest; ++first, ++count) {
            train.insert(train.end(), first->begin(), first->end());
            isOpen = first->size() == length && length > 0 && first + 1 != end && !first[1].empty();
        }
        int const segment = count > 1 ? static_cast<int>(length) : 0;
        EXPECT_EQ(setsockopt(camera, SOL_UDP, UDP_SEGMENT, &segment, sizeof segment), 0);
        SendEach(camera, {train});
        return first;
    }
    void SendEach(int from, std::vector<Bytes> const &datagrams)
    {
        sockaddr_in to = ToSockaddr({INADDR_LOOPBACK, receiver.GetPort()});
        std::vector<iovec> pieces;
        for (Bytes const &bytes : datagrams)
            pieces.push_back({const_cast<std::uint8_t *>(bytes.data()), bytes.size()});
        std::vector<mmsghdr> messages(datagrams.size());
        for (std::size_t i = 0; i < messages.size(); ++i) {
            messages[i].msg_hdr = {};
            messages[i].msg_hdr.msg_name = &to;
            messages[i].msg_hdr.msg_namelen = sizeof to;
            messages[i].msg_hdr.msg_iov = &pieces[i];
            messages[i].msg_hdr.msg_iovlen = 1;
        }
        EXPECT_EQ(sendmmsg(from, messages.data(), static_cast<unsigned>(messages.size()), 0),
                  static_cast<int>(messages.size()));
    }
    // Strangers are looked at now and then.
    bool CameraReceived()
    {
        return Becomes([this] { return statistics.received.Get() - statistics.foreign.Get() == sent; });
    }
    bool AllReceived()
    {
        return Becomes([this] { return statistics.received.Get() == sent + strange; });
    }

    static constexpr std::size_t Buffers = 8;
    int const camera = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    int const stranger = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    Control control;
    StreamStatistics statistics;
    Sink sink{Buffers};
    Receiver receiver{control, sink, statistics};
    std::uint64_t sent = 0, strange = 0;
};

INSTANTIATE_TEST_SUITE_P(All, ReceiverTest, testing::Values(By::Socket, By::Trains, By::Ring),
                         testing::PrintToStringParamName());

TEST_P(ReceiverTest, PayloadsFindTheirPlacesInAnyOrder)
{
    std::mt19937 random(5);
    auto const below = [&](std::uint32_t limit) {
        return std::uniform_int_distribution<std::uint32_t>(0, limit - 1)(random);
    };
    for (bool const isExtended : {false, true}) {
        Sender sender;
        sender.isExtended = isExtended;
        sender.dataSize = StandardData - (isExtended ? 12 : 0);
        Start();
        int const before = sink.complete;
        constexpr int Blocks = 600, AtOnce = 3;
        for (std::uint64_t block = 1; block <= Blocks; block += AtOnce) {
            std::vector<Bytes> packets;
            for (std::uint64_t i = block; i < block + AtOnce; ++i) {
                for (std::uint32_t id = 0; id <= TrailerId; ++id)
                    packets.push_back(sender.Packet(i, id));
            }
            // Some come twice, some overtake others, and some belong to nobody.
            for (std::uint32_t n = below(4); n > 0; --n)
                packets.insert(packets.begin() + below(static_cast<std::uint32_t>(packets.size())),
                               packets[below(static_cast<std::uint32_t>(packets.size()))]);
            for (std::uint32_t n = block == 1 ? 0 : below(6); n > 0; --n)
                std::swap(packets[below(static_cast<std::uint32_t>(packets.size()))],
                          packets[below(static_cast<std::uint32_t>(packets.size()))]);
            for (std::uint32_t n = below(3); n > 0; --n)
                packets.insert(packets.begin() + below(static_cast<std::uint32_t>(packets.size())),
                               Bytes(below(PacketSize + 100), 0x7F));
            std::size_t const cut = below(static_cast<std::uint32_t>(packets.size()));
            Send(camera, {packets.begin(), packets.begin() + static_cast<std::ptrdiff_t>(cut)});
            Send(stranger, {sender.Packet(block, 0), sender.Packet(block, 2), Bytes(60000, 0xFF)});
            Send(camera, {packets.begin() + static_cast<std::ptrdiff_t>(cut), packets.end()});
            ASSERT_TRUE(CameraReceived());
        }
        ASSERT_TRUE(AllReceived());
        // Not one is lost but those whose end was late because of the order.
        EXPECT_TRUE(
            Becomes([&] { return sink.complete - before + static_cast<int>(statistics.incomplete.Get()) >= Blocks; }));
        receiver.Stop();
        EXPECT_EQ(statistics.incomplete.Get(), 0u);
        EXPECT_GT(statistics.duplicate.Get() + statistics.late.Get(), 100u);
        EXPECT_GE(statistics.foreign.Get(), 3u * Blocks / AtOnce);
        EXPECT_GT(statistics.malformed.Get(), 100u);
        EXPECT_EQ(statistics.socketDrops.Get(), 0u);
    }
}

TEST_P(ReceiverTest, GapsAreAskedForAndTheRestStays)
{
    Sender const sender;
    std::mt19937 random(6);
    Start();
    int incomplete = 0;
    for (std::uint64_t block = 1; block <= 200; ++block) {
        std::vector<Bytes> packets;
        std::uint32_t const lost = block == 1 ? 99 : random() % 9;
        for (std::uint32_t id = 0; id <= TrailerId; ++id) {
            if (id != lost)
                packets.push_back(sender.Packet(block, id));
        }
        incomplete += lost <= TrailerId;
        Send(camera, packets);
        ASSERT_TRUE(AllReceived());
    }
    EXPECT_TRUE(Becomes([&] { return sink.delivered == 200; }));
    receiver.Stop();
    EXPECT_EQ(statistics.incomplete.Get(), static_cast<std::uint64_t>(incomplete));
    EXPECT_EQ(statistics.missing.Get(), static_cast<std::uint64_t>(incomplete));
    EXPECT_EQ(control.asked, statistics.asked.Get());
    EXPECT_GT(control.asked, 0u);
}

TEST_P(ReceiverTest, StopsAndStartsAnyTime)
{
    Sender const sender;
    for (std::uint64_t start = 0; start < 50; ++start) {
        std::uint64_t const before = statistics.received.Get();
        Start();
        sent = before; // what nobody received is forgotten
        for (std::uint32_t id = 0; id <= start % 7; ++id)
            Send(camera, {sender.Packet(start + 1, std::min(id, TrailerId))});
        if (start % 2 == 0) {
            ASSERT_TRUE(AllReceived());
        }
        receiver.Stop();
        EXPECT_EQ(sink.Free(), Buffers);
        Send(camera, {sender.Packet(start + 1, 0)});
    }
    EXPECT_GT(statistics.aborted.Get(), 10u);
}

// What is not the socket: here a queue that the test fills.
class Queue final : public DatagramSource
{
public:
    std::size_t Read(std::function<void(Datagram const &)> const &take) override
    {
        std::deque<Bytes> taken;
        {
            std::lock_guard const lock(mutex);
            for (; taken.size() < AtOnce && !bytes.empty(); bytes.pop_front())
                taken.push_back(bytes.front());
        }
        for (Bytes const &datagram : taken) {
            Datagram shown;
            shown.pieces[0] = datagram;
            shown.address = INADDR_LOOPBACK;
            shown.arrival = 2s;
            take(shown);
        }
        return taken.size();
    }
    void Wait(std::chrono::milliseconds patience, int) override
    {
        std::unique_lock lock(mutex);
        changed.wait_for(lock, patience, [this] { return woken || !bytes.empty(); });
        woken = false;
    }
    void Wake() override
    {
        std::lock_guard const lock(mutex);
        woken = true;
        changed.notify_all();
    }
    void Forget() override
    {
    }
    Losses GetLosses() override
    {
        std::lock_guard const lock(mutex);
        return losses;
    }

    static constexpr std::size_t AtOnce = 10;
    std::mutex mutex; // guards the rest
    std::condition_variable changed;
    std::deque<Bytes> bytes;
    bool woken = false;
    Losses losses;
};

// What was dropped is told by the frames that lack it: behind whole ones that had been waiting when it was noticed, but
// not for ever; and at once where it is noticed when they end.
TEST_P(ReceiverTest, DropsAreChargedToTheFramesThatLackThem)
{
    auto owned = std::make_unique<Queue>();
    Queue &queue = *owned;
    receiver.SetSource(std::move(owned));
    Start();
    Sender const sender;
    std::uint64_t block = 0;
    int sentBlocks = 0;
    auto const show = [&](std::uint32_t packets, std::uint64_t drops = 0) {
        ++block;
        std::lock_guard const lock(queue.mutex);
        for (std::uint32_t id = 0; id < packets; ++id)
            queue.bytes.push_back(sender.Packet(block, id));
        queue.losses.dropped += drops;
        queue.changed.notify_all();
        ++sentBlocks;
    };
    auto const areDelivered = [&] {
        return Becomes([&] { return sink.delivered == sentBlocks; });
    };
    constexpr std::uint32_t All = TrailerId + 1;
    show(All, 1);
    ASSERT_TRUE(Becomes([&] { return statistics.socketDrops.Get() == 1; }));
    show(All);
    show(All - 2);
    block += 2; // of which nothing came
    show(All - 1);
    show(All);
    ASSERT_TRUE(areDelivered());
    std::vector<std::uint64_t> const expected{0, 0, 2, 0, 0, 2 * All + 1, 0};
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), sink.dropped.begin() + 1));
    for (int i = 0; i < 40; ++i)
        show(All);
    show(All - 1);
    show(All);
    ASSERT_TRUE(areDelivered());
    EXPECT_EQ(sink.dropped[block - 1], 0u) << "was sent later";
    show(All - 3, 1);
    ASSERT_TRUE(areDelivered());
    EXPECT_EQ(sink.dropped[block], 3u);
}

TEST_P(ReceiverTest, AFloodOfOthersIsCountedAndTakesNoRoom)
{
    Sender const sender;
    Start();
    std::vector<Bytes> const flood(500, Bytes(8000, 0xFF));
    std::uint64_t block = 0;
    while (sink.complete < 40 && block < 400) { // a sender that is held up may spoil a frame
        ++block;
        std::vector<Bytes> packets;
        for (std::uint32_t id = 0; id <= TrailerId; ++id)
            packets.push_back(sender.Packet(block, id));
        Send(stranger, flood); // 4 MB; the camera's socket has room for 16
        Send(camera, packets);
        ASSERT_TRUE(Becomes([&] { return sink.delivered == static_cast<int>(block); }));
    }
    ASSERT_TRUE(AllReceived());
    receiver.Stop();
    EXPECT_EQ(statistics.foreign.Get(), block * flood.size());
    EXPECT_EQ(statistics.complete.Get(), 40u);
    EXPECT_EQ(statistics.socketDrops.Get(), 0u);
    Start();
    Send(stranger, {Bytes(1)}); // is noticed while the camera says nothing
    ASSERT_TRUE(AllReceived());
}

TEST_P(ReceiverTest, AnotherSourceTakesTheSocketsPlace)
{
    auto owned = std::make_unique<Queue>();
    Queue &queue = *owned;
    receiver.SetSource(std::move(owned));
    Start();
    Sender const sender;
    std::uint64_t block = 1;
    for (; block <= 20; ++block) {
        Send(camera, {sender.Packet(block, 0)}); // which is heard by the source alone
        std::lock_guard const lock(queue.mutex);
        for (std::uint32_t id = 0; id <= TrailerId; ++id)
            queue.bytes.push_back(sender.Packet(block, id));
        queue.losses = {3, 4, 0};
        queue.changed.notify_all();
    }
    EXPECT_TRUE(Becomes([&] { return statistics.received.Get() == 20u * 6 + 4 && sink.complete == 20; }));
    EXPECT_EQ(std::tuple(statistics.malformed.Get(), statistics.socketDrops.Get()), std::tuple(4u, 3u));
    // A source that misses what the socket would hear is left: for fragments, and when it hears nothing at all.
    auto const sendUntilHeard = [&] {
        return Becomes([&, before = sink.complete.load()] {
            for (std::uint32_t id = 0; id <= TrailerId; ++id)
                Send(camera, {sender.Packet(block, id)});
            ++block;
            return sink.complete > before;
        });
    };
    {
        std::lock_guard const lock(queue.mutex);
        queue.losses.fragments = 1;
    }
    EXPECT_TRUE(sendUntilHeard());
    receiver.Stop();
    auto silent = std::make_unique<Queue>();
    receiver.SetSource(std::move(silent));
    Start();
    EXPECT_TRUE(sendUntilHeard());
}

// What is left to gather has room in the socket, at whatever pace, and after whichever pace the burst begins.
TEST(GatherPauseTest, WhatGathersHasRoom)
{
    constexpr double Burst = 1.25; // bytes a nanosecond
    for (double const room : {425984., 2e6, 8.4e6, 67e6}) {
        for (double const pace : {0.001, 0.125, 1.25, 5., 12.}) {
            GatherPause gather(static_cast<std::size_t>(room));
            GatherPause::Time now{1h};
            std::chrono::nanoseconds pause{}, longest{};
            for (int i = 0; i < 2000; ++i) {
                auto const slept = std::max<std::chrono::nanoseconds>(pause, 20us);
                now += slept;
                pause = gather.Next(static_cast<std::size_t>(pace * static_cast<double>(slept.count())), now);
                longest = std::max(longest, pause);
            }
            EXPECT_LE(2 * pace * static_cast<double>(longest.count()), room * 0.34) << room << " at " << pace;
            EXPECT_LE(2 * Burst * static_cast<double>(longest.count()), room * 0.63) << room << " at " << pace;
            if (room > 8e6 && pace < 0.2) {
                EXPECT_EQ(pause, 2ms);
            }
            EXPECT_EQ(longest == 0ns, room < 1e6 || room / (6 * pace) < 250e3) << room << " at " << pace;
            now += 1s; // a pause of the camera says nothing of its pace
            EXPECT_EQ(gather.Next(static_cast<std::size_t>(1e6), now), pause);
        }
    }
}

} // namespace
