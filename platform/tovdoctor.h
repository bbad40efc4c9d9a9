// Whether this host, and the way from a camera to it, are fit for the camera's frames; what mends it; and the address
// of a GigE Vision camera.
//
// For before the first start of a camera, for whoever lists cameras, and for the program tovdoctor. Nothing here needs
// rights, and only TovCam_ForceAddress and TovCam_KeepAddress send anything.
#pragma once

#include "tovcamera.h"

namespace TovCam {

// What is known of a camera's frames; 0: not known.
struct StreamNeeds
{
    std::uint64_t frameSize = 0;  // bytes, as in "PayloadSize"
    double frameRate = 0.0;       // per second
    std::uint32_t packetSize = 0; // bytes with their headers, as in "GevSCPSPacketSize"
};

struct ExaminedCamera
{
    DeviceInfo *info = nullptr;
    StreamNeeds needs;
};

enum class HostCheck : std::uint8_t {
    Adapter,       // has an address
    Subnet,        // camera and adapter are in one, each by its own netmask, at addresses of their own
    Route,         // what is sent to the camera leaves by its adapter
    ReturnPath,    // the system's filter lets other subnets through
    PacketSize,    // against the adapter's MTU
    ReceiveBuffer, // against the frame
    Ring,          // the adapter's
    LinkSpeed,     // of the adapter
    LinkShare,     // what all cameras of an adapter send, against its speed
    UsbMemory,     // of the system, against the frames
    UsbSpeed,      // of the camera's port
};

struct HostFinding
{
    enum class Severity : std::uint8_t {
        Hint,    // costs something, or hides something
        Warning, // frames may be lost
        Fault    // no picture
    };
    HostCheck check = HostCheck::Adapter;
    Severity severity = Severity::Hint;
    DeviceInfo *camera = nullptr; // null: not of one camera
    std::string adapter;          // empty: not of one adapter
    // A sentence each, UTF-8. A camera's name in it is as the camera sends it.
    std::string what, why;
    std::string mending;    // one line
    bool isCommand = false; // `mending` is a line for a shell
};

struct HostAdapter
{
    std::string name;
    std::vector<std::string> addresses; // "192.0.2.1/24"
    bool isUp = false, hasLink = false;
    std::uint32_t mtu = 0;                   // bytes; 0 here and below: not known
    std::uint32_t speed = 0;                 // Mbit/s
    std::uint32_t ring = 0, largestRing = 0; // packets
};

struct HostReport
{
    bool isComplete = false;           // false: the adapters cannot be listed
    std::vector<HostAdapter> adapters; // by their names
    std::vector<HostFinding> findings; // those that matter most first
};

struct CameraAddress
{
    std::uint32_t address = 0, mask = 0, gateway = 0; // as in NetworkPlace; no gateway: 0
};

// What is known of an address that a camera is to get.
struct AddressUse
{
    DeviceInfo *holder = nullptr; // another camera has it
    bool isOfHost = false;        // this host has it, and does not serve the camera itself
    // The adapter that has heard the camera has an address in its subnet. Also where no adapter is known.
    bool isInReach = false;
};

} // namespace TovCam

// Looks at the host and at the way to each of `cameras`; simulated ones have none. Those of one adapter share it, so
// all that are to run together belong into one call. Takes a few milliseconds. Any thread.
TOV_CAMERA_API TovCam::HostReport TovCam_ExamineHost(std::vector<TovCam::ExaminedCamera> const &cameras);

// "192.0.2.7/24" or "192.0.2.7/255.255.255.0", and the gateway's, which may be empty. False, and `read` is left alone,
// where that is no address that a camera can have.
TOV_CAMERA_API bool TovCam_ReadAddress(std::string const &address, std::string const &gateway,
                                       TovCam::CameraAddress *read);
TOV_CAMERA_API std::string TovCam_AddressText(TovCam::CameraAddress const &address); // "192.0.2.7/24"

// An address by which the adapter that has heard the camera could reach it, and which neither this host nor one of
// `others` has; whether somebody else in the network has it is not known. All zeros where there is none. Any thread.
TOV_CAMERA_API TovCam::CameraAddress TovCam_ProposeAddress(TovCam::DeviceInfo *info,
                                                           std::vector<TovCam::DeviceInfo *> const &others);

// Whether the camera would be alone at that address, and in reach. Any thread.
TOV_CAMERA_API TovCam::AddressUse TovCam_LookUpAddress(TovCam::DeviceInfo *info,
                                                       std::vector<TovCam::DeviceInfo *> const &others,
                                                       TovCam::CameraAddress const &address);

// Gives a GigE Vision camera another address until it is switched off, wherever it is now; it must not be open. What it
// sends, and whoever uses the old address, is lost. The camera appears at its new address with the next search.
// TOV_CAM_ERR_INVALID_ARGUMENT for an address that no camera can have, TOV_CAM_ERR_NO_DEVICE where it does not answer,
// TOV_CAM_ERR_GENICAM_ACCESS where it is in use, TOV_CAM_ERR_UNKNOWN where it refuses. Takes a second at most. Any
// thread.
TOV_CAMERA_API std::int32_t TovCam_ForceAddress(TovCam::DeviceInfo *info, TovCam::CameraAddress const &address);

// Has a GigE Vision camera come up with that address from now on. It must have it already, by TovCam_ForceAddress, and
// not be open; `info` may still be of the place before. Its other ways to an address stay as they are, for when this
// one is switched off. TOV_CAM_ERR_INVALID_ARGUMENT as above, TOV_CAM_ERR_NO_DEVICE where that camera does not answer
// at that address or stops doing so, TOV_CAM_ERR_GENICAM_ACCESS where it is in use, TOV_CAM_ERR_GENICAM_UNKNOWN_PARAM
// where it can keep none, TOV_CAM_ERR_UNKNOWN where it refuses or keeps something else. May take ten seconds. Any
// thread.
TOV_CAMERA_API std::int32_t TovCam_KeepAddress(TovCam::DeviceInfo *info, TovCam::CameraAddress const &address);
