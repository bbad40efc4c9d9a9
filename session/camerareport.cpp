#include "camerareport.h"

#include "tovcamera.h"
#include "tovplaintext.h"

namespace {

QString Hex(TovCam::IntParam *node)
{
    return QString::number(static_cast<quint64>(node->GetValue(nullptr)), 16);
}

QString Text(TovCam::StringParam *node)
{
    return TovPlainLine(QString::fromUtf8(node->GetValue(nullptr)));
}

// The node of the first name, or of the second where the camera lacks it.
TovCam::IntParam *FindInt(TovCam::ParamArray *params, char const *name, char const *otherwise = nullptr)
{
    TovCam::IntParam *const node = params->GetInt(name, nullptr);
    return node || !otherwise ? node : params->GetInt(otherwise, nullptr);
}

TovCam::StringParam *FindString(TovCam::ParamArray *params, char const *name, char const *otherwise = nullptr)
{
    TovCam::StringParam *const node = params->GetString(name, nullptr);
    return node || !otherwise ? node : params->GetString(otherwise, nullptr);
}

void AddDevice(QString *report, TovCam::ParamArray *params)
{
    struct
    {
        char const *name;
        char const *otherwise;
        char const *caption;
    } const lines[] = {
        {"DeviceManufacturerName", "DeviceVendorName", "Manufacturer Name: "},
        {"DeviceModelName", nullptr, "Model Name:        "},
        {"DeviceFamilyName", nullptr, "Family Name:       "},
        {"DeviceVersion", nullptr, "Device Version:    "},
        {"DeviceManufacturerInfo", nullptr, "Manufacturer Info: "},
        {"DeviceSerialNumber", nullptr, "Serial Number:     "},
        {"DeviceUserDefinedName", "DeviceUserID", "User Defined Name: "},
    };
    *report += QStringLiteral("Device Information\n");
    for (auto const &line : lines) {
        if (TovCam::StringParam *const node = FindString(params, line.name, line.otherwise))
            *report += QString::fromLatin1(line.caption) + Text(node) + QLatin1Char('\n');
    }
}

void AddFirmware(QString *report, TovCam::ParamArray *params)
{
    struct
    {
        char const *name;
        char const *otherwise;
        char const *caption;
    } const parts[] = {
        {"FirmwareVersion", "CameraHeadFirmwareVersion", " ver:"},
        {"FirmwareImage", nullptr, " img:"},
        {"FirmwareBuild", "CameraHeadFirmwareBuild", " bld:"},
        {"CustomerID", nullptr, " cust:"},
        {"RgsID", nullptr, " rgs:"},
        {"FpgaID", nullptr, " fpga:"},
        {"EpcsID", nullptr, " epcs:"},
    };
    QString line;
    for (auto const &part : parts) {
        if (TovCam::IntParam *const node = FindInt(params, part.name, part.otherwise))
            line += QString::fromLatin1(part.caption) + Hex(node);
    }
    if (!line.isEmpty())
        *report += QStringLiteral("Firmware Version: ") + line + QLatin1Char('\n');
}

void AddVersions(QString *report, TovCam::ParamArray *params)
{
    *report += QStringLiteral("\nVersion Information\n");
    if (TovCam::EnumParam *const node = params->GetEnum("SensorType", nullptr))
        *report += QStringLiteral("Sensor Type:       ") + TovPlainLine(QString::fromUtf8(node->GetValueStr(nullptr))) +
                   QLatin1Char('\n');
    if (TovCam::StringParam *const node = FindString(params, "DeviceFirmwareVersion"))
        *report += QStringLiteral("Device FW Version: ") + Text(node) + QLatin1Char('\n');
    AddFirmware(report, params);
    if (TovCam::IntParam *const node = FindInt(params, "XmlVersion"))
        *report += QStringLiteral("XML version:       ") + Hex(node) + QLatin1Char('\n');
    // These two share a line: a camera has one of them.
    if (TovCam::IntParam *const node = FindInt(params, "U3VFirmwareVersion")) {
        *report += QStringLiteral("U3V version:       ") + Hex(node);
        if (TovCam::IntParam *const build = FindInt(params, "U3VFirmwareBuildNumber"))
            *report += QStringLiteral(", build  ") + Hex(build);
    }
    if (TovCam::IntParam *const node = FindInt(params, "GevFirmwareSwVersion"))
        *report += QStringLiteral("GEV version:       sw:") + Hex(node);
    if (TovCam::IntParam *const node = FindInt(params, "GevFirmwareHwVersion"))
        *report += QStringLiteral(" hw:") + Hex(node);
    *report += QLatin1Char('\n');
}

void AddAdapter(QString *report, TovCam::ParamArray *params)
{
    TovCam::IntParam *const mac = params ? FindInt(params, "GevInterfaceMACAddress") : nullptr;
    if (!mac)
        return;
    *report += QStringLiteral("\nNetwork Adapter Information:\nMAC:  ") + Hex(mac) + QLatin1Char('\n');
    if (TovCam::StringParam *const node = FindString(params, "InterfaceDisplayName"))
        *report += QStringLiteral("Name: ") + Text(node) + QLatin1Char('\n');
    if (TovCam::StringParam *const node = FindString(params, "InterfaceID"))
        *report += QStringLiteral("ID:   ") + Text(node) + QLatin1Char('\n');
}

} // namespace

QString CameraReport(TovCam::Device *device)
{
    QString report;
    if (!device)
        return report;
    if (TovCam::ParamArray *const params = device->GetCameraParameters(nullptr)) {
        AddDevice(&report, params);
        AddVersions(&report, params);
    }
    TovCam::DeviceInfo *const info = device->GetDeviceInfo();
    char const *const host = info->GetHostInformation();
    if (!host)
        return report;
    report += QStringLiteral("\nHost Information\n") + QString::fromUtf8(host);
    AddAdapter(&report, info->GetInterface()->GetInterfaceParameters(nullptr));
    return report;
}
