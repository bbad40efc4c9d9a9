// A packet ring as the source of a stream's datagrams.
#pragma once

#include "receiver.h"

#include <cstdint>
#include <memory>

// What the camera sends to this port of the host, both as numbers, on the host's adapter between them. Null without the
// right to capture and where the system refuses, so that the socket stays the source.
std::unique_ptr<DatagramSource> OpenRingSource(std::uint32_t camera, std::uint32_t host, std::uint16_t port);

// What is opened from now on is null, or it depends again. For tests, which would not meet the socket otherwise.
void PermitRingSource(bool isPermitted);
