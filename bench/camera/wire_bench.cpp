// How fast a camera on the network sends, against a bare loop of sendmmsg with datagrams of the same sizes from one
// piece of memory, and against the fake camera of Aravis, which is spared the drawing; all to the same kind of
// receiver, rounds taken in turn: packets and bytes a second, the processor time a packet of all but the receiver, and
// what a camera takes of memory. Needs loopback alone: tests/support/in-netns wire_bench [seconds a round] [rounds]
#include "datagramsink.h"

#include "wire/framesender.h"

#include "eventhub.h"
#include "protocol/gigevision.h"
#include "sim/simstream.h"

#include <arv.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

constexpr std::size_t Batch = 64;
constexpr int SocketBuffer = 8 << 20;
constexpr std::size_t LongestDatagram = 65536;
constexpr std::uint32_t PacketSizes[] = {1500, 8200, 9000};
constexpr SimFormat Format{TV_PIXEL_MONO8, 2048, 1536};
SimModel const s_model{"B", "B", "1",     "", "", TovCam::InterfaceKindGigEVision, 2048, 1536, false, 0x01080001,
                       2,   0,   1000000, 1,  1.0};

DatagramSink OpenSink()
{
    return DatagramSink("sink", SO_RCVBUFFORCE, SocketBuffer, LongestDatagram);
}

struct Rate
{
    double sent, received, megabytes; // a second; packets, packets, bytes of UDP payload that were sent
    double cpu;                       // microseconds a packet that was sent
};

// From one call to the other. `packets` and `bytes` are those that were sent.
class Meter
{
public:
    Meter(DatagramSink &sink, std::uint64_t packets, std::uint64_t bytes)
        : m_sink(sink),
          m_packets(packets),
          m_bytes(bytes),
          m_received(sink.GetPackets()),
          m_cpu(Cpu()),
          m_wall(Seconds(CLOCK_MONOTONIC))
    {
    }
    Rate End(std::uint64_t packets, std::uint64_t bytes) const
    {
        double const wall = Seconds(CLOCK_MONOTONIC) - m_wall, sent = static_cast<double>(packets - m_packets);
        return {sent / wall, static_cast<double>(m_sink.GetPackets() - m_received) / wall,
                static_cast<double>(bytes - m_bytes) / wall / 1e6, 1e6 * (Cpu() - m_cpu) / sent};
    }

private:
    double Cpu() const
    {
        return Seconds(CLOCK_PROCESS_CPUTIME_ID) - m_sink.CpuSeconds();
    }

    DatagramSink &m_sink;
    std::uint64_t const m_packets, m_bytes, m_received;
    double const m_cpu, m_wall;
};

Rate RunBare(std::uint32_t packetSize, double seconds)
{
    DatagramSink sink = OpenSink();
    int const fd = socket(AF_INET, SOCK_DGRAM, 0);
    setsockopt(fd, SOL_SOCKET, SO_SNDBUFFORCE, &SocketBuffer, sizeof SocketBuffer);
    if (!ConnectSocket(fd, {INADDR_LOOPBACK, sink.GetPort()}))
        std::exit(1);
    std::size_t const size = packetSize - gvsp::IpHeaderSize - gvsp::UdpHeaderSize, data = size - gvsp::HeaderSize;
    std::vector<std::uint8_t> frame(Format.Payload() / data * data);
    std::array<std::uint8_t, gvsp::HeaderSize> header{};
    std::array<std::array<iovec, 2>, Batch> pieces{};
    std::array<mmsghdr, Batch> messages{};
    std::uint64_t packets = 0;
    std::size_t at = 0;
    double const end = Seconds(CLOCK_MONOTONIC) + seconds;
    Meter const meter(sink, 0, 0);
    while (Seconds(CLOCK_MONOTONIC) < end) {
        for (std::size_t i = 0; i < Batch; ++i) {
            pieces[i] = {iovec{header.data(), header.size()}, iovec{frame.data() + at, data}};
            messages[i].msg_hdr.msg_iov = pieces[i].data();
            messages[i].msg_hdr.msg_iovlen = 2;
            at = (at + data) % frame.size();
        }
        packets += static_cast<std::uint64_t>(std::max(sendmmsg(fd, messages.data(), Batch, 0), 0));
    }
    Rate const rate = meter.End(packets, packets * size);
    close(fd);
    return rate;
}

Rate RunCamera(std::uint32_t packetSize, double seconds)
{
    DatagramSink sink = OpenSink();
    EventHub hub;
    SimStream stream(s_model, hub, [](SimFormat &format) { return format = Format, 0; }, SimStream::Packets::OfTaker);
    FrameSender sender(s_model, stream);
    StreamChannel channel;
    channel.localAddress = channel.address = INADDR_LOOPBACK;
    channel.port = sink.GetPort();
    channel.packetSize = packetSize;
    sender.Open(channel);
    stream.SetEager(true);
    sender.Begin(Format.Payload());
    stream.Begin(Format, {}, -1);
    while (sender.GetCounters().frames < 10) // the scene is made by then
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    StreamCounters const before = sender.GetCounters();
    Meter const meter(sink, before.packets, before.bytes);
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    StreamCounters const after = sender.GetCounters();
    Rate const rate = meter.End(after.packets, after.bytes);
    stream.End();
    sender.End();
    return rate;
}

void Ignore(ArvBuffer *, void *, std::uint32_t, std::uint32_t, ArvPixelFormat)
{
}

// The fake camera counts nothing: what arrives stands for what was sent.
Rate RunAravis(std::uint32_t packetSize, double seconds)
{
    DatagramSink sink = OpenSink();
    ArvGvFakeCamera *const gige = arv_gv_fake_camera_new("lo", "BENCH");
    ArvFakeCamera *const fake = arv_gv_fake_camera_get_fake_camera(gige);
    arv_fake_camera_set_fill_pattern(fake, Ignore, nullptr);
    namespace B = gvcp::bootstrap;
    for (auto const &[address, value] : std::initializer_list<std::pair<std::uint32_t, std::uint32_t>>{
             {B::HeartbeatTimeout, 600000},
             {B::ControlChannelPrivilege, gvcp::ControlAccess},
             {B::StreamChannelDestinationAddress, INADDR_LOOPBACK},
             {B::StreamChannelPort, sink.GetPort()},
             {B::StreamChannelPacketSize, packetSize},
             {ARV_FAKE_CAMERA_REGISTER_WIDTH, Format.width},
             {ARV_FAKE_CAMERA_REGISTER_HEIGHT, Format.height},
             {ARV_FAKE_CAMERA_REGISTER_ACQUISITION_FRAME_PERIOD_US, 1},
             {ARV_FAKE_CAMERA_REGISTER_ACQUISITION, 1}})
        arv_fake_camera_write_register(fake, address, value);
    arv_fake_camera_set_control_channel_privilege(fake, gvcp::ControlAccess);
    std::size_t const size = packetSize - gvsp::IpHeaderSize - gvsp::UdpHeaderSize;
    while (sink.GetPackets() < 100)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    std::uint64_t const before = sink.GetPackets();
    Meter const meter(sink, before, before * size);
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    std::uint64_t const after = sink.GetPackets();
    Rate const rate = meter.End(after, after * size);
    g_object_unref(gige);
    return rate;
}

double ResidentMegabytes()
{
    std::uint64_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> pages;
    return static_cast<double>(pages) * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1048576.0;
}

// Of several that have sent frames of 3 MB; what pools took for the first is not counted.
double CameraMegabytes()
{
    struct Camera
    {
        EventHub hub;
        SimStream stream{s_model, hub, [](SimFormat &format) { return format = Format, 0; },
                         SimStream::Packets::OfTaker};
        FrameSender sender{s_model, stream};
    };
    constexpr int Cameras = 4;
    DatagramSink sink = OpenSink();
    std::vector<std::unique_ptr<Camera>> cameras;
    double before = 0.0;
    for (int i = 0; i < 1 + Cameras; ++i) {
        if (i == 1)
            before = ResidentMegabytes();
        Camera &camera = *cameras.emplace_back(std::make_unique<Camera>());
        StreamChannel channel;
        channel.localAddress = channel.address = INADDR_LOOPBACK;
        channel.port = sink.GetPort();
        camera.sender.Open(channel);
        camera.stream.SetEager(true);
        camera.sender.Begin(Format.Payload());
        camera.stream.Begin(Format, {}, 20);
        while (camera.sender.GetCounters().frames < 20)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return (ResidentMegabytes() - before) / Cameras;
}

Rate Median(std::vector<Rate> rates)
{
    auto const of = [&rates](double Rate::*value) {
        std::nth_element(rates.begin(), rates.begin() + static_cast<std::ptrdiff_t>(rates.size() / 2), rates.end(),
                         [value](Rate const &a, Rate const &b) { return a.*value < b.*value; });
        return rates[rates.size() / 2].*value;
    };
    return {of(&Rate::sent), of(&Rate::received), of(&Rate::megabytes), of(&Rate::cpu)};
}

void Print(char const *what, std::uint32_t packetSize, Rate const &rate)
{
    std::printf("%5u bytes, %s: %9.0f packets/s, %7.1f MB/s, %6.3f us of processor time a packet, %5.1f %% arrive\n",
                packetSize, what, rate.sent, rate.megabytes, rate.cpu, 100.0 * rate.received / rate.sent);
}

} // namespace

int main(int argc, char **argv)
{
    double const seconds = argc > 1 ? std::atof(argv[1]) : 2.0;
    int const rounds = std::max(argc > 2 ? std::atoi(argv[2]) : 5, 1);
    std::printf("medians of %d rounds of %.1f s in turn\n", rounds, seconds);
    for (std::uint32_t const packetSize : PacketSizes) {
        std::vector<Rate> bare, camera, aravis;
        for (int i = 0; i < rounds; ++i) {
            bare.push_back(RunBare(packetSize, seconds));
            camera.push_back(RunCamera(packetSize, seconds));
            aravis.push_back(RunAravis(packetSize, seconds));
        }
        Rate const loop = Median(bare), ours = Median(camera), fake = Median(aravis);
        Print("loop  ", packetSize, loop);
        Print("camera", packetSize, ours);
        Print("Aravis", packetSize, fake);
        std::printf("%5u bytes: the camera sends %.3f of the loop's packets, at %.3f of its processor time each, and "
                    "%.2f of Aravis' at %.3f\n",
                    packetSize, ours.sent / loop.sent, ours.cpu / loop.cpu, ours.sent / fake.sent, ours.cpu / fake.cpu);
    }
    std::printf("a camera with frames of %.1f MB takes %.1f MB\n", static_cast<double>(Format.Payload()) / 1048576.0,
                CameraMegabytes());
}
