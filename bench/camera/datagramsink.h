// What a receiver costs at least: a thread that reads what comes to a port of loopback, many datagrams a system call,
// and counts them.
#pragma once

#include "protocol/socketaddress.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <thread>
#include <unistd.h>
#include <vector>

inline double Seconds(clockid_t clock)
{
    timespec time;
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

class DatagramSink
{
public:
    // `bufferOption`: SO_RCVBUF, or SO_RCVBUFFORCE for more than the system allows to everybody. `longest`: what there
    // is room for of a datagram.
    DatagramSink(char const *threadName, int bufferOption, int bufferSize, std::size_t longest)
        : m_socket(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        setsockopt(m_socket, SOL_SOCKET, bufferOption, &bufferSize, sizeof bufferSize);
        timeval const look{0, 20000};
        setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, &look, sizeof look);
        if (!BindSocket(m_socket, {INADDR_LOOPBACK, 0}))
            std::exit(1);
        m_thread = std::thread([this, threadName, longest] {
            prctl(PR_SET_NAME, threadName);
            Run(longest);
        });
    }
    ~DatagramSink()
    {
        m_quit = true;
        m_thread.join();
        close(m_socket);
    }
    DatagramSink(DatagramSink const &) = delete;
    DatagramSink &operator=(DatagramSink const &) = delete;

    std::uint16_t GetPort() const
    {
        return AddressOfSocket(m_socket).port;
    }
    std::uint64_t GetPackets() const
    {
        return m_packets;
    }
    double CpuSeconds()
    {
        clockid_t clock;
        pthread_getcpuclockid(m_thread.native_handle(), &clock);
        return Seconds(clock);
    }

private:
    void Run(std::size_t longest)
    {
        constexpr std::size_t Batch = 64;
        std::vector<std::uint8_t> memory(Batch * longest);
        std::array<iovec, Batch> pieces{};
        std::array<mmsghdr, Batch> messages{};
        for (std::size_t i = 0; i < Batch; ++i) {
            pieces[i] = {memory.data() + i * longest, longest};
            messages[i].msg_hdr.msg_iov = &pieces[i];
            messages[i].msg_hdr.msg_iovlen = 1;
        }
        while (!m_quit) {
            int const count = recvmmsg(m_socket, messages.data(), Batch, MSG_WAITFORONE, nullptr);
            m_packets.store(m_packets + static_cast<std::uint64_t>(std::max(count, 0)), std::memory_order_relaxed);
        }
    }

    int const m_socket;
    std::atomic<bool> m_quit{false};
    std::atomic<std::uint64_t> m_packets{0}; // written by the thread alone
    std::thread m_thread;
};
