// The plain text that the information dialogs show and save.
#pragma once

#include <QString>

namespace TovCam {
class Device;
}

// Reads the camera, which may be running. Has a line for each node that the camera has; empty without a device. GUI
// thread.
QString CameraReport(TovCam::Device *device);
