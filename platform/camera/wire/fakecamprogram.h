// The program tovfakecam: serves simulated cameras on the network until it is told to end.
#pragma once

#include "wirecamera.h"

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

// How the program was called, for those to whom the text goes after "tovfakecam: ".
class FakeCamUsageError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

struct FakeCamOptions
{
    enum Action { Serve, Help, Version, List };

    struct Camera
    {
        WireCameraOptions options; // an address "" is chosen by the interface
        std::vector<std::pair<std::string, std::string>> settings;
    };

    Action action = Serve;
    std::vector<Camera> cameras;
    std::string interface, script; // "": none
    bool quiet = false, status = false;
};

// Throws FakeCamUsageError. Cameras without a serial number get one that no simulated camera inside another program
// has, and those without an address the next one from 127.0.0.1 on, unless an interface is named.
FakeCamOptions ParseFakeCamOptions(int argc, char *const *argv);

// The program's exit status: 0 ended as asked, 1 failed, 2 wrong usage, or what a script says.
int RunFakeCam(int argc, char *const *argv);
