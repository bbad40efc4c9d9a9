#include "searchthread.h"

#include <QCoreApplication>

namespace TovGui {

SearchThread &SearchThread::Get()
{
    static SearchThread thread;
    return thread;
}

SearchThread::~SearchThread()
{
    Stop();
}

void SearchThread::Post(std::function<void()> job)
{
    {
        std::lock_guard const lock(m_mutex);
        m_jobs.push_back(std::move(job));
    }
    m_wake.notify_one();
    if (!m_thread.joinable()) {
        m_thread = std::thread(&SearchThread::Run, this);
        qAddPostRoutine([] { SearchThread::Get().Stop(); });
    }
}

void SearchThread::Stop()
{
    std::deque<std::function<void()>> dropped;
    {
        std::lock_guard const lock(m_mutex);
        m_quit = true;
        dropped.swap(m_jobs);
    }
    m_wake.notify_one();
    if (m_thread.joinable())
        m_thread.join();
    m_quit = false; // nobody else is left
}

void SearchThread::Run()
{
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_wake.wait(lock, [this] { return m_quit || !m_jobs.empty(); });
        if (m_quit)
            return;
        std::function<void()> job = std::move(m_jobs.front());
        m_jobs.pop_front();
        lock.unlock();
        job();
        job = nullptr; // what it holds goes before the lock is taken
        lock.lock();
    }
}

} // namespace TovGui
