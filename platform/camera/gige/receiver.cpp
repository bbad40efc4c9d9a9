#include "receiver.h"

#include "protocol/socketaddress.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <linux/filter.h>
#include <netinet/udp.h>
#include <optional>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr std::size_t BatchSize = 64, LeastBatch = 8;
constexpr std::size_t LongestTrain = 1 << 16; // in bytes
constexpr std::size_t LongTrain = 4;          // datagrams, of which one more call costs less than to copy them
constexpr int TrainMemory = 64;               // batches without one
constexpr auto GreetingPeriod = 10s;          // firewalls forget a path after half a minute
constexpr auto LookPeriod = 20ms;             // at what is not the camera's packets, as long as something goes on
constexpr auto SourcePatience = 100ms;
constexpr int MostPolls = 4;          // in a row: requests must not keep from reading
constexpr std::uint32_t Unheard = 16; // datagrams that a source should have shown
constexpr std::size_t Slack = 64;     // a datagram that is longer than announced by more is told by its cut

void SetOption(int socket, int option, int value)
{
    setsockopt(socket, SOL_SOCKET, option, &value, sizeof value);
}

int GetOption(int socket, int option)
{
    int value = 0;
    socklen_t size = sizeof value;
    return getsockopt(socket, SOL_SOCKET, option, &value, &size) == 0 ? value : 0;
}

// What else the system tells of a datagram.
template<class Value>
std::optional<Value> Told(msghdr &message, int type, int level = SOL_SOCKET)
{
    for (cmsghdr *told = CMSG_FIRSTHDR(&message); told; told = CMSG_NXTHDR(&message, told)) {
        if (told->cmsg_level == level && told->cmsg_type == type && told->cmsg_len >= CMSG_LEN(sizeof(Value))) {
            Value value;
            std::memcpy(&value, CMSG_DATA(told), sizeof value);
            return value;
        }
    }
    return std::nullopt;
}

} // namespace

// ---- Batch -------------------------------------------------------------------------------------------------------

// The datagrams of one system call.
//
// The system may join datagrams of one length that follow each other to a train, the last of which may be shorter. As
// long as long ones come, one message is read at a time, in pieces for as many headers and payloads as are expected. Of
// a train that comes among single datagrams all but the first is copied.
class Receiver::Batch
{
public:
    explicit Batch(std::uint32_t packetSize)
        : m_scratchRoom(packetSize + Slack),
          m_scratch(std::make_unique_for_overwrite<std::uint8_t[]>((LongestTrain + m_scratchRoom) * BatchSize))
    {
    }

    // The number of messages that came; -1 for none.
    int Read(int socket, BlockTable &table);
    void Take(std::size_t count, BlockTable &table, std::uint32_t camera, BlockTable::Time now);
    // Whether there may have been more.
    bool IsFull() const
    {
        return m_isFull;
    }
    std::size_t Bytes(std::size_t count) const
    {
        std::size_t sum = 0;
        for (std::size_t i = 0; i < count; ++i)
            sum += m_messages[i].msg_len;
        return sum;
    }
    // Datagrams dropped since the socket was made, where the batch tells it.
    std::optional<std::uint32_t> GetDrops(std::size_t count)
    {
        return count > 0 ? Told<std::uint32_t>(m_messages[count - 1].msg_hdr, SO_RXQ_OVFL) : std::nullopt;
    }

private:
    using Front = std::array<std::uint8_t, 32>;
    // Of a payload that has landed in a frame.
    enum class Fate : std::uint8_t { Stay, Move, Stash };
    struct Room
    {
        alignas(cmsghdr)
            std::array<std::uint8_t, CMSG_SPACE(sizeof(timespec)) + 2 * CMSG_SPACE(sizeof(std::uint32_t))> told;
    };

    void Lay(std::size_t i, std::size_t frontSize);
    int ReadTrain(int socket, BlockTable &table);
    void TakeTrain(BlockTable &table, std::uint32_t camera, BlockTable::Time now);
    std::span<std::uint8_t const> Gather(std::size_t message);
    std::size_t PartOfTrain(std::size_t i);
    struct Rest;
    void TakeRest(Rest const &rest, BlockTable &table, BlockTable::Time now);
    std::chrono::nanoseconds Arrival(std::size_t message);
    void Describe(std::size_t i, BlockTable const &table, std::uint32_t camera);
    void Decide(std::size_t i, std::size_t message, BlockTable const &table, std::uint32_t camera);
    void PutInPlace(std::size_t count);
    void Move(std::size_t i, std::size_t count);
    void Stash(std::size_t i);
    bool IsFree(std::size_t except, std::size_t count, std::uint8_t const *begin, std::size_t size) const;

    std::uint8_t *TailOf(std::size_t i) const
    {
        return m_scratch.get() + i * LongestTrain;
    }
    std::uint8_t *StashOf(std::size_t i) const
    {
        return TailOf(BatchSize) + i * m_scratchRoom;
    }

    std::size_t const m_scratchRoom;                 // of a datagram
    std::unique_ptr<std::uint8_t[]> const m_scratch; // for what has no place, and for what is in the way

    std::size_t m_asked = LeastBatch;
    bool m_isFull = false;
    int m_trains = TrainMemory; // batches until no train is expected
    int m_longTrains = 0;       // and no long one
    std::size_t m_fullRoom = 0; // for the longest data that are expected
    bool m_isTrain = false;     // what was read last is one message, in pieces
    std::size_t m_expected = 0; // pairs of these pieces, before what is left
    std::array<mmsghdr, BatchSize> m_messages{};
    std::array<std::array<iovec, 3>, BatchSize> m_pieces;
    std::array<iovec, 2 * BatchSize + 1> m_trainPieces;
    std::array<Front, BatchSize> m_fronts;
    std::array<sockaddr_in, BatchSize> m_senders;
    std::array<Room, BatchSize> m_told;
    std::array<BlockTable::Place, BatchSize> m_places;

    std::array<Datagram, BatchSize> m_datagrams;
    // Datagrams of a train behind each other, the length of each, and their message.
    struct Rest
    {
        std::span<std::uint8_t const> bytes;
        std::size_t length = 0, message = 0;
    };
    std::array<Rest, BatchSize> m_rests;
    std::array<std::uint8_t *, BatchSize> m_targets; // where a payload belongs
    std::array<Fate, BatchSize> m_fates;
};

void Receiver::Batch::Lay(std::size_t i, std::size_t frontSize)
{
    std::array<iovec, 3> &pieces = m_pieces[i];
    std::size_t count = 0;
    pieces[count++] = {m_fronts[i].data(), frontSize};
    if (m_places[i].memory)
        pieces[count++] = {m_places[i].memory, m_places[i].room};
    pieces[count++] = {TailOf(i), LongestTrain};
    msghdr &message = m_messages[i].msg_hdr;
    message.msg_name = &m_senders[i];
    message.msg_namelen = sizeof m_senders[i];
    message.msg_iov = pieces.data();
    message.msg_iovlen = count;
    // Of data nothing need be told but trains: a frame's time is that of its leader. Drops are told again.
    bool const isTold = m_trains > 0 || !m_places[i].memory || i + 1 == m_asked;
    message.msg_control = isTold ? m_told[i].told.data() : nullptr;
    message.msg_controllen = isTold ? m_told[i].told.size() : 0;
    message.msg_flags = 0;
}

int Receiver::Batch::Read(int socket, BlockTable &table)
{
    m_isTrain = m_longTrains > 0;
    if (m_isTrain)
        return ReadTrain(socket, table);
    table.Expect(std::span(m_places).first(m_asked));
    m_fullRoom = 0;
    for (std::size_t i = 0; i < m_asked; ++i) {
        Lay(i, table.FrontSize());
        m_fullRoom = std::max(m_fullRoom, m_places[i].room);
    }
    int const count = recvmmsg(socket, m_messages.data(), static_cast<unsigned>(m_asked), MSG_DONTWAIT, nullptr);
    m_isFull = count == static_cast<int>(m_asked);
    m_trains -= count > 0 && m_trains > 0;
    // Laying out what does not come costs more than a second call.
    m_asked = std::clamp(static_cast<std::size_t>(std::max(count, 0)) * 2, LeastBatch, BatchSize);
    return count;
}

int Receiver::Batch::ReadTrain(int socket, BlockTable &table)
{
    table.Expect(m_places);
    std::size_t const frontSize = table.FrontSize();
    for (m_expected = 0; m_expected < BatchSize && m_places[m_expected].memory; ++m_expected) {
        m_trainPieces[2 * m_expected] = {m_fronts[m_expected].data(), frontSize};
        m_trainPieces[2 * m_expected + 1] = {m_places[m_expected].memory, m_places[m_expected].room};
    }
    m_trainPieces[2 * m_expected] = {TailOf(0), LongestTrain};
    msghdr &message = m_messages[0].msg_hdr;
    message = {&m_senders[0],
               sizeof m_senders[0],
               m_trainPieces.data(),
               2 * m_expected + 1,
               m_told[0].told.data(),
               m_told[0].told.size(),
               0};
    ssize_t const size = recvmsg(socket, &message, MSG_DONTWAIT);
    m_isFull = size >= 0;
    if (size < 0)
        return -1;
    m_messages[0].msg_len = static_cast<unsigned>(size);
    --m_longTrains;
    return 1;
}

// The length of a train's datagrams; 0 for what is none.
std::size_t Receiver::Batch::PartOfTrain(std::size_t i)
{
    msghdr &message = m_messages[i].msg_hdr;
    std::size_t const size = m_messages[i].msg_len;
    if (std::optional<int> const told = Told<int>(message, UDP_GRO, SOL_UDP))
        return *told > 0 && static_cast<std::size_t>(*told) < size ? static_cast<std::size_t>(*told) : 0;
    std::size_t const front = m_pieces[i][0].iov_len, first = front + m_places[i].room;
    if (message.msg_control || size <= first)
        return 0;
    // The system was not asked. The next packet begins behind the data that were expected, or behind full ones.
    m_trains = TrainMemory;
    std::optional<gvsp::Header> const header = gvsp::ReadHeader({m_fronts[i].data(), front});
    for (std::size_t const length : {first, front + m_fullRoom}) {
        std::optional<gvsp::Header> const next =
            length < size ? gvsp::ReadHeader({TailOf(i) + (length - first), size - length}) : std::nullopt;
        if (header && next && next->blockId == header->blockId && next->isExtended == header->isExtended &&
            next->packetId > header->packetId)
            return length;
    }
    return 0;
}

std::chrono::nanoseconds Receiver::Batch::Arrival(std::size_t i)
{
    std::optional<timespec> const time = Told<timespec>(m_messages[i].msg_hdr, SCM_TIMESTAMPNS);
    return time ? std::chrono::seconds(time->tv_sec) + std::chrono::nanoseconds(time->tv_nsec)
                : std::chrono::system_clock::now().time_since_epoch();
}

void Receiver::Batch::Describe(std::size_t i, BlockTable const &table, std::uint32_t camera)
{
    msghdr &message = m_messages[i].msg_hdr;
    Datagram &datagram = m_datagrams[i];
    std::size_t left = m_messages[i].msg_len;
    std::size_t const length = PartOfTrain(i);
    m_rests[i] = {};
    datagram.pieces = {};
    if (length > 0) {
        m_trains = TrainMemory;
        if (left / length >= LongTrain)
            m_longTrains = TrainMemory;
        std::span<iovec const> const pieces(message.msg_iov, message.msg_iovlen);
        std::size_t before = 0;
        for (iovec const &piece : pieces.first(pieces.size() - 1))
            before += piece.iov_len;
        if (length < before) {
            std::span<std::uint8_t const> const all = Gather(i);
            datagram.pieces[0] = all.first(length);
            m_rests[i] = {all.subspan(length), length, i};
            left = 0;
        } else {
            // All that follows the first one is in the last piece.
            m_rests[i] = {
                {static_cast<std::uint8_t const *>(pieces.back().iov_base) + (length - before), left - length},
                length,
                i};
            left = length;
        }
    }
    for (std::size_t piece = 0, at = 0; piece < message.msg_iovlen && left > 0; ++piece) {
        std::size_t const size = std::min(left, message.msg_iov[piece].iov_len);
        at = piece + (message.msg_iovlen == 2 ? piece : 0); // without a place there is no second piece
        datagram.pieces[at] = {static_cast<std::uint8_t const *>(message.msg_iov[piece].iov_base), size};
        left -= size;
    }
    Decide(i, i, table, camera);
}

// What becomes of a datagram whose pieces are known.
void Receiver::Batch::Decide(std::size_t i, std::size_t message, BlockTable const &table, std::uint32_t camera)
{
    Datagram &datagram = m_datagrams[i];
    SocketAddress const sender = FromSockaddr(m_senders[message]);
    datagram.address = sender.address;
    datagram.port = sender.port;
    datagram.truncated = (m_messages[message].msg_hdr.msg_flags & MSG_TRUNC) != 0 || datagram.Size() > m_scratchRoom;
    datagram.arrival = {};
    m_fates[i] = Fate::Stay;
    std::span<std::uint8_t const> const front = datagram.pieces[0];
    std::optional<gvsp::Header> const header = gvsp::ReadHeader(front);
    // The time of a frame is that of its first packet.
    if (!header || (header->format != gvsp::DataPayload && header->format != gvsp::MultiPartPayload))
        datagram.arrival = Arrival(message);
    if (datagram.address != camera || datagram.truncated) {
        datagram.pieces[1] = datagram.pieces[2] = {}; // what is in the way of nobody
        return;
    }
    if (datagram.pieces[1].empty())
        return;
    m_targets[i] = table.Find(front, datagram.Size());
    m_fates[i] = Fate::Stash;
    // A payload that does not begin with a piece has been split.
    std::size_t const before =
        header ? header->Size() + (header->format == gvsp::MultiPartPayload ? gvsp::MultiPartData::Size : 0) : 0;
    if (m_targets[i] && before == front.size())
        m_fates[i] = m_targets[i] == m_places[i].memory && datagram.pieces[2].empty() ? Fate::Stay : Fate::Move;
}

// Whether no datagram but one has bytes there.
bool Receiver::Batch::IsFree(std::size_t except, std::size_t count, std::uint8_t const *begin, std::size_t size) const
{
    std::less<std::uint8_t const *> const isBefore;
    for (std::size_t i = 0; i < count; ++i) {
        std::span<std::uint8_t const> const other = m_datagrams[i].pieces[1];
        if (i != except && isBefore(begin, other.data() + other.size()) && isBefore(other.data(), begin + size))
            return false;
    }
    return true;
}

void Receiver::Batch::Stash(std::size_t i)
{
    std::span<std::uint8_t const> &landed = m_datagrams[i].pieces[1];
    std::copy(landed.begin(), landed.end(), StashOf(i));
    landed = {StashOf(i), landed.size()};
    m_fates[i] = Fate::Stay;
}

void Receiver::Batch::Move(std::size_t i, std::size_t count)
{
    Datagram &datagram = m_datagrams[i];
    std::uint8_t *const target = m_targets[i];
    std::span<std::uint8_t const> const landed = datagram.pieces[1], tail = datagram.pieces[2];
    std::size_t const size = landed.size() + tail.size();
    if (!IsFree(i, count, target, size)) {
        Stash(i);
        return;
    }
    std::memmove(target, landed.data(), landed.size());
    std::copy(tail.begin(), tail.end(), target + landed.size());
    datagram.pieces[1] = {target, size};
    datagram.pieces[2] = {};
    m_fates[i] = Fate::Stay;
}

void Receiver::Batch::Take(std::size_t count, BlockTable &table, std::uint32_t camera, BlockTable::Time now)
{
    if (m_isTrain) {
        TakeTrain(table, camera, now);
        return;
    }
    for (std::size_t i = 0; i < count; ++i)
        Describe(i, table, camera);
    PutInPlace(count);
    for (std::size_t i = 0; i < count; ++i) {
        table.Take(m_datagrams[i], now);
        if (!m_rests[i].bytes.empty())
            TakeRest(m_rests[i], table, now);
    }
}

void Receiver::Batch::TakeTrain(BlockTable &table, std::uint32_t camera, BlockTable::Time now)
{
    std::size_t const size = m_messages[0].msg_len, part = PartOfTrain(0), length = part > 0 ? part : size;
    if (part > 0 && size / part >= LongTrain)
        m_longTrains = TrainMemory;
    std::size_t count = 0, left = size;
    bool isInPieces = true;
    for (; count < m_expected && left > 0; ++count) {
        std::size_t const bytes = std::min(left, length), front = m_trainPieces[2 * count].iov_len;
        left -= bytes;
        // Only the last may be shorter than what was expected.
        isInPieces = isInPieces &&
                     (bytes == front + m_places[count].room || (left == 0 && bytes < front + m_places[count].room));
        m_datagrams[count].pieces = {std::span(m_fronts[count]).first(std::min(front, bytes)),
                                     std::span(m_places[count].memory, bytes - std::min(front, bytes)),
                                     {}};
    }
    Rest rest{{TailOf(0), left}, length, 0};
    if (!isInPieces) {
        rest.bytes = Gather(0);
        count = 0;
    }
    for (std::size_t i = 0; i < count; ++i)
        Decide(i, 0, table, camera);
    PutInPlace(count);
    for (std::size_t i = 0; i < count; ++i)
        table.Take(m_datagrams[i], now);
    if (!rest.bytes.empty() || size == 0)
        TakeRest(rest, table, now);
}

// All of a message behind each other, in its last piece.
std::span<std::uint8_t const> Receiver::Batch::Gather(std::size_t message)
{
    msghdr const &header = m_messages[message].msg_hdr;
    std::span<iovec const> const pieces(header.msg_iov, header.msg_iovlen);
    std::size_t const size = m_messages[message].msg_len;
    std::size_t before = 0;
    for (iovec const &piece : pieces.first(pieces.size() - 1))
        before += piece.iov_len;
    before = std::min(before, size);
    auto *target = static_cast<std::uint8_t *>(pieces.back().iov_base);
    std::span<std::uint8_t const> const all(target, size);
    std::memmove(target + before, target, size - before);
    for (std::size_t left = before, piece = 0; left > 0; ++piece) {
        std::size_t const bytes = std::min(left, pieces[piece].iov_len);
        target = std::copy_n(static_cast<std::uint8_t const *>(pieces[piece].iov_base), bytes, target);
        left -= bytes;
    }
    return all;
}

void Receiver::Batch::TakeRest(Rest const &rest, BlockTable &table, BlockTable::Time now)
{
    Datagram datagram;
    SocketAddress const sender = FromSockaddr(m_senders[rest.message]);
    datagram.address = sender.address;
    datagram.port = sender.port;
    datagram.arrival = Arrival(rest.message);
    std::span<std::uint8_t const> left = rest.bytes;
    do {
        datagram.pieces[0] = left.first(std::min(left.size(), rest.length));
        left = left.subspan(datagram.pieces[0].size());
        datagram.truncated = datagram.pieces[0].size() > m_scratchRoom;
        table.Take(datagram, now);
    } while (!left.empty());
}

// First what has no place in a frame leaves those of others. Then places become free from the last on behind a loss,
// and from the first on behind a packet that was not expected.
void Receiver::Batch::PutInPlace(std::size_t count)
{
    std::span<Fate const> const fates = std::span(m_fates).first(count);
    if (std::all_of(fates.begin(), fates.end(), [](Fate fate) { return fate == Fate::Stay; }))
        return;
    for (std::size_t i = 0; i < count; ++i) {
        if (m_fates[i] == Fate::Stash)
            Stash(i);
    }
    std::less<std::uint8_t const *> const isBefore;
    for (std::size_t i = count; i-- > 0;) {
        if (m_fates[i] == Fate::Move && isBefore(m_places[i].memory, m_targets[i]))
            Move(i, count);
    }
    for (std::size_t i = 0; i < count; ++i) {
        if (m_fates[i] == Fate::Move)
            Move(i, count);
    }
}

// ---- Receiver ----------------------------------------------------------------------------------------------------

Receiver::Receiver(StreamControl &control, FrameSink &sink, StreamStatistics &statistics)
    : m_control(control),
      m_sink(sink),
      m_statistics(statistics),
      m_table(sink, statistics)
{
}

Receiver::~Receiver()
{
    Stop();
    Close();
}

bool Receiver::Open(std::size_t room)
{
    Close();
    m_wake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    m_socket = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (m_wake < 0 || m_socket < 0 || !BindSocket(m_socket, {m_control.GetHostAddress(), 0})) {
        Close();
        return false;
    }
    // The first is for the system's administrator alone; the second is cut to what the system allows.
    int const bytes = static_cast<int>(room);
    if (setsockopt(m_socket, SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof bytes) != 0)
        SetOption(m_socket, SO_RCVBUF, bytes);
    SetOption(m_socket, SO_RXQ_OVFL, 1);
    SetOption(m_socket, SO_TIMESTAMPNS, 1);
    m_gather = GatherPause(static_cast<std::size_t>(GetOption(m_socket, SO_RCVBUF)));
    m_statistics.wantedRoom.Set(room);
    m_statistics.socketRoom.Set(GetRoom());
    m_strangers.Open(m_socket, m_control.GetCameraAddress());
    return true;
}

void Receiver::Close()
{
    for (int *const fd : {&m_socket, &m_wake}) {
        if (*fd >= 0)
            close(*fd);
        *fd = -1;
    }
    m_strangers.Close();
    m_source.reset();
    m_usesSource = false;
}

// The system doubles what it grants, for its own accounts.
std::uint64_t Receiver::GetRoom() const
{
    return static_cast<std::uint64_t>(GetOption(m_socket, SO_RCVBUF)) / 2;
}

std::uint16_t Receiver::GetPort() const
{
    return AddressOfSocket(m_socket).port;
}

void Receiver::SetSource(std::unique_ptr<DatagramSource> source)
{
    m_source = std::move(source);
    m_usesSource = m_source != nullptr;
    m_statistics.socketRoom.Set(m_usesSource ? 0 : GetRoom());
    // What the source brings would fill the socket, too.
    sock_filter nothing = BPF_STMT(BPF_RET | BPF_K, 0);
    sock_fprog const program{1, &nothing};
    if (m_source)
        setsockopt(m_socket, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program);
}

bool Receiver::AwaitTestPacket(std::uint32_t size, std::chrono::milliseconds patience)
{
    Clock::time_point const end = Clock::now() + patience;
    for (;;) {
        auto const left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
        pollfd ready{m_socket, POLLIN, 0};
        if (left.count() < 0 || poll(&ready, 1, static_cast<int>(left.count())) <= 0)
            return false;
        std::array<std::uint8_t, gvsp::HeaderSize> front;
        SocketAddress sender;
        ssize_t const length = ReceiveDatagram(m_socket, front, sender, MSG_TRUNC);
        if (length < static_cast<ssize_t>(front.size()) || sender.address != m_control.GetCameraAddress())
            continue;
        std::optional<gvsp::Header> const header = gvsp::ReadHeader(front);
        if (header && header->blockId == 0 &&
            static_cast<std::size_t>(length) + gvsp::IpHeaderSize + gvsp::UdpHeaderSize == size)
            return true;
    }
}

void Receiver::Start(BlockLayout const &layout)
{
    if (m_socket < 0)
        throw std::system_error(ENOTCONN, std::generic_category());
    Stop();
    BlockLayout begun = layout;
    if (m_usesSource)
        begun.delay = m_source->GetDelay();
    m_table.Begin(begun);
    m_batch = std::make_unique<Batch>(std::clamp<std::uint32_t>(layout.packetSize, gvsp::SmallestPacket, 0xFFFF));
    m_camera = layout.address;
    m_packetSize = std::max<std::uint32_t>(layout.packetSize, gvsp::SmallestPacket);
    BeginCredit();
    JoinTrains(!m_usesSource); // not before: test packets come one by one
    Drain();
    m_nextGreeting = Clock::now();
    m_quit.store(false, std::memory_order_relaxed);
    m_thread = std::thread([this] { Run(); });
}

void Receiver::Stop()
{
    if (!m_thread.joinable())
        return;
    m_quit.store(true, std::memory_order_relaxed);
    eventfd_write(m_wake, 1);
    if (m_source)
        m_source->Wake();
    m_thread.join();
    if (!m_usesSource)
        CountDrops(GetSocketDrops(m_socket));
    LookAround(Clock::now());
    m_table.Abort();
    HandOver();
    if (BlockBuffer const spare = m_table.TakeSpare(); spare.memory)
        m_sink.GiveBack(spare);
}

// What came while nobody received.
void Receiver::Drain()
{
    constexpr int MostBatches = 4096; // more than the largest socket holds, from a camera that goes on
    for (int i = 0; i < MostBatches && m_batch->Read(m_socket, m_table) > 0; ++i) {
    }
    m_drops = GetSocketDrops(m_socket);
    m_strangers.Forget();
    if (m_source) {
        m_source->Forget();
        m_losses = m_source->GetLosses();
    }
    m_shown = 0;
    m_isUnheard = false;
    eventfd_t ignored;
    eventfd_read(m_wake, &ignored);
}

// ---- The thread --------------------------------------------------------------------------------------------------

void Receiver::Run()
{
    prctl(PR_SET_NAME, "gvsp");
    while (!m_quit.load(std::memory_order_relaxed)) {
        BlockTable::Time now = Clock::now();
        bool const more = Read(now);
        if (now >= m_table.NextDue() || now >= m_nextGreeting)
            DoWhatIsDue(now);
        if (now >= m_nextLook)
            LookAround(now);
        HandOver();
        if (!more)
            Wait(now);
    }
}

// True where there may be more.
bool Receiver::Read(BlockTable::Time now)
{
    if (!m_usesSource)
        return ReadSocket(now);
    std::size_t const count = m_source->Read([&](Datagram const &datagram) { m_table.Take(datagram, now); });
    m_shown += count;
    m_hasRead = m_hasRead || count > 0;
    return count > 0;
}

bool Receiver::ReadSocket(BlockTable::Time now)
{
    int const count = m_batch->Read(m_socket, m_table);
    if (count <= 0)
        return false;
    m_hasRead = true;
    m_readBytes += m_batch->Bytes(static_cast<std::size_t>(count));
    CountDrops(m_batch->GetDrops(static_cast<std::size_t>(count)).value_or(m_drops));
    m_batch->Take(static_cast<std::size_t>(count), m_table, m_camera, now);
    return m_batch->IsFull();
}

// At what comes beside the camera's packets. Whatever that is, it takes a share of the thread's time that is limited.
void Receiver::LookAround(BlockTable::Time now)
{
    m_nextLook = now + LookPeriod;
    m_hasNews = m_strangers.Count(m_statistics);
    m_hasNews = std::exchange(m_hasRead, false) || m_hasNews;
    if (m_usesSource)
        CountLosses();
}

void Receiver::CountLosses()
{
    DatagramSource::Losses const losses = m_source->GetLosses();
    std::uint64_t const damaged = losses.malformed - m_losses.malformed + (losses.fragments - m_losses.fragments);
    CountRingDrops(losses);
    m_statistics.received.Add(damaged);
    m_statistics.malformed.Add(damaged);
    bool const hasFragments = losses.fragments != m_losses.fragments;
    m_losses = losses;
    // The socket's filter has dropped all that came from the camera. A source may be slower than a socket.
    bool const isUnheard = m_shown == 0 && GetSocketDrops(m_socket) - m_drops >= Unheard;
    if (hasFragments || (std::exchange(m_isUnheard, isUnheard) && isUnheard))
        LeaveSource();
}

void Receiver::CountRingDrops(DatagramSource::Losses const &losses)
{
    if (losses.dropped == m_losses.dropped)
        return;
    AddDrops(losses.dropped - m_losses.dropped);
    m_losses.dropped = losses.dropped;
}

void Receiver::LeaveSource()
{
    int const none = 0;
    setsockopt(m_socket, SOL_SOCKET, SO_DETACH_FILTER, &none, sizeof none);
    m_usesSource = false;
    m_statistics.socketRoom.Set(GetRoom());
    m_drops = GetSocketDrops(m_socket);
    BeginCredit();
    JoinTrains(true);
}

// The system joins what comes for a socket that takes trains before anything else sees it, a packet ring, too.
void Receiver::JoinTrains(bool on)
{
    int const value = on;
    setsockopt(m_socket, SOL_UDP, UDP_GRO, &value, sizeof value);
}

void Receiver::CountDrops(std::uint32_t drops)
{
    // A datagram tells what was so when it came, which may be known better by now.
    if (static_cast<std::int32_t>(drops - m_drops) <= 0)
        return;
    AddDrops(drops - m_drops);
    m_drops = drops;
}

void Receiver::AddDrops(std::uint64_t drops)
{
    m_statistics.socketDrops.Add(drops);
    m_credit.Add(drops, m_statistics.received.Get());
}

// A packet takes more room than its bytes.
void Receiver::BeginCredit()
{
    std::uint64_t const room =
        m_usesSource ? m_source->GetRoom() : static_cast<std::uint64_t>(GetOption(m_socket, SO_RCVBUF));
    m_credit.Begin(room / m_packetSize + BatchSize, LongestTrain / m_packetSize + 1);
}

// The system is asked only for frames that lack something.
void Receiver::ChargeDrops(BlockFrame &frame)
{
    std::uint64_t const missing = frame.missing + frame.losses.skipped * frame.packets;
    if (missing == 0)
        return;
    if (m_usesSource)
        CountRingDrops(m_source->GetLosses());
    else
        CountDrops(GetSocketDrops(m_socket));
    frame.losses.dropped = m_credit.Take(missing, frame.begin);
}

void Receiver::DoWhatIsDue(BlockTable::Time now)
{
    for (int i = 0; i < MostPolls && m_table.NextDue() <= now; ++i) {
        for (PacketRequest const &request : m_table.Poll(now))
            m_control.RequestPackets(request);
    }
    if (now >= m_nextGreeting)
        KeepPathOpen(now);
}

// Firewalls let through what comes from where something was sent to.
void Receiver::KeepPathOpen(BlockTable::Time now)
{
    m_nextGreeting = now + GreetingPeriod;
    std::array<std::uint8_t, gvsp::HeaderSize> const nothing{};
    if (m_table.GetPort() != 0)
        SendDatagram(m_socket, nothing, {m_camera, m_table.GetPort()}, MSG_DONTWAIT | MSG_NOSIGNAL);
}

void Receiver::HandOver()
{
    while (std::optional<BlockFrame> frame = m_table.TakeDone()) {
        ChargeDrops(*frame);
        if (frame->end == BlockFrame::End::Aborted)
            m_sink.GiveBack(frame->buffer);
        else
            m_sink.Deliver(*frame);
    }
}

void Receiver::Wait(BlockTable::Time now)
{
    if (std::size_t const read = std::exchange(m_readBytes, 0); read > 0) {
        std::chrono::nanoseconds const pause = m_gather.Next(read, now);
        if (pause > pause.zero()) {
            std::this_thread::sleep_for(pause);
            return;
        }
    }
    bool const isLively = m_hasRead || m_hasNews;
    BlockTable::Time until = std::min(m_table.NextDue(), m_nextGreeting);
    // Strangers who have just been looked at wait for the next look, so that a flood of them wakes nobody.
    int const strangers = isLively ? -1 : m_strangers.GetSocket();
    if (isLively)
        until = std::min(until, m_nextLook);
    else
        m_nextLook = now;
    if (m_usesSource && m_shown == 0)
        until = std::min(until, now + SourcePatience);
    auto const left = std::max(until - now, BlockTable::Time::duration::zero());
    if (m_usesSource) {
        m_source->Wait(std::chrono::ceil<std::chrono::milliseconds>(left), strangers);
        return;
    }
    auto const seconds = std::chrono::floor<std::chrono::seconds>(left);
    timespec const patience{static_cast<time_t>(seconds.count()), static_cast<long>((left - seconds).count())};
    std::array<pollfd, 3> events{{{m_socket, POLLIN, 0}, {m_wake, POLLIN, 0}, {strangers, POLLIN, 0}}};
    ppoll(events.data(), events.size(), &patience, nullptr);
}
