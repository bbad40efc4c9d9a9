// The log of one camera: makes a line of each packet, stamped with the time of its arrival, and appends it to the
// model.
//
// Threads: Write and MakeLine are for the threads of the camera library, several at once, with the packets of one
// stream in order; all else is the GUI thread's.
#pragma once

#include "logwatch.h"

#include <QString>

#include <cstdint>
#include <memory>

class LogStringMaker;
class QMainWindow;
class QtTovLogModel;

// What distinguishes a log's channels.
struct LogChannelInfo
{
    std::uint32_t event; // of the camera library: it brings the channel's packets
    QString name;        // as a line has it
    char const *key;     // of its switch, a parameter of the session
    QString (LogStringMaker::*makeLine)(void const *data, unsigned long size);
};

class PacketLog
{
public:
    // In the order in which they are switched.
    static LogChannelInfo const Channels[3];
    static LogChannelInfo const *FindChannel(std::uint32_t event); // null for any other event

    // `interfaceKind` is that of the camera: packets of a protocol without a decoder get no line. The model outlives
    // the log.
    PacketLog(std::uint32_t interfaceKind, QtTovLogModel *model, QMainWindow *window);
    ~PacketLog();

    // Appends a packet's line, if it gets one. No exception leaves it; a line for which there is no memory is counted.
    void Write(std::uint32_t event, void const *data, unsigned long size);
    // Empty for a packet without a line.
    QString MakeLine(std::uint32_t event, void const *data, unsigned long size);

    LogWatch &Watch(); // which looks after the lines

private:
    QtTovLogModel *const m_model;
    std::unique_ptr<LogStringMaker> const m_maker; // null without a decoder
    LogWatch m_watch;
};
