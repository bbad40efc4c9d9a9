// Which features of a camera are read, and when: those that can be seen, as soon as they are not known, and again at
// their polling time or once a second. GUI thread only.
#pragma once

#include "featureview.h"
#include "featureworker.h"

#include <QTimer>

namespace TovGui {

// While nothing can be seen, nothing is asked for and the timer is stopped.
class FeaturePolling : public QObject
{
    Q_OBJECT
public:
    FeaturePolling(FeatureModel *model, FeatureView *view, QObject *parent);

    // The worker of a camera that is shown from now on, or null; it lives until the next call.
    void SetWorker(FeatureWorker *worker);
    // Something has changed: looks at once for what is due.
    void Plan();
    // A write or a command is under way.
    void Await(std::uint32_t feature);
    // How long a read took.
    void NoteCost(std::chrono::microseconds cost);

private:
    using milliseconds = std::chrono::milliseconds;
    void Tick();
    milliseconds MarkSlow(std::vector<std::uint32_t> const &due);
    milliseconds FollowCommands(std::vector<std::uint32_t> const &visible);

    FeatureModel *const m_model;
    FeatureView *const m_view;
    FeatureWorker *m_worker = nullptr;
    QTimer m_timer;                       // the next moment when something is due
    std::vector<std::uint32_t> m_awaited; // features with a read or write outstanding
    double m_readCost = 0.0;              // of one read, in milliseconds, smoothed
};

} // namespace TovGui
