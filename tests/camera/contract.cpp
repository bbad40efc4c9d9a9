#include "contract.h"

#include <chrono>
#include <fstream>
#include <future>
#include <thread>
#include <unistd.h>

using namespace std::chrono_literals;

GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(CameraContract);

namespace {

constexpr std::uint32_t Generous = 10000; // ms
constexpr std::uint64_t MaxHeightLines = 64;

// AddressSanitizer keeps memory that was freed.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool MemoryIsFreed = false;
#else
constexpr bool MemoryIsFreed = true;
#endif

} // namespace

std::size_t ResidentKilobytes()
{
    std::ifstream file("/proc/self/statm");
    std::size_t total = 0, resident = 0;
    file >> total >> resident;
    return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE)) / 1024;
}

CameraContract::CameraContract() : m_system(TovCam_GetSystem()), m_info(GetParam().find(m_system))
{
}

CameraContract::~CameraContract()
{
    m_system->Release();
}

TovCam::Device *CameraContract::Open()
{
    EXPECT_NE(m_info, nullptr);
    std::int32_t error = 1;
    TovCam::Device *const device = TovCam_CreateDevice(m_info, 2, &error);
    EXPECT_EQ(error, 0);
    EXPECT_NE(device, nullptr);
    return device;
}

RunningCamera::RunningCamera(TovCam::Device *device, std::uint32_t buffers)
    : nodes(device->GetCameraParameters(nullptr)),
      stream(device->GetStreamByIndex(0))
{
    EXPECT_EQ(stream->AllocBufferQueue(nullptr, buffers), 0);
    EXPECT_EQ(stream->StartAcquisition(-1, 0), 0);
    EXPECT_EQ(nodes->ExecuteCommand("AcquisitionStart"), 0);
}

RunningCamera::~RunningCamera()
{
    EXPECT_EQ(nodes->ExecuteCommand("AcquisitionStop"), 0);
    EXPECT_EQ(stream->StopAcquisition(1), 0);
    EXPECT_EQ(stream->ReleaseBufferQueue(), 0);
}

TovCam::Buffer *RunningCamera::Next()
{
    std::int32_t error = 1;
    TovCam::Buffer *const buffer = stream->GetBuffer(Generous, &error);
    EXPECT_EQ(error, 0);
    EXPECT_NE(buffer, nullptr);
    return buffer;
}

TEST_P(CameraContract, OpensForOneHostAtATime)
{
    TovCam::Device *const device = Open();
    std::int32_t error = 0;
    EXPECT_EQ(TovCam_CreateDevice(m_info, 2, &error), nullptr);
    EXPECT_LT(error, 0);
    EXPECT_EQ(device->GetDeviceInfo(), m_info);
    EXPECT_EQ(device->GetStreamByIndex(1), nullptr);
    device->Release();
    Open()->Release();
    EXPECT_EQ(TovCam_CreateDevice(m_info, 1, &error), nullptr);
    EXPECT_EQ(error, TOV_CAM_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(TovCam_CreateDevice(nullptr, 2, nullptr), nullptr);
}

TEST_P(CameraContract, NodesAnswerAndRefuse)
{
    TovCam::Device *const device = Open();
    std::int32_t error = 1;
    TovCam::ParamArray *const nodes = device->GetCameraParameters(&error);
    ASSERT_NE(nodes, nullptr);
    EXPECT_EQ(error, 0);

    EXPECT_EQ(nodes->GetInt("NoSuchNode", &error), nullptr);
    EXPECT_EQ(error, TOV_CAM_ERR_GENICAM_UNKNOWN_PARAM);
    EXPECT_EQ(nodes->SetIntegerValue("NoSuchNode", 1), TOV_CAM_ERR_GENICAM_UNKNOWN_PARAM);
    EXPECT_EQ(nodes->ExecuteCommand("NoSuchNode"), TOV_CAM_ERR_GENICAM_UNKNOWN_PARAM);
    EXPECT_EQ(nodes->GetEnumValueStr("NoSuchNode", nullptr), nullptr);
    EXPECT_EQ(nodes->GetInt("PixelFormat", &error), nullptr);
    EXPECT_EQ(error, TOV_CAM_ERR_GENICAM_PARAM_TYPE);
    EXPECT_EQ(nodes->ExecuteCommand("Width"), TOV_CAM_ERR_GENICAM_PARAM_TYPE);
    EXPECT_EQ(nodes->SetEnumValueStr("PixelFormat", "NoSuchFormat"), TOV_CAM_ERR_GENICAM_INVALID_ARGUMENT);

    TovCam::IntParam *const width = nodes->GetInt("Width", &error);
    ASSERT_NE(width, nullptr);
    EXPECT_EQ(error, 0);
    EXPECT_EQ(width, nodes->GetInt("Width", nullptr));
    EXPECT_STREQ(width->GetName(), "Width");
    EXPECT_LT(width->GetMin(&error), width->GetMax(nullptr));
    EXPECT_EQ(error, 0);
    EXPECT_EQ(width->GetValue(nullptr), nodes->GetIntegerValue("Width", nullptr));
    EXPECT_EQ(nodes->SetIntegerValue("Width", width->GetMax(nullptr) + 1), TOV_CAM_ERR_GENICAM_OUT_OF_RANGE);
    EXPECT_EQ(nodes->SetIntegerValue("Width", width->GetMin(nullptr) - 1), TOV_CAM_ERR_GENICAM_OUT_OF_RANGE);

    TovCam::StringParam *const model = nodes->GetString("DeviceModelName", nullptr);
    ASSERT_NE(model, nullptr);
    EXPECT_STREQ(model->GetValue(&error), m_info->GetModelName());
    TovCam::EnumParam *const format = nodes->GetEnum("PixelFormat", nullptr);
    ASSERT_NE(format, nullptr);
    EXPECT_STREQ(format->GetValueStr(nullptr), nodes->GetEnumValueStr("PixelFormat", nullptr));
    EXPECT_EQ(nodes->SetEnumValueStr("PixelFormat", format->GetValueStr(nullptr)), 0);
    device->Release();
}

TEST_P(CameraContract, FramesComeWholeAndInOrder)
{
    TovCam::Device *const device = Open();
    {
        RunningCamera camera(device);
        auto const width = static_cast<std::uint32_t>(camera.nodes->GetIntegerValue("Width", nullptr));
        auto const payload = static_cast<std::uint64_t>(camera.nodes->GetIntegerValue("PayloadSize", nullptr));
        std::uint64_t id = 0, timestamp = 0;
        for (int i = 0; i < 10; ++i) {
            TovCam::Buffer *const buffer = camera.Next();
            ASSERT_NE(buffer, nullptr);
            EXPECT_FALSE(buffer->IsIncomplete());
            EXPECT_EQ(buffer->GetBufferSize(), payload);
            _TovImage const *const image = buffer->GetImage();
            EXPECT_EQ(image->width, width);
            EXPECT_EQ(image->imageSize, payload);
            EXPECT_EQ(image->lineStep * image->height, payload);
            EXPECT_EQ(image->frameID, buffer->GetFrameID());
            EXPECT_EQ(image->timestamp, buffer->GetTimestamp());
            EXPECT_EQ(reinterpret_cast<std::uintptr_t>(image->imageData) % 64, 0u);
            if (i > 0) {
                EXPECT_EQ(buffer->GetFrameID(), id + 1);
                EXPECT_GT(buffer->GetTimestamp(), timestamp);
            }
            id = buffer->GetFrameID();
            timestamp = buffer->GetTimestamp();
            EXPECT_EQ(camera.stream->QueueBuffer(buffer), 0);
        }
    }
    device->Release();
}

TEST_P(CameraContract, CancelIsRememberedUntilAStart)
{
    TovCam::Device *const device = Open();
    TovCam::ParamArray *const nodes = device->GetCameraParameters(nullptr);
    TovCam::Stream *const stream = device->GetStreamByIndex(0);
    ASSERT_EQ(stream->AllocBufferQueue(nullptr, 4), 0);
    ASSERT_EQ(stream->StartAcquisition(-1, 0), 0);

    std::int32_t error = 1;
    EXPECT_EQ(stream->GetBuffer(1, &error), nullptr); // no frame yet: a timeout
    EXPECT_EQ(error, 0);
    stream->CancelGetBuffer();
    error = 1;
    EXPECT_EQ(stream->GetBuffer(TovCam::WaitForever, &error), nullptr);
    EXPECT_EQ(error, 0);

    auto waiting = std::async(std::launch::async, [stream] { return stream->GetBuffer(TovCam::WaitForever, nullptr); });
    EXPECT_EQ(waiting.wait_for(50ms), std::future_status::timeout);
    stream->CancelGetBuffer();
    ASSERT_EQ(waiting.wait_for(std::chrono::milliseconds(Generous)), std::future_status::ready);
    EXPECT_EQ(waiting.get(), nullptr);

    EXPECT_EQ(stream->StopAcquisition(1), 0);
    stream->CancelGetBuffer();
    ASSERT_EQ(stream->StartAcquisition(-1, 0), 0);
    EXPECT_EQ(nodes->ExecuteCommand("AcquisitionStart"), 0);
    TovCam::Buffer *const buffer = stream->GetBuffer(Generous, nullptr);
    EXPECT_NE(buffer, nullptr);
    EXPECT_EQ(stream->QueueBuffer(buffer), 0);
    EXPECT_EQ(nodes->ExecuteCommand("AcquisitionStop"), 0);
    EXPECT_EQ(stream->StopAcquisition(1), 0);
    EXPECT_EQ(stream->StopAcquisition(1), 0); // harmless
    EXPECT_EQ(stream->ReleaseBufferQueue(), 0);
    device->Release();
}

TEST_P(CameraContract, BuffersHaveOneOwner)
{
    TovCam::Device *const device = Open();
    TovCam::Stream *const stream = device->GetStreamByIndex(0);
    EXPECT_NE(stream->StartAcquisition(-1, 0), 0); // no buffers
    EXPECT_NE(stream->AllocBufferQueue(nullptr, 0), 0);
    ASSERT_EQ(stream->AllocBufferQueue(nullptr, 3), 0);
    EXPECT_NE(stream->AllocBufferQueue(nullptr, 3), 0);
    ASSERT_EQ(stream->StartAcquisition(-1, 0), 0);
    TovCam::ParamArray *const nodes = device->GetCameraParameters(nullptr);
    ASSERT_EQ(nodes->ExecuteCommand("AcquisitionStart"), 0);
    TovCam::Buffer *const first = stream->GetBuffer(Generous, nullptr);
    TovCam::Buffer *const second = stream->GetBuffer(Generous, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(first, second);
    EXPECT_EQ(nodes->ExecuteCommand("AcquisitionStop"), 0);
    EXPECT_EQ(stream->StopAcquisition(1), 0);
    EXPECT_NE(stream->ReleaseBufferQueue(), 0); // two are out
    EXPECT_EQ(stream->QueueBuffer(first), 0);
    EXPECT_NE(stream->QueueBuffer(first), 0);
    EXPECT_NE(stream->QueueBuffer(nullptr), 0);
    EXPECT_EQ(stream->QueueBuffer(second), 0);
    EXPECT_EQ(stream->ReleaseBufferQueue(), 0);
    device->Release();
}

TEST_P(CameraContract, FramesWithoutABufferAreLost)
{
    TovCam::Device *const device = Open();
    {
        RunningCamera camera(device, 2);
        // A camera that was itself held up meanwhile has lost nothing: it gets more than one chance.
        bool lost = false;
        for (int round = 0; round < 10 && !lost; ++round) {
            TovCam::Buffer *const first = camera.Next();
            TovCam::Buffer *const second = camera.Next();
            ASSERT_TRUE(first && second);
            std::uint64_t const id = second->GetFrameID();
            std::this_thread::sleep_for(400ms);
            camera.stream->QueueBuffer(first);
            camera.stream->QueueBuffer(second);
            TovCam::Buffer *const late = camera.Next();
            ASSERT_NE(late, nullptr);
            lost = late->GetFrameID() > id + 1;
            camera.stream->QueueBuffer(late);
        }
        EXPECT_TRUE(lost);
    }
    device->Release();
}

TEST_P(CameraContract, FormatDecidesAboutTheFrames)
{
    TovCam::Device *const device = Open();
    TovCam::ParamArray *const nodes = device->GetCameraParameters(nullptr);
    std::int64_t const height = nodes->GetIntegerValue("Height", nullptr);
    ASSERT_EQ(nodes->SetIntegerValue("Height", MaxHeightLines), 0);
    {
        RunningCamera camera(device);
        TovCam::Buffer *const buffer = camera.Next();
        ASSERT_NE(buffer, nullptr);
        EXPECT_EQ(buffer->GetImage()->height, MaxHeightLines);
        EXPECT_EQ(buffer->GetBufferSize(), std::uint64_t(nodes->GetIntegerValue("PayloadSize", nullptr)));
        camera.stream->QueueBuffer(buffer);
    }
    EXPECT_EQ(nodes->SetIntegerValue("Height", height), 0);
    device->Release();
}

TEST_P(CameraContract, FormatIsLockedWhileFramesFlow)
{
    TovCam::Device *const device = Open();
    TovCam::ParamArray *const nodes = device->GetCameraParameters(nullptr);
    if (!GetParam().locksFormat ||
        nodes->SetIntegerValue("TLParamsLocked", 1) == TOV_CAM_ERR_GENICAM_UNKNOWN_PARAM) {
        device->Release();
        GTEST_SKIP() << "the camera has no lock";
    }
    EXPECT_EQ(nodes->SetIntegerValue("Width", 64), TOV_CAM_ERR_GENICAM_ACCESS);
    EXPECT_EQ(nodes->SetEnumValueStr("PixelFormat", nodes->GetEnumValueStr("PixelFormat", nullptr)),
              TOV_CAM_ERR_GENICAM_ACCESS);
    EXPECT_EQ(nodes->SetIntegerValue("TLParamsLocked", 0), 0);
    EXPECT_EQ(nodes->SetIntegerValue("Width", nodes->GetIntegerValue("Width", nullptr)), 0);
    device->Release();
}

TEST_P(CameraContract, EventsAreSubscribedOnce)
{
    TovCam::Device *const device = Open();
    auto const callback = [](void const *, unsigned long, void *) {
    };
    int user = 0;
    EXPECT_EQ(device->RegisterEvent(TovCam::EventConnectionLost, callback, &user), 0);
    EXPECT_NE(device->RegisterEvent(TovCam::EventConnectionLost, callback, &user), 0);
    EXPECT_NE(device->RegisterEvent(7, callback, &user), 0);
    EXPECT_NE(device->UnregisterEvent(TovCam::EventConnectionLost, callback, nullptr), 0);
    EXPECT_EQ(device->UnregisterEvent(TovCam::EventConnectionLost, callback, &user), 0);
    EXPECT_NE(device->UnregisterEvent(TovCam::EventConnectionLost, callback, &user), 0);
    EXPECT_EQ(device->RegisterEvent(TovCam::EventConnectionLost, callback, &user), 0); // Release ends it
    device->Release();
}

TEST_P(CameraContract, ReleaseEndsWhatRuns)
{
    TovCam::Device *const device = Open();
    TovCam::Stream *const stream = device->GetStreamByIndex(0);
    ASSERT_EQ(stream->AllocBufferQueue(nullptr, 4), 0);
    ASSERT_EQ(stream->StartAcquisition(-1, 0), 0);
    ASSERT_EQ(device->GetCameraParameters(nullptr)->ExecuteCommand("AcquisitionStart"), 0);
    EXPECT_NE(stream->GetBuffer(Generous, nullptr), nullptr); // and is never given back
    device->Release();
    Open()->Release();
}

TEST_P(CameraContract, StartsAndOpensLeaveMemoryFlat)
{
    TovCam::Device *device = Open();
    std::size_t before = 0;
    for (int i = 0; i < 60; ++i) {
        if (i == 20)
            before = ResidentKilobytes();
        RunningCamera camera(device, 4);
        camera.stream->QueueBuffer(camera.Next());
    }
    device->Release();
    if (MemoryIsFreed) {
        EXPECT_LT(ResidentKilobytes(), before + 4096);
    }
    for (int i = 0; i < 200; ++i) {
        if (i == 50)
            before = ResidentKilobytes();
        device = Open();
        ASSERT_NE(device, nullptr);
        EXPECT_GT(device->GetCameraParameters(nullptr)->GetIntegerValue("Width", nullptr), 0);
        device->Release();
    }
    if (MemoryIsFreed) {
        EXPECT_LT(ResidentKilobytes(), before + 4096);
    }
}
