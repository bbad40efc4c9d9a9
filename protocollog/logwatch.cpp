#include "logwatch.h"

#include "linestore.h"
#include "logfiles.h"
#include "memoryroom.h"
#include "numbertext.h"
#include "qttovlogmodel.h"
#include "tovlog.h"

#include <QFile>
#include <QFileDialog>
#include <QMainWindow>
#include <QMessageBox>

#include <algorithm>
#include <chrono>
#include <memory>

#include <time.h>

namespace {

using namespace std::chrono_literals;

constexpr auto Period = 500ms;

} // namespace

LogWatch::LogWatch(QtTovLogModel *model, QMainWindow *window) : m_model(model), m_window(window)
{
    connect(&m_timer, &QTimer::timeout, this, &LogWatch::Look);
    connect(m_model, &QtTovLogModel::modelReset, this, &LogWatch::LinesDropped);
}

bool LogWatch::Stamp(qlonglong &time)
{
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    time = m_clock.TimeOfDay(now.tv_sec, now.tv_nsec);
    constexpr std::uint32_t LinesBetween = 1u << 14;
    bool look = m_lines.fetch_add(1, std::memory_order_relaxed) % LinesBetween == LinesBetween - 1;
    std::int64_t seen = m_memorySecond.load(std::memory_order_relaxed);
    look |= seen != now.tv_sec && m_memorySecond.compare_exchange_strong(seen, now.tv_sec, std::memory_order_relaxed);
    if (look && MemoryLeft() < LeastMemory)
        m_short.store(true, std::memory_order_relaxed);
    if (!m_short.load(std::memory_order_relaxed))
        return true;
    m_refused.fetch_add(1, std::memory_order_relaxed);
    return false;
}

void LogWatch::NoteNoMemory()
{
    m_refused.fetch_add(1, std::memory_order_relaxed);
    m_failed.store(true, std::memory_order_relaxed);
    m_short.store(true, std::memory_order_relaxed);
}

void LogWatch::NoteMissed(std::uint64_t total)
{
    m_missed.store(total, std::memory_order_relaxed);
}

void LogWatch::SetLogging(bool on)
{
    if (on == m_logging)
        return;
    m_logging = on;
    if (on) {
        m_ended.clear();
        m_failed.store(false, std::memory_order_relaxed);
        m_short.store(false, std::memory_order_relaxed);
        m_memorySecond.store(0, std::memory_order_relaxed);
        LogFiles::Instance().ForgetResult();
        m_timer.start(Period);
    } else {
        m_timer.stop();
    }
    Tell();
}

void LogWatch::Look()
{
    if (m_logging && m_short.load(std::memory_order_relaxed)) {
        QString const why = m_failed.load(std::memory_order_relaxed) ? tr("there was no memory for another line")
                                                                     : tr("less than a tenth of the memory is left");
        emit memoryShort();
        m_ended = tr("Logging was switched off: %1. Save the lines, then clear them").arg(why);
        TovLog::Warning(0, "%s", qPrintable(m_ended));
    }
    Tell();
}

void LogWatch::Tell()
{
    std::uint64_t const missing = Missing();
    if (!m_ended.isEmpty())
        LogFiles::Instance().SetState(NoticeLevel::Warning, m_ended);
    else if (m_logging && missing > 0)
        LogFiles::Instance().SetState(
            NoticeLevel::Warning,
            tr("Packets missing from the log: %1").arg(GroupedNumber(static_cast<qlonglong>(missing))));
    else
        LogFiles::Instance().SetState(NoticeLevel::Info, {});
}

std::uint64_t LogWatch::Missing() const
{
    return m_missed.load(std::memory_order_relaxed) + m_refused.load(std::memory_order_relaxed) - m_missedBefore;
}

void LogWatch::LinesDropped()
{
    m_missedBefore += Missing();
    m_saved = m_saving = 0;
    ++m_timesDropped;
    m_ended.clear();
    Tell();
}

bool LogWatch::IsSaving() const
{
    return LogFiles::Instance().IsSaving(this);
}

void LogWatch::Save()
{
    if (LogFiles::Instance().CancelSave(this))
        return;
    QPointer<LogWatch> const alive(this); // the camera may be lost while the question is open
    QMainWindow *const window = m_window;
    QString const path = QFileDialog::getSaveFileName(window, tr("Save log file"), QString(), tr("Log files (*.log)"));
    if (path.isEmpty() || !alive)
        return;
    LineStore lines = m_model->lines();
    auto file = std::make_unique<QFile>(path);
    if (!file->open(QIODevice::WriteOnly | QIODevice::Text)) {
        QMessageBox::critical(window, tr("Error saving log"), file->errorString(), QMessageBox::Ok);
        return;
    }
    m_saving = lines.Count();
    auto const saved = [this, count = m_saving, times = m_timesDropped] {
        if (times == m_timesDropped)
            m_saved = std::max(m_saved, count);
    };
    LogFiles::Instance().Save(std::move(lines), std::move(file), this, window, saved);
}

void LogWatch::KeepLines()
{
    m_timer.stop();
    LogFiles::Instance().SetState(NoticeLevel::Info, {});
    LineStore lines = m_model->lines();
    std::size_t const saved = IsSaving() ? std::max(m_saved, m_saving) : m_saved; // a save goes on by itself
    if (!m_left && m_window && m_window->isVisible() && lines.Count() > saved)
        LogFiles::Instance().Keep(std::move(lines));
}

void LogWatch::LeaveLines()
{
    m_left = true;
}

QString LogWatch::Report() const
{
    std::uint64_t const missing = Missing();
    QString text = tr("Lines: %1. Packets missing from them: %2.")
                       .arg(GroupedNumber(m_model->rowCount()), GroupedNumber(static_cast<qlonglong>(missing)));
    if (missing > 0)
        text += QLatin1Char('\n') + tr("They came faster than they could be read, or a capture has cut them short.\n"
                                       "Fewer channels, or a slower camera, bring fewer packets.");
    if (!m_ended.isEmpty())
        text += QLatin1Char('\n') + m_ended + QLatin1Char('.');
    return text;
}
