// A packet socket that sees what a checked request asks for and nothing else.
#pragma once

#include "capturerequest.h"

// Whether this computer has what the request names. Needs no right.
CaptureAnswer CheckCapture(CaptureRequest const &request);

// The socket, non-blocking, or -1 with the reason in `answer`. The request has been checked. Needs the right to capture
// (CAP_NET_RAW) in the calling thread.
int OpenCapture(CaptureRequest const &request, CaptureAnswer &answer);
