// The receiving ring of a packet socket: the system writes packets into memory that this process reads, so that a
// packet costs neither a system call nor a copy.
#pragma once

#include "ringblock.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <utility>

struct PacketRingSize
{
    // More blocks than a pause of the reader has times `delay`, because a block that is handed over early is full.
    std::uint32_t blockBytes = 1 << 18; // a power of two, and at least 1 << 17, so that the longest packet fits
    std::uint32_t blocks = 256;         // fewer where the system has not so much memory
    std::chrono::milliseconds delay{1}; // until a block that is not full is handed over; the system adds a tick
};

// One thread reads; Wake and the counters are for any thread.
class PacketRing
{
public:
    // Of a packet socket that is bound and filtered, see RequestCaptureSocket. Takes it over; null where the system
    // refuses, with errno. Packets that came before are lost, uncounted.
    static std::unique_ptr<PacketRing> Make(int socket, PacketRingSize const &size = {});
    ~PacketRing();
    PacketRing(PacketRing const &) = delete;
    PacketRing &operator=(PacketRing const &) = delete;

    // Hands on what has come, in order, and returns how many; does not wait. The bytes are good until the call of the
    // sink returns. With its answer false no more follow, until the next call.
    template<typename Sink>
    std::size_t ReadFrames(Sink &&sink); // bool(RingFrame const &)
    // The same for datagrams, whole ones only. Others are counted, and after many of them no more follow either.
    template<typename Sink>
    std::size_t ReadDatagrams(Sink &&sink); // bool(RingDatagram const &)
    // Until there is something to be read, here or at the socket `other` unless that is -1, the patience is over, or
    // somebody wakes.
    void Wait(std::chrono::milliseconds patience, int other = -1);
    void Wake(); // ends the current or the next wait

    // Packets that were not handed on: the system had no room for them.
    std::uint64_t GetDropped();
    std::uint64_t GetFragments() const
    {
        return m_fragments.load(std::memory_order_relaxed);
    }
    std::uint64_t GetMalformed() const // and cut short
    {
        return m_malformed.load(std::memory_order_relaxed);
    }

private:
    static constexpr std::size_t MostSkipped = 1024;

    PacketRing(int socket, int wake, std::span<std::uint8_t> memory, std::uint32_t blockBytes);
    bool TakeBlock();
    void GiveBlock();
    bool Count(RingVerdict verdict);

    int const m_socket, m_wake;
    std::span<std::uint8_t> const m_memory; // shared with the system
    std::size_t const m_blockBytes;
    std::size_t m_current = 0; // where the reading thread's block begins
    RingBlock m_block;         // what is left of it
    bool m_hasBlock = false;
    std::atomic<std::uint64_t> m_dropped{0}, m_fragments{0}, m_malformed{0};
};

template<typename Sink>
std::size_t PacketRing::ReadFrames(Sink &&sink)
{
    std::size_t count = 0;
    while (TakeBlock()) {
        RingFrame frame;
        while (m_block.Next(frame)) {
            ++count;
            if (!sink(std::as_const(frame)))
                return count;
        }
        GiveBlock();
    }
    return count;
}

template<typename Sink>
std::size_t PacketRing::ReadDatagrams(Sink &&sink)
{
    std::size_t count = 0, skipped = 0;
    ReadFrames([&](RingFrame const &frame) {
        RingDatagram datagram;
        if (!Count(ReadDatagram(frame, datagram)))
            return ++skipped < MostSkipped;
        ++count;
        return static_cast<bool>(sink(std::as_const(datagram)));
    });
    return count;
}
