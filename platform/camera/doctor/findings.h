// The findings on their way, and the checks, each of which adds its own.
#pragma once

#include "hoststate.h"

#include <string>
#include <vector>

struct Findings
{
    using Severity = TovCam::HostFinding::Severity;

    Findings(HostState const &h, std::vector<CameraState> const &c) : host(h), cameras(c)
    {
    }

    // Texts of a finding: a sentence each, and the line that mends it.
    struct Texts
    {
        std::string what, why;
        std::string command;     // for a shell,
        std::string advice = {}; // or else this
    };
    void Add(TovCam::HostCheck check, Severity severity, TovCam::DeviceInfo *camera, std::string adapter, Texts texts)
    {
        bool const isCommand = !texts.command.empty();
        all.push_back({check, severity, camera, std::move(adapter), std::move(texts.what), std::move(texts.why),
                       std::move(isCommand ? texts.command : texts.advice), isCommand});
    }
    // Of those that this adapter has heard and can reach.
    std::vector<CameraState const *> CamerasOf(AdapterState const &adapter) const
    {
        std::vector<CameraState const *> found;
        for (CameraState const &camera : cameras) {
            if (!camera.isUsb && !camera.place.isForeign && camera.place.adapter == adapter.name &&
                !host.IsOwn(camera.place.address))
                found.push_back(&camera);
        }
        return found;
    }

    HostState const &host;
    std::vector<CameraState> const &cameras;
    std::vector<TovCam::HostFinding> all;
};

void CheckAddresses(Findings &findings); // those of cameras and adapters, routes, the return-path filter
void CheckAdapters(Findings &findings);  // MTU, ring, speed
void CheckStreams(Findings &findings);   // the socket's room, the sum of all cameras
void CheckUsb(Findings &findings);

// "208 KB", "4.5 MB"
std::string SizeText(std::uint64_t bytes);
// "100 Mb/s", "2.5 Gb/s"
std::string SpeedText(double megabits);
