#include "asleep.h"
#include "fifofixture.h"
#include "params.h"
#include "wait.h"

namespace {

constexpr std::uint64_t Farthest = ~std::uint64_t{0};
constexpr double T = 1e6; // the camera's ticks a second

class Fifo : public FifoFixture
{
protected:
    void Begin(SessionState state, int queueSize = 16)
    {
        fifo.SetParamInt("QueueSize", queueSize);
        FifoFixture::Begin(state);
        ASSERT_TRUE(device.stream.WaitUntilDrained());
    }

    void Finish()
    {
        FifoFixture::Finish();
        EXPECT_EQ(IntOf(&fifo, "QueueFilled"), 0);
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
        GrabbingFifo::Loss const loss = fifo.GetLossBefore(buffer);
        gapBefore = loss.frames;
        places = loss.before.Words() + '/' + loss.own.Words();
        EXPECT_EQ(fifo.ReleaseBuffer(buffer), 0);
        return id;
    }

    std::uint64_t gapBefore = 0; // the frame of the last PopId
    std::string places;          // likewise
};

// The places of a frame that the full FIFO drops go on to the next one, with its own.
TEST_F(Fifo, TellsWhereWhatIsMissingWasLost)
{
    Begin(SessionStateCapturing, 5); // two of them wait
    Feed({{1, 1000},
          {4, 4000, false, 0, TovCam::FrameLosses{.skipped = 2, .packets = 40}},
          {7, 7000, true, 0, TovCam::FrameLosses{.skipped = 1, .unbuffered = 1, .packets = 40, .missing = 3}},
          {9, 9000}});
    EXPECT_EQ(PopId(), 1u);
    EXPECT_EQ(places, "/");
    EXPECT_EQ(PopId(), 9u);
    EXPECT_EQ(gapBefore, 7u);
    EXPECT_EQ(places, "camera+receiver+fifo+unknown/");
    Feed({{10, 10000, true, 0, TovCam::FrameLosses{.packets = 40, .missing = 3}}});
    EXPECT_EQ(PopId(), 10u);
    EXPECT_EQ(places, "/network");
    LossTally const lost = fifo.GetLossCounts().frames;
    EXPECT_EQ(lost.At(LossPlace::Camera).missing, 3);
    EXPECT_EQ(lost.At(LossPlace::Receiver).missing, 1);
    EXPECT_EQ(lost.At(LossPlace::Network).incomplete, 2);
    EXPECT_EQ(lost.At(LossPlace::Network).packets, 6);
    EXPECT_EQ(lost.At(LossPlace::Fifo).missing, 2);
    EXPECT_EQ(lost.At(LossPlace::Unknown).missing, 1);
    Finish();
}

TEST_F(Fifo, WatchingHoldsTheNewestFrameAndDropsNothing)
{
    TovCam::Buffer *buffer = nullptr;
    EXPECT_EQ(fifo.GetNewestBuffer(&buffer, false), TOV_CAM_ERR_INVALID_STATE) << "idle";
    EXPECT_EQ(fifo.PopOldestBuffer(&buffer), TOV_CAM_ERR_INVALID_STATE);
    Begin(SessionStateAcquisition);
    FeedIds(1, 20);
    Feed({{21, 21000, true}});
    device.stream.PushNothing(0); // leaves the last one
    ASSERT_TRUE(device.stream.WaitUntilDrained());
    EXPECT_EQ(IntOf(&fifo, "QueueFilled"), 1);
    EXPECT_EQ(IntOf(&fifo, "FramesDroppedSW"), 0);
    EXPECT_EQ(device.stream.OutCount(), 1u);
    ASSERT_EQ(fifo.GetNewestBuffer(&buffer, true), 0);
    EXPECT_EQ(IntOf(&fifo, "QueueFilled"), 1);
    ASSERT_EQ(fifo.GetNewestBuffer(&buffer, false), 0);
    EXPECT_EQ(buffer->GetFrameID(), 21u) << "an incomplete frame replaces the last one";
    EXPECT_EQ(IntOf(&fifo, "QueueFilled"), 0);
    EXPECT_EQ(fifo.ReturnBuffer(buffer), 0);
    EXPECT_EQ(device.stream.OutCount(), 0u);
}

struct StatisticsRow
{
    char const *name;
    std::vector<FakeFrame> frames; // of 1024 bytes
    long acquired, dropped, incomplete;
    double framesPerTick; // the average is written last, into both variables
    double ticksOfSpeed;  // the difference that the speed was last computed with
    long missing = 0;     // as the accounts have it
};

class FifoStatistics : public Fifo, public testing::WithParamInterface<StatisticsRow>
{
};

TEST_P(FifoStatistics, AreThoseOfTheFrames)
{
    StatisticsRow const &row = GetParam();
    Begin(SessionStateAcquisition);
    Feed(row.frames);
    EXPECT_EQ(IntOf(&fifo, "FramesAcquired"), row.acquired);
    EXPECT_EQ(IntOf(&fifo, "FramesDroppedHW"), row.dropped);
    EXPECT_EQ(IntOf(&fifo, "FramesIncomp"), row.incomplete);
    EXPECT_EQ(fifo.GetAccounts().missing, row.missing);
    EXPECT_DOUBLE_EQ(FloatOf(&fifo, "FpsAvg"), row.framesPerTick * T);
    EXPECT_DOUBLE_EQ(FloatOf(&fifo, "FpsInst"), row.framesPerTick * T);
    EXPECT_DOUBLE_EQ(FloatOf(&fifo, "Speed"), row.ticksOfSpeed ? T * 1024 / (row.ticksOfSpeed * 1048576) : 0);
}

StatisticsRow const statisticsRows[] = {
    {"first_frame_counts_from_zero", {{7, 1000}}, 1, 0, 0, 7. / 1000, 1000},
    {"average_ends_in_both", {{1, 1000}, {2, 1500}}, 2, 0, 0, 2. / 500, 500},
    {"gap_adds_the_missing", {{5, 1000}, {6, 2000}, {9, 4000}}, 3, 2, 0, 5. / 3000, 2000, 2},
    // One of the two did come, and so did the nameless one of the three after it.
    {"incomplete_is_not_missing", {{5, 1000}, {7, 2000, true}, {8, 4000}}, 2, 2, 1, 4. / 3000, 3000, 1},
    {"incomplete_without_id", {{5, 1000}, {0, 2000, true}, {9, 4000}, {12, 5000}}, 3, 5, 1, 8. / 4000, 1000, 4},
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
    EXPECT_EQ(IntOf(&fifo, "FramesAcquired"), 0);
    EXPECT_EQ(IntOf(&fifo, "FramesDroppedHW"), 0);
    EXPECT_EQ(IntOf(&fifo, "FramesIncomp"), 0);
    EXPECT_EQ(IntOf(&fifo, "Timestamp"), 2000);
    std::int64_t const missing = fifo.GetAccounts().missing;
    Feed({{9, 12000}}); // before it none is missing
    EXPECT_EQ(fifo.GetAccounts().missing, missing);
    EXPECT_DOUBLE_EQ(FloatOf(&fifo, "FpsAvg"), 9 * T / 10000);
}

TEST_F(Fifo, CapturingKeepsTheOldestInOrder)
{
    Begin(SessionStateCapturing);
    FeedIds(1, 20);
    EXPECT_EQ(IntOf(&fifo, "QueueFilled"), 13);
    EXPECT_EQ(IntOf(&fifo, "FramesDroppedSW"), 7);
    // A pass without a frame finds the FIFO full, too, and makes room for nothing.
    device.stream.PushNothing(-40001);
    ASSERT_TRUE(device.stream.WaitUntilDrained());
    EXPECT_EQ(IntOf(&fifo, "FramesDroppedSW"), 8);
    EXPECT_EQ(IntOf(&fifo, "QueueFilled"), 12);
    for (std::uint64_t id = 1; id <= 12; ++id)
        EXPECT_EQ(PopId(), id);
    EXPECT_EQ(gapBefore, 0u);
    // A smaller queue takes effect at once.
    FeedIds(21, 28);
    fifo.SetParamInt("QueueSize", 5);
    Feed({{29, 29000}});
    EXPECT_EQ(IntOf(&fifo, "QueueFilled"), 2);
    EXPECT_EQ(PopId(), 21u);
    EXPECT_EQ(gapBefore, 8u) << "those that were dropped";
    EXPECT_EQ(PopId(), 29u);
    EXPECT_EQ(gapBefore, 7u);
    Feed({{35, 35000}});
    EXPECT_EQ(PopId(), 35u);
    EXPECT_EQ(gapBefore, 5u) << "those that never came";
    Begin(SessionStateCapturing);
    EXPECT_EQ(IntOf(&fifo, "FramesDroppedSW"), 0);
}

TEST_F(Fifo, CapturingWithTheSmallestQueueDropsEveryFrame)
{
    Begin(SessionStateCapturing, 1);
    EXPECT_EQ(IntOf(&fifo, "QueueSize"), 3);
    FeedIds(1, 10);
    device.stream.PushNothing(0);
    ASSERT_TRUE(device.stream.WaitUntilDrained());
    EXPECT_EQ(IntOf(&fifo, "FramesDroppedSW"), 10);
    EXPECT_EQ(IntOf(&fifo, "QueueFilled"), 0);
    EXPECT_EQ(device.stream.OutCount(), 0u);
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

// Each sleeps before the one thing happens that may wake it.
TEST_F(Fifo, ASleepingConsumerIsWokenByEverythingThatItMayWaitFor)
{
    struct
    {
        char const *what;
        SessionState state;
        std::function<void(TovCam::Buffer *)> wake; // with the frame that somebody else has
        bool served;
    } const rows[] = {
        {"a frame", SessionStateAcquisition, [this](auto *) { FeedIds(2, 2); }, true},
        {"a frame to record", SessionStateCapturing, [this](auto *) { FeedIds(2, 2); }, true},
        {"a frame given back", SessionStateCapturing, [this](auto *taken) { fifo.ReturnBuffer(taken); }, true},
        {"the flag", SessionStateAcquisition, [this](auto *) { fifo.SetGrabberThtreadBlocking(false); }, false},
    };
    for (auto const &row : rows) {
        for (bool const newest : {false, true}) {
            SCOPED_TRACE(row.what + std::string(newest ? ", newest" : ", oldest"));
            Begin(row.state);
            FeedIds(1, 1);
            TovCam::Buffer *taken = nullptr;
            ASSERT_EQ(fifo.PopOldestBuffer(&taken), 0);
            auto consumer = std::async(std::launch::async, [&] {
                TovCam::Buffer *buffer = nullptr;
                EXPECT_EQ(newest ? fifo.GetNewestBuffer(&buffer, false) : fifo.PopOldestBuffer(&buffer), 0);
                return buffer;
            });
            ASSERT_TRUE(OthersFallAsleep());
            row.wake(taken);
            ASSERT_TRUE(Returns(consumer)) << "it sleeps on";
            TovCam::Buffer *const buffer = consumer.get();
            EXPECT_EQ(buffer != nullptr, row.served);
            fifo.SetGrabberThtreadBlocking(true);
            if (buffer != taken)
                fifo.ReleaseBuffer(taken);
            if (buffer)
                fifo.ReleaseBuffer(buffer);
            EXPECT_EQ(fifo.GetAccounts().withConsumers, 0);
        }
    }
}

TEST_F(Fifo, AFrameServesOneConsumerAndTheFlagFreesAllAndHidesFrames)
{
    Begin(SessionStateAcquisition);
    std::atomic<int> served{0}, freed{0};
    std::vector<std::future<void>> sleepers;
    for (int i = 0; i < 4; ++i) {
        sleepers.push_back(std::async(std::launch::async, [&, i] {
            TovCam::Buffer *buffer = nullptr;
            EXPECT_EQ(i % 2 ? fifo.PopOldestBuffer(&buffer) : fifo.GetNewestBuffer(&buffer, false), 0);
            ++(buffer ? served : freed);
            if (buffer)
                fifo.ReleaseBuffer(buffer);
        }));
    }
    ASSERT_TRUE(OthersFallAsleep());
    Feed({{1, 1000}});
    EXPECT_TRUE(Becomes([&] { return served == 1; }));
    ASSERT_TRUE(OthersFallAsleep());
    EXPECT_EQ(served + freed, 1);
    fifo.SetGrabberThtreadBlocking(false);
    for (auto const &sleeper : sleepers)
        EXPECT_TRUE(Returns(sleeper));
    EXPECT_EQ(freed, 3);
    Feed({{2, 2000}});
    TovCam::Buffer *buffer = nullptr;
    EXPECT_EQ(fifo.GetNewestBuffer(&buffer, false), 0);
    EXPECT_EQ(buffer, nullptr);
    fifo.SetGrabberThtreadBlocking(true);
    EXPECT_EQ(PopId(), 2u);
}

TEST(FifoTickFrequency, ComesFromTheNodeWhereThereIsOne)
{
    struct
    {
        bool readable, present, absenceSilent;
        std::int32_t error;
        double rate; // of a frame with id 1, 1000 ticks after 0
    } const rows[] = {
        {true, true, false, 0, 1e6 / 1000},   {true, true, false, -40202, 1e9 / 1000},
        {true, false, false, 0, 1e9 / 1000},  {true, false, true, 0, 0},
        {false, false, false, 0, 1e9 / 1000},
    };
    for (auto const &row : rows) {
        SCOPED_TRACE(&row - rows);
        FakeDevice device;
        device.SetParametersReadable(row.readable);
        device.params.absenceSilent = row.absenceSilent;
        device.params.ints["GevTimestampTickFrequency"].error = row.error;
        if (!row.present)
            device.params.ints.erase("GevTimestampTickFrequency");
        GrabbingFifo fifo(nullptr, &device);
        ASSERT_EQ(fifo.CreateBuffers(), 0);
        ASSERT_TRUE(fifo.StartGrabbing());
        fifo.SetState(SessionStateAcquisition);
        device.stream.Push({1, 1000});
        EXPECT_TRUE(device.stream.WaitUntilDrained());
        EXPECT_DOUBLE_EQ(FloatOf(&fifo, "FpsAvg"), row.rate);
        EXPECT_TRUE(fifo.StopGrabbing());
        EXPECT_EQ(fifo.ReleaseBuffers(), 0);
    }
}

// A camera that never rests, a display and a recorder that take what comes, and a state that goes up and down.
TEST_F(FifoFixture, ConsumersAndStopsInAnyOrderLoseNoBuffer)
{
    std::atomic<bool> done{false};
    std::thread camera([&] {
        for (std::uint64_t id = 1; !done; ++id) {
            if (!device.stream.Push({id, id * 1000, id % 17 == 0}))
                std::this_thread::yield();
        }
    });
    for (int cycle = 0; cycle < 40; ++cycle) {
        Begin();
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
        for (SessionState const state : {SessionStateCapturing, SessionStateAcquisition}) {
            std::int64_t const before = fifo.GetFramesAcquired();
            EXPECT_TRUE(Becomes([&] { return fifo.GetFramesAcquired() > before + 3; }));
            fifo.SetState(state);
        }
        FloatOf(&fifo, "FpsAvg"); // as the panels read it
        stop = true;
        fifo.SetGrabberThtreadBlocking(false);
        display.join();
        recorder.join();
        fifo.SetGrabberThtreadBlocking(true);
        Finish();
    }
    done = true;
    camera.join();
}

} // namespace
