// What holds for every camera, whoever makes it. A backend's tests instantiate CameraContract with cameras of theirs.
#pragma once

#include "settings.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <ostream>
#include <string>
#include <thread>

constexpr std::uint32_t Generous = 30000; // ms, for what a machine with other work may do late

// Waits generously for it.
bool Eventually(std::function<bool()> const &condition);

// The index of a feature in the tree; a failure, and 0, where there is none.
std::uint32_t FindFeature(TovCam::ParamArray *nodes, std::string const &name);

// Counts what is told about a lost camera.
struct LossCounter
{
    static void Count(void const *data, unsigned long size, void *user);
    std::atomic<int> told{0};
    std::atomic<std::thread::id> thread;
};

class CameraTest : public testing::Test
{
protected:
    CameraTest();
    ~CameraTest() override;
    // A fatal failure when it cannot be done; a camera that answers late is asked again.
    void Open(TovCam::DeviceInfo *info);
    void Close();
    // The open camera is lost while frames flow: it is told, and everything still answers.
    void ExpectLoss(std::function<void()> const &lose);

    TovCam::System *m_system;
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
    void SetUp() override;

    TovCam::DeviceInfo *m_info = nullptr;
};

// An open camera whose frames flow from construction to destruction.
class RunningCamera
{
public:
    explicit RunningCamera(TovCam::Device *device, std::uint32_t buffers = 8);
    ~RunningCamera();
    // Null, and a failure, after a generous time without a frame.
    TovCam::Buffer *Next();
    // Shows the next frames and gives them back; fewer when they do not come.
    void ForFrames(int count, std::function<void(TovCam::Buffer &)> const &look);

    TovCam::ParamArray *nodes;
    TovCam::Stream *stream;
};
