// The one thread of the process that looks for cameras: enumeration blocks for about a second and is called one at a
// time, also when a dialog was closed in the middle of it and the next one is open already.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace TovGui {

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
