#include "featurepolling.h"

#include <algorithm>
#include <utility>

namespace TovGui {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds AccessPeriod{1000}; // a lock from elsewhere shows after that time
constexpr milliseconds LongestPeriod{60000};
constexpr milliseconds ShownAfter{400};      // what is unanswered by then is marked
constexpr milliseconds PollShownAfter{2000}; // likewise, of a value that is only looked at again
constexpr milliseconds DoneShown{3000};      // the tick on a command's button
constexpr milliseconds AskPeriod{150};       // whether a command has ended
constexpr milliseconds Together{60};         // reads that come due within that time go in one round
constexpr int RestFactor = 4;                // looking again takes at most a quarter of the camera's time

} // namespace

FeaturePolling::FeaturePolling(FeatureModel *model, FeatureView *view, QObject *parent)
    : QObject(parent),
      m_model(model),
      m_view(view)
{
    m_timer.setSingleShot(true);
    connect(&m_timer, &QTimer::timeout, this, &FeaturePolling::Tick);
    connect(view, &FeatureView::seenChanged, this, &FeaturePolling::Plan);
}

void FeaturePolling::SetWorker(FeatureWorker *worker)
{
    m_worker = worker;
    m_awaited.clear();
}

void FeaturePolling::Await(std::uint32_t feature)
{
    if (std::find(m_awaited.begin(), m_awaited.end(), feature) == m_awaited.end())
        m_awaited.push_back(feature);
    Plan();
}

void FeaturePolling::NoteCost(std::chrono::microseconds cost)
{
    m_readCost += (double(cost.count()) / 1000.0 - m_readCost) * 0.2;
}

void FeaturePolling::Plan()
{
    if (m_worker && m_view->isVisible())
        m_timer.start(0);
    else if (m_awaited.empty())
        m_timer.stop();
}

// Asks for what is visible and due, in place of what was asked for before.
void FeaturePolling::Tick()
{
    if (!m_worker)
        return;
    std::vector<std::uint32_t> const visible = m_view->VisibleFeatures();
    auto const now = FeatureRow::Clock::now();
    auto const looked = std::clamp(milliseconds(std::int64_t(m_readCost * RestFactor * double(visible.size()))),
                                   AccessPeriod, LongestPeriod);
    milliseconds next = LongestPeriod;
    std::vector<std::uint32_t> due;
    for (std::uint32_t const feature : visible) {
        FeatureRow const &row = *m_model->Feature(feature);
        auto const polling = milliseconds(row.info->pollingTime);
        auto const period = polling.count() > 0 ? std::min(polling, looked) : looked;
        auto const left = std::chrono::ceil<milliseconds>(row.read + period - now);
        if (row.stale || left <= std::min(Together, period / 2))
            due.push_back(feature);
        else
            next = std::min(next, left);
    }
    // What was never read or was made invalid first, then what waits longest.
    std::stable_sort(due.begin(), due.end(), [this](std::uint32_t a, std::uint32_t b) {
        FeatureRow const &first = *m_model->Feature(a), &second = *m_model->Feature(b);
        return first.stale != second.stale ? first.stale : first.read < second.read;
    });
    m_worker->SetReads(due);
    next = std::min({next, MarkSlow(due), FollowCommands(visible)});
    if (m_view->window()->isMinimized())
        next = std::min(next, AccessPeriod); // nothing reports when it comes back
    if (m_view->isVisible())
        m_timer.start(std::max(next, milliseconds(10)));
}

// Marks what takes long; returns when to look next.
milliseconds FeaturePolling::MarkSlow(std::vector<std::uint32_t> const &due)
{
    std::vector<std::uint32_t> waiting = due;
    for (std::uint32_t const feature : std::exchange(m_awaited, {})) {
        if (std::find(due.begin(), due.end(), feature) != due.end())
            continue;
        if (m_model->Feature(feature)->ticket)
            waiting.push_back(feature);
        else // out of sight, and no longer asked for
            m_model->SetNotAwaited(feature);
    }
    auto const now = FeatureRow::Clock::now();
    for (std::uint32_t const feature : waiting) {
        FeatureRow const &row = *m_model->Feature(feature);
        bool const poll = !row.stale && !row.ticket;
        bool const waits = row.since != FeatureRow::Clock::time_point();
        m_model->SetAwaited(feature, row.slow || (waits && now - row.since > (poll ? PollShownAfter : ShownAfter)));
    }
    m_awaited = std::move(waiting);
    return m_awaited.empty() ? LongestPeriod : milliseconds(200);
}

milliseconds FeaturePolling::FollowCommands(std::vector<std::uint32_t> const &visible)
{
    milliseconds next = LongestPeriod;
    auto const now = FeatureRow::Clock::now();
    for (std::uint32_t const feature : visible) {
        FeatureRow const &row = *m_model->Feature(feature);
        if (row.run == FeatureRow::Run::Idle)
            continue;
        bool const running = row.run == FeatureRow::Run::Running;
        auto const left = std::chrono::ceil<milliseconds>(row.acted + (running ? AskPeriod : DoneShown) - now);
        if (left.count() > 0) {
            next = std::min(next, left);
        } else if (running) {
            m_worker->AskDone(feature);
            m_model->SetAsked(feature);
            next = std::min(next, AskPeriod);
        } else {
            m_model->EndDone(feature);
        }
    }
    return next;
}

} // namespace TovGui
