// How a control channel takes control of its camera, keeps it and gives it back.
#include "controlchannel.h"

#include "protocol/gigevision.h"
#include "tovcamera.h"

#include <algorithm>
#include <sys/eventfd.h>

namespace {

using namespace std::chrono_literals;

constexpr std::uint32_t Controlled = gvcp::ControlAccess | gvcp::ExclusiveAccess;
constexpr std::uint32_t UsualTimeout = 3000;   // of a camera's heartbeat
constexpr std::uint32_t ShortestTimeout = 300; // that a loaded host keeps up with
constexpr std::chrono::milliseconds ShortestPeriod{100}, LongestPeriod{1000};
constexpr auto BeatRetry = 100ms;  // after a beat without an answer
constexpr auto SilentAfter = 2s;   // without an answer to the heartbeat
constexpr auto LossAfter = 6s;     // the same
constexpr int BeatsBeforeLoss = 3; // this process may not have run for longer than that

} // namespace

std::int32_t ControlChannel::Open()
{
    if (m_socket < 0 || m_wake < 0)
        return TOV_CAM_ERR_NO_DEVICE;
    m_answered = Clock::now();
    m_open = true;
    // Not every camera answers a host that would take control from another one.
    std::uint32_t privilege = 0;
    std::int32_t status = ReadRegister(gvcp::bootstrap::ControlChannelPrivilege, privilege);
    if (status == TOV_CAM_ERR_OK && (privilege & Controlled) != 0)
        status = TOV_CAM_ERR_GENICAM_ACCESS;
    if (status == TOV_CAM_ERR_OK)
        status = WriteRegister(gvcp::bootstrap::ControlChannelPrivilege, gvcp::ControlAccess);
    if (status != TOV_CAM_ERR_OK) {
        m_open = false;
        // Whatever it says to this: it gives no control.
        return status == TOV_CAM_ERR_NO_DEVICE ? status : static_cast<std::int32_t>(TOV_CAM_ERR_GENICAM_ACCESS);
    }
    std::uint32_t capability = 0;
    if (ReadRegister(gvcp::bootstrap::GvcpCapability, capability) == TOV_CAM_ERR_OK)
        m_namesController = (capability & gvcp::gvcpcapability::PrimaryApplication) != 0;
    LearnTimeout();
    m_heartbeat = std::thread([this] { RunHeartbeat(); });
    return TOV_CAM_ERR_OK;
}

void ControlChannel::LearnTimeout()
{
    using gvcp::bootstrap::HeartbeatTimeout;
    std::uint32_t timeout = UsualTimeout;
    std::int32_t const status = ReadRegister(HeartbeatTimeout, timeout);
    if (status == TOV_CAM_ERR_NO_DEVICE && m_timeout != 0ms) {
        m_timeoutChanged = true; // to be asked again
        return;
    }
    if (status == TOV_CAM_ERR_OK && timeout < ShortestTimeout &&
        SetRegister(HeartbeatTimeout, UsualTimeout) == TOV_CAM_ERR_OK)
        ReadRegister(HeartbeatTimeout, timeout);
    m_timeout = std::chrono::milliseconds(timeout);
    m_period = std::clamp(m_timeout / 3, ShortestPeriod, LongestPeriod);
}

void ControlChannel::SetLossHandler(std::function<void()> handler)
{
    std::lock_guard<std::mutex> const lock(m_beatMutex);
    m_lossHandler = std::move(handler);
    m_beatWake.notify_all();
}

void ControlChannel::Follow(OpenWatch const *watch)
{
    std::lock_guard<std::mutex> const lock(m_mutex);
    m_watch = watch;
}

void ControlChannel::SetGiveUpWatch(std::shared_ptr<GiveUpWatch const> watch)
{
    std::lock_guard<std::mutex> const lock(m_mutex);
    m_giveUp = std::move(watch);
}

void ControlChannel::Cancel()
{
    {
        std::lock_guard<std::mutex> const lock(m_beatMutex);
        m_cancelled = true;
        m_beatWake.notify_all();
    }
    if (m_wake >= 0)
        eventfd_write(m_wake, 1);
}

void ControlChannel::Close()
{
    {
        std::lock_guard<std::mutex> const lock(m_beatMutex);
        m_ending = true;
        m_beatWake.notify_all();
    }
    if (m_wake >= 0)
        eventfd_write(m_wake, 1);
    if (m_heartbeat.joinable())
        m_heartbeat.join();
    if (!m_open.exchange(false) || m_lost)
        return;
    std::array<std::uint8_t, gvcp::RegisterWrite::Size> body{};
    StoreBig32(&body[gvcp::RegisterWrite::Address], gvcp::bootstrap::ControlChannelPrivilege);
    // One that does not answer may hear it all the same; nobody waits for it.
    Effort const effort = m_silent ? Effort{1, 0ms, 0ms, 1ms, Effort::Final} : Goodbye;
    std::lock_guard<std::mutex> const lock(m_mutex);
    Transact({gvcp::WRITEREG_CMD, 0, body}, effort);
}

// ---- The heartbeat -----------------------------------------------------------------------------------------------

void ControlChannel::RunHeartbeat()
{
    std::unique_lock<std::mutex> lock(m_beatMutex);
    auto const ends = [this] {
        return m_ending || m_cancelled;
    };
    std::chrono::milliseconds wait = m_period;
    for (;;) {
        m_beatWake.wait_for(lock, wait, [&] { return ends() || m_beatIsDue; });
        if (ends())
            return;
        m_beatIsDue = false;
        lock.unlock();
        bool const keeps = DoBeat();
        lock.lock();
        if (keeps) {
            wait = m_unanswered > 0 || m_gaveWay || m_silent || m_inDoubt ? BeatRetry : m_period;
            continue;
        }
        m_lost = true;
        m_beatWake.wait(lock, [&] { return ends() || m_lossHandler; });
        if (std::function<void()> const handler = std::move(m_lossHandler); handler && !ends()) {
            lock.unlock();
            handler();
        }
        return;
    }
}

// False when control is lost.
bool ControlChannel::DoBeat()
{
    if (!m_silent && m_timeoutChanged.exchange(false))
        LearnTimeout();
    auto const heard = [this] {
        std::lock_guard<std::mutex> const lock(m_mutex);
        return m_heard;
    };
    Clock::time_point const before = heard();
    Effort const &effort = m_silent ? Probe : Beat;
    std::uint32_t privilege = 0;
    std::int32_t const status = ReadRegisterBy(effort, gvcp::bootstrap::ControlChannelPrivilege, privilege);
    if (status == TOV_CAM_ERR_NO_DEVICE) {
        if (m_gaveWay)
            return true;
        ++m_unanswered;
        auto const silence = Clock::now() - heard();
        if (m_unanswered < BeatsBeforeLoss || m_ending || m_cancelled)
            return true;
        if (silence > SilentAfter)
            m_silent = true;
        return silence <= LossAfter;
    }
    m_unanswered = 0;
    if (status == TOV_CAM_ERR_OK && (privilege & Controlled) == 0)
        return false;
    // A camera that has not heard of this host for so long may have given control to another one. Until that is settled
    // nothing else is asked of a camera that was silent.
    m_inDoubt = m_inDoubt || heard() - before > m_timeout;
    if (m_inDoubt) {
        Keeper const keeper = FindKeeper(effort);
        if (keeper != Keeper::Us)
            return keeper == Keeper::Untold;
        m_inDoubt = false;
    }
    m_silent = false;
    return true;
}

// Us, where nobody can tell.
ControlChannel::Keeper ControlChannel::FindKeeper(Effort const &effort)
{
    std::uint32_t address = 0;
    std::uint16_t port = 0;
    std::int32_t const status =
        m_namesController ? ReadControllerBy(effort, address, port) : static_cast<std::int32_t>(TOV_CAM_ERR_OK);
    if (status == TOV_CAM_ERR_NO_DEVICE)
        return Keeper::Untold;
    if (status != TOV_CAM_ERR_OK || (address == 0 && port == 0))
        return Keeper::Us;
    return address == m_hostAddress && port == m_hostPort ? Keeper::Us : Keeper::Another;
}
