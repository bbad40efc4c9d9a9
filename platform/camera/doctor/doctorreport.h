// What tovdoctor shows.
#pragma once

#include "tovdoctor.h"

#include <string>
#include <vector>

// What is to be mended, hints apart.
std::size_t CountToMend(TovCam::HostReport const &report);

// Adapters and cameras, each with its findings; for a terminal, whatever the cameras call themselves. UTF-8.
std::string ReportText(TovCam::HostReport const &report, std::vector<TovCam::DeviceInfo *> const &cameras);
// One object; tovdoctor(1) describes it. UTF-8.
std::string ReportJson(TovCam::HostReport const &report, std::vector<TovCam::DeviceInfo *> const &cameras,
                       int exitStatus);
