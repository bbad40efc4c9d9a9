#include "blocktable.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

namespace {

using namespace std::chrono_literals;

// Block ids that are further from the newest are believed once several packets in a row have them: a single one may be
// damaged.
constexpr std::int64_t MostAway = 64;
constexpr int StraysBelieved = 4;
constexpr std::uint32_t OtherLeadersBelieved = 3; // from another port than the camera names
constexpr std::uint32_t LengthsBelieved = 8;      // data packets in a row that are shorter than they could be
// What a short packet waits for the trailer that says whether it is the last.
constexpr auto ShortPatience = 5ms;
constexpr auto ReorderPatience = 20ms;                                     // of a camera that sends nothing again
constexpr std::uint64_t FirstLap = std::uint64_t{gvsp::LastBlockId} << 20; // so that earlier ids have a sequence too
constexpr std::uint32_t LeastPacketSize = 128; // below it a camera's register is not believed
constexpr std::uint32_t NoTrailer = 0xFFFFFFFF;
constexpr std::size_t HeadersBelow = gvsp::IpHeaderSize + gvsp::UdpHeaderSize;

std::int64_t Distance(std::uint64_t from, std::uint64_t to)
{
    return static_cast<std::int64_t>(to - from);
}

bool IsError(gvsp::Header const &header)
{
    return (header.status & 0x8000) != 0;
}

bool IsResent(gvsp::Header const &header)
{
    return header.status == gvcp::GEV_STATUS_PACKET_RESEND || (header.flags & gvsp::PACKET_RESEND) != 0;
}

} // namespace

std::size_t Datagram::Copy(std::size_t offset, std::span<std::uint8_t> out) const
{
    std::size_t copied = 0;
    for (std::span<std::uint8_t const> piece : pieces) {
        std::size_t const skip = std::min(offset, piece.size());
        offset -= skip;
        std::size_t const size = std::min(piece.size() - skip, out.size() - copied);
        if (size > 0)
            std::memmove(out.data() + copied, piece.data() + skip, size);
        copied += size;
    }
    return copied;
}

// ---- Frames ------------------------------------------------------------------------------------------------------

// Of a packet that is missing, but for the place of its data, which packets of multi-part blocks have when they came.
struct BlockTable::PacketState
{
    Time due; // for the next request
    std::uint32_t offset = 0, size = 0;
    std::uint8_t tries = 0;
    bool gone = false; // is not asked for any more
};

struct BlockTable::Frame
{
    enum class Kind : std::uint8_t { Unknown, Plain, Parts };

    bool Has(std::uint32_t id) const
    {
        return (came[id / 64] >> (id % 64) & 1) != 0;
    }
    bool IsComplete() const
    {
        return leader && trailerId != NoTrailer && have == trailerId + 1;
    }
    std::uint32_t Missing() const
    {
        return next - have;
    }

    bool inUse = false;
    std::vector<std::uint64_t> came; // a bit for each packet
    std::vector<PacketState> states; // of a packet that `next` has passed

    std::uint64_t sequence = 0, blockId = 0;
    bool isExtended = false;
    Kind kind = Kind::Unknown;
    BlockBuffer buffer;
    std::optional<BlockLeader> leader;
    std::array<std::uint8_t, LongestLeader> trailerBody; // read when the leader is known
    std::size_t trailerSize = 0;
    std::uint32_t trailerId = NoTrailer;
    std::uint32_t next = 0;        // above every packet that came or is missing
    std::uint32_t have = 0;        // packets that came
    std::uint32_t highestData = 0; // id
    std::size_t dataEnd = 0;       // behind all data that are there
    std::uint32_t asked = 0;
    std::uint32_t shortId = 0; // a data packet that may be a damaged one, or the last of a smaller frame; 0: none
    std::size_t shortSize = 0;
    bool shortTaken = false;
    bool tailOpen = false; // what follows the newest packet counts as missing
    bool over = false;
    BlockFrame::End end = BlockFrame::End::Incomplete;
    bool isWhole = false;
    std::size_t size = 0;
    Time lastPacket;
    std::chrono::nanoseconds arrival{0};
};

// Packets whose block is far from all others.
struct BlockTable::Suspect
{
    int count = 0;
    std::uint64_t blockId = 0;
    bool isExtended = false;
    // The leader of that block, if it came.
    std::array<std::uint8_t, gvsp::ExtendedHeaderSize + LongestLeader> bytes;
    std::size_t size = 0;
};

BlockTable::BlockTable(BufferSupply &supply, StreamStatistics &statistics)
    : m_supply(supply),
      m_statistics(statistics),
      m_suspect(std::make_unique<Suspect>())
{
}

BlockTable::~BlockTable() = default;

void BlockTable::Begin(BlockLayout const &layout)
{
    m_layout = layout;
    m_layout.packetSize = std::clamp<std::uint32_t>(layout.packetSize, LeastPacketSize, 0xFFFF);
    m_lengths = {};
    for (std::size_t kind = 0; kind < m_lengths.size(); ++kind) {
        std::size_t const header = kind == Standard ? gvsp::HeaderSize : gvsp::ExtendedHeaderSize;
        std::size_t const part = kind == Parts ? gvsp::MultiPartData::Size : 0;
        m_lengths[kind].most = static_cast<std::uint32_t>(m_layout.packetSize - HeadersBelow - header - part);
    }
    // Packets are not shorter than half of what they could be; leader, trailer, and the last packets of parts.
    m_mostPackets = static_cast<std::uint32_t>(layout.payload / (m_lengths[Parts].most / 2)) + 3 +
                    static_cast<std::uint32_t>(BlockLeader().partLengths.size());
    m_frontSize = gvsp::HeaderSize;
    m_partsExpected = false;
    m_port = layout.port;
    m_portProven = false;
    m_otherLeaders = 0;
    m_slots.resize(MostUnderWay);
    for (auto &slot : m_slots) {
        slot = std::make_unique<Frame>();
        slot->came.resize(m_mostPackets / 64 + 1);
        slot->states.resize(m_mostPackets);
    }
    m_frames.fill(nullptr);
    m_count = 0;
    m_window = std::clamp<std::size_t>(layout.buffers / 2, std::clamp(layout.buffers, 1u, 2u), MostUnderWay);
    m_spare = {};
    m_spareFor.reset();
    m_spareWanted.reset();
    m_any = m_anyOver = false;
    m_newestTimestamp = 0;
    m_suspect->count = 0;
    m_done.assign(layout.buffers + 1, {});
    m_doneFirst = m_doneCount = 0;
    m_requestCount = 0;
    m_due = Never;
}

BlockTable::Frame *BlockTable::Newest() const
{
    return m_count > 0 ? m_frames[m_count - 1] : nullptr;
}

BlockTable::Frame *BlockTable::Search(std::uint64_t sequence) const
{
    for (std::size_t i = m_count; i-- > 0;) {
        if (m_frames[i]->sequence == sequence)
            return m_frames[i];
    }
    return nullptr;
}

// Ids without a header's extension begin anew after the last.
std::uint64_t BlockTable::SequenceOf(gvsp::Header const &header) const
{
    if (header.isExtended)
        return header.blockId;
    constexpr std::int64_t Period = gvsp::LastBlockId;
    if (!m_any || m_isExtended)
        return FirstLap + header.blockId;
    std::int64_t step = (static_cast<std::int64_t>(header.blockId) + Period - gvsp::BlockId16(m_newest)) % Period;
    if (step > Period / 2)
        step -= Period;
    return m_newest + static_cast<std::uint64_t>(step);
}

// A camera that counts from 1 again, as it does when it is stopped and started while the stream goes on.
bool BlockTable::IsRestart(Packet const &packet, std::uint64_t newestTimestamp)
{
    std::array<std::uint8_t, LongestLeader> body;
    if (packet.header.blockId != 1 || packet.header.format != gvsp::DataLeader || newestTimestamp == 0)
        return false;
    std::size_t const size = packet.datagram->Copy(packet.bodyOffset, body);
    std::optional<BlockLeader> const leader = ReadBlockLeader(std::span(body).first(size), packet.header.parts);
    return leader && leader->timestamp > newestTimestamp;
}

// Whether a block may begin with this packet.
bool BlockTable::IsPlausible(Packet const &packet) const
{
    std::uint32_t const id = packet.header.packetId;
    switch (packet.header.format) {
    case gvsp::DataLeader:
    case gvsp::AllIn: {
        std::array<std::uint8_t, LongestLeader> body;
        std::size_t const size = packet.datagram->Copy(packet.bodyOffset, body);
        return id == 0 && ReadBlockLeader(std::span(body).first(size), packet.header.parts);
    }
    case gvsp::DataTrailer:
    case gvsp::DataPayload:
    case gvsp::MultiPartPayload:
        return id > 0 && id < m_mostPackets;
    default:
        return false;
    }
}

BlockTable::Frame *BlockTable::FrameFor(Packet const &packet, Time now, Verdict &verdict)
{
    gvsp::Header const &header = packet.header;
    std::uint64_t const sequence = SequenceOf(header);
    std::int64_t const ahead = Distance(m_newest, sequence);
    bool const isNear = m_any && header.isExtended == m_isExtended && ahead <= MostAway && ahead >= -MostAway;
    verdict = Verdict::Late;
    if (isNear) {
        m_suspect->count = 0;
        if (Frame *const frame = Search(sequence))
            return frame->over ? nullptr : frame;
    }
    if (IsResent(header))
        return nullptr; // of a frame that is over
    if (!IsPlausible(packet)) {
        verdict = Verdict::Malformed;
        return nullptr;
    }
    if (!m_any)
        return Open(sequence, header, now);
    if (header.isExtended == m_isExtended && ahead <= 0 && IsRestart(packet, m_newestTimestamp)) {
        StartOver();
        return Open(SequenceOf(header), header, now);
    }
    if (!isNear) {
        verdict = HoldSuspect(packet);
        return m_suspect->count < StraysBelieved ? nullptr : OpenSuspect(packet, now);
    }
    if (m_anyOver && Distance(m_lastOver, sequence) <= 0)
        return nullptr;
    return Open(sequence, header, now);
}

Verdict BlockTable::HoldSuspect(Packet const &packet)
{
    Suspect &suspect = *m_suspect;
    gvsp::Header const &header = packet.header;
    // A camera that goes on elsewhere counts from there.
    std::int64_t const step = Distance(suspect.blockId, header.blockId);
    bool const follows = suspect.count > 0 && header.isExtended == suspect.isExtended && step >= 0 && step <= 2;
    if (!follows)
        suspect.count = 0;
    if (!follows || step > 0)
        suspect.size = 0;
    if (header.format == gvsp::DataLeader && suspect.size == 0)
        suspect.size = packet.datagram->Copy(0, suspect.bytes);
    ++suspect.count;
    suspect.blockId = header.blockId;
    suspect.isExtended = header.isExtended;
    return Verdict::Malformed;
}

// The camera counts elsewhere now.
BlockTable::Frame *BlockTable::OpenSuspect(Packet const &packet, Time now)
{
    std::int64_t const ahead = Distance(m_newest, SequenceOf(packet.header));
    if (packet.header.isExtended != m_isExtended || ahead < 0 || ahead > gvsp::LastBlockId)
        StartOver();
    m_suspect->count = 0;
    Frame *const frame = Open(SequenceOf(packet.header), packet.header, now);
    if (!frame || m_suspect->size == 0 || packet.header.format == gvsp::DataLeader)
        return frame;
    // It has been counted already.
    Datagram kept;
    kept.pieces[0] = std::span(m_suspect->bytes).first(m_suspect->size);
    gvsp::Header const header = *gvsp::ReadHeader(kept.pieces[0]);
    TakeLeader(*frame, {header, &kept, header.Size(), m_suspect->size - header.Size()}, now);
    return frame;
}

void BlockTable::StartOver()
{
    for (std::size_t i = 0; i < m_count; ++i) {
        if (!m_frames[i]->over)
            End(*m_frames[i], BlockFrame::End::Incomplete);
    }
    HandOver();
    m_any = m_anyOver = false;
    m_newestTimestamp = 0;
}

bool BlockTable::FetchBuffer(std::uint64_t sequence, BlockBuffer &buffer)
{
    // Data of the block that the spare buffer is meant for may be there already.
    if (m_spare.memory && (!m_spareFor || *m_spareFor == sequence)) {
        buffer = std::exchange(m_spare, {});
        return true;
    }
    return m_supply.TakeBuffer(buffer);
}

BlockTable::Frame *BlockTable::Open(std::uint64_t sequence, gvsp::Header const &header, Time now)
{
    while (m_count >= m_window) {
        if (Distance(m_frames[0]->sequence, sequence) < 0)
            return nullptr;
        End(*m_frames[0], BlockFrame::End::Incomplete);
        HandOver();
    }
    BlockBuffer buffer;
    bool const hasBuffer = FetchBuffer(sequence, buffer);
    if (!hasBuffer && m_spare.memory) {
        m_spareWanted = sequence; // from the next batch on
        return nullptr;
    }
    Frame &frame = **std::find_if(m_slots.begin(), m_slots.end(), [](auto const &slot) { return !slot->inUse; });
    Reset(frame, sequence, header, now);
    frame.buffer = buffer;
    std::size_t at = m_count++;
    for (; at > 0 && Distance(m_frames[at - 1]->sequence, sequence) < 0; --at)
        m_frames[at] = m_frames[at - 1];
    m_frames[at] = &frame;
    if (!m_any || Distance(m_newest, sequence) > 0)
        m_newest = sequence;
    m_any = true;
    m_isExtended = header.isExtended;
    m_spareWanted.reset();
    m_due = now; // what the frame before lacks is to be asked for
    if (hasBuffer)
        return &frame;
    frame.over = true;
    frame.end = BlockFrame::End::Lost;
    HandOver();
    return nullptr;
}

void BlockTable::Reset(Frame &frame, std::uint64_t sequence, gvsp::Header const &header, Time now)
{
    std::fill(frame.came.begin(), frame.came.end(), 0);
    frame.inUse = true;
    frame.sequence = sequence;
    frame.blockId = header.blockId;
    frame.isExtended = header.isExtended;
    frame.kind = Frame::Kind::Unknown;
    frame.leader.reset();
    frame.trailerSize = 0;
    frame.trailerId = NoTrailer;
    frame.next = frame.have = frame.highestData = frame.asked = frame.shortId = 0;
    frame.dataEnd = 0;
    frame.shortTaken = frame.tailOpen = frame.over = frame.isWhole = false;
    frame.end = BlockFrame::End::Incomplete;
    frame.size = 0;
    frame.lastPacket = now;
    frame.arrival = {};
}

// ---- Packets -----------------------------------------------------------------------------------------------------

Verdict BlockTable::Take(Datagram const &datagram, Time now)
{
    m_statistics.received.Add();
    Verdict const verdict = Judge(datagram, now);
    switch (verdict) {
    case Verdict::Taken:
        m_statistics.packets.Add();
        break;
    case Verdict::Held:
        break; // is counted when it is known what it is
    case Verdict::Duplicate:
        m_statistics.duplicate.Add();
        break;
    case Verdict::Late:
        m_statistics.late.Add();
        break;
    case Verdict::Foreign:
        m_statistics.foreign.Add();
        break;
    case Verdict::Malformed:
        m_statistics.malformed.Add();
        break;
    case Verdict::Refused:
        m_statistics.refused.Add();
        break;
    case Verdict::Ignored:
        m_statistics.ignored.Add();
        break;
    }
    return verdict;
}

// A camera may not know its port, or name a wrong one: then leaders tell it.
bool BlockTable::IsFromCamera(Datagram const &datagram, gvsp::Header const &header)
{
    if (datagram.port == m_port) {
        m_portProven = true;
        return true;
    }
    bool const begins = (header.format == gvsp::DataLeader || header.format == gvsp::AllIn) && header.packetId == 0 &&
                        header.blockId != 0;
    if (m_port == 0) {
        if (begins)
            m_port = datagram.port;
        return true;
    }
    if (m_portProven || !begins)
        return false;
    if (m_otherPort != datagram.port)
        m_otherLeaders = 0;
    m_otherPort = datagram.port;
    if (++m_otherLeaders < OtherLeadersBelieved)
        return false;
    m_port = datagram.port;
    return true;
}

Verdict BlockTable::Judge(Datagram const &datagram, Time now)
{
    if (datagram.address != m_layout.address)
        return Verdict::Foreign;
    std::array<std::uint8_t, gvsp::ExtendedHeaderSize> front;
    std::size_t const frontSize = datagram.Copy(0, front);
    std::optional<gvsp::Header> const header = gvsp::ReadHeader(std::span(front).first(frontSize));
    if (!header)
        return Verdict::Malformed;
    if (!IsFromCamera(datagram, *header))
        return Verdict::Foreign;
    if (datagram.truncated)
        return Verdict::Malformed;
    if (header->blockId == 0)
        return Verdict::Ignored;
    if (IsError(*header))
        return TakeRefusal(*header, now);
    Packet const packet{*header, &datagram, header->Size(), datagram.Size() - header->Size()};
    Verdict verdict;
    Frame *const frame = FrameFor(packet, now, verdict);
    if (!frame)
        return verdict;
    if (frame->arrival.count() == 0)
        frame->arrival = datagram.arrival;
    verdict = TakeInto(*frame, packet, now);
    if (frame->IsComplete() && !frame->over)
        EndWhole(*frame);
    HandOver();
    return verdict;
}

Verdict BlockTable::TakeInto(Frame &frame, Packet const &packet, Time now)
{
    switch (packet.header.format) {
    case gvsp::DataLeader:
        return TakeLeader(frame, packet, now);
    case gvsp::DataTrailer:
        return TakeTrailer(frame, packet, now);
    case gvsp::DataPayload:
        return TakeData(frame, packet, now);
    case gvsp::MultiPartPayload:
        return TakePart(frame, packet, now);
    case gvsp::AllIn:
        return TakeAllIn(frame, packet, now);
    default:
        return Verdict::Malformed;
    }
}

Verdict BlockTable::TakeLeader(Frame &frame, Packet const &packet, Time now)
{
    std::array<std::uint8_t, LongestLeader> body;
    std::size_t const size = packet.datagram->Copy(packet.bodyOffset, body);
    std::optional<BlockLeader> const leader = ReadBlockLeader(std::span(body).first(size), packet.header.parts);
    if (packet.header.packetId != 0 || !leader)
        return Verdict::Malformed;
    if (frame.Has(0))
        return Verdict::Duplicate;
    Frame::Kind const kind = leader->payloadType == gvsp::MultiPart ? Frame::Kind::Parts : Frame::Kind::Plain;
    if (frame.kind != Frame::Kind::Unknown && frame.kind != kind)
        return Verdict::Malformed;
    frame.kind = kind;
    frame.leader = leader;
    m_newestTimestamp = std::max(m_newestTimestamp, leader->timestamp);
    m_partsExpected = kind == Frame::Kind::Parts;
    if (kind == Frame::Kind::Parts)
        frame.tailOpen = false; // how long the block is was not known before
    Mark(frame, 0, now);
    ResolveShort(frame);
    return Verdict::Taken;
}

Verdict BlockTable::TakeTrailer(Frame &frame, Packet const &packet, Time now)
{
    std::uint32_t const id = packet.header.packetId;
    std::array<std::uint8_t, LongestLeader> body;
    std::size_t const size = packet.datagram->Copy(packet.bodyOffset, body);
    if (frame.trailerId != NoTrailer)
        return id == frame.trailerId ? Verdict::Duplicate : Verdict::Malformed;
    DataLength const &length = LengthOf(frame);
    std::uint64_t const most = frame.kind == Frame::Kind::Parts || !length.settled
                                   ? m_mostPackets - 1
                                   : (m_layout.payload + length.current - 1) / length.current + 1;
    constexpr std::size_t Shortest = 4;
    if (id == 0 || id > most || id <= frame.highestData || size < Shortest ||
        (frame.leader && !ReadBlockTrailer(std::span(body).first(size), *frame.leader)))
        return Verdict::Malformed;
    frame.trailerId = id;
    frame.trailerSize = size;
    std::copy_n(body.begin(), size, frame.trailerBody.begin());
    Mark(frame, id, now);
    frame.next = id + 1; // what was missed behind it is not there
    ResolveShort(frame);
    return Verdict::Taken;
}

BlockTable::DataLength &BlockTable::LengthOf(Frame const &frame)
{
    return m_lengths[frame.kind == Frame::Kind::Parts ? Parts : frame.isExtended ? Extended : Standard];
}

// All data packets of a stream but the last of a block have one length. It is that of the largest packet, as long as it
// may be, or of several in a row.
void BlockTable::SettleLength(DataLength &length, std::uint32_t size)
{
    if (length.settled || size < length.most / 2)
        return;
    if (size > length.current) {
        if (length.current != 0)
            ForgetData(length);
        length.current = size;
        length.alike = 0;
    }
    length.alike = size == length.current ? length.alike + 1 : 0;
    length.settled = size == length.most || length.alike >= LengthsBelieved;
}

// Data are where they would belong if packets were shorter.
void BlockTable::ForgetData(DataLength const &length)
{
    for (std::size_t i = 0; i < m_count; ++i) {
        Frame &frame = *m_frames[i];
        if (frame.over || frame.kind == Frame::Kind::Parts || &LengthOf(frame) != &length)
            continue;
        for (std::uint32_t id = 1; id <= frame.highestData; ++id) {
            if (!frame.Has(id))
                continue;
            frame.came[id / 64] &= ~(std::uint64_t{1} << (id % 64));
            --frame.have;
            Miss(frame, id, id + 1, frame.lastPacket + GapPatience);
        }
        if (frame.shortId != 0)
            DropShort(frame);
    }
}

Verdict BlockTable::TakeData(Frame &frame, Packet const &packet, Time now)
{
    std::uint32_t const id = packet.header.packetId;
    std::size_t const size = packet.bodySize;
    if (frame.kind == Frame::Kind::Parts || id == 0 || id >= m_mostPackets || id >= frame.trailerId || size == 0)
        return Verdict::Malformed;
    DataLength &length = m_lengths[frame.isExtended ? Extended : Standard];
    if (size > length.most)
        return Verdict::Malformed;
    SettleLength(length, static_cast<std::uint32_t>(size));
    std::size_t const step = length.current != 0 ? length.current : length.most;
    std::size_t const offset = std::size_t{id - 1} * step;
    if (size > step || offset >= m_layout.payload || size > m_layout.payload - offset)
        return Verdict::Malformed;
    if (frame.Has(id))
        return Verdict::Duplicate;
    if (size < step && offset + size != m_layout.payload)
        return HoldShort(frame, packet, offset, now);
    if (frame.shortId != 0 && id >= frame.shortId)
        DropShort(frame);
    frame.kind = Frame::Kind::Plain;
    Store(frame, offset, packet, packet.bodyOffset, size);
    frame.highestData = std::max(frame.highestData, id);
    Mark(frame, id, now);
    return Verdict::Taken;
}

Verdict BlockTable::HoldShort(Frame &frame, Packet const &packet, std::size_t offset, Time now)
{
    std::uint32_t const id = packet.header.packetId;
    if (id < frame.highestData || id < frame.shortId || (id == frame.shortId && packet.bodySize < frame.shortSize))
        return Verdict::Malformed; // others follow it
    bool const again = id == frame.shortId && packet.bodySize == frame.shortSize;
    if (frame.shortId != 0)
        DropShort(frame);
    frame.kind = Frame::Kind::Plain;
    Store(frame, offset, packet, packet.bodyOffset, packet.bodySize);
    frame.highestData = id;
    frame.shortId = id;
    frame.shortSize = packet.bodySize;
    bool const isNew = id >= frame.next;
    Advance(frame, id, now);
    if (isNew)
        Miss(frame, id, id + 1, now + ShortPatience);
    // What the camera says twice is so.
    if (again && frame.trailerId == id + 1)
        TakeShort(frame);
    else
        ResolveShort(frame);
    return Verdict::Held;
}

void BlockTable::DropShort(Frame &frame)
{
    if (!frame.shortTaken)
        m_statistics.malformed.Add();
    frame.shortId = 0;
    frame.shortTaken = false;
}

// The short packet in front of the trailer is the last of the data, if they are enough with it.
void BlockTable::ResolveShort(Frame &frame)
{
    if (frame.shortId == 0 || frame.shortTaken || frame.trailerId != frame.shortId + 1 || !frame.leader)
        return;
    BlockTrailer const trailer = TrailerOf(frame);
    std::uint32_t const lines = frame.leader->picture ? frame.leader->picture->height : 0;
    if (IsEnough(frame, ShortEnd(frame), std::min(lines, trailer.lines.value_or(lines))))
        TakeShort(frame);
}

void BlockTable::TakeShort(Frame &frame)
{
    m_statistics.packets.Add();
    frame.shortTaken = true;
    Mark(frame, frame.shortId, frame.lastPacket);
}

std::size_t BlockTable::ShortEnd(Frame const &frame)
{
    DataLength const &length = LengthOf(frame);
    return std::size_t{frame.shortId - 1} * (length.current != 0 ? length.current : length.most) + frame.shortSize;
}

Verdict BlockTable::TakePart(Frame &frame, Packet const &packet, Time now)
{
    using Field = gvsp::MultiPartData;
    std::uint32_t const id = packet.header.packetId;
    std::array<std::uint8_t, Field::Size> front;
    if (frame.kind == Frame::Kind::Plain || id == 0 || id >= m_mostPackets || id >= frame.trailerId ||
        !packet.header.isExtended || packet.bodySize <= Field::Size ||
        packet.datagram->Copy(packet.bodyOffset, front) < Field::Size)
        return Verdict::Malformed;
    std::size_t const size = packet.bodySize - Field::Size;
    std::uint64_t const offset = LoadBig48(&front[Field::AddressOffset]);
    DataLength &length = m_lengths[Parts];
    if (size > length.most || offset > m_layout.payload || size > m_layout.payload - offset)
        return Verdict::Malformed;
    bool const mayBeShort =
        (front[Field::ZoneInfo] & (gvsp::END_OF_ZONE | gvsp::END_OF_PART)) != 0 || offset + size == m_layout.payload;
    if (!mayBeShort)
        SettleLength(length, static_cast<std::uint32_t>(size));
    if (length.settled &&
        (size > length.current || (size < length.current && !mayBeShort) || !IsWhereExpected(frame, id, offset, size)))
        return Verdict::Malformed;
    if (frame.Has(id))
        return Verdict::Duplicate;
    frame.kind = Frame::Kind::Parts;
    m_partsExpected = true;
    Store(frame, static_cast<std::size_t>(offset), packet, packet.bodyOffset + Field::Size, size);
    frame.highestData = std::max(frame.highestData, id);
    Mark(frame, id, now);
    frame.states[id].offset = static_cast<std::uint32_t>(offset);
    frame.states[id].size = static_cast<std::uint32_t>(size);
    return Verdict::Taken;
}

// Where the leader tells how long the parts are, each packet has one place.
bool BlockTable::IsWhereExpected(Frame const &frame, std::uint32_t id, std::uint64_t offset, std::size_t size) const
{
    if (!frame.leader || frame.leader->hasZones)
        return true;
    std::uint64_t const step = m_lengths[Parts].current;
    std::uint64_t first = 1, begin = 0;
    for (std::uint64_t length : frame.leader->partLengths) {
        std::uint64_t const packets = length / step + (length % step != 0);
        if (id - first < packets) {
            std::uint64_t const before = (id - first) * step;
            return offset == begin + before && size == std::min(step, length - before);
        }
        first += packets;
        begin += length;
    }
    return false;
}

Verdict BlockTable::TakeAllIn(Frame &frame, Packet const &packet, Time now)
{
    std::array<std::uint8_t, LongestLeader> body;
    std::size_t const copied = packet.datagram->Copy(packet.bodyOffset, body);
    auto const ends = std::span<std::uint8_t const>(body).first(copied);
    std::optional<std::size_t> const endsSize = AllInEndsSize(ends);
    if (packet.header.packetId != 0 || !endsSize || packet.bodySize - *endsSize > m_layout.payload)
        return Verdict::Malformed;
    if (frame.have > 0 || frame.shortId != 0)
        return frame.trailerId == 0 ? Verdict::Duplicate : Verdict::Malformed;
    std::size_t const dataSize = packet.bodySize - *endsSize;
    auto const trailer = ends.subspan(gvsp::ImageLeader::Size, *endsSize - gvsp::ImageLeader::Size);
    std::optional<BlockLeader> const leader = ReadBlockLeader(ends, 0);
    std::optional<BlockTrailer> const end = leader ? ReadBlockTrailer(trailer, *leader) : std::nullopt;
    if (!end || end->dataBytes.value_or(dataSize) != dataSize || frame.kind == Frame::Kind::Parts ||
        dataSize < leader->picture->Bytes(leader->picture->height))
        return Verdict::Malformed;
    frame.kind = Frame::Kind::Plain;
    frame.leader = leader;
    m_newestTimestamp = std::max(m_newestTimestamp, leader->timestamp);
    frame.trailerId = 0;
    frame.trailerSize = trailer.size();
    std::copy(trailer.begin(), trailer.end(), frame.trailerBody.begin());
    frame.size = dataSize;
    Store(frame, 0, packet, packet.bodyOffset + *endsSize, dataSize);
    Mark(frame, 0, now);
    return Verdict::Taken;
}

// A camera that says that a packet cannot be had is believed, if it was asked for it.
Verdict BlockTable::TakeRefusal(gvsp::Header const &header, Time now)
{
    Frame *const frame = m_any && header.isExtended == m_isExtended ? Search(SequenceOf(header)) : nullptr;
    std::uint32_t const id = header.packetId;
    if (!frame || frame->over || id >= frame->next || frame->Has(id) || frame->states[id].tries == 0)
        return Verdict::Refused;
    PacketState &state = frame->states[id];
    switch (header.status) {
    case gvcp::GEV_STATUS_PACKET_UNAVAILABLE:
    case gvcp::GEV_STATUS_PACKET_REMOVED_FROM_MEMORY:
        state.gone = true;
        break;
    case gvcp::GEV_STATUS_PACKET_AND_PREV_REMOVED_FROM_MEMORY:
        for (std::uint32_t earlier = 0; earlier <= id; ++earlier)
            frame->states[earlier].gone = true;
        break;
    default:
        return Verdict::Refused; // it may come later
    }
    m_due = std::min(m_due, now);
    return Verdict::Refused;
}

void BlockTable::Store(Frame &frame, std::size_t offset, Packet const &packet, std::size_t bodyOffset, std::size_t size)
{
    std::uint8_t *const place = frame.buffer.memory + offset;
    frame.dataEnd = std::max(frame.dataEnd, offset + size);
    for (std::span<std::uint8_t const> piece : packet.datagram->pieces) {
        // Where it landed.
        if (bodyOffset < piece.size() && piece.data() + bodyOffset == place && piece.size() - bodyOffset == size)
            return;
        if (bodyOffset < piece.size())
            break;
        bodyOffset -= piece.size();
    }
    std::size_t const skipped = packet.datagram->Size() - size;
    packet.datagram->Copy(skipped, {place, size});
}

void BlockTable::Mark(Frame &frame, std::uint32_t id, Time now)
{
    frame.came[id / 64] |= std::uint64_t{1} << (id % 64);
    ++frame.have;
    if (id < frame.next && frame.states[id].tries > 0)
        m_statistics.resent.Add();
    Advance(frame, id, now);
}

void BlockTable::Advance(Frame &frame, std::uint32_t id, Time now)
{
    frame.lastPacket = now;
    if (id < frame.next)
        return;
    if (id > frame.next)
        Miss(frame, frame.next, id, now + (m_layout.resends ? GapPatience : ReorderPatience));
    frame.next = id + 1;
}

void BlockTable::Miss(Frame &frame, std::uint32_t first, std::uint32_t end, Time due)
{
    for (std::uint32_t id = first; id < end; ++id) {
        PacketState &state = frame.states[id];
        state.due = due;
        state.tries = 0;
        state.gone = false;
    }
    m_due = std::min(m_due, due);
}

// ---- Ends --------------------------------------------------------------------------------------------------------

BlockTrailer BlockTable::TrailerOf(Frame const &frame)
{
    std::optional<BlockTrailer> trailer;
    if (frame.leader)
        trailer = ReadBlockTrailer(std::span(frame.trailerBody).first(frame.trailerSize), *frame.leader);
    return trailer.value_or(BlockTrailer());
}

// Whether so many bytes are all that leader and trailer promise, with so many lines of the picture.
bool BlockTable::IsEnough(Frame const &frame, std::size_t size, std::uint32_t lines)
{
    BlockTrailer const trailer = TrailerOf(frame);
    if (trailer.dataBytes && *trailer.dataBytes != size &&
        (frame.kind != Frame::Kind::Parts || frame.leader->partBytes != size))
        return false;
    if (!frame.leader->picture)
        return true;
    BlockPicture const &picture = *frame.leader->picture;
    std::uint64_t const bytes = picture.Bytes(lines);
    return bytes <= size && picture.offset <= size - bytes;
}

// The size of a block of parts; nothing where the data of its packets do not follow each other.
std::optional<std::size_t> BlockTable::JoinParts(Frame const &frame)
{
    std::size_t end = 0;
    for (std::uint32_t id = 1; id < frame.trailerId; ++id) {
        if (frame.states[id].offset != end)
            return std::nullopt;
        end += frame.states[id].size;
    }
    return end;
}

// Every packet has come.
void BlockTable::EndWhole(Frame &frame)
{
    if (frame.kind == Frame::Kind::Parts) {
        std::optional<std::size_t> const size = JoinParts(frame);
        if (!size) {
            End(frame, BlockFrame::End::Incomplete);
            return;
        }
        frame.size = *size;
    } else if (frame.trailerId > 0) { // what is all in one packet has its size
        DataLength const &length = LengthOf(frame);
        std::size_t const step = length.current != 0 ? length.current : length.most;
        frame.size =
            frame.shortId != 0 ? ShortEnd(frame) : std::min(std::size_t{frame.trailerId - 1} * step, m_layout.payload);
    }
    frame.isWhole = true;
    std::uint32_t const lines = frame.leader->picture ? frame.leader->picture->height : 0;
    frame.over = true;
    frame.end = IsEnough(frame, frame.size, lines) ? BlockFrame::End::Complete : BlockFrame::End::Incomplete;
}

void BlockTable::End(Frame &frame, BlockFrame::End end)
{
    if (frame.over)
        return;
    if (frame.shortId != 0 && !frame.shortTaken) {
        // A short packet is what the camera has, if nothing better came of asking.
        if (end == BlockFrame::End::Incomplete && frame.leader && frame.trailerId == frame.shortId + 1 &&
            frame.have == frame.trailerId) {
            frame.states[frame.shortId].tries = 0; // it was there before it was asked for
            TakeShort(frame);
            EndWhole(frame);
            return;
        }
        DropShort(frame);
    }
    frame.over = true;
    frame.end = end;
}

// 0 where it is not known yet.
std::uint32_t BlockTable::ExpectedTrailer(Frame const &frame)
{
    if (frame.trailerId != NoTrailer)
        return frame.trailerId;
    if (frame.kind == Frame::Kind::Unknown && m_partsExpected)
        return 0;
    DataLength const &length = LengthOf(frame);
    std::uint64_t const step = length.current != 0 ? length.current : length.most;
    std::uint64_t packets = 1;
    if (frame.kind != Frame::Kind::Parts) {
        std::uint64_t bytes = m_layout.payload;
        if (frame.leader && frame.leader->picture && !frame.leader->hasChunks)
            bytes = std::min(bytes, frame.leader->picture->Bytes(frame.leader->picture->height));
        packets += (bytes + step - 1) / step;
    } else if (frame.leader) {
        for (std::uint64_t part : frame.leader->partLengths)
            packets += std::min<std::uint64_t>(part, m_layout.payload) / step + (part % step != 0);
    } else {
        return 0;
    }
    return static_cast<std::uint32_t>(
        std::clamp<std::uint64_t>(packets, frame.highestData + 1, std::uint64_t{m_mostPackets} - 1));
}

// The oldest frames that are over, in order.
void BlockTable::HandOver()
{
    std::size_t ended = 0;
    for (; ended < m_count && m_frames[ended]->over; ++ended)
        HandOver(*m_frames[ended]);
    if (ended == 0)
        return;
    std::copy(m_frames.begin() + static_cast<std::ptrdiff_t>(ended),
              m_frames.begin() + static_cast<std::ptrdiff_t>(m_count), m_frames.begin());
    m_count -= ended;
}

void BlockTable::HandOver(Frame &frame)
{
    if (m_anyOver && Distance(m_lastOver, frame.sequence) > 1)
        m_statistics.skipped.Add(frame.sequence - m_lastOver - 1);
    m_anyOver = true;
    m_lastOver = frame.sequence;
    frame.inUse = false;
    using End = BlockFrame::End;
    (frame.end == End::Complete     ? m_statistics.complete
     : frame.end == End::Incomplete ? m_statistics.incomplete
     : frame.end == End::Lost       ? m_statistics.lost
                                    : m_statistics.aborted)
        .Add();
    if (frame.end == End::Lost)
        return;
    std::uint32_t const packets = frame.isWhole ? frame.have : std::max(frame.next, ExpectedTrailer(frame) + 1);
    m_statistics.missing.Add(frame.end == End::Incomplete ? packets - frame.have : 0);
    BlockFrame &done = m_done[(m_doneFirst + m_doneCount++) % m_done.size()];
    done = {};
    done.buffer = frame.buffer;
    done.end = frame.end;
    done.isWhole = frame.isWhole;
    done.hasLeader = frame.leader.has_value();
    done.blockId = frame.blockId;
    if (frame.leader) {
        done.payloadType = frame.leader->payloadType;
        done.timestamp = frame.leader->timestamp;
        done.picture = frame.leader->picture;
    }
    done.size = frame.size;
    done.arrival = frame.arrival;
    done.packets = packets;
    done.missing = packets - frame.have;
}

std::optional<BlockFrame> BlockTable::TakeDone()
{
    if (m_doneCount == 0)
        return std::nullopt;
    BlockFrame const &done = m_done[m_doneFirst];
    m_doneFirst = (m_doneFirst + 1) % m_done.size();
    --m_doneCount;
    return done;
}

void BlockTable::Abort()
{
    for (std::size_t i = 0; i < m_count; ++i)
        End(*m_frames[i], BlockFrame::End::Aborted);
    HandOver();
    m_requestCount = 0;
    m_due = Never;
}

BlockBuffer BlockTable::TakeSpare()
{
    return std::exchange(m_spare, {});
}

// ---- Time --------------------------------------------------------------------------------------------------------

std::span<PacketRequest const> BlockTable::Poll(Time now)
{
    m_requestCount = 0;
    if (now >= m_due) {
        m_due = Never;
        for (std::size_t i = 0; i < m_count; ++i) {
            if (!m_frames[i]->over)
                PollFrame(*m_frames[i], now);
        }
        HandOver();
    }
    return std::span(m_requests).first(m_requestCount);
}

void BlockTable::PollFrame(Frame &frame, Time now)
{
    auto const quiet = now - frame.lastPacket;
    if (quiet >= FramePatience) {
        End(frame, BlockFrame::End::Incomplete);
        return;
    }
    bool const endsSoon = quiet >= TailPatience || &frame != Newest();
    if (frame.trailerId == NoTrailer && !frame.tailOpen && endsSoon) {
        frame.tailOpen = true;
        std::uint32_t const trailer = ExpectedTrailer(frame);
        if (trailer >= frame.next) {
            Miss(frame, frame.next, trailer + 1, now + (m_layout.resends ? GapPatience : ReorderPatience));
            frame.next = trailer + 1;
        }
    }
    bool const mayEnd = frame.tailOpen || frame.trailerId != NoTrailer;
    if (!AskAgain(frame, now) && mayEnd) {
        End(frame, BlockFrame::End::Incomplete);
        return;
    }
    m_due = std::min(m_due, frame.lastPacket + (mayEnd ? FramePatience : TailPatience));
}

// Asks for what is due. False where nothing more can come of asking.
bool BlockTable::AskAgain(Frame &frame, Time now)
{
    if (frame.Missing() == 0)
        return false;
    bool hopeful = false;
    std::uint32_t const most = std::max(FewestAsked, frame.next / AskedShare);
    for (std::uint32_t word = 0; word * 64 < frame.next; ++word) {
        std::uint32_t const inWord = std::min<std::uint32_t>(frame.next - word * 64, 64);
        std::uint64_t missing = ~frame.came[word];
        if (inWord < 64)
            missing &= (std::uint64_t{1} << inWord) - 1;
        for (; missing != 0; missing &= missing - 1) {
            std::uint32_t const id = word * 64 + static_cast<std::uint32_t>(std::countr_zero(missing));
            PacketState &state = frame.states[id];
            if (!state.gone && state.due <= now) {
                if (!m_layout.resends || state.tries >= MostTries || frame.asked >= most) {
                    state.gone = true;
                } else if (Request(frame, id)) {
                    ++frame.asked;
                    m_statistics.asked.Add();
                    state.due = now + AnswerPatience * (1 << state.tries++);
                }
            }
            hopeful = hopeful || !state.gone;
            if (!state.gone)
                m_due = std::min(m_due, state.due);
        }
    }
    return hopeful;
}

// False where no further one has room: the rest is asked for in the next poll.
bool BlockTable::Request(Frame const &frame, std::uint32_t id)
{
    if (m_requestCount > 0) {
        PacketRequest &last = m_requests[m_requestCount - 1];
        if (last.blockId == frame.blockId && last.last + 1 == id) {
            last.last = id;
            return true;
        }
    }
    if (m_requestCount == m_requests.size())
        return false;
    m_requests[m_requestCount++] = {m_layout.channel, frame.blockId, id, id, frame.isExtended};
    return true;
}

// ---- Places ------------------------------------------------------------------------------------------------------

BlockTable::DataLength const &BlockTable::ExpectedLength() const
{
    return m_lengths[m_partsExpected ? Parts : m_any && m_isExtended ? Extended : Standard];
}

void BlockTable::Expect(std::span<Place> places)
{
    if (!m_spare.memory && !m_supply.TakeBuffer(m_spare))
        m_spare = {};
    m_spareFor.reset();
    if (m_any)
        m_spareFor = m_spareWanted.value_or(m_newest + 1);
    m_frontSize = (m_any && m_isExtended ? gvsp::ExtendedHeaderSize : gvsp::HeaderSize) +
                  (m_partsExpected ? gvsp::MultiPartData::Size : 0);
    DataLength const &length = ExpectedLength();
    std::size_t const step = length.current != 0 ? length.current : length.most;
    std::size_t const packets = (m_layout.payload + step - 1) / step;
    std::uint8_t *memory = m_spare.memory, *next = nullptr;
    std::size_t id = 0, used = 0;
    if (Frame const *const frame = Newest(); frame && !frame->over) {
        next = std::exchange(memory, frame->buffer.memory);
        id = frame->next;
        used = frame->dataEnd;
    }
    for (Place &place : places) {
        std::size_t const offset = (id - 1) * step;
        bool const isData = memory && id > 0 && id <= packets && offset >= used;
        place = isData ? Place{memory + offset, std::min(step, m_layout.payload - offset)} : Place{};
        if (++id > packets + 1) {
            // Behind the trailer the next block begins, and one is as far as can be seen.
            id = used = 0;
            memory = std::exchange(next, nullptr);
        }
    }
}

std::uint8_t *BlockTable::Find(std::span<std::uint8_t const> front, std::size_t size) const
{
    std::optional<gvsp::Header> const header = gvsp::ReadHeader(front);
    if (!header || !m_any || header->isExtended != m_isExtended || header->blockId == 0 || IsError(*header))
        return nullptr;
    bool const isPart = header->format == gvsp::MultiPartPayload;
    std::size_t const before = header->Size() + (isPart ? gvsp::MultiPartData::Size : 0);
    DataLength const &length = m_lengths[isPart ? Parts : m_isExtended ? Extended : Standard];
    if ((!isPart && header->format != gvsp::DataPayload) || !length.settled || header->packetId == 0 ||
        header->packetId >= m_mostPackets || size <= before || front.size() < before)
        return nullptr;
    std::size_t const bytes = size - before;
    std::uint64_t const offset = isPart ? LoadBig48(&front[header->Size() + gvsp::MultiPartData::AddressOffset])
                                        : std::uint64_t{header->packetId - 1} * length.current;
    if (bytes > length.current || offset > m_layout.payload || bytes > m_layout.payload - offset)
        return nullptr;
    std::uint64_t const sequence = SequenceOf(*header);
    Frame const *const frame = Search(sequence);
    std::uint8_t *memory = nullptr;
    if (frame)
        memory = frame->over || frame->Has(header->packetId) || (isPart && offset < frame->dataEnd)
                     ? nullptr
                     : frame->buffer.memory;
    else if (m_spareFor == sequence)
        memory = m_spare.memory;
    return memory ? memory + offset : nullptr;
}
