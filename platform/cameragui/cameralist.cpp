#include "cameralist.h"

#include "tovplaintext.h"

#include <QCoreApplication>

namespace TovGui {

namespace {

struct Texts
{
    Q_DECLARE_TR_FUNCTIONS(CameraList)
};

QString Text(char const *text)
{
    return TovPlainLine(QString::fromUtf8(text));
}

CameraEntry ReadCamera(TovCam::DeviceInfo *info)
{
    CameraEntry entry;
    entry.info = info;
    entry.name = Text(info->GetDisplayName());
    entry.model = Text(info->GetModelName());
    entry.vendor = Text(info->GetVendorName());
    entry.serial = Text(info->GetSerialNumber());
    entry.userID = Text(info->GetUserID());
    entry.address = Text(info->GetAddress());
    entry.access = info->GetAccessStatus();
    entry.failure = info->GetOpenFailure();
    entry.place = info->GetNetworkPlace();
    if (entry.model.isEmpty())
        entry.model = entry.name;
    if (entry.name.isEmpty())
        entry.name = entry.model;
    return entry;
}

} // namespace

QString CameraEntry::Trouble() const
{
    using TovCam::OpenRefusal;
    if (IsBusy() && failure.refusal != OpenRefusal::InUse)
        return OpenFailureText(name, {OpenRefusal::InUse, false, {}, {}});
    if (place.isForeign && !IsBusy())
        return Texts::tr("%1 is in a wrong subnet and cannot be opened there: set its address").arg(name);
    // It has answered since.
    return failure.refusal == OpenRefusal::NoAnswer || (failure.refusal == OpenRefusal::InUse && !IsBusy())
               ? QString()
               : OpenFailureText(name, failure);
}

CameraList ReadCameraList(TovCam::System *system)
{
    CameraList list;
    TovCam::ObjectList *interfaces = system->GetInterfaceList(255);
    if (!interfaces)
        return list;
    for (TovCam::Interface *interface = interfaces->GetFirst(); interface; interface = interfaces->GetNext()) {
        InterfaceEntry entry;
        entry.interface = interface;
        entry.description = Text(interface->GetInterfaceDescription());
        entry.version = Text(interface->GetDriverVersion());
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
