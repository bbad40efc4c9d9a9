#include "bwtesting.h"

#include "session.h"

#include "tovcamera.h"
#include "tovmisc.h"

#include <QCoreApplication>
#include <QMessageBox>
#include <QScrollBar>
#include <QTextCursor>
#include <QTimer>

#include <algorithm>
#include <chrono>
#include <limits>
#include <thread>

namespace {

constexpr int MostPolls = 150;
constexpr int MostAttempts = 10;
constexpr int SettleSteps = 7;
constexpr std::int32_t MostRepeats = 2;

// Values of the camera's "FamilyID".
enum Family : std::int64_t { FamilyLineTime = 1, FamilyPixelClock = 2 };

void SleepFor(int milliseconds)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

int ToInt(std::int64_t value)
{
    return static_cast<int>(
        std::clamp<std::int64_t>(value, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}

QString Text(std::string const &name)
{
    return QString::fromStdString(name);
}

} // namespace

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

bool CBWTesting::init()
{
    if (!m_session) {
        m_error = tr("Invalid session pointer");
        return false;
    }
    m_grabber = m_session->GetGrabber();
    if (!m_grabber) {
        m_error = tr("Invalid grabber pointer");
        return false;
    }
    emit m_session->signalStopAcquisition();
    waitForStop();

    m_device = m_session->GetDevice();
    m_params = m_device->GetCameraParameters(nullptr);
    std::int32_t error = TOV_CAM_ERR_NO_DEVICE;
    if (m_params)
        m_family = m_params->GetIntegerValue("FamilyID", &error);
    if (error != 0) {
        m_error = tr("Device is not compatible. Test is impossible.");
        return false;
    }
    return ChooseNodes() && ReadRange();
}

bool CBWTesting::ChooseNodes()
{
    auto const choose = [this](char const *first, char const *fallback) {
        std::int32_t status = 0;
        m_params->GetInt(first, &status);
        return std::string(status == 0 ? first : fallback);
    };
    if (m_family == FamilyLineTime) {
        m_clockName = choose("Frame_LineTime", "LineTime");
        m_readBackName = m_clockName;
        labelPC->setText(tr("Line Time"));
        progressPixelClock->setFormat(tr("%v clocks"));
        return true;
    }
    if (m_family == FamilyPixelClock) {
        m_clockName = choose("Frame_PixelClock", "PixelClock");
        m_readBackName = "PixelClockInfo";
        return true;
    }
    m_error = tr("Incorrect FamilyID %1. Device is not compatible. Test is impossible.").arg(m_family);
    return false;
}

bool CBWTesting::ReadRange()
{
    std::int32_t error = 0;
    TovCam::IntParam *const clock = m_params->GetInt(m_clockName.c_str(), &error);
    if (error == TOV_CAM_ERR_GENICAM_UNKNOWN_PARAM || (error == 0 && !clock)) {
        m_error = tr("Unknown parameter. Device is not compatible. Test is impossible.");
        return false;
    }
    // A range that cannot be read leaves nothing to search in.
    if (error == 0)
        m_low = clock->GetMin(&error);
    if (error == 0)
        m_high = clock->GetMax(&error);
    std::int64_t value = 0;
    if (error == 0)
        value = clock->GetValue(&error);
    if (error != 0) {
        m_error = tr("Get %1 error %2. Test is impossible.").arg(Text(m_clockName), QString::number(error));
        return false;
    }
    progressPixelClock->setRange(ToInt(m_low), ToInt(m_high));
    m_current = std::max(std::min(value, m_high), m_low);
    progressPixelClock->setValue(ToInt(m_current));
    m_savedValue = m_lastGood = m_current;
    Append(tr("Saved init value = %1").arg(m_savedValue));
    return true;
}

void CBWTesting::checkQuality()
{
    if (!m_running) {
        Append(tr("Test is stopped"));
        return;
    }
    if (!m_params || !m_session)
        return;
    for (int attempt = 0; attempt < MostAttempts && !SetAndReadBack(); ++attempt) {
        if (!m_running)
            return; // stopped or lost while the camera settled: nothing may be started any more
        // In both families, although higher line times are the slower ones: with those, the next attempt is at a faster
        // value.
        m_high = m_current;
        SleepFor(s_waits.retry);
    }
    emit m_session->signalStartAcquisition();
    waitForStart();
    ReadCounters(&m_incompleteAtStart, &m_acquiredAtStart);
    Append(tr("Start waiting..."));
    m_timer->start(s_waits.probe);
}

bool CBWTesting::SetAndReadBack()
{
    m_halfRange = (m_high - m_low) / 2;
    m_current = IsPixelClock() ? m_high - m_halfRange : m_low + m_halfRange;
    std::int32_t error = m_params->SetIntegerValue(m_clockName.c_str(), m_current);
    if (!Settle(s_waits.settleStep))
        return false;
    if (error != 0) {
        Append(tr("Set %1 error %2").arg(Text(m_clockName), QString::number(error)));
        return false;
    }
    std::int64_t const value = m_params->GetIntegerValue(m_readBackName.c_str(), &error);
    if (error != 0) {
        Append(tr("Get %1 error").arg(Text(m_readBackName)));
        return false;
    }
    if (value == m_current)
        return true;
    Append(tr("Returned incorrect %1 = %2, needed %3")
               .arg(Text(m_readBackName), QString::number(value), QString::number(m_current)));
    return false;
}

void CBWTesting::slCheckQuality()
{
    if (m_timer)
        m_timer->stop();
    if (!m_running) {
        Append(tr("Test is stopped"));
        return;
    }
    if (!m_grabber || !m_session)
        return;
    std::int64_t incomplete = 0;
    std::int64_t acquired = 0;
    ReadCounters(&incomplete, &acquired);
    incomplete -= m_incompleteAtStart;
    acquired -= m_acquiredAtStart;
    double speed = 0.0;
    m_grabber->GetParamFloat("Speed", &speed);
    emit m_session->signalStopAcquisition();
    waitForStop();
    Append(tr("[%1 .. %2] curClockValue = %3  range/2 = %4").arg(m_low).arg(m_high).arg(m_current).arg(m_halfRange));
    if (incomplete == 0 && acquired > 0)
        Pass(acquired, speed);
    else
        Fail(incomplete, acquired, speed);
}

void CBWTesting::Pass(std::int64_t acquired, double speed)
{
    progressPixelClock->setValue(ToInt(m_current));
    progressSpeed->setValue(static_cast<int>(speed));
    m_lastGood = m_current;
    Append(tr("Acceptable parameters. Acquired Frames= %1 , Speed = %2 MB/s, Clock Value = %3")
               .arg(acquired)
               .arg(speed, 0, 'f', 1)
               .arg(m_current),
           m_goodColor);
    if (!ProcessEvents())
        return;
    if (m_halfRange < 1) {
        finalMessage();
        return;
    }
    (IsPixelClock() ? m_low : m_high) = m_current;
    checkQuality();
}

void CBWTesting::Fail(std::int64_t incomplete, std::int64_t acquired, double speed)
{
    Append(tr("Nonworking parameters. Incomplete frames  = %1, Acquired Frames = %2, Speed = %3 MB/s, "
              "Clock Value= %4")
               .arg(incomplete)
               .arg(acquired)
               .arg(speed, 0, 'f', 1)
               .arg(m_current));
    if (!ProcessEvents())
        return;
    std::int32_t const error = m_params->SetIntegerValue(m_clockName.c_str(), m_lastGood);
    if (!Settle(s_waits.restoreStep))
        return;
    if (error != 0) {
        // The test stays as it is until the operator stops it.
        Append(tr("%1 error").arg(Text(m_clockName)));
        return;
    }
    Append(tr("Last good pixel clock was set = %1").arg(m_lastGood)); // of a line time as well
    if (!ProcessEvents())
        return;
    if (m_halfRange < 1) {
        finalMessage();
        return;
    }
    if (acquired == 0 && m_repeatCount < MostRepeats) {
        Append(tr("\nAcquired 0 frames. Try to repeat %1").arg(m_repeatCount + 1));
        checkQuality();
        ++m_repeatCount;
        return;
    }
    m_repeatCount = 0; // and nowhere else: a probe that passes keeps the count
    (IsPixelClock() ? m_high : m_low) = m_current;
    checkQuality();
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
    std::int32_t const error = m_params->SetIntegerValue(m_clockName.c_str(), value);
    Settle(s_waits.applyStep);
    if (!m_session)
        return;
    if (error != 0)
        Append(tr("%1 error").arg(Text(m_clockName)));
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

bool CBWTesting::waitForStop()
{
    return WaitFor(SessionStateIdle, QT_TR_NOOP("Good stop wait %1 ms"), QT_TR_NOOP("Timeout stop wait"));
}

bool CBWTesting::waitForStart()
{
    return WaitFor(SessionStateAcquisition, QT_TR_NOOP("\nGood start wait %1 ms"), QT_TR_NOOP("\nTimeout start wait"));
}

// Processes no events: the state machine makes its transition inside the firing of the signal.
bool CBWTesting::WaitFor(std::int64_t state, char const *good, char const *timeout)
{
    for (int sleeps = 1; m_session && sleeps <= MostPolls; ++sleeps) {
        SleepFor(s_waits.poll);
        if (m_session->GetState() == state) {
            Append(tr(good).arg(s_waits.poll * sleeps));
            return true;
        }
    }
    Append(tr(timeout));
    return false;
}

bool CBWTesting::Settle(int step)
{
    bool const running = m_running;
    for (int i = 0; i < SettleSteps && m_session && m_running == running; ++i) {
        SleepFor(step);
        ProcessEvents();
    }
    return m_running && m_session;
}

bool CBWTesting::ProcessEvents()
{
    QCoreApplication::processEvents();
    return m_running && m_session;
}

bool CBWTesting::IsPixelClock() const
{
    return m_family == FamilyPixelClock;
}

void CBWTesting::ReadCounters(std::int64_t *incomplete, std::int64_t *acquired)
{
    long count = 0;
    m_grabber->GetParamInt("FramesIncomp", &count);
    *incomplete = count;
    m_grabber->GetParamInt("FramesAcquired", &count);
    *acquired = count;
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
