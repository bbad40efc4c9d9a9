// The search of the bandwidth test: what it asks of the camera, and how it judges a probe.
#include "bwtesting.h"

#include "session.h"
#include "waitingaction.h"

#include "tovcamera.h"
#include "tovmisc.h"

#include <QCoreApplication>
#include <QTimer>

#include <algorithm>
#include <chrono>
#include <limits>
#include <thread>

namespace {

constexpr int MostPolls = 150;
constexpr int MostAttempts = 10;
constexpr int SettleSteps = 7;
constexpr int LongestSleep = 50; // without events, in milliseconds
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

// A call of the camera library. None is left out: once given up, it refuses.
template<typename F>
auto WaitForCamera(F const &call)
{
    return WaitFor(call, IfGivenUp::CallAllTheSame);
}

QString Text(std::string const &name)
{
    return QString::fromStdString(name);
}

} // namespace

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
    bool fit = false;
    m_session->Wait(tr("Asking %1 for its clock").arg(m_session->GetPlainName()), [&] { fit = ReadCamera(); });
    return fit;
}

bool CBWTesting::ReadCamera()
{
    std::int32_t error = TOV_CAM_ERR_NO_DEVICE;
    if (m_params)
        m_family = WaitForCamera([&] { return m_params->GetIntegerValue("FamilyID", &error); });
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
        WaitForCamera([&] { return m_params->GetInt(first, &status); });
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
    TovCam::IntParam *const clock = WaitForCamera([&] { return m_params->GetInt(m_clockName.c_str(), &error); });
    if (error == TOV_CAM_ERR_GENICAM_UNKNOWN_PARAM || (error == 0 && !clock)) {
        m_error = tr("Unknown parameter. Device is not compatible. Test is impossible.");
        return false;
    }
    // A range that cannot be read leaves nothing to search in.
    if (error == 0)
        m_low = WaitForCamera([&] { return clock->GetMin(&error); });
    if (error == 0)
        m_high = WaitForCamera([&] { return clock->GetMax(&error); });
    std::int64_t value = 0;
    if (error == 0)
        value = WaitForCamera([&] { return clock->GetValue(&error); });
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
        if (!Pause(s_waits.retry))
            return;
    }
    emit m_session->signalStartAcquisition();
    waitForStart();
    ReadCounters(&m_incompleteAtStart, &m_acquiredAtStart);
    Append(tr("Start waiting..."));
    m_timer->start(s_waits.probe);
}

std::int32_t CBWTesting::SetClock(std::int64_t value)
{
    std::int32_t error = 0;
    m_session->Wait(tr("Setting the clock of %1").arg(m_session->GetPlainName()), [&] {
        error = WaitForCamera([&] { return m_params->SetIntegerValue(m_clockName.c_str(), value); });
    });
    return error;
}

bool CBWTesting::SetAndReadBack()
{
    m_halfRange = (m_high - m_low) / 2;
    m_current = IsPixelClock() ? m_high - m_halfRange : m_low + m_halfRange;
    std::int32_t error = SetClock(m_current);
    if (!Settle(s_waits.settleStep))
        return false;
    if (error != 0) {
        Append(tr("Set %1 error %2").arg(Text(m_clockName), QString::number(error)));
        return false;
    }
    std::int64_t value = 0;
    m_session->Wait(tr("Reading the clock of %1").arg(m_session->GetPlainName()), [&] {
        value = WaitForCamera([&] { return m_params->GetIntegerValue(m_readBackName.c_str(), &error); });
    });
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
    if (WaitingAction::IsWaiting()) { // a lost camera's end
        WaitingAction::WhenOver(this, [this] { slCheckQuality(); });
        return;
    }
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
    std::int32_t const error = SetClock(m_lastGood);
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

bool CBWTesting::waitForStop()
{
    return WaitForState(SessionStateIdle, QT_TR_NOOP("Good stop wait %1 ms"), QT_TR_NOOP("Timeout stop wait"));
}

bool CBWTesting::waitForStart()
{
    return WaitForState(SessionStateAcquisition, QT_TR_NOOP("\nGood start wait %1 ms"),
                        QT_TR_NOOP("\nTimeout start wait"));
}

// Nothing else happens meanwhile: the state machine makes its transition inside the firing of the signal.
bool CBWTesting::WaitForState(std::int64_t state, char const *good, char const *timeout)
{
    int sleeps = 0;
    bool reached = false;
    auto const poll = [&] {
        while (!reached && sleeps < MostPolls && !WaitingAction::IsCurrentGivenUp()) {
            WaitForCamera([] { SleepFor(s_waits.poll); });
            ++sleeps;
            reached = m_session->GetState() == state;
        }
    };
    if (m_session)
        m_session->Wait(tr("Waiting for %1").arg(m_session->GetPlainName()), poll);
    Append(reached ? tr(good).arg(s_waits.poll * sleeps) : tr(timeout));
    return reached;
}

bool CBWTesting::Pause(int milliseconds)
{
    bool const running = m_running;
    int left = milliseconds;
    do {
        SleepFor(std::min(left, LongestSleep));
        left -= LongestSleep;
        ProcessEvents();
    } while (left > 0 && m_session && m_running == running);
    return m_running && m_session;
}

bool CBWTesting::Settle(int step)
{
    bool const running = m_running;
    for (int i = 0; i < SettleSteps && m_session && m_running == running; ++i)
        Pause(step);
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
