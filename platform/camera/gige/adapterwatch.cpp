#include "adapterwatch.h"

#include "doctor/hoststate.h"
#include "hostfacts.h"
#include "protocol/socketaddress.h"

#include <algorithm>

namespace {

using namespace std::chrono_literals;

constexpr auto Pause = 2ms; // a stream that loses each frame must not spend its time here

} // namespace

void AdapterWatch::Follow(std::uint32_t host, std::uint32_t camera)
{
    // What goes to an address of this host does not leave it.
    std::string const name = FindAdapter(AddressText(camera)).empty() ? FindAdapter(AddressText(host)) : "lo";
    AdapterState adapter;
    if (auto const all = MakeSystemCalls().listAdapters()) {
        for (AdapterState const &one : *all) {
            if (one.name == name)
                adapter = one;
        }
    }
    std::lock_guard const lock(m_mutex);
    m_adapter = name;
    m_ring = adapter.ring;
    m_largestRing = adapter.largestRing;
    m_last = ReadAdapterCounts(m_adapter).value_or(AdapterCounts());
    m_asked = Clock::now();
}

// An adapter that has gone has lost no more than it had, and one that has come anew counts from 0.
void AdapterWatch::Look()
{
    AdapterCounts const now = ReadAdapterCounts(m_adapter).value_or(m_last);
    for (auto const count :
         {&AdapterCounts::noRoom, &AdapterCounts::dropped, &AdapterCounts::damaged, &AdapterCounts::linkLosses})
        m_counts.*count += now.*count - std::min(now.*count, m_last.*count);
    m_last = now;
}

void AdapterWatch::Read(TovCam::StreamLosses &losses)
{
    std::lock_guard const lock(m_mutex);
    Clock::time_point const now = Clock::now();
    if (now - m_asked >= Pause) {
        m_asked = now;
        Look();
    }
    losses.adapter = m_adapter;
    losses.adapterNoRoom = m_counts.noRoom;
    losses.adapterDropped = m_counts.dropped;
    losses.adapterDamaged = m_counts.damaged;
    losses.linkLosses = m_counts.linkLosses;
    losses.ring = m_ring;
    losses.largestRing = m_largestRing;
}
