// A sender of GVSP that is not what limits a receiver: the packets of one frame stand ready and go out again and again
// with other block ids, a run of them with one system call, at a given pace, from a processor of its own.
#pragma once

#include "protocol/gigevision.h"
#include "protocol/socketaddress.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <netinet/udp.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

inline void PinTo(unsigned processor)
{
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(processor, &set);
    sched_setaffinity(0, sizeof set, &set);
}

class Replay
{
public:
    using Clock = std::chrono::steady_clock;

    // Frames of Mono8. `run`: packets a system call; by segmentation, where the system cuts one large datagram behind
    // the socket, or one by one through all of it.
    Replay(std::uint32_t width, std::uint32_t height, std::uint32_t packetSize, std::size_t run, bool segments)
        : m_size(packetSize - gvsp::IpHeaderSize - gvsp::UdpHeaderSize),
          m_run(std::min(run, std::min(MostRun, segments ? LongestDatagram / m_size : MostRun))),
          m_segments(segments),
          m_socket(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        int const room = 8 << 20;
        setsockopt(m_socket, SOL_SOCKET, SO_SNDBUFFORCE, &room, sizeof room);
        if (m_socket < 0 || !BindSocket(m_socket, {INADDR_LOOPBACK, 0}))
            std::exit(1);
        std::size_t const bytes = std::size_t{width} * height, data = m_size - gvsp::HeaderSize;
        m_packets = (bytes + data - 1) / data;
        m_memory.resize(m_packets * m_size);
        for (std::size_t i = 0; i < m_packets; ++i) {
            std::uint8_t *const packet = &m_memory[i * m_size];
            gvsp::WriteHeader(std::span<std::uint8_t, gvsp::HeaderSize>(packet, gvsp::HeaderSize),
                              {0, 1, gvsp::DataPayload, static_cast<std::uint32_t>(i + 1), false});
        }
        m_last = bytes - (m_packets - 1) * data + gvsp::HeaderSize;
        MakeEnds(width, height);
    }
    ~Replay()
    {
        close(m_socket);
    }
    Replay(Replay const &) = delete;
    Replay &operator=(Replay const &) = delete;

    std::uint16_t GetPort() const
    {
        return AddressOfSocket(m_socket).port;
    }
    std::size_t PacketsPerFrame() const
    {
        return m_packets + 2;
    }
    void SetTarget(std::uint16_t port)
    {
        if (!ConnectSocket(m_socket, {INADDR_LOOPBACK, port}))
            std::exit(1);
        m_count = 0;
    }
    // Of the frames from now on; `at` counts the bytes of a frame.
    void SetPixel(std::size_t at, std::uint8_t value)
    {
        std::size_t const data = m_size - gvsp::HeaderSize;
        m_memory[at / data * m_size + gvsp::HeaderSize + at % data] = value;
    }
    // At so many packets a second, or as fast as it can with 0. Returns the seconds that it took.
    double Send(std::size_t frames, double rate)
    {
        Clock::time_point const begin = Clock::now();
        m_next = begin;
        m_perPacket = std::chrono::duration<double>(rate > 0 ? 1.0 / rate : 0.0);
        for (std::size_t i = 0; i < frames; ++i)
            SendFrame();
        return std::chrono::duration<double>(Clock::now() - begin).count();
    }

private:
    static constexpr std::size_t MostRun = 64, LongestDatagram = 65000;

    [[noreturn]] static void Fail()
    {
        std::perror("nobody receives");
        std::_Exit(1);
    }
    void MakeEnds(std::uint32_t width, std::uint32_t height)
    {
        using Leader = gvsp::ImageLeader;
        using Trailer = gvsp::ImageTrailer;
        std::uint8_t *body = m_leader.data() + gvsp::HeaderSize;
        StoreBig16(body + Leader::PayloadType, gvsp::Image);
        StoreBig32(body + Leader::PixelFormat, 0x01080001);
        StoreBig32(body + Leader::SizeX, width);
        StoreBig32(body + Leader::SizeY, height);
        body = m_trailer.data() + gvsp::HeaderSize;
        StoreBig16(body + Trailer::PayloadType, gvsp::Image);
        StoreBig32(body + Trailer::SizeY, height);
    }
    void Pace(std::size_t packets)
    {
        while (m_perPacket.count() > 0 && Clock::now() < m_next) {
        }
        m_next += std::chrono::duration_cast<Clock::duration>(m_perPacket * static_cast<double>(packets));
    }
    void SendEnd(std::span<std::uint8_t> packet, std::uint8_t format, std::size_t id)
    {
        gvsp::WriteHeader(packet.first<gvsp::HeaderSize>(),
                          {0, gvsp::BlockId16(m_count), format, static_cast<std::uint32_t>(id), false});
        if (format == gvsp::DataLeader)
            StoreBig64(&packet[gvsp::HeaderSize + gvsp::ImageLeader::Timestamp], m_count);
        [[maybe_unused]] ssize_t const sent = send(m_socket, packet.data(), packet.size(), 0);
    }
    void SendFrame()
    {
        ++m_count;
        for (std::size_t i = 0; i < m_packets; ++i)
            StoreBig16(&m_memory[i * m_size + 2], gvsp::BlockId16(m_count));
        SendEnd(m_leader, gvsp::DataLeader, 0);
        for (std::size_t i = 0; i < m_packets; i += m_run) {
            std::size_t const count = std::min(m_run, m_packets - i);
            Pace(count);
            std::size_t const bytes = count * m_size - (i + count == m_packets ? m_size - m_last : 0);
            if (m_segments)
                SendSegments(&m_memory[i * m_size], bytes);
            else
                SendEach(&m_memory[i * m_size], bytes);
        }
        SendEnd(m_trailer, gvsp::DataTrailer, m_packets + 1);
    }
    void SendSegments(std::uint8_t *memory, std::size_t bytes)
    {
        iovec piece{memory, bytes};
        alignas(cmsghdr) std::array<std::uint8_t, CMSG_SPACE(sizeof(std::uint16_t))> room{};
        msghdr message{};
        message.msg_iov = &piece;
        message.msg_iovlen = 1;
        message.msg_control = room.data();
        message.msg_controllen = room.size();
        cmsghdr *const control = CMSG_FIRSTHDR(&message);
        control->cmsg_level = SOL_UDP;
        control->cmsg_type = UDP_SEGMENT;
        control->cmsg_len = CMSG_LEN(sizeof(std::uint16_t));
        auto const size = static_cast<std::uint16_t>(m_size);
        std::memcpy(CMSG_DATA(control), &size, sizeof size);
        if (sendmsg(m_socket, &message, 0) < 0)
            Fail();
    }
    void SendEach(std::uint8_t *memory, std::size_t bytes)
    {
        std::array<iovec, MostRun> pieces;
        std::array<mmsghdr, MostRun> messages{};
        std::size_t count = 0;
        for (std::size_t at = 0; at < bytes; at += m_size, ++count) {
            pieces[count] = {memory + at, std::min(m_size, bytes - at)};
            messages[count].msg_hdr.msg_iov = &pieces[count];
            messages[count].msg_hdr.msg_iovlen = 1;
        }
        if (sendmmsg(m_socket, messages.data(), static_cast<unsigned>(count), 0) != static_cast<int>(count))
            Fail();
    }

    std::size_t const m_size, m_run;
    bool const m_segments;
    int const m_socket;
    std::size_t m_packets = 0, m_last = 0; // of data; bytes of the last one
    std::vector<std::uint8_t> m_memory;
    std::array<std::uint8_t, gvsp::HeaderSize + gvsp::ImageLeader::Size> m_leader{};
    std::array<std::uint8_t, gvsp::HeaderSize + gvsp::ImageTrailer::Size> m_trailer{};
    std::uint64_t m_count = 0;
    Clock::time_point m_next;
    std::chrono::duration<double> m_perPacket{0};
};
