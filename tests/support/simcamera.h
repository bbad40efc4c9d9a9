// The simulated cameras, by name.
#pragma once

#include "tovcamera.h"

#include <string>

// The camera of this model or serial number, or null.
inline TovCam::DeviceInfo *FindSimulated(TovCam::System *system, std::string const &name)
{
    TovCam::ObjectList *const list = system->GetInterfaceList(255);
    for (TovCam::Interface *i = list->GetFirst(); i; i = list->GetNext()) {
        for (std::uint32_t k = 0; k < i->GetDeviceCount(); ++k) {
            TovCam::DeviceInfo *const info = i->GetDeviceInfoByIndex(k);
            if (info->GetModelName() == name || info->GetSerialNumber() == name)
                return info;
        }
    }
    return nullptr;
}
