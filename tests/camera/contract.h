// What holds for every camera of any backend. A backend's tests instantiate CameraContract with their cameras.
#pragma once

#include "settings.h"
#include "wait.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <ostream>
#include <thread>

constexpr std::uint32_t Generous = PatienceMs; // for what a machine with other work may do late

// A camera that has much else to do may not answer at once.
inline TovCam::DeviceInfo *FindAt(TovCam::System *system, char const *address = "127.0.0.1")
{
    TovCam::DeviceInfo *info = nullptr;
    EXPECT_TRUE(Eventually([&] { return (info = system->FindDeviceByAddress(address, nullptr)) != nullptr; }));
    return info;
}

// Counts what is told about a lost camera.
struct LossCounter
{
    static void Count(void const *data, unsigned long size, void *user)
    {
        EXPECT_EQ(data, nullptr);
        EXPECT_EQ(size, 0u);
        static_cast<LossCounter *>(user)->thread = std::this_thread::get_id();
        ++static_cast<LossCounter *>(user)->told;
    }
    std::atomic<int> told{0};
    std::atomic<std::thread::id> thread;
};

class CameraTest : public testing::Test
{
protected:
    ~CameraTest() override
    {
        Close();
        m_system->Release();
    }
    // A fatal failure when it cannot be done; a camera that answers late is asked again.
    void Open(TovCam::DeviceInfo *info)
    {
        ASSERT_NE(info, nullptr);
        for (int attempt = 0; attempt < 10 && !m_nodes; ++attempt) {
            Close();
            if ((m_device = TovCam_CreateDevice(info, 2, nullptr)))
                m_nodes = m_device->GetCameraParameters(nullptr);
        }
        ASSERT_NE(m_nodes, nullptr);
        m_stream = m_device->GetStreamByIndex(0);
        ASSERT_NE(m_stream, nullptr);
    }
    void Close()
    {
        if (m_device)
            m_device->Release();
        m_device = nullptr;
        m_nodes = nullptr;
        m_stream = nullptr;
    }
    // The open camera is lost while frames flow: it is told, and everything still answers.
    void ExpectLoss(std::function<void()> const &lose)
    {
        LossCounter loss;
        ASSERT_EQ(m_device->RegisterEvent(TovCam::EventConnectionLost, LossCounter::Count, &loss), 0);
        ASSERT_EQ(m_stream->AllocBufferQueue(nullptr, 4), 0);
        ASSERT_EQ(m_stream->StartAcquisition(-1, 0), 0);
        ASSERT_EQ(m_nodes->ExecuteCommand("AcquisitionStart"), 0);
        TovCam::Buffer *buffer = m_stream->GetBuffer(Generous, nullptr);
        ASSERT_NE(buffer, nullptr);
        lose();
        m_stream->QueueBuffer(buffer);
        while ((buffer = m_stream->GetBuffer(500, nullptr))) // what was on its way
            m_stream->QueueBuffer(buffer);
        // The first access may wait for an answer; the next ones know better.
        EXPECT_NE(m_nodes->SetIntegerValue("Width", 128), 0);
        EXPECT_EQ(m_nodes->ExecuteCommand("AcquisitionStop"), TOV_CAM_ERR_NO_DEVICE);
        ASSERT_TRUE(Eventually([&loss] { return loss.told == 1; }));
        EXPECT_NE(loss.thread.load(), std::this_thread::get_id());
        std::uint32_t value;
        EXPECT_NE(m_device->ReadRegister(0x20006004, &value, 4), 0);
        EXPECT_EQ(m_stream->GetBuffer(50, nullptr), nullptr);
        EXPECT_EQ(m_stream->StopAcquisition(1), 0);
        EXPECT_EQ(m_stream->ReleaseBufferQueue(), 0);
        EXPECT_NE(m_stream->AllocBufferQueue(nullptr, 4), 0);
        EXPECT_EQ(m_device->UnregisterEvent(TovCam::EventConnectionLost, LossCounter::Count, &loss), 0);
        EXPECT_EQ(loss.told, 1);
    }

    TovCam::System *m_system = TovCam_GetSystem();
    TovCam::Device *m_device = nullptr;
    TovCam::ParamArray *m_nodes = nullptr;
    TovCam::Stream *m_stream = nullptr;
};

struct ContractCamera
{
    std::string name; // of the test: letters and digits
    std::function<TovCam::DeviceInfo *(TovCam::System *)> find;
    bool locksFormat = true; // "TLParamsLocked" holds the format
};

inline void PrintTo(ContractCamera const &camera, std::ostream *out)
{
    *out << camera.name;
}

class CameraContract : public CameraTest, public testing::WithParamInterface<ContractCamera>
{
protected:
    void SetUp() override
    {
        m_info = GetParam().find(m_system);
        Open(m_info);
    }

    TovCam::DeviceInfo *m_info = nullptr;
};

// An open camera whose frames flow from construction to destruction.
class RunningCamera
{
public:
    explicit RunningCamera(TovCam::Device *device, std::uint32_t buffers = 8)
        : nodes(device->GetCameraParameters(nullptr)),
          stream(device->GetStreamByIndex(0))
    {
        EXPECT_EQ(stream->AllocBufferQueue(nullptr, buffers), 0);
        EXPECT_EQ(stream->StartAcquisition(-1, 0), 0);
        EXPECT_EQ(nodes->ExecuteCommand("AcquisitionStart"), 0);
    }
    ~RunningCamera()
    {
        EXPECT_EQ(nodes->ExecuteCommand("AcquisitionStop"), 0);
        EXPECT_EQ(stream->StopAcquisition(1), 0);
        EXPECT_EQ(stream->ReleaseBufferQueue(), 0);
    }
    // Null, and a failure, after a generous time without a frame.
    TovCam::Buffer *Next()
    {
        std::int32_t error = 1;
        TovCam::Buffer *const buffer = stream->GetBuffer(Generous, &error);
        EXPECT_EQ(error, 0);
        EXPECT_NE(buffer, nullptr);
        return buffer;
    }
    // Shows the next frames and gives them back; fewer when they do not come.
    void ForFrames(int count, std::function<void(TovCam::Buffer &)> const &look)
    {
        for (int i = 0; i < count; ++i) {
            TovCam::Buffer *const buffer = Next();
            if (!buffer)
                return;
            look(*buffer);
            EXPECT_EQ(stream->QueueBuffer(buffer), 0);
        }
    }

    TovCam::ParamArray *nodes;
    TovCam::Stream *stream;
};
