// A restartable worker: the thread is created with the object and sleeps between Start and Stop.
#pragma once

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

class WorkingThread
{
public:
    WorkingThread();
    explicit WorkingThread(std::string const &name);
    // Terminates. The derived part is gone by then: an owner that overrides Stop stops the worker first.
    virtual ~WorkingThread();
    WorkingThread(WorkingThread const &) = delete;
    WorkingThread &operator=(WorkingThread const &) = delete;

    // Owner's thread. False, with a log line, when it runs already; false after Terminate.
    bool Start();
    // Owner's thread. Returns after the pass under way has ended; zero, with a log line, when it does not run.
    virtual int Stop();
    // Owner's thread. Ends the worker for good and joins it.
    void Terminate();

protected:
    // One pass of the job, called again and again while m_bStart is set. It returns in bounded time, or the owner's
    // Stop wakes it. It may clear m_bStart, which ends the passes until the next start.
    virtual void Work() = 0;

    std::unique_ptr<std::thread> m_thread;
    std::condition_variable m_startCondition;
    std::mutex m_startMutex;           // orders changes of m_bStart against the worker's wait
    std::atomic<bool> m_bStart{false}; // written under m_startMutex, read between passes without it
    std::condition_variable m_stopCondition;
    std::mutex m_stopMutex; // guards m_stopped
    bool m_stopped = false; // the worker has left its passes
    std::atomic<bool> m_terminate{false};
    std::string m_name;

private:
    void DoWork();

    bool m_startRequested = false; // m_startMutex; survives a Stop that comes before the worker has woken
    bool m_busy = false;           // m_stopMutex; from Start until the worker has reported that it stopped
};
