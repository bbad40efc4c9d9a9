// Packets on their way into frames.
#include "blocktable.h"

#include "blockunderway.h"

#include <algorithm>
#include <bit>

namespace {

using namespace std::chrono_literals;

constexpr std::uint32_t OtherLeadersBelieved = 3; // from another port than the camera names
constexpr std::uint32_t LengthsBelieved = 8;      // data packets in a row that are shorter than they could be
// What a short packet waits for the trailer that says whether it is the last.
constexpr auto ShortPatience = 5ms;

} // namespace

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
    std::optional<gvsp::Header> header = gvsp::ReadHeader(datagram.pieces[0]);
    if (!header) { // it may go on in the next piece
        std::array<std::uint8_t, gvsp::ExtendedHeaderSize> front;
        std::size_t const frontSize = datagram.Copy(0, front);
        header = gvsp::ReadHeader(std::span(front).first(frontSize));
    }
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
    if (frame->over)
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
    // A trailer that came first was not compared with anything.
    if (frame.trailerSize > 0 && !ReadBlockTrailer(std::span(frame.trailerBody).first(frame.trailerSize), *leader))
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
        for (std::uint32_t word = 0; word <= frame.highestData / 64; ++word) {
            for (std::uint64_t came = frame.came[word]; came != 0; came &= came - 1) {
                std::uint32_t const id = word * 64 + static_cast<std::uint32_t>(std::countr_zero(came));
                if (id == 0 || id > frame.highestData)
                    continue; // leader and trailer
                frame.came[word] &= ~(came & (~came + 1));
                --frame.have;
                Miss(frame, id, id + 1, frame.lastPacket + GapPatience);
            }
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
    frame.dataBytes -= std::min(frame.dataBytes, frame.shortSize);
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
    if (!frame || frame->over || id >= frame->next || frame->Has(id) || frame->states[id].tries == 0 ||
        frame->states[id].gone)
        return Verdict::Refused;
    // What the camera has not come to yet cannot be had either.
    if (frame == Newest() && frame->trailerId == NoTrailer && id > frame->highestData)
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
    frame.dataBytes += size;
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
