#include "packetlog.h"

#include "logstringmaker.h"
#include "qttovlogmodel.h"

#include "tovcamera.h"

#include <algorithm>
#include <iterator>
#include <new>

namespace {

std::unique_ptr<LogStringMaker> MakeMaker(std::uint32_t interfaceKind)
{
    switch (interfaceKind) {
    case TovCam::InterfaceKindUSB3Vision:
        return std::make_unique<LogStringMakerU3V>();
    case TovCam::InterfaceKindGigEVision:
        return std::make_unique<LogStringMakerGEV>();
    default:
        return nullptr;
    }
}

} // namespace

LogChannelInfo const PacketLog::Channels[3] = {
    {TovCam::EventControlChannel, QStringLiteral("Control"), "LogControl", &LogStringMaker::MakeControlLogString},
    {TovCam::EventStreamChannel, QStringLiteral("Stream"), "LogStream", &LogStringMaker::MakeStreamLogString},
    {TovCam::EventEventChannel, QStringLiteral("Event"), "LogEvent", &LogStringMaker::MakeEventLogString},
};

LogChannelInfo const *PacketLog::FindChannel(std::uint32_t event)
{
    auto const found = std::find_if(std::begin(Channels), std::end(Channels),
                                    [event](LogChannelInfo const &info) { return info.event == event; });
    return found != std::end(Channels) ? found : nullptr;
}

PacketLog::PacketLog(std::uint32_t interfaceKind, QtTovLogModel *model, QMainWindow *window)
    : m_model(model),
      m_maker(MakeMaker(interfaceKind)),
      m_watch(model, window)
{
}

PacketLog::~PacketLog() = default;

void PacketLog::Write(std::uint32_t event, void const *data, unsigned long size)
{
    LogChannelInfo const *const info = FindChannel(event);
    try {
        qlonglong time;
        if (!m_watch.Stamp(time)) // before the decoding: it is the packet's arrival
            return;
        QString const line = MakeLine(event, data, size);
        if (!line.isEmpty())
            m_model->append(time, info ? info->name : QString(), line);
    } catch (std::bad_alloc const &) {
        m_watch.NoteNoMemory(); // an exception would end the library's thread, and the process
    }
}

QString PacketLog::MakeLine(std::uint32_t event, void const *data, unsigned long size)
{
    if (!m_maker)
        return {};
    LogChannelInfo const *const info = FindChannel(event);
    return info ? (m_maker.get()->*info->makeLine)(data, size) : QStringLiteral("UNKNOWN LOGGING EVENT TYPE");
}

LogWatch &PacketLog::Watch()
{
    return m_watch;
}
