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

constexpr int QueueSize = 1 << 20;    // for a flood; of which the system gives what it allows
constexpr int DatagramsAtOnce = 1024; // more than the queue holds
constexpr auto FollowPeriod = 10ms;   // whether it is still waited for, and a hurry, are looked for

// What somebody in a hurry waits for, in all: first for an access of somebody else, which a slow camera may be about to
// answer, then for his own.
constexpr auto MostHeldUp = 400ms;
constexpr auto LeastOwn = 400ms;
constexpr auto MostInHurry = 800ms;

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

constexpr ControlChannel::Effort ControlChannel::Access{6, 500ms, 500ms, 10s};
constexpr ControlChannel::Effort ControlChannel::Hasty{4, 150ms, 350ms, 2500ms, Effort::Hasty};
constexpr ControlChannel::Effort ControlChannel::Beat{1, 500ms, 500ms, 2s, Effort::Beat};
constexpr ControlChannel::Effort ControlChannel::Probe{2, 250ms, 250ms, 2s, Effort::Beat};
constexpr ControlChannel::Effort ControlChannel::Goodbye{3, 200ms, 200ms, 600ms, Effort::Final};

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
    if (effort.kind == Effort::Final)
        return false;
    if (m_cancelled || m_ending || GivesWay(effort))
        return true;
    return effort.kind != Effort::Beat && ((m_watch && m_watch->IsOver()) || (m_giveUp && m_giveUp->IsOver()));
}

// To somebody in a hurry.
bool ControlChannel::GivesWay(Effort const &effort) const
{
    if (m_hurries == 0)
        return false;
    return effort.kind == Effort::Beat ||
           (effort.kind == Effort::Patient && Clock::now() - m_began >= (m_pends ? Hasty.limit : MostHeldUp));
}

// When a request is over that has had no answer, not even that the camera needs time.
ControlChannel::Clock::time_point ControlChannel::EndOf(Effort const &effort) const
{
    return effort.kind == Effort::Hasty ? std::max(m_hurryBegan.load() + MostInHurry, m_began + LeastOwn)
                                        : m_began + effort.limit;
}

// False when the time is over or the request is to end.
bool ControlChannel::WaitReadable(Effort const &effort, Clock::time_point end)
{
    for (;;) {
        auto const left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
        if (left <= 0ms || IsStopped(effort))
            return false;
        auto const slice = std::min<std::chrono::milliseconds>(left, FollowPeriod);
        pollfd events[] = {{m_socket, POLLIN, 0}, {effort.kind == Effort::Final ? -1 : m_wake, POLLIN, 0}};
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
        if (answer.kind != GvcpAnswer::Kind::Pending)
            NoteAnswer();
    }
    return answer;
}

void ControlChannel::NoteAnswer()
{
    m_answered = m_heard;
    m_vain = false;
    m_yields = false;
}

void ControlChannel::NoteVain()
{
    m_vain = true;
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
            if (m_answer.kind == GvcpAnswer::Kind::Refused)
                return Outcome::Refused;
            if (m_answer.kind == GvcpAnswer::Kind::Good)
                return Outcome::Answered;
            if (m_answer.kind == GvcpAnswer::Kind::Pending) {
                m_pends = true;
                end = std::min(last, Clock::now() + std::max(effort.patience, m_answer.time));
            }
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
    m_began = Clock::now();
    m_pends = false;
    Clock::time_point const last = m_began + effort.limit, end = EndOf(effort);
    // What came before cannot be the answer, which is to find room in the queue.
    for (int i = 0; i < DatagramsAtOnce && Take(request); ++i) {
    }
    for (int i = 0; i < effort.tries && Clock::now() < end; ++i) {
        if (i > 0)
            m_repeated.fetch_add(1, std::memory_order_relaxed);
        Transmit(bytes); // one that cannot be sent is one that gets lost
        auto const patience = i == 0 ? effort.first : effort.patience;
        Outcome const outcome = Await(request, effort, std::min(end, Clock::now() + patience), last);
        if (outcome != Outcome::Silent)
            return outcome;
        NoteVain();
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

bool ControlChannel::MayAsk(Effort const &effort) const
{
    if (!m_open || m_lost || m_cancelled)
        return false;
    switch (effort.kind) {
    case Effort::Beat:
        return m_hurries == 0;
    case Effort::Patient:
        return !m_silent && !m_yields;
    default:
        return !m_silent;
    }
}

// `out` is filled from the end of the answer's body, which is at least as long.
std::int32_t ControlChannel::Ask(GvcpRequest const &request, Effort const &wanted, std::span<std::uint8_t> out)
{
    bool const isBeat = wanted.kind == Effort::Beat;
    Effort const &effort = !isBeat && (m_closing || Haste::IsMine()) ? Hasty : wanted;
    if (isBeat)
        m_gaveWay = m_hurries > 0;
    if (!MayAsk(effort))
        return TOV_CAM_ERR_NO_DEVICE;
    std::unique_lock<std::mutex> lock(m_mutex);
    if (!MayAsk(effort)) // any more
        return TOV_CAM_ERR_NO_DEVICE;
    Outcome const outcome = Transact(request, effort);
    if (outcome == Outcome::Answered && !out.empty())
        std::copy(m_answer.body.end() - static_cast<std::ptrdiff_t>(out.size()), m_answer.body.end(), out.begin());
    std::int32_t const status = StatusOf(outcome);
    if (isBeat) {
        m_gaveWay = outcome == Outcome::Stopped;
    } else if (outcome == Outcome::Stopped && GivesWay(effort)) {
        m_yields = true;
    } else if (outcome == Outcome::Silent) {
        m_silent = true;
        lock.unlock();
        // The heartbeat is to find out at once whether that is over.
        std::lock_guard<std::mutex> const beatLock(m_beatMutex);
        m_beatIsDue = true;
        m_beatWake.notify_all();
    }
    return status;
}

// ---- A hurry -----------------------------------------------------------------------------------------------------

void ControlChannel::Hurry(bool begins)
{
    if (begins) {
        if (m_hurries == 0)
            m_hurryBegan = Clock::now();
        ++m_hurries;
    } else if (--m_hurries == 0) {
        m_yields = false;
    }
}

void ControlChannel::BeginClosing()
{
    m_hurryBegan = Clock::now();
    m_closing = true;
    ++m_hurries; // for good
}

// ---- What is known of it -----------------------------------------------------------------------------------------

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

bool ControlChannel::IsSilent() const
{
    return m_silent;
}

std::chrono::milliseconds ControlChannel::GetSilence() const
{
    if (!m_vain)
        return 0ms;
    // Never 0 while it lasts.
    return std::max(1ms, std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - m_answered.load()));
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
