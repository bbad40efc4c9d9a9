#include "hostcheckup.h"

#include "hostfindingsdlg.h"
#include "managedwindow.h"
#include "noticeboard.h"
#include "session.h"
#include "tovlog.h"

#include "tovcamera.h"
#include "tovplaintext.h"

#include <QMainWindow>
#include <QSettings>

#include <algorithm>
#include <string_view>
#include <utility>

namespace {

using TovCam::HostFinding;

QString const QuietKey = QStringLiteral("Camera/QuietHostCheck");
constexpr int MostQuiet = 200;  // cameras
constexpr int LongestName = 80; // in characters

bool IsPresent(TovCam::DeviceInfo *info)
{
    TovCam::Interface *const interface = info ? info->GetInterface() : nullptr;
    if (!interface)
        return false;
    if (interface->GetInterfaceKind() == TovCam::InterfaceKindUSB3Vision)
        return info->GetAddress() && *info->GetAddress() != '\0';
    return info->GetNetworkPlace().address != 0;
}

bool IsOff(TovCam::ParamArray &nodes, std::string_view name)
{
    for (std::uint32_t i = 0, count = nodes.GetFeatureCount(); i < count; ++i) {
        TovCam::FeatureState state;
        if (nodes.GetFeature(i)->name == name)
            return nodes.ReadFeature(i, &state) == 0 && state.value.integer == 0;
    }
    return false;
}

TovCam::StreamNeeds ReadNeeds(TovCam::ParamArray &nodes)
{
    auto const integer = [&nodes](char const *name) {
        std::int32_t error = 0;
        std::int64_t const value = nodes.GetIntegerValue(name, &error);
        return error == 0 && value > 0 ? value : 0;
    };
    TovCam::StreamNeeds needs;
    needs.frameSize = static_cast<std::uint64_t>(integer("PayloadSize"));
    needs.packetSize = static_cast<std::uint32_t>(integer("GevSCPSPacketSize"));
    std::int32_t error = 0;
    double const rate = nodes.GetFloatValue("AcquisitionFrameRate", &error);
    needs.frameRate = error == 0 && rate > 0 && !IsOff(nodes, "AcquisitionFrameRateEnable") ? rate : 0;
    return needs;
}

bool IsWorse(HostFinding const &finding)
{
    return finding.severity != HostFinding::Severity::Hint;
}

// Hints are told beside what is worse, and only those about this camera's way.
std::vector<HostFinding> FindingsOf(TovCam::DeviceInfo *info, TovCam::StreamNeeds const &needs)
{
    std::vector<HostFinding> findings = TovCam_ExamineHost({{info, needs}}).findings;
    std::string const adapter = info->GetNetworkPlace().adapter;
    std::erase_if(findings, [&](HostFinding const &finding) {
        return !IsWorse(finding) && !finding.camera && (finding.adapter.empty() || finding.adapter != adapter);
    });
    if (std::none_of(findings.begin(), findings.end(), IsWorse))
        findings.clear();
    return findings;
}

// Without their figures, which change with each setting of the camera.
QStringList KindsOf(std::vector<HostFinding> const &findings)
{
    QStringList kinds;
    for (HostFinding const &finding : findings) {
        if (IsWorse(finding))
            kinds += QStringLiteral("%1 %2 %3")
                         .arg(static_cast<int>(finding.check))
                         .arg(static_cast<int>(finding.severity))
                         .arg(QString::fromStdString(finding.adapter));
    }
    kinds.sort();
    return kinds;
}

} // namespace

HostCheckup::HostCheckup(ManagedWindow *window, QObject *parent) : QObject(parent), m_window(window)
{
}

HostCheckup::~HostCheckup()
{
    Withdraw();
    if (m_thread.joinable())
        m_thread.join();
}

// ---- The examination ------------------------------------------------------------------------------------------------

void HostCheckup::Examine(Session *session)
{
    TovCam::Device *const device = session ? session->GetDevice() : nullptr;
    TovCam::DeviceInfo *const info = device ? device->GetDeviceInfo() : nullptr;
    if (m_window->GetRigTest() || !IsPresent(info))
        return;
    TovCam::ParamArray *const nodes = device->GetCameraParameters(nullptr);
    std::shared_ptr<void> hold = nodes ? nodes->Hold() : nullptr;
    if (!hold)
        return; // it cannot be read beside what the session does
    QString const key = TovPlainLine(QStringLiteral("%1 %2").arg(QString::fromUtf8(info->GetModelName()),
                                                                 QString::fromUtf8(info->GetSerialNumber())),
                                     LongestName);
    ++m_number;
    m_patient = {info, nodes, std::move(hold), session->GetPlainName(), key};
    if (IsQuiet(key)) {
        m_patient = {};
        emit examined();
    } else if (m_runs) {
        m_waits = true; // for a camera that was slow, and is closed
    } else {
        Begin(m_patient);
    }
}

void HostCheckup::Begin(Patient const &patient)
{
    if (m_thread.joinable())
        m_thread.join(); // it has reported
    m_runs = true;
    m_thread = std::thread([this, number = m_number, patient] {
        std::vector<HostFinding> findings = FindingsOf(patient.info, ReadNeeds(*patient.nodes));
        QMetaObject::invokeMethod(
            this, [this, number, findings = std::move(findings)] { Done(number, findings); }, Qt::QueuedConnection);
    });
}

void HostCheckup::Done(int number, std::vector<HostFinding> findings)
{
    m_runs = false;
    if (std::exchange(m_waits, false) && m_patient.info)
        return Begin(m_patient);
    if (number != m_number || !m_patient.info)
        return; // it is closed
    m_patient.hold.reset();
    QStringList const kinds = KindsOf(findings);
    if (std::exchange(m_known[m_patient.key], kinds) != kinds && !kinds.isEmpty()) {
        m_findings = std::move(findings);
        Tell();
    }
    emit examined();
}

void HostCheckup::SessionClosed()
{
    ++m_number;
    m_patient = {};
    m_waits = false;
    Withdraw();
}

// ---- What is told ---------------------------------------------------------------------------------------------------

void HostCheckup::Tell()
{
    for (HostFinding const &finding : m_findings) {
        if (IsWorse(finding))
            TovLog::Warning(0, "Host: %s %s %s", finding.what.c_str(), finding.why.c_str(), finding.mending.c_str());
    }
    HostFinding const &first = m_findings.front();
    bool const isFault = first.severity == HostFinding::Severity::Fault;
    QString const what = QString::fromStdString(first.what);
    m_told = true;
    NoticeBoard::Instance().Post(NoticeTopic::Host, isFault ? NoticeLevel::Error : NoticeLevel::Warning,
                                 isFault ? tr("No picture may come of %1. %2").arg(m_patient.name, what)
                                         : tr("Frames of %1 may get lost. %2").arg(m_patient.name, what));
}

void HostCheckup::Withdraw()
{
    if (std::exchange(m_told, false))
        NoticeBoard::Instance().Withdraw(NoticeTopic::Host);
}

void HostCheckup::ShowDetails()
{
    if (!m_told)
        return;
    if (m_dialog)
        m_dialog->close(); // of another camera, or an earlier time
    m_dialog = new HostFindingsDialog(m_window->GetMainWindow(), m_patient.name, m_findings);
    m_dialog->setAttribute(Qt::WA_DeleteOnClose);
    connect(m_dialog, &HostFindingsDialog::quietChosen, this,
            [this, key = m_patient.key](bool quiet) { SetQuiet(key, quiet); });
    // It has been read.
    connect(m_dialog, &QDialog::finished, this, [this, number = m_number] {
        if (number == m_number)
            Withdraw();
    });
    m_dialog->show();
}

bool HostCheckup::IsQuiet(QString const &key) const
{
    return m_window->GetGlobalSettings()->value(QuietKey).toStringList().contains(key);
}

void HostCheckup::SetQuiet(QString const &key, bool quiet)
{
    QStringList keys = m_window->GetGlobalSettings()->value(QuietKey).toStringList();
    keys.removeAll(key);
    if (quiet)
        keys += key;
    while (keys.size() > MostQuiet)
        keys.removeFirst();
    m_window->GetGlobalSettings()->setValue(QuietKey, keys);
}
