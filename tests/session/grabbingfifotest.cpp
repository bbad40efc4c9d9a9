#include "grabbingfifo.h"
#include "fakecamera.h"
#include "paramchanged.h"

#include <log4cpp/Category.hh>
#include <log4cpp/StringQueueAppender.hh>

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

using namespace std::chrono_literals;

namespace {

constexpr std::uint64_t Farthest = ~std::uint64_t{0};
constexpr double T = 1e6; // the camera's ticks a second

// Notes the setters in their order.
class WatchedFifo : public GrabbingFifo
{
public:
    using GrabbingFifo::GrabbingFifo;
    std::vector<std::string> written; // read while the grabbing thread sleeps in GetBuffer

    TovStatus SetParamInt(char const *key, long value) override
    {
        written.emplace_back(key);
        return GrabbingFifo::SetParamInt(key, value);
    }
    TovStatus SetParamFloat(char const *key, double value) override
    {
        written.emplace_back(key);
        return GrabbingFifo::SetParamFloat(key, value);
    }
};

class Fifo : public testing::Test
{
protected:
    ~Fifo() override
    {
        if (m_running)
            Finish();
        EXPECT_EQ(device.script.Violations(), "");
    }

    void Begin(SessionState state, int queueSize = 16)
    {
        fifo.SetParamInt("QueueSize", queueSize);
        ASSERT_EQ(fifo.CreateBuffers(), 0);
        ASSERT_TRUE(fifo.StartGrabbing());
        fifo.SetState(state);
        m_running = true;
        ASSERT_TRUE(device.stream.WaitUntilDrained());
        fifo.written.clear();
    }

    void Finish()
    {
        m_running = false;
        EXPECT_TRUE(fifo.StopGrabbing());
        EXPECT_EQ(fifo.ReleaseBuffers(), 0);
        fifo.SetState(SessionStateIdle);
        EXPECT_EQ(Int("QueueFilled"), 0);
    }

    void Feed(std::vector<FakeFrame> const &frames)
    {
        for (FakeFrame const &frame : frames) {
            ASSERT_TRUE(device.stream.Push(frame));
            ASSERT_TRUE(device.stream.WaitUntilDrained());
        }
    }

    // Frames with these ids, 1000 ticks apart.
    void FeedIds(std::uint64_t first, std::uint64_t last)
    {
        for (std::uint64_t id = first; id <= last; ++id)
            Feed({{id, id * 1000}});
    }

    std::uint64_t PopId()
    {
        TovCam::Buffer *buffer = nullptr;
        EXPECT_EQ(fifo.PopOldestBuffer(&buffer), 0);
        if (!buffer)
            return 0;
        std::uint64_t const id = buffer->GetFrameID();
        EXPECT_EQ(fifo.ReleaseBuffer(buffer), 0);
        return id;
    }

    long Int(char const *key)
    {
        long value = -1;
        EXPECT_EQ(fifo.GetParamInt(key, &value), TOV_PARAM_OK);
        return value;
    }
    double Float(char const *key)
    {
        double value = -1;
        EXPECT_EQ(fifo.GetParamFloat(key, &value), TOV_PARAM_OK);
        return value;
    }

    FakeDevice device;
    WatchedFifo fifo{nullptr, &device};

private:
    bool m_running = false;
};

TEST_F(Fifo, WatchingHoldsTheNewestFrameAndDropsNothing)
{
    Begin(SessionStateAcquisition);
    FeedIds(1, 20);
    EXPECT_EQ(Int("QueueFilled"), 1);
    EXPECT_EQ(Int("FramesDroppedSW"), 0);
    EXPECT_EQ(device.stream.OutCount(), 1u);
    device.stream.PushNothing(0);
    ASSERT_TRUE(device.stream.WaitUntilDrained());
    EXPECT_EQ(device.stream.OutCount(), 1u) << "a pass without a frame leaves the last one";
    TovCam::Buffer *buffer = nullptr;
    ASSERT_EQ(fifo.GetNewestBuffer(&buffer, true), 0);
    EXPECT_EQ(Int("QueueFilled"), 1);
    ASSERT_EQ(fifo.GetNewestBuffer(&buffer, false), 0);
    EXPECT_EQ(buffer->GetFrameID(), 20u);
    EXPECT_EQ(Int("QueueFilled"), 0);
    EXPECT_EQ(fifo.ReturnBuffer(buffer), 0);
    EXPECT_EQ(device.stream.FreeCount(), 16u);
}

TEST_F(Fifo, WritesItsParametersInOrder)
{
    Begin(SessionStateAcquisition);
    Feed({{1, 1000}});
    EXPECT_EQ(fifo.written,
              (std::vector<std::string>{"FramesAcquired", "Timestamp", "FpsInst", "Speed", "FrameID", "QueueFilled"}));
    fifo.written.clear();
    Feed({{3, 2000}});
    EXPECT_EQ(fifo.written, (std::vector<std::string>{"FramesAcquired", "Timestamp", "FramesDroppedHW", "FpsInst",
                                                      "FpsAvg", "Speed", "FrameID"}));
    fifo.written.clear();
    Feed({{4, 3000, true}});
    EXPECT_EQ(fifo.written, std::vector<std::string>{"FramesIncomp"});
    EXPECT_EQ(Int("QueueFilled"), 1) << "an incomplete frame replaces the last one";
    TovCam::Buffer *buffer = nullptr;
    fifo.GetNewestBuffer(&buffer, false);
    EXPECT_TRUE(buffer->IsIncomplete());
    fifo.ReturnBuffer(buffer);
}

struct StatisticsRow
{
    char const *name;
    std::vector<FakeFrame> frames; // of 1024 bytes
    long acquired, dropped, incomplete;
    double framesPerTick; // the average is written last, into both variables
    double ticksOfSpeed;  // the difference that the speed was last computed with
};

class FifoStatistics : public Fifo, public testing::WithParamInterface<StatisticsRow>
{
};

TEST_P(FifoStatistics, AreThoseOfTheFrames)
{
    StatisticsRow const &row = GetParam();
    Begin(SessionStateAcquisition);
    Feed(row.frames);
    EXPECT_EQ(Int("FramesAcquired"), row.acquired);
    EXPECT_EQ(fifo.GetFramesAcquired(), row.acquired);
    EXPECT_EQ(Int("FramesDroppedHW"), row.dropped);
    EXPECT_EQ(Int("FramesIncomp"), row.incomplete);
    EXPECT_DOUBLE_EQ(Float("FpsAvg"), row.framesPerTick * T);
    EXPECT_DOUBLE_EQ(Float("FpsInst"), row.framesPerTick * T);
    EXPECT_DOUBLE_EQ(Float("Speed"), row.ticksOfSpeed ? T * 1024 / (row.ticksOfSpeed * 1048576) : 0);
}

StatisticsRow const statisticsRows[] = {
    {"first_frame_counts_from_zero", {{7, 1000}}, 1, 0, 0, 7. / 1000, 1000},
    {"average_ends_in_both", {{1, 1000}, {2, 1500}}, 2, 0, 0, 2. / 500, 500},
    {"gap_adds_the_missing", {{5, 1000}, {6, 2000}, {9, 4000}}, 3, 2, 0, 5. / 3000, 2000},
    {"id_restart_adds_nothing", {{9, 1000}, {1, 2000}}, 2, 0, 0, 2. / 1000, 1000},
    {"id_zero_after_the_largest", {{Farthest, 1000}, {0, 2000}}, 2, 0, 0, 2. / 1000, 1000},
    {"incomplete_only_counts", {{1, 1000}, {2, 2000, true}, {3, 3000, true}}, 1, 0, 2, 1. / 1000, 1000},
    {"error_with_a_whole_frame_counts", {{1, 1000, false, -40001}}, 1, 0, 0, 1. / 1000, 1000},
    {"slow_is_no_speed", {{1, 1000}, {2, 2001000}}, 2, 0, 0, 2. / 2e6, 0},
    {"standing_clock_gives_no_rate", {{1, 1000}, {2, 1000}}, 2, 0, 0, 1. / 1000, 1000},
    // Differences are unsigned; the speed takes them as signed and stays.
    {"clock_runs_backwards", {{1, 5000}, {2, 4000}}, 2, 0, 0, 2. / 0x1p64, 5000},
};

INSTANTIATE_TEST_SUITE_P(Table, FifoStatistics, testing::ValuesIn(statisticsRows),
                         [](auto const &info) { return std::string(info.param.name); });

TEST_F(Fifo, ARestartKeepsTheTimestampAndClearsTheCounts)
{
    Begin(SessionStateAcquisition);
    Feed({{1, 1000}, {5, 2000}, {6, 3000, true}});
    EXPECT_DOUBLE_EQ(fifo.GetCurrentFPS(), 2.0 / 1000);
    Finish();
    Begin(SessionStateAcquisition);
    EXPECT_EQ(Int("FramesAcquired"), 0);
    EXPECT_EQ(Int("FramesDroppedHW"), 0);
    EXPECT_EQ(Int("FramesIncomp"), 0);
    EXPECT_EQ(Int("Timestamp"), 2000);
    Feed({{1, 12000}});
    EXPECT_DOUBLE_EQ(Float("FpsAvg"), T / 10000);
}

TEST_F(Fifo, CapturingKeepsTheOldestInOrder)
{
    Begin(SessionStateCapturing);
    FeedIds(1, 20);
    EXPECT_EQ(Int("QueueFilled"), 13);
    EXPECT_EQ(Int("FramesDroppedSW"), 7);
    // A pass without a frame finds the FIFO full, too, and makes room for nothing.
    device.stream.PushNothing(-40001);
    ASSERT_TRUE(device.stream.WaitUntilDrained());
    EXPECT_EQ(Int("FramesDroppedSW"), 8);
    EXPECT_EQ(Int("QueueFilled"), 12);
    for (std::uint64_t id = 1; id <= 12; ++id)
        EXPECT_EQ(PopId(), id);
    // A smaller queue takes effect at once.
    FeedIds(21, 28);
    fifo.SetParamInt("QueueSize", 5);
    Feed({{29, 29000}});
    EXPECT_EQ(Int("QueueFilled"), 2);
    EXPECT_EQ(PopId(), 21u);
    EXPECT_EQ(PopId(), 29u);
}

TEST_F(Fifo, CapturingWithTheSmallestQueueDropsEveryFrame)
{
    Begin(SessionStateCapturing, 1);
    EXPECT_EQ(Int("QueueSize"), 3);
    FeedIds(1, 10);
    device.stream.PushNothing(0);
    ASSERT_TRUE(device.stream.WaitUntilDrained());
    EXPECT_EQ(Int("FramesDroppedSW"), 10);
    EXPECT_EQ(Int("QueueFilled"), 0);
    EXPECT_EQ(device.stream.FreeCount(), 3u);
}

TEST_F(Fifo, AReturnedFrameReachesTheRecorderWhileCapturing)
{
    Begin(SessionStateCapturing);
    FeedIds(1, 2);
    TovCam::Buffer *buffer = nullptr;
    fifo.GetNewestBuffer(&buffer, false);
    FeedIds(3, 3);
    EXPECT_EQ(fifo.ReturnBuffer(buffer), 0);
    EXPECT_EQ(PopId(), 1u);
    EXPECT_EQ(PopId(), 3u);
    EXPECT_EQ(PopId(), 2u) << "it went to the front, past a newer one";
}

TEST_F(Fifo, AClearedBlockingFlagFreesConsumersAndHidesFrames)
{
    Begin(SessionStateAcquisition);
    std::atomic<int> freed{0};
    std::vector<std::thread> sleepers;
    for (int i = 0; i < 4; ++i) {
        sleepers.emplace_back([&, i] {
            TovCam::Buffer *buffer = nullptr;
            std::int32_t const status = i % 2 ? fifo.PopOldestBuffer(&buffer) : fifo.GetNewestBuffer(&buffer, false);
            EXPECT_EQ(status, 0);
            EXPECT_EQ(buffer, nullptr);
            ++freed;
        });
    }
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(freed, 0);
    fifo.SetGrabberThtreadBlocking(false);
    for (auto &sleeper : sleepers)
        sleeper.join();
    Feed({{1, 1000}});
    TovCam::Buffer *buffer = nullptr;
    EXPECT_EQ(fifo.GetNewestBuffer(&buffer, false), 0);
    EXPECT_EQ(buffer, nullptr);
    fifo.SetGrabberThtreadBlocking(true);
    EXPECT_EQ(fifo.GetNewestBuffer(&buffer, false), 0);
    ASSERT_NE(buffer, nullptr);
    fifo.ReleaseBuffer(buffer);
}

TEST_F(Fifo, ServesNobodyWhileIdle)
{
    TovCam::Buffer *buffer = nullptr;
    EXPECT_EQ(fifo.GetNewestBuffer(&buffer, false), TOV_CAM_ERR_INVALID_STATE);
    EXPECT_EQ(fifo.PopOldestBuffer(&buffer), TOV_CAM_ERR_INVALID_STATE);
    EXPECT_EQ(buffer, nullptr);
}

TEST_F(Fifo, FailingStepsOfTheStreamAreReported)
{
    device.script.Fail("AllocBufferQueue", -40007);
    EXPECT_EQ(fifo.CreateBuffers(), -40007);
    device.script.Fail("AllocBufferQueue", 0);
    ASSERT_EQ(fifo.CreateBuffers(), 0);
    device.script.Fail("StartAcquisition", -40051);
    EXPECT_FALSE(fifo.StartGrabbing());
    EXPECT_FALSE(fifo.StopGrabbing());
    device.script.Fail("StartAcquisition", 0);
    ASSERT_TRUE(fifo.StartGrabbing());
    EXPECT_FALSE(fifo.StartGrabbing()) << "it runs already";
    device.script.Fail("StopAcquisition", -40001);
    EXPECT_FALSE(fifo.StopGrabbing());
    device.script.Fail("StopAcquisition", 0);
    device.stream.StopAcquisition(1);
    device.script.Fail("ReleaseBufferQueue", -40001);
    EXPECT_EQ(fifo.ReleaseBuffers(), -40001);
}

TEST(FifoTickFrequency, ComesFromTheNodeWhereThereIsOne)
{
    struct
    {
        char const *name;
        std::function<void(FakeDevice &)> prepare;
        double rate; // of a frame with id 1, 1000 ticks after 0
    } const rows[] = {
        {"node", [](FakeDevice &) {}, 1e6 / 1000},
        {"no node", [](FakeDevice &device) { device.params.Remove("GevTimestampTickFrequency"); }, 1e9 / 1000},
        {"no node and no error",
         [](FakeDevice &device) {
             device.params.Remove("GevTimestampTickFrequency");
             device.params.SetAbsenceSilent(true);
         },
         0},
        {"unreadable", [](FakeDevice &device) { device.script.Fail("Read GevTimestampTickFrequency", -40202); },
         1e9 / 1000},
        {"no parameters", [](FakeDevice &device) { device.SetParametersReadable(false); }, 1e9 / 1000},
    };
    for (auto const &row : rows) {
        SCOPED_TRACE(row.name);
        FakeDevice device;
        row.prepare(device);
        GrabbingFifo fifo(nullptr, &device);
        ASSERT_EQ(fifo.CreateBuffers(), 0);
        ASSERT_TRUE(fifo.StartGrabbing());
        fifo.SetState(SessionStateAcquisition);
        device.stream.Push({1, 1000});
        EXPECT_TRUE(device.stream.WaitUntilDrained());
        double rate = -1;
        fifo.GetParamFloat("FpsAvg", &rate);
        EXPECT_DOUBLE_EQ(rate, row.rate);
        EXPECT_TRUE(fifo.StopGrabbing());
        EXPECT_EQ(fifo.ReleaseBuffers(), 0);
    }
}

TEST(FifoLog, TellsAStartAndAStopInTheseWords)
{
    log4cpp::Category &category = log4cpp::Category::getInstance("TOVSCP");
    auto *const appender = new log4cpp::StringQueueAppender("test"); // the category's, removed below
    category.setPriority(log4cpp::Priority::DEBUG);
    category.addAppender(appender);
    {
        FakeDevice device;
        GrabbingFifo fifo(nullptr, &device);
        fifo.CreateBuffers();
        fifo.SetState(SessionStateAcquisition);
        fifo.StartGrabbing();
        device.stream.Push({3, 1000});
        EXPECT_TRUE(device.stream.WaitUntilDrained());
        TovCam::Buffer *buffer = nullptr;
        fifo.GetNewestBuffer(&buffer, false);
        fifo.ReturnBuffer(buffer);
        fifo.StopGrabbing();
        fifo.StopGrabbing();
        fifo.ReleaseBuffers();
    }
    std::vector<std::string> lines;
    for (; appender->queueSize(); appender->getQueue().pop()) {
        std::string line = appender->getQueue().front();
        while (!line.empty() && line.back() == '\n')
            line.pop_back();
        // The layout puts time and level first; the grabbing thread's lines come when they come.
        line = line.substr(line.find("Gra") != std::string::npos ? line.find("Gra") : line.find("Frame"));
        if (line.find("GrabNewBuffer") == std::string::npos)
            lines.push_back(line);
    }
    category.removeAppender(appender);
    category.setPriority(log4cpp::Priority::NOTSET);
    std::vector<std::string> const expected{
        "GrabbingFifo::GrabbingFifo(), code=0",
        "GrabbingFifo::CreateBuffers() -> ENTER, code=16",
        "GrabbingFifo::CreateBuffers() <- LEAVE, code=16",
        "GrabbingFifo::SetState(), code=2",
        "GrabbingFifo::StartGrabbing() -> ENTER, code=0",
        "GrabbingFifo::StartGrabbing() <- LEAVE, code=1",
        "Frame added to m_grab_fifo id=3, code=0",
        "GrabbingFifo::GetNewestBuffer() -> ENTER, code=0",
        "GrabbingFifo::GetNewestBuffer(): buffer id=3 returned, code=0",
        "GrabbingFifo::GetNewestBuffer(): buffer id=3 poped from m_grab_fifo, bKeepInFifo=false, code=0",
        "GrabbingFifo::GetNewestBuffer() <- LEAVE, code=0",
        "GrabbingFifo::ReturnBuffer(), code=0",
        "GrabbingFifo::ReleaseBuffer(), code=0",
        "GrabbingFifo::StopGrabbing() -> ENTER, code=0",
        "GrabbingFifo::Stop() -> ENTER, code=0",
        "GrabbingFifo::Stop() : Grabbing thread stopped",
        "GrabbingFifo::Stop() <- LEAVE, code=0",
        "GrabbingFifo::Stop() <- LEAVE, code=0",
        "GrabbingFifo::StopGrabbing() -> ENTER, code=0",
        "GrabbingFifo::Stop() -> ENTER, code=0",
        "GrabbingFifo::Stop(): grabbing was not started , code=0",
        "GrabbingFifo::StopGrabbing(): Stop() failed, code=0",
        "GrabbingFifo::ReleaseBuffers() -> ENTER, code=16",
        "GrabbingFifo::ReleaseBuffers() <- LEAVE, code=16",
        "GrabbingFifo::~GrabbingFifo(), code=0",
    };
    EXPECT_EQ(lines, expected);
}

// A camera that never rests, a display and a recorder that take what comes, and a state that goes up and down.
TEST(FifoRaces, ConsumersAndStopsInAnyOrderLoseNoBuffer)
{
    FakeDevice device;
    GrabbingFifo fifo(nullptr, &device);
    std::atomic<bool> done{false};
    std::thread camera([&] {
        for (std::uint64_t id = 1; !done; ++id) {
            if (!device.stream.Push({id, id * 1000, id % 17 == 0}))
                std::this_thread::yield();
        }
    });
    for (int cycle = 0; cycle < 40; ++cycle) {
        ASSERT_EQ(fifo.CreateBuffers(), 0);
        ASSERT_TRUE(fifo.StartGrabbing());
        fifo.SetState(SessionStateAcquisition);
        std::atomic<bool> stop{false};
        auto const consume = [&](bool newest) {
            while (!stop) {
                TovCam::Buffer *buffer = nullptr;
                newest ? fifo.GetNewestBuffer(&buffer, false) : fifo.PopOldestBuffer(&buffer);
                if (!buffer)
                    continue;
                EXPECT_NE(buffer->GetImage()->imageData, nullptr);
                newest ? fifo.ReturnBuffer(buffer) : fifo.ReleaseBuffer(buffer);
            }
        };
        std::thread display(consume, true);
        std::thread recorder(consume, false);
        std::this_thread::sleep_for(1ms);
        fifo.SetState(SessionStateCapturing);
        std::this_thread::sleep_for(2ms);
        fifo.SetState(SessionStateAcquisition);
        char text[64];
        unsigned int length = sizeof text;
        EXPECT_EQ(fifo.GetParamAsString("FpsAvg", text, &length, "%.2f"), TOV_PARAM_OK);
        stop = true;
        fifo.SetGrabberThtreadBlocking(false);
        display.join();
        recorder.join();
        fifo.SetGrabberThtreadBlocking(true);
        ASSERT_TRUE(fifo.StopGrabbing());
        ASSERT_EQ(fifo.ReleaseBuffers(), 0);
        fifo.SetState(SessionStateIdle);
    }
    done = true;
    camera.join();
    EXPECT_EQ(device.script.Violations(), "");
}

TEST(FifoRaces, AThousandStartsAndStops)
{
    FakeDevice device;
    GrabbingFifo fifo(nullptr, &device);
    fifo.SetParamInt("QueueSize", 4);
    for (int cycle = 0; cycle < 1000; ++cycle) {
        // The state is set first, so that the thread hangs in GetBuffer at some stops and is on its way at others.
        fifo.SetState(SessionStateAcquisition);
        ASSERT_EQ(fifo.CreateBuffers(), 0);
        ASSERT_TRUE(fifo.StartGrabbing());
        if (cycle % 2)
            device.stream.Push({1, 1000});
        if (cycle % 50 == 0) {
            ASSERT_TRUE(device.stream.WaitUntilDrained());
        }
        ASSERT_TRUE(fifo.StopGrabbing());
        ASSERT_EQ(fifo.ReleaseBuffers(), 0);
    }
    EXPECT_EQ(device.script.Violations(), "");
}

// The handler of the panels hears every counter, on the grabbing thread.
TEST_F(Fifo, TellsThePanelsOfEveryChange)
{
    static std::atomic<int> heard;
    heard = 0;
    SetParamChangedHandler([](unsigned int component, _TovStParam *param) -> unsigned int {
        EXPECT_EQ(component, 0u);
        heard += std::string(param->name) == "FramesAcquired";
        return 0;
    });
    Begin(SessionStateAcquisition);
    FeedIds(1, 3);
    SetParamChangedHandler(nullptr);
    EXPECT_EQ(heard, 4) << "three frames and the reset at the start";
}

} // namespace
