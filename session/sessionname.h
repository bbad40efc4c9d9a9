// What a camera's session is called.
#pragma once

#include <QString>

namespace TovCam {
class Device;
}

struct SessionName
{
    QString settings; // the group of its settings: cameras of one model and user id share them
    QString title;    // for the window; with the serial number
};

// Reads it from the camera; a camera without parameters gets a name for the settings alone. GUI thread.
SessionName ReadSessionName(TovCam::Device *device);
