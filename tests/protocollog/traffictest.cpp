// The simulated cameras' packets, and what another reader of the protocols says about them.
#include "witness.h"

#include "bytes.h"

#include <QTemporaryDir>

#include <unistd.h>

namespace {

// Small frames, both events, registers of every length; every third frame incomplete, packets lost and asked for again.
void SetFeatures(TovCam::ParamArray &nodes)
{
    EXPECT_EQ(nodes.SetIntegerValue("Width", 256), 0);
    EXPECT_EQ(nodes.SetIntegerValue("Height", 64), 0);
    EXPECT_EQ(nodes.SetIntegerValue("OffsetX", 16), 0);
    EXPECT_EQ(nodes.SetStringValue("DeviceUserID", "bench"), 0);
    EXPECT_EQ(nodes.SetFloatValue("Gain", 3.0), 0);
    nodes.GetFloatValue("ExposureTime", nullptr);
    EXPECT_EQ(nodes.SetIntegerValue("SimIncompleteEvery", 3), 0);
    EXPECT_EQ(nodes.SetFloatValue("SimPacketLoss", 30.0), 0);
    EXPECT_EQ(nodes.SetBooleanValue("SimResend", true), 0);
    for (char const *const event : {"FrameStart", "ExposureEnd"}) {
        EXPECT_EQ(nodes.SetEnumValueStr("EventSelector", event), 0);
        EXPECT_EQ(nodes.SetEnumValueStr("EventNotification", "On"), 0);
    }
}

// Packets that the cameras do not send.
std::vector<SimPacketSeen> const s_others{
    {TovCam::EventControlChannel, FromHex("4210 0040 0014 0006 0001 0000 00000003 00000004 0102030405060708")},
    {TovCam::EventControlChannel, FromHex("4201 0080 0010 0007 00000a00 00000a04 00000a08 00000a0c")},
    {TovCam::EventControlChannel, FromHex("4201 0082 0010 0008 00000d04 00000002 00000d08 0000c000")},
    {TovCam::EventControlChannel, FromHex("0000 0087 0004 0009 0000 0200")},
    {TovCam::EventEventChannel, FromHex("4201 00c2 0014 000a 0000 9001 0002 0003 1112131415161718 01020304")},
    {TovCam::EventStreamChannel, FromHex("0000 0000 83000000 0000000000000012 00000345 aabbccdd")},
};
SimPacketSeen const s_otherUsb{TovCam::EventControlChannel, FromHex("55335643 0000 0508 0400 0200 0000 f401")};

// Where stream and events of the captures go.
SimPacketSeen const s_ports{TovCam::EventControlChannel,
                            FromHex("4201 0082 0010 0001 00000d00 00009c40 00000b00 00009c41")};

// A capture of them, with so many bytes of a packet of the stream.
QString Captured(QTemporaryDir const &folder, PcapFile::Link link, std::vector<SimPacketSeen> const &packets,
                 std::size_t streamBytes = 65535)
{
    QString const path = folder.filePath("sim.pcap"_s);
    PcapFile file(path.toStdString(), link);
    bool const usb = link == PcapFile::UsbMonitor;
    if (usb)
        file.AddUsbDescriptors();
    for (SimPacketSeen const &packet : packets)
        (file.*(usb ? &PcapFile::AddUsb : &PcapFile::Add))(
            packet.channel, packet.bytes, packet.channel == TovCam::EventStreamChannel ? streamBytes : 65535);
    return path;
}

// A capture of them has the same packets, and the same lines where it was cut.
void ExpectTheSameFromCaptures(LogStringMaker &maker, std::vector<SimPacketSeen> const &packets, PcapFile::Link link)
{
    QTemporaryDir const folder;
    for (std::size_t const cut : {std::size_t{97}, std::size_t{65535}}) {
        SCOPED_TRACE(cut);
        std::vector<SimPacketSeen> const read = ReadCapture(Captured(folder, link, packets, cut));
        ASSERT_EQ(read.size(), packets.size());
        for (std::size_t i = 0; i < read.size(); ++i) {
            ASSERT_EQ(read[i].channel, packets[i].channel) << i;
            ASSERT_TRUE(cut == 97 || read[i].bytes == packets[i].bytes) << i;
            ASSERT_EQ(LineOf(maker, read[i]), LineOf(maker, packets[i])) << i;
        }
    }

    // Shorter than a line shows: none of them comes, and each is counted.
    std::uint64_t missed = 0;
    std::vector<SimPacketSeen> const read = ReadCapture(Captured(folder, link, packets, 49), &missed);
    EXPECT_GT(missed, 5u);
    EXPECT_EQ(read.size() + missed, packets.size());
}

TEST(SimTraffic, GigEVisionReadsAsTheWitnessReadsIt)
{
    SimTraffic traffic("VG-2048M");
    ASSERT_NE(traffic.Nodes(), nullptr);
    std::vector<SimPacketSeen> packets = traffic.Collect(8, SetFeatures);
    for (SimPacketSeen const &packet : packets) // of a young camera the time stamps are small
        EXPECT_TRUE(packet.channel != TovCam::EventStreamChannel || packet.bytes[4] != 1 || packet.bytes[13] == 0);
    packets.insert(packets.begin(), s_ports);
    packets.insert(packets.end(), s_others.begin(), s_others.end());
    QTemporaryDir const folder;
    QString const path = Captured(folder, PcapFile::RawIp, packets);
    std::map<std::string, int> compared;
    CompareWithWitness(AskWitness(path, PcapFile::StreamPort, PcapFile::MessagePort), packets, compared);
    for (Told const &told : s_told)
        EXPECT_GT(compared[told.field], 0) << told.field;
    for (char const *const name : {"READREG_CMD", "READREG_ACK", "WRITEREG_CMD", "WRITEREG_ACK", "READMEM_CMD",
                                   "READMEM_ACK", "WRITEMEM_CMD", "WRITEMEM_ACK", "EVENT_CMD", "EVENT_ACK", "words"})
        EXPECT_GT(compared[name], 0) << name;
    LogStringMakerGEV maker;
    ExpectTheSameFromCaptures(maker, packets, PcapFile::RawIp);
}

TEST(SimTraffic, Usb3VisionReadsAsTheWitnessReadsIt)
{
    SimTraffic traffic("VU-1920C");
    ASSERT_NE(traffic.Nodes(), nullptr);
    std::vector<SimPacketSeen> packets = traffic.Collect(6, SetFeatures);
    QTemporaryDir const folder;
    LogStringMakerU3V maker;
    ExpectTheSameFromCaptures(maker, packets, PcapFile::UsbMonitor);
    packets.push_back(s_otherUsb);
    QString const path = Captured(folder, PcapFile::UsbMonitor, packets);
    std::map<std::string, int> compared;
    CompareUsbWithWitness(path, packets, compared);
    for (UsbTold const &told : s_usbTold)
        EXPECT_GT(compared[std::string(told.line) + told.field], 0) << told.line << ' ' << told.field;
    for (char const *const name : {"payload", "written addresses"})
        EXPECT_GT(compared[name], 3) << name;
}

// This is what the operator is told.
TEST(Captures, ARefusalSaysWhy)
{
    using TovCam::CaptureRefusal;
    QTemporaryDir folder;
    QString const text = folder.filePath("text"_s), usual = folder.filePath("wlan.pcap"_s);
    std::ofstream(text.toStdString()) << "no capture";
    PcapFile(usual.toStdString(), static_cast<PcapFile::Link>(105)).Add(TovCam::EventStreamChannel, {1});
    std::pair<QString, CaptureRefusal> const cases[] = {{folder.filePath("none"_s), CaptureRefusal::NoFile},
                                                        {text, CaptureRefusal::NotACapture},
                                                        {usual, CaptureRefusal::NotACapture},
                                                        {"nosuch0"_s, CaptureRefusal::NoAdapter}};
    for (auto const &[name, refusal] : cases) {
        std::string const place = name.toStdString();
        SCOPED_TRACE(place);
        std::int32_t status = 0;
        TovCam::CaptureFailure failure;
        EXPECT_EQ(refusal == CaptureRefusal::NoAdapter ? OpenGigECapture(place, "127.0.0.1", &status, &failure)
                                                       : OpenCaptureFile(place, &status, &failure),
                  nullptr);
        EXPECT_NE(status, 0);
        if (geteuid() != 0 && failure.refusal == CaptureRefusal::NoRight)
            continue; // without the right to capture, adapters are not checked
        EXPECT_EQ(failure.refusal, refusal);
        EXPECT_EQ(failure.place, place);
        EXPECT_FALSE(failure.reason.empty());
    }
}

} // namespace
