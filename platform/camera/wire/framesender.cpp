#include "framesender.h"

#include "frameblock.h"
#include "packetbatch.h"
#include "packetplan.h"
#include "streamforger.h"

#include "protocol/socketaddress.h"
#include "sim/simstream.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <limits>
#include <mutex>
#include <new>
#include <optional>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr Clock::time_point Never = Clock::time_point::max();
constexpr int SendBuffer = 4 << 20;        // bytes
constexpr std::uint32_t FramesAhead = 3;   // one that is drawn, one that waits, one that is sent
constexpr std::uint32_t MostRefusals = 32; // headers that answer one request
// A pace that fell back by more than this goes on from there; less is made up for.
constexpr auto MostDebt = std::chrono::milliseconds(2);

// A UDP socket that knows where it sends to.
class StreamSocket
{
public:
    explicit StreamSocket(StreamChannel const &channel)
        : m_fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)),
          m_asked(channel)
    {
        Check(m_fd >= 0);
        // Held while a frame of the channel before is still on its way by another one.
        SetOption(SOL_SOCKET, SO_REUSEADDR, 1);
        if (!SetOption(SOL_SOCKET, SO_SNDBUFFORCE, SendBuffer)) // only of the system's administrator
            SetOption(SOL_SOCKET, SO_SNDBUF, SendBuffer);
        try {
            Check(BindSocket(m_fd, {channel.localAddress, channel.localPort}));
            Check(ConnectSocket(m_fd, {channel.address, channel.port}));
        } catch (...) {
            close(m_fd);
            throw;
        }
    }
    ~StreamSocket()
    {
        close(m_fd);
    }
    StreamSocket(StreamSocket const &) = delete;
    StreamSocket &operator=(StreamSocket const &) = delete;

    int Get() const
    {
        return m_fd;
    }
    bool Suits(StreamChannel const &channel) const
    {
        return channel.localAddress == m_asked.localAddress && channel.localPort == m_asked.localPort &&
               channel.address == m_asked.address && channel.port == m_asked.port;
    }
    // Whatever the system has learnt about the way: what is too large for it is lost there, as a camera's would be.
    void SetDoNotFragment(bool doNotFragment) const
    {
        SetOption(IPPROTO_IP, IP_MTU_DISCOVER, doNotFragment ? IP_PMTUDISC_PROBE : IP_PMTUDISC_DONT);
    }
    std::uint16_t GetPort() const
    {
        return AddressOfSocket(m_fd).port;
    }

private:
    static void Check(bool isDone)
    {
        if (!isDone)
            throw std::system_error(errno, std::generic_category(), "stream channel");
    }
    bool SetOption(int level, int option, int value) const
    {
        return setsockopt(m_fd, level, option, &value, sizeof value) == 0;
    }

    int const m_fd;
    StreamChannel const m_asked;
};

struct Outlet
{
    StreamChannel channel;
    std::shared_ptr<StreamSocket const> socket;
    Clock::time_point since; // the channel is open
};

struct Request
{
    std::uint64_t blockId = 0;
    std::uint32_t next = 0, last = 0;
    Clock::time_point due;
    std::uint32_t refusals = 0; // that answered it
};

// A queue that allocates nothing.
class RequestQueue
{
public:
    bool IsEmpty() const
    {
        return m_count == 0;
    }
    void Push(Request const &request) // dropped where there is no room
    {
        if (m_count < m_slots.size())
            m_slots[(m_first + m_count++) % m_slots.size()] = request;
    }
    Request const &Front() const
    {
        return m_slots[m_first];
    }
    Request Pop()
    {
        Request const request = m_slots[m_first];
        m_first = (m_first + 1) % m_slots.size();
        --m_count;
        return request;
    }
    void Clear()
    {
        m_count = 0;
    }

private:
    std::array<Request, 128> m_slots;
    std::size_t m_first = 0, m_count = 0;
};

// A frame that was sent, or is being sent.
struct KeptFrame
{
    SimBuffer *buffer = nullptr;
    FrameBlock block;
    FrameGaps gaps;
};

ForgedPacket CopyOf(FrameBlock const &block, std::uint32_t id, gvsp::Header const &header)
{
    FrameBlock::HeaderRoom room;
    PacketPieces const laid = block.Lay(id, header, room);
    ForgedPacket packet{.header = header};
    for (std::size_t i = 0; i < laid.count; ++i) {
        auto const *const bytes = static_cast<std::uint8_t const *>(laid.pieces[i].iov_base);
        packet.body.insert(packet.body.end(), bytes, bytes + laid.pieces[i].iov_len);
    }
    packet.body.erase(packet.body.begin(), packet.body.begin() + static_cast<std::ptrdiff_t>(header.Size()));
    return packet;
}

} // namespace

struct FrameSender::Impl
{
    Impl(SimModel const &simModel, SimStream &simStream) : model(simModel), stream(simStream), thread([this] { Run(); })
    {
    }

    void Run();
    void Work(std::unique_lock<std::mutex> &lock);
    void TakeFaults();
    void SendFrame(SimBuffer &buffer);
    void SendPackets(KeptFrame const &frame);
    void SendForged(KeptFrame const &frame);
    void CountSent(KeptFrame const &frame);
    void ForgeResent(KeptFrame const &frame, std::uint32_t id, Outlet const &to);
    bool Rest(Clock::time_point until);
    std::size_t CountDue(std::size_t left);
    Clock::time_point NextRequest() const;
    void ServeRequests();
    bool Answer(Request &request, Outlet const &to);
    void Refuse(Request &request, KeptFrame const *frame, bool isExtended, bool extendedStatus);
    KeptFrame const *Find(std::uint64_t blockId) const;
    void LetGo(std::size_t keep);
    std::size_t CountKept(std::int64_t period) const;
    bool Send(Outlet const &outlet);

    SimModel const &model;
    SimStream &stream;

    std::mutex mutex;                // guards everything down to the blank line
    std::condition_variable wake;    // the thread: something to do
    std::condition_variable settled; // Begin: the thread touches no frame
    std::shared_ptr<Outlet const> outlet;
    StreamFaults faults;
    bool faultsChanged = false;
    RequestQueue requests;
    bool taking = false; // frames
    bool busy = true;    // the thread may touch frames
    bool abort = false, quit = false;

    // Set with the mutex held when a thread that sends has to look at what it guards.
    std::atomic<bool> disturbed{false};
    std::atomic<std::uint64_t> frames{0}, packets{0}, resent{0}, refused{0}, bytes{0}, leftOut{0};

    // The thread's own; Begin's while it is not busy.
    std::vector<KeptFrame> kept; // a ring, with room for one that is being sent
    std::size_t firstKept = 0, keptCount = 0;
    std::uint64_t newestBlock = 0; // 0: none
    std::uint64_t lastSent = 0;    // by the sensor's count, from 1 on
    PacketPlan plan;
    PacketBatch batch;
    StreamForger forger;
    std::shared_ptr<Outlet const> sending; // what the present frame goes by
    std::optional<Request> request;        // that is being served
    Clock::time_point nextPacket;          // by the pace

    std::thread thread; // last: it uses everything above
};

// ---- The camera's calls ------------------------------------------------------------------------------------------

FrameSender::FrameSender(SimModel const &model, SimStream &stream) : m_impl(std::make_unique<Impl>(model, stream))
{
}

FrameSender::~FrameSender()
{
    End();
    {
        std::lock_guard<std::mutex> const lock(m_impl->mutex);
        m_impl->quit = m_impl->disturbed = true;
    }
    m_impl->wake.notify_all();
    m_impl->stream.CancelGetBuffer();
    m_impl->thread.join();
    m_impl->LetGo(0);
    m_impl->stream.ReleaseBufferQueue();
}

void FrameSender::Open(StreamChannel const &channel)
{
    std::shared_ptr<StreamSocket const> socket;
    Clock::time_point since = Clock::now();
    {
        std::lock_guard<std::mutex> const lock(m_impl->mutex);
        if (m_impl->outlet)
            since = m_impl->outlet->since;
        if (m_impl->outlet && m_impl->outlet->socket->Suits(channel))
            socket = m_impl->outlet->socket;
    }
    if (!socket)
        socket = std::make_shared<StreamSocket const>(channel);
    socket->SetDoNotFragment(channel.doNotFragment);
    auto outlet = std::make_shared<Outlet const>(Outlet{channel, socket, since});
    {
        std::lock_guard<std::mutex> const lock(m_impl->mutex);
        m_impl->outlet = std::move(outlet);
    }
    m_impl->wake.notify_all();
}

void FrameSender::Close()
{
    {
        std::lock_guard<std::mutex> const lock(m_impl->mutex);
        m_impl->outlet.reset();
        m_impl->requests.Clear();
        m_impl->disturbed = true;
    }
    m_impl->wake.notify_all();
    m_impl->stream.CancelGetBuffer();
}

std::uint16_t FrameSender::GetLocalPort() const
{
    std::lock_guard<std::mutex> const lock(m_impl->mutex);
    return m_impl->outlet ? m_impl->outlet->socket->GetPort() : std::uint16_t{0};
}

bool FrameSender::SendTestPacket()
{
    std::shared_ptr<Outlet const> outlet;
    {
        std::lock_guard<std::mutex> const lock(m_impl->mutex);
        outlet = m_impl->outlet;
    }
    constexpr std::size_t Headers = gvsp::IpHeaderSize + gvsp::UdpHeaderSize;
    if (!outlet || outlet->channel.packetSize < Headers + gvsp::HeaderSize)
        return false;
    std::vector<std::uint8_t> packet(outlet->channel.packetSize - Headers);
    // Block 0 is none, so nobody takes it for a piece of a frame.
    gvsp::WriteHeader(std::span(packet).first<gvsp::HeaderSize>(),
                      {gvcp::GEV_STATUS_SUCCESS, 0, gvsp::DataPayload, 0, false});
    auto const send = [&] {
        return ::send(outlet->socket->Get(), packet.data(), packet.size(), MSG_NOSIGNAL) >= 0;
    };
    // The first call may tell of an earlier packet that nobody listened to.
    return send() || (errno == ECONNREFUSED && send());
}

void FrameSender::Begin(std::uint64_t frameBytes)
{
    End();
    {
        std::unique_lock<std::mutex> lock(m_impl->mutex);
        m_impl->requests.Clear();
        m_impl->abort = m_impl->disturbed = true;
        m_impl->wake.notify_all();
        m_impl->settled.wait(lock, [this] { return !m_impl->busy; });
        m_impl->abort = false;
    }
    // The thread has nothing to do with frames until they are taken again.
    m_impl->LetGo(0);
    m_impl->newestBlock = 0;
    m_impl->lastSent = 0;
    m_impl->request.reset();
    m_impl->stream.ReleaseBufferQueue();
    std::uint64_t const fit = KeptBytes / std::max<std::uint64_t>(frameBytes, 1);
    auto const keep = static_cast<std::uint32_t>(std::clamp<std::uint64_t>(fit, FewestKept, MostKept));
    m_impl->kept = std::vector<KeptFrame>(keep + 1);
    m_impl->firstKept = 0;
    if (m_impl->stream.AllocBufferQueue(nullptr, keep + FramesAhead) != TOV_CAM_ERR_OK)
        throw std::bad_alloc();
    m_impl->stream.StartAcquisition(-1, 0);
    {
        std::lock_guard<std::mutex> const lock(m_impl->mutex);
        m_impl->taking = true;
    }
    m_impl->wake.notify_all();
}

void FrameSender::End()
{
    {
        std::lock_guard<std::mutex> const lock(m_impl->mutex);
        m_impl->taking = false;
    }
    m_impl->stream.CancelGetBuffer();
    m_impl->stream.StopAcquisition(0);
}

void FrameSender::Resend(std::uint64_t blockId, std::uint32_t first, std::uint32_t last)
{
    if (first > last)
        return;
    {
        std::lock_guard<std::mutex> const lock(m_impl->mutex);
        m_impl->requests.Push(
            {blockId, first, last, Clock::now() + std::chrono::milliseconds(m_impl->faults.delay), 0});
        m_impl->disturbed = true;
    }
    m_impl->wake.notify_all();
    m_impl->stream.CancelGetBuffer();
}

void FrameSender::SetFaults(StreamFaults const &faults)
{
    std::lock_guard<std::mutex> const lock(m_impl->mutex);
    m_impl->faults = faults;
    m_impl->faultsChanged = true;
}

StreamCounters FrameSender::GetCounters() const
{
    auto const get = [](std::atomic<std::uint64_t> const &counter) {
        return counter.load(std::memory_order_relaxed);
    };
    return {get(m_impl->frames),  get(m_impl->packets), get(m_impl->resent),
            get(m_impl->refused), get(m_impl->bytes),   get(m_impl->leftOut)};
}

// ---- The thread --------------------------------------------------------------------------------------------------

void FrameSender::Impl::Run()
{
    prctl(PR_SET_TIMERSLACK, 1); // ns; the pace is often finer than the usual 50 us
    std::unique_lock<std::mutex> lock(mutex);
    while (!quit) {
        Clock::time_point const due = NextRequest();
        if (due <= Clock::now() || (taking && outlet)) {
            Work(lock);
            continue;
        }
        busy = false;
        settled.notify_all();
        if (due == Never)
            wake.wait(lock);
        else
            wake.wait_until(lock, due);
        busy = true;
    }
}

// Serves a few requests, and sends a frame. The lock is released meanwhile.
void FrameSender::Impl::Work(std::unique_lock<std::mutex> &lock)
{
    Clock::time_point const now = Clock::now(), due = NextRequest();
    lock.unlock();
    std::uint32_t timeout = TovCam::WaitForever; // until a request or an end cancels it
    if (due <= now) {
        ServeRequests();
        timeout = 0;
    } else if (due != Never) {
        timeout =
            static_cast<std::uint32_t>(std::chrono::duration_cast<std::chrono::milliseconds>(due - now).count() + 1);
    }
    if (auto *const buffer = static_cast<SimBuffer *>(stream.GetBuffer(timeout, nullptr)))
        SendFrame(*buffer);
    lock.lock();
}

// With the lock held.
void FrameSender::Impl::TakeFaults()
{
    if (std::exchange(faultsChanged, false))
        plan.SetFaults(faults);
}

// By the channel as it is now. A frame that was made while it was closed is dropped.
void FrameSender::Impl::SendFrame(SimBuffer &buffer)
{
    {
        std::lock_guard<std::mutex> const lock(mutex);
        TakeFaults();
        sending = outlet;
    }
    if (!sending || buffer.take.finished < sending->since) {
        sending.reset();
        stream.QueueBuffer(&buffer);
        return;
    }
    KeptFrame &frame = kept[(firstKept + keptCount++) % kept.size()];
    std::uint64_t const count = buffer.GetFrameID() - model.firstFrameID + 1;
    frame.buffer = &buffer;
    frame.block.Set(sending->channel, buffer, count);
    newestBlock = frame.block.BlockId();
    double const rate = buffer.take.period > 0
                            ? static_cast<double>(buffer.payload) * 1e9 / static_cast<double>(buffer.take.period)
                            : 0.0;
    plan.Make(count, frame.block.Packets(), rate);
    frame.gaps = plan.GetGaps();
    LetGo(CountKept(buffer.take.period));
    if (Rest(buffer.take.finished + std::chrono::milliseconds(plan.GetFaults().delay)))
        SendPackets(frame);
    sending.reset(); // a channel that is closed meanwhile lets go of its port
    LetGo(CountKept(buffer.take.period));
}

// How many frames are kept, the present one included: those that wait for a delay of the stream need the memory of
// others, down to the fewest. A camera with a longer delay loses frames.
std::size_t FrameSender::Impl::CountKept(std::int64_t period) const
{
    std::size_t const room = kept.size() - 1;
    std::chrono::nanoseconds const delay = std::chrono::milliseconds(plan.GetFaults().delay);
    auto const late = static_cast<std::size_t>(period > 0 ? delay.count() / period : 0);
    return room - std::min(late, room - FewestKept);
}

void FrameSender::Impl::SendPackets(KeptFrame const &frame)
{
    if (plan.GetFaults().forgery != WireStreamForgery::Off)
        return SendForged(frame);
    bool const plain = plan.IsPlain();
    std::size_t const total = plain ? frame.block.Packets() : plan.GetPackets().size();
    bool sent = false;
    nextPacket = std::max(nextPacket, Clock::now());
    for (std::size_t at = 0; at < total;) {
        if (!Rest(nextPacket)) {
            nextPacket = {}; // the pace ends with what it was for
            break;
        }
        for (std::size_t const end = at + CountDue(total - at); at < end; ++at)
            batch.Add(frame.block, plain ? PlannedPacket{static_cast<std::uint32_t>(at)} : plan.GetPackets()[at]);
        sent = Send(*sending) || sent;
    }
    if (sent)
        CountSent(frame);
}

void FrameSender::Impl::CountSent(KeptFrame const &frame)
{
    std::uint64_t const count = frame.buffer->GetFrameID() - model.firstFrameID + 1;
    if (count > lastSent + 1)
        leftOut.fetch_add(count - lastSent - 1, std::memory_order_relaxed);
    lastSent = count;
    frames.fetch_add(1, std::memory_order_relaxed);
}

// What befalls single datagrams is left out.
void FrameSender::Impl::SendForged(KeptFrame const &frame)
{
    std::uint32_t const total = frame.block.Packets();
    ForgedBlock block{.number = frame.block.BlockId(), .total = total};
    if (plan.IsPlain()) {
        for (std::uint32_t id = 0; id < total; ++id)
            block.packets.push_back(CopyOf(frame.block, id, frame.block.HeaderOf(id)));
    }
    for (PlannedPacket const &packet : plan.GetPackets())
        block.packets.push_back(CopyOf(frame.block, packet.id, frame.block.HeaderOf(packet.id)));
    forger.Forge(plan.GetFaults().forgery, block);
    bool sent = false;
    for (ForgedPacket const &packet : block.packets) {
        if (!Rest({}))
            break;
        std::size_t const size = forger.Send(packet, sending->socket->Get(), sending->channel);
        bytes.fetch_add(size, std::memory_order_relaxed);
        packets.fetch_add(1, std::memory_order_relaxed);
        sent = true;
    }
    if (sent)
        CountSent(frame);
}

void FrameSender::Impl::ForgeResent(KeptFrame const &frame, std::uint32_t id, Outlet const &to)
{
    gvsp::Header header = frame.block.HeaderOf(id);
    header.status = gvcp::GEV_STATUS_PACKET_RESEND;
    header.flags = gvsp::PACKET_RESEND;
    ForgedBlock block{.number = frame.block.BlockId(), .total = frame.block.Packets(), .again = true};
    block.packets.push_back(CopyOf(frame.block, id, header));
    forger.Forge(plan.GetFaults().forgery, block);
    for (ForgedPacket const &packet : block.packets) {
        bytes.fetch_add(forger.Send(packet, to.socket->Get(), to.channel), std::memory_order_relaxed);
        resent.fetch_add(1, std::memory_order_relaxed);
    }
}

// How many packets of those that are left go out together now.
std::size_t FrameSender::Impl::CountDue(std::size_t left)
{
    std::size_t const most = std::min(left, PacketBatch::Most);
    auto const delay = sending->channel.packetDelay;
    if (delay <= delay.zero())
        return most;
    Clock::time_point const now = Clock::now();
    nextPacket = std::max(nextPacket, now - MostDebt);
    std::size_t const due = std::min(most, static_cast<std::size_t>((now - nextPacket) / delay) + 1);
    nextPacket += static_cast<Clock::rep>(due) * delay;
    return due;
}

// Waits, and serves requests meanwhile; some at least, if there are any. False where the frame is not to go on.
bool FrameSender::Impl::Rest(Clock::time_point until)
{
    for (bool served = false;;) {
        Clock::time_point const now = Clock::now();
        if (now >= until && !disturbed.load(std::memory_order_relaxed))
            return true;
        std::unique_lock<std::mutex> lock(mutex);
        if (quit || abort || !outlet || outlet->since != sending->since)
            return false;
        Clock::time_point const due = NextRequest();
        disturbed.store(due != Never, std::memory_order_relaxed);
        if (due <= now && !(served && now >= until)) {
            lock.unlock();
            ServeRequests();
            served = true;
            continue;
        }
        if (now >= until)
            return true;
        wake.wait_until(lock, std::min(until, due));
    }
}

// ---- Requests ----------------------------------------------------------------------------------------------------

// When the next request is to be served. With the lock held, on the thread.
Clock::time_point FrameSender::Impl::NextRequest() const
{
    if (request)
        return request->due;
    return requests.IsEmpty() ? Never : requests.Front().due;
}

// As many as a batch holds.
void FrameSender::Impl::ServeRequests()
{
    std::shared_ptr<Outlet const> to;
    while (!batch.IsFull()) {
        {
            std::lock_guard<std::mutex> const lock(mutex);
            TakeFaults();
            to = outlet;
            if (!request && !requests.IsEmpty() && requests.Front().due <= Clock::now())
                request = requests.Pop();
        }
        if (!request)
            break;
        if (!to || Answer(*request, *to))
            request.reset();
    }
    if (to)
        Send(*to);
    else
        batch.Clear(); // the channel was closed meanwhile
}

// False where the batch is full before everything was answered.
bool FrameSender::Impl::Answer(Request &asked, Outlet const &to)
{
    bool const isExtended = to.channel.extendedIds, extendedStatus = to.channel.extendedStatus;
    if (plan.GetFaults().silent || plan.GetFaults().ignoreResend)
        return true;
    KeptFrame const *const frame = Find(asked.blockId);
    std::uint32_t const known = frame ? frame->block.Packets() : 0;
    for (; asked.next < known && asked.next <= asked.last; ++asked.next) {
        if (batch.IsFull())
            return false;
        if (frame->gaps.IsGone(asked.next) || plan.LosesResent())
            continue;
        if (plan.GetFaults().forgery != WireStreamForgery::Off)
            ForgeResent(*frame, asked.next, to);
        else
            batch.AddResent(frame->block, asked.next);
    }
    // All ones ask for a block up to its end.
    bool const toEnd = asked.last >= (isExtended ? 0xFFFFFFFF : 0x00FFFFFF);
    if (frame && toEnd)
        return true;
    for (; asked.next <= asked.last && asked.refusals < MostRefusals; ++asked.next) {
        if (batch.IsFull())
            return false;
        Refuse(asked, frame, isExtended, extendedStatus);
        if (asked.next == std::numeric_limits<std::uint32_t>::max())
            break;
    }
    return true;
}

void FrameSender::Impl::Refuse(Request &asked, KeptFrame const *frame, bool isExtended, bool extendedStatus)
{
    gvsp::Header header{gvcp::GEV_STATUS_PACKET_UNAVAILABLE, asked.blockId, gvsp::DataPayload, asked.next, isExtended};
    header.flags = static_cast<std::uint16_t>(gvsp::PACKET_RESEND | (frame ? gvsp::RESEND_RANGE_ERROR : 0));
    if (!frame && extendedStatus && newestBlock != 0) {
        bool const future =
            isExtended ? asked.blockId > newestBlock : static_cast<std::uint16_t>(asked.blockId - newestBlock) < 0x8000;
        header.status =
            future ? gvcp::GEV_STATUS_PACKET_NOT_YET_AVAILABLE : gvcp::GEV_STATUS_PACKET_REMOVED_FROM_MEMORY;
    }
    ++asked.refusals;
    batch.AddRefusal(header);
}

KeptFrame const *FrameSender::Impl::Find(std::uint64_t blockId) const
{
    for (std::size_t i = 0; i < keptCount; ++i) {
        KeptFrame const &frame = kept[(firstKept + i) % kept.size()];
        if (frame.block.BlockId() == blockId)
            return &frame;
    }
    return nullptr;
}

// Gives the oldest frames back to the stream.
void FrameSender::Impl::LetGo(std::size_t keep)
{
    for (; keptCount > keep; --keptCount) {
        stream.QueueBuffer(kept[firstKept].buffer);
        firstKept = (firstKept + 1) % kept.size();
    }
}

// True where something was sent.
bool FrameSender::Impl::Send(Outlet const &to)
{
    PacketBatch::Result const result = batch.Send(to.socket->Get());
    packets.fetch_add(result.first.packets, std::memory_order_relaxed);
    resent.fetch_add(result.resent.packets, std::memory_order_relaxed);
    refused.fetch_add(result.refused.packets, std::memory_order_relaxed);
    bytes.fetch_add(result.first.bytes + result.resent.bytes + result.refused.bytes, std::memory_order_relaxed);
    return result.first.packets > 0;
}
