#include "streamwatch.h"

#include <algorithm>

using std::chrono::duration_cast, std::chrono::seconds;

void StreamWatch::Start(Time now, std::int64_t arrived, std::int64_t incomplete)
{
    m_lastFrame = m_lastComplete = now;
    m_interval = {};
    m_hasFrame = false;
    m_arrived = arrived;
    m_complete = arrived - incomplete;
    m_incomplete = incomplete;
}

std::optional<StreamWatch::Silence> StreamWatch::Look(Time now, std::int64_t arrived, std::int64_t incomplete)
{
    if (arrived != m_arrived) {
        m_arrived = arrived;
        if (m_hasFrame)
            m_interval = now - m_lastFrame;
        m_hasFrame = true;
        m_lastFrame = now;
    }
    if (arrived - incomplete != m_complete) {
        m_complete = arrived - incomplete;
        m_lastComplete = now;
        m_incomplete = incomplete;
    }
    // A slow stream, such as one of long exposures, is not silent between its frames.
    auto const patience = std::clamp<Time::duration>(2 * m_interval, Patience, LongestPatience);
    if (now - m_lastFrame >= patience)
        return Silence{duration_cast<seconds>(now - m_lastFrame), 0};
    if (now - m_lastComplete >= Patience && incomplete > m_incomplete)
        return Silence{duration_cast<seconds>(now - m_lastComplete), incomplete - m_incomplete};
    return std::nullopt;
}
