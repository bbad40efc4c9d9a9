#include "logpanelimpl.h"

#include "noticeboard.h"
#include "qttovlogmodel.h"
#include "qttovlogviewer.h"
#include "session.h"
#include "ui_logpanelimpl.h"
#include "waitingaction.h"

#include "tovcamera.h"
#include "tovmisc.h"
#include "tovplaintip.h"

#include <QFileInfo>
#include <QMainWindow>
#include <QToolTip>

namespace {

constexpr int Period = 1000;   // milliseconds
constexpr int TipTime = 20000; // milliseconds; long enough to copy a command from it

// Makes the kernel's USB monitor readable.
QString const LoadMonitor =
    QStringLiteral("sudo modprobe usbmon && sudo chgrp $(id -gn) /dev/usbmon* && sudo chmod g+r /dev/usbmon*");

// What makes the helper that captures of use, by what it lacks. Empty for a library that names none.
QString HelperText(QString const &path)
{
    QFileInfo const helper(path);
    if (!helper.isAbsolute())
        return {};
    if (!helper.exists())
        return LogPanelImpl::tr("Its helper that has the right is not installed: %1").arg(path);
    if (!helper.isExecutable())
        return LogPanelImpl::tr("The group %1 has it. This command makes you a member, from your next login on:\n"
                                "sudo usermod -aG %1 $USER")
            .arg(helper.group());
    return LogPanelImpl::tr("This command gives it to the helper that captures:\nsudo setcap cap_net_raw=ep %1")
        .arg(path);
}

QString NoRightText(bool usb, QString const &place)
{
    QString const text = LogPanelImpl::tr("The program has no right to capture the packets of this camera.");
    if (usb)
        return text + u'\n' +
               LogPanelImpl::tr("It needs read access to /dev/usbmon*, which this command grants until the next "
                                "start of the system:") +
               u'\n' + LoadMonitor;
    QString const remedy = HelperText(place);
    return remedy.isEmpty() ? text : text + u'\n' + remedy;
}

QString NoAdapterText(bool usb, QString const &place)
{
    if (usb && place.isEmpty())
        return LogPanelImpl::tr("The packets of this camera cannot be captured: the system does not list it among its "
                                "USB devices.");
    if (usb)
        return LogPanelImpl::tr("The packets of this camera cannot be captured: the kernel's USB monitor, %1, does not "
                                "exist.\nThis command loads it until the next start of the system:")
                   .arg(place) +
               u'\n' + LoadMonitor;
    if (place.isEmpty())
        return LogPanelImpl::tr(
            "The packets of this camera cannot be captured: no network adapter of this computer leads "
            "to its address.");
    return LogPanelImpl::tr(
               "The packets of this camera cannot be captured: the network adapter %1 does not exist, is down, "
               "or cannot be captured from.")
        .arg(place);
}

// Why this camera's packets are not logged, and what helps.
QString RefusalText(TovCam::Device *device)
{
    using TovCam::CaptureRefusal;
    TovCam::CaptureFailure const failure = device->GetCaptureFailure();
    QString const place = QString::fromStdString(failure.place), reason = QString::fromStdString(failure.reason);
    bool const usb = device->GetDeviceInfo()->GetInterface()->GetInterfaceKind() == TovCam::InterfaceKindUSB3Vision;
    QString text;
    switch (failure.refusal) {
    case CaptureRefusal::None: // a library that does not say
    case CaptureRefusal::NoRight:
        text = NoRightText(usb, place);
        break;
    case CaptureRefusal::NoAdapter:
        text = NoAdapterText(usb, place);
        break;
    case CaptureRefusal::NoFile:
        text = LogPanelImpl::tr("The capture file that TOV_PACKET_CAPTURE names cannot be opened: %1").arg(place);
        break;
    case CaptureRefusal::NotACapture:
        text = LogPanelImpl::tr("The file that TOV_PACKET_CAPTURE names is not a pcap or pcapng capture of a "
                                "camera's packets: %1")
                   .arg(place);
        break;
    }
    return reason.isEmpty() ? text : text + QStringLiteral("\n(%1)").arg(reason);
}

} // namespace

class LogPanelImplPrivate
{
public:
    std::unique_ptr<Ui_LogPanelImpl> ui = std::make_unique<Ui_LogPanelImpl>();
    QtTovLogViewer *viewer = nullptr; // a child of the panel
};

LogPanelImpl::LogPanelImpl(QMainWindow *window)
    : PlayerPanel(window, QStringLiteral("actionLog"), Period),
      d(std::make_unique<LogPanelImplPrivate>())
{
    d->ui->setupUi(this);
    d->viewer = new QtTovLogViewer(this);
    setFloating(false);
    m_mainWindow->addDockWidget(Qt::BottomDockWidgetArea, this);
    d->ui->holderLayout->addWidget(d->viewer);

    connect(d->ui->groupLogging, &QGroupBox::clicked, this, &LogPanelImpl::logEnabled);
    connect(d->ui->chkControl, &QCheckBox::clicked, this, &LogPanelImpl::controlChannelEnabled);
    connect(d->ui->chkStream, &QCheckBox::clicked, this, &LogPanelImpl::streamChannelEnabled);
    connect(d->ui->chkEvent, &QCheckBox::clicked, this, &LogPanelImpl::eventChannelEnabled);
    for (QCheckBox *const box : {d->ui->chkControl, d->ui->chkStream, d->ui->chkEvent})
        connect(d->ui->groupLogging, &QGroupBox::toggled, box, &QWidget::setEnabled);

    // Queued: a box that is cleared while it signals a click would lose its next click. The parameter has been written
    // by then.
    connect(d->ui->groupLogging, &QGroupBox::toggled, this, &LogPanelImpl::ShowRefusals, Qt::QueuedConnection);
    for (QCheckBox *const box : {d->ui->chkControl, d->ui->chkStream, d->ui->chkEvent})
        connect(box, &QCheckBox::toggled, this, &LogPanelImpl::ShowRefusals, Qt::QueuedConnection);
}

LogPanelImpl::~LogPanelImpl() = default;

void LogPanelImpl::SetCurrentSession(Session *session)
{
    PlayerPanel::SetCurrentSession(session);
    AddBoolCheckGroupBox(d->ui->groupLogging, "EnableLog", session);
    AddBoolCheckBox(d->ui->chkControl, "LogControl", session);
    AddBoolCheckBox(d->ui->chkStream, "LogStream", session);
    AddBoolCheckBox(d->ui->chkEvent, "LogEvent", session);
    if (!session)
        return;
    d->viewer->setModel(session->GetLogModel());
    connect(d->ui->btnClear, &QPushButton::clicked, session, &Session::clearLog);
    connect(d->ui->btnSave, &QPushButton::clicked, session, &Session::saveLog);
    ShowReport();
}

bool LogPanelImpl::UpdateSelfByTimer()
{
    ShowReport();
    return PlayerPanel::UpdateSelfByTimer();
}

// The tooltip of the whole panel, but for widgets that have one of their own.
void LogPanelImpl::ShowReport()
{
    if (!m_session)
        return;
    setToolTip(TovPlainTip(m_session->GetLogReport()));
    d->ui->btnSave->setToolTip(m_session->IsSavingLog() ? tr("Cancels the save that is under way, and removes its file")
                                                        : QString());
}

// A refused channel has cleared its own switch: its box follows at once, and says why.
void LogPanelImpl::ShowRefusals()
{
    if (WaitingAction::IsWaiting()) { // for the channel
        WaitingAction::WhenOver(
            this, [this] { QMetaObject::invokeMethod(this, &LogPanelImpl::ShowRefusals, Qt::QueuedConnection); });
        return;
    }
    for (QCheckBox *const box : {d->ui->chkControl, d->ui->chkStream, d->ui->chkEvent}) {
        ParamLink const link = GetParamForControl(box->objectName());
        bool on = false;
        if (!box->isChecked() || !link.component ||
            !TovSucceeded(link.component->GetParamBool(link.paramName.toUtf8().constData(), &on)))
            continue;
        QString const text = on ? QString() : RefusalText(m_session->GetDevice());
        box->setToolTip(TovPlainTip(text));
        if (on)
            continue;
        NoticeBoard::Instance().Report(NoticeTopic::Log, NoticeLevel::Warning, text.simplified());
        UpdateFromComponent(link.paramName);
        if (box->isVisible())
            QToolTip::showText(box->mapToGlobal(QPoint(0, box->height())), TovPlainTip(text), box, QRect(), TipTime);
    }
}

bool LogPanelImpl::isLogEnabled() const
{
    return d->ui->groupLogging->isChecked();
}

bool LogPanelImpl::isControlChannelEnabled() const
{
    return d->ui->chkControl->isChecked();
}

bool LogPanelImpl::isStreamChannelEnabled() const
{
    return d->ui->chkStream->isChecked();
}

bool LogPanelImpl::isEventChannelEnabled() const
{
    return d->ui->chkEvent->isChecked();
}

void LogPanelImpl::enableLog(bool enable)
{
    d->ui->groupLogging->setChecked(enable);
}

void LogPanelImpl::enableControlChannel(bool enable)
{
    d->ui->chkControl->setChecked(enable);
}

void LogPanelImpl::enableStreamChannel(bool enable)
{
    d->ui->chkStream->setChecked(enable);
}

void LogPanelImpl::enableEventChannel(bool enable)
{
    d->ui->chkEvent->setChecked(enable);
}
