// The one thread through which a feature tree talks to its camera. Nobody waits for it: a slow access holds up the
// accesses behind it and nothing else.
#pragma once

#include "tovcameragui.h"

#include <chrono>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

namespace TovGui {

struct FeatureResult
{
    enum class Kind : std::uint8_t { Loaded, Read, Written, Asked };
    Kind kind = Kind::Read;
    std::uint32_t feature = 0;
    std::uint64_t ticket = 0; // Written
    std::int32_t status = 0;
    bool done = false;                                 // Asked: the command has ended
    TovCam::FeatureState state;                        // Read
    std::vector<TovCam::FeatureInfo const *> features; // Loaded, by index
    std::chrono::microseconds cost{};
};

// Calls from one thread, the owner's.
class TOV_CAMERAGUI_API FeatureWorker
{
public:
    // Starts with walking the feature tree, which gives the one result Loaded. `wake` runs on the worker's thread, when
    // there are results again after none; its last run may come after the destructor.
    FeatureWorker(TovCam::ParamArray *params, std::function<void()> wake);
    // Drops what is queued. An access under way ends in its own time, under the array's Hold; it is waited for only
    // where the array gives none.
    ~FeatureWorker();
    FeatureWorker(FeatureWorker const &) = delete;
    FeatureWorker &operator=(FeatureWorker const &) = delete;

    // Queues a write, or a command, after the earlier writes and before all reads. Returns the ticket that comes back
    // with the result. One that only follows a slider may be `replaced` by the next write of the same feature while it
    // waits; it then gives no result.
    std::uint64_t Write(std::uint32_t feature, TovCam::FeatureValue value, bool replaced = false);
    // The reads that are wanted now, in this order, in place of all that wait; one under way is not repeated.
    void SetReads(std::vector<std::uint32_t> const &features);
    // Asks whether a command has ended; once, however often it is called while the question waits.
    void AskDone(std::uint32_t feature);
    // In the order in which they arose.
    std::vector<FeatureResult> TakeResults();

private:
    struct Shared;
    static void Run(std::shared_ptr<Shared> const &shared);

    std::shared_ptr<Shared> m_shared;
    std::thread m_thread;
    std::uint64_t m_tickets = 0;
};

} // namespace TovGui
