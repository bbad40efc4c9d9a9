#include "camerainfodlg.h"

#include "lossesdlg.h"
#include "losstext.h"
#include "report.h"
#include "session.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QPointer>
#include <QPushButton>

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
        if (auto const losses = session->GetLosses(); !m_givenUp && !losses.empty())
            m_report += tr("\nLosses\n") + LossReport(losses);
    }
    AddLosses(session);
    Report::Show(textBrowser, m_report);
}

bool CameraInfoDlgImpl::IsGivenUp() const
{
    return m_givenUp;
}

void CameraInfoDlgImpl::AddLosses(Session *session)
{
    auto *const losses = new QPushButton(tr("Losses..."), this);
    losses->setObjectName(QStringLiteral("buttonLosses"));
    losses->setToolTip(tr("Show what was lost on the way from the camera, and what mends it"));
    losses->setAutoDefault(false);
    losses->setEnabled(session != nullptr);
    buttonLayout->insertWidget(buttonLayout->indexOf(buttonSave) + 1, losses);
    connect(losses, &QPushButton::clicked, this, [this, open = QPointer<Session>(session)] {
        if (open)
            LossesDialog(this, open).exec();
    });
}

void CameraInfoDlgImpl::Copy()
{
    QGuiApplication::clipboard()->setText(m_report);
}

void CameraInfoDlgImpl::Save()
{
    Report::SaveAs(Report::SuggestedFileName(m_title), m_report);
}
