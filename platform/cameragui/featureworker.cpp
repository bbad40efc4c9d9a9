#include "featureworker.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <mutex>

namespace TovGui {

namespace {

// Threads that outlive their tree in the middle of an access. The end of the process gives them a while, so that the
// camera library is still whole under them.
struct Stragglers
{
    std::mutex mutex; // guards count
    std::condition_variable ended;
    int count = 0;

    static Stragglers &Get()
    {
        static Stragglers *const stragglers = new Stragglers; // outlives all statics
        return *stragglers;
    }
    void Add(int change)
    {
        {
            std::lock_guard const lock(mutex);
            count += change;
        }
        ended.notify_all();
    }
};

struct LastWait
{
    ~LastWait()
    {
        Stragglers &stragglers = Stragglers::Get();
        std::unique_lock lock(stragglers.mutex);
        stragglers.ended.wait_for(lock, std::chrono::seconds(5), [&] { return stragglers.count == 0; });
    }
} s_lastWait;

struct WriteJob
{
    std::uint32_t feature;
    std::uint64_t ticket;
    TovCam::FeatureValue value;
    bool replaced;
};

} // namespace

struct FeatureWorker::Shared
{
    TovCam::ParamArray *params; // set before the thread starts
    std::shared_ptr<void> hold; // likewise; the thread's while it runs
    std::function<void()> wake; // likewise

    std::mutex mutex; // guards all below
    std::condition_variable changed;
    std::deque<WriteJob> writes;
    std::deque<std::uint32_t> asks;
    std::deque<std::uint32_t> reads;
    std::vector<FeatureResult> results;
    bool quit = false;
    bool straggler = false;    // nobody will join it
    bool busy = true;          // in an access
    bool load = true;          // the first job
    std::int64_t reading = -1; // the feature of the read under way

    bool TakeJob(FeatureResult &result, TovCam::FeatureValue &value)
    {
        reading = -1;
        if (load) {
            load = false;
            result.kind = FeatureResult::Kind::Loaded;
        } else if (!writes.empty()) {
            result.kind = FeatureResult::Kind::Written;
            result.feature = writes.front().feature;
            result.ticket = writes.front().ticket;
            value = std::move(writes.front().value);
            writes.pop_front();
        } else if (!asks.empty()) {
            result.kind = FeatureResult::Kind::Asked;
            result.feature = asks.front();
            asks.pop_front();
        } else if (!reads.empty()) {
            result.kind = FeatureResult::Kind::Read;
            result.feature = reads.front();
            reading = result.feature;
            reads.pop_front();
        } else {
            return false;
        }
        return true;
    }

    void Access(FeatureResult &result, TovCam::FeatureValue const &value) const
    {
        switch (result.kind) {
        case FeatureResult::Kind::Loaded: {
            std::uint32_t const count = params->GetFeatureCount();
            for (std::uint32_t i = 0; i < count; ++i)
                result.features.push_back(params->GetFeature(i));
            // A gap would be a fault of the library; nothing after it is shown.
            result.features.erase(std::find(result.features.begin(), result.features.end(), nullptr),
                                  result.features.end());
            break;
        }
        case FeatureResult::Kind::Written:
            result.status = params->WriteFeature(result.feature, value);
            break;
        case FeatureResult::Kind::Asked:
            result.status = params->IsCommandDone(result.feature, &result.done);
            break;
        case FeatureResult::Kind::Read:
            result.status = params->ReadFeature(result.feature, &result.state);
            break;
        }
    }
};

FeatureWorker::FeatureWorker(TovCam::ParamArray *params, std::function<void()> wake)
    : m_shared(std::make_shared<Shared>())
{
    m_shared->params = params;
    m_shared->hold = params->Hold();
    m_shared->wake = std::move(wake);
    m_thread = std::thread([shared = m_shared] { Run(shared); });
}

FeatureWorker::~FeatureWorker()
{
    bool straggler = false;
    {
        std::lock_guard const lock(m_shared->mutex);
        m_shared->quit = true;
        m_shared->writes.clear();
        straggler = m_shared->straggler = m_shared->busy && m_shared->hold;
        if (straggler)
            Stragglers::Get().Add(1);
    }
    m_shared->changed.notify_one();
    if (straggler)
        m_thread.detach();
    else
        m_thread.join();
}

std::uint64_t FeatureWorker::Write(std::uint32_t feature, TovCam::FeatureValue value, bool replaced)
{
    {
        std::lock_guard const lock(m_shared->mutex);
        std::deque<WriteJob> &writes = m_shared->writes;
        // The last one only: an order among features may matter to the camera.
        if (!writes.empty() && writes.back().feature == feature && writes.back().replaced)
            writes.pop_back();
        writes.push_back({feature, ++m_tickets, std::move(value), replaced});
    }
    m_shared->changed.notify_one();
    return m_tickets;
}

void FeatureWorker::SetReads(std::vector<std::uint32_t> const &features)
{
    {
        std::lock_guard const lock(m_shared->mutex);
        m_shared->reads.clear();
        for (std::uint32_t const feature : features) {
            if (feature != m_shared->reading)
                m_shared->reads.push_back(feature);
        }
    }
    m_shared->changed.notify_one();
}

void FeatureWorker::AskDone(std::uint32_t feature)
{
    {
        std::lock_guard const lock(m_shared->mutex);
        std::deque<std::uint32_t> &asks = m_shared->asks;
        if (std::find(asks.begin(), asks.end(), feature) == asks.end())
            asks.push_back(feature);
    }
    m_shared->changed.notify_one();
}

std::vector<FeatureResult> FeatureWorker::TakeResults()
{
    std::lock_guard const lock(m_shared->mutex);
    return std::exchange(m_shared->results, {});
}

void FeatureWorker::Run(std::shared_ptr<Shared> const &shared)
{
    std::unique_lock lock(shared->mutex);
    while (!shared->quit) {
        FeatureResult result;
        TovCam::FeatureValue value;
        shared->busy = shared->TakeJob(result, value);
        if (!shared->busy) {
            shared->changed.wait(lock);
            continue;
        }
        lock.unlock();
        auto const start = std::chrono::steady_clock::now();
        shared->Access(result, value);
        result.cost = std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start);
        lock.lock();
        shared->reading = -1;
        if (shared->quit)
            break;
        shared->results.push_back(std::move(result));
        if (shared->results.size() == 1) {
            lock.unlock();
            shared->wake();
            lock.lock();
        }
    }
    bool const straggler = shared->straggler;
    lock.unlock();
    shared->hold.reset(); // this may be the last reference
    if (straggler)
        Stragglers::Get().Add(-1);
}

} // namespace TovGui
