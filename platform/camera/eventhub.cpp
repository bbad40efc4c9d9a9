#include "eventhub.h"

#include <algorithm>

int EventHub::IndexOf(std::uint32_t id)
{
    switch (id) {
    case TovCam::EventControlChannel:
        return 0;
    case TovCam::EventStreamChannel:
        return 1;
    case TovCam::EventEventChannel:
        return 2;
    case TovCam::EventConnectionLost:
        return 3;
    case TovCam::EventPacketsMissed:
        return 4;
    }
    return -1;
}

std::int32_t EventHub::Register(std::uint32_t id, TovCam::EventCallback callback, void *user)
{
    int const index = IndexOf(id);
    if (index < 0 || !callback)
        return TOV_CAM_ERR_INVALID_ARGUMENT;
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_subscriptions[index])
        return TOV_CAM_ERR_INVALID_STATE;
    m_subscriptions[index] = std::make_shared<Subscription>(Subscription{callback, user, {}});
    m_subscriptions[index]->inside.reserve(8); // so that reporting an event cannot fail for lack of memory
    m_wanted[index].store(true, std::memory_order_relaxed);
    return TOV_CAM_ERR_OK;
}

std::int32_t EventHub::Unregister(std::uint32_t id, TovCam::EventCallback callback, void *user)
{
    int const index = IndexOf(id);
    return index < 0 ? TOV_CAM_ERR_INVALID_ARGUMENT : Remove(index, callback, user);
}

std::int32_t EventHub::Remove(int index, TovCam::EventCallback callback, void *user)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    std::shared_ptr<Subscription> const subscription = m_subscriptions[index];
    if (!subscription || subscription->callback != callback || subscription->user != user)
        return TOV_CAM_ERR_INVALID_STATE;
    m_subscriptions[index].reset();
    m_wanted[index].store(false, std::memory_order_relaxed);
    std::vector<std::thread::id> const &inside = subscription->inside;
    // Waiting for oneself would never end.
    if (std::find(inside.begin(), inside.end(), std::this_thread::get_id()) == inside.end())
        m_idle.wait(lock, [&inside] { return inside.empty(); });
    return TOV_CAM_ERR_OK;
}

void EventHub::UnregisterAll()
{
    for (int i = 0; i < static_cast<int>(m_subscriptions.size()); ++i) {
        std::shared_ptr<Subscription> subscription;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            subscription = m_subscriptions[i];
        }
        if (subscription)
            Remove(i, subscription->callback, subscription->user);
    }
}

bool EventHub::IsWanted(std::uint32_t id) const
{
    int const index = IndexOf(id);
    return index >= 0 && m_wanted[index].load(std::memory_order_relaxed);
}

void EventHub::Emit(std::uint32_t id, void const *data, std::size_t size)
{
    int const index = IndexOf(id);
    if (index < 0)
        return;
    std::thread::id const self = std::this_thread::get_id();
    std::unique_lock<std::mutex> lock(m_mutex);
    std::shared_ptr<Subscription> const subscription = m_subscriptions[index];
    if (!subscription)
        return;
    subscription->inside.push_back(self);
    lock.unlock();
    subscription->callback(data, size, subscription->user);
    lock.lock();
    std::vector<std::thread::id> &inside = subscription->inside;
    inside.erase(std::find(inside.begin(), inside.end(), self));
    if (inside.empty())
        m_idle.notify_all();
}
