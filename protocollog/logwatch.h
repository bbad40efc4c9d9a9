// Watches over the log of one session: stamps its lines, counts what is missing from it, ends it before the memory runs
// short, and keeps unsaved lines when the camera goes.
//
// Threads: the GUI thread unless noted.
#pragma once

#include "localclock.h"

#include <QObject>
#include <QPointer>
#include <QString>
#include <QTimer>

#include <atomic>
#include <cstddef>
#include <cstdint>

class QMainWindow;
class QtTovLogModel;

class LogWatch : public QObject
{
    Q_OBJECT
public:
    static constexpr double LeastMemory = 0.1; // the share of memory that must be left for more lines

    // The model outlives it.
    LogWatch(QtTovLogModel *model, QMainWindow *window);

    // ---- Any thread: where the lines are made
    // The time of day in milliseconds; looks at the memory once a second, and every so many lines. False where no more
    // lines may be made; the packet counts as missing then.
    bool Stamp(qlonglong &time);
    void NoteNoMemory(); // in the middle of a line
    // Packets since the camera was opened of which no line could be made.
    void NoteMissed(std::uint64_t total);

    // Whether any channel is on.
    void SetLogging(bool on);
    // Asks for a file and writes the lines into it; during a save, cancels it instead.
    void Save();
    bool IsSaving() const;
    // Unsaved lines are put into a file, unless the window is closed or LeaveLines was called.
    void KeepLines();
    // Nobody wants the lines any more.
    void LeaveLines();
    // The packets that are missing from the present lines.
    std::uint64_t Missing() const;
    // What is worth knowing about the log, in a few words.
    QString Report() const;

signals:
    void memoryShort(); // logging has to be switched off

private:
    void Look();
    void Tell();
    void LinesDropped();

    QtTovLogModel *const m_model;
    QPointer<QMainWindow> const m_window;
    LocalClock m_clock; // any thread
    // Any thread, relaxed: nothing depends on their order.
    std::atomic<std::int64_t> m_memorySecond{0}; // when memory was last checked
    std::atomic<std::uint32_t> m_lines{0};
    std::atomic<bool> m_short{false};
    std::atomic<bool> m_failed{false}; // there was no memory for a line
    std::atomic<std::uint64_t> m_missed{0}, m_refused{0};
    // The GUI thread's.
    QTimer m_timer; // while logging
    bool m_logging = false;
    QString m_ended;                  // why logging was switched off
    std::uint64_t m_missedBefore = 0; // of m_missed and m_refused, when the lines were last cleared
    std::size_t m_saved = 0;          // lines from the first on
    std::size_t m_saving = 0;         // what the last save was to write
    bool m_left = false;
    std::uint32_t m_timesDropped = 0; // so that a save of lines that are gone does not count
};
