// What was lost since the picture was started, and where, and what mends it; looked up again every second, unless some
// of it is selected. Modal; GUI thread only.
#pragma once

#include "session.h"

#include <QDialog>
#include <QPointer>
#include <QTextBrowser>
#include <QTimer>

class LossesDialog : public QDialog
{
    Q_OBJECT
public:
    // Closes when the session goes.
    LossesDialog(QWidget *parent, Session *session);

private:
    void Look();

    QPointer<Session> const m_session;
    QTextBrowser *m_text;
    QTimer m_timer;
};
