// Datagrams of any bytes from a camera and from strangers, at any times, to the table of frames under way.
//
// An input is a list of records: a byte of StepFlags, and either as many bytes as Words needs for a packet that is made
// of them, or a length and as many bytes of a datagram. The oracle knows which bytes of a buffer were written by
// packets of its frame, because no packet has a byte that an untouched buffer has.
#include "driver.h"

#include "chunkdata.h"
#include "gige/blocktable.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace {

using namespace std::chrono_literals;

enum StepFlags : std::uint8_t {
    IsRaw = 0x01,     // the datagram's bytes follow, instead of what it is made of
    IsForeign = 0x02, // another address
    OtherPort = 0x04,
    Landed = 0x08, // its payload is in its place when it comes
    TimeMask = 0x70,
};
constexpr unsigned TimeShift = 4;

constexpr std::uint32_t Camera = 0x0A000001, Mono8 = 0x01080001;
constexpr std::uint32_t Width = 50, Height = 12, PacketSize = 220, Buffers = 5;
constexpr std::size_t Payload = Width * Height, Guard = 32, Room = Payload + Guard;
constexpr std::uint8_t Untouched = 0xEE;
constexpr std::size_t Longest = 512;
constexpr int MostSteps = 32; // more show nothing new, and take their time

struct Totals
{
    ~Totals()
    {
        std::printf("%llu datagrams, %llu taken, %llu frames, %llu complete\n", datagrams, taken, frames, complete);
    }
    unsigned long long datagrams = 0, taken = 0, frames = 0, complete = 0;
} s_totals;

void Demand(bool condition, char const *what)
{
    if (!condition)
        FuzzFail(what);
}

class Session final : public BufferSupply
{
public:
    explicit Session(std::uint8_t options) : m_isExtended((options & 1) != 0)
    {
        std::memset(m_memory.data(), Untouched, sizeof m_memory);
        for (std::size_t i = 0; i < Buffers; ++i)
            m_free[m_freeCount++] = static_cast<int>(i);
        BlockLayout layout;
        layout.payload = Payload;
        layout.packetSize = PacketSize;
        layout.buffers = Buffers;
        layout.address = Camera;
        layout.port = (options & 2) != 0 ? 7000 : 0;
        layout.resends = (options & 4) == 0;
        m_table.Begin(layout);
    }
    bool TakeBuffer(BlockBuffer &buffer) override
    {
        if (m_freeCount == 0)
            return false;
        int const which = m_free[--m_freeCount];
        buffer = {m_memory[static_cast<std::size_t>(which)].data(), Payload,
                  &m_memory[static_cast<std::size_t>(which)]};
        return true;
    }
    bool Accepts(BlockFrame const &frame) override
    {
        return frame.blockId % 16 != 0;
    }
    // The rest of the input.
    std::span<std::uint8_t const> Step(std::span<std::uint8_t const> input)
    {
        std::uint8_t const flags = input[0];
        input = input.subspan(1);
        Advance((flags & TimeMask) >> TimeShift);
        std::size_t size = 0;
        if ((flags & IsRaw) != 0) {
            size = input.empty() ? 0 : std::min<std::size_t>(input[0], input.size() - 1);
            std::copy_n(input.begin() + (input.empty() ? 0 : 1), size, m_bytes.begin());
            input = input.subspan(std::min(size + 1, input.size()));
        } else {
            size = Make(input);
        }
        Feed(size, flags);
        return input;
    }
    void Finish()
    {
        m_table.Abort();
        TakeDone();
        if (BlockBuffer const spare = m_table.TakeSpare(); spare.memory)
            GiveBack(spare);
        Demand(m_freeCount == Buffers, "a buffer is gone");
        CheckGuards();
        StreamStatistics const &s = m_statistics;
        Demand(s.received.Get() == m_datagrams, "datagrams are not counted");
        Demand(s.received.Get() == s.packets.Get() + s.duplicate.Get() + s.late.Get() + s.foreign.Get() +
                                       s.malformed.Get() + s.refused.Get() + s.ignored.Get(),
               "datagrams do not sum up");
        Demand(s.complete.Get() + s.unfit.Get() + s.incomplete.Get() + s.aborted.Get() == m_frames,
               "frames do not sum up");
    }
    bool HasFrames() const
    {
        return m_frames > 0;
    }

private:
    using Memory = std::array<std::uint8_t, Room>;

    void Advance(unsigned step)
    {
        constexpr std::chrono::nanoseconds Times[] = {0ns, 0ns, 0ns, 100us, 2ms, 25ms, 250ms};
        if (step < std::size(Times))
            m_now += Times[step];
        else if (m_table.NextDue() != BlockTable::Never)
            m_now = std::max(m_now, m_table.NextDue());
        for (int polls = 0; m_table.NextDue() <= m_now; ++polls) {
            for (PacketRequest const &request : m_table.Poll(m_now)) {
                Demand(request.first <= request.last && request.blockId != 0, "asked for nothing");
                Demand(request.isExtended || (request.blockId <= 0xFFFF && request.last <= 0xFFFFFF),
                       "asked by long ids");
            }
            Demand(polls < 1000, "never at rest");
        }
        TakeDone();
    }
    // A packet that is nearly right: what it is comes from a few bytes.
    std::size_t Make(std::span<std::uint8_t const> &input)
    {
        std::array<std::uint8_t, 6> words{};
        std::copy_n(input.begin(), std::min(words.size(), input.size()), words.begin());
        input = input.subspan(std::min(words.size(), input.size()));
        auto const &[kind, id, block, change, value, status] = words;
        gvsp::Header header{};
        constexpr std::uint16_t Statuses[] = {0, gvcp::GEV_STATUS_PACKET_RESEND, gvcp::GEV_STATUS_PACKET_UNAVAILABLE,
                                              gvcp::GEV_STATUS_PACKET_AND_PREV_REMOVED_FROM_MEMORY};
        header.status = status < 128 ? 0 : Statuses[status % 4];
        header.isExtended = m_isExtended != (kind >= 0xF0);
        constexpr std::uint8_t Formats[] = {gvsp::DataLeader,  gvsp::DataPayload,      gvsp::DataPayload,
                                            gvsp::DataTrailer, gvsp::MultiPartPayload, gvsp::AllIn};
        header.format = Formats[kind % std::size(Formats)];
        header.blockId = block < 0xF0 ? block / 8 : block < 0xF8 ? 65530 + block % 8 : std::uint64_t{block} << 8;
        std::size_t const front = header.isExtended ? gvsp::ExtendedHeaderSize : gvsp::HeaderSize;
        std::size_t const room = PacketSize - gvsp::IpHeaderSize - gvsp::UdpHeaderSize - front;
        std::size_t const packets = (Payload + room - 1) / room;
        bool const isLeader = header.format == gvsp::DataLeader || header.format == gvsp::AllIn;
        header.packetId = isLeader                             ? id / 240
                          : header.format == gvsp::DataTrailer ? static_cast<std::uint32_t>(packets + 1)
                                                               : id % 8;
        header.parts = 2;
        if (header.isExtended)
            gvsp::WriteExtendedHeader(std::span(m_bytes).first<gvsp::ExtendedHeaderSize>(), header);
        else
            gvsp::WriteHeader(std::span(m_bytes).first<gvsp::HeaderSize>(), header);
        std::size_t size = front + MakeBody(header, &m_bytes[front], room, kind);
        // And one change, of a byte or of the size.
        if (change >= 0x80)
            m_bytes[change % size] = value;
        else if (change >= 0x60)
            size = value % 2 != 0 ? size - std::min<std::size_t>(size, value) : std::min(size + value, Longest);
        return size;
    }
    std::size_t MakeBody(gvsp::Header const &header, std::uint8_t *body, std::size_t room, std::uint8_t kind) const
    {
        bool const parts = (kind & 0x40) != 0;
        std::size_t const begin = std::size_t{header.packetId - 1} * room;
        switch (header.format) {
        case gvsp::DataLeader:
            std::memset(body, 0, 128);
            StoreBig64(body + gvsp::ImageLeader::Timestamp, header.blockId);
            if (parts) {
                StoreBig16(body + gvsp::MultiPartLeader::PayloadType, gvsp::MultiPart);
                for (int part = 0; part < 2; ++part) {
                    std::uint8_t *const info = body + gvsp::MultiPartLeader::Parts + part * gvsp::PartInfo::Size;
                    StoreBig16(info + gvsp::PartInfo::DataType, gvsp::Image2D);
                    StoreBig48(info + gvsp::PartInfo::PartLength, Payload / 2);
                    FillPicture(info + gvsp::PartInfo::PixelFormat - 0, info + gvsp::PartInfo::SizeX, Height / 2);
                }
                return gvsp::MultiPartLeader::Parts + 2 * gvsp::PartInfo::Size;
            }
            FillLeader(body, kind);
            return gvsp::ImageLeader::Size;
        case gvsp::DataTrailer:
            std::memset(body, 0, 64);
            StoreBig16(body + 2, parts ? gvsp::MultiPart : (kind & 0x20) != 0 ? gvsp::ChunkData : gvsp::Image);
            StoreBig32(body + gvsp::ImageTrailer::SizeY, Height);
            return parts ? 4 + 2 * gvsp::PartTrailer::Size : gvsp::ImageTrailer::Size;
        case gvsp::MultiPartPayload: {
            std::memset(body, 0, gvsp::MultiPartData::Size);
            std::size_t const step = room - gvsp::MultiPartData::Size, half = (Payload / 2 + step - 1) / step;
            std::size_t const index = header.packetId == 0 ? 0 : (header.packetId - 1) % half;
            std::size_t const part = header.packetId == 0 ? 0 : (header.packetId - 1) / half;
            std::size_t const size = std::min(step, Payload / 2 - index * step);
            StoreBig48(body + gvsp::MultiPartData::AddressOffset, part * (Payload / 2) + index * step);
            body[gvsp::MultiPartData::ZoneInfo] = index + 1 == half ? gvsp::END_OF_PART : 0;
            std::memset(body + gvsp::MultiPartData::Size, 0x11, size);
            return gvsp::MultiPartData::Size + size;
        }
        case gvsp::AllIn:
            std::memset(body, 0, 128);
            FillLeader(body, 0);
            StoreBig32(body + gvsp::ImageLeader::SizeY, 2);
            StoreBig16(body + gvsp::ImageLeader::Size + 2, gvsp::Image);
            std::memset(body + gvsp::ImageLeader::Size + gvsp::ImageTrailer::Size, 0x22, 2 * Width);
            return gvsp::ImageLeader::Size + gvsp::ImageTrailer::Size + 2 * Width;
        default: {
            std::size_t const size = begin < Payload ? std::min(room, Payload - begin) : room;
            std::memset(body, 0x33, size);
            return size;
        }
        }
    }
    static void FillPicture(std::uint8_t *format, std::uint8_t *size, std::uint32_t lines)
    {
        StoreBig32(format, Mono8);
        StoreBig32(size, Width);
        StoreBig32(size + 4, lines);
    }
    static void FillLeader(std::uint8_t *body, std::uint8_t kind)
    {
        StoreBig16(body + gvsp::ImageLeader::PayloadType, (kind & 0x20) != 0 ? gvsp::ChunkData : gvsp::Image);
        FillPicture(body + gvsp::ImageLeader::PixelFormat, body + gvsp::ImageLeader::SizeX, Height);
    }
    void Feed(std::size_t size, std::uint8_t flags)
    {
        // By memchr here and below: loops of our own would be instrumented, and half of the time.
        std::uint8_t *const end = m_bytes.data() + size;
        for (std::uint8_t *at = m_bytes.data(); (at = FindUntouched(at, end)) != nullptr;)
            --*at;
        auto const bytes = std::span<std::uint8_t const>(m_bytes).first(size);
        Datagram datagram;
        std::size_t front = std::min<std::size_t>(size, m_isExtended ? gvsp::ExtendedHeaderSize : gvsp::HeaderSize);
        datagram.pieces = {bytes.first(front), bytes.subspan(front), {}};
        datagram.address = (flags & IsForeign) != 0 ? Camera + 1 : Camera;
        datagram.port = (flags & OtherPort) != 0 ? 7001 : 7000;
        if ((flags & Landed) != 0) {
            std::array<BlockTable::Place, 12> places;
            m_table.Expect(places);
            front = std::min(size, m_table.FrontSize());
            std::span<std::uint8_t const> payload = bytes.subspan(front), tail;
            std::uint8_t *const place = m_table.Find(bytes.first(front), size);
            if (place && (flags & IsForeign) == 0) {
                Demand(IsInside(place, payload.size()), "a place outside");
                std::copy(payload.begin(), payload.end(), place);
                payload = {place, payload.size()};
            }
            for (BlockTable::Place const &expected : places)
                Demand(!expected.memory || IsInside(expected.memory, expected.room), "an expected place outside");
            datagram.pieces = {bytes.first(front), payload, tail};
        }
        ++m_datagrams;
        ++s_totals.datagrams;
        s_totals.taken += m_table.Take(datagram, m_now) == Verdict::Taken;
    }
    bool IsInside(std::uint8_t const *begin, std::size_t size) const
    {
        if (begin < m_memory[0].data() || begin >= m_memory[0].data() + sizeof m_memory)
            return false;
        return static_cast<std::size_t>(begin - m_memory[0].data()) % Room + size <= Payload;
    }
    static std::uint8_t *FindUntouched(std::uint8_t *begin, std::uint8_t *end)
    {
        return static_cast<std::uint8_t *>(std::memchr(begin, Untouched, static_cast<std::size_t>(end - begin)));
    }
    // Nothing mends them, so the end is early enough.
    void CheckGuards() const
    {
        static std::array const Whole = [] {
            std::array<std::uint8_t, Guard> guard;
            guard.fill(Untouched);
            return guard;
        }();
        for (Memory const &memory : m_memory)
            Demand(std::memcmp(memory.data() + Payload, Whole.data(), Guard) == 0, "written behind a frame");
    }
    void TakeDone()
    {
        while (std::optional<BlockFrame> const frame = m_table.TakeDone()) {
            ++m_frames;
            ++s_totals.frames;
            auto &memory = *static_cast<Memory *>(frame->buffer.owner);
            Demand(frame->size <= Payload && frame->missing <= frame->packets, "impossible sizes");
            if (frame->isWhole) {
                s_totals.complete += frame->end == BlockFrame::End::Complete;
                Demand(frame->hasLeader, "whole without a leader");
                Demand(!FindUntouched(memory.data(), memory.data() + frame->size), "whole without all bytes");
            }
            Demand(frame->chunkOffset <= frame->size && frame->chunkBytes <= frame->size - frame->chunkOffset,
                   "chunk data outside");
            auto const chunks = std::span(memory).subspan(frame->chunkOffset, frame->chunkBytes);
            auto const chunk = FindChunk(chunks, static_cast<std::uint32_t>(frame->blockId));
            Demand(!chunk || (chunk->data() >= chunks.data() && chunk->size() <= chunks.size()), "a chunk outside");
            if (frame->end == BlockFrame::End::Complete) {
                Demand(frame->isWhole && frame->missing == 0, "complete and not whole");
                Demand(frame->blockId % 16 != 0, "complete and not accepted");
                Demand(!frame->picture || frame->picture->Bytes(frame->picture->height) <= frame->size,
                       "a picture without all lines");
            }
            GiveBack(frame->buffer);
        }
    }
    void GiveBack(BlockBuffer const &buffer)
    {
        auto &memory = *static_cast<Memory *>(buffer.owner);
        std::memset(memory.data(), Untouched, Payload);
        m_free[m_freeCount++] = static_cast<int>(&memory - m_memory.data());
    }

    bool const m_isExtended;
    std::array<Memory, Buffers> m_memory;
    std::array<int, Buffers> m_free;
    std::size_t m_freeCount = 0;
    StreamStatistics m_statistics;
    BlockTable m_table{*this, m_statistics};
    BlockTable::Time m_now{1h};
    std::array<std::uint8_t, Longest + 512> m_bytes{}; // of the datagram
    std::uint64_t m_datagrams = 0, m_frames = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const *data, std::size_t size)
{
    if (size < 2)
        return FuzzRefused;
    Session session(data[0]);
    std::span<std::uint8_t const> input(data + 1, size - 1);
    for (int step = 0; step < MostSteps && !input.empty(); ++step)
        input = session.Step(input);
    session.Finish();
    return session.HasFrames() ? 0 : FuzzRefused;
}
