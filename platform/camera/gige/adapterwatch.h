// What the adapter that hears a stream has lost since it was followed first; the system is asked again after a pause at
// the soonest.
//
// Any thread.
#pragma once

#include "doctor/adaptercounts.h"
#include "tovlosses.h"

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>

class AdapterWatch
{
public:
    // By an address of this host, on the way from that camera.
    void Follow(std::uint32_t host, std::uint32_t camera);
    // Fills in what belongs to the adapter.
    void Read(TovCam::StreamLosses &losses);

private:
    using Clock = std::chrono::steady_clock;

    void Look();

    std::mutex m_mutex; // guards all; alone, held while the system is asked
    std::string m_adapter;
    std::uint32_t m_ring = 0, m_largestRing = 0;
    AdapterCounts m_last;   // as the system told
    AdapterCounts m_counts; // since the beginning
    Clock::time_point m_asked;
};
