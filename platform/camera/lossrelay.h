// How a device hears that its camera is lost, from a thread that may outlive it.
#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

// Shared by the device and whoever tells. Any thread.
class LossRelay
{
public:
    // `told` is called without a lock, one call at a time, until Close.
    explicit LossRelay(std::function<void()> told) : m_told(std::move(told))
    {
    }

    void Notify()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_idle.wait(lock, [this] { return m_inside == std::thread::id(); });
        if (!m_told)
            return;
        m_inside = std::this_thread::get_id();
        lock.unlock();
        m_told(); // stays as long as somebody is inside
        lock.lock();
        m_inside = {};
        m_idle.notify_all();
    }
    bool IsInside()
    {
        std::lock_guard<std::mutex> const lock(m_mutex);
        return m_inside == std::this_thread::get_id();
    }
    // Waits for a call that is under way; none comes later. Not from within one.
    void Close()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_idle.wait(lock, [this] { return m_inside == std::thread::id(); });
        m_told = nullptr;
    }

private:
    std::mutex m_mutex; // guards the rest
    std::condition_variable m_idle;
    std::function<void()> m_told;
    std::thread::id m_inside; // the thread in m_told
};
