// What a session is doing, what went wrong with it, and why it loses its camera.
#pragma once

#include <cstdint>

enum SessionState : std::int64_t {
    SessionStateDisconnected = 0,
    SessionStateIdle = 1,        // open, not acquiring
    SessionStateAcquisition = 2, // frames flow to the display
    SessionStateCapturing = 3,   // frames also flow to the writer
};

// Of Session::signalSessionStateError.
enum SessionError : unsigned char {
    SessionErrorStartAcquisition = 1,
    SessionErrorStopAcquisition = 2, // no action emits it; whoever listens handles it all the same
    SessionErrorStartCapturing = 3,
    SessionErrorStopCapturing = 4,
};

// Of Session::signalCameraDisconnected.
enum DisconnectReason : unsigned char {
    DisconnectReasonUser = 0,
    DisconnectReasonCameraLost = 1,
    DisconnectReasonInvalidState = 2, // of the device
};
