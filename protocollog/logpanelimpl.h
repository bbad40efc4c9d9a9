// The protocol traffic of the connected camera, line by line: which channels are logged, the lines, clearing and saving
// them. The switches are parameters of the session, whose model holds the lines. GUI thread only.
#pragma once

#include "playerpanel.h"

#include <memory>

class LogPanelImplPrivate;

class LogPanelImpl : public PlayerPanel
{
    Q_OBJECT
public:
    explicit LogPanelImpl(QMainWindow *window);
    ~LogPanelImpl() override;

    // The panel must not outlive the session. Null leaves the switches without effect.
    void SetCurrentSession(Session *session) override;
    bool UpdateSelfByTimer() override;

    bool isLogEnabled() const;
    bool isControlChannelEnabled() const;
    bool isStreamChannelEnabled() const;
    bool isEventChannelEnabled() const;

signals:
    // By the operator.
    void logEnabled(bool enabled);
    void controlChannelEnabled(bool enabled);
    void streamChannelEnabled(bool enabled);
    void eventChannelEnabled(bool enabled);

public slots:
    void enableLog(bool enable);
    void enableControlChannel(bool enabl);
    void enableStreamChannel(bool enable);
    void enableEventChannel(bool enable);

private:
    void ShowRefusals();
    void ShowReport();

    std::unique_ptr<LogPanelImplPrivate> const d;
};
