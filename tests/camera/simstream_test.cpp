// The parts of the simulator that meet threads, without a node map: this is what ThreadSanitizer looks at.
#include "sim/simstream.h"

#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace {

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
    std::atomic<int> packets{0};
    ASSERT_EQ(m_hub.Register(
                  TovCam::EventStreamChannel, [](auto, auto, void *user) { ++*static_cast<std::atomic<int> *>(user); },
                  &packets),
              0);
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
