#include "contract.h"

#include <future>
#include <set>
#include <unistd.h>

using namespace std::chrono_literals;

TEST_P(CameraContract, NodesAnswerAndRefuse)
{
    std::int32_t error = 0;
    EXPECT_EQ(m_nodes->GetInt("NoSuchNode", &error), nullptr);
    EXPECT_EQ(error, TOV_CAM_ERR_GENICAM_UNKNOWN_PARAM);
    EXPECT_EQ(m_nodes->SetIntegerValue("NoSuchNode", 1), TOV_CAM_ERR_GENICAM_UNKNOWN_PARAM);
    EXPECT_EQ(m_nodes->GetInt("PixelFormat", &error), nullptr);
    EXPECT_EQ(error, TOV_CAM_ERR_GENICAM_PARAM_TYPE);
    EXPECT_EQ(m_nodes->ExecuteCommand("Width"), TOV_CAM_ERR_GENICAM_PARAM_TYPE);
    EXPECT_EQ(m_nodes->SetEnumValueStr("PixelFormat", "NoSuchFormat"), TOV_CAM_ERR_GENICAM_INVALID_ARGUMENT);

    TovCam::IntParam *const width = m_nodes->GetInt("Width", &error);
    ASSERT_NE(width, nullptr);
    EXPECT_EQ(error, 0);
    EXPECT_EQ(m_nodes->SetIntegerValue("Width", width->GetMax(nullptr) + 1), TOV_CAM_ERR_GENICAM_OUT_OF_RANGE);
    EXPECT_EQ(m_nodes->SetIntegerValue("Width", width->GetMin(nullptr) - 1), TOV_CAM_ERR_GENICAM_OUT_OF_RANGE);
}

TEST_P(CameraContract, FramesComeWholeAndInOrder)
{
    RunningCamera camera(m_device);
    auto const width = static_cast<std::uint32_t>(m_nodes->GetIntegerValue("Width", nullptr));
    auto const payload = static_cast<std::uint64_t>(m_nodes->GetIntegerValue("PayloadSize", nullptr));
    std::uint64_t id = 0, timestamp = 0;
    int inOrder = 0;
    // A machine with other work may lose a frame, on the camera's side too, but not time after time.
    for (int i = 0; i < 200 && inOrder < 10; ++i) {
        camera.ForFrames(1, [&](TovCam::Buffer &buffer) {
            _TovImage const *const image = buffer.GetImage();
            EXPECT_EQ(buffer.GetBufferSize(), payload);
            EXPECT_EQ(image->width, width);
            EXPECT_EQ(image->imageSize, payload);
            EXPECT_EQ(image->lineStep * image->height, payload);
            EXPECT_EQ(image->frameID, buffer.GetFrameID());
            EXPECT_EQ(image->timestamp, buffer.GetTimestamp());
            EXPECT_EQ(reinterpret_cast<std::uintptr_t>(image->imageData) % 64, 0u);
            inOrder = !buffer.IsIncomplete() && image->frameID == id + 1 ? inOrder + 1 : 0;
            if (buffer.IsIncomplete())
                return;
            EXPECT_TRUE(i == 0 || (image->frameID > id && image->timestamp > timestamp));
            id = image->frameID;
            timestamp = image->timestamp;
        });
    }
    EXPECT_EQ(inOrder, 10);
}

TEST_P(CameraContract, CancelIsRememberedUntilAStart)
{
    ASSERT_EQ(m_stream->AllocBufferQueue(nullptr, 4), 0);
    ASSERT_EQ(m_stream->StartAcquisition(-1, 0), 0);
    std::int32_t error = 1;
    EXPECT_EQ(m_stream->GetBuffer(1, &error), nullptr); // no frame yet: a timeout
    EXPECT_EQ(error, 0);
    m_stream->CancelGetBuffer();
    EXPECT_EQ(m_stream->GetBuffer(TovCam::WaitForever, nullptr), nullptr);

    auto waiting = std::async(std::launch::async, [this] { return m_stream->GetBuffer(TovCam::WaitForever, nullptr); });
    EXPECT_EQ(waiting.wait_for(50ms), std::future_status::timeout);
    m_stream->CancelGetBuffer();
    EXPECT_EQ(waiting.get(), nullptr);

    EXPECT_EQ(m_stream->StopAcquisition(1), 0);
    m_stream->CancelGetBuffer();
    ASSERT_EQ(m_stream->StartAcquisition(-1, 0), 0);
    EXPECT_EQ(m_nodes->ExecuteCommand("AcquisitionStart"), 0);
    EXPECT_NE(m_stream->GetBuffer(Generous, nullptr), nullptr);
    // Closing ends what runs, and takes back what was not given back.
    Close();
    Open(m_info);
}

TEST_P(CameraContract, BuffersHaveOneOwner)
{
    EXPECT_NE(m_stream->StartAcquisition(-1, 0), 0); // no buffers
    EXPECT_NE(m_stream->AllocBufferQueue(nullptr, 0), 0);
    ASSERT_EQ(m_stream->AllocBufferQueue(nullptr, 3), 0);
    EXPECT_NE(m_stream->AllocBufferQueue(nullptr, 3), 0);
    ASSERT_EQ(m_stream->StartAcquisition(2, 0), 0);
    ASSERT_EQ(m_nodes->ExecuteCommand("AcquisitionStart"), 0);
    TovCam::Buffer *const first = m_stream->GetBuffer(Generous, nullptr);
    TovCam::Buffer *const second = m_stream->GetBuffer(Generous, nullptr);
    ASSERT_TRUE(first && second);
    EXPECT_NE(first, second);
    EXPECT_EQ(m_stream->GetBuffer(300, nullptr), nullptr); // two were asked for
    EXPECT_EQ(m_nodes->ExecuteCommand("AcquisitionStop"), 0);
    EXPECT_EQ(m_stream->StopAcquisition(1), 0);
    EXPECT_EQ(m_stream->StopAcquisition(1), 0);                           // harmless
    EXPECT_EQ(m_stream->ReleaseBufferQueue(), TOV_CAM_ERR_INVALID_STATE); // two are out
    EXPECT_EQ(m_stream->QueueBuffer(first), 0);
    EXPECT_NE(m_stream->QueueBuffer(first), 0);
    EXPECT_NE(m_stream->QueueBuffer(nullptr), 0);
    EXPECT_EQ(m_stream->QueueBuffer(second), 0);
    EXPECT_EQ(m_stream->ReleaseBufferQueue(), 0);
}

TEST_P(CameraContract, FormatDecidesAboutTheFramesAndIsLocked)
{
    std::int64_t const height = m_nodes->GetIntegerValue("Height", nullptr);
    ASSERT_EQ(m_nodes->SetIntegerValue("Height", 64), 0);
    RunningCamera(m_device).ForFrames(1, [this](TovCam::Buffer &buffer) {
        EXPECT_EQ(buffer.GetImage()->height, 64u);
        EXPECT_EQ(buffer.GetBufferSize(), std::uint64_t(m_nodes->GetIntegerValue("PayloadSize", nullptr)));
    });
    EXPECT_EQ(m_nodes->SetIntegerValue("Height", height), 0);
    if (!GetParam().locksFormat || m_nodes->SetIntegerValue("TLParamsLocked", 1) == TOV_CAM_ERR_GENICAM_UNKNOWN_PARAM)
        return;
    EXPECT_EQ(m_nodes->SetIntegerValue("Width", 64), TOV_CAM_ERR_GENICAM_ACCESS);
    EXPECT_EQ(m_nodes->SetEnumValueStr("PixelFormat", m_nodes->GetEnumValueStr("PixelFormat", nullptr)),
              TOV_CAM_ERR_GENICAM_ACCESS);
    EXPECT_EQ(m_nodes->SetIntegerValue("TLParamsLocked", 0), 0);
    EXPECT_EQ(m_nodes->SetIntegerValue("Width", m_nodes->GetIntegerValue("Width", nullptr)), 0);
}

TEST_P(CameraContract, TreeTellsWhatTheNodesTell)
{
    using namespace TovCam;
    std::uint32_t const count = m_nodes->GetFeatureCount();
    ASSERT_GT(count, 10u);
    EXPECT_EQ(m_nodes->GetFeature(count), nullptr);
    EXPECT_EQ(m_nodes->GetFeature(0)->name, "Root");
    std::set<std::string> names;
    std::vector<bool> reached(count);
    for (std::uint32_t i = 0; i < count; ++i) {
        FeatureInfo const &info = *m_nodes->GetFeature(i);
        SCOPED_TRACE(info.name);
        EXPECT_TRUE(names.insert(info.name).second);
        EXPECT_FALSE(info.displayName.empty());
        for (std::vector<std::uint32_t> const *list : {&info.children, &info.selected, &info.dependents}) {
            for (std::uint32_t const other : *list)
                ASSERT_LT(other, count);
        }
        for (std::uint32_t const child : info.children)
            reached[child] = true;
        EXPECT_TRUE(i == 0 || reached[i]);

        FeatureState state;
        ASSERT_EQ(m_nodes->ReadFeature(i, &state), 0);
        bool const readable = state.access >= FeatureAccess::ReadOnly;
        bool const writable = state.access == FeatureAccess::ReadWrite || state.access == FeatureAccess::WriteOnly;
        EXPECT_EQ(state.valueStatus, 0);
        // What is read can be written as it stands; a command is left alone.
        EXPECT_TRUE(info.kind == FeatureKind::Command || (m_nodes->WriteFeature(i, state.value) == 0) == writable);
        if (info.kind == FeatureKind::Integer && readable) {
            EXPECT_LE(state.minimum, state.value.integer);
            EXPECT_LE(state.value.integer, state.maximum);
            EXPECT_GE(state.increment, 1);
        } else if (info.kind == FeatureKind::Float && readable) {
            EXPECT_LE(state.realMinimum, state.value.real);
            EXPECT_LE(state.value.real, state.realMaximum);
        } else if (info.kind == FeatureKind::Enumeration && readable) {
            EXPECT_EQ(state.value.text, m_nodes->GetEnumValueStr(info.name.c_str(), nullptr));
            EXPECT_FALSE(state.available.empty());
        }
    }
    FeatureState state;
    EXPECT_EQ(m_nodes->ReadFeature(count, &state), TOV_CAM_ERR_INVALID_INDEX);
    EXPECT_EQ(m_nodes->WriteFeature(count, {}), TOV_CAM_ERR_INVALID_INDEX);
    std::uint32_t const width = FindFeature(m_nodes, "Width");
    ASSERT_EQ(m_nodes->ReadFeature(width, &state), 0);
    FeatureValue value;
    value.integer = state.maximum + 1;
    EXPECT_EQ(m_nodes->WriteFeature(width, value), TOV_CAM_ERR_GENICAM_OUT_OF_RANGE);
    // An enumeration is written by name or by number.
    std::uint32_t const format = FindFeature(m_nodes, "PixelFormat");
    FeatureEntry const &entry = m_nodes->GetFeature(format)->entries.back();
    value.integer = entry.value;
    EXPECT_EQ(m_nodes->WriteFeature(format, value), 0);
    EXPECT_EQ(m_nodes->GetEnumValueStr("PixelFormat", nullptr), entry.name);
    value.text = "NoSuchFormat";
    EXPECT_EQ(m_nodes->WriteFeature(format, value), TOV_CAM_ERR_GENICAM_INVALID_ARGUMENT);
}

TEST_P(CameraContract, HeldNodesFailAfterTheRelease)
{
    std::shared_ptr<void> const hold = m_nodes->Hold();
    TovCam::ParamArray *const nodes = m_nodes;
    TovCam::IntParam *const width = nodes->GetInt("Width", nullptr);
    TovCam::FeatureInfo const *const root = nodes->GetFeature(0);
    Close();
    std::int32_t error = 0;
    TovCam::FeatureState state;
    EXPECT_EQ(width->GetValue(&error), 0);
    EXPECT_EQ(error, TOV_CAM_ERR_NO_DEVICE);
    EXPECT_EQ(nodes->SetIntegerValue("Width", 64), TOV_CAM_ERR_NO_DEVICE);
    EXPECT_EQ(nodes->ReadFeature(1, &state), TOV_CAM_ERR_NO_DEVICE);
    EXPECT_EQ(nodes->WriteFeature(1, {}), TOV_CAM_ERR_NO_DEVICE);
    EXPECT_EQ(nodes->GetFeature(0), root);
    Open(m_info); // the camera itself is free
}

TEST_P(CameraContract, SavedSettingsComeBack)
{
    std::string const path = testing::TempDir() + "/contract_" + std::to_string(getpid()) + ".tcfg";
    // There and back again: what was changed is a configuration as good as the first.
    for (int round = 0; round < 2; ++round) {
        std::map<std::string, std::string> const saved = Settings(m_nodes);
        ASSERT_EQ(m_device->SaveConfiguration(path.c_str()), 0);
        EXPECT_EQ(Settings(m_nodes), saved); // saving moves nothing
        ChangeSettings(m_nodes);
        ASSERT_GT(Settings(m_nodes).size(), 10u);
        ASSERT_NE(Settings(m_nodes), saved);
        EXPECT_EQ(m_device->LoadConfiguration(path.c_str()), 0);
        EXPECT_EQ(Settings(m_nodes), saved);
        ChangeSettings(m_nodes); // the second round begins there
    }
    Close();
    std::int32_t error = 1;
    m_device = m_system->OpenDeviceFromConfiguration(path.c_str(), &error);
    EXPECT_EQ(error, 0);
    ASSERT_NE(m_device, nullptr);
    // A camera of another name is another one in the list.
    EXPECT_STREQ(m_device->GetDeviceInfo()->GetSerialNumber(), m_info->GetSerialNumber());
    std::remove(path.c_str());
}
