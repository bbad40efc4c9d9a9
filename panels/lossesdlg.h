// What was lost since the picture was started, and where, and what mends it; looked up again every second. Modal; GUI
// thread only.
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
    // The session may be null. It may go while the dialog is open, which then keeps what it shows.
    LossesDialog(QWidget *parent, Session *session);

private:
    void Look();

    QPointer<Session> m_session;
    QTextBrowser *m_text;
    QTimer m_timer;
};
