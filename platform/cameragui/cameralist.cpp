#include "cameralist.h"

namespace TovGui {

namespace {

CameraEntry ReadCamera(TovCam::DeviceInfo *info)
{
    CameraEntry entry;
    entry.info = info;
    entry.name = QString::fromUtf8(info->GetDisplayName());
    entry.model = QString::fromUtf8(info->GetModelName());
    entry.vendor = QString::fromUtf8(info->GetVendorName());
    entry.serial = QString::fromUtf8(info->GetSerialNumber());
    entry.userID = QString::fromUtf8(info->GetUserID());
    entry.address = QString::fromUtf8(info->GetAddress());
    entry.access = info->GetAccessStatus();
    if (entry.model.isEmpty())
        entry.model = entry.name;
    if (entry.name.isEmpty())
        entry.name = entry.model;
    return entry;
}

} // namespace

CameraList ReadCameraList(TovCam::System *system)
{
    CameraList list;
    TovCam::ObjectList *interfaces = system->GetInterfaceList(255);
    if (!interfaces)
        return list;
    for (TovCam::Interface *interface = interfaces->GetFirst(); interface; interface = interfaces->GetNext()) {
        InterfaceEntry entry;
        entry.interface = interface;
        entry.description = QString::fromUtf8(interface->GetInterfaceDescription());
        entry.version = QString::fromUtf8(interface->GetDriverVersion());
        entry.kind = interface->GetInterfaceKind();
        for (std::uint32_t i = 0, count = interface->GetDeviceCount(); i < count; ++i) {
            if (TovCam::DeviceInfo *info = interface->GetDeviceInfoByIndex(i))
                entry.cameras.push_back(ReadCamera(info));
        }
        list.push_back(std::move(entry));
    }
    return list;
}

} // namespace TovGui
