// Shows the versions and, with a camera, its report as well. Modal; GUI thread only.
#pragma once

#include "ui_aboutdlg.h"

#include <QDialog>
#include <QString>

class Session;

class AboutDlgImpl : public QDialog, private Ui_aboutDlg
{
    Q_OBJECT
public:
    // The session may be null. It may go while the dialog is open.
    AboutDlgImpl(QWidget *parent, Session *session);

public slots:
    void Copy();
    void Save();

private:
    QString m_report = QStringLiteral("n/a");
    QString m_title; // the session's
};
