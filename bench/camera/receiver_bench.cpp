// What it costs to receive a GigE Vision stream, and how fast it may be: our receiver by socket and by packet ring,
// Aravis' stream by socket and by packet socket, and a bare loop of recvmmsg that leaves the packets where they are.
// The same sender for all, on the other processor, rounds taken in turn: the processor time that the receiving thread
// takes for a packet, and the highest rate at which nothing is lost. Needs loopback alone, and root for the rings:
// tests/support/in-netns receiver_bench [rounds] [seconds a measurement] [bytes of the only packets]
// Before Qt, whose keywords it uses as names.
#include <arv.h>

#include "datagramsink.h"
#include "fakegige.h"
#include "replay.h"

#include "gige/gigestream.h"
#include "gige/ringsource.h"

#include <log4cpp/Category.hh>

#include <atomic>
#include <cmath>
#include <dirent.h>
#include <map>
#include <memory>
#include <optional>
#include <thread>

namespace {

using namespace std::chrono_literals;

constexpr std::uint32_t Width = 1024, Height = 1024;
constexpr std::uint32_t Buffers = 16;
constexpr int SocketRoom = 4 << 20; // what our stream asks for with frames of this size
constexpr std::size_t Run = 16;     // packets that come at once, as adapters hand them over
constexpr auto Settled = 50ms;      // nothing comes any more

// Of this process, by its name; 0 for none.
pid_t FindThread(std::string const &name)
{
    pid_t found = 0;
    DIR *const tasks = opendir("/proc/self/task");
    while (dirent const *const entry = readdir(tasks)) {
        std::string text;
        std::getline(std::ifstream(std::string("/proc/self/task/") + entry->d_name + "/comm"), text);
        if (text == name)
            found = std::atoi(entry->d_name);
    }
    closedir(tasks);
    return found;
}

// The processor time of a thread of any library.
double ThreadSeconds(pid_t thread)
{
    constexpr int PerThread = 4, Scheduled = 2; // as pthread_getcpuclockid() makes them
    return Seconds(static_cast<clockid_t>((~static_cast<unsigned>(thread) << 3) | PerThread | Scheduled));
}

// What receives, and gives its frames to a thread that puts the buffers back at once.
class Target
{
public:
    virtual ~Target() = default;
    virtual std::uint16_t GetPort() const = 0;
    virtual char const *ThreadName() const = 0;
    virtual std::uint64_t WholeFrames() const = 0;
    // Frames begin here for one that only counts packets.
    virtual void Begin()
    {
    }
};

class BareLoop final : public Target
{
public:
    explicit BareLoop(std::size_t packetsPerFrame) : m_packetsPerFrame(packetsPerFrame)
    {
    }
    std::uint16_t GetPort() const override
    {
        return m_sink.GetPort();
    }
    char const *ThreadName() const override
    {
        return Name;
    }
    std::uint64_t WholeFrames() const override
    {
        return (m_sink.GetPackets() - m_begin) / m_packetsPerFrame;
    }
    void Begin() override
    {
        m_begin = m_sink.GetPackets();
    }

private:
    static constexpr char Name[] = "bare";
    static constexpr std::size_t LongestDatagram = 9000;

    std::size_t const m_packetsPerFrame;
    DatagramSink m_sink{Name, SO_RCVBUF, SocketRoom, LongestDatagram};
    std::uint64_t m_begin = 0;
};

class AravisStream final : public Target
{
public:
    AravisStream(ArvDevice *device, bool byPacketSocket)
    {
        arv_gv_device_set_stream_options(ARV_GV_DEVICE(device), byPacketSocket
                                                                    ? ARV_GV_STREAM_OPTION_NONE
                                                                    : ARV_GV_STREAM_OPTION_PACKET_SOCKET_DISABLED);
        m_stream = arv_device_create_stream(device, nullptr, nullptr, nullptr);
        g_object_set(m_stream, "socket-buffer", ARV_GV_STREAM_SOCKET_BUFFER_FIXED, "socket-buffer-size", SocketRoom,
                     "packet-resend", ARV_GV_STREAM_PACKET_RESEND_NEVER, nullptr);
        for (std::uint32_t i = 0; i < Buffers; ++i)
            arv_stream_push_buffer(m_stream, arv_buffer_new_allocate(std::size_t{Width} * Height));
        m_thread = std::thread([this] {
            while (!m_quit) {
                ArvBuffer *const buffer = arv_stream_timeout_pop_buffer(m_stream, 20000);
                if (!buffer)
                    continue;
                m_frames += arv_buffer_get_status(buffer) == ARV_BUFFER_STATUS_SUCCESS;
                arv_stream_push_buffer(m_stream, buffer);
            }
        });
    }
    ~AravisStream() override
    {
        m_quit = true;
        m_thread.join();
        g_object_unref(m_stream);
    }
    std::uint16_t GetPort() const override
    {
        return arv_gv_stream_get_port(ARV_GV_STREAM(m_stream));
    }
    char const *ThreadName() const override
    {
        return "arv_gv_stream";
    }
    std::uint64_t WholeFrames() const override
    {
        return m_frames;
    }

private:
    ArvStream *m_stream = nullptr;
    std::atomic<bool> m_quit{false};
    std::atomic<std::uint64_t> m_frames{0};
    std::thread m_thread;
};

// A camera that has its registers and sends nothing again.
class Control final : public StreamControl
{
public:
    Control(std::uint32_t packetSize, std::uint16_t port) : m_packetSize(packetSize), m_port(port)
    {
    }
    std::int32_t ReadRegister(std::uint32_t address, std::uint32_t &value) override
    {
        value = address == gvcp::bootstrap::StreamChannelPacketSize   ? m_packetSize
                : address == gvcp::bootstrap::StreamChannelSourcePort ? m_port
                                                                      : 0;
        return TOV_CAM_ERR_OK;
    }
    std::int32_t WriteRegister(std::uint32_t address, std::uint32_t value) override
    {
        if (address == gvcp::bootstrap::StreamChannelPort && value != 0)
            hostPort = static_cast<std::uint16_t>(value);
        return TOV_CAM_ERR_OK;
    }
    void RequestPackets(PacketRequest const &) override
    {
    }
    std::uint32_t GetCameraAddress() const override
    {
        return INADDR_LOOPBACK;
    }
    std::uint32_t GetHostAddress() const override
    {
        return INADDR_LOOPBACK;
    }

    std::uint16_t hostPort = 0;

private:
    std::uint32_t const m_packetSize;
    std::uint16_t const m_port;
};

class OurStream final : public Target
{
public:
    OurStream(ArvDevice *device, std::uint32_t packetSize, std::uint16_t port, bool byRing)
        : m_control(std::make_shared<Control>(packetSize, port)),
          m_stream(device, m_access, m_reachability, m_control)
    {
        if (byRing) {
            m_stream.SetSource([](std::uint16_t host) {
                std::unique_ptr<DatagramSource> ring = OpenRingSource(INADDR_LOOPBACK, INADDR_LOOPBACK, host);
                if (!ring)
                    std::fprintf(stderr, "no ring\n");
                return ring;
            });
        }
        if (m_stream.AllocBufferQueue(nullptr, Buffers) != TOV_CAM_ERR_OK ||
            m_stream.StartAcquisition(-1, 0) != TOV_CAM_ERR_OK) {
            std::fprintf(stderr, "no stream\n");
            std::exit(1);
        }
        m_thread = std::thread([this] {
            while (!m_quit) {
                std::int32_t error;
                TovCam::Buffer *const buffer = m_stream.GetBuffer(20, &error);
                if (!buffer)
                    continue;
                m_frames += !buffer->IsIncomplete();
                m_stream.QueueBuffer(buffer);
            }
        });
    }
    ~OurStream() override
    {
        m_quit = true;
        m_thread.join();
        m_stream.StopAcquisition(0);
        m_stream.Close();
    }
    std::uint16_t GetPort() const override
    {
        return m_control->hostPort;
    }
    char const *ThreadName() const override
    {
        return "gvsp";
    }
    std::uint64_t WholeFrames() const override
    {
        return m_frames;
    }

private:
    std::recursive_mutex m_access;
    Reachability m_reachability;
    std::shared_ptr<Control> const m_control;
    GigeStream m_stream;
    std::atomic<bool> m_quit{false};
    std::atomic<std::uint64_t> m_frames{0};
    std::thread m_thread;
};

enum Kind : std::size_t { Bare, AravisSocket, OurSocket, AravisPacket, OurRing, Kinds };
constexpr std::array<char const *, Kinds> Names{"bare recvmmsg loop", "Aravis, socket", "ours, socket",
                                                "Aravis, packet socket", "ours, packet ring"};

struct Outcome
{
    double rate = 0; // packets a second that were sent
    double cpu = 0;  // microseconds a packet of the receiving thread
    bool isWhole = false;
};

class Bench
{
public:
    Bench(ArvDevice *device, std::uint32_t packetSize, bool segments, double seconds)
        : m_device(device),
          m_packetSize(packetSize),
          m_seconds(seconds),
          m_replay(Width, Height, packetSize, segments ? 2 * Run : Run, segments)
    {
    }

    Outcome Measure(Kind kind, double rate, double seconds)
    {
        std::unique_ptr<Target> const target = Make(kind);
        pid_t thread = 0;
        while ((thread = FindThread(target->ThreadName())) == 0)
            std::this_thread::sleep_for(1ms);
        m_replay.SetTarget(target->GetPort());
        auto const perFrame = static_cast<double>(m_replay.PacketsPerFrame());
        auto const frames = [&](double time) {
            return static_cast<std::size_t>(std::max(4.0, time * (rate > 0 ? rate : 500000.0) / perFrame));
        };
        // Each buffer has been written once before it counts.
        std::size_t const first = std::max<std::size_t>(frames(0.05), 2 * Buffers), count = frames(seconds);
        Send(first, rate);
        Settle(*target);
        target->Begin();
        std::uint64_t const whole = target->WholeFrames();
        double const cpu = ThreadSeconds(thread);
        double const time = Send(count, rate);
        Settle(*target);
        double const packets = perFrame * static_cast<double>(count);
        return {packets / time, 1e6 * (ThreadSeconds(thread) - cpu) / packets, target->WholeFrames() - whole == count};
    }
    // The highest rate at which nothing is lost: by halves, what fails is tried once more.
    Outcome Search(Kind kind)
    {
        auto const isWhole = [&](double rate, Outcome &best) {
            for (int i = 0; i < 2; ++i) {
                Outcome const outcome = Measure(kind, rate, m_seconds);
                if (outcome.isWhole) {
                    best = outcome.rate > best.rate ? outcome : best;
                    return true;
                }
            }
            return false;
        };
        Outcome best;
        if (isWhole(0, best))
            return best; // nothing sends faster
        double low = 5000, high = Measure(kind, 0, m_seconds).rate;
        while (high / low > 1.03) {
            double const middle = std::sqrt(low * high);
            (isWhole(middle, best) ? low : high) = middle;
        }
        best.isWhole = false;
        return best;
    }

private:
    std::unique_ptr<Target> Make(Kind kind) const
    {
        switch (kind) {
        case Bare:
            return std::make_unique<BareLoop>(m_replay.PacketsPerFrame());
        case AravisSocket:
        case AravisPacket:
            return std::make_unique<AravisStream>(m_device, kind == AravisPacket);
        default:
            return std::make_unique<OurStream>(m_device, m_packetSize, m_replay.GetPort(), kind == OurRing);
        }
    }
    double Send(std::size_t frames, double rate)
    {
        double time = 0;
        std::thread([&] {
            PinTo(1);
            time = m_replay.Send(frames, rate);
        }).join();
        return time;
    }
    static void Settle(Target const &target)
    {
        for (std::uint64_t last = ~std::uint64_t{0}, now; (now = target.WholeFrames()) != last; last = now)
            std::this_thread::sleep_for(Settled);
    }

    ArvDevice *const m_device;
    std::uint32_t const m_packetSize;
    double const m_seconds;
    Replay m_replay;
};

double Median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// To the other's of the same round: what else the machine does weighs on both.
double Ratio(std::vector<double> const &own, std::vector<double> const &peer)
{
    std::vector<double> ratios;
    for (std::size_t i = 0; i < own.size(); ++i)
        ratios.push_back(own[i] / peer[i]);
    return Median(ratios);
}

using Values = std::map<Kind, std::vector<double>>;

void PrintCpu(double rate, std::vector<Kind> const &kinds, Values &cpu, Values &lost)
{
    for (Kind const kind : kinds) {
        std::printf("  %-22s %8.0f packets/s: %.3f us of processor time a packet, %.2f of Aravis' by socket",
                    Names[kind], rate, Median(cpu[kind]), Ratio(cpu[kind], cpu[AravisSocket]));
        if (kind == OurRing)
            std::printf(", %.2f of Aravis' by packet socket", Ratio(cpu[kind], cpu[AravisPacket]));
        if (Median(lost[kind]) > 0)
            std::printf(" (with losses)");
        std::printf("\n");
    }
}

void PrintRates(std::vector<Kind> const &kinds, Values &rates, Values &isSenders)
{
    for (Kind const kind : kinds)
        std::printf("  %-22s %8.0f packets/s without loss%s, %.2f of Aravis' by socket, %.2f of the bare loop's\n",
                    Names[kind], Median(rates[kind]), Median(isSenders[kind]) > 0 ? " (the sender's limit)" : "",
                    Ratio(rates[kind], rates[AravisSocket]), Ratio(rates[kind], rates[Bare]));
}

void RunAll(ArvDevice *device, std::uint32_t packetSize, bool segments, int rounds, double seconds)
{
    std::vector<Kind> kinds{Bare, AravisSocket, OurSocket};
    if (!segments) // a packet socket sees what is not cut yet
        kinds.insert(kinds.end(), {AravisPacket, OurRing});
    Bench bench(device, packetSize, segments, seconds);
    std::printf("packets of %u bytes, sent %s\n", packetSize, segments ? "in segments" : "one by one");
    arv_gv_device_set_packet_size(ARV_GV_DEVICE(device), static_cast<gint>(packetSize), nullptr);
    // What links of 1 and of 2.5 Gbit/s carry, with preamble, Ethernet's header, checksum and gap.
    for (double const link : {1e9, 2.5e9}) {
        double const rate = link / 8 / (packetSize + 38.0);
        Values cpu, lost;
        for (int round = 0; round < rounds; ++round) {
            for (Kind const kind : kinds) {
                Outcome const outcome = bench.Measure(kind, rate, seconds);
                cpu[kind].push_back(outcome.cpu);
                lost[kind].push_back(!outcome.isWhole);
            }
        }
        PrintCpu(rate, kinds, cpu, lost);
    }
    Values rates, isSenders;
    for (int round = 0; round < rounds; ++round) {
        for (Kind const kind : kinds) {
            Outcome const outcome = bench.Search(kind);
            rates[kind].push_back(outcome.rate);
            isSenders[kind].push_back(outcome.isWhole);
        }
    }
    PrintRates(kinds, rates, isSenders);
}

} // namespace

int main(int argc, char **argv)
{
    int const rounds = std::max(argc > 1 ? std::atoi(argv[1]) : 5, 1);
    double const seconds = argc > 2 ? std::atof(argv[2]) : 0.5;
    unsigned const only = argc > 3 ? static_cast<unsigned>(std::atoi(argv[3])) : 0;
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    log4cpp::Category::getInstance("TOVSCP").setPriority(log4cpp::Priority::FATAL);
    PinTo(0);              // all but the sender
    FakeGigECamera camera; // for the registers; it sends nothing
    GInetAddress *const host = g_inet_address_new_loopback(G_SOCKET_FAMILY_IPV4);
    ArvDevice *const device = arv_gv_device_new(host, host, nullptr);
    g_object_unref(host);
    arv_device_set_integer_feature_value(device, "Width", Width, nullptr);
    arv_device_set_integer_feature_value(device, "Height", Height, nullptr);
    std::printf("medians of %d rounds in turn\n", rounds);
    for (std::uint32_t const packetSize : {1500u, 8200u}) {
        for (bool const segments : {true, false}) {
            if (only == 0 || only == packetSize)
                RunAll(device, packetSize, segments, rounds, seconds);
        }
    }
    g_object_unref(device);
}
