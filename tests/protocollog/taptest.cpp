// The tap on a network: against a camera that is not ours, a witness that captures and reads beside it, and more
// packets than anybody can take. Runs in a network namespace of its own.
#include "fakegige.h"
#include "fakehost.h"
#include "linestore.h"
#include "qttovlogmodel.h"
#include "session.h"
#include "witness.h"

#include "packettap/packettap.h"

#include <QTemporaryDir>

#include <atomic>
#include <cstdlib>
#include <cstring>

using namespace std::chrono_literals;

namespace {

// Before any system is made.
bool const s_gigeOnly = setenv("TOV_CAMERA_INTERFACES", "gige", 1) == 0;

constexpr std::uint32_t Channels[] = {TovCam::EventControlChannel, TovCam::EventStreamChannel,
                                      TovCam::EventEventChannel};

TovCam::Device *OpenFake(TovCam::System *system)
{
    for (int i = 0; i < 100; ++i) {
        if (TovCam::DeviceInfo *const info = system->FindDeviceByAddress("127.0.0.1", nullptr)) {
            if (TovCam::Device *const device = TovCam_CreateDevice(info, 2, nullptr))
                return device;
        }
        std::this_thread::sleep_for(100ms);
    }
    return nullptr;
}

void RunFrames(TovCam::Device &device, int frames)
{
    TovCam::Stream *const stream = device.GetStreamByIndex(0);
    TovCam::ParamArray *const nodes = device.GetCameraParameters(nullptr);
    ASSERT_EQ(stream->AllocBufferQueue(nullptr, 8), 0);
    ASSERT_EQ(stream->StartAcquisition(-1, 0), 0);
    ASSERT_EQ(nodes->ExecuteCommand("AcquisitionStart"), 0);
    for (int i = 0; i < frames; ++i) {
        TovCam::Buffer *const buffer = stream->GetBuffer(30000, nullptr);
        ASSERT_NE(buffer, nullptr);
        stream->QueueBuffer(buffer);
    }
    EXPECT_EQ(nodes->ExecuteCommand("AcquisitionStop"), 0);
    std::this_thread::sleep_for(200ms); // what was under way is over
    stream->StopAcquisition(0);
    stream->ReleaseBufferQueue();
}

// Runs beside the tap, from construction to Stop.
class WitnessCapture
{
public:
    explicit WitnessCapture(QString const &path)
    {
        m_process.setProcessChannelMode(QProcess::MergedChannels);
        m_process.start(QStringLiteral(DUMPCAP), {"-i"_s, "lo"_s, "-B"_s, "64"_s, "-w"_s, path});
        while (!m_said.contains("File:"_s) && m_process.waitForReadyRead(20000))
            m_said += QString::fromLocal8Bit(m_process.readAll());
    }
    void Stop()
    {
        std::this_thread::sleep_for(1000ms); // it hands over what it has once in a while
        m_process.terminate();
        EXPECT_TRUE(m_process.waitForFinished(20000));
        m_said += QString::fromLocal8Bit(m_process.readAll());
        EXPECT_TRUE(m_said.contains("/0 ("_s)) << qPrintable(m_said); // dropped
    }

private:
    QProcess m_process;
    QString m_said;
};

struct Channel
{
    std::uint32_t id;
    std::vector<SimPacketSeen> *packets;

    // One thread calls for all channels.
    static void Take(void const *data, unsigned long size, void *user)
    {
        auto const *const self = static_cast<Channel *>(user);
        auto const *const bytes = static_cast<std::uint8_t const *>(data);
        self->packets->push_back({self->id, {bytes, bytes + size}});
    }
};

void CountMissed(void const *data, unsigned long, void *user)
{
    std::uint64_t total;
    std::memcpy(&total, data, sizeof total);
    static_cast<std::atomic<std::uint64_t> *>(user)->store(total);
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
    WitnessCapture witness(path);
    TovCam::Device *const device = OpenFake(system);
    ASSERT_NE(device, nullptr);
    std::vector<SimPacketSeen> packets;
    std::atomic<std::uint64_t> missed{0};
    Channel channels[] = {{Channels[0], &packets}, {Channels[1], &packets}, {Channels[2], &packets}};
    ASSERT_EQ(device->RegisterEvent(TovCam::EventPacketsMissed, CountMissed, &missed), 0);
    for (Channel &channel : channels)
        ASSERT_EQ(device->RegisterEvent(channel.id, Channel::Take, &channel), 0);
    for (int i = 0; i < 2; ++i)
        RunFrames(*device, 15);
    for (Channel &channel : channels)
        EXPECT_EQ(device->UnregisterEvent(channel.id, Channel::Take, &channel), 0);
    device->Release();
    witness.Stop();
    EXPECT_EQ(missed, 0u);

    // The tap heard a part of what the witness captured: from the first packet behind the subscription on.
    std::vector<QStringList> rows = AskWitness(path, 0, 0);
    LogStringMakerGEV maker;
    std::map<std::string, int> compared;
    ASSERT_GT(packets.size(), 500u);
    ASSERT_GE(rows.size(), packets.size());
    std::vector<SimPacketSeen> stored = ReadCapture(path);
    // Whom the search asks is everybody, and no camera's traffic.
    std::erase_if(rows, [](QStringList const &row) { return row[1].contains("DISCOVERY"_s); });
    std::erase_if(stored, [](SimPacketSeen const &packet) {
        return packet.channel == TovCam::EventControlChannel && packet.bytes[2] == 0 && packet.bytes[3] < 4;
    });
    CompareWithWitness(rows, stored, compared);
    std::vector<QString> lines, storedLines;
    for (auto const &[from, to] : {std::pair(&packets, &lines), std::pair(&stored, &storedLines)}) {
        for (SimPacketSeen const &packet : *from)
            to->push_back(LineOf(maker, packet));
    }
    EXPECT_TRUE(std::search(storedLines.begin(), storedLines.end(), lines.begin(), lines.end()) != storedLines.end());
    for (char const *const name : {"READREG_CMD", "READREG_ACK", "READMEM_CMD", "READMEM_ACK", "WRITEREG_CMD",
                                   "WRITEREG_ACK", "gvsp.sizex", "gvsp.packetid24"})
        EXPECT_GT(compared[name], 0) << name;

    system->Release();
}

// Sends what a camera sends, and tells the port first.
class Flood
{
public:
    static constexpr std::uint16_t Port = 45000;

    Flood() : m_socket(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)), m_packet(1464)
    {
        std::uint8_t tell[16] = {0x42, 1, 0, 0x82, 0, 8, 0, 1, 0, 0, 0x0D, 0, 0, 0, Port >> 8, Port & 0xFF};
        Send(tell, sizeof tell, 3956);
        m_packet[4] = 3;
    }
    ~Flood()
    {
        close(m_socket);
    }
    void Stream(std::uint32_t id)
    {
        for (int i = 0; i < 3; ++i)
            m_packet[static_cast<std::size_t>(5 + i)] = static_cast<std::uint8_t>(id >> 8 * (2 - i));
        Send(m_packet.data(), m_packet.size(), Port);
    }

private:
    void Send(std::uint8_t const *bytes, std::size_t size, std::uint16_t port)
    {
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_port = htons(port);
        to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(sendto(m_socket, bytes, size, 0, reinterpret_cast<sockaddr *>(&to), sizeof to),
                  static_cast<ssize_t>(size));
    }

    int const m_socket;
    std::vector<std::uint8_t> m_packet;
};

// The session's log, as the program has it, where no TZ is set.
struct LogWriter
{
    FakeDevice device;
    FakeHost host{device.script};
    Session session{nullptr, &device, &host};
    std::atomic<std::uint32_t> packets{0};
    std::atomic<bool> stalled{false};

    LogWriter()
    {
        unsetenv("TZ");
    }
    static void Take(void const *data, unsigned long size, void *user)
    {
        auto *const self = static_cast<LogWriter *>(user);
        self->stalled.wait(true);
        self->session.WriteLog(Session::LogEnumStream, data, size);
        ++self->packets;
    }
    std::size_t Lines() const
    {
        return session.GetLogModel()->lines().Count();
    }
};

class FloodTest : public testing::Test
{
protected:
    // Nobody reads the packets; without a socket the answers would be messages that nobody is there.
    FloodTest() : m_sinks{FakeGigECamera::BindControlPort(), socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)}
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(Flood::Port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(bind(m_sinks[1], reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    }
    ~FloodTest() override
    {
        for (int const sink : m_sinks)
            close(sink);
    }

private:
    int const m_sinks[2];
};

TEST_F(FloodTest, TheSystemCopiesWhatALineShowsAndNothingUnasked)
{
    std::int32_t status;
    std::unique_ptr<PacketSource> const source = OpenGigECapture("lo", "127.0.0.1", &status);
    ASSERT_NE(source, nullptr);
    Flood flood;
    std::size_t packets = 0, most = 0;
    auto const take = [&](TapPacket const &packet) {
        packets += packet.channel == TovCam::EventStreamChannel;
        most = std::max(most, packet.captured);
        return true;
    };
    for (bool const wanted : {true, true, false, true}) { // the first one comes with the packet that tells the port
        packets = most = 0;
        source->SetStreamWanted(wanted);
        flood.Stream(1);
        for (auto const end = std::chrono::steady_clock::now() + 300ms; std::chrono::steady_clock::now() < end;)
            source->Read(take, 10ms);
        EXPECT_EQ(packets, wanted);
    }
    EXPECT_LT(most, 150u);
    EXPECT_GE(most, 97u);
}

// In and out are counted: each packet is a line or is counted as missed.
TEST_F(FloodTest, NoPacketIsLostUncounted)
{
    EventHub hub;
    PacketTaps taps(hub, [](std::int32_t *status) { return OpenGigECapture("lo", "127.0.0.1", status); });
    std::atomic<std::uint64_t> missed{0};
    ASSERT_EQ(hub.Register(TovCam::EventPacketsMissed, CountMissed, &missed), 0);
    auto log = std::make_unique<LogWriter>();
    ASSERT_EQ(taps.Register(TovCam::EventStreamChannel, LogWriter::Take, log.get()), 0);
    Flood flood;
    auto const expectAll = [&](std::uint32_t sent) {
        for (int i = 0; i < 300 && log->packets + missed < sent; ++i)
            std::this_thread::sleep_for(100ms);
        EXPECT_EQ(log->packets + missed, sent);
    };

    // 50,000 a second, in portions of a millisecond.
    constexpr std::uint32_t Sent = 100000, Portion = 50;
    auto due = std::chrono::steady_clock::now();
    auto const begin = due;
    for (std::uint32_t id = 0; id < Sent; ++id) {
        if (id % Portion == 0)
            std::this_thread::sleep_until(due += 1ms);
        flood.Stream(id);
    }
    std::chrono::duration<double> const took = std::chrono::steady_clock::now() - begin;
    expectAll(Sent);
    EXPECT_EQ(missed, 0u) << "at " << Sent / took.count() << " packets a second";
    EXPECT_EQ(log->Lines(), std::size_t{Sent});
    log->session.clearLog();

    // A subscriber that stands still longer than the ring lasts.
    constexpr std::uint32_t Burst = 400000;
    log->stalled = true;
    for (std::uint32_t id = 0; id < Burst; ++id)
        flood.Stream(id);
    log->stalled = false;
    log->stalled.notify_all();
    expectAll(Sent + Burst);
    EXPECT_GT(missed, 0u);

    ASSERT_EQ(taps.Unregister(TovCam::EventStreamChannel, LogWriter::Take, log.get()), 0);
}

} // namespace
