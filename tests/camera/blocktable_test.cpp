// The table of frames under way: packets in, frames and requests out, without sockets and clocks.
#include "chunkdata.h"
#include "gige/blocktable.h"

#include "blockpackets.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <functional>
#include <map>
#include <numeric>
#include <utility>

using namespace std::chrono_literals;

namespace {

using Time = BlockTable::Time;

constexpr std::uint32_t Camera = 0x0A000001;
constexpr std::size_t Room = Payload + 64;

class BlockTableTest : public testing::Test, protected BufferSupply
{
protected:
    BlockTableTest()
    {
        Start(8);
    }
    ~BlockTableTest() override
    {
        // Whatever a test did, every datagram and every frame is accounted for.
        table.Abort();
        Collect();
        free += table.TakeSpare().memory != nullptr;
        EXPECT_EQ(free, memory.size());
        StreamStatistics const &s = statistics;
        EXPECT_EQ(s.received.Get(), s.packets.Get() + s.duplicate.Get() + s.late.Get() + s.foreign.Get() +
                                        s.malformed.Get() + s.refused.Get() + s.ignored.Get());
        EXPECT_EQ(given, s.complete.Get() + s.unfit.Get() + s.incomplete.Get() + s.aborted.Get());
    }
    void Start(std::uint32_t buffers, bool resends = true)
    {
        memory.clear();
        for (std::uint32_t i = 0; i < buffers; ++i)
            memory.emplace_back(Room, Untouched);
        free = buffers;
        unused = {};
        for (auto &buffer : memory)
            unused.push_back(buffer.data());
        table.Begin({Payload, PacketSize, buffers, Camera, 0, 0, resends, 3ms});
    }
    bool TakeBuffer(BlockBuffer &buffer) override
    {
        if (unused.empty())
            return false;
        buffer = {unused.front(), Payload, nullptr};
        unused.pop_front();
        --free;
        return true;
    }
    bool Accepts(BlockFrame const &frame) override
    {
        EXPECT_EQ(frame.end, BlockFrame::End::Complete);
        return accepts;
    }
    Verdict Feed(Bytes const &bytes, std::uint32_t from = Camera, std::uint16_t port = 7000)
    {
        Datagram datagram;
        // In pieces that split what belongs together.
        std::size_t const cut = std::min<std::size_t>(bytes.size(), 5 + bytes.size() % 17);
        datagram.pieces = {std::span(bytes).first(cut), std::span(bytes).subspan(cut), {}};
        datagram.address = from;
        datagram.port = port;
        return table.Take(datagram, now);
    }
    Verdict Feed(std::uint64_t block, std::uint32_t id)
    {
        return Feed(sender.Packet(block, id));
    }
    void FeedAll(std::uint64_t block, std::vector<std::uint32_t> const &without = {})
    {
        for (std::uint32_t id = 0; id <= sender.Last(); ++id) {
            if (std::find(without.begin(), without.end(), id) == without.end())
                Feed(block, id);
        }
    }
    // Frames that are over; their buffers go back.
    std::vector<BlockFrame> Collect()
    {
        std::vector<BlockFrame> frames;
        while (std::optional<BlockFrame> const frame = table.TakeDone()) {
            ++given;
            frames.push_back(*frame);
            missingBytes = frame->missingBytes;
            EXPECT_EQ(frame->end == BlockFrame::End::Complete && frame->missing != 0, false);
            std::uint8_t *const begin = frame->buffer.memory, *const end = begin + Payload;
            EXPECT_EQ(std::count(end, end + Room - Payload, Untouched), Room - Payload) << "written behind the frame";
            if (frame->isWhole) {
                EXPECT_EQ(Bytes(begin, begin + frame->size), Sender::Pixels(frame->blockId, 0, frame->size));
            }
            std::fill_n(frame->buffer.memory, Room, Untouched);
            unused.push_back(frame->buffer.memory);
            ++free;
        }
        return frames;
    }
    // Everything that is asked for until nothing is due any more before the time.
    std::vector<PacketRequest> Asked(std::chrono::milliseconds time)
    {
        std::vector<PacketRequest> asked;
        Time const end = now + time;
        for (int polls = 0; table.NextDue() <= end; ++polls) {
            now = std::max(now, table.NextDue());
            for (PacketRequest const &request : table.Poll(now))
                asked.push_back(request);
            if (polls > 10000) {
                ADD_FAILURE() << "never at rest";
                break;
            }
        }
        now = end;
        return asked;
    }
    // Which come then, from these packets of the block.
    void FeedAsked(std::vector<Bytes> const &packets, std::chrono::milliseconds time)
    {
        for (PacketRequest const &request : Asked(time)) {
            for (std::uint32_t id = request.first; id <= request.last; ++id)
                Feed(packets[id]);
        }
    }

    StreamStatistics statistics;
    std::vector<Bytes> memory;
    std::deque<std::uint8_t *> unused;
    std::size_t free = 0, given = 0;
    std::uint64_t missingBytes = 0; // of the last frame
    bool accepts = true;
    BlockTable table{*this, statistics};
    Sender sender;
    Time now{1h};
};

using End = BlockFrame::End;

TEST_F(BlockTableTest, PacketsMakeFramesInAnyOrder)
{
    for (bool const isExtended : {false, true}) {
        sender.isExtended = isExtended;
        sender.dataSize = isExtended ? StandardData - 12 : StandardData;
        ASSERT_EQ(sender.Last(), TrailerId);
        table.Begin({Payload, PacketSize, 8, Camera, 0, 0, true});
        std::vector<std::uint32_t> order(TrailerId + 1);
        std::iota(order.begin(), order.end(), 0);
        std::uint64_t block = 65000; // without extension, the ids begin anew meanwhile
        do {
            std::uint64_t const id = isExtended ? ++block : gvsp::BlockId16(++block);
            for (std::uint32_t packet : order)
                EXPECT_NE(Feed(id, packet), Verdict::Late);
            // The length of packets is learnt from the first ones.
            std::vector<BlockFrame> const frames = Collect();
            ASSERT_EQ(frames.size(), 1u) << block;
            EXPECT_EQ(std::tuple(frames[0].end, frames[0].blockId, frames[0].size, frames[0].timestamp),
                      std::tuple(End::Complete, id, Payload, id * 1000));
            ASSERT_TRUE(frames[0].picture);
            EXPECT_EQ(std::tuple(frames[0].picture->width, frames[0].picture->height, frames[0].picture->offset),
                      std::tuple(Width, Height, 0u));
        } while (std::next_permutation(order.begin(), order.end()));
        EXPECT_EQ(statistics.skipped.Get() + statistics.missing.Get() + statistics.asked.Get(), 0u);
    }
}

TEST_F(BlockTableTest, WhatIsLostIsAskedFor)
{
    for (std::uint32_t const lost : {0u, 1u, 3u, 4u, 5u}) {
        SCOPED_TRACE(lost);
        std::uint64_t const block = lost + 1, before = statistics.resent.Get();
        FeedAll(block, {lost});
        EXPECT_TRUE(table.Poll(now).empty()) << "it may only be late";
        std::vector<PacketRequest> const asked = Asked(lost == TrailerId ? BlockTable::TailPatience + 2ms : 2ms);
        ASSERT_EQ(asked.size(), 1u);
        EXPECT_EQ(std::tuple(asked[0].blockId, asked[0].first, asked[0].last, asked[0].isExtended),
                  std::tuple(block, lost, lost, false));
        sender.status = gvcp::GEV_STATUS_PACKET_RESEND;
        EXPECT_EQ(Feed(block, lost), Verdict::Taken);
        EXPECT_EQ(Feed(block, lost), Verdict::Late);
        sender.status = 0;
        std::vector<BlockFrame> const frames = Collect();
        ASSERT_EQ(frames.size(), 1u);
        EXPECT_EQ(frames[0].end, End::Complete);
        EXPECT_EQ(statistics.resent.Get(), before + 1);
        sender.ticks += 1; // skipped ids are frames that were not sent
    }
    EXPECT_EQ(statistics.skipped.Get(), 1u);
}

TEST_F(BlockTableTest, AsksAgainWithPausesAndGivesUp)
{
    FeedAll(1, {2, 3});
    std::vector<Time> times;
    Time const begin = now;
    while (Collect().empty()) {
        ASSERT_NE(table.NextDue(), BlockTable::Never);
        now = std::max(now, table.NextDue());
        for (PacketRequest const &request : table.Poll(now)) {
            EXPECT_EQ(std::tuple(request.first, request.last), std::tuple(2u, 3u));
            times.push_back(now);
        }
    }
    ASSERT_EQ(times.size(), BlockTable::MostTries);
    EXPECT_EQ(times[0] - begin, BlockTable::GapPatience);
    for (std::size_t i = 1; i < times.size(); ++i)
        EXPECT_EQ(times[i] - times[i - 1], 3ms + BlockTable::AnswerPatience * (1 << (i - 1)));
    EXPECT_EQ(std::tuple(statistics.incomplete.Get(), statistics.missing.Get(), statistics.asked.Get()),
              std::tuple(1u, 2u, 2u * BlockTable::MostTries));
    EXPECT_EQ(missingBytes, 2 * StandardData);
    // A frame that has lost nearly everything is not worth it.
    FeedAll(2, {1, 2, 3, 4});
    EXPECT_EQ(Asked(300ms).size(), 4u);
    EXPECT_EQ(Collect().size(), 1u);
    EXPECT_EQ(missingBytes, Payload);
    // Who does not send again is not asked.
    Start(8, false);
    FeedAll(3, {2});
    EXPECT_TRUE(Asked(300ms).empty());
    EXPECT_EQ(Collect().size(), 1u);
}

TEST_F(BlockTableTest, ARefusalIsBelieved)
{
    struct Row
    {
        std::uint16_t status;
        std::uint32_t id;
        bool ends;
    };
    for (Row const &row :
         {Row{gvcp::GEV_STATUS_PACKET_UNAVAILABLE, 2, true}, Row{gvcp::GEV_STATUS_PACKET_REMOVED_FROM_MEMORY, 2, true},
          Row{gvcp::GEV_STATUS_PACKET_AND_PREV_REMOVED_FROM_MEMORY, 2, true},
          Row{gvcp::GEV_STATUS_PACKET_NOT_YET_AVAILABLE, 2, false}, Row{gvcp::GEV_STATUS_PACKET_UNAVAILABLE, 3, false},
          Row{gvcp::GEV_STATUS_PACKET_UNAVAILABLE, 0x00FFFFFF, false}}) {
        SCOPED_TRACE(row.status);
        Start(8);
        FeedAll(1, {2});
        EXPECT_EQ(Asked(2ms).size(), 1u);
        sender.status = row.status;
        EXPECT_EQ(Feed(sender.Head(1, gvsp::DataPayload, row.id)), Verdict::Refused);
        sender.status = 0;
        Asked(1ms);
        EXPECT_EQ(Collect().size(), row.ends ? 1u : 0u);
        EXPECT_EQ(Feed(1, 2), row.ends ? Verdict::Late : Verdict::Taken);
        Collect();
    }
    // A camera that pauses within a frame has not sent the rest yet.
    FeedAll(2, {3, 4, 5});
    EXPECT_FALSE(Asked(BlockTable::TailPatience + 2ms).empty());
    sender.status = gvcp::GEV_STATUS_PACKET_UNAVAILABLE;
    for (std::uint32_t id = 3; id <= TrailerId; ++id)
        EXPECT_EQ(Feed(sender.Head(2, gvsp::DataPayload, id)), Verdict::Refused);
    sender.status = 0;
    Asked(1ms);
    for (std::uint32_t id = 3; id <= TrailerId; ++id)
        EXPECT_EQ(Feed(2, id), Verdict::Taken);
    EXPECT_EQ(Collect().size(), 1u);
}

// In the middle of a block, after its packet 2, and the block is complete all the same.
TEST_F(BlockTableTest, BadDatagramsHurtNothing)
{
    Sender const good;
    auto const data = [&](std::uint32_t id, std::size_t size) {
        return Sender::Join(good.Head(3, gvsp::DataPayload, id), Bytes(size, 0xFF));
    };
    auto const cut = [](Bytes bytes, std::size_t size) {
        bytes.resize(size);
        return bytes;
    };
    auto const from = [](Bytes bytes, std::size_t at, std::initializer_list<std::uint8_t> values) {
        std::copy(values.begin(), values.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at));
        return bytes;
    };
    Sender extended;
    extended.isExtended = true;
    Sender other;
    other.status = 0x8FFF;
    Bytes huge = good.LeaderBody(3);
    StoreBig32(&huge[gvsp::ImageLeader::SizeX], 0xFFFFFFFF);
    std::vector<std::pair<Bytes, Verdict>> const rows = {
        {{}, Verdict::Malformed},
        {Bytes(7), Verdict::Malformed},
        {cut(extended.Packet(3, 1), 19), Verdict::Malformed},
        {data(3, 0), Verdict::Malformed},
        {data(3, StandardData + 1), Verdict::Malformed},
        {data(3, StandardData - 1), Verdict::Held},
        {data(4, 379), Verdict::Held},
        {data(4, 381), Verdict::Malformed},
        {data(4, StandardData), Verdict::Malformed},
        {data(1, StandardData), Verdict::Duplicate},
        {data(1, 10), Verdict::Duplicate},
        {data(0, 10), Verdict::Malformed},
        {data(5, 10), Verdict::Malformed},
        {data(0x00FFFFFF, 10), Verdict::Malformed},
        {good.Head(3, gvsp::DataTrailer, 0x00FFFFFF), Verdict::Malformed},
        {Sender::Join(good.Head(3, gvsp::DataTrailer, 0x00FFFFFF), good.TrailerBody()), Verdict::Malformed},
        {Sender::Join(good.Head(3, gvsp::DataTrailer, 0), good.TrailerBody()), Verdict::Malformed},
        {Sender::Join(good.Head(3, gvsp::DataTrailer, 2), good.TrailerBody()), Verdict::Malformed},
        {Sender::Join(good.Head(3, gvsp::DataTrailer, 6), good.TrailerBody()), Verdict::Malformed},
        {cut(good.Packet(3, 5), 12), Verdict::Malformed},
        {from(good.Packet(3, 5), 11, {gvsp::ChunkData}), Verdict::Malformed},
        {Sender::Join(good.Head(3, gvsp::DataLeader, 0), huge), Verdict::Duplicate},
        {Sender::Join(good.Head(3, gvsp::DataLeader, 1), huge), Verdict::Malformed},
        {Sender::Join(good.Head(3, gvsp::AllIn, 0), Bytes(100)), Verdict::Malformed},
        {Sender::Join(good.Head(3, gvsp::MultiPartPayload, 3), Bytes(100)), Verdict::Malformed},
        {good.Head(3, gvsp::H264Payload, 3), Verdict::Malformed},
        {good.Head(3, gvsp::GenDcPayload, 3), Verdict::Malformed},
        {good.Head(4, gvsp::DataLeader, 0), Verdict::Malformed},
        {good.Head(4, gvsp::DataPayload, 0x00FFFFFF), Verdict::Malformed},
        {good.Packet(0, 1), Verdict::Ignored},
        {good.Packet(2, 1), Verdict::Late},
        {good.Packet(1003, 1), Verdict::Malformed},
        {extended.Packet(3, 3), Verdict::Malformed},
        {other.Packet(3, 3), Verdict::Refused},
    };
    std::vector<Bytes> whole;
    for (std::uint32_t id = 0; id <= TrailerId; ++id)
        whole.push_back(good.Packet(3, id));
    for (std::size_t row = 0; row < rows.size(); ++row) {
        SCOPED_TRACE(row);
        Start(8);
        FeedAll(2);
        Collect();
        for (std::uint32_t id = 0; id <= 2; ++id)
            EXPECT_EQ(Feed(3, id), Verdict::Taken);
        EXPECT_EQ(Feed(rows[row].first), rows[row].second);
        for (std::uint32_t id = 3; id <= TrailerId; ++id)
            Feed(3, id);
        // One that was damaged was in a place of its own.
        FeedAsked(whole, 2ms);
        std::vector<BlockFrame> const frames = Collect();
        ASSERT_EQ(frames.size(), 1u);
        EXPECT_EQ(frames[0].end, End::Complete);
        EXPECT_EQ(Feed(good.Packet(4, 1), Camera + 1), Verdict::Foreign);
        EXPECT_EQ(Feed(good.Packet(4, 1), Camera, 7001), Verdict::Foreign);
    }
}

TEST_F(BlockTableTest, NothingPassesAsCompleteThatLacksBytes)
{
    struct Row
    {
        char const *what;
        std::function<void(Sender &)> change;
        bool isWhole, isComplete;
        std::size_t size;
    };
    Row const rows[] = {
        {"smaller picture", [](Sender &s) { s.lines = s.trailerLines = 10, s.payload = 1000; }, true, true, 1000},
        {"fewer lines than the leader says", [](Sender &s) { s.trailerLines = 10, s.payload = 1000; }, true, false,
         1000},
        {"a line is missing", [](Sender &s) { s.payload = Payload - 1; }, true, false, Payload - 1},
        {"more lines than come", [](Sender &s) { s.lines = 1000; }, true, false, Payload},
        {"chunks that do not say how many",
         [](Sender &s) { s.type = gvsp::ChunkData, s.trailerLines = 0, s.payload = 900; }, true, true, 900},
        {"fewer chunks than there are",
         [](Sender &s) { s.type = gvsp::ChunkData, s.trailerLines = 901, s.payload = 900; }, true, false, 900},
        {"an unknown payload", [](Sender &s) { s.type = gvsp::File, s.payload = 900; }, true, true, 900},
        {"shorter packets", [](Sender &s) { s.dataSize = 500; }, true, true, Payload},
        {"much shorter packets", [](Sender &s) { s.dataSize = 100; }, false, false, 0},
    };
    for (std::size_t i = 0; i < 2 * std::size(rows); ++i) {
        Row const &row = rows[i / 2];
        accepts = i % 2 == 0;
        SCOPED_TRACE(row.what);
        Start(8);
        sender = {};
        row.change(sender);
        FeedAll(1);
        // Nothing better comes of asking.
        for (PacketRequest const &request : Asked(5ms))
            Feed(1, request.first);
        Asked(300ms);
        std::vector<BlockFrame> const frames = Collect();
        ASSERT_EQ(frames.size(), 1u);
        EXPECT_EQ(std::tuple(frames[0].isWhole, frames[0].end, frames[0].size),
                  std::tuple(row.isWhole,
                             !row.isComplete ? End::Incomplete
                             : accepts       ? End::Complete
                                             : End::Unfit,
                             row.size));
    }
    EXPECT_EQ(statistics.unfit.Get(), statistics.complete.Get());
    // A trailer of another payload that comes first.
    accepts = true;
    Start(8);
    sender = {};
    sender.type = gvsp::File;
    Bytes const other = sender.Packet(1, TrailerId);
    sender = {};
    for (std::uint32_t id = 1; id < TrailerId; ++id)
        Feed(1, id);
    EXPECT_EQ(Feed(other), Verdict::Taken);
    EXPECT_EQ(Feed(1, 0), Verdict::Malformed);
}

// A block of parts: chunks, a picture, chunks; the picture begins in the middle.
std::vector<Bytes> PacketsOfParts(Sender const &sender, std::uint64_t block)
{
    constexpr std::size_t Step = PacketSize - 56;
    constexpr std::array<std::size_t, 3> Lengths{40, 1500, 460};
    Bytes leader = Sender::Join(sender.Head(block, gvsp::DataLeader, 0, 3), Bytes(12 + 3 * 48));
    Bytes trailer(4 + 3 * 16);
    std::uint8_t *const body = &leader[gvsp::ExtendedHeaderSize];
    StoreBig16(body + gvsp::MultiPartLeader::PayloadType, gvsp::MultiPart);
    StoreBig16(&trailer[gvsp::MultiPartTrailer::PayloadType], gvsp::MultiPart);
    std::vector<Bytes> packets(1);
    std::size_t offset = 0;
    for (std::size_t part = 0; part < Lengths.size(); ++part) {
        using Info = gvsp::PartInfo;
        std::uint8_t *const info = body + gvsp::MultiPartLeader::Parts + part * Info::Size;
        StoreBig16(info + Info::DataType, part == 1 ? gvsp::Image2D : gvsp::Chunks);
        StoreBig48(info + Info::PartLength, Lengths[part]);
        StoreBig32(info + Info::PixelFormat, Mono8);
        StoreBig32(info + Info::SizeX, Width);
        StoreBig32(info + Info::SizeY, 15);
        StoreBig48(&trailer[gvsp::MultiPartTrailer::Parts + part * gvsp::PartTrailer::Size + 2], Lengths[part]);
        for (std::size_t const end = offset + Lengths[part]; offset < end;) {
            std::size_t const next = std::min(offset + Step, end);
            auto const id = static_cast<std::uint32_t>(packets.size());
            Bytes front = Sender::Join(sender.Head(block, gvsp::MultiPartPayload, id), Bytes(8));
            front[20] = static_cast<std::uint8_t>(part);
            front[21] = next == end ? gvsp::END_OF_PART : 0;
            StoreBig48(&front[22], offset);
            packets.push_back(Sender::Join(front, Sender::Pixels(block, offset, next)));
            offset = next;
        }
    }
    packets[0] = leader;
    packets.push_back(
        Sender::Join(sender.Head(block, gvsp::DataTrailer, static_cast<std::uint32_t>(packets.size())), trailer));
    return packets;
}

TEST_F(BlockTableTest, AnAnnouncedGigabyteInSmallestPacketsIsRefused)
{
    EXPECT_THROW(table.Begin({std::size_t{1} << 30, 0, 16, Camera, 0, 0, true}), std::bad_alloc);
    Start(8);
}

TEST(ChunkDataTest, AChunkIsFoundByItsId)
{
    Bytes data;
    auto const add = [&](std::uint32_t id, std::size_t bytes) {
        data.resize(data.size() + bytes + 8, static_cast<std::uint8_t>(id));
        StoreBig32(&data[data.size() - 8], id);
        StoreBig32(&data[data.size() - 4], static_cast<std::uint32_t>(bytes));
    };
    add(1, 100);
    add(2, 0);
    add(3, 7);
    for (auto const &[id, size] : {std::pair(1u, 100u), std::pair(2u, 0u), std::pair(3u, 7u)}) {
        auto const chunk = FindChunk(data, id);
        ASSERT_TRUE(chunk) << id;
        EXPECT_EQ(Bytes(chunk->begin(), chunk->end()), Bytes(size, static_cast<std::uint8_t>(id)));
    }
    EXPECT_FALSE(FindChunk(data, 4));
    // Whatever is missing at the front, the last chunk is there, and nothing is read before the beginning.
    for (std::size_t cut = 1; cut <= data.size(); ++cut) {
        auto const rest = std::span(data).subspan(cut);
        EXPECT_FALSE(FindChunk(rest, 1)) << cut;
        EXPECT_EQ(FindChunk(rest, 3).has_value(), rest.size() >= 15) << cut;
    }
}

TEST_F(BlockTableTest, PartsFollowEachOther)
{
    sender.isExtended = true;
    std::vector<Bytes> const first = PacketsOfParts(sender, 1), packets = PacketsOfParts(sender, 2);
    auto const expectWhole = [&](std::vector<Bytes> const &sent) {
        Start(8);
        for (Bytes const &packet : first)
            Feed(packet);
        EXPECT_EQ(Collect().size(), 1u);
        for (Bytes const &packet : sent)
            Feed(packet);
        FeedAsked(packets, 30ms);
        std::vector<BlockFrame> const frames = Collect();
        ASSERT_EQ(frames.size(), 1u);
        EXPECT_EQ(frames[0].end, End::Complete);
        ASSERT_TRUE(frames[0].picture);
        EXPECT_EQ(std::tuple(frames[0].picture->offset, frames[0].picture->height, frames[0].size),
                  std::tuple(40u, 15u, Payload));
        EXPECT_EQ(std::tuple(frames[0].chunkOffset, frames[0].chunkBytes), std::tuple(0u, 40u));
    };
    for (std::size_t id = 0; id < packets.size(); ++id) {
        SCOPED_TRACE(id);
        std::vector<Bytes> sent = packets;
        std::rotate(sent.begin(), sent.begin() + static_cast<std::ptrdiff_t>(id), sent.end());
        expectWhole(sent);
        sent = packets;
        sent.erase(sent.begin() + static_cast<std::ptrdiff_t>(id));
        expectWhole(sent);
        sent = packets;
        sent[id].pop_back();
        expectWhole(sent);
        if (id == 0 || id + 1 == packets.size())
            continue;
        for (std::uint64_t const elsewhere : {std::uint64_t{1}, Payload, std::uint64_t{0xFFFFFFFFFFFF}}) {
            sent = packets;
            StoreBig48(&sent[id][22], elsewhere);
            expectWhole(sent);
        }
    }
    EXPECT_EQ(statistics.incomplete.Get(), 0u);
}

TEST_F(BlockTableTest, FramesComeInOrderAndTheOldestGivesWay)
{
    FeedAll(1, {3});
    FeedAll(2);
    EXPECT_TRUE(Collect().empty()) << "2 waits for 1";
    FeedAll(3);
    FeedAll(4);
    FeedAll(5); // more than half of the buffers
    std::vector<BlockFrame> const frames = Collect();
    ASSERT_EQ(frames.size(), 5u);
    for (std::size_t i = 0; i < frames.size(); ++i)
        EXPECT_EQ(std::tuple(frames[i].blockId, frames[i].end == End::Complete), std::tuple(i + 1, i != 0));
    EXPECT_EQ(frames[0].missing, 1u);
    // Without a buffer.
    Start(1);
    Feed(6, 0);
    unused.clear();
    FeedAll(7);
    EXPECT_EQ(std::tuple(statistics.lost.Get(), Feed(7, 3)), std::tuple(1u, Verdict::Late));
    FeedAll(9); // the one of 6
    EXPECT_EQ(Collect().size(), 2u - 1);
    EXPECT_EQ(statistics.skipped.Get(), 1u);
}

TEST_F(BlockTableTest, FollowsACameraThatCountsElsewhere)
{
    FeedAll(5);
    // Stopped and started: the clock goes on.
    sender.ticks = 6000;
    FeedAll(1);
    sender.ticks = 1000;
    for (std::uint64_t block : {2, 3, 6, 5000, 5001}) // and once there was no network for long
        FeedAll(block);
    std::vector<std::uint64_t> ids;
    for (BlockFrame const &frame : Collect()) {
        EXPECT_EQ(frame.end == End::Complete, frame.blockId != 5000) << frame.blockId;
        ids.push_back(frame.blockId);
    }
    EXPECT_EQ(statistics.skipped.Get(), 2u);
    Asked(300ms);
    for (BlockFrame const &frame : Collect())
        ids.push_back(frame.blockId);
    EXPECT_EQ(ids, (std::vector<std::uint64_t>{5, 1, 2, 3, 6, 5000, 5001}));
}

TEST_F(BlockTableTest, DamagedIdsLeadNowhere)
{
    std::deque<std::uint8_t *> const all = std::exchange(unused, {});
    // Neither among frames without a buffer, nor among others.
    for (std::uint64_t block = 1; block <= 40; ++block) {
        if (block == 20)
            unused = all;
        for (std::uint32_t id = 0; id <= TrailerId; ++id) {
            Feed(block, id);
            EXPECT_EQ(Feed(block + 1000, id), Verdict::Malformed);
        }
        std::vector<BlockFrame> const frames = Collect();
        EXPECT_EQ(frames.size(), block < 20 ? 0u : 1u);
        EXPECT_TRUE(frames.empty() || frames[0].end == End::Complete);
    }
    EXPECT_EQ(std::tuple(statistics.lost.Get(), statistics.skipped.Get()), std::tuple(19u, 0u));
}

TEST_F(BlockTableTest, LearnsThePortFromLeaders)
{
    table.Begin({Payload, PacketSize, 8, Camera, 6000, 0, true}); // as its register says
    for (std::uint64_t block = 1; block < 4; ++block) {
        EXPECT_EQ(Feed(block, 0), block < 3 ? Verdict::Foreign : Verdict::Taken);
        EXPECT_EQ(Feed(block, 1), block < 3 ? Verdict::Foreign : Verdict::Taken);
    }
    EXPECT_EQ(Feed(sender.Packet(3, 2), Camera, 6000), Verdict::Foreign);
    EXPECT_EQ(table.GetPort(), 7000);
}

TEST_F(BlockTableTest, WhatLandsInItsPlaceStaysThere)
{
    std::array<BlockTable::Place, 26> places;
    FeedAll(1); // with lengths known
    Collect();
    std::deque<Bytes> kept;
    std::uint64_t block = 2;
    std::uint32_t id = 0;
    table.Expect(places);
    EXPECT_EQ(table.FrontSize(), gvsp::HeaderSize);
    for (std::size_t i = 0; i < 6; ++i, ++id) {
        EXPECT_EQ(places[i].memory != nullptr, id > 0 && id < TrailerId) << i;
        kept.push_back(sender.Packet(block, id));
        Bytes const &bytes = kept.back();
        std::span<std::uint8_t const> payload = std::span(bytes).subspan(gvsp::HeaderSize);
        auto const front = std::span<std::uint8_t const>(bytes).first(gvsp::HeaderSize);
        EXPECT_EQ(table.Find(front, bytes.size()), places[i].memory);
        Datagram datagram;
        datagram.address = Camera;
        datagram.port = 7000;
        if (places[i].memory) {
            ASSERT_EQ(places[i].room, payload.size());
            std::copy(payload.begin(), payload.end(), places[i].memory);
            payload = {places[i].memory, payload.size()};
        }
        datagram.pieces = {front, payload, {}};
        EXPECT_EQ(table.Take(datagram, now), Verdict::Taken);
    }
    EXPECT_EQ(Collect().size(), 1u);
    // The rest of a block, and the next one.
    Feed(3, 0);
    Feed(3, 1);
    table.Expect(places);
    std::string known;
    for (BlockTable::Place const &place : places)
        known += place.memory ? '1' : '0';
    EXPECT_EQ(known, "11100111100000000000000000");
    EXPECT_EQ(places[2].room, Payload - 3 * StandardData);
}

TEST_F(BlockTableTest, AFrameTellsOfTheLossesAroundIt)
{
    Start(8, false);
    FeedAll(1, {TrailerId});
    Feed(3, 1);
    now += BlockTable::FramePatience;
    table.Poll(now);
    FeedAll(4);
    FeedAll(6);
    FeedAll(7);
    std::vector<BlockFrame> const frames = Collect();
    struct
    {
        std::uint64_t id, skipped;
        std::uint32_t missing, missingBefore;
        bool isEdgeMissing;
    } const rows[] = {
        {1, 0, 1, 0, false}, {3, 1, 5, 1, true}, {4, 0, 0, 5, true}, {6, 1, 0, 0, false}, {7, 0, 0, 0, false}};
    ASSERT_EQ(frames.size(), std::size(rows));
    for (std::size_t i = 0; i < frames.size(); ++i) {
        TovCam::FrameLosses const &losses = frames[i].losses;
        SCOPED_TRACE(rows[i].id);
        EXPECT_EQ(frames[i].blockId, rows[i].id);
        EXPECT_EQ(losses.skipped, rows[i].skipped);
        EXPECT_EQ(losses.packets, TrailerId + 1);
        EXPECT_EQ(losses.missing, rows[i].missing);
        EXPECT_EQ(losses.missingBefore, rows[i].missingBefore);
        EXPECT_EQ(losses.isEdgeMissing, rows[i].isEdgeMissing);
    }
}

TEST_F(BlockTableTest, AFrameTellsWhichHadNoBuffer)
{
    Start(2);
    FeedAll(1);
    FeedAll(2); // both are out now
    FeedAll(3);
    Collect();
    FeedAll(5);
    std::vector<BlockFrame> const frames = Collect();
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0].losses.unbuffered, 1u);
    EXPECT_EQ(frames[0].losses.skipped, 1u);
}

} // namespace
