#include "hostcheck.h"

#include "findings.h"

#include <algorithm>

std::vector<TovCam::HostFinding> CheckHost(HostState const &host, std::vector<CameraState> const &cameras)
{
    Findings findings(host, cameras);
    CheckAddresses(findings);
    CheckAdapters(findings);
    CheckStreams(findings);
    CheckUsb(findings);
    std::vector<TovCam::HostFinding> all = std::move(findings.all);
    std::stable_sort(all.begin(), all.end(), [](TovCam::HostFinding const &a, TovCam::HostFinding const &b) {
        return a.severity > b.severity;
    });
    return all;
}
