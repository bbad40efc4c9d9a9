#include "controlchannel.h"

#include "openwatch.h"
#include "protocol/gigevision.h"
#include "protocol/socketaddress.h"

#include <algorithm>
#include <cstring>
#include <linux/filter.h>
#include <linux/sock_diag.h>
#include <poll.h>
#include <random>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace {

using namespace std::chrono_literals;

constexpr std::size_t MemoryBlock = 512; // what every camera can send and take in one packet
constexpr int QueueSize = 1 << 20;       // for a flood; of which the system gives what it allows
constexpr int DatagramsAtOnce = 1024;    // more than the queue holds
constexpr auto FollowPeriod = 10ms;      // whether it is still waited for is looked for
constexpr std::uint32_t Controlled = gvcp::ControlAccess | gvcp::ExclusiveAccess;
constexpr std::uint32_t UsualTimeout = 3000;   // of a camera's heartbeat
constexpr std::uint32_t ShortestTimeout = 300; // that a loaded host keeps up with
constexpr std::chrono::milliseconds ShortestPeriod{100}, LongestPeriod{1000};
constexpr auto BeatRetry = 100ms;  // after a beat without an answer
constexpr auto SilentAfter = 2s;   // without an answer to the heartbeat
constexpr auto LossAfter = 6s;     // the same
constexpr int BeatsBeforeLoss = 3; // this process may not have run for longer than that

// The way to the camera; zeros without one.
struct Way
{
    std::uint32_t host = 0; // this one's address on it
    std::uint32_t mtu = 0;
};

Way FindWay(std::uint32_t camera)
{
    Way way;
    int const probe = camera != 0 ? socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0) : -1;
    if (probe < 0)
        return way;
    if (ConnectSocket(probe, {camera, gvcp::Port}))
        way.host = AddressOfSocket(probe).address;
    int mtu = 0;
    socklen_t size = sizeof mtu;
    if (getsockopt(probe, IPPROTO_IP, IP_MTU, &mtu, &size) == 0 && mtu > 0)
        way.mtu = static_cast<std::uint32_t>(mtu);
    close(probe);
    return way;
}

std::int32_t StatusOfRefusal(std::uint16_t refusal)
{
    switch (refusal) {
    case gvcp::GEV_STATUS_WRITE_PROTECT:
    case gvcp::GEV_STATUS_ACCESS_DENIED:
    case gvcp::GEV_STATUS_BUSY:
        return TOV_CAM_ERR_GENICAM_ACCESS;
    case gvcp::GEV_STATUS_INVALID_PARAMETER:
        return TOV_CAM_ERR_GENICAM_INVALID_ARGUMENT;
    default:
        return TOV_CAM_ERR_GENICAM_GENERIC;
    }
}

} // namespace

constexpr ControlChannel::Effort ControlChannel::Access{6, 500ms, 10s};
constexpr ControlChannel::Effort ControlChannel::Beat{1, 500ms, 2s, true};
constexpr ControlChannel::Effort ControlChannel::Goodbye{3, 200ms, 600ms, false, true};

// ---- The socket --------------------------------------------------------------------------------------------------

ControlChannel::ControlChannel(std::string const &address)
    : m_lastId(std::random_device()()) // no one who has not seen the requests knows the ids of their answers
{
    std::optional<std::uint32_t> const camera = ParseAddress(address);
    if (!camera)
        return;
    m_cameraAddress = *camera;
    Way const way = FindWay(m_cameraAddress);
    m_hostAddress = way.host;
    m_mtu = way.mtu;
    if (m_hostAddress == 0 || !OpenSocket())
        return;
    m_wake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
}

// What is not from the camera's port does not come as far as the queue, which a flood of it could fill.
static bool FilterSenders(int socket, std::uint32_t camera)
{
    constexpr std::uint32_t SourceAddress = static_cast<std::uint32_t>(SKF_NET_OFF) + 12, SourcePort = 0,
                            Whole = 0xFFFF;
    sock_filter code[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, SourceAddress),
                          BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, camera, 0, 3),
                          BPF_STMT(BPF_LD | BPF_H | BPF_ABS, SourcePort),
                          BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, gvcp::Port, 0, 1),
                          BPF_STMT(BPF_RET | BPF_K, Whole),
                          BPF_STMT(BPF_RET | BPF_K, 0)};
    sock_fprog const program{std::size(code), code};
    return setsockopt(socket, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program) == 0;
}

// Not connected: a refusal on the way, which anybody can forge, is not heard.
bool ControlChannel::OpenSocket()
{
    m_socket = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (m_socket < 0)
        return false;
    setsockopt(m_socket, SOL_SOCKET, SO_RCVBUF, &QueueSize, sizeof QueueSize);
    if (!FilterSenders(m_socket, m_cameraAddress) || !BindSocket(m_socket, {m_hostAddress, 0}) ||
        (m_hostPort = AddressOfSocket(m_socket).port) == 0) {
        close(m_socket);
        m_socket = -1;
        return false;
    }
    return true;
}

ControlChannel::~ControlChannel()
{
    Close();
    for (int const descriptor : {m_socket, m_wake}) {
        if (descriptor >= 0)
            close(descriptor);
    }
}

bool ControlChannel::Transmit(std::span<std::uint8_t const> packet)
{
    return SendDatagram(m_socket, packet, {m_cameraAddress, gvcp::Port}) == static_cast<ssize_t>(packet.size());
}

std::uint16_t ControlChannel::NextId()
{
    // Of all ids but 0.
    return static_cast<std::uint16_t>(m_lastId.fetch_add(1, std::memory_order_relaxed) % 0xFFFF + 1);
}

// ---- One request -------------------------------------------------------------------------------------------------

bool ControlChannel::IsStopped(Effort const &effort) const
{
    if (effort.isFinal)
        return false;
    if (m_cancelled || m_ending)
        return true;
    return !effort.isBeat && ((m_watch && m_watch->IsOver()) || (m_giveUp && m_giveUp->IsOver()));
}

// False when the time is over or the request is to end.
bool ControlChannel::WaitReadable(Effort const &effort, Clock::time_point end)
{
    for (;;) {
        auto const left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
        if (left <= 0ms || IsStopped(effort))
            return false;
        bool const isFollowed = !effort.isBeat && (m_watch || m_giveUp);
        auto const slice = isFollowed ? std::min<std::chrono::milliseconds>(left, FollowPeriod) : left;
        pollfd events[] = {{m_socket, POLLIN, 0}, {effort.isFinal ? -1 : m_wake, POLLIN, 0}};
        if (poll(events, std::size(events), static_cast<int>(slice.count())) > 0 && events[0].revents != 0)
            return true;
    }
}

// What the next datagram is, if there is one; one that is none of the request's is counted.
std::optional<GvcpAnswer> ControlChannel::Take(GvcpRequest const &request)
{
    ssize_t const size = recv(m_socket, m_datagram.data(), m_datagram.size(), MSG_DONTWAIT | MSG_TRUNC);
    if (size < 0)
        return std::nullopt;
    GvcpAnswer answer;
    if (static_cast<std::size_t>(size) <= m_datagram.size())
        answer = ReadGvcpAnswer(request, std::span(m_datagram).first(static_cast<std::size_t>(size)));
    if (answer.kind == GvcpAnswer::Kind::Malformed) {
        m_malformed.fetch_add(1, std::memory_order_relaxed);
    } else if (answer.kind == GvcpAnswer::Kind::Stale) {
        m_stale.fetch_add(1, std::memory_order_relaxed);
    } else {
        m_heard = Clock::now();
        m_silent = false;
    }
    return answer;
}

// `end` is that of this try, `last` that of all.
ControlChannel::Outcome ControlChannel::Await(GvcpRequest const &request, Effort const &effort, Clock::time_point end,
                                              Clock::time_point last)
{
    while (WaitReadable(effort, end)) {
        // A flood of what is no answer does not keep from looking at the time.
        for (int i = 0; i < DatagramsAtOnce; ++i) {
            std::optional<GvcpAnswer> const answer = Take(request);
            if (!answer)
                break;
            m_answer = *answer;
            if (m_answer.kind == GvcpAnswer::Kind::Pending)
                end = std::min(last, Clock::now() + std::max(effort.patience, m_answer.time));
            else if (m_answer.kind == GvcpAnswer::Kind::Refused)
                return Outcome::Refused;
            else if (m_answer.kind == GvcpAnswer::Kind::Good)
                return Outcome::Answered;
        }
    }
    return IsStopped(effort) ? Outcome::Stopped : Outcome::Silent;
}

ControlChannel::Outcome ControlChannel::Transact(GvcpRequest request, Effort const &effort)
{
    request.id = NextId();
    std::array<std::uint8_t, gvcp::HeaderSize + gvcp::LongestBody> packet;
    gvcp::WriteHeader(std::span(packet).first<gvcp::HeaderSize>(),
                      {gvcp::CommandLead(gvcp::ACKNOWLEDGE), request.command,
                       static_cast<std::uint16_t>(request.body.size()), request.id});
    std::copy(request.body.begin(), request.body.end(), packet.begin() + gvcp::HeaderSize);
    auto const bytes = std::span<std::uint8_t const>(packet).first(gvcp::HeaderSize + request.body.size());
    Clock::time_point const last = Clock::now() + effort.limit;
    // What came before cannot be the answer, which is to find room in the queue.
    for (int i = 0; i < DatagramsAtOnce && Take(request); ++i) {
    }
    for (int i = 0; i < effort.tries && Clock::now() < last; ++i) {
        if (i > 0)
            m_repeated.fetch_add(1, std::memory_order_relaxed);
        Transmit(bytes); // one that cannot be sent is one that gets lost
        Outcome const outcome = Await(request, effort, std::min(last, Clock::now() + effort.patience), last);
        if (outcome != Outcome::Silent)
            return outcome;
    }
    m_abandoned.fetch_add(1, std::memory_order_relaxed);
    return Outcome::Silent;
}

std::int32_t ControlChannel::StatusOf(Outcome outcome) const
{
    switch (outcome) {
    case Outcome::Answered:
        return TOV_CAM_ERR_OK;
    case Outcome::Refused:
        return StatusOfRefusal(m_answer.status);
    default:
        return TOV_CAM_ERR_NO_DEVICE;
    }
}

// `out` is filled from the end of the answer's body, which is at least as long.
std::int32_t ControlChannel::Ask(GvcpRequest const &request, Effort const &effort, std::span<std::uint8_t> out)
{
    auto const mayAsk = [&] {
        return m_open && !m_lost && !m_cancelled && (effort.isBeat || !m_silent);
    };
    if (!mayAsk())
        return TOV_CAM_ERR_NO_DEVICE;
    std::unique_lock<std::mutex> lock(m_mutex);
    if (!mayAsk()) // any more
        return TOV_CAM_ERR_NO_DEVICE;
    Outcome const outcome = Transact(request, effort);
    if (outcome == Outcome::Answered && !out.empty())
        std::copy(m_answer.body.end() - static_cast<std::ptrdiff_t>(out.size()), m_answer.body.end(), out.begin());
    std::int32_t const status = StatusOf(outcome);
    if (outcome == Outcome::Silent && !effort.isBeat) {
        m_silent = true;
        lock.unlock();
        // The heartbeat is to find out at once whether that is over.
        std::lock_guard<std::mutex> const beatLock(m_beatMutex);
        m_beatIsDue = true;
        m_beatWake.notify_all();
    }
    return status;
}

// ---- Accesses ----------------------------------------------------------------------------------------------------

std::int32_t ControlChannel::ReadRegisterBy(Effort const &effort, std::uint32_t address, std::uint32_t &value)
{
    std::array<std::uint8_t, gvcp::RegisterSize> body, answer;
    StoreBig32(body.data(), address);
    std::int32_t const status = Ask({gvcp::READREG_CMD, 0, body, answer.size()}, effort, answer);
    if (status == TOV_CAM_ERR_OK)
        value = LoadBig32(answer.data());
    return status;
}

std::int32_t ControlChannel::ReadRegister(std::uint32_t address, std::uint32_t &value)
{
    return ReadRegisterBy(Access, address, value);
}

std::int32_t ControlChannel::WriteRegister(std::uint32_t address, std::uint32_t value)
{
    std::int32_t const status = SetRegister(address, value);
    if (address == gvcp::bootstrap::HeartbeatTimeout)
        m_timeoutChanged = true;
    return status;
}

std::int32_t ControlChannel::SetRegister(std::uint32_t address, std::uint32_t value)
{
    std::array<std::uint8_t, gvcp::RegisterWrite::Size> body;
    StoreBig32(&body[gvcp::RegisterWrite::Address], address);
    StoreBig32(&body[gvcp::RegisterWrite::Value], value);
    return Ask({gvcp::WRITEREG_CMD, 0, body}, Access, {});
}

// Whole registers, a block of them at most.
std::int32_t ControlChannel::ReadBlock(std::uint32_t address, std::span<std::uint8_t> out)
{
    std::array<std::uint8_t, gvcp::MemoryRead::Size> body{};
    StoreBig32(&body[gvcp::MemoryRead::Address], address);
    StoreBig16(&body[gvcp::MemoryRead::Count], static_cast<std::uint16_t>(out.size()));
    return Ask({gvcp::READMEM_CMD, 0, body, gvcp::MemoryData::Data + out.size()}, Access, out);
}

std::int32_t ControlChannel::WriteBlock(std::uint32_t address, std::span<std::uint8_t const> bytes)
{
    std::array<std::uint8_t, gvcp::MemoryData::Data + MemoryBlock> body;
    StoreBig32(&body[gvcp::MemoryData::Address], address);
    std::copy(bytes.begin(), bytes.end(), body.begin() + gvcp::MemoryData::Data);
    return Ask({gvcp::WRITEMEM_CMD, 0, std::span(body).first(gvcp::MemoryData::Data + bytes.size())}, Access, {});
}

namespace {

// Calls `access` with blocks of whole registers that hold all of the range: address, size, and the place of the range's
// first byte against the block's. Ends with the first status that is not 0.
template<class Access>
std::int32_t ForBlocks(std::uint32_t address, std::size_t size, Access const &access)
{
    constexpr std::uint64_t Word = gvcp::RegisterSize, Space = std::uint64_t{1} << 32;
    std::uint64_t const end = (std::uint64_t{address} + size + Word - 1) / Word * Word;
    if (size > Space || end > Space)
        return TOV_CAM_ERR_GENICAM_INVALID_ARGUMENT;
    for (std::uint64_t at = address / Word * Word; at < end; at += MemoryBlock) {
        auto const block = static_cast<std::size_t>(std::min<std::uint64_t>(MemoryBlock, end - at));
        std::int32_t const status = access(static_cast<std::uint32_t>(at), block,
                                           static_cast<std::ptrdiff_t>(address) - static_cast<std::ptrdiff_t>(at));
        if (status != TOV_CAM_ERR_OK)
            return status;
    }
    return TOV_CAM_ERR_OK;
}

// The part of a block that belongs to the range, and of the range that belongs to the block.
struct Overlap
{
    Overlap(std::ptrdiff_t first, std::size_t size, std::size_t block)
        : inBlock(static_cast<std::size_t>(std::max<std::ptrdiff_t>(first, 0))),
          inRange(static_cast<std::size_t>(std::max<std::ptrdiff_t>(-first, 0))),
          length(std::min(block - inBlock, size - inRange))
    {
    }
    std::size_t inBlock, inRange, length;
};

} // namespace

std::int32_t ControlChannel::ReadMemory(std::uint32_t address, std::span<std::uint8_t> out)
{
    return ForBlocks(address, out.size(), [&](std::uint32_t at, std::size_t size, std::ptrdiff_t first) {
        std::array<std::uint8_t, MemoryBlock> block;
        std::int32_t const status = ReadBlock(at, std::span(block).first(size));
        Overlap const part(first, out.size(), size);
        if (status == TOV_CAM_ERR_OK)
            std::copy_n(&block[part.inBlock], part.length, &out[part.inRange]);
        return status;
    });
}

std::int32_t ControlChannel::WriteMemory(std::uint32_t address, std::span<std::uint8_t const> bytes)
{
    using gvcp::bootstrap::HeartbeatTimeout;
    std::int32_t const status =
        ForBlocks(address, bytes.size(), [&](std::uint32_t at, std::size_t size, std::ptrdiff_t first) {
            std::array<std::uint8_t, MemoryBlock> block;
            Overlap const part(first, bytes.size(), size);
            // What stands beside the bytes in their registers stays.
            std::size_t const lastWord = size - gvcp::RegisterSize;
            std::int32_t status = TOV_CAM_ERR_OK;
            if (part.inBlock != 0)
                status = ReadBlock(at, std::span(block).first(gvcp::RegisterSize));
            if (status == TOV_CAM_ERR_OK && part.inBlock + part.length != size)
                status = ReadBlock(static_cast<std::uint32_t>(at + lastWord),
                                   std::span(block).subspan(lastWord, gvcp::RegisterSize));
            std::copy_n(&bytes[part.inRange], part.length, &block[part.inBlock]);
            return status == TOV_CAM_ERR_OK ? WriteBlock(at, std::span(block).first(size)) : status;
        });
    if (address < HeartbeatTimeout + gvcp::RegisterSize && HeartbeatTimeout < std::uint64_t{address} + bytes.size())
        m_timeoutChanged = true;
    return status;
}

void ControlChannel::RequestPackets(PacketRequest const &request)
{
    std::array<std::uint8_t, gvcp::HeaderSize + gvcp::ExtendedPacketResend::Size> packet{};
    std::uint8_t *const body = &packet[gvcp::HeaderSize];
    std::size_t const size = request.isExtended ? gvcp::ExtendedPacketResend::Size : gvcp::PacketResend::Size;
    constexpr std::uint32_t PacketIdMask = 0x00FFFFFF; // without extended ids
    if (request.isExtended) {
        using Body = gvcp::ExtendedPacketResend;
        StoreBig16(body + Body::StreamChannelIndex, request.channel);
        StoreBig32(body + Body::FirstPacketId, request.first);
        StoreBig32(body + Body::LastPacketId, request.last);
        StoreBig64(body + Body::BlockId, request.blockId);
    } else {
        using Body = gvcp::PacketResend;
        StoreBig16(body + Body::StreamChannelIndex, request.channel);
        StoreBig16(body + Body::BlockId, static_cast<std::uint16_t>(request.blockId));
        StoreBig32(body + Body::FirstPacketId, request.first & PacketIdMask);
        StoreBig32(body + Body::LastPacketId, request.last & PacketIdMask);
    }
    std::uint8_t const flags = request.isExtended ? gvcp::EXTENDED_ID : 0;
    gvcp::WriteHeader(std::span(packet).first<gvcp::HeaderSize>(),
                      {gvcp::CommandLead(flags), gvcp::PACKETRESEND_CMD, static_cast<std::uint16_t>(size), NextId()});
    if (m_open && !m_lost)
        Transmit(std::span(packet).first(gvcp::HeaderSize + size));
}

std::uint32_t ControlChannel::GetCameraAddress() const
{
    return m_cameraAddress;
}

std::uint32_t ControlChannel::GetHostAddress() const
{
    return m_hostAddress;
}

std::uint32_t ControlChannel::GetMtu() const
{
    return m_mtu;
}

std::int32_t ControlChannel::ReadController(std::uint32_t &address, std::uint16_t &port)
{
    std::uint32_t portRegister = 0;
    std::int32_t status = ReadRegister(gvcp::bootstrap::PrimaryApplicationPort, portRegister);
    if (status == TOV_CAM_ERR_OK)
        status = ReadRegister(gvcp::bootstrap::PrimaryApplicationIpAddress, address);
    port = static_cast<std::uint16_t>(portRegister);
    return status;
}

bool ControlChannel::IsSilent() const
{
    return m_silent;
}

bool ControlChannel::IsLost() const
{
    return m_lost;
}

ControlChannel::Counters ControlChannel::GetCounters() const
{
    auto const get = [](std::atomic<std::uint64_t> const &counter) {
        return counter.load(std::memory_order_relaxed);
    };
    std::array<std::uint32_t, SK_MEMINFO_VARS> memory{};
    socklen_t size = sizeof memory;
    getsockopt(m_socket, SOL_SOCKET, SO_MEMINFO, memory.data(), &size);
    return {get(m_repeated), get(m_abandoned), memory[SK_MEMINFO_DROPS], get(m_stale), get(m_malformed)};
}

// ---- Control -----------------------------------------------------------------------------------------------------

std::int32_t ControlChannel::Open()
{
    if (m_socket < 0 || m_wake < 0)
        return TOV_CAM_ERR_NO_DEVICE;
    m_open = true;
    // Not every camera answers a host that would take control from another one.
    std::uint32_t privilege = 0;
    std::int32_t status = ReadRegister(gvcp::bootstrap::ControlChannelPrivilege, privilege);
    if (status == TOV_CAM_ERR_OK && (privilege & Controlled) != 0)
        status = TOV_CAM_ERR_GENICAM_ACCESS;
    if (status == TOV_CAM_ERR_OK)
        status = WriteRegister(gvcp::bootstrap::ControlChannelPrivilege, gvcp::ControlAccess);
    if (status != TOV_CAM_ERR_OK) {
        m_open = false;
        // Whatever it says to this: it gives no control.
        return status == TOV_CAM_ERR_NO_DEVICE ? status : static_cast<std::int32_t>(TOV_CAM_ERR_GENICAM_ACCESS);
    }
    std::uint32_t capability = 0;
    if (ReadRegister(gvcp::bootstrap::GvcpCapability, capability) == TOV_CAM_ERR_OK)
        m_namesController = (capability & gvcp::gvcpcapability::PrimaryApplication) != 0;
    LearnTimeout();
    m_heartbeat = std::thread([this] { RunHeartbeat(); });
    return TOV_CAM_ERR_OK;
}

void ControlChannel::LearnTimeout()
{
    using gvcp::bootstrap::HeartbeatTimeout;
    std::uint32_t timeout = UsualTimeout;
    if (ReadRegister(HeartbeatTimeout, timeout) == TOV_CAM_ERR_OK && timeout < ShortestTimeout &&
        SetRegister(HeartbeatTimeout, UsualTimeout) == TOV_CAM_ERR_OK)
        ReadRegister(HeartbeatTimeout, timeout);
    m_timeout = std::chrono::milliseconds(timeout);
    m_period = std::clamp(m_timeout / 3, ShortestPeriod, LongestPeriod);
}

void ControlChannel::SetLossHandler(std::function<void()> handler)
{
    std::lock_guard<std::mutex> const lock(m_beatMutex);
    m_lossHandler = std::move(handler);
    m_beatWake.notify_all();
}

void ControlChannel::Follow(OpenWatch const *watch)
{
    std::lock_guard<std::mutex> const lock(m_mutex);
    m_watch = watch;
}

void ControlChannel::SetGiveUpWatch(std::shared_ptr<GiveUpWatch const> watch)
{
    std::lock_guard<std::mutex> const lock(m_mutex);
    m_giveUp = std::move(watch);
}

void ControlChannel::Cancel()
{
    {
        std::lock_guard<std::mutex> const lock(m_beatMutex);
        m_cancelled = true;
        m_beatWake.notify_all();
    }
    if (m_wake >= 0)
        eventfd_write(m_wake, 1);
}

void ControlChannel::Close()
{
    {
        std::lock_guard<std::mutex> const lock(m_beatMutex);
        m_ending = true;
        m_beatWake.notify_all();
    }
    if (m_wake >= 0)
        eventfd_write(m_wake, 1);
    if (m_heartbeat.joinable())
        m_heartbeat.join();
    if (!m_open.exchange(false) || m_lost)
        return;
    std::array<std::uint8_t, gvcp::RegisterWrite::Size> body{};
    StoreBig32(&body[gvcp::RegisterWrite::Address], gvcp::bootstrap::ControlChannelPrivilege);
    // One that does not answer may hear it all the same; nobody waits for it.
    Effort const effort = m_silent ? Effort{1, 0ms, 1ms, false, true} : Goodbye;
    std::lock_guard<std::mutex> const lock(m_mutex);
    Transact({gvcp::WRITEREG_CMD, 0, body}, effort);
}

// ---- The heartbeat -----------------------------------------------------------------------------------------------

void ControlChannel::RunHeartbeat()
{
    std::unique_lock<std::mutex> lock(m_beatMutex);
    auto const ends = [this] {
        return m_ending || m_cancelled;
    };
    std::chrono::milliseconds wait = m_period;
    for (;;) {
        m_beatWake.wait_for(lock, wait, [&] { return ends() || m_beatIsDue; });
        if (ends())
            return;
        m_beatIsDue = false;
        lock.unlock();
        bool const keeps = DoBeat();
        lock.lock();
        if (keeps) {
            wait = m_unanswered > 0 ? BeatRetry : m_period;
            continue;
        }
        m_lost = true;
        m_beatWake.wait(lock, [&] { return ends() || m_lossHandler; });
        if (std::function<void()> const handler = std::move(m_lossHandler); handler && !ends()) {
            lock.unlock();
            handler();
        }
        return;
    }
}

// False when control is lost.
bool ControlChannel::DoBeat()
{
    if (m_timeoutChanged.exchange(false))
        LearnTimeout();
    auto const heard = [this] {
        std::lock_guard<std::mutex> const lock(m_mutex);
        return m_heard;
    };
    Clock::time_point const before = heard();
    std::uint32_t privilege = 0;
    std::int32_t const status = ReadRegisterBy(Beat, gvcp::bootstrap::ControlChannelPrivilege, privilege);
    if (status == TOV_CAM_ERR_NO_DEVICE) {
        ++m_unanswered;
        auto const silence = Clock::now() - heard();
        if (m_unanswered < BeatsBeforeLoss || m_ending || m_cancelled)
            return true;
        if (silence > SilentAfter)
            m_silent = true;
        return silence <= LossAfter;
    }
    m_unanswered = 0;
    if (status == TOV_CAM_ERR_OK && (privilege & Controlled) == 0)
        return false;
    // A camera that has not heard of this host for so long may have given control to another one.
    return heard() - before <= m_timeout || HasControl();
}

bool ControlChannel::HasControl()
{
    std::uint32_t address = 0;
    std::uint16_t port = 0;
    if (!m_namesController || ReadController(address, port) != TOV_CAM_ERR_OK || (address == 0 && port == 0))
        return true; // nobody can tell
    return address == m_hostAddress && port == m_hostPort;
}
