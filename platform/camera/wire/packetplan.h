// Which of a frame's packets a camera on the network sends, in what order and how altered: what StreamFaults say,
// drawn by dice that fall the same in every run.
//
// Packets are counted as on the wire: 0 is the leader, the last one the trailer, and the data lie between; a frame that
// is all in one packet has packet 0 alone.
//
// Used by one thread at a time.
#pragma once

#include "wirefaults.h"

#include <cstdint>
#include <random>
#include <span>
#include <string_view>
#include <vector>

// Both ends are included.
struct PacketRange
{
    static constexpr std::uint32_t LastPacket = 0xFFFFFFFF; // of whatever frame
    std::uint32_t first, last;

    bool operator==(PacketRange const &) const = default;
};

// Reads a list such as "3,7-9,last"; the empty one is a list. False, and nothing stored, where it is none.
bool ParsePacketList(std::string_view text, std::vector<PacketRange> &ranges);

// What a datagram has suffered. At most one each.
enum class PacketDamage : std::uint8_t { None, Truncated, TooLong, WrongPacketId, WrongBlockId };

struct PlannedPacket
{
    std::uint32_t id;
    PacketDamage damage = PacketDamage::None;

    bool operator==(PlannedPacket const &) const = default;
};

// What never comes of a frame, however often it is asked for.
struct FrameGaps
{
    std::uint32_t packets = 0; // of the frame
    bool middle = false;       // the packet in the middle
    double excess = 0.0;       // share of the data packets that the link has no room for, spread over the frame

    bool IsGone(std::uint32_t id) const;
};

class PacketPlan
{
public:
    // A list of packets that is none counts as empty.
    void SetFaults(StreamFaults const &faults);
    StreamFaults const &GetFaults() const
    {
        return m_faults;
    }

    // Plans a frame: the `number`th of the acquisition, from 1, of so many packets, which needs `rate` bytes a second
    // of the link.
    void Make(std::uint64_t number, std::uint32_t packets, double rate);
    // All packets go out once, in order and whole; GetPackets() is not filled then.
    bool IsPlain() const
    {
        return m_plain;
    }
    std::span<PlannedPacket const> GetPackets() const // in the order in which they go out
    {
        return m_sequence;
    }
    FrameGaps const &GetGaps() const // of the planned frame
    {
        return m_gaps;
    }
    // Throws the dice for a packet that was asked for again.
    bool LosesResent();

private:
    // A packet that others overtake.
    struct Held
    {
        PlannedPacket packet;
        std::size_t until; // so many packets are in the sequence
    };

    bool Throw(double share);
    bool Loses();
    bool IsListed(std::uint32_t id, std::uint32_t last) const;
    PacketDamage Damage();
    void Release(std::size_t &released);

    StreamFaults m_faults;
    std::vector<PacketRange> m_listed;
    bool m_harmless = true; // no fault is set that changes what goes out
    std::minstd_rand m_random{2024};
    std::uint32_t m_burst = 0; // packets that the present loss still takes
    bool m_plain = true;
    FrameGaps m_gaps;
    std::vector<PlannedPacket> m_sequence;
    std::vector<Held> m_held; // of the frame that is being planned, oldest first
};
