#include "camerainfodlg.h"

#include "report.h"
#include "session.h"

#include <QClipboard>
#include <QGuiApplication>

CameraInfoDlgImpl::CameraInfoDlgImpl(QWidget *parent, Session *session) : QDialog(parent)
{
    setupUi(this);
    connect(buttonCopy, &QPushButton::pressed, this, &CameraInfoDlgImpl::Copy);
    connect(buttonSave, &QPushButton::pressed, this, &CameraInfoDlgImpl::Save);
    connect(buttonClose, &QPushButton::released, this, &CameraInfoDlgImpl::accept);
    if (session) {
        m_title = session->GetTitle();
        m_report = session->GetCameraInfo();
        m_givenUp = m_report.isNull();
    }
    Report::Show(textBrowser, m_report);
}

bool CameraInfoDlgImpl::IsGivenUp() const
{
    return m_givenUp;
}

void CameraInfoDlgImpl::Copy()
{
    QGuiApplication::clipboard()->setText(m_report);
}

void CameraInfoDlgImpl::Save()
{
    Report::SaveAs(Report::SuggestedFileName(m_title), m_report);
}
