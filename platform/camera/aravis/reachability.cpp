#include "reachability.h"

Reachability::Reachability(std::function<bool()> isSilent, std::function<void(bool)> hurry)
    : m_isSilent(std::move(isSilent)),
      m_hurry(std::move(hurry))
{
}

std::int32_t Reachability::Enter()
{
    if (m_closing && m_closing->IsDone())
        m_closing.reset();
    bool const isThere = !IsLost() && !m_closing && !(m_isSilent && m_isSilent());
    return isThere ? TOV_CAM_ERR_OK : TOV_CAM_ERR_NO_DEVICE;
}

void Reachability::Leave()
{
}

void Reachability::Hurry(bool begins)
{
    if (m_hurry)
        m_hurry(begins);
}

void Reachability::SetLost()
{
    m_lost.store(true, std::memory_order_relaxed);
}

bool Reachability::IsLost() const
{
    return m_lost.load(std::memory_order_relaxed);
}

void Reachability::SetClosing(std::shared_ptr<BackgroundJob const> job)
{
    m_closing = std::move(job);
}
