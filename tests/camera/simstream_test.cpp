// The parts of the simulator that meet threads, without a node map: this is what ThreadSanitizer looks at.
#include "sim/simstream.h"

#include <gtest/gtest.h>

#include <future>

using namespace std::chrono_literals;

namespace {

struct Counter
{
    std::atomic<int> calls{0};
    std::atomic<int> inside{0};
    std::atomic<bool> ended{false};
    std::atomic<int> lateCalls{0};

    static void Call(void const *, unsigned long, void *user)
    {
        auto *const self = static_cast<Counter *>(user);
        ++self->inside;
        self->lateCalls += self->ended;
        std::this_thread::yield();
        ++self->calls;
        --self->inside;
    }
};

} // namespace

TEST(EventHub, NoCallRunsAfterUnregister)
{
    EventHub hub;
    std::atomic<bool> stop{false};
    std::vector<std::thread> emitters;
    for (int i = 0; i < 3; ++i)
        emitters.emplace_back([&] {
            while (!stop)
                hub.Emit(TovCam::EventControlChannel, "x", 1);
        });
    for (int i = 0; i < 300; ++i) {
        Counter counter;
        ASSERT_EQ(hub.Register(TovCam::EventControlChannel, Counter::Call, &counter), 0);
        EXPECT_TRUE(hub.IsWanted(TovCam::EventControlChannel));
        while (i % 3 == 0 && counter.calls == 0)
            std::this_thread::yield();
        ASSERT_EQ(hub.Unregister(TovCam::EventControlChannel, Counter::Call, &counter), 0);
        counter.ended = true;
        EXPECT_EQ(counter.inside, 0);
        EXPECT_FALSE(hub.IsWanted(TovCam::EventControlChannel));
        EXPECT_EQ(counter.lateCalls, 0);
    }
    stop = true;
    for (std::thread &thread : emitters)
        thread.join();
}

TEST(EventHub, ACallbackMayEndItself)
{
    struct Self
    {
        EventHub hub;
        int calls = 0;
        static void Call(void const *, unsigned long, void *user)
        {
            auto *const self = static_cast<Self *>(user);
            ++self->calls;
            EXPECT_EQ(self->hub.Unregister(TovCam::EventConnectionLost, Call, self), 0);
        }
    } self;
    ASSERT_EQ(self.hub.Register(TovCam::EventConnectionLost, Self::Call, &self), 0);
    self.hub.Emit(TovCam::EventConnectionLost, nullptr, 0);
    self.hub.Emit(TovCam::EventConnectionLost, nullptr, 0);
    EXPECT_EQ(self.calls, 1);
}

namespace {

SimModel const s_model{"T", "T", "1",     "", "", TovCam::InterfaceKindGigEVision, 64, 64, false, 0x01080001,
                       2,   0,   1000000, 1,  1.0};

class SimStreamTest : public testing::Test
{
protected:
    void Begin(std::int64_t period = 200000)
    {
        SimSettings settings;
        settings.period = period;
        m_stream.Begin(m_format, settings, -1);
    }

    SimFormat m_format{TV_PIXEL_MONO8, 64, 32};
    EventHub m_hub;
    SimStream m_stream{s_model, m_hub, [this](SimFormat &format) {
                           return format = m_format, 0;
                       }};
};

} // namespace

TEST_F(SimStreamTest, StartsAndStopsRaceWithFrames)
{
    Counter packets;
    ASSERT_EQ(m_hub.Register(TovCam::EventStreamChannel, Counter::Call, &packets), 0);
    for (int i = 0; i < 60; ++i) {
        ASSERT_EQ(m_stream.AllocBufferQueue(nullptr, 4), 0);
        ASSERT_EQ(m_stream.StartAcquisition(-1, 0), 0);
        std::thread taker([this] {
            while (TovCam::Buffer *const buffer = m_stream.GetBuffer(TovCam::WaitForever, nullptr)) {
                EXPECT_EQ(buffer->GetImage()->width, 64u);
                EXPECT_EQ(m_stream.QueueBuffer(buffer), 0);
            }
        });
        Begin();
        std::this_thread::sleep_for(i % 4 * 1ms);
        SimSettings settings;
        settings.period = 100000;
        settings.look.gain = 1.0 + i % 2;
        m_stream.Apply(settings);
        if (i % 2)
            m_stream.End();
        m_stream.CancelGetBuffer();
        taker.join();
        ASSERT_EQ(m_stream.StopAcquisition(1), 0);
        ASSERT_EQ(m_stream.ReleaseBufferQueue(), 0);
        m_stream.End();
    }
}

TEST_F(SimStreamTest, LosingTheCameraEndsFramesAndTellsOnce)
{
    Counter lost;
    ASSERT_EQ(m_hub.Register(TovCam::EventConnectionLost, Counter::Call, &lost), 0);
    ASSERT_EQ(m_stream.AllocBufferQueue(nullptr, 4), 0);
    ASSERT_EQ(m_stream.StartAcquisition(-1, 0), 0);
    Begin();
    ASSERT_NE(m_stream.GetBuffer(5000, nullptr), nullptr);
    m_stream.Lose();
    m_stream.Lose();
    while (lost.calls == 0)
        std::this_thread::sleep_for(1ms);
    while (m_stream.GetBuffer(20, nullptr)) {
    }
    Begin(); // a lost camera does not start
    EXPECT_FALSE(m_stream.IsRunning());
    EXPECT_EQ(m_stream.GetBuffer(20, nullptr), nullptr);
    EXPECT_EQ(lost.calls, 1);
}

TEST_F(SimStreamTest, AFormatThatGrewComesIncomplete)
{
    ASSERT_EQ(m_stream.AllocBufferQueue(nullptr, 2), 0);
    ASSERT_EQ(m_stream.StartAcquisition(1, 0), 0);
    m_format.height = 64;
    Begin();
    TovCam::Buffer *const buffer = m_stream.GetBuffer(5000, nullptr);
    ASSERT_NE(buffer, nullptr);
    EXPECT_TRUE(buffer->IsIncomplete());
    EXPECT_EQ(buffer->GetImage()->height, 32u);
    EXPECT_EQ(m_stream.GetBuffer(20, nullptr), nullptr); // one frame was asked for
}
