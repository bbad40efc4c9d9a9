// Real cameras, tested with a GigE Vision camera that we did not write. Runs in a network namespace of its own.
#include "contract.h"
#include "fakegige.h"

#include <cstdlib>
#include <future>
#include <memory>
#include <thread>

using namespace std::chrono_literals;

namespace {

// Before any system is made.
bool const s_gigeOnly = setenv("TOV_CAMERA_INTERFACES", "gige", 1) == 0;

class AravisTest : public CameraTest
{
protected:
    void StartCamera(std::vector<std::string> const &options = {})
    {
        m_camera.reset(); // it has the port
        m_camera = std::make_unique<FakeGigECamera>(options);
        Open(FindAt(m_system));
    }

    std::unique_ptr<FakeGigECamera> m_camera;
};

TEST_F(AravisTest, ListsTheCameraAndWhoHasItUntilItIsLost)
{
    m_camera = std::make_unique<FakeGigECamera>();
    TovCam::Interface *interface = nullptr;
    auto const listed = [&](std::uint32_t count) {
        return Eventually([&] {
            m_system->UpdateDeviceList();
            interface = m_system->GetInterfaceList(2)->GetFirst();
            return interface && interface->GetDeviceCount() == count;
        });
    };
    ASSERT_TRUE(listed(1));
    EXPECT_EQ(interface->GetInterfaceKind(), TovCam::InterfaceKindGigEVision);
    TovCam::DeviceInfo *const info = interface->GetFirstDeviceInfo();
    EXPECT_STREQ(info->GetSerialNumber(), FakeGigECamera::Serial);
    EXPECT_STREQ(info->GetAddress(), "127.0.0.1");
    EXPECT_EQ(FindAt(m_system), info);
    std::string const host = info->GetHostInformation();
    for (char const *line :
         {"\nAdapter:        lo\n", "\nMTU:            65536 bytes\n", "\nHost address:   127.0.0.1\n"})
        EXPECT_NE(host.find(line), std::string::npos) << line << host;
    auto const becomes = [&](std::uint32_t access) {
        return Eventually([&] { return m_system->UpdateDeviceList() == 0 && info->GetAccessStatus() == access; });
    };
    EXPECT_TRUE(becomes(TovCam::DeviceInfo::AccessFree));
    ASSERT_NO_FATAL_FAILURE(Open(info));
    EXPECT_TRUE(becomes(TovCam::DeviceInfo::AccessBusy));
    std::int32_t error = 0;
    EXPECT_EQ(TovCam_CreateDevice(info, 2, &error), nullptr);
    EXPECT_EQ(error, TOV_CAM_ERR_GENICAM_ACCESS);
    Close();
    EXPECT_TRUE(becomes(TovCam::DeviceInfo::AccessFree));
    Open(info);
    LossCounter late;
    ExpectLoss([this] { m_camera.reset(); });
    // A subscription after the loss hears of it too.
    ASSERT_EQ(m_device->RegisterEvent(TovCam::EventConnectionLost, LossCounter::Count, &late), 0);
    EXPECT_TRUE(Eventually([&late] { return late.told == 1; }));
    Close();
    ASSERT_TRUE(listed(0));
    EXPECT_EQ(TovCam_CreateDevice(info, 2, &error), nullptr);
    EXPECT_EQ(error, TOV_CAM_ERR_NO_DEVICE);
}

TEST_F(AravisTest, LetsGoOfACameraThatDiedUnnoticed)
{
    for (bool const releaseQueue : {true, false}) {
        StartCamera();
        ASSERT_EQ(m_stream->AllocBufferQueue(nullptr, 4), 0);
        ASSERT_EQ(m_stream->StartAcquisition(-1, 0), 0);
        m_camera->Kill();
        if (releaseQueue) {
            EXPECT_EQ(m_stream->StopAcquisition(1), 0);
            EXPECT_EQ(m_stream->ReleaseBufferQueue(), 0);
            // The goodbye is under way, and nothing waits for it.
            EXPECT_EQ(m_nodes->SetIntegerValue("TLParamsLocked", 0), TOV_CAM_ERR_NO_DEVICE);
        }
        Close();

        StartCamera(); // back, while the old connection is still being buried
        RunningCamera(m_device).ForFrames(releaseQueue ? 100 : 1, [](auto &) { std::this_thread::sleep_for(50ms); });
        Close();
    }
}

// The node map outlives the device for whoever holds it, and a camera that has died is asked once, by one thread.
TEST_F(AravisTest, ReleaseDoesNotWaitForASlowAccess)
{
    StartCamera();
    std::uint32_t const width = FindFeature(m_nodes, "Width");
    m_camera->Kill();
    TovCam::ParamArray *const nodes = m_nodes;
    auto slow = std::async(std::launch::async, [nodes, width, hold = nodes->Hold()] {
        TovCam::FeatureState state;
        std::int32_t const status = nodes->ReadFeature(width, &state);
        return status != 0 ? status : state.valueStatus;
    });
    EXPECT_EQ(slow.wait_for(300ms), std::future_status::timeout);
    std::shared_ptr<void> const hold = nodes->Hold();
    Close();
    TovCam::FeatureState state;
    EXPECT_EQ(nodes->ReadFeature(width, &state), TOV_CAM_ERR_NO_DEVICE);
    EXPECT_EQ(slow.wait_for(0ms), std::future_status::timeout); // the access takes three seconds
    EXPECT_NE(slow.get(), 0);
    StartCamera(); // back, while the old connection is still being buried
    EXPECT_GT(m_nodes->GetIntegerValue("Width", nullptr), 0);
}

} // namespace
