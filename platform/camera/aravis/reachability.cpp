#include "reachability.h"

#include "gvcpclient.h"
#include "protocol/gigevision.h"

namespace {

using namespace std::chrono_literals;

// An access that takes longer has seen unanswered requests.
constexpr auto SlowAccess = 900ms;

} // namespace

Reachability::Reachability(std::string address) : m_address(std::move(address))
{
}

std::int32_t Reachability::Enter()
{
    if (IsLost())
        return TOV_CAM_ERR_NO_DEVICE;
    if (m_closing) {
        if (!m_closing->IsDone())
            return TOV_CAM_ERR_NO_DEVICE;
        m_closing.reset();
        m_suspect = !m_address.empty();
    }
    if (m_suspect) {
        std::uint32_t value;
        if (!GvcpClient(m_address).ReadRegister(gvcp::bootstrap::ControlChannelPrivilege, value))
            return TOV_CAM_ERR_NO_DEVICE;
        m_suspect = false;
    }
    m_entered = std::chrono::steady_clock::now();
    return TOV_CAM_ERR_OK;
}

void Reachability::Leave()
{
    if (!m_address.empty() && std::chrono::steady_clock::now() - m_entered > SlowAccess)
        m_suspect = true;
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
