// USB3 Vision cameras that this program has no right to open, and that Aravis therefore does not list.
#pragma once

#include <string>
#include <vector>

struct ForbiddenUsbCamera
{
    std::string vendor, model, serial;
    std::string node;   // the device file
    std::string reason; // in the system's words
};

// Looks through /sys and /dev below `root`, which is "" but for tests. In the order of the ports.
std::vector<ForbiddenUsbCamera> FindForbiddenUsbCameras(std::string const &root = {});
