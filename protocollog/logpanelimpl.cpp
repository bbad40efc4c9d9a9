#include "logpanelimpl.h"

#include "qttovlogmodel.h"
#include "qttovlogviewer.h"
#include "session.h"
#include "ui_logpanelimpl.h"

#include <QMainWindow>

namespace {

constexpr int Period = 1000; // milliseconds

}

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
