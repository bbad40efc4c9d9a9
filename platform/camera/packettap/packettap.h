// The taps of one camera: reads its packets from a source, on a thread of its own, for as long as somebody has
// subscribed to one of the channels 1000 to 1002.
#pragma once

#include "packetsource.h"

#include "eventhub.h"

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

// Any thread, callbacks included. The hub outlives it.
class PacketTaps
{
public:
    using Opener = std::function<std::unique_ptr<PacketSource>(std::int32_t *status)>;

    // `opener` is called by Register, one call at a time.
    PacketTaps(EventHub &events, Opener opener);
    ~PacketTaps();

    static bool IsPacketChannel(std::uint32_t eventId);
    // As EventHub. The first subscription opens the source and returns its failure; `started`, where not null, says
    // whether it did.
    std::int32_t Register(std::uint32_t id, TovCam::EventCallback callback, void *user, bool *started = nullptr);
    // As EventHub. The last one ends the thread, which has ended on return unless it is the calling one.
    std::int32_t Unregister(std::uint32_t id, TovCam::EventCallback callback, void *user);
    // Whether the caller is in a callback of these channels.
    bool IsOnThread() const;
    // Ends everything. Not from a callback.
    void Close();

private:
    class Tap;
    // Takes what has to be joined, which must not be done under the lock.
    std::vector<std::unique_ptr<Tap>> TakeRetired();

    EventHub &m_events;
    Opener const m_opener;
    std::atomic<std::uint64_t> m_missed{0}; // of all sources

    std::mutex m_mutex; // guards the two below
    std::unique_ptr<Tap> m_tap;
    std::vector<std::unique_ptr<Tap>> m_retired; // ended from their own threads, to be joined by another
};
