// The parts of the simulator that meet threads, without a node map: this is what ThreadSanitizer looks at.
#include "sim/simstream.h"

#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace {

struct Counter
{
    std::atomic<int> calls{0}, inside{0};

    static void Call(void const *, unsigned long, void *user)
    {
        auto *const self = static_cast<Counter *>(user);
        ++self->inside;
        std::this_thread::yield();
        ++self->calls;
        --self->inside;
    }
};

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
        int const calls = counter.calls;
        EXPECT_EQ(counter.inside, 0);
        EXPECT_FALSE(hub.IsWanted(TovCam::EventControlChannel));
        EXPECT_EQ(counter.calls, calls);
    }
    stop = true;
    for (std::thread &thread : emitters)
        thread.join();
}

SimModel const s_model{"T", "T", "1",     "", "", TovCam::InterfaceKindGigEVision, 64, 64, false, 0x01080001,
                       2,   0,   1000000, 1,  1.0};

class SimStreamTest : public testing::Test
{
protected:
    void Start(std::int64_t frames)
    {
        ASSERT_EQ(m_stream.AllocBufferQueue(nullptr, 4), 0);
        ASSERT_EQ(m_stream.StartAcquisition(frames, 0), 0);
    }
    SimSettings Settings(double gain = 1.0)
    {
        SimSettings settings;
        settings.period = 100000;
        settings.look.gain = gain;
        return settings;
    }

    SimFormat m_format{TV_PIXEL_MONO8, 64, 32};
    EventHub m_hub;
    SimStream m_stream{s_model, m_hub, [this](SimFormat &format) {
                           return format = m_format, 0;
                       }};
};

TEST_F(SimStreamTest, StartsAndStopsRaceWithFrames)
{
    Counter packets;
    ASSERT_EQ(m_hub.Register(TovCam::EventStreamChannel, Counter::Call, &packets), 0);
    for (int i = 0; i < 60; ++i) {
        ASSERT_NO_FATAL_FAILURE(Start(-1));
        std::thread taker([this] {
            while (TovCam::Buffer *const buffer = m_stream.GetBuffer(TovCam::WaitForever, nullptr))
                EXPECT_EQ(m_stream.QueueBuffer(buffer), 0);
        });
        m_stream.Begin(m_format, Settings(), -1);
        std::this_thread::sleep_for(i % 4 * 1ms);
        m_stream.Apply(Settings(1.0 + i % 2));
        if (i % 2)
            m_stream.End();
        m_stream.CancelGetBuffer();
        taker.join();
        ASSERT_EQ(m_stream.StopAcquisition(1), 0);
        ASSERT_EQ(m_stream.ReleaseBufferQueue(), 0);
        m_stream.End();
    }
}

TEST_F(SimStreamTest, AFormatThatGrewComesIncomplete)
{
    Start(1);
    m_format.height = 64;
    m_stream.Begin(m_format, Settings(), -1);
    TovCam::Buffer *const buffer = m_stream.GetBuffer(30000, nullptr);
    ASSERT_NE(buffer, nullptr);
    EXPECT_TRUE(buffer->IsIncomplete());
    EXPECT_EQ(buffer->GetImage()->height, 32u);
}

} // namespace
