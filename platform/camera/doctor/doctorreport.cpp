#include "doctorreport.h"

#include "tovplaintext.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>

#include <algorithm>

namespace {

using TovCam::HostFinding;

QString Text(std::string const &text)
{
    return QString::fromStdString(text);
}

QString AddressText(std::uint32_t address)
{
    if (address == 0)
        return {};
    return QStringLiteral("%1.%2.%3.%4")
        .arg(address >> 24)
        .arg(address >> 16 & 255)
        .arg(address >> 8 & 255)
        .arg(address & 255);
}

bool IsUsb(TovCam::DeviceInfo &camera)
{
    return camera.GetInterface()->GetInterfaceKind() == TovCam::InterfaceKindUSB3Vision;
}

QString SpeedText(std::uint32_t megabits)
{
    return megabits < 1000 ? QStringLiteral("%1 Mb/s").arg(megabits) : QStringLiteral("%1 Gb/s").arg(megabits / 1000.0);
}

// ---- Text --------------------------------------------------------------------------------------------------------

QString AdapterLine(TovCam::HostAdapter const &adapter)
{
    QStringList facts;
    for (std::string const &address : adapter.addresses)
        facts += Text(address);
    if (adapter.addresses.empty())
        facts += QStringLiteral("no IPv4 address");
    if (!adapter.isUp || !adapter.hasLink)
        facts += adapter.isUp ? QStringLiteral("no link") : QStringLiteral("down");
    if (adapter.mtu != 0)
        facts += QStringLiteral("MTU %1").arg(adapter.mtu);
    if (adapter.speed != 0)
        facts += SpeedText(adapter.speed);
    if (adapter.largestRing != 0)
        facts += QStringLiteral("ring %1 of %2").arg(adapter.ring).arg(adapter.largestRing);
    return TovPlainLine(Text(adapter.name)) + QStringLiteral(": ") + facts.join(QStringLiteral(", "));
}

QString CameraLine(TovCam::DeviceInfo &camera)
{
    TovCam::NetworkPlace const place = camera.GetNetworkPlace();
    QString line = TovPlainLine(QString::fromUtf8(camera.GetDisplayName()));
    if (IsUsb(camera))
        line += QStringLiteral(": USB");
    if (place.address != 0)
        line += QStringLiteral(": ") + AddressText(place.address);
    if (!place.adapter.empty())
        line += QStringLiteral(" at ") + Text(place.adapter);
    if (place.isForeign)
        line += QStringLiteral(", wrong subnet");
    if (camera.GetAccessStatus() == TovCam::DeviceInfo::AccessBusy)
        line += QStringLiteral(", in use");
    return line;
}

QString FindingLines(HostFinding const &finding)
{
    static constexpr char const *Names[] = {"hint", "warning", "fault"};
    QString const mending = TovPlainLine(Text(finding.mending));
    return QStringLiteral("    %1: %2\n        %3\n        %4%5\n")
        .arg(QLatin1String(Names[static_cast<int>(finding.severity)]), TovPlainLine(Text(finding.what)),
             TovPlainLine(Text(finding.why)), finding.isCommand ? QStringLiteral("$ ") : QString(), mending);
}

template<class Belongs>
QString FindingsWhere(TovCam::HostReport const &report, Belongs belongs)
{
    QString lines;
    for (HostFinding const &finding : report.findings) {
        if (belongs(finding))
            lines += FindingLines(finding);
    }
    return lines;
}

QString Summary(TovCam::HostReport const &report)
{
    std::size_t const count = CountToMend(report), hints = report.findings.size() - count;
    QString line = count == 0 ? QStringLiteral("Nothing to mend") : QStringLiteral("To mend: %1").arg(count);
    if (hints != 0)
        line += QStringLiteral("; hints: %1").arg(hints);
    return line + QStringLiteral(".\n");
}

// ---- JSON --------------------------------------------------------------------------------------------------------

QJsonObject AdapterObject(TovCam::HostAdapter const &adapter)
{
    QJsonArray addresses;
    for (std::string const &address : adapter.addresses)
        addresses.append(Text(address));
    return {
        {QStringLiteral("name"), Text(adapter.name)},   {QStringLiteral("addresses"), addresses},
        {QStringLiteral("up"), adapter.isUp},           {QStringLiteral("link"), adapter.hasLink},
        {QStringLiteral("mtu"), qint64(adapter.mtu)},   {QStringLiteral("speed"), qint64(adapter.speed)},
        {QStringLiteral("ring"), qint64(adapter.ring)}, {QStringLiteral("largestRing"), qint64(adapter.largestRing)}};
}

QJsonObject CameraObject(TovCam::DeviceInfo &camera)
{
    static constexpr char const *Access[] = {"unknown", "free", "busy"};
    TovCam::NetworkPlace const place = camera.GetNetworkPlace();
    bool const isUsb = IsUsb(camera);
    QJsonObject object{{QStringLiteral("name"), QString::fromUtf8(camera.GetDisplayName())},
                       {QStringLiteral("vendor"), QString::fromUtf8(camera.GetVendorName())},
                       {QStringLiteral("model"), QString::fromUtf8(camera.GetModelName())},
                       {QStringLiteral("serial"), QString::fromUtf8(camera.GetSerialNumber())},
                       {QStringLiteral("kind"), isUsb ? QStringLiteral("USB3 Vision") : QStringLiteral("GigE Vision")},
                       {QStringLiteral("access"), QLatin1String(Access[camera.GetAccessStatus()])}};
    if (isUsb)
        return object;
    object[QStringLiteral("address")] = AddressText(place.address);
    object[QStringLiteral("mask")] = AddressText(place.mask);
    object[QStringLiteral("gateway")] = AddressText(place.gateway);
    object[QStringLiteral("mac")] = QStringLiteral("%1").arg(place.mac, 12, 16, QLatin1Char('0'));
    object[QStringLiteral("adapter")] = Text(place.adapter);
    object[QStringLiteral("wrongSubnet")] = place.isForeign;
    return object;
}

QJsonObject FindingObject(HostFinding const &finding, std::vector<TovCam::DeviceInfo *> const &cameras)
{
    static constexpr char const *Severities[] = {"hint", "warning", "fault"};
    static constexpr char const *Checks[] = {"adapter",     "subnet",         "route",    "return-path",
                                             "packet-size", "receive-buffer", "ring",     "link-speed",
                                             "link-share",  "usb-memory",     "usb-speed"};
    auto const camera = std::find(cameras.begin(), cameras.end(), finding.camera);
    return {{QStringLiteral("check"), QLatin1String(Checks[static_cast<int>(finding.check)])},
            {QStringLiteral("severity"), QLatin1String(Severities[static_cast<int>(finding.severity)])},
            {QStringLiteral("camera"),
             camera == cameras.end() ? QJsonValue() : QJsonValue(qint64(camera - cameras.begin()))},
            {QStringLiteral("adapter"), finding.adapter.empty() ? QJsonValue() : QJsonValue(Text(finding.adapter))},
            {QStringLiteral("what"), Text(finding.what)},
            {QStringLiteral("why"), Text(finding.why)},
            {QStringLiteral("mending"), Text(finding.mending)},
            {QStringLiteral("isCommand"), finding.isCommand}};
}

} // namespace

std::size_t CountToMend(TovCam::HostReport const &report)
{
    return static_cast<std::size_t>(
        std::count_if(report.findings.begin(), report.findings.end(),
                      [](HostFinding const &finding) { return finding.severity != HostFinding::Severity::Hint; }));
}

std::string ReportText(TovCam::HostReport const &report, std::vector<TovCam::DeviceInfo *> const &cameras)
{
    QString text = QStringLiteral("Network adapters\n");
    for (TovCam::HostAdapter const &adapter : report.adapters) {
        text += QStringLiteral("  ") + AdapterLine(adapter) + QLatin1Char('\n');
        text += FindingsWhere(report, [&adapter](HostFinding const &finding) {
            return !finding.camera && finding.adapter == adapter.name;
        });
    }
    text += QStringLiteral("Cameras\n");
    for (TovCam::DeviceInfo *const camera : cameras) {
        text += QStringLiteral("  ") + CameraLine(*camera) + QLatin1Char('\n');
        text += FindingsWhere(report, [camera](HostFinding const &finding) { return finding.camera == camera; });
    }
    if (cameras.empty())
        text += QStringLiteral("  none found\n");
    QString const host =
        FindingsWhere(report, [](HostFinding const &finding) { return !finding.camera && finding.adapter.empty(); });
    if (!host.isEmpty())
        text += QStringLiteral("This computer\n") + host;
    return (text + Summary(report)).toStdString();
}

std::string ReportJson(TovCam::HostReport const &report, std::vector<TovCam::DeviceInfo *> const &cameras,
                       int exitStatus)
{
    QJsonArray adapters, listed, findings;
    for (TovCam::HostAdapter const &adapter : report.adapters)
        adapters.append(AdapterObject(adapter));
    for (TovCam::DeviceInfo *const camera : cameras)
        listed.append(CameraObject(*camera));
    for (HostFinding const &finding : report.findings)
        findings.append(FindingObject(finding, cameras));
    QJsonObject const all{{QStringLiteral("adapters"), adapters},
                          {QStringLiteral("cameras"), listed},
                          {QStringLiteral("findings"), findings},
                          {QStringLiteral("status"), exitStatus}};
    return QJsonDocument(all).toJson().toStdString();
}
