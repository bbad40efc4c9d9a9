#include "recordingreport.h"

#include "numbertext.h"

#include <QCoreApplication>
#include <QDir>
#include <QLocale>

#include <algorithm>
#include <utility>

namespace {

// Reasons that are reported apart from each other.
constexpr std::size_t MostReasons = 4;

QString Clock(std::chrono::seconds elapsed)
{
    using namespace std::chrono;
    auto const hours = duration_cast<std::chrono::hours>(elapsed);
    auto const minutes = duration_cast<std::chrono::minutes>(elapsed - hours);
    auto const seconds = elapsed - hours - minutes;
    QString const tail = QStringLiteral("%1").arg(seconds.count(), 2, 10, QLatin1Char('0'));
    if (hours.count() == 0)
        return QStringLiteral("%1:%2").arg(minutes.count()).arg(tail);
    return QStringLiteral("%1:%2:%3").arg(hours.count()).arg(minutes.count(), 2, 10, QLatin1Char('0')).arg(tail);
}

} // namespace

RecordingReport::RecordingReport()
{
    connect(&m_timer, &QTimer::timeout, this, &RecordingReport::Look);
}

void RecordingReport::Begin(bool snap, std::function<RecordingLedger()> soFar)
{
    {
        std::lock_guard const lock(m_mutex);
        m_noted.clear();
        m_notedFree = -1;
        m_notedCompanions.clear();
    }
    m_snap = snap;
    m_soFar = std::move(soFar);
    m_begin = std::chrono::steady_clock::now();
    m_running = true;
    if (QCoreApplication::instance()) // without one nobody looks
        m_timer.start(Period);
    Look();
}

void RecordingReport::End(RecordingLedger const &ledger)
{
    if (!m_running)
        return;
    m_elapsed = std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - m_begin);
    m_running = false;
    m_soFar = nullptr;
    m_timer.stop();
    m_ledger = ledger;
    TakeFailures();
    Reconcile();
    Tell();
}

void RecordingReport::Forget()
{
    if (!m_running)
        return;
    m_running = false;
    m_soFar = nullptr;
    m_timer.stop();
    m_failures.clear();
    m_ledger = {};
    NoticeBoard::Instance().Withdraw(NoticeTopic::Recording);
    emit changed();
}

bool RecordingReport::Failed(std::int64_t frames, RecordingFailure const &failure)
{
    {
        std::lock_guard const lock(m_mutex);
        auto const same = std::find_if(m_noted.begin(), m_noted.end(),
                                       [&](Failures const &other) { return other.failure.reason == failure.reason; });
        if (same != m_noted.end() || m_noted.size() == MostReasons) {
            (same != m_noted.end() ? *same : m_noted.back()).frames += frames;
            return false; // shown with the next look
        }
        m_noted.push_back({failure, frames});
    }
    QMetaObject::invokeMethod(this, &RecordingReport::Look, Qt::QueuedConnection);
    return true;
}

void RecordingReport::SetCompanionFailure(QString const &why)
{
    std::lock_guard const lock(m_mutex);
    m_notedCompanions = why;
}

void RecordingReport::ShowCompanionFailure(QString const &why)
{
    SetCompanionFailure(why);
    m_companions = why;
    Tell();
}

void RecordingReport::SetFreeBytes(std::int64_t bytes)
{
    std::lock_guard const lock(m_mutex);
    m_notedFree = bytes;
}

bool RecordingReport::IsRunning() const
{
    return m_running;
}

RecordingLedger const &RecordingReport::GetLedger() const
{
    return m_ledger;
}

bool RecordingReport::IsPlaceRefused() const
{
    return std::any_of(m_failures.begin(), m_failures.end(),
                       [](Failures const &failures) { return !failures.failure.file.isEmpty(); });
}

void RecordingReport::Look()
{
    if (!m_running)
        return;
    m_elapsed = std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - m_begin);
    m_ledger = m_soFar();
    TakeFailures();
    Tell();
}

void RecordingReport::TakeFailures()
{
    {
        std::lock_guard const lock(m_mutex);
        m_failures = m_noted;
        m_free = m_notedFree;
        m_companions = m_notedCompanions;
    }
    if (!m_running)
        return;
    m_ledger.failed = 0;
    for (Failures const &failures : m_failures)
        m_ledger.failed += failures.frames;
}

// A frame that was refused may have got into the file all the same, with what the encoder gave at the end.
void RecordingReport::Reconcile()
{
    std::int64_t tooMany = -m_ledger.failed;
    for (Failures const &failures : m_failures)
        tooMany += failures.frames;
    while (tooMany > 0 && !m_failures.empty()) {
        std::int64_t const taken = std::min(tooMany, m_failures.back().frames);
        m_failures.back().frames -= taken;
        tooMany -= taken;
        if (m_failures.back().frames == 0)
            m_failures.pop_back();
    }
}

QString RecordingReport::GetFailures() const
{
    QStringList parts;
    for (auto const &[failure, frames] : m_failures) {
        QString const why = failure.file.isEmpty()
                                ? failure.reason
                                : QStringLiteral("%1 (%2)").arg(failure.reason, QDir::toNativeSeparators(failure.file));
        parts += frames > 0 ? tr("%1 failed: %2").arg(GroupedNumber(frames), why) : tr("closing failed: %1").arg(why);
    }
    return parts.join(QStringLiteral(", "));
}

std::vector<std::pair<QString, std::int64_t>> RecordingReport::GetReasons() const
{
    std::vector<std::pair<QString, std::int64_t>> reasons;
    reasons.reserve(m_failures.size());
    for (auto const &[failure, frames] : m_failures)
        reasons.emplace_back(failure.reason, frames);
    return reasons;
}

QStringList RecordingReport::Parts() const
{
    RecordingLedger const &l = m_ledger;
    QStringList parts;
    QString const saved =
        l.savedIncomplete > 0
            ? tr("%1 saved (%2 of them incomplete)").arg(GroupedNumber(l.saved), GroupedNumber(l.savedIncomplete))
            : tr("%1 saved").arg(GroupedNumber(l.saved));
    QString const failed = GetFailures();
    // While recording, what is wrong comes first; the ledger keeps its order.
    parts += m_running && !failed.isEmpty() ? QStringList{failed, saved} : QStringList{saved};
    if (!m_running && (!failed.isEmpty() || !m_snap))
        parts += failed.isEmpty() ? tr("0 failed") : failed;
    if (m_snap)
        return parts; // the others were not asked for
    if (!m_running || l.missing > 0)
        parts += tr("%1 missing").arg(GroupedNumber(l.missing));
    if (!m_running || l.droppedSW > 0)
        parts += tr("%1 dropped here").arg(GroupedNumber(l.droppedSW));
    if (l.unwanted > 0)
        parts += tr("%1 not wanted").arg(GroupedNumber(l.unwanted));
    if (l.queued > 0)
        parts += tr("%1 given up at the stop").arg(GroupedNumber(l.queued));
    if (m_running && m_free >= 0)
        parts += tr("%1 free").arg(QLocale().formattedDataSize(m_free, 1, QLocale::DataSizeTraditionalFormat));
    return parts;
}

QString RecordingReport::Text() const
{
    QString const parts = Parts().join(QStringLiteral(", "));
    QString const text = m_snap      ? tr("Snap: %1").arg(parts)
                         : m_running ? tr("Recording %1: %2").arg(Clock(m_elapsed), parts)
                                     : tr("Recording ended after %1: %2").arg(Clock(m_elapsed), parts);
    if (m_running && IsPlaceRefused())
        return tr("%1. Make room, or choose another folder or name").arg(text);
    return m_companions.isEmpty() ? text : tr("%1. The files beside it are not whole: %2").arg(text, m_companions);
}

void RecordingReport::Tell()
{
    NoticeBoard::Instance().Post(NoticeTopic::Recording, Level(), Text());
    emit changed();
}

NoticeLevel RecordingReport::Level() const
{
    if (!m_failures.empty())
        return NoticeLevel::Error;
    if (!m_companions.isEmpty() || (m_snap ? m_ledger.savedIncomplete > 0 : !m_ledger.IsWhole()))
        return NoticeLevel::Warning;
    return NoticeLevel::Info;
}
