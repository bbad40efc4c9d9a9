// The simulated cameras' packets, and what another reader of the protocols says about them.
#include "logstringmaker.h"

#include "bytes.h"
#include "pcap.h"
#include "simtraffic.h"

#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <map>

namespace {

QString operator""_s(char const *text, std::size_t size)
{
    return QString::fromLatin1(text, static_cast<int>(size));
}

QString LineOf(LogStringMaker &maker, SimPacketSeen const &packet)
{
    void const *const data = packet.bytes.data();
    unsigned long const size = packet.bytes.size();
    return packet.channel == TovCam::EventControlChannel  ? maker.MakeControlLogString(data, size)
           : packet.channel == TovCam::EventStreamChannel ? maker.MakeStreamLogString(data, size)
                                                          : maker.MakeEventLogString(data, size);
}

// Small frames, both events, registers of every length; every third frame incomplete.
void SetFeatures(TovCam::ParamArray &nodes)
{
    EXPECT_EQ(nodes.SetIntegerValue("Width", 256), 0);
    EXPECT_EQ(nodes.SetIntegerValue("Height", 64), 0);
    EXPECT_EQ(nodes.SetIntegerValue("OffsetX", 16), 0);
    EXPECT_EQ(nodes.SetStringValue("DeviceUserID", "bench"), 0);
    EXPECT_EQ(nodes.SetFloatValue("Gain", 3.0), 0);
    nodes.GetFloatValue("ExposureTime", nullptr);
    EXPECT_EQ(nodes.SetIntegerValue("SimIncompleteEvery", 3), 0);
    for (char const *const event : {"FrameStart", "ExposureEnd"}) {
        EXPECT_EQ(nodes.SetEnumValueStr("EventSelector", event), 0);
        EXPECT_EQ(nodes.SetEnumValueStr("EventNotification", "On"), 0);
    }
}

// Packets that the cameras do not send.
std::vector<SimPacketSeen> const s_others{
    {TovCam::EventControlChannel, FromHex("4200 0040 000c 0005 0001 0012 00000003 00000004")},
    {TovCam::EventControlChannel, FromHex("4210 0040 0014 0006 0001 0000 00000003 00000004 0102030405060708")},
    {TovCam::EventControlChannel, FromHex("4201 0080 0010 0007 00000a00 00000a04 00000a08 00000a0c")},
    {TovCam::EventControlChannel, FromHex("4201 0082 0010 0008 00000d00 00000002 00000d04 0000c000")},
    {TovCam::EventControlChannel, FromHex("0000 0087 0004 0009 0000 0200")},
    {TovCam::EventEventChannel, FromHex("4201 00c2 0014 000a 0000 9001 0002 0003 1112131415161718 01020304")},
    {TovCam::EventStreamChannel, FromHex("0000 0000 83000000 0000000000000012 00000345 aabbccdd")},
};

struct Told
{
    char const *field; // of the witness; what it contains is a number
    char const *words; // of ours before the same number
    int width;
};

Told const s_told[] = {
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

// A row a packet: first "malformed", then a text about it, then the fields.
std::vector<QStringList> AskWitness(QString const &capture)
{
    QStringList arguments{"-n"_s,
                          "-r"_s,
                          capture,
                          "-d"_s,
                          "udp.port==%1,gvsp"_s.arg(PcapFile::StreamPort),
                          "-T"_s,
                          "fields"_s,
                          "-E"_s,
                          "separator=/t"_s,
                          "-E"_s,
                          "occurrence=f"_s,
                          "-e"_s,
                          "_ws.malformed"_s,
                          "-e"_s,
                          "_ws.col.Info"_s};
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

TEST(SimTraffic, GigEVisionReadsAsTheWitnessReadsIt)
{
    SimTraffic traffic(TovCam::InterfaceKindGigEVision, "VG-2048M");
    ASSERT_NE(traffic.Nodes(), nullptr);
    std::vector<SimPacketSeen> packets = traffic.Collect(8, SetFeatures);
    packets.insert(packets.end(), s_others.begin(), s_others.end());
    QTemporaryDir folder;
    QString const path = folder.filePath("sim.pcap"_s);
    {
        PcapFile file(path.toStdString());
        for (SimPacketSeen const &packet : packets)
            file.Add(packet.channel, packet.bytes);
    }
    std::vector<QStringList> const rows = AskWitness(path);
    ASSERT_EQ(rows.size(), packets.size());

    LogStringMakerGEV maker;
    std::map<std::string, int> compared;
    QRegularExpression const command("[A-Z]+_(CMD|ACK)"_s), word("(Addr:|Value=)0x([0-9A-F]{8})"_s);
    for (std::size_t i = 0; i < rows.size(); ++i) {
        QString const line = LineOf(maker, packets[i]), info = rows[i][1];
        SCOPED_TRACE(testing::Message() << i << ": " << qPrintable(info) << "\nours: " << qPrintable(line));
        EXPECT_TRUE(rows[i][0].isEmpty()) << "malformed";
        QString const name = command.match(info).captured();
        if (packets[i].channel != TovCam::EventStreamChannel) {
            ASSERT_FALSE(name.isEmpty());
            EXPECT_TRUE(line.startsWith(name + ", "_s)) << qPrintable(name);
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
    for (Told const &told : s_told)
        EXPECT_GT(compared[told.field], 0) << told.field;
    for (char const *const name : {"READREG_CMD", "READREG_ACK", "WRITEREG_CMD", "WRITEREG_ACK", "READMEM_CMD",
                                   "READMEM_ACK", "WRITEMEM_CMD", "WRITEMEM_ACK", "EVENT_CMD", "words"})
        EXPECT_GT(compared[name], 0) << name;
}

// There is no witness for this protocol: the lines must fit each other.
TEST(SimTraffic, Usb3VisionTellsACoherentStory)
{
    SimTraffic traffic(TovCam::InterfaceKindUSB3Vision, "VU-1920C");
    ASSERT_NE(traffic.Nodes(), nullptr);
    std::vector<SimPacketSeen> const packets = traffic.Collect(6, SetFeatures);
    LogStringMakerU3V maker;
    std::map<std::string, int> count;
    QString command, frame;
    for (SimPacketSeen const &packet : packets) {
        QString const line = LineOf(maker, packet);
        SCOPED_TRACE(qPrintable(line));
        ++count[line.left(6).toStdString()];
        if (packet.channel == TovCam::EventControlChannel) {
            // Each answer is to the command before it, and of the size that was asked for.
            if (line.contains("_CMD"_s)) {
                command = line;
                continue;
            }
            EXPECT_EQ(line.section(", "_s, 1, 1), command.section(", "_s, 1, 1));
            int const length = command.section("length="_s, 1).left(4).toInt(nullptr, 16);
            if (line.startsWith("RD_ACK"_s))
                EXPECT_EQ(line.section("data="_s, 1).count(QLatin1Char(' ')), std::min(length, 17));
            else
                EXPECT_EQ(line.section("length_written="_s, 1).toInt(nullptr, 16), length - 8);
        } else if (line.startsWith("STR_LD"_s)) {
            frame = line.section(", "_s, 2, 2);
            EXPECT_TRUE(line.contains(", sz_x=00000100, sz_y=00000040, of_x=00000010, of_y=00000000, pd_x=0000"_s));
        } else if (line.startsWith("STR_TR"_s)) {
            EXPECT_EQ(line.section(", "_s, 1, 1), frame);
            EXPECT_TRUE(line.endsWith(", sz_y=00000040"_s));
            EXPECT_EQ(line.contains("status=0000, val_pld_sz=4000,"_s), line.contains("status=0000"_s));
        }
    }
    for (char const *const kind : {"RD_CMD", "RD_ACK", "WR_CMD", "WR_ACK", "STR_LD", "STR_PL", "STR_TR", "EVENT "})
        EXPECT_GT(count[kind], 3) << kind;
    EXPECT_EQ(count.size(), 8u);
}

} // namespace
