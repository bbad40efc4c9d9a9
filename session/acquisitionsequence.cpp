#include "acquisitionsequence.h"

#include "displayview.h"
#include "grabbingfifo.h"

#include "tovcamera.h"

#include <stdexcept>

namespace {

// A camera without the node starts all the same.
bool IsFailure(std::int32_t status)
{
    return status != 0 && status != TOV_CAM_ERR_GENICAM_UNKNOWN_PARAM;
}

// Runs a step whose failure must not keep the next one from running. False when it threw.
bool RunGuarded(std::function<void()> const &step)
{
    try {
        step();
        return true;
    } catch (...) {
        return false;
    }
}

} // namespace

AcquisitionSequence::AcquisitionSequence(TovCam::Device *device, GrabbingFifo *grabber, DisplayView *display)
    : m_device(device),
      m_grabber(grabber),
      m_display(display)
{
}

std::int32_t AcquisitionSequence::ExecuteCommand(char const *name)
{
    TovCam::ParamArray *const params = m_device->GetCameraParameters(nullptr);
    return params ? params->ExecuteCommand(name) : TOV_CAM_ERR_NO_DEVICE;
}

std::int32_t AcquisitionSequence::SetIntegerValue(char const *name, std::int64_t value)
{
    TovCam::ParamArray *const params = m_device->GetCameraParameters(nullptr);
    return params ? params->SetIntegerValue(name, value) : TOV_CAM_ERR_NO_DEVICE;
}

void AcquisitionSequence::Start()
{
    m_started = true;
    if (m_grabber->CreateBuffers() != 0)
        throw std::runtime_error("CreateBuffers failed");
    if (IsFailure(SetIntegerValue("TLParamsLocked", 1)))
        throw std::runtime_error("TLParamsLocked set failed");
    if (!m_grabber->StartGrabbing())
        throw std::runtime_error("StartGrabbing failed");
    if (IsFailure(ExecuteCommand("AcquisitionStart")))
        throw std::runtime_error("AcquisitionStart execution failed");
    if (!m_display->StartDisplaying())
        throw std::runtime_error("StartDisplaying failed");
}

void AcquisitionSequence::RecoverFromFailedStart()
{
    bool stopped = RunGuarded([this] { ExecuteCommand("AcquisitionAbort"); });
    stopped &= RunGuarded([this] { m_grabber->StopGrabbing(); });
    stopped &= RunGuarded([this] { SetIntegerValue("TLParamsLocked", 0); });
    stopped &= RunGuarded([this] { m_grabber->ReleaseBuffers(); });
    m_started = !stopped;
}

std::array<std::function<void()>, 5> AcquisitionSequence::StopSteps()
{
    return {
        [this] {
            if (ExecuteCommand("AcquisitionStop") != 0)
                ExecuteCommand("AcquisitionAbort");
        },
        [this] { m_display->StopDisplaying(); },
        [this] { m_grabber->StopGrabbing(); },
        [this] { SetIntegerValue("TLParamsLocked", 0); },
        [this] { m_grabber->ReleaseBuffers(); },
    };
}

void AcquisitionSequence::Stop()
{
    for (auto const &step : StopSteps())
        step();
    m_started = false;
}

void AcquisitionSequence::StopWhatStillRuns()
{
    if (!m_started)
        return;
    for (auto const &step : StopSteps())
        RunGuarded(step);
    m_started = false;
}
