// The protocol log of a session: which channels are subscribed to, and the way of their packets into it.
#include "session.h"

#include "packetlog.h"
#include "qttovlogmodel.h"
#include "tovlog.h"
#include "waitingaction.h"

#include <algorithm>
#include <cstring>
#include <iterator>

void Session::LeaveLog()
{
    m_log->Watch().LeaveLines();
}

// Every channel each time: the main switch is part of all of them. A refusal inside comes back here for its own switch.
void Session::ParamChanged(_TovStParam param)
{
    bool const isMain = std::strcmp(param.name, "EnableLog") == 0;
    if (!isMain && std::none_of(std::begin(PacketLog::Channels), std::end(PacketLog::Channels),
                                [&](LogChannelInfo const &info) { return std::strcmp(param.name, info.key) == 0; }))
        return;
    if (WaitingAction::IsWaiting())
        WaitingAction::WhenOver(this, [this] { FollowSwitches(); });
    else
        FollowSwitches();
}

void Session::FollowSwitches()
{
    Wait(tr("Switching the log's channels of %1").arg(GetPlainName()), [this] {
        EnableLog(LogEnumControl, m_enableLog && m_logControl);
        EnableLog(LogEnumStream, m_enableLog && m_logStream);
        EnableLog(LogEnumEvent, m_enableLog && m_logEvent);
    });
}

bool Session::EnableLog(LogEnum channel, bool enable)
{
    auto const found = m_logChannels.find(channel);
    if ((found != m_logChannels.end()) == enable)
        return true;
    if (!enable) {
        // No callback runs any more when it returns, so the node may go.
        WaitFor([&] { m_device->UnregisterEvent(channel, LogEvent, &found->second); }, IfGivenUp::CallAllTheSame);
        m_logChannels.erase(found);
        m_log->Watch().SetLogging(!m_logChannels.empty());
        return true;
    }
    auto const added = m_logChannels.emplace(channel, LogChannel{channel, this}).first;
    m_log->Watch().SetLogging(true);
    if (WaitFor([&] { return m_device->RegisterEvent(channel, LogEvent, &added->second); },
                IfGivenUp::CallAllTheSame) == 0)
        return true;
    m_logChannels.erase(added);
    m_log->Watch().SetLogging(!m_logChannels.empty());
    if (LogChannelInfo const *const info = PacketLog::FindChannel(channel))
        m_storage.SetParamBool(info->key, false, true);
    return false;
}

// The main switch, as a click would set it, and the channels that were switched on without it.
void Session::endLogging()
{
    WaitingAction::WhenOver(this, [this] {
        m_storage.SetParamBool("EnableLog", false, true);
        EndAllChannels();
    });
}

void Session::EndAllChannels()
{
    for (LogChannelInfo const &info : PacketLog::Channels)
        EnableLog(static_cast<LogEnum>(info.event), false);
}

void Session::LogEvent(void const *data, unsigned long size, void *user)
{
    auto const *const record = static_cast<LogChannel const *>(user);
    record->session->WriteLog(record->channel, data, size);
}

void Session::PacketsMissedCallback(void const *data, unsigned long size, void *user)
{
    std::uint64_t missed = 0;
    std::memcpy(&missed, data, std::min<std::size_t>(size, sizeof missed));
    if (user)
        static_cast<Session *>(user)->m_log->Watch().NoteMissed(missed);
    TovLog::Warning(static_cast<unsigned long>(missed),
                    "Session: packets of the log's channels were lost before they could be logged");
}

void Session::WriteLog(LogEnum channel, void const *data, unsigned long size)
{
    m_log->Write(channel, data, size);
}

QString Session::MakeLogStringFromData(LogEnum channel, void const *data, unsigned long size)
{
    return m_log->MakeLine(channel, data, size);
}

QtTovLogModel *Session::GetLogModel() const
{
    return m_logModel;
}

void Session::clearLog()
{
    if (m_logModel)
        m_logModel->clear();
}

void Session::saveLog()
{
    if (m_logModel)
        m_log->Watch().Save();
}

bool Session::IsSavingLog() const
{
    return m_log->Watch().IsSaving();
}

QString Session::GetLogReport() const
{
    return m_log->Watch().Report();
}
