// Another reader of the protocols: what it says about a capture, and whether our lines agree with it.
#pragma once

#include "logstringmaker.h"

#include "pcap.h"
#include "simtraffic.h"

#include "packettap/packetsource.h"

#include <QProcess>
#include <QRegularExpression>
#include <QStringList>

#include <gtest/gtest.h>

#include <map>

inline QString operator""_s(char const *text, std::size_t size)
{
    return QString::fromLatin1(text, static_cast<int>(size));
}

inline QString LineOf(LogStringMaker &maker, SimPacketSeen const &packet)
{
    void const *const data = packet.bytes.data();
    unsigned long const size = packet.bytes.size();
    return packet.channel == TovCam::EventControlChannel  ? maker.MakeControlLogString(data, size)
           : packet.channel == TovCam::EventStreamChannel ? maker.MakeStreamLogString(data, size)
                                                          : maker.MakeEventLogString(data, size);
}

struct Told
{
    char const *field; // of the witness; what it contains is a number
    char const *words; // of ours before the same number
    int width;
};

inline Told const s_told[] = {
    {"gvcp.cmd.req_id", "_id=", 4},
    {"gvcp.cmd.readmem.count", "count=", 4},
    {"gvcp.cmd.writereg.dataindex", "index=", 4},
    {"gvcp.cmd.writemem.dataindex", "index=", 4},
    {"gvcp.cmd.resend.streamchannelindex", "stream_chan_idx=", 4},
    {"gvcp.cmd.resend.blockid", "block_id=", 4},
    {"gvcp.cmd.resend.firstpacketid", "first_packet_id=", 8},
    {"gvcp.cmd.resend.lastpacketid", "last_packet_id=", 8},
    {"gvcp.cmd.resend.extendedblockid", "block_id64=", 16},
    {"gvcp.cmd.event.devicespecificid", "event_identifier=", 4},
    {"gvcp.cmd.event.streamchannelindex", "stream_channel_index=", 4},
    {"gvcp.cmd.event.blockid", "block_id=", 4},
    {"gvcp.cmd.event.timestamp", "timestamp=", 16},
    {"gvsp.status", "status=", 4},
    {"gvsp.blockid16", "block_id=", 4},
    {"gvsp.packetid24", "packet_id=", 3},
    {"gvsp.packetid32", "packet_id32=", 8},
    {"gvsp.timestamp", "timestamp=", 16},
    {"gvsp.pixel", "pixel_format=", 8},
    {"gvsp.sizex", "size_x=", 8},
    {"gvsp.sizey", "size_y=", 8},
    {"gvsp.offsetx", "offset_x=", 8},
    {"gvsp.offsety", "offset_y=", 8},
};

// A row a packet of the protocols: first "malformed", then a text about it, then the fields.
inline std::vector<QStringList> AskWitness(QString const &capture, int streamPort, int messagePort)
{
    QStringList arguments =
        "-n -r %1 -d udp.port==%2,gvsp -d udp.port==%3,gvcp -Y gvcp||gvsp -T fields -E separator=/t -E occurrence=f "
        "-e _ws.malformed -e _ws.col.Info"_s.arg(capture)
            .arg(streamPort)
            .arg(messagePort)
            .split(u' ');
    for (Told const &told : s_told)
        arguments << "-e"_s << QString::fromLatin1(told.field);
    QProcess witness;
    witness.start(QStringLiteral(TSHARK), arguments);
    EXPECT_TRUE(witness.waitForFinished(60000));
    std::vector<QStringList> rows;
    for (QString const &row :
         QString::fromUtf8(witness.readAllStandardOutput()).split(QLatin1Char('\n'), Qt::SkipEmptyParts))
        rows.push_back(row.split(QLatin1Char('\t')));
    return rows;
}

// Counts what was compared, by the names of commands and fields.
inline void CompareWithWitness(std::vector<QStringList> const &rows, std::vector<SimPacketSeen> const &packets,
                               std::map<std::string, int> &compared)
{
    ASSERT_EQ(rows.size(), packets.size());
    LogStringMakerGEV maker;
    QRegularExpression const command("[A-Z]+_(CMD|ACK)"_s), word("(Addr:|Value=)0x([0-9A-F]{8})"_s);
    for (std::size_t i = 0; i < rows.size(); ++i) {
        QString const line = LineOf(maker, packets[i]), info = rows[i][1];
        SCOPED_TRACE(testing::Message() << i << ": " << qPrintable(info) << "\nours: " << qPrintable(line));
        EXPECT_TRUE(rows[i][0].isEmpty()) << "malformed";
        QString const name = command.match(info).captured();
        if (packets[i].channel != TovCam::EventStreamChannel) {
            // Search and the like have no names here.
            bool const named = line.contains(QRegularExpression("^[A-Z]"_s));
            EXPECT_TRUE(!named || line.startsWith(name + ", "_s)) << qPrintable(name);
            ++compared[name.toStdString()];
        }
        // Lists begin with what it tells in its text. The addresses that an answer belongs to are no part of it, and a
        // write of one register shows none.
        if (name == "READREG_CMD"_s || name == "READMEM_CMD"_s || name == "READREG_ACK"_s ||
            line.contains("(address"_s)) {
            for (auto all = word.globalMatch(info.section("..."_s, 0, 0)); all.hasNext();) {
                QRegularExpressionMatch const match = all.next();
                bool const isAddress = match.captured(1) == "Addr:"_s;
                if (name.endsWith("ACK"_s) && isAddress)
                    continue;
                QString const ours = isAddress ? "address="_s : name == "WRITEREG_CMD"_s ? "data="_s : "value="_s;
                EXPECT_TRUE(line.contains(ours + match.captured(2).toLower())) << qPrintable(match.captured());
                ++compared["words"];
            }
        }
        for (std::size_t k = 0; k < std::size(s_told); ++k) {
            QString const value = rows[i].value(static_cast<int>(k) + 2);
            if (value.isEmpty())
                continue;
            Told const &told = s_told[k];
            QString const ours = QString::fromLatin1(told.words) +
                                 "%1"_s.arg(value.toULongLong(nullptr, 0), told.width, 16, QLatin1Char('0'));
            EXPECT_TRUE(QRegularExpression(ours + "(?=address|[^0-9a-f]|$)"_s).match(line).hasMatch())
                << told.field << ": " << qPrintable(ours);
            ++compared[told.field];
        }
    }
}

// What the tap makes of a stored capture.
inline std::vector<SimPacketSeen> ReadCapture(QString const &path)
{
    std::vector<SimPacketSeen> packets;
    std::int32_t status = -1;
    std::unique_ptr<PacketSource> const source = OpenCaptureFile(path.toStdString(), &status);
    EXPECT_EQ(status, 0);
    while (source && source->Read(
                         [&packets](TapPacket const &packet) {
                             packets.push_back({packet.channel, {packet.bytes, packet.bytes + packet.captured}});
                             packets.back().bytes.resize(packet.size);
                             return true;
                         },
                         std::chrono::milliseconds(0))) {
    }
    return packets;
}
