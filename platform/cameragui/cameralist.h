// What the camera library sees, copied into values that the GUI thread can keep.
#pragma once

#include "tovcameragui.h"

#include <QString>

#include <vector>

namespace TovGui {

struct CameraEntry
{
    TovCam::DeviceInfo *info = nullptr; // lives as long as the system
    QString name, model, vendor, serial, userID, address;
    TovCam::DeviceInfo::AccessStatus access = TovCam::DeviceInfo::AccessUnknown;
    TovCam::OpenFailure failure;
    TovCam::NetworkPlace place;

    bool operator==(CameraEntry const &) const = default;
    bool IsBusy() const
    {
        return access == TovCam::DeviceInfo::AccessBusy;
    }
    bool CanBeOpened() const
    {
        return !IsBusy() && !place.isForeign;
    }
    // By whoever knows its hardware address.
    bool CanGetAddress() const
    {
        return !IsBusy() && place.mac != 0;
    }
    // Why it cannot be opened, as far as that is known; empty where nothing is.
    QString Trouble() const;
};

struct InterfaceEntry
{
    TovCam::Interface *interface = nullptr; // lives as long as the system
    QString description, version;
    std::uint32_t kind = 0;
    std::vector<CameraEntry> cameras;
};

using CameraList = std::vector<InterfaceEntry>;

// The cameras of the last enumeration. Takes an enumeration's time when there was none yet.
CameraList ReadCameraList(TovCam::System *system);

} // namespace TovGui
