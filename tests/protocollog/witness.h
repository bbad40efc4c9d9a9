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

// Our line has the number that the witness read, behind these words.
inline void ExpectTold(QString const &line, char const *words, QString const &value, int width, char const *field)
{
    QString const ours =
        QString::fromLatin1(words) + "%1"_s.arg(value.toULongLong(nullptr, 0), width, 16, QLatin1Char('0'));
    EXPECT_TRUE(QRegularExpression(ours + "(?=address|[^0-9a-f]|$)"_s).match(line).hasMatch())
        << field << ": " << qPrintable(ours);
}

// A row a packet of the protocols: first "malformed", then a text about it, then the fields.
inline std::vector<QStringList> AskWitness(QString const &capture, QString const &protocols, QStringList const &fields)
{
    QStringList arguments = "-n -r %1 %2 -T fields -E separator=/t -E occurrence=f -e _ws.malformed -e _ws.col.Info"_s
                                .arg(capture, protocols)
                                .split(u' ');
    for (QString const &field : fields)
        arguments << "-e"_s << field;
    QProcess witness;
    witness.start(QStringLiteral(TSHARK), arguments);
    EXPECT_TRUE(witness.waitForFinished(90000));
    std::vector<QStringList> rows;
    for (QString const &row :
         QString::fromUtf8(witness.readAllStandardOutput()).split(QLatin1Char('\n'), Qt::SkipEmptyParts))
        rows.push_back(row.split(QLatin1Char('\t')));
    return rows;
}

inline std::vector<QStringList> AskWitness(QString const &capture, int streamPort, int messagePort)
{
    QStringList fields;
    for (Told const &told : s_told)
        fields << QString::fromLatin1(told.field);
    return AskWitness(
        capture, "-d udp.port==%1,gvsp -d udp.port==%2,gvcp -Y gvcp||gvsp"_s.arg(streamPort).arg(messagePort), fields);
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
            ExpectTold(line, told.words, value, told.width, told.field);
            ++compared[told.field];
        }
    }
}

// A number of a USB3 Vision packet, and the lines of ours that have it.
struct UsbTold
{
    char const *line; // its beginning
    char const *field;
    char const *words;
    int width;
};

inline UsbTold const s_usbTold[] = {
    {"RD_CMD", "u3v.gencp.req_id", "req_id=", 4},
    {"RD_CMD", "u3v.gencp.custom_addr", "addr=", 16},
    {"RD_CMD", "u3v.gencp.count", "length=", 4},
    {"RD_ACK", "u3v.gencp.req_id", "req_id=", 4},
    {"WR_CMD", "u3v.gencp.req_id", "req_id=", 4},
    {"WR_CMD", "u3v.gencp.payloadlength", "length=", 4},
    {"WR_ACK", "u3v.gencp.req_id", "req_id=", 4},
    {"WR_ACK", "u3v.gencp.count", "length_written=", 4},
    {"PD_ACK", "u3v.gencp.req_id", "req_id=", 4},
    {"PD_ACK", "u3v.gencp.timetocompletion", "temp_timeout=", 4},
    {"EVENT ", "u3v.gencp.req_id", "req_id=", 4},
    {"EVENT ", "u3v.gencp.command_id", "cmd_id=", 4},
    {"EVENT ", "u3v.cmd.event.devicespecificid", "event_id=", 4},
    {"STR_LD", "u3v.stream.block_id", " id=", 16},
    {"STR_LD", "u3v.stream.timestamp", "ts=", 16},
    {"STR_LD", "u3v.stream.pixel_format", "frmt=", 8},
    {"STR_LD", "u3v.stream.sizex", "sz_x=", 8},
    {"STR_LD", "u3v.stream.sizey", "sz_y=", 8},
    {"STR_LD", "u3v.stream.offsetx", "of_x=", 8},
    {"STR_LD", "u3v.stream.offsety", "of_y=", 8},
    {"STR_LD", "u3v.stream.paddingx", "pd_x=", 4},
    {"STR_TR", "u3v.stream.block_id", " id=", 16},
    {"STR_TR", "u3v.stream.status", "status=", 4},
    {"STR_TR", "u3v.stream.valid_payload_size", "val_pld_sz=", 4},
    {"STR_TR", "u3v.stream.sizey", "sz_y=", 8},
};

// The beginnings of our lines, by what the witness calls the packets.
inline std::map<QString, QString> const s_usbLines{
    {"READMEM_CMD"_s, "RD_CMD"_s},   {"READMEM_ACK"_s, "RD_ACK"_s},    {"WRITEMEM_CMD"_s, "WR_CMD"_s},
    {"WRITEMEM_ACK"_s, "WR_ACK"_s},  {"PENDING_ACK"_s, "PD_ACK"_s},    {"EVENT_CMD"_s, "EVENT "_s},
    {"Stream Leader"_s, "STR_LD"_s}, {"Stream Payload"_s, "STR_PL"_s}, {"Stream Trailer"_s, "STR_TR"_s}};

// Counts what was compared, by our lines and its fields.
inline void CompareUsbWithWitness(QString const &capture, std::vector<SimPacketSeen> const &packets,
                                  std::map<std::string, int> &compared)
{
    QStringList fields{"u3v.stream.data"_s}; // each once
    for (UsbTold const &told : s_usbTold)
        fields << QString::fromLatin1(told.field);
    fields.removeDuplicates();
    std::vector<QStringList> const rows = AskWitness(capture, "-Y u3v"_s, fields);
    ASSERT_EQ(rows.size(), packets.size());
    LogStringMakerU3V maker;
    QRegularExpression const name("[A-Z]+_(CMD|ACK)|Stream [A-Z][a-z]+"_s), address("Addr:0x([0-9A-F]{16})"_s);
    for (std::size_t i = 0; i < rows.size(); ++i) {
        QString const line = LineOf(maker, packets[i]), info = rows[i][1], kind = line.left(6);
        SCOPED_TRACE(testing::Message() << i << ": " << qPrintable(info) << "\nours: " << qPrintable(line));
        auto const expected = s_usbLines.find(name.match(info).captured());
        ASSERT_TRUE(expected != s_usbLines.end() && expected->second == kind);
        // It takes low addresses for those of the standard's registers, and wants all of their bytes.
        EXPECT_TRUE(rows[i][0].isEmpty() || kind == "RD_ACK"_s) << "malformed";
        if (kind == "WR_CMD"_s && address.match(info).hasMatch()) {
            EXPECT_TRUE(line.contains("addr="_s + address.match(info).captured(1).toLower()));
            ++compared["written addresses"];
        }
        if (kind == "STR_PL"_s) { // 32 bytes, each with a blank
            QString data = line.mid(line.indexOf(u'=') + 1).remove(u' ').chopped(3);
            EXPECT_TRUE(data.size() == 64 && rows[i][2].startsWith(data));
            ++compared["payload"];
        }
        for (UsbTold const &told : s_usbTold) {
            QString const value = rows[i].value(fields.indexOf(QString::fromLatin1(told.field)) + 2);
            if (value.isEmpty() || kind != QString::fromLatin1(told.line))
                continue;
            ExpectTold(line, told.words, value, told.width, told.field);
            ++compared[std::string(told.line) + told.field];
        }
    }
}

// What the tap makes of a stored capture, nothing where there is none; `missed` is what it could not read of it.
inline std::vector<SimPacketSeen> ReadCapture(QString const &path, std::uint64_t *missed = nullptr)
{
    std::vector<SimPacketSeen> packets;
    std::int32_t status = -1;
    std::unique_ptr<PacketSource> const source = OpenCaptureFile(path.toStdString(), &status);
    while (source && source->Read(
                         [&packets](TapPacket const &packet) {
                             packets.push_back({packet.channel, {packet.bytes, packet.bytes + packet.captured}});
                             packets.back().bytes.resize(packet.size);
                             return true;
                         },
                         std::chrono::milliseconds(0))) {
    }
    if (missed && source)
        *missed = source->GetMissed();
    return packets;
}
