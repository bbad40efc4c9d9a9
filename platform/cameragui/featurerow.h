// All that is known of one feature. GUI thread only.
#pragma once

#include "tovcameragui.h"

#include <QString>

#include <chrono>

namespace TovGui {

struct FeatureRow
{
    using Clock = std::chrono::steady_clock;
    enum class Run : std::uint8_t { Idle, Running, Done }; // of a command

    TovCam::FeatureInfo const *info = nullptr;
    TovCam::FeatureState state; // as last read
    bool known = false;         // read at least once
    bool stale = true;          // to be read as soon as it is visible
    bool slow = false;          // awaited for so long that it is shown
    bool lost = false;          // the last read failed; `state` is from before
    Run run = Run::Idle;
    std::uint64_t ticket = 0;    // of the newest write under way, 0 none
    TovCam::FeatureValue wanted; // what it writes
    QString failure;             // of the last read or write, empty when it went well
    bool writeFailed = false;    // `failure` is a write's
    Clock::time_point read{};    // the last read
    Clock::time_point since{};   // since when it is awaited; zero: it is not
    Clock::time_point acted{};   // command: started, asked, or seen to have ended; write: failed

    bool IsWritable() const
    {
        return known &&
               (state.access == TovCam::FeatureAccess::ReadWrite || state.access == TovCam::FeatureAccess::WriteOnly);
    }
    bool HasValue() const
    {
        return ticket ||
               (known && state.valueStatus == 0 &&
                (state.access == TovCam::FeatureAccess::ReadWrite || state.access == TovCam::FeatureAccess::ReadOnly));
    }
    TovCam::FeatureValue const &Shown() const
    {
        return ticket ? wanted : state.value;
    }
    bool IsAbsent() const
    {
        return known && state.access <= TovCam::FeatureAccess::NotAvailable;
    }
};

} // namespace TovGui
