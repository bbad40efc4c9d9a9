// Waiting for what other threads do, instead of for a time that is long enough on most days.
#pragma once

#include "wait.h"

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <string>
#include <thread>
#include <unistd.h>

// Looks until it holds; false after a generous time.
template<class Condition>
bool Becomes(Condition const &holds)
{
    for (auto const end = std::chrono::steady_clock::now() + Patience; !holds(); std::this_thread::yield()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
    }
    return true;
}

// As a thread does in a wait, and for a moment before a lock that is taken.
inline bool OthersSleep()
{
    std::string const self = std::to_string(gettid());
    for (auto const &task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream file(task.path() / "stat");
        std::string stat;
        if (task.path().filename() == self || !std::getline(file, stat))
            continue;                                   // or it has ended
        std::size_t const state = stat.rfind(") ") + 2; // behind the name, which may hold anything
        if (stat.compare(state, 1, "S") != 0)
            return false;
    }
    return true;
}

// Once every other thread of the process sleeps, what wakes one of them is what the test does next. False when they
// do not come to rest.
inline bool OthersFallAsleep()
{
    int looks = 0;
    return Becomes([&looks] { return (looks = OthersSleep() ? looks + 1 : 0) == 5; });
}

// Whether a call on another thread comes back.
template<class Future>
bool Returns(Future const &call)
{
    return call.wait_for(Patience) == std::future_status::ready;
}

template<class Future>
bool IsUnderWay(Future const &call)
{
    return call.wait_for(std::chrono::seconds(0)) == std::future_status::timeout;
}

// Where a thread of the code under test waits as long as the test wants. Open at first.
class Gate
{
public:
    void Close()
    {
        m_closed = true;
    }
    void Open()
    {
        m_closed = false;
        m_closed.notify_all();
    }
    // Opens it once every other thread sleeps: the one in the gate, and those that wait for it, such as the test's own.
    // `before` is a look at what has not happened by then.
    template<class Before>
    std::future<void> OpenOnceAllSleep(Before before)
    {
        return std::async(std::launch::async, [this, before] {
            OthersFallAsleep();
            before();
            Open();
        });
    }
    void Pass()
    {
        ++m_reached;
        m_closed.wait(true);
    }
    int Reached() const // so many times
    {
        return m_reached;
    }

private:
    std::atomic<bool> m_closed{false};
    std::atomic<int> m_reached{0};
};
