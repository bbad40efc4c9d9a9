// A scripted camera whose frames run into the FIFO.
#pragma once

#include "fakecamera.h"
#include "grabbingfifo.h"

#include <gtest/gtest.h>

class FifoFixture : public testing::Test
{
protected:
    ~FifoFixture() override
    {
        if (m_running)
            Finish();
        EXPECT_EQ(device.script.Violations(), "");
    }

    void Begin(SessionState state = SessionStateAcquisition)
    {
        if (m_running)
            Finish();
        ASSERT_EQ(fifo.CreateBuffers(), 0);
        ASSERT_TRUE(fifo.StartGrabbing());
        fifo.SetState(state);
        m_running = true;
    }
    void Finish()
    {
        m_running = false;
        EXPECT_TRUE(fifo.StopGrabbing());
        EXPECT_EQ(fifo.ReleaseBuffers(), 0);
        fifo.SetState(SessionStateIdle);
        EXPECT_EQ(device.stream.OutCount(), 0u);
    }

    FakeDevice device;
    GrabbingFifo fifo{nullptr, &device};

private:
    bool m_running = false;
};
