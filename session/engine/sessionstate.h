// The states of a session.
#pragma once

#include <cstdint>

enum SessionState : std::int64_t {
    SessionStateDisconnected = 0,
    SessionStateIdle = 1,        // open, not acquiring
    SessionStateAcquisition = 2, // frames flow to the display
    SessionStateCapturing = 3,   // frames also flow to the writer
};
