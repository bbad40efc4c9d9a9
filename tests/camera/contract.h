// What holds for every camera, whoever makes it. A backend's tests instantiate CameraContract with cameras of theirs.
#pragma once

#include "tovcamera.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

struct ContractCamera
{
    std::string name; // of the test: letters and digits
    std::function<TovCam::DeviceInfo *(TovCam::System *)> find;
    bool locksFormat = true; // "TLParamsLocked" holds the format
};

class CameraContract : public testing::TestWithParam<ContractCamera>
{
protected:
    CameraContract();
    ~CameraContract() override;
    TovCam::Device *Open();

    TovCam::System *m_system;
    TovCam::DeviceInfo *m_info;
};

// An open camera whose frames flow from construction to destruction.
class RunningCamera
{
public:
    explicit RunningCamera(TovCam::Device *device, std::uint32_t buffers = 8);
    ~RunningCamera();
    // Null after a generous time without a frame.
    TovCam::Buffer *Next();

    TovCam::ParamArray *nodes;
    TovCam::Stream *stream;
};

std::size_t ResidentKilobytes();
