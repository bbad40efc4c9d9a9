// The tap on a network: against a camera that is not ours, a witness that captures and reads beside it, and more
// packets than anybody can take. Runs in a network namespace of its own.
#include "asleep.h"
#include "fakegige.h"
#include "wait.h"
#include "witness.h"

#include "packettap/packettap.h"
#include "protocol/socketaddress.h"

#include <QTemporaryDir>

#include <cstdlib>
#include <cstring>

namespace {

// Before any system is made.
bool const s_gigeOnly = setenv("TOV_CAMERA_INTERFACES", "gige", 1) == 0;

TovCam::Device *OpenFake(TovCam::System *system)
{
    for (int i = 0; i < 20; ++i) { // a search takes its time
        if (TovCam::DeviceInfo *const info = system->FindDeviceByAddress("127.0.0.1", nullptr)) {
            if (TovCam::Device *const device = TovCam_CreateDevice(info, 2, nullptr))
                return device;
        }
    }
    return nullptr;
}

void CountMissed(void const *data, unsigned long, void *user)
{
    std::uint64_t total;
    std::memcpy(&total, data, sizeof total);
    static_cast<std::atomic<std::uint64_t> *>(user)->store(total);
}

std::vector<QString> LinesOf(std::vector<SimPacketSeen> const &packets)
{
    LogStringMakerGEV maker;
    std::vector<QString> lines;
    for (SimPacketSeen const &packet : packets)
        lines.push_back(LineOf(maker, packet));
    return lines;
}

// A frame of 512 x 512 is 38 packets or so; ports and memory are written, frames come, packets get lost and are asked
// for.
TEST(TapOnLoopback, TellsWhatTheWitnessSees)
{
    if (access(DUMPCAP, X_OK) != 0)
        GTEST_SKIP() << "no right to run " DUMPCAP;
    FakeGigECamera camera({"-r", "20"});
    TovCam::System *const system = TovCam_GetSystem();
    QTemporaryDir folder;
    QString const path = folder.filePath("witness.pcapng"_s);
    QProcess witness;
    witness.setProcessChannelMode(QProcess::MergedChannels);
    witness.start(QStringLiteral(DUMPCAP), {"-i"_s, "lo"_s, "-B"_s, "64"_s, "-w"_s, path});
    QString said;
    while (!said.contains("File:"_s) && witness.waitForReadyRead(20000))
        said += QString::fromLocal8Bit(witness.readAll());
    TovCam::Device *const device = OpenFake(system);
    ASSERT_NE(device, nullptr);
    std::atomic<std::uint64_t> missed{0};
    ASSERT_EQ(device->RegisterEvent(TovCam::EventPacketsMissed, CountMissed, &missed), 0);
    PacketCollector collector(*device);
    for (int i = 0; i < 2; ++i)
        EXPECT_TRUE(RunFrames(*device, 15));
    std::vector<SimPacketSeen> const packets = collector.Stop();
    device->Release();
    EXPECT_EQ(missed, 0u);
    ASSERT_GT(packets.size(), 500u);

    // The tap heard a part of what the witness captures: from the first packet behind the subscription on. It hands
    // over what it has once in a while.
    std::vector<QString> const lines = LinesOf(packets);
    std::vector<SimPacketSeen> stored;
    EXPECT_TRUE(Becomes([&] {
        std::vector<QString> const all = LinesOf(stored = ReadCapture(path));
        return std::search(all.begin(), all.end(), lines.begin(), lines.end()) != all.end();
    }));
    witness.terminate();
    EXPECT_TRUE(witness.waitForFinished(20000));
    said += QString::fromLocal8Bit(witness.readAll());
    EXPECT_TRUE(said.contains("/0 ("_s)) << qPrintable(said); // dropped
    stored = ReadCapture(path);
    std::vector<QStringList> rows = AskWitness(path, 0, 0);
    // The search asks everybody: not a camera's traffic.
    std::erase_if(rows, [](QStringList const &row) { return row[1].contains("DISCOVERY"_s); });
    std::erase_if(stored, [](SimPacketSeen const &packet) {
        return packet.channel == TovCam::EventControlChannel && packet.bytes[2] == 0 && packet.bytes[3] < 4;
    });
    std::map<std::string, int> compared;
    CompareWithWitness(rows, stored, compared);
    for (char const *const name : {"READREG_CMD", "READREG_ACK", "READMEM_CMD", "READMEM_ACK", "WRITEREG_CMD",
                                   "WRITEREG_ACK", "gvsp.sizex", "gvsp.packetid24"})
        EXPECT_GT(compared[name], 0) << name;
    system->Release();
}

// Sends what a camera sends, from nobody to nobody: without sockets the answers would be ICMP errors.
class Flood : public testing::Test
{
protected:
    ~Flood() override
    {
        for (int const one : {m_control, m_stream, m_socket})
            close(one);
    }
    void Send(std::vector<std::uint8_t> const &packet, std::uint16_t port)
    {
        EXPECT_EQ(SendDatagram(m_socket, packet, {INADDR_LOOPBACK, port}), static_cast<ssize_t>(packet.size()));
    }
    // On the control channel, which is always reported.
    void TellPort(std::uint8_t request)
    {
        Send({0x42, 1, 0, 0x82, 0, 8, 0, request, 0, 0, 0x0D, 0, 0, 0, Port >> 8, Port & 0xFF}, 3956);
    }
    void Stream(std::uint32_t id)
    {
        for (std::size_t i = 0; i < 3; ++i)
            m_packet[5 + i] = static_cast<std::uint8_t>(id >> 8 * (2 - i));
        Send(m_packet, Port);
    }

private:
    static constexpr std::uint16_t Port = 45000;

    int const m_control = FakeGigECamera::BindControlPort();
    int const m_stream = [] {
        int const one = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        EXPECT_TRUE(BindSocket(one, {INADDR_LOOPBACK, Port}));
        return one;
    }();
    int const m_socket = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    std::vector<std::uint8_t> m_packet = [] {
        std::vector<std::uint8_t> packet(1464);
        packet[4] = 3; // payload
        return packet;
    }();
};

TEST_F(Flood, TheSystemCopiesWhatALineShowsAndNothingUnaskedIsTold)
{
    std::int32_t status;
    std::unique_ptr<PacketSource> const source = OpenGigECapture("lo", "127.0.0.1", &status);
    ASSERT_NE(source, nullptr);
    TellPort(0);
    std::uint8_t round = 0;
    for (bool const wanted : {true, true, false, true}) {
        std::size_t packets = 0, most = 0;
        bool told = false;
        source->SetStreamWanted(wanted);
        Stream(1);
        TellPort(++round); // and comes behind it
        EXPECT_TRUE(Becomes([&] {
            source->Read(
                [&](TapPacket const &packet) {
                    bool const streams = packet.channel == TovCam::EventStreamChannel;
                    packets += streams;
                    most = std::max(most, streams ? packet.captured : 0);
                    told |= !streams && packet.bytes[7] == round;
                    return true;
                },
                std::chrono::milliseconds(10));
            return told;
        }));
        EXPECT_EQ(packets, wanted);
        EXPECT_TRUE(!wanted || (most >= 97 && most < 150)) << most;
    }
}

// Each packet is told or counted as missed, also while the subscriber stands still for longer than the ring lasts.
TEST_F(Flood, NoPacketIsLostUncounted)
{
    EventHub hub;
    PacketTaps taps(hub, [](std::int32_t *status) { return OpenGigECapture("lo", "127.0.0.1", status); });
    std::atomic<std::uint64_t> missed{0};
    ASSERT_EQ(hub.Register(TovCam::EventPacketsMissed, CountMissed, &missed), 0);
    Gate told;
    TovCam::EventCallback const take = [](void const *, unsigned long, void *gate) {
        static_cast<Gate *>(gate)->Pass();
    };
    ASSERT_EQ(taps.Register(TovCam::EventStreamChannel, take, &told), 0);
    TellPort(1);
    std::uint32_t sent = 0;
    auto const expectAll = [&](std::uint32_t more) {
        for (; more > 0; --more)
            Stream(sent++);
        told.Open();
        EXPECT_TRUE(Becomes([&] { return static_cast<std::uint64_t>(told.Reached()) + missed == sent; }))
            << told.Reached() << " + " << missed << " of " << sent;
    };
    for (int portion = 0; portion < 50 && !HasFailure(); ++portion)
        expectAll(1000);
    EXPECT_EQ(missed, 0u);
    told.Close();
    expectAll(400000);
    EXPECT_GT(missed, 0u);
    EXPECT_EQ(taps.Unregister(TovCam::EventStreamChannel, take, &told), 0);
    EXPECT_EQ(static_cast<std::uint64_t>(told.Reached()) + missed, sent) << "counted twice";
}

} // namespace
