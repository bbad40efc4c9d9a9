// Work that may take seconds because a camera has stopped answering: Aravis says goodbye to it in several tries.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>

class BackgroundJob
{
public:
    bool IsDone() const
    {
        return m_done.load(std::memory_order_acquire);
    }

private:
    friend class Background;
    std::atomic<bool> m_done{false};
};

// Any thread. The end of the process waits for what still runs.
class Background
{
public:
    // Runs the job on a thread of its own and waits for it, though no longer than `patience`.
    static std::shared_ptr<BackgroundJob const> Run(std::function<void()> job, std::chrono::milliseconds patience);
    static bool Wait(BackgroundJob const &job, std::chrono::milliseconds patience);
};
