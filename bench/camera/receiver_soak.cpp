// Small frames by the million through the receiver, from a sender that loses packets, sends again what it is asked for,
// refuses some of it, and leaves out frames: what became of each is compared with what was sent. Ends with 1 where
// anything is not accounted for. Needs loopback alone: tests/support/in-netns receiver_soak [frames] [share lost]
// [ring]
#include "replay.h"

#include "gige/receiver.h"
#include "gige/ringsource.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <random>
#include <string>

namespace {

constexpr std::uint32_t DataPackets = 2, Packets = DataPackets + 2, DataSize = 1000, Width = 100, Height = 20;
constexpr std::size_t Payload = std::size_t{DataPackets} * DataSize;
constexpr std::uint32_t Buffers = 32, MostUnderWay = 12;
constexpr std::uint64_t LeftOutEvery = 50021, RefusedEvery = 10007;

// Frames are counted from 1.
bool IsLeftOut(std::uint64_t count)
{
    return count % LeftOutEvery == 0;
}
// The first packet of its data is not to be had.
bool IsRefused(std::uint64_t count)
{
    return count % RefusedEvery == 0 && !IsLeftOut(count);
}

struct Asked
{
    std::uint64_t count;
    std::uint32_t id;
};

// What sender and receiver's sink tell each other.
struct Exchange
{
    std::mutex mutex;
    std::condition_variable wake;
    std::uint64_t over = 0; // the newest frame that is
    std::deque<Asked> asked;
};

class Control final : public StreamControl
{
public:
    explicit Control(Exchange &exchange) : m_exchange(exchange)
    {
    }
    std::int32_t ReadRegister(std::uint32_t, std::uint32_t &value) override
    {
        value = 0;
        return 0;
    }
    std::int32_t WriteRegister(std::uint32_t, std::uint32_t) override
    {
        return 0;
    }
    void RequestPackets(PacketRequest const &request) override
    {
        std::lock_guard const lock(m_exchange.mutex);
        // The frame with this id that is next to those that are over.
        std::uint64_t const next = m_exchange.over + 1;
        std::uint64_t const ahead = (request.blockId + gvsp::LastBlockId - gvsp::BlockId16(next)) % gvsp::LastBlockId;
        for (std::uint32_t id = request.first; id <= request.last && id < Packets; ++id)
            m_exchange.asked.push_back({next + ahead, id});
        m_exchange.wake.notify_one();
    }
    std::uint32_t GetCameraAddress() const override
    {
        return INADDR_LOOPBACK;
    }
    std::uint32_t GetHostAddress() const override
    {
        return INADDR_LOOPBACK;
    }

private:
    Exchange &m_exchange;
};

// Takes what is over and looks whether it is what was sent.
class Sink final : public FrameSink
{
public:
    explicit Sink(Exchange &exchange) : m_exchange(exchange), m_memory(Payload * Buffers)
    {
        for (std::size_t i = 0; i < Buffers; ++i)
            m_free.push_back(&m_memory[i * Payload]);
    }
    bool TakeBuffer(BlockBuffer &buffer) override
    {
        if (m_free.empty())
            return false;
        buffer = {m_free.back(), Payload, nullptr};
        std::fill_n(m_free.back(), Payload, 0);
        m_free.pop_back();
        return true;
    }
    void GiveBack(BlockBuffer const &buffer) override
    {
        m_free.push_back(buffer.memory);
    }
    void Deliver(BlockFrame const &frame) override
    {
        std::uint64_t count = m_last + 1;
        for (; gvsp::BlockId16(count) != frame.blockId && count < m_last + 64; ++count)
            ++(IsLeftOut(count) ? leftOut : gaps);
        m_last = count;
        if (frame.end != BlockFrame::End::Complete)
            ++(IsRefused(count) && frame.missing == 1 ? refused : frame.missing > 0 ? incomplete : wrong);
        else if (IsRefused(count) || !IsRight(frame, count))
            ++wrong;
        else
            ++whole;
        GiveBack(frame.buffer);
        std::lock_guard const lock(m_exchange.mutex);
        m_exchange.over = count;
        m_exchange.wake.notify_one();
    }

    std::uint64_t whole = 0, incomplete = 0, refused = 0, leftOut = 0, gaps = 0, wrong = 0;

private:
    static bool IsRight(BlockFrame const &frame, std::uint64_t count)
    {
        bool isRight = frame.size == Payload && frame.timestamp == count;
        for (std::size_t at = 0; at < Payload; at += DataSize)
            isRight = isRight && LoadBig64(frame.buffer.memory + at) == count &&
                      LoadBig64(frame.buffer.memory + at + DataSize - 8) == ~count;
        return isRight;
    }

    Exchange &m_exchange;
    std::vector<std::uint8_t> m_memory;
    std::vector<std::uint8_t *> m_free;
    std::uint64_t m_last = 0;
};

class Sender
{
public:
    Sender(Exchange &exchange, std::uint16_t port, double loss)
        : m_exchange(exchange),
          m_socket(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)),
          m_loses(loss)
    {
        if (!ConnectSocket(m_socket, {INADDR_LOOPBACK, port}))
            std::exit(1);
    }
    ~Sender()
    {
        close(m_socket);
    }
    Sender(Sender const &) = delete;
    Sender &operator=(Sender const &) = delete;

    void Run(std::uint64_t frames)
    {
        for (std::uint64_t sent = 0;;) {
            std::deque<Asked> asked;
            std::uint64_t room = 0;
            {
                std::unique_lock lock(m_exchange.mutex);
                m_exchange.wake.wait(lock, [&] {
                    room = std::min(m_exchange.over + MostUnderWay, frames) - sent;
                    return room > 0 || !m_exchange.asked.empty() || m_exchange.over >= frames;
                });
                if (m_exchange.over >= frames)
                    return;
                asked.swap(m_exchange.asked);
            }
            for (Asked const &packet : asked)
                SendAgain(packet);
            for (; room > 0; --room) {
                ++sent;
                for (std::uint32_t id = 0; id < Packets && !IsLeftOut(sent); ++id) {
                    if (!(IsRefused(sent) && id == 1))
                        Lay(sent, id, 0);
                }
            }
            Flush();
        }
    }

    std::uint64_t packets = 0, lost = 0, again = 0, refused = 0;

private:
    static constexpr std::size_t Batch = 64;
    using Packet = std::array<std::uint8_t, gvsp::HeaderSize + DataSize>;

    void SendAgain(Asked const &packet)
    {
        bool const isRefused = IsRefused(packet.count) && packet.id == 1;
        ++(isRefused ? refused : again);
        Lay(packet.count, packet.id, isRefused ? gvcp::GEV_STATUS_PACKET_UNAVAILABLE : gvcp::GEV_STATUS_PACKET_RESEND);
    }
    void Lay(std::uint64_t count, std::uint32_t id, std::uint16_t status)
    {
        if (m_loses(m_random)) {
            ++lost;
            return;
        }
        bool const isLeader = id == 0, isTrailer = id == Packets - 1;
        Packet &packet = m_packets[m_count];
        std::uint8_t *const body = packet.data() + gvsp::HeaderSize;
        std::size_t size = DataSize;
        if (isLeader) {
            using Field = gvsp::ImageLeader;
            std::fill_n(body, size = Field::Size, 0);
            StoreBig16(body + Field::PayloadType, gvsp::Image);
            StoreBig64(body + Field::Timestamp, count);
            StoreBig32(body + Field::PixelFormat, 0x01080001);
            StoreBig32(body + Field::SizeX, Width);
            StoreBig32(body + Field::SizeY, Height);
        } else if (isTrailer) {
            using Field = gvsp::ImageTrailer;
            std::fill_n(body, size = Field::Size, 0);
            StoreBig16(body + Field::PayloadType, gvsp::Image);
            StoreBig32(body + Field::SizeY, Height);
        } else {
            StoreBig64(body, count);
            StoreBig64(body + DataSize - 8, ~count);
        }
        std::uint8_t const format = isLeader ? gvsp::DataLeader : isTrailer ? gvsp::DataTrailer : gvsp::DataPayload;
        gvsp::WriteHeader(std::span(packet).first<gvsp::HeaderSize>(),
                          {status, gvsp::BlockId16(count), format, id, false});
        m_pieces[m_count] = {packet.data(), gvsp::HeaderSize + ((status & 0x8000) != 0 ? 0 : size)};
        m_messages[m_count].msg_hdr.msg_iov = &m_pieces[m_count];
        m_messages[m_count].msg_hdr.msg_iovlen = 1;
        ++packets;
        if (++m_count == Batch)
            Flush();
    }
    void Flush()
    {
        if (m_count > 0 && sendmmsg(m_socket, m_messages.data(), static_cast<unsigned>(m_count), 0) < 0)
            std::perror("sendmmsg");
        m_count = 0;
    }

    Exchange &m_exchange;
    int const m_socket;
    std::minstd_rand m_random{2024};
    std::bernoulli_distribution m_loses;
    std::array<Packet, Batch> m_packets{};
    std::array<iovec, Batch> m_pieces{};
    std::array<mmsghdr, Batch> m_messages{};
    std::size_t m_count = 0;
};

bool Report(StreamStatistics const &s, Sink const &sink, Sender const &sender, std::uint64_t frames)
{
    auto const print = [](char const *what, std::uint64_t count) {
        std::printf("%10llu %s\n", static_cast<unsigned long long>(count), what);
    };
    print("frames", frames);
    print("delivered whole, each byte looked at in part", sink.whole);
    print("incomplete, because a packet was refused", sink.refused);
    print("incomplete otherwise, with packets missing", sink.incomplete);
    print("left out by the sender, told by a gap of ids", sink.leftOut);
    print("not accounted for: other gaps of ids", sink.gaps);
    print("not accounted for: other than sent", sink.wrong);
    print("packets sent", sender.packets);
    print("packets lost", sender.lost);
    print("packets sent again", sender.again);
    print("packets refused", sender.refused);
    print("counted: packets received", s.received.Get());
    print("counted: asked for", s.asked.Get());
    print("counted: come again", s.resent.Get());
    print("counted: duplicate", s.duplicate.Get());
    print("counted: late", s.late.Get());
    print("counted: missing", s.missing.Get());
    print("counted: dropped by the socket", s.socketDrops.Get());
    std::uint64_t const began = s.complete.Get() + s.incomplete.Get() + s.lost.Get() + s.aborted.Get();
    return sink.gaps == 0 && sink.wrong == 0 && sink.whole == s.complete.Get() &&
           sink.refused + sink.incomplete == s.incomplete.Get() && sink.leftOut == s.skipped.Get() &&
           began + s.skipped.Get() == frames && s.lost.Get() + s.aborted.Get() == 0 &&
           s.received.Get() == s.packets.Get() + s.duplicate.Get() + s.late.Get() + s.foreign.Get() +
                                   s.malformed.Get() + s.refused.Get() + s.ignored.Get() &&
           s.received.Get() + s.socketDrops.Get() == sender.packets;
}

} // namespace

int main(int argc, char **argv)
{
    std::uint64_t const frames = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 10'000'000;
    double const loss = argc > 2 ? std::atof(argv[2]) : 0.005;
    Exchange exchange;
    Control control(exchange);
    Sink sink(exchange);
    StreamStatistics statistics;
    Receiver receiver(control, sink, statistics);
    if (!receiver.Open(4 << 20))
        return 1;
    bool const byRing = argc > 3 && std::string(argv[3]) == "ring";
    if (byRing)
        receiver.SetSource(OpenRingSource(INADDR_LOOPBACK, INADDR_LOOPBACK, receiver.GetPort()));
    BlockLayout layout;
    layout.payload = Payload;
    layout.packetSize = DataSize + gvsp::HeaderSize + gvsp::UdpHeaderSize + gvsp::IpHeaderSize;
    layout.buffers = Buffers;
    layout.address = INADDR_LOOPBACK;
    receiver.Start(layout);
    Sender sender(exchange, receiver.GetPort(), loss);
    Replay::Clock::time_point const begin = Replay::Clock::now();
    sender.Run(frames);
    receiver.Stop();
    std::printf("%.0f s by %s, %.2f %% of the packets lost\n",
                std::chrono::duration<double>(Replay::Clock::now() - begin).count(), byRing ? "ring" : "socket",
                100 * loss);
    bool const isRight = Report(statistics, sink, sender, frames);
    std::printf("%s\n", isRight ? "every frame is accounted for" : "NOT ACCOUNTED FOR");
    return isRight ? 0 : 1;
}
