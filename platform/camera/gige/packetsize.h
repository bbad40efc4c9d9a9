// How large the packets of a stream may be.
#pragma once

#include "streamcontrol.h"

// Finds the largest packets that the way from the camera carries, and sets them: by test packets that must not be
// fragmented, up to the adapter's `mtu` (0: not known). Over loopback, where a size costs nothing, it is a fixed one. A
// camera that sends no test packets, or refuses, keeps what it has.
//
// A status, of the first register alone: TOV_CAM_ERR_OK for a camera that keeps its size. Waits for the camera, a
// second or so where sizes have to be searched. No stream is open meanwhile.
std::int32_t NegotiatePacketSize(StreamControl &control, std::uint32_t mtu);
