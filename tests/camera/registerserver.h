// A GigE Vision camera of ours on loopback whose registers say what a test wants, and which sends the packets that it
// was given.
#pragma once

#include "contract.h"
#include "fakegige.h"

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

inline std::string Big(std::uint64_t value, int bytes)
{
    std::string text(static_cast<std::size_t>(bytes), '\0');
    for (; bytes > 0; value >>= 8)
        text[static_cast<std::size_t>(--bytes)] = static_cast<char>(value);
    return text;
}

// The first kilobytes of its memory, and no more.
class RegisterServer
{
public:
    RegisterServer(std::string const &url, std::string const &description)
    {
        m_memory.replace(0x48, 5, "Maker").replace(0x68, 5, "Model").replace(0xD8, 6, "Serial");
        m_memory.replace(0x200, url.size(), url).replace(0x1000, description.size(), description);
        m_memory.replace(0x904, 4, Big(1, 4));         // one stream
        m_memory.replace(0x93C, 8, Big(125000000, 8)); // ticks a second
        EXPECT_TRUE(Eventually([this] { return (m_socket = FakeGigECamera::BindControlPort()) >= 0; }));
        m_thread = std::thread([this] { Serve(); });
    }
    ~RegisterServer()
    {
        m_stop = true;
        m_thread.join();
        close(m_socket);
    }

    // Sent when register StartAt is written. Before that.
    static constexpr std::size_t StartAt = 0xF000;
    std::vector<std::string> stream;

private:
    void SendStream(sockaddr_in peer)
    {
        std::memcpy(&peer.sin_port, m_memory.data() + 0xD02, 2);
        for (std::string const &packet : stream)
            sendto(m_socket, packet.data(), packet.size(), 0, reinterpret_cast<sockaddr *>(&peer), sizeof peer);
    }
    void Serve()
    {
        timeval const patience{0, 20000};
        setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        while (!m_stop) {
            unsigned char request[600];
            sockaddr_in peer{};
            socklen_t peerSize = sizeof peer;
            if (recvfrom(m_socket, request, sizeof request, 0, reinterpret_cast<sockaddr *>(&peer), &peerSize) < 8)
                continue;
            std::size_t const address = request[10] << 8 | request[11];
            std::string answer;
            switch (request[3]) {
            case 0x02: // who is there
                answer = m_memory.substr(0, 0xF8);
                break;
            case 0x80: // a register
                answer = m_memory.substr(address, 4);
                break;
            case 0x82: // a register written
                m_memory.replace(address, 4, reinterpret_cast<char *>(request) + 12, 4);
                answer.assign("\0\0\0\1", 4);
                if (address == StartAt)
                    SendStream(peer);
                break;
            case 0x84: // memory
                answer.assign(request + 8, request + 12);
                answer += m_memory.substr(address, request[14] << 8 | request[15]);
                break;
            default:
                continue;
            }
            std::string head(8, '\0');
            head[3] = static_cast<char>(request[3] + 1);
            head[4] = static_cast<char>(answer.size() >> 8);
            head[5] = static_cast<char>(answer.size());
            head.replace(6, 2, reinterpret_cast<char *>(request) + 6, 2);
            answer = head + answer;
            sendto(m_socket, answer.data(), answer.size(), 0, reinterpret_cast<sockaddr *>(&peer), peerSize);
        }
    }

    std::string m_memory = std::string(0x10400, '\0'); // set before anybody asks, then the thread's
    int m_socket = -1;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};
