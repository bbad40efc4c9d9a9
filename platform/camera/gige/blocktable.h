// The frames of a GigE Vision stream that are under way: where each packet's data belong, what is missing, what is to
// be asked for again, and which frames are over.
//
// Nothing in a datagram is believed before it has been compared with its length and with what was announced before the
// stream began: the bytes of a frame and the size of a packet. Nothing is allocated after Begin. A frame is complete
// only when leader, trailer and every packet between them have come, without a gap and with as many bytes as they
// promise.
//
// It has no socket, no thread and no clock: times are arguments. One thread at a time.
#pragma once

#include "blockframe.h"
#include "blocklosses.h"
#include "streamcontrol.h"
#include "streamstatistics.h"

#include "protocol/gigevision.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

struct BlockPacketState;
struct BlockUnderWay;
struct BlockSuspect;

// What is known of a stream before its first packet.
struct BlockLayout
{
    std::size_t payload = 0;      // bytes of a frame at most, as the camera announces them
    std::uint32_t packetSize = 0; // with the headers of IP, UDP and GVSP
    std::uint32_t buffers = 0;    // of the supply
    std::uint32_t address = 0;    // of the camera, in the computer's byte order
    std::uint16_t port = 0;       // where it sends from; 0: not known
    std::uint16_t channel = 0;
    bool resends = true;                // the camera sends packets again
    std::chrono::milliseconds delay{0}; // at most, of packets on their way through this computer
};

class BlockTable
{
public:
    using Time = std::chrono::steady_clock::time_point;
    // A place for the payload of a packet that is expected; none for one whose payload is no data.
    struct Place
    {
        std::uint8_t *memory = nullptr;
        std::size_t room = 0;
    };

    static constexpr Time Never = Time::max();
    static constexpr std::size_t MostUnderWay = 16;
    // What a packet waits for one that it has overtaken, what asking again waits for an answer at first, how often a
    // packet is asked for, and how many of a frame's packets altogether, as a divisor.
    static constexpr std::chrono::milliseconds GapPatience{1}, AnswerPatience{8};
    static constexpr std::uint8_t MostTries = 4;
    static constexpr std::uint32_t FewestAsked = 32, AskedShare = 4;
    // A frame of which nothing came for so long has lost its end, if that can be asked for; after the second time it is
    // over.
    static constexpr std::chrono::milliseconds TailPatience{20}, FramePatience{200};

    BlockTable(BufferSupply &supply, StreamStatistics &statistics);
    ~BlockTable();
    BlockTable(BlockTable const &) = delete;
    BlockTable &operator=(BlockTable const &) = delete;

    // Forgets what was before. Throws std::bad_alloc.
    void Begin(BlockLayout const &layout);
    // Ends the frames under way, for TakeDone.
    void Abort();
    // The buffer that was fetched for the next frame; none where there is none. After Abort.
    BlockBuffer TakeSpare();

    // Where the payloads of the next packets belong if they come in order. Good until the next call of anything else.
    void Expect(std::span<Place> places);
    // The bytes in front of such a payload.
    std::size_t FrontSize() const
    {
        return m_frontSize;
    }
    // Where the data of a packet belong that begins with `front` and has so many bytes; null when it is not known yet,
    // when they belong nowhere, or when the packet is no data packet. Changes nothing.
    std::uint8_t *Find(std::span<std::uint8_t const> front, std::size_t size) const;
    // Data that are not in their place yet are copied there.
    Verdict Take(Datagram const &datagram, Time now);
    // Does what is due. The requests are good until the next call.
    std::span<PacketRequest const> Poll(Time now);
    Time NextDue() const
    {
        return m_due;
    }
    // The oldest frame that is over, in the order in which the camera counts them.
    std::optional<BlockFrame> TakeDone();
    // Where the camera sends from; 0 as long as that is not known.
    std::uint16_t GetPort() const
    {
        return m_port;
    }

private:
    using PacketState = BlockPacketState;
    using Frame = BlockUnderWay;
    using Suspect = BlockSuspect;
    // Whose data packets have a length of their own.
    enum Kind : std::size_t { Standard, Extended, Parts, Kinds };
    struct DataLength
    {
        std::uint32_t most = 0;    // that the size of a packet allows
        std::uint32_t current = 0; // the largest so far; 0: none
        std::uint32_t alike = 0;   // so many in a row had it
        bool settled = false;
    };
    struct Packet
    {
        gvsp::Header header;
        Datagram const *datagram;
        std::size_t bodyOffset, bodySize;
    };

    bool IsFromCamera(Datagram const &datagram, gvsp::Header const &header);
    Verdict Judge(Datagram const &datagram, Time now);
    Verdict TakeInto(Frame &frame, Packet const &packet, Time now);
    Verdict TakeLeader(Frame &frame, Packet const &packet, Time now);
    Verdict TakeTrailer(Frame &frame, Packet const &packet, Time now);
    Verdict TakeData(Frame &frame, Packet const &packet, Time now);
    Verdict TakePart(Frame &frame, Packet const &packet, Time now);
    Verdict TakeAllIn(Frame &frame, Packet const &packet, Time now);
    Verdict TakeRefusal(gvsp::Header const &header, Time now);

    // The frame of a packet, which may begin with it; null, and why, where there is none.
    Frame *FrameFor(Packet const &packet, Time now, Verdict &verdict);
    Frame *Search(std::uint64_t sequence) const;
    Frame *Newest() const;
    Frame *Open(std::uint64_t sequence, gvsp::Header const &header, Time now);
    void Reset(Frame &frame, std::uint64_t sequence, gvsp::Header const &header, Time now);
    bool FetchBuffer(std::uint64_t sequence, BlockBuffer &buffer);
    std::uint64_t SequenceOf(gvsp::Header const &header) const;
    bool IsPlausible(Packet const &packet) const;
    static bool IsRestart(Packet const &packet, std::uint64_t newestTimestamp);
    Verdict HoldSuspect(Packet const &packet);
    Frame *OpenSuspect(Packet const &packet, Time now);
    void StartOver();

    void Store(Frame &frame, std::size_t offset, Packet const &packet, std::size_t bodyOffset, std::size_t size);
    void Mark(Frame &frame, std::uint32_t id, Time now);
    void Advance(Frame &frame, std::uint32_t id, Time now);
    void Miss(Frame &frame, std::uint32_t first, std::uint32_t end, Time due);
    DataLength &LengthOf(Frame const &frame);
    void SettleLength(DataLength &length, std::uint32_t size);
    void ForgetData(DataLength const &length);
    Verdict HoldShort(Frame &frame, Packet const &packet, std::size_t offset, Time now);
    void ResolveShort(Frame &frame);
    void TakeShort(Frame &frame);
    void DropShort(Frame &frame);
    std::size_t ShortEnd(Frame const &frame);

    static BlockTrailer TrailerOf(Frame const &frame);
    static bool IsEnough(Frame const &frame, std::size_t size, std::uint32_t lines);
    static std::optional<std::size_t> JoinParts(Frame const &frame);
    bool IsWhereExpected(Frame const &frame, std::uint32_t id, std::uint64_t offset, std::size_t size) const;
    std::uint32_t ExpectedTrailer(Frame const &frame);
    void EndWhole(Frame &frame);
    void End(Frame &frame, BlockFrame::End end);
    void HandOver();
    void HandOver(Frame &frame);
    static void FindChunks(Frame const &frame, BlockFrame &done);
    std::uint64_t MissingBytes(Frame const &frame) const;

    void PollFrame(Frame &frame, Time now);
    bool AskAgain(Frame &frame, Time now);
    bool Request(Frame const &frame, std::uint32_t id);
    DataLength const &ExpectedLength() const;

    BufferSupply &m_supply;
    StreamStatistics &m_statistics;
    BlockLosses m_losses;
    BlockLayout m_layout;
    std::uint32_t m_mostPackets = 0; // of a block, for which there is room
    std::array<DataLength, Kinds> m_lengths;
    std::size_t m_frontSize = gvsp::HeaderSize;
    bool m_partsExpected = false;

    std::uint16_t m_port = 0;
    bool m_portProven = false;
    std::uint16_t m_otherPort = 0;
    std::uint32_t m_otherLeaders = 0;

    std::vector<std::unique_ptr<Frame>> m_slots;
    std::array<Frame *, MostUnderWay> m_frames{}; // by sequence, oldest first
    std::size_t m_count = 0, m_window = 1;
    BlockBuffer m_spare;                                    // for the next block
    std::optional<std::uint64_t> m_spareFor, m_spareWanted; // sequences; without the first it is for any block
    bool m_any = false, m_isExtended = false;
    std::uint64_t m_newest = 0; // sequence: the block id, unwrapped
    bool m_anyOver = false;
    std::uint64_t m_lastOver = 0;
    std::uint64_t m_newestTimestamp = 0;
    std::unique_ptr<Suspect> m_suspect;

    std::vector<BlockFrame> m_done; // a ring
    std::size_t m_doneFirst = 0, m_doneCount = 0;
    std::array<PacketRequest, 32> m_requests;
    std::size_t m_requestCount = 0;
    Time m_due = Never;
};
