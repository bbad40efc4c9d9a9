#include "logpanelimpl.h"

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

// What an operator does about a real camera whose packets may not be captured.
QString refusalText(TovCam::Device *device)
{
    if (device->GetDeviceInfo()->GetInterface()->GetInterfaceKind() == TovCam::InterfaceKindUSB3Vision)
        return QStringLiteral(
            "The packets of this camera cannot be captured. Reading them off the bus takes\n"
            "read access to /dev/usbmon*, which this gives until the next start of the system:\n"
            "sudo modprobe usbmon && sudo chgrp $(id -gn) /dev/usbmon* && sudo chmod g+r /dev/usbmon*");
    return QStringLiteral("The packets of this camera cannot be captured. Reading them off the network takes\n"
                          "a right that this line gives the program from its next start on:\n"
                          "sudo setcap cap_net_raw,cap_net_admin+ep %1")
        .arg(QCoreApplication::applicationFilePath());
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
