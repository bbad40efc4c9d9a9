#include "lossesdlg.h"

#include "losstext.h"

#include <QClipboard>
#include <QDialogButtonBox>
#include <QGuiApplication>
#include <QPushButton>
#include <QScrollBar>
#include <QVBoxLayout>

namespace {

constexpr int Period = 1000; // milliseconds

} // namespace

LossesDialog::LossesDialog(QWidget *parent, Session *session)
    : QDialog(parent),
      m_session(session),
      m_text(new QTextBrowser(this)),
      m_timer(this)
{
    setObjectName(QStringLiteral("lossesDialog"));
    setWindowTitle(tr("Losses"));
    resize(640, 320);
    auto *const buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    QPushButton *const copy = buttons->addButton(tr("Copy"), QDialogButtonBox::ActionRole);
    copy->setToolTip(tr("Copy the text to the clipboard"));
    copy->setAutoDefault(false);
    auto *const layout = new QVBoxLayout(this);
    layout->addWidget(m_text);
    layout->addWidget(buttons);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(copy, &QPushButton::clicked, this,
            [this] { QGuiApplication::clipboard()->setText(m_text->toPlainText()); });
    connect(session, &QObject::destroyed, this, [this] {
        m_timer.stop();
        reject();
    });
    connect(&m_timer, &QTimer::timeout, this, &LossesDialog::Look);
    m_timer.start(Period);
    Look();
}

void LossesDialog::Look()
{
    if (!m_session || !m_session->GetImageWriter())
        return; // it has gone, or is going
    QString const report = LossReport(m_session->GetLosses());
    if (report == m_text->toPlainText() || m_text->textCursor().hasSelection())
        return;
    int const line = m_text->verticalScrollBar()->value();
    m_text->setPlainText(report);
    m_text->verticalScrollBar()->setValue(line);
}
