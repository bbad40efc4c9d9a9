// FORCEIP: the address of a camera, wherever it is.
#pragma once

#include "tovdoctor.h"

// As TovCam_ForceAddress, for an address that was checked. `place` is the camera's, with its hardware address; one that
// an adapter of this host has heard is told by broadcast there.
std::int32_t ForceAddress(TovCam::NetworkPlace const &place, TovCam::CameraAddress const &address);
