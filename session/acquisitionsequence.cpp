#include "acquisitionsequence.h"

#include "displayview.h"
#include "grabbingfifo.h"
#include "waitingaction.h"

#include "tovcamera.h"

#include <stdexcept>

namespace {

// A camera without the node starts all the same.
bool IsFailure(std::int32_t status)
{
    return status != 0 && status != TOV_CAM_ERR_GENICAM_UNKNOWN_PARAM;
}

// A start that is given up goes no further; a stop does.
void ThrowIfGivenUp()
{
    if (WaitingAction::IsCurrentGivenUp())
        throw WaitingGivenUp();
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

// Once given up, the camera library refuses.
template<typename Access>
std::int32_t AcquisitionSequence::WaitForParams(Access const &access)
{
    auto const call = [&] {
        TovCam::ParamArray *const params = m_device->GetCameraParameters(nullptr);
        return params ? access(params) : static_cast<std::int32_t>(TOV_CAM_ERR_NO_DEVICE);
    };
    return WaitFor(call, IfGivenUp::CallAllTheSame);
}

std::int32_t AcquisitionSequence::ExecuteCommand(char const *name)
{
    return WaitForParams([name](TovCam::ParamArray *params) { return params->ExecuteCommand(name); });
}

std::int32_t AcquisitionSequence::SetIntegerValue(char const *name, std::int64_t value)
{
    return WaitForParams([name, value](TovCam::ParamArray *params) { return params->SetIntegerValue(name, value); });
}

void AcquisitionSequence::Start()
{
    m_started = true;
    if (m_grabber->CreateBuffers() != 0)
        throw std::runtime_error("CreateBuffers failed");
    ThrowIfGivenUp();
    if (IsFailure(SetIntegerValue("TLParamsLocked", 1)))
        throw std::runtime_error("TLParamsLocked set failed");
    ThrowIfGivenUp();
    if (!m_grabber->StartGrabbing())
        throw std::runtime_error("StartGrabbing failed");
    ThrowIfGivenUp();
    if (IsFailure(ExecuteCommand("AcquisitionStart")))
        throw std::runtime_error("AcquisitionStart execution failed");
    ThrowIfGivenUp();
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
