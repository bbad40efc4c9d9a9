// The address that a camera comes up with.
#pragma once

#include "tovdoctor.h"

// As TovCam_KeepAddress, for an address that was checked; `mac` tells the camera from others.
std::int32_t KeepAddress(std::uint64_t mac, TovCam::CameraAddress const &address);
