// The subscribers to a camera's events.
#pragma once

#include "tovcamera.h"

#include <array>
#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

// Subscriptions of one device. Any thread. No lock is held while a callback runs.
class EventHub
{
public:
    // One subscription per event id; a second one is refused with TOV_CAM_ERR_INVALID_STATE.
    std::int32_t Register(std::uint32_t id, TovCam::EventCallback callback, void *user);
    // Waits until a running callback of the subscription has returned, unless called from within it.
    std::int32_t Unregister(std::uint32_t id, TovCam::EventCallback callback, void *user);
    void UnregisterAll();
    // One relaxed load: whether making a packet for that channel is worth it.
    bool IsWanted(std::uint32_t id) const;
    void Emit(std::uint32_t id, void const *data, std::size_t size);

private:
    struct Subscription
    {
        TovCam::EventCallback callback;
        void *user;
        std::vector<std::thread::id> inside; // threads in the callback, one entry a call; guarded by the hub's mutex
    };
    // -1 for an unknown id.
    static int IndexOf(std::uint32_t id);
    std::int32_t Remove(int index, TovCam::EventCallback callback, void *user);

    std::mutex m_mutex; // guards the subscriptions
    std::condition_variable m_idle;
    std::array<std::shared_ptr<Subscription>, 5> m_subscriptions; // 1000, 1001, 1002, 1004, 1005
    std::array<std::atomic<bool>, 5> m_wanted{};
};
