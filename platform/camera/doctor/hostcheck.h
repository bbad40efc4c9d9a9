// What is wrong with a host, by what is known of it and its cameras. Looks at nothing itself.
#pragma once

#include "hoststate.h"

#include <vector>

// What matters most comes first.
std::vector<TovCam::HostFinding> CheckHost(HostState const &host, std::vector<CameraState> const &cameras);

// For TovCam_ProposeAddress(): of a camera that `adapter` has heard.
TovCam::CameraAddress ProposeAddress(CameraState const &camera, HostState const &host,
                                     std::vector<std::uint32_t> const &others);
