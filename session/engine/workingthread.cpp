#include "workingthread.h"

#include "tovlog.h"

WorkingThread::WorkingThread() : WorkingThread("Nameless")
{
}

WorkingThread::WorkingThread(std::string const &name) : m_name(name)
{
    m_thread = std::make_unique<std::thread>(&WorkingThread::DoWork, this);
}

WorkingThread::~WorkingThread()
{
    Terminate();
}

bool WorkingThread::Start()
{
    if (m_bStart) {
        TovLog::Error(0, "WorkingThread::Start: Invalid state: m_bStart==true");
        return false;
    }
    if (!m_thread->joinable())
        return false;
    {
        // A worker that has cleared m_bStart itself may still be in its last pass, and nobody has taken its report.
        std::unique_lock lock(m_stopMutex);
        m_stopCondition.wait(lock, [this] { return !m_busy; });
        m_stopped = false;
        m_busy = true;
    }
    {
        std::lock_guard const lock(m_startMutex);
        m_startRequested = true;
        m_bStart = true;
    }
    m_startCondition.notify_all();
    return true;
}

int WorkingThread::Stop()
{
    if (!m_bStart) {
        TovLog::Error(0, "WorkingThread::Start: Invalid state: m_bStart==false");
        // A worker that ended by itself may still be in its last pass; what that uses must stay until it is over.
        std::unique_lock lock(m_stopMutex);
        m_stopCondition.wait(lock, [this] { return !m_busy; });
        return 0;
    }
    {
        std::lock_guard const lock(m_startMutex);
        m_bStart = false;
    }
    m_startCondition.notify_all();
    std::unique_lock lock(m_stopMutex);
    m_stopCondition.wait(lock, [this] { return m_stopped; });
    m_stopped = false;
    return 1;
}

void WorkingThread::Terminate()
{
    if (!m_thread->joinable())
        return;
    m_terminate = true;
    if (m_bStart)
        Stop();
    else
        Start();
    m_thread->join();
    m_bStart = false;
    m_busy = false;
    m_stopped = false;
}

void WorkingThread::DoWork()
{
    for (;;) {
        {
            std::unique_lock lock(m_startMutex);
            m_startCondition.wait(lock, [this] { return m_startRequested; });
            m_startRequested = false;
        }
        if (!m_terminate) {
            while (m_bStart)
                Work();
        }
        {
            std::lock_guard const lock(m_stopMutex);
            m_stopped = true;
            m_busy = false;
        }
        m_stopCondition.notify_all();
        // Whoever has started the next pass by now may wait for its end.
        std::lock_guard const lock(m_startMutex);
        if (m_terminate && !m_startRequested)
            return;
    }
}
