// How the camera library comes by a capture: by its own right where it has one, and otherwise by the helper
// tovscope-capture, which holds the right alone.
#pragma once

#include "capturerequest.h"

#include "tovcamera.h"

#include <string>

struct CaptureTarget
{
    CaptureKind kind = CaptureTraffic;
    std::string adapter;
    std::uint32_t camera = 0, host = 0; // IPv4, as numbers
    std::uint16_t port = 0;             // see CaptureRequest
};

// A non-blocking packet socket, bound and filtered, which gives packets from the IP header on; the caller closes it. -1
// with TOV_CAM_ERR_GENICAM_ACCESS without the right to capture, and TOV_CAM_ERR_NO_DEVICE for anything else. `failure`
// says more where it is not null; without the right its place is the helper. Takes a few milliseconds, and a few
// seconds at most. Any thread.
int RequestCaptureSocket(CaptureTarget const &target, std::int32_t *status, TovCam::CaptureFailure *failure);
// By this helper in any case.
int RequestCaptureSocket(CaptureTarget const &target, std::string const &helper, std::int32_t *status,
                         TovCam::CaptureFailure *failure);

// The helper that belongs to this library, by where the library is.
std::string GetCaptureHelper();

// The host's IPv4 address on the way to the camera, as a number; 0 when there is no way. Sends nothing.
std::uint32_t GetHostAddressTowards(std::uint32_t camera);
