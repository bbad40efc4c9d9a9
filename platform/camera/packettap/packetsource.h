// Where the packets of a camera's channels are read from.
#pragma once

#include "packetframing.h"

#include "tovcamera.h"

#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>

struct UsbCamera;

// One thread reads.
class PacketSource
{
public:
    using Sink = std::function<bool(TapPacket const &)>; // false: no more of them

    virtual ~PacketSource() = default;
    // Hands on what has come, waiting at most `patience` for it. False when nothing will come any more.
    virtual bool Read(Sink const &sink, std::chrono::milliseconds patience) = 0;
    // Ends the current or the next wait. Any thread.
    virtual void Wake() = 0;
    // Packets that were not handed on since the source was opened, because the system had no room for them or captured
    // less of them than a line shows.
    virtual std::uint64_t GetMissed() = 0;
    // Whether stream packets are of use to anybody; they are most of the traffic. Before each Read.
    virtual void SetStreamWanted(bool wanted) = 0;
};

// Null with a status: TOV_CAM_ERR_GENICAM_ACCESS without the right to capture, TOV_CAM_ERR_NO_DEVICE where there is
// nothing to capture from. `failure`, here and below, says more where it is not null.
std::unique_ptr<PacketSource> OpenGigECapture(std::string const &adapter, std::string const &camera,
                                              std::int32_t *status, TovCam::CaptureFailure *failure = nullptr);
std::unique_ptr<PacketSource> OpenUsbCapture(UsbCamera const &camera, std::int32_t *status,
                                             TovCam::CaptureFailure *failure = nullptr);

// A capture in a file, pcap or pcapng, of either kind of camera: the first one that is heard in it. Null with
// TOV_CAM_ERR_FILE_NOT_FOUND, or TOV_CAM_ERR_FILE_READ for anything else.
std::unique_ptr<PacketSource> OpenCaptureFile(std::string const &path, std::int32_t *status,
                                              TovCam::CaptureFailure *failure = nullptr);
// Takes the file over.
std::unique_ptr<PacketSource> OpenCaptureFile(std::FILE *file, std::int32_t *status,
                                              TovCam::CaptureFailure *failure = nullptr);
