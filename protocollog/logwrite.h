// A log on its way into a text file, on a thread of its own: a line each, "hh:mm:ss.zzz channel message".
#pragma once

#include "linestore.h"

#include <QFile>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

// Any thread, one at a time.
class LogWrite
{
public:
    enum class State { Running, Written, Failed, Cancelled };

    // The file is open for writing. With `release` the lines' memory is given back as they are written.
    LogWrite(LineStore lines, std::unique_ptr<QFile> file, bool release);
    // Stops the writing; what is written stays.
    ~LogWrite();
    LogWrite(LogWrite const &) = delete;
    LogWrite &operator=(LogWrite const &) = delete;

    // Ends it, and removes the file.
    void Cancel();
    // False while it still runs after that time.
    bool WaitFor(std::chrono::milliseconds time);
    State GetState();
    std::size_t Count() const
    {
        return m_count;
    }
    std::size_t Written() const // lines so far
    {
        return m_written.load(std::memory_order_relaxed);
    }
    QString Path() const
    {
        return m_path;
    }
    QString Error(); // once it has failed
    // Once it has ended: the lines, unless they were given back.
    LineStore TakeLines();

private:
    void Run();
    bool WriteAll();

    LineStore m_lines;
    std::unique_ptr<QFile> const m_file; // the thread's own while it runs
    QString const m_path;
    std::size_t const m_count;
    bool const m_release;
    std::atomic<std::size_t> m_written{0};
    std::atomic<bool> m_end{false}, m_remove{false};
    std::mutex m_mutex; // guards the three below; alone
    std::condition_variable m_ended;
    State m_state = State::Running;
    QString m_error;
    std::thread m_thread; // last: it uses everything above
};
