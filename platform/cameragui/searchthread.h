// The one thread of the process that looks for cameras: enumeration blocks for about a second and is called one at a
// time, also when a dialog was closed in the middle of it and the next one is open already.
#pragma once

#include "tovcamera.h"

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

class QObject;

namespace TovGui {

// A counted reference to the camera library's system: it stays while a job that uses it runs.
class SystemReference
{
public:
    SystemReference();
    ~SystemReference();
    SystemReference(SystemReference const &) = delete;
    SystemReference &operator=(SystemReference const &) = delete;

private:
    TovCam::System *m_system;
};

// The way back from a job to a receiver that may have gone meanwhile.
class Mailbox
{
public:
    explicit Mailbox(QObject *receiver); // a receiver of the GUI thread
    // Any thread. Runs `call` on the GUI thread later, unless the receiver is gone by then.
    void Post(std::function<void()> call);
    // GUI thread, before the receiver goes.
    void Close();
    bool IsClosed();

private:
    std::mutex m_mutex;  // guards m_receiver
    QObject *m_receiver; // null once closed
};

class SearchThread
{
public:
    // Stopped and joined at the end of the application object, which therefore waits for a job that runs.
    static SearchThread &Get();
    ~SearchThread();

    // Queues a job; starts the thread if need be. Never waits for a job. GUI thread.
    void Post(std::function<void()> job);
    // Drops the queued jobs and joins. GUI thread.
    void Stop();

private:
    SearchThread() = default;
    void Run();

    std::mutex m_mutex; // guards m_jobs and m_quit
    std::condition_variable m_wake;
    std::deque<std::function<void()>> m_jobs;
    bool m_quit = false;
    std::thread m_thread; // GUI thread only
};

} // namespace TovGui
