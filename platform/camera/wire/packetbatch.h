// Datagrams that are handed to the system together, made of pieces that stay where they are.
//
// Used by one thread at a time.
#pragma once

#include "frameblock.h"
#include "packetplan.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <sys/socket.h>

class PacketBatch
{
public:
    static constexpr std::size_t Most = 64;

    // What became of a kind of packets.
    struct Tally
    {
        std::uint64_t packets = 0, bytes = 0; // that the system took
    };

    PacketBatch();
    bool IsEmpty() const
    {
        return m_count == 0;
    }
    bool IsFull() const
    {
        return m_count == Most;
    }
    // A packet of a block, which stays until it is sent or cleared away.
    void Add(FrameBlock const &block, PlannedPacket packet);
    void AddResent(FrameBlock const &block, std::uint32_t id);
    // A header that says by its status why there is no packet.
    void AddRefusal(gvsp::Header const &header);
    // Sends all by a socket that knows where to, and is empty again. What the system refuses is lost.
    struct Result
    {
        Tally first, resent, refused;
    };
    Result Send(int socket);
    void Clear()
    {
        m_count = 0;
    }

private:
    enum class Kind : std::uint8_t { First, Resent, Refused };
    static constexpr std::size_t MostPieces = PacketPieces::Most + 1; // what is behind the end of those too long

    void AddPieces(PacketPieces const &pieces, Kind kind);

    std::size_t m_count = 0;
    std::array<mmsghdr, Most> m_messages{};
    std::array<std::array<iovec, MostPieces>, Most> m_pieces{};
    std::array<FrameBlock::HeaderRoom, Most> m_headers{};
    std::array<Kind, Most> m_kinds{};
};
