// The search for GigE Vision cameras in the networks of this host.
#pragma once

#include "cameraroll.h"

#include <chrono>

// A quarter of a search: after it, who has not answered is asked again. Tests that search often change it.
extern std::chrono::milliseconds s_searchRound;

// Asks by broadcast in the network of every adapter that is up, and the addresses in `known` by themselves, since they
// may be out of the reach of a broadcast. Takes about a second, whatever is answered, and a quarter more where somebody
// does not tell who controls him. In no particular order; each camera once. Any thread.
//
// Cameras in another subnet than the adapter that hears them are found where they answer by broadcast, and where the
// system's return-path filter lets that through. They are asked for nothing else: it would leave by another way.
std::vector<CameraRoll::Camera> FindCameras(std::vector<std::uint32_t> const &known);
