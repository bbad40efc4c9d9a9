#include "sessionname.h"

#include "tovcamera.h"
#include "tovplaintext.h"

namespace {

constexpr int MostCharacters = 80; // of each part of a title; GenICam names have 64 at most

} // namespace

SessionName ReadSessionName(TovCam::Device *device)
{
    SessionName name{QStringLiteral("Session"), {}};
    TovCam::ParamArray *const params = device->GetCameraParameters(nullptr);
    if (!params)
        return name;
    QString value;
    auto const read = [&](char const *node) {
        TovCam::StringParam *const param = params->GetString(node, nullptr);
        if (param)
            value = QString::fromUtf8(param->GetValue(nullptr));
        return param != nullptr;
    };
    if (read("DeviceUserID")) {
        name.settings += QStringLiteral("_%1").arg(value);
        name.title += QStringLiteral(" %1").arg(TovPlainLine(value, MostCharacters));
    }
    if (read("DeviceModelName")) {
        name.settings += QStringLiteral("_%1").arg(value);
        name.title += QStringLiteral(" [%1").arg(TovPlainLine(value, MostCharacters));
    }
    if (read("DeviceSerialNumber"))
        name.title += QStringLiteral(", SN:%1").arg(TovPlainLine(value, MostCharacters));
    name.title += QLatin1Char(']');
    return name;
}
