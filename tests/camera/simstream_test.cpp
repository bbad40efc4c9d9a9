// The parts of the simulator that meet threads, without a node map: this is what ThreadSanitizer looks at.
#include "background.h"
#include "sim/simstream.h"

#include "asleep.h"

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;

SimModel const s_model{"T", "T", "1",     "", "", TovCam::InterfaceKindGigEVision, 64, 64, false, 0x01080001,
                       2,   0,   1000000, 1,  1.0};

class SimStreamTest : public testing::Test
{
protected:
    void Listen(std::uint32_t channel)
    {
        auto const take = [](void const *, unsigned long, void *gate) {
            static_cast<Gate *>(gate)->Pass();
        };
        EXPECT_EQ(m_hub.Register(channel, take, &m_told), 0);
        EXPECT_NE(m_hub.Register(channel, take, this), 0); // the place is taken
    }
    void Start(SimStream &stream, std::int64_t frames = -1)
    {
        ASSERT_EQ(stream.AllocBufferQueue(nullptr, 4), 0);
        ASSERT_EQ(stream.StartAcquisition(frames, 0), 0);
    }
    static SimSettings Every(std::chrono::nanoseconds period, bool triggered = false)
    {
        SimSettings settings;
        settings.period = period.count();
        settings.triggered = triggered;
        return settings;
    }

    SimFormat m_format{TV_PIXEL_MONO8, 64, 32};
    std::function<std::int32_t(SimFormat &)> const m_current = [this](SimFormat &format) {
        return format = m_format, 0;
    };
    EventHub m_hub;
    Gate m_told; // of the channels that are listened to
};

// Both threads sleep before the one thing happens that may wake one of them.
TEST_F(SimStreamTest, TheCamerasThreadAndItsHostAreWokenByEverythingThatTheyWaitFor)
{
    Listen(TovCam::EventControlChannel);
    Listen(TovCam::EventConnectionLost);
    auto const run = [this](SimSettings const &settings) {
        return [this, settings](SimStream &stream) {
            stream.Begin(m_format, settings, 1);
        };
    };
    auto const rest = [](SimStream &) {
    };
    auto const cancel = [](SimStream &stream) {
        stream.CancelGetBuffer();
    };
    struct
    {
        char const *what;
        std::function<void(SimStream &)> before, wake;
        int frames, told;
    } const rows[] = {
        {"a start", rest, run(Every(100us)), 1, 0},
        {"a trigger", run(Every(100us, true)), [](auto &stream) { stream.Trigger(); }, 1, 0},
        {"the end of triggers", run(Every(100us, true)), [](auto &stream) { stream.Apply(Every(100us)); }, 1, 0},
        {"an end, before the next start", run(Every(1h)),
         [&](auto &stream) {
             stream.End();
             EXPECT_TRUE(OthersFallAsleep());
             run(Every(100us))(stream);
         },
         1, 0},
        {"a packet", rest, [](auto &stream) { stream.Post({{1, 2, 3}}); }, 0, 1},
        {"a packet between frames", run(Every(1h)), [](auto &stream) { stream.Post({{1, 2, 3}}); }, 0, 1},
        {"the loss", rest, [](auto &stream) { stream.Lose(); }, 0, 1},
        {"the loss between triggers", run(Every(100us, true)), [](auto &stream) { stream.Lose(); }, 0, 1},
        {"a cancel, and its own end", rest, cancel, 0, 0},
        {"a cancel, and its own end between frames", run(Every(1h)), cancel, 0, 0},
        {"a cancel, and its own end between triggers", run(Every(100us, true)), cancel, 0, 0},
    };
    for (auto const &row : rows) {
        SCOPED_TRACE(row.what);
        SimStream stream(s_model, m_hub, m_current);
        ASSERT_NO_FATAL_FAILURE(Start(stream));
        int const told = m_told.Reached();
        auto host = std::async(std::launch::async, [&] { return stream.GetBuffer(TovCam::WaitForever, nullptr); });
        row.before(stream);
        ASSERT_TRUE(OthersFallAsleep());
        row.wake(stream);
        EXPECT_TRUE(Becomes([&] { return m_told.Reached() == told + row.told; })) << "it sleeps on";
        if (row.told != 0)
            stream.CancelGetBuffer();
        EXPECT_TRUE(Returns(host)) << "it sleeps on";
        if (IsUnderWay(host))
            stream.CancelGetBuffer();
        EXPECT_EQ(host.get() != nullptr, row.frames);
        EXPECT_EQ(stream.StopAcquisition(1), 0);
    }
}

TEST_F(SimStreamTest, AStopWaitsForTheFrameUnderWayAndTheEndOfAChannelForItsCallback)
{
    Listen(TovCam::EventStreamChannel);
    m_told.Close();
    SimStream stream(s_model, m_hub, m_current);
    ASSERT_NO_FATAL_FAILURE(Start(stream));
    stream.Begin(m_format, Every(100us), 1);
    ASSERT_TRUE(Becomes([this] { return m_told.Reached() == 1; }));
    auto const stop = std::async(std::launch::async, [&] { EXPECT_EQ(stream.StopAcquisition(1), 0); });
    auto const leave = std::async(std::launch::async, [&] { m_hub.UnregisterAll(); });
    ASSERT_TRUE(OthersFallAsleep());
    EXPECT_TRUE(IsUnderWay(stop));
    EXPECT_TRUE(IsUnderWay(leave));
    m_told.Open();
    EXPECT_TRUE(Returns(stop)) << "it sleeps on";
    EXPECT_TRUE(Returns(leave)) << "it sleeps on";
    EXPECT_EQ(stream.ReleaseBufferQueue(), 0);
}

TEST(BackgroundTest, WhoWaitsForAJobIsWokenByItsEnd)
{
    Gate gate;
    gate.Close();
    auto const job = std::async(std::launch::async, [&] { Background::Run([&] { gate.Pass(); }, 1h); });
    ASSERT_TRUE(OthersFallAsleep());
    gate.Open();
    EXPECT_TRUE(Returns(job)) << "it sleeps on";
}

TEST_F(SimStreamTest, StartsAndStopsRaceWithFrames)
{
    Listen(TovCam::EventStreamChannel);
    SimStream stream(s_model, m_hub, m_current);
    for (int i = 0; i < 60; ++i) {
        ASSERT_NO_FATAL_FAILURE(Start(stream));
        std::atomic<int> taken{0};
        auto host = std::async(std::launch::async, [&] {
            for (; TovCam::Buffer *const buffer = stream.GetBuffer(TovCam::WaitForever, nullptr); ++taken)
                EXPECT_EQ(stream.QueueBuffer(buffer), 0);
        });
        stream.Begin(m_format, Every(100us), -1);
        EXPECT_TRUE(Becomes([&] { return taken >= i % 4; }));
        stream.Apply(Every(i % 2 ? 100us : 200us));
        if (i % 2)
            stream.End();
        stream.CancelGetBuffer();
        ASSERT_TRUE(Returns(host));
        ASSERT_EQ(stream.StopAcquisition(1), 0);
        ASSERT_EQ(stream.ReleaseBufferQueue(), 0);
        stream.End();
    }
}

TEST_F(SimStreamTest, AFormatThatGrewComesIncomplete)
{
    SimStream stream(s_model, m_hub, m_current);
    Start(stream, 1);
    stream.CancelGetBuffer(); // which holds for one call
    EXPECT_EQ(stream.GetBuffer(TovCam::WaitForever, nullptr), nullptr);
    m_format.height = 64;
    stream.Begin(m_format, Every(100us), -1);
    TovCam::Buffer *const buffer = stream.GetBuffer(30000, nullptr);
    ASSERT_NE(buffer, nullptr);
    EXPECT_TRUE(buffer->IsIncomplete());
    EXPECT_EQ(buffer->GetImage()->height, 32u);
}

} // namespace
