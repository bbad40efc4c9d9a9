#include "logpanelimpl.h"

#include "noticeboard.h"
#include "qttovlogmodel.h"
#include "qttovlogviewer.h"
#include "session.h"
#include "ui_logpanelimpl.h"

#include "tovcamera.h"

#include <QCoreApplication>
#include <QMainWindow>
#include <QToolTip>

namespace {

constexpr int Period = 1000;   // milliseconds
constexpr int TipTime = 20000; // milliseconds; there is a line to copy

// What the operator does about a right that is missing.
QString howToGetTheRight(bool usb)
{
    if (usb)
        return LogPanelImpl::tr(
            "Reading them off the bus takes read access to /dev/usbmon*, which this gives until the\n"
            "next start of the system:\n"
            "sudo modprobe usbmon && sudo chgrp $(id -gn) /dev/usbmon* && sudo chmod g+r "
            "/dev/usbmon*");
    return LogPanelImpl::tr(
               "Reading them off the network takes a right that this line gives the program from its next\n"
               "start on:\nsudo setcap cap_net_raw,cap_net_admin+ep %1")
        .arg(QCoreApplication::applicationFilePath());
}

// Why this camera's packets are not logged, and what mends it.
QString refusalText(TovCam::Device *device)
{
    using TovCam::CaptureRefusal;
    TovCam::CaptureFailure const failure = device->GetCaptureFailure();
    QString const place = QString::fromStdString(failure.place), reason = QString::fromStdString(failure.reason);
    bool const usb = device->GetDeviceInfo()->GetInterface()->GetInterfaceKind() == TovCam::InterfaceKindUSB3Vision;
    QString text = LogPanelImpl::tr("The packets of this camera cannot be captured.");
    switch (failure.refusal) {
    case CaptureRefusal::None: // a library that does not tell
    case CaptureRefusal::NoRight:
        text += QLatin1Char(' ') + howToGetTheRight(usb);
        break;
    case CaptureRefusal::NoAdapter:
        if (usb && place.isEmpty())
            text += LogPanelImpl::tr("\nThe system does not list it among its USB devices.");
        else if (usb)
            text += LogPanelImpl::tr("\nThere is no %1, which shows what goes over its bus. Load the monitor, and give "
                                     "yourself the right to read it:\n")
                        .arg(place) +
                    QStringLiteral("sudo modprobe usbmon && sudo chgrp $(id -gn) /dev/usbmon* && "
                                   "sudo chmod g+r /dev/usbmon*");
        else if (place.isEmpty())
            text += LogPanelImpl::tr("\nNo network adapter of this computer leads to its address any more.");
        else
            text += LogPanelImpl::tr("\nThe network adapter %1 is not there, is down, or is of a kind that is not "
                                     "supported.")
                        .arg(place);
        break;
    case CaptureRefusal::NoFile:
        text += LogPanelImpl::tr("\nThe capture file that TOV_PACKET_CAPTURE names cannot be opened: %1").arg(place);
        break;
    case CaptureRefusal::NotACapture:
        text +=
            LogPanelImpl::tr("\nThe file that TOV_PACKET_CAPTURE names is no capture of a camera's packets (pcap or "
                             "pcapng): %1")
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

    // Queued: a box cannot be cleared while it tells of a click, and the parameter has been written by then.
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

// Wherever the pointer rests in the panel, but for what has more to say.
void LogPanelImpl::ShowReport()
{
    if (!m_session)
        return;
    setToolTip(m_session->GetLogReport());
    d->ui->btnSave->setToolTip(m_session->IsSavingLog() ? tr("Cancels the save that is under way, and removes its file")
                                                        : QString());
}

// A refused channel has cleared its own switch: its box follows at once, and says why.
void LogPanelImpl::ShowRefusals()
{
    for (QCheckBox *const box : {d->ui->chkControl, d->ui->chkStream, d->ui->chkEvent}) {
        ParamLink const link = GetParamForControl(box->objectName());
        bool on = false;
        if (!box->isChecked() || !link.component ||
            (link.component->GetParamBool(link.paramName.toUtf8().constData(), &on) & 0xffff))
            continue;
        QString const text = on ? QString() : refusalText(m_session->GetDevice());
        box->setToolTip(text);
        if (on)
            continue;
        NoticeBoard::Instance().Report(NoticeTopic::Log, NoticeLevel::Warning, text.simplified());
        UpdateFromComponent(link.paramName);
        if (box->isVisible())
            QToolTip::showText(box->mapToGlobal(QPoint(0, box->height())), text, box, QRect(), TipTime);
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
