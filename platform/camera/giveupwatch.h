// Whether whoever waits for a camera still does.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>

// What is under way when somebody gives up has a moment to come to an end, so that selectors are put back; after that
// no access is worth anything. Any thread.
class GiveUpWatch
{
public:
    static constexpr std::chrono::milliseconds Grace{500};

    // Once.
    void Follow(std::shared_ptr<std::atomic<bool> const> givenUp)
    {
        m_kept = std::move(givenUp);
        m_givenUp.store(m_kept.get(), std::memory_order_release);
    }
    // Nothing new is to be begun.
    bool IsGivenUp() const
    {
        std::atomic<bool> const *const flag = m_givenUp.load(std::memory_order_acquire);
        return flag && *flag;
    }
    // Nothing at all is to be waited for.
    bool IsOver() const
    {
        using Clock = std::chrono::steady_clock;
        if (!IsGivenUp()) {
            m_since.store(0, std::memory_order_relaxed);
            return false;
        }
        std::int64_t const now = Clock::now().time_since_epoch().count();
        std::int64_t since = 0;
        if (m_since.compare_exchange_strong(since, now, std::memory_order_relaxed))
            return false;
        return Clock::duration(now - since) >= Grace;
    }

private:
    std::shared_ptr<std::atomic<bool> const> m_kept; // what m_givenUp is
    std::atomic<std::atomic<bool> const *> m_givenUp{nullptr};
    mutable std::atomic<std::int64_t> m_since{0}; // it was first seen to be given up, by the clock; 0: it is not
};
