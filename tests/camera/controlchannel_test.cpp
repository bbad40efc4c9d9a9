// The control channel before cameras that answer well, late, wrong and not at all. In a network namespace of its own.
#include "gige/controlchannel.h"

#include "asleep.h"
#include "gige/openwatch.h"
#include "scriptedcamera.h"

#include <future>
#include <numeric>
#include <optional>
#include <set>

namespace {

using namespace std::chrono_literals;
namespace bootstrap = gvcp::bootstrap;
using Bytes = ScriptedCamera::Bytes;
using Datagrams = std::vector<ScriptedCamera::Datagram>;

constexpr std::uint32_t Somewhere = 0x10000;

Datagrams Nothing(Bytes const &, Bytes const &)
{
    return {};
}

Bytes With(Bytes bytes, std::size_t at, std::uint16_t value)
{
    StoreBig16(&bytes[at], value);
    return bytes;
}

// Of another length, which its header says or does not say.
Bytes Sized(Bytes bytes, std::ptrdiff_t more, bool told)
{
    bytes.resize(static_cast<std::size_t>(static_cast<std::ptrdiff_t>(bytes.size()) + more));
    return told ? With(bytes, 4, static_cast<std::uint16_t>(bytes.size() - gvcp::HeaderSize)) : bytes;
}

// That asks for so many milliseconds.
Bytes Pending(Bytes const &answer, std::uint16_t time)
{
    return With({0, 0, 0, gvcp::PENDING_ACK, 0, gvcp::PendingAck::Size, answer[6], answer[7], 0, 0, 0, 0}, 10, time);
}

// With an open channel.
class ControlChannelTest : public testing::Test
{
protected:
    ControlChannelTest()
    {
        EXPECT_EQ(channel.Open(), 0);
    }
    std::int32_t Read()
    {
        return channel.ReadRegister(0x100, value);
    }

    ScriptedCamera camera;
    ControlChannel channel{"127.0.0.1"};
    std::uint32_t value = 0;
};

TEST_F(ControlChannelTest, AnswersThatDoNotFitAreCountedAndLeft)
{
    using Counter = std::uint64_t ControlChannel::Counters::*;
    using Counters = ControlChannel::Counters;
    struct Row
    {
        char const *name;
        std::function<Bytes(Bytes const &)> make; // what comes before the good answer
        Counter counter;
        bool isForeign = false;
    };
    Row const rows[] = {
        {"nothing in it", [](Bytes const &) { return Bytes(); }, &Counters::malformed},
        {"half a header", [](Bytes const &good) { return Bytes(good.begin(), good.begin() + 7); },
         &Counters::malformed},
        {"less than it says", [](Bytes const &good) { return Sized(good, -1, false); }, &Counters::malformed},
        {"more than it says", [](Bytes const &good) { return Sized(good, 1, false); }, &Counters::malformed},
        {"less than was asked for", [](Bytes const &good) { return Sized(good, -2, true); }, &Counters::malformed},
        {"more than was asked for", [](Bytes const &good) { return Sized(good, 4, true); }, &Counters::malformed},
        {"endless", [](Bytes const &good) { return Sized(good, 8000, true); }, &Counters::malformed},
        {"to another request", [](Bytes const &good) { return With(good, 6, LoadBig16(&good[6]) ^ 0x4000); },
         &Counters::stale},
        {"to another command", [](Bytes const &good) { return With(good, 2, gvcp::WRITEREG_ACK); },
         &Counters::malformed},
        {"a short plea for time", [](Bytes const &good) { return Sized(Pending(good, 60000), -1, true); },
         &Counters::malformed},
        {"from elsewhere", [](Bytes const &good) { return With(good, 8, 0xBAD); }, &Counters::foreign, true},
    };
    std::uint32_t address = 0x100;
    for (Row const &row : rows) {
        SCOPED_TRACE(row.name);
        camera.Set([&row](Bytes const &request, Bytes const &good) {
            return ScriptedCamera::IsBeat(request) ? Datagrams{{good}}
                                                   : Datagrams{{row.make(good), row.isForeign}, {good}};
        });
        std::uint64_t const before = channel.GetCounters().*row.counter;
        // The one from elsewhere has a way of its own and may come later.
        EXPECT_TRUE(Eventually([&] {
            address += 4;
            camera.Put(address, address);
            EXPECT_EQ(channel.ReadRegister(address, value), 0);
            EXPECT_EQ(value, address);
            return channel.GetCounters().*row.counter > before;
        }));
    }
    // Memory tells its address.
    Bytes bytes(8);
    camera.Set([](Bytes const &, Bytes const &good) { return Datagrams{{With(good, 8, 7)}, {good}}; });
    std::uint64_t const before = channel.GetCounters().malformed;
    EXPECT_EQ(channel.ReadMemory(Somewhere, bytes), 0);
    EXPECT_EQ(bytes, camera.Get(Somewhere, 8));
    EXPECT_GT(channel.GetCounters().malformed, before);
}

// More than the socket holds before each answer, while it is waited for, and behind it.
TEST(ControlChannel, AFloodKeepsNothingFromTheCamera)
{
    constexpr std::size_t Flood = 1000;
    constexpr std::uint32_t Requests = 10;
    ScriptedCamera camera;
    for (bool const isForeign : {true, false}) {
        camera.Set({});
        ControlChannel channel("127.0.0.1");
        ASSERT_EQ(channel.Open(), 0);
        camera.Set([isForeign](Bytes const &, Bytes const &good) {
            Datagrams flood(2 * Flood, {With(good, 6, LoadBig16(&good[6]) ^ 0x4000), isForeign});
            flood[Flood] = {good};
            return flood;
        });
        for (std::uint32_t i = 0; i < Requests; ++i) {
            std::uint32_t value = 0;
            camera.Put(0x100, i);
            EXPECT_EQ(channel.ReadRegister(0x100, value), 0);
            EXPECT_EQ(value, i);
        }
        EXPECT_FALSE(channel.IsSilent() || channel.IsLost());
        ControlChannel::Counters const counted = channel.GetCounters();
        EXPECT_TRUE(counted.abandoned == 0 || !isForeign); // one of the heartbeat's may be, which counts on the next
        EXPECT_EQ(counted.stale > 0, !isForeign);
        EXPECT_GE(counted.foreign + counted.stale, (Requests - 1) * 2 * (Flood - 1));
    }
}

TEST_F(ControlChannelTest, RefusalsHaveTheirStatuses)
{
    std::pair<std::uint16_t, std::int32_t> const rows[] = {
        {gvcp::GEV_STATUS_ACCESS_DENIED, TOV_CAM_ERR_GENICAM_ACCESS},
        {gvcp::GEV_STATUS_WRITE_PROTECT, TOV_CAM_ERR_GENICAM_ACCESS},
        {gvcp::GEV_STATUS_INVALID_PARAMETER, TOV_CAM_ERR_GENICAM_INVALID_ARGUMENT},
        {gvcp::GEV_STATUS_INVALID_ADDRESS, TOV_CAM_ERR_GENICAM_GENERIC},
    };
    for (auto const &[refusal, status] : rows) {
        // Without a body, as some send it.
        camera.Set([refusal = refusal](Bytes const &, Bytes const &good) {
            return Datagrams{{With(Sized(good, 8 - static_cast<std::ptrdiff_t>(good.size()), true), 0, refusal)}};
        });
        EXPECT_EQ(Read(), status);
        EXPECT_EQ(value, 0u);
        EXPECT_EQ(channel.WriteRegister(0x100, 1), status);
    }
    Bytes bytes(0x20);
    EXPECT_EQ(channel.ReadMemory(0xFFFFFFF0, bytes), TOV_CAM_ERR_GENICAM_INVALID_ARGUMENT);
    EXPECT_EQ(channel.GetCounters().abandoned, 0u);
}

TEST_F(ControlChannelTest, MemoryIsReadAndWrittenInWholeRegisters)
{
    for (auto const &[address, size] : std::initializer_list<std::pair<std::uint32_t, std::size_t>>{
             {Somewhere, 4}, {Somewhere + 3, 1}, {Somewhere + 1, 7}, {Somewhere + 2, 512}, {Somewhere, 2000}}) {
        SCOPED_TRACE(std::to_string(address) + ' ' + std::to_string(size));
        Bytes bytes(size);
        EXPECT_EQ(channel.ReadMemory(address, bytes), 0);
        EXPECT_EQ(bytes, camera.Get(address, size));
        std::iota(bytes.begin(), bytes.end(), std::uint8_t{100});
        Bytes wanted = camera.Get(Somewhere, 4096);
        std::copy(bytes.begin(), bytes.end(), wanted.begin() + (address - Somewhere));
        EXPECT_EQ(channel.WriteMemory(address, bytes), 0);
        EXPECT_EQ(camera.Get(Somewhere, 4096), wanted);
    }
    channel.RequestPackets({1, 0x12345, 2, 0x3000004, false});
    channel.RequestPackets({1, 0x123456789, 2, 0x3000004, true});
    std::vector<Bytes> seen;
    ASSERT_TRUE(Eventually([&] { return (seen = camera.Requests(gvcp::PACKETRESEND_CMD)).size() == 2; }));
    for (Bytes &request : seen)
        request.erase(request.begin() + 6, request.begin() + 8); // the id
    EXPECT_EQ(seen[0], (Bytes{0x42, 0, 0, 0x40, 0, 12, 0, 1, 0x23, 0x45, 0, 0, 0, 2, 0, 0, 0, 4}));
    EXPECT_EQ(seen[1], (Bytes{0x42, 0x10, 0, 0x40, 0, 20, 0, 1, 0, 0,    0,    0,    0,
                              2,    3,    0, 0,    4, 0,  0, 0, 1, 0x23, 0x45, 0x67, 0x89}));
}

TEST_F(ControlChannelTest, OneWithoutAnswerSparesTheOthersTheWait)
{
    camera.Set(Nothing);
    std::size_t const before = camera.Requests(gvcp::READREG_CMD).size();
    EXPECT_EQ(Read(), TOV_CAM_ERR_NO_DEVICE);
    EXPECT_TRUE(channel.IsSilent());
    std::vector<Bytes> const tries = camera.Requests(gvcp::READREG_CMD);
    ASSERT_EQ(tries.size() - before, 6u);
    EXPECT_EQ(tries.back(), tries[before]); // the same id
    for (int i = 0; i < 1000; ++i)
        EXPECT_EQ(Read(), TOV_CAM_ERR_NO_DEVICE);
    EXPECT_EQ(camera.Requests(gvcp::READREG_CMD).size() - before, 6u);
    camera.Set({});
    EXPECT_TRUE(Eventually([&] { return Read() == 0; }));
    EXPECT_FALSE(channel.IsLost());
}

// The heartbeat goes on asking, and nobody else is let through before it has found that control is still ours.
TEST_F(ControlChannelTest, SilenceEndsOnceControlIsKnownToBeOurs)
{
    for (bool const isTaken : {false, true}) {
        EXPECT_EQ(channel.GetSilence(), 0ms);
        camera.Set(Nothing);
        EXPECT_EQ(Read(), TOV_CAM_ERR_NO_DEVICE);
        EXPECT_GE(channel.GetSilence(), 3s); // an access in vain
        std::size_t const beats = camera.CountRequests(), others = camera.Requests(gvcp::READREG_CMD).size();
        EXPECT_TRUE(Eventually([&] { return camera.CountRequests() > beats; }));
        if (isTaken)
            camera.Put(bootstrap::ControlChannelPrivilege, 0);
        camera.Set({});
        EXPECT_TRUE(Eventually([&] { return isTaken ? channel.IsLost() : Read() == 0; }));
        EXPECT_EQ(channel.GetSilence(), 0ms);
        EXPECT_EQ(channel.IsSilent(), isTaken);
        EXPECT_TRUE(!isTaken || camera.Requests(gvcp::READREG_CMD).size() == others);
    }
}

TEST_F(ControlChannelTest, WhoIsInAHurryWaitsForNoOtherAccess)
{
    camera.Set(Nothing);
    std::size_t const before = camera.Requests(gvcp::READREG_CMD).size();
    auto patient = std::async(std::launch::async, [this] {
        std::uint32_t other;
        return channel.ReadRegister(0x200, other);
    });
    ASSERT_TRUE(Eventually([&] { return camera.Requests(gvcp::READREG_CMD).size() > before; }));
    Haste const haste(&channel);
    EXPECT_EQ(Read(), TOV_CAM_ERR_NO_DEVICE);
    EXPECT_EQ(patient.get(), TOV_CAM_ERR_NO_DEVICE);
    std::vector<Bytes> const tries = camera.Requests(gvcp::READREG_CMD);
    std::set<Bytes> const requests(tries.begin() + static_cast<std::ptrdiff_t>(before), tries.end());
    EXPECT_EQ(requests.size(), 2u);
    EXPECT_LT(tries.size() - before, 6u); // those of one alone, if nobody hurried it
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(Read(), TOV_CAM_ERR_NO_DEVICE);
    EXPECT_EQ(camera.Requests(gvcp::READREG_CMD).size(), tries.size());
}

TEST_F(ControlChannelTest, ASlowCameraIsNotSilent)
{
    camera.Put(0x100, 77);
    camera.Set([](Bytes const &, Bytes const &good) {
        std::this_thread::sleep_for(300ms);
        return Datagrams{{good}};
    });
    for (int i = 0; i < 6; ++i) {
        std::optional<Haste> haste;
        if (i % 2 != 0)
            haste.emplace(&channel);
        EXPECT_EQ(Read(), 0);
        EXPECT_EQ(value, 77u);
    }
    EXPECT_FALSE(channel.IsSilent() || channel.IsLost());
}

TEST_F(ControlChannelTest, ACameraThatAsksForTimeForEverIsAskedOnce)
{
    camera.Set([](Bytes const &, Bytes const &good) { return Datagrams{{Pending(good, 60000)}}; });
    std::size_t const before = camera.Requests(gvcp::READREG_CMD).size();
    {
        Haste const haste(&channel);
        for (int i = 0; i < 100; ++i)
            EXPECT_EQ(Read(), TOV_CAM_ERR_NO_DEVICE);
    }
    EXPECT_TRUE(channel.IsSilent());
    EXPECT_EQ(camera.Requests(gvcp::READREG_CMD).size(), before + 1);
    channel.BeginClosing();
    channel.Close();
    EXPECT_TRUE(Eventually([&] { return camera.Requests(gvcp::WRITEREG_CMD).size() == 2; })); // control goes back
}

TEST_F(ControlChannelTest, ACameraThatAsksForTimeGetsSome)
{
    camera.Put(0x100, 77);
    camera.Set([](Bytes const &, Bytes const &good) { return Datagrams{{Pending(good, 60000)}, {good}}; });
    EXPECT_EQ(Read(), 0);
    EXPECT_EQ(value, 77u);
    std::uint64_t const repeated = channel.GetCounters().repeated;
    camera.Set([](Bytes const &, Bytes const &good) { return Datagrams{{Pending(good, 60000)}}; });
    EXPECT_EQ(Read(), TOV_CAM_ERR_NO_DEVICE); // in the end
    EXPECT_EQ(channel.GetCounters().repeated, repeated);
    EXPECT_EQ(channel.GetCounters().abandoned, 1u);
}

TEST(ControlChannel, CancelEndsWhatWaits)
{
    ScriptedCamera camera;
    enum Way { Channel, Progress, GiveUp };
    for (Way const way : {Channel, Progress, GiveUp}) {
        camera.Set({});
        ControlChannel channel("127.0.0.1");
        ASSERT_EQ(channel.Open(), 0);
        TovCam::OpenProgress progress;
        OpenWatch const watch(&progress);
        channel.Follow(&watch);
        auto const givenUp = std::make_shared<std::atomic<bool>>(false);
        auto const giveUp = std::make_shared<GiveUpWatch>();
        giveUp->Follow(givenUp);
        channel.SetGiveUpWatch(giveUp);
        camera.Set([](Bytes const &, Bytes const &good) { return Datagrams{{Pending(good, 60000)}}; });
        std::size_t const before = camera.Requests(gvcp::READREG_CMD).size();
        auto access = std::async(std::launch::async, [&channel] {
            std::uint32_t value;
            return channel.ReadRegister(0x100, value);
        });
        ASSERT_TRUE(Eventually([&] { return camera.Requests(gvcp::READREG_CMD).size() > before; }));
        EXPECT_TRUE(IsUnderWay(access));
        if (way == Progress)
            progress.cancel = true;
        else if (way == GiveUp)
            *givenUp = true;
        else
            channel.Cancel();
        EXPECT_EQ(access.get(), TOV_CAM_ERR_NO_DEVICE);
        EXPECT_EQ(channel.GetCounters().abandoned, 0u); // it did not come to its end
        camera.Set({});
        *givenUp = false;
        std::uint32_t value = 0;
        EXPECT_EQ(channel.ReadRegister(0x100, value), way == GiveUp ? 0 : TOV_CAM_ERR_NO_DEVICE);
    }
    // The time of an opening is told.
    TovCam::OpenProgress progress;
    EXPECT_FALSE(OpenWatch(&progress).IsOver());
    EXPECT_TRUE(OpenWatch(&progress, std::chrono::milliseconds(0)).IsOver());
    EXPECT_TRUE(progress.overdue);
}

TEST(ControlChannel, ControlIsTakenKeptAndGivenBack)
{
    ScriptedCamera camera;
    camera.Put(bootstrap::HeartbeatTimeout, 10); // nobody could keep that up
    {
        ControlChannel channel("127.0.0.1");
        ASSERT_EQ(channel.Open(), 0);
        EXPECT_EQ(camera.Get(bootstrap::ControlChannelPrivilege), gvcp::ControlAccess);
        EXPECT_EQ(camera.Get(bootstrap::HeartbeatTimeout), 3000u);
        EXPECT_EQ(channel.GetCameraAddress(), INADDR_LOOPBACK);
        EXPECT_EQ(channel.GetHostAddress(), INADDR_LOOPBACK);
        std::uint32_t address = 0;
        std::uint16_t port = 0;
        camera.Put(bootstrap::PrimaryApplicationIpAddress, INADDR_LOOPBACK);
        camera.Put(bootstrap::PrimaryApplicationPort, 7000);
        EXPECT_EQ(channel.ReadController(address, port), 0);
        EXPECT_EQ(std::pair(address, port), std::pair(INADDR_LOOPBACK, std::uint16_t{7000}));
        EXPECT_GT(channel.GetMtu(), 1500u);
    }
    EXPECT_EQ(camera.Get(bootstrap::ControlChannelPrivilege), 0u);
    camera.Set([](Bytes const &request, Bytes const &good) {
        return Datagrams{
            {With(good, 0, LoadBig16(&request[2]) == gvcp::WRITEREG_CMD ? gvcp::GEV_STATUS_ACCESS_DENIED : 0)}};
    });
    EXPECT_EQ(ControlChannel("127.0.0.1").Open(), TOV_CAM_ERR_GENICAM_ACCESS);
    EXPECT_EQ(ControlChannel("nowhere").Open(), TOV_CAM_ERR_NO_DEVICE);
}

// However it comes about, it is told once, by another thread, and nothing waits for the camera any more.
TEST(ControlChannel, LossIsTold)
{
    std::function<void(ScriptedCamera &)> const rows[] = {
        [](ScriptedCamera &camera) { camera.Put(bootstrap::ControlChannelPrivilege, 0); },
        [](ScriptedCamera &camera) { camera.Set(Nothing); },
        // Silent long enough for another host to have taken over.
        [](ScriptedCamera &camera) {
            camera.Put(bootstrap::PrimaryApplicationIpAddress, INADDR_LOOPBACK + 1);
            camera.Set([left = 2](Bytes const &, Bytes const &good) mutable {
                return left-- > 0 ? Datagrams{} : Datagrams{{good}};
            });
        },
    };
    for (auto const &lose : rows) {
        ScriptedCamera camera;
        camera.Put(bootstrap::GvcpCapability, gvcp::gvcpcapability::PrimaryApplication);
        camera.Put(bootstrap::HeartbeatTimeout, 300);
        ControlChannel channel("127.0.0.1");
        ASSERT_EQ(channel.Open(), 0);
        lose(camera);
        ASSERT_TRUE(Eventually([&] { return channel.IsLost(); }));
        std::atomic<int> told{0};
        std::atomic<std::thread::id> thread;
        channel.SetLossHandler([&] {
            thread = std::this_thread::get_id();
            ++told;
        });
        EXPECT_TRUE(Eventually([&] { return told == 1; }));
        EXPECT_NE(thread.load(), std::this_thread::get_id());
        std::uint32_t value;
        std::uint64_t const abandoned = channel.GetCounters().abandoned;
        EXPECT_EQ(channel.ReadRegister(0x100, value), TOV_CAM_ERR_NO_DEVICE);
        channel.Close();
        EXPECT_EQ(told, 1);
        EXPECT_EQ(channel.GetCounters().abandoned, abandoned);
    }
}

} // namespace
