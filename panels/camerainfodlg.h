// Shows what the camera reports about itself. Modal; GUI thread only.
#pragma once

#include "ui_camerainfodlg.h"

#include <QDialog>
#include <QString>

class Session;

class CameraInfoDlgImpl : public QDialog, private Ui_camerainfodlg
{
    Q_OBJECT
public:
    // The session may be null. It may go while the dialog is open.
    CameraInfoDlgImpl(QWidget *parent, Session *session);
    // The operator did not wait for the camera: there is nothing to show.
    bool IsGivenUp() const;

public slots:
    void Copy();
    void Save();

private:
    void AddLosses(Session *session);

    QString m_report;
    QString m_title; // the session's
    bool m_givenUp = false;
};
