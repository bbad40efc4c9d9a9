// An opening under way, as the library sees it: how far it is, and whether it is to go on.
#pragma once

#include "tovcamera.h"

#include <chrono>
#include <cstdint>

// Made by the thread that opens; its questions may come from any.
class OpenWatch
{
public:
    // Far more than a camera with a large description and a slow network needs.
    static constexpr std::chrono::seconds Limit{60};

    // `progress` is null where nobody waits for it; it outlives this object otherwise.
    explicit OpenWatch(TovCam::OpenProgress *progress, std::chrono::milliseconds limit = Limit)
        : m_progress(progress),
          m_end(std::chrono::steady_clock::now() + limit)
    {
    }

    void Enter(TovCam::OpenProgress::Stage stage)
    {
        if (m_progress)
            m_progress->stage = stage;
    }
    // Of the description.
    void SetBytes(std::uint64_t bytes, std::uint64_t total)
    {
        if (!m_progress)
            return;
        m_progress->total = total;
        m_progress->bytes = bytes;
    }
    // Cancelled, or out of time, which is told.
    bool IsOver() const
    {
        if (m_progress && m_progress->cancel)
            return true;
        if (std::chrono::steady_clock::now() < m_end)
            return false;
        if (m_progress)
            m_progress->overdue = true;
        return true;
    }

private:
    TovCam::OpenProgress *const m_progress;
    std::chrono::steady_clock::time_point const m_end;
};
