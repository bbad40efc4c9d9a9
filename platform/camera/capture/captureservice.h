// The helper, all of it but its command line.
#pragma once

// Serves the one request that comes over CaptureSocketFd and answers it with a socket. Gives up every right but the one
// to capture on entry, and that one once the socket is open. Returns a CaptureExit, after a few seconds at most.
int ServeCapture();
