#include "bwtesting.h"

#include "session.h"

#include <QCoreApplication>
#include <QMessageBox>
#include <QScrollBar>
#include <QTextCursor>
#include <QTimer>

CBWTesting::Waits CBWTesting::s_waits;

CBWTesting::CBWTesting(Session *session, QWidget *parent, Qt::WindowFlags flags)
    : QDialog(parent, flags),
      m_session(session)
{
    m_elapsed.start();
    setupUi(this);
    // The events that the test processes before exec() must not reach the window behind.
    setWindowModality(Qt::ApplicationModal);
    stopCloseButton->setFocus();
    QScrollBar *const bar = teStats->verticalScrollBar();
    connect(bar, &QScrollBar::valueChanged, this, [this, bar](int value) { m_follows = value >= bar->maximum(); });
    connect(bar, &QScrollBar::rangeChanged, this, &CBWTesting::FollowLog);
    Append(tr("Initialization..."));
    show();
    if (session)
        connect(session, &QObject::destroyed, this, &CBWTesting::SessionGone);
    QCoreApplication::processEvents();
    connect(stopCloseButton, &QPushButton::clicked, this, &CBWTesting::slAccept);
    if (!init()) {
        Append(m_error);
        return;
    }
    m_timer = std::make_unique<QTimer>();
    connect(m_timer.get(), &QTimer::timeout, this, &CBWTesting::slCheckQuality, Qt::QueuedConnection);
    m_running = true;
    checkQuality();
}

CBWTesting::~CBWTesting()
{
    if (m_timer) {
        m_timer->stop();
        m_timer->disconnect();
    }
}

int CBWTesting::exec()
{
    return m_done ? result() : QDialog::exec();
}

void CBWTesting::done(int result)
{
    m_done = true;
    QDialog::done(result);
}

void CBWTesting::reject()
{
    if (!m_session && !m_sessionGone)
        QDialog::reject(); // the button does nothing then
    else
        slAccept();
}

void CBWTesting::finalMessage()
{
    QString const finished = tr("Testing is finished. Time elapsed %1 s").arg(m_elapsed.elapsed() / 1000);
    Append(finished);
    m_running = false;
    stopCloseButton->setText(tr("Close"));
    DismissQuestion(); // whether to stop
    if (m_lastGood == m_savedValue)
        return; // the camera holds it already

    QMessageBox box(this);
    box.setText(finished);
    QString const unit = IsPixelClock() ? tr(" MHz") : QString();
    box.setInformativeText(IsPixelClock() ? tr("Which value of Pixel Clock do you want to apply?")
                                          : tr("Which value of Line Time do you want to apply?"));
    box.addButton(tr("Old one = %1").arg(m_savedValue) + unit, QMessageBox::NoRole);
    box.setDefaultButton(box.addButton(tr("Optimized one = %1").arg(m_lastGood) + unit, QMessageBox::YesRole));
    bool const optimized = Ask(box) == 1;
    if (!m_session)
        return;

    std::int64_t const value = optimized ? m_lastGood : m_savedValue;
    std::int32_t const error = SetClock(value);
    Settle(s_waits.applyStep);
    if (!m_session)
        return;
    if (error != 0)
        Append(tr("%1 error").arg(QString::fromStdString(m_clockName)));
    else if (IsPixelClock())
        Append((optimized ? tr("Optimized Pixel Clock was set = %1 MHz") : tr("Old pixel clock was set = %1 MHz"))
                   .arg(value));
    else
        Append((optimized ? tr("Optimized Line Time was set = %1") : tr("Old Line Time was set = %1")).arg(value));
}

void CBWTesting::stopAll()
{
    m_running = false;
    if (m_timer)
        m_timer->disconnect();
    emit m_session->signalStopAcquisition();
    waitForStop();
    stopCloseButton->setText(tr("Close"));
    Append(tr("Test is stopped"));
}

void CBWTesting::slAccept()
{
    if (!m_session) {
        if (m_sessionGone)
            accept();
        return;
    }
    if (!m_running) {
        stopAll();
        accept();
        return;
    }
    QMessageBox box(this);
    box.setText(tr("Test is in processing"));
    box.setInformativeText(tr("Are you sure to stop the test?"));
    box.setDefaultButton(box.addButton(tr("No"), QMessageBox::NoRole));
    box.addButton(tr("Yes"), QMessageBox::YesRole);
    box.addButton(tr("Yes and Close"), QMessageBox::AcceptRole);
    int const answer = Ask(box);
    if (answer == 0 || !m_session)
        return;
    stopAll();
    if (answer == 2)
        accept();
}

// The camera is lost or was disconnected. What the test has found so far stays to be read.
void CBWTesting::SessionGone()
{
    m_sessionGone = true;
    m_grabber = nullptr;
    m_device = nullptr;
    m_params = nullptr;
    if (m_timer) {
        m_timer->stop();
        m_timer->disconnect();
    }
    stopCloseButton->setText(tr("Close"));
    if (m_running)
        Append(tr("Test is stopped"));
    m_running = false;
    DismissQuestion();
}

int CBWTesting::Ask(QMessageBox &box)
{
    box.setIcon(QMessageBox::Question);
    box.setWindowTitle(windowTitle());
    m_question = &box;
    return box.exec();
}

// As by Esc, which is the first button.
void CBWTesting::DismissQuestion()
{
    if (m_question)
        m_question->reject();
}

void CBWTesting::Append(QString const &text)
{
    Append(text, m_normalColor);
}

// With a cursor of its own: what the operator has selected stays, in its colour.
void CBWTesting::Append(QString const &text, QColor const &color)
{
    QTextCursor end(teStats->document());
    end.movePosition(QTextCursor::End);
    QTextCharFormat format;
    format.setForeground(color);
    end.beginEditBlock();
    if (!teStats->document()->isEmpty())
        end.insertBlock();
    end.insertText(text, format);
    end.endEditBlock();
    FollowLog();
}

// The newest line stays in view, also while the window is resized, unless the operator has scrolled back.
void CBWTesting::FollowLog()
{
    if (m_follows)
        teStats->verticalScrollBar()->setValue(teStats->verticalScrollBar()->maximum());
}
