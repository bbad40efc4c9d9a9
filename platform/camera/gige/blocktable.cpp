#include "blocktable.h"

#include "blockunderway.h"

#include <algorithm>
#include <bit>
#include <new>
#include <utility>

namespace {

// Block ids that are further from the newest are believed once several packets in a row have them: a single one may be
// damaged.
constexpr std::int64_t MostAway = 64;
constexpr int StraysBelieved = 4;
constexpr std::uint64_t FirstLap = std::uint64_t{gvsp::LastBlockId} << 20; // so that earlier ids have a sequence too
constexpr std::uint32_t LeastPacketSize = 128; // below it a camera's register is not believed
// Packets of all frames under way, 24 bytes each: enough for two frames of a gigabyte in packets of 1,500 bytes.
constexpr std::uint32_t MostStates = 1 << 22;
constexpr std::size_t HeadersBelow = gvsp::IpHeaderSize + gvsp::UdpHeaderSize;

std::int64_t Distance(std::uint64_t from, std::uint64_t to)
{
    return static_cast<std::int64_t>(to - from);
}

bool IsResent(gvsp::Header const &header)
{
    return header.status == gvcp::GEV_STATUS_PACKET_RESEND || (header.flags & gvsp::PACKET_RESEND) != 0;
}

} // namespace

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
    if (m_mostPackets > MostStates / 2)
        throw std::bad_alloc();
    m_frontSize = gvsp::HeaderSize;
    m_partsExpected = false;
    m_port = layout.port;
    m_portProven = false;
    m_otherLeaders = 0;
    m_window = std::clamp<std::size_t>(layout.buffers / 2, std::clamp(layout.buffers, 1u, 2u), MostUnderWay);
    m_window = std::min<std::size_t>(m_window, MostStates / m_mostPackets);
    m_slots.resize(m_window);
    for (auto &slot : m_slots) {
        slot = std::make_unique<Frame>();
        slot->came.resize(m_mostPackets / 64 + 1);
        slot->states.resize(m_mostPackets);
    }
    m_frames.fill(nullptr);
    m_count = 0;
    m_spare = {};
    m_spareFor.reset();
    m_spareWanted.reset();
    m_any = m_anyOver = false;
    m_losses.Begin();
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
    if (std::optional<gvsp::Header> const header = gvsp::ReadHeader(kept.pieces[0]))
        TakeLeader(*frame, {*header, &kept, header->Size(), m_suspect->size - header->Size()}, now);
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
    frame.dataEnd = frame.dataBytes = 0;
    frame.shortTaken = frame.tailOpen = frame.over = frame.isWhole = false;
    frame.end = BlockFrame::End::Incomplete;
    frame.size = 0;
    frame.lastPacket = now;
    frame.arrival = {};
    frame.begin = m_statistics.received.Get();
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
    if (!frame.leader)
        return false;
    BlockLeader const &leader = *frame.leader;
    BlockTrailer const trailer = TrailerOf(frame);
    if (trailer.dataBytes && *trailer.dataBytes != size &&
        (frame.kind != Frame::Kind::Parts || leader.partBytes != size))
        return false;
    if (!leader.picture)
        return true;
    std::uint64_t const bytes = leader.picture->Bytes(lines);
    return bytes <= size && leader.picture->offset <= size - bytes;
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
    std::uint32_t const lines = frame.leader && frame.leader->picture ? frame.leader->picture->height : 0;
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

// Chunk data are a part of their own, or all of the block, whose first chunk is the picture then.
void BlockTable::FindChunks(Frame const &frame, BlockFrame &done)
{
    if (!frame.leader)
        return;
    BlockLeader const &leader = *frame.leader;
    if (frame.kind == Frame::Kind::Parts) {
        bool const isThere = leader.chunkOffset <= done.size && leader.chunkBytes <= done.size - leader.chunkOffset;
        done.chunkOffset = isThere ? static_cast<std::size_t>(leader.chunkOffset) : 0;
        done.chunkBytes = isThere ? static_cast<std::size_t>(leader.chunkBytes) : 0;
    } else if (leader.hasChunks || leader.payloadType == gvsp::ChunkData ||
               leader.payloadType == gvsp::ExtendedChunkData) {
        done.chunkBytes = done.size;
    }
}

std::uint64_t BlockTable::MissingBytes(Frame const &frame) const
{
    std::uint64_t promised = m_layout.payload;
    if (frame.kind == Frame::Kind::Parts && frame.leader)
        promised = std::min(promised, frame.leader->partBytes);
    else if (std::optional<std::uint64_t> const told = TrailerOf(frame).dataBytes)
        promised = std::min(promised, *told);
    else if (frame.leader && frame.leader->picture && !frame.leader->hasChunks)
        promised = std::min(promised, frame.leader->picture->Bytes(frame.leader->picture->height));
    return promised - std::min<std::uint64_t>(promised, frame.dataBytes);
}

void BlockTable::HandOver(Frame &frame)
{
    if (m_anyOver && Distance(m_lastOver, frame.sequence) > 1) {
        m_statistics.skipped.Add(frame.sequence - m_lastOver - 1);
        m_losses.AddSkipped(frame.sequence - m_lastOver - 1);
    }
    m_anyOver = true;
    m_lastOver = frame.sequence;
    frame.inUse = false;
    using End = BlockFrame::End;
    if (frame.end == End::Lost) {
        m_statistics.lost.Add();
        m_losses.AddUnbuffered();
        return;
    }
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
    if (frame.isWhole)
        FindChunks(frame, done);
    done.arrival = frame.arrival;
    done.begin = frame.begin;
    done.packets = packets;
    done.missing = packets - frame.have;
    done.losses = m_losses.Of({packets, done.missing, frame.Has(0), frame.trailerId != NoTrailer});
    if (frame.end == End::Incomplete)
        done.missingBytes = MissingBytes(frame);
    if (done.end == End::Complete && !m_supply.Accepts(done))
        done.end = End::Unfit;
    (done.end == End::Complete     ? m_statistics.complete
     : done.end == End::Unfit      ? m_statistics.unfit
     : done.end == End::Incomplete ? m_statistics.incomplete
                                   : m_statistics.aborted)
        .Add();
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
    // A camera that cannot be asked may only be slow.
    auto const tailPatience = m_layout.resends ? TailPatience : FramePatience;
    bool const endsSoon = quiet >= tailPatience || &frame != Newest();
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
    m_due = std::min(m_due, frame.lastPacket + (mayEnd ? FramePatience : tailPatience));
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
                    state.due = now + m_layout.delay + AnswerPatience * (1 << state.tries++);
                } else {
                    m_due = std::min(m_due, state.due);
                    return true; // the rest is for the next poll
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
