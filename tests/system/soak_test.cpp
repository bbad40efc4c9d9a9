// The whole program through many starts and many connections, with simulated cameras: it ends where it began.
#include "displayview.h"
#include "guimanager.h"
#include "heap.h"
#include "session.h"
#include "simcamera.h"
#include "tovscope.h"
#include "wait.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <limits>

namespace {

constexpr double MegabytesOfNoise = 0.5; // a window

class Soak : public testing::Test
{
protected:
    Soak() : m_window(nullptr, false, false), m_manager(m_window.GetGuiManager()), m_system(TovCam_GetSystem())
    {
        m_window.show();
    }
    ~Soak() override
    {
        m_manager.cameraDisconnect();
        m_system->Release();
    }

    void Connect(int camera)
    {
        char const *const models[] = {"VG-2048M", "VU-1920C", "VG-1280C"};
        ASSERT_TRUE(m_manager.CreateSession(TovCam_CreateDevice(FindSimulated(m_system, models[camera]), 2, nullptr)));
        m_manager.CreatePanels();
        ASSERT_TRUE(Eventually([this] { return m_manager.GetSession()->GetState() == SessionStateIdle; }));
        TovCam::ParamArray *const nodes = m_manager.GetSession()->GetDevice()->GetCameraParameters(nullptr);
        nodes->SetIntegerValue("Width", 256);
        nodes->SetIntegerValue("Height", 128);
    }

    void PlayAndStop()
    {
        m_manager.startAcquisition();
        ASSERT_EQ(m_manager.GetSession()->GetState(), SessionStateAcquisition);
        _TovImage *image = nullptr;
        ASSERT_TRUE(Eventually([&] { return m_manager.GetSession()->GetDisplayView()->GetDisplayedImageRaw(&image); }));
        m_manager.stopAcquisitionAndCapture();
        ASSERT_EQ(m_manager.GetSession()->GetState(), SessionStateIdle);
    }

    // Runs the step so many times, the first fifth as warm-up. What leaks does so in every window of the rest; pools
    // and threads that settle late make a step in one.
    void Repeat(int times, std::function<void(int)> const &step)
    {
        constexpr int Windows = 5;
        double least = std::numeric_limits<double>::max();
        double before = 0;
        for (int i = 0; i < times; ++i) {
            ASSERT_NO_FATAL_FAILURE(step(i)) << "round " << i;
            if ((i + 1) % (times / Windows) == 0) {
                double const now = HeapMegabytes();
                if (i + 1 > times / Windows)
                    least = std::min(least, now - before);
                before = now;
            }
        }
        EXPECT_LT(least, MegabytesOfNoise);
    }

    TovScope m_window;
    GuiManager &m_manager;
    TovCam::System *m_system;
};

TEST_F(Soak, AThousandStartsLeaveMemoryFlat)
{
    ASSERT_NO_FATAL_FAILURE(Connect(0));
    Repeat(1000, [this](int) { PlayAndStop(); });
}

TEST_F(Soak, TwoHundredConnectionsLeaveMemoryFlat)
{
    Repeat(200, [this](int round) {
        ASSERT_NO_FATAL_FAILURE(Connect(round % 3));
        if (round % 2)
            PlayAndStop();
        else
            m_manager.startAcquisition(); // the next connection closes a running camera
    });
}

} // namespace
