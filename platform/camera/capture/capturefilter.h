// The filter in the system that decides which packets a capture sees. Classic BPF, so that it can be locked and read
// back; made from numbers alone.
#pragma once

#include "capturerequest.h"

#include <linux/filter.h>
#include <vector>

// So much of a packet is captured, counted from the IP header.
constexpr std::uint32_t CaptureControlSnap = 2048;
constexpr std::uint32_t CaptureStreamSnap = 168; // where the log only shows the beginning
constexpr std::uint32_t CaptureWhole = 0x10000;

// For a packet socket without link headers. The request has been checked.
std::vector<sock_filter> MakeCaptureFilter(CaptureRequest const &request);
