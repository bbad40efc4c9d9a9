// The order in which a camera and the engines over it are started and stopped. The camera may be gone at any step, and
// is waited for as WaitFor does.
//
// GUI thread only.
#pragma once

#include <array>
#include <cstdint>
#include <functional>

namespace TovCam {
class Device;
}
class DisplayView;
class GrabbingFifo;

class AcquisitionSequence
{
public:
    // All three outlive it.
    AcquisitionSequence(TovCam::Device *device, GrabbingFifo *grabber, DisplayView *display);

    // Throws at the first step that fails, or once it is given up; RecoverFromFailedStart is next then. Camera and
    // engines are stopped.
    void Start();
    // Undoes the whole start, no matter how far it came. Throws nothing.
    void RecoverFromFailedStart();
    // The statuses of the steps are ignored, but an exception skips the rest. Given up, it runs them all the same, and
    // leaves what a lost camera would.
    void Stop();
    // Stops what an exception has left running, or nobody has stopped. Each step is tried; throws nothing.
    void StopWhatStillRuns();

private:
    std::array<std::function<void()>, 5> StopSteps();
    template<typename Access>
    std::int32_t WaitForParams(Access const &access);
    std::int32_t ExecuteCommand(char const *name);
    std::int32_t SetIntegerValue(char const *name, std::int64_t value);

    TovCam::Device *const m_device;
    GrabbingFifo *const m_grabber;
    DisplayView *const m_display;
    bool m_started = false; // from the first step of a start until a stop has completed
};
