// The program tovdoctor: says what of this computer is unfit for its cameras, and sets their addresses.
#pragma once

#include "tovdoctor.h"

#include <stdexcept>
#include <string>

// How the program was called, for those to whom the text goes after "tovdoctor: ".
class DoctorUsageError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

struct DoctorOptions
{
    enum Action { Examine, SetAddress, Help, Version };

    Action action = Examine;
    bool json = false;
    TovCam::StreamNeeds needs; // of every camera
    std::string camera;        // the serial number or address of the one that is to have
    TovCam::CameraAddress address;
};

// Throws DoctorUsageError.
DoctorOptions ParseDoctorOptions(int argc, char *const *argv);

// The program's exit status: 0 nothing to mend, or done; 1 something to mend, or not done; 2 could not look, or wrong
// usage.
int RunDoctor(int argc, char *const *argv);
