// The search for GigE Vision cameras in the networks of this host.
#pragma once

#include "cameraroll.h"

// Asks by broadcast in the network of every adapter that is up, and the addresses in `known` by themselves, since they
// may be out of the reach of a broadcast. Takes about a second, whatever is answered, and a quarter more where somebody
// does not tell who controls him. In no particular order; each camera once. Any thread.
std::vector<CameraRoll::Camera> FindCameras(std::vector<std::uint32_t> const &known);
