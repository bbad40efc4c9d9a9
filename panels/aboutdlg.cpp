#include "aboutdlg.h"

#include "report.h"
#include "session.h"

#include "tovcamera.h"

#include <QClipboard>
#include <QGuiApplication>

namespace {

QString const Version = QStringLiteral("1.3.0 (build 2230) ");

}

AboutDlgImpl::AboutDlgImpl(QWidget *parent, Session *session) : QDialog(parent)
{
    setupUi(this);
    setFixedSize(size());

    QString text = tr("Software information\nTovScope version:  ") + Version + QLatin1Char('\n');
    if (session) {
        m_title = session->GetTitle();
        // The caption says U3V for every kind of camera.
        text += tr("U3V driver version: ") +
                QString::fromUtf8(session->GetDevice()->GetDeviceInfo()->GetInterface()->GetDriverVersion()) +
                QLatin1Char('\n') + session->GetCameraInfo();
    }
    m_report = text;
    Report::Show(textBrowser, m_report);
    aboutText->setText(tr("TovScope Application v") + Version);

    connect(buttonCopy, &QPushButton::pressed, this, &AboutDlgImpl::Copy);
    connect(buttonSave, &QPushButton::pressed, this, &AboutDlgImpl::Save);
    connect(buttonClose, &QPushButton::released, this, &AboutDlgImpl::accept);
}

void AboutDlgImpl::Copy()
{
    QGuiApplication::clipboard()->setText(m_report);
}

void AboutDlgImpl::Save()
{
    Report::SaveAs(Report::SuggestedFileName(m_title), m_report);
}
