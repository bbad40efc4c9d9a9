// A GigE Vision camera on loopback that answers as a test wants, well or ill.
#pragma once

#include "fakegige.h"
#include "protocol/gigevision.h"
#include "protocol/socketaddress.h"
#include "wait.h"

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

// The first 128 KB of its memory are there; the rest is refused.
class ScriptedCamera
{
public:
    using Bytes = std::vector<std::uint8_t>;
    struct Datagram
    {
        Bytes bytes;
        bool isForeign = false; // from another port
        std::uint16_t port = 0; // of the host, where it is not the asker's
    };
    // What comes of a request: the good answer is the second argument, and what comes without a script.
    using Script = std::function<std::vector<Datagram>(Bytes const &request, Bytes const &good)>;

    ScriptedCamera() : m_memory(128 << 10)
    {
        for (std::size_t i = 0x10000; i < m_memory.size(); ++i)
            m_memory[i] = static_cast<std::uint8_t>(i * 7 + (i >> 8));
        Put(gvcp::bootstrap::HeartbeatTimeout, 3000);
        EXPECT_TRUE(Eventually([this] { return (m_socket = FakeGigECamera::BindControlPort()) >= 0; }));
        m_foreign = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        m_thread = std::thread([this] { Serve(); });
    }
    ~ScriptedCamera()
    {
        m_stop = true;
        m_thread.join();
        close(m_socket);
        close(m_foreign);
    }
    // A camera with a name that can be opened.
    void Describe(std::string const &description)
    {
        char url[40];
        std::snprintf(url, sizeof url, "Local:a.xml;18000;%zx", description.size());
        Put(0x18000, description);
        Put(gvcp::bootstrap::FirstUrl, std::string(url));
        Put(gvcp::bootstrap::ManufacturerName, std::string("Maker"));
        Put(gvcp::bootstrap::SerialNumber, std::string("Serial"));
    }
    void Set(Script script)
    {
        std::lock_guard<std::mutex> const lock(m_mutex);
        m_script = std::move(script);
    }
    void Put(std::uint32_t address, std::uint32_t value)
    {
        std::lock_guard<std::mutex> const lock(m_mutex);
        StoreBig32(&m_memory[address], value);
    }
    void Put(std::uint32_t address, std::string const &text)
    {
        std::lock_guard<std::mutex> const lock(m_mutex);
        std::copy(text.begin(), text.end(), m_memory.begin() + address);
    }
    Bytes Get(std::uint32_t address, std::size_t size)
    {
        std::lock_guard<std::mutex> const lock(m_mutex);
        return {m_memory.begin() + address, m_memory.begin() + address + static_cast<std::ptrdiff_t>(size)};
    }
    std::uint32_t Get(std::uint32_t address)
    {
        return LoadBig32(Get(address, 4).data());
    }
    // Those with this command, but for the heartbeat's reading of its register.
    std::vector<Bytes> Requests(std::uint16_t command)
    {
        std::lock_guard<std::mutex> const lock(m_mutex);
        std::vector<Bytes> found;
        for (Bytes const &request : m_requests) {
            if (LoadBig16(&request[2]) == command && !IsBeat(request))
                found.push_back(request);
        }
        return found;
    }
    // All that has come, the heartbeat's included.
    std::size_t CountRequests()
    {
        std::lock_guard<std::mutex> const lock(m_mutex);
        return m_requests.size();
    }
    static bool IsBeat(Bytes const &request)
    {
        return LoadBig16(&request[2]) == gvcp::READREG_CMD &&
               LoadBig32(&request[8]) == gvcp::bootstrap::ControlChannelPrivilege;
    }

private:
    // With the lock held.
    Bytes GoodAnswer(Bytes const &request)
    {
        std::uint16_t const command = LoadBig16(&request[2]);
        std::uint32_t const address = request.size() >= 12 ? LoadBig32(&request[8]) : 0;
        std::size_t const size = command == gvcp::READMEM_CMD    ? LoadBig16(&request[14])
                                 : command == gvcp::WRITEMEM_CMD ? request.size() - 12
                                                                 : 4;
        Bytes body;
        std::uint16_t status = 0;
        if (command == gvcp::DISCOVERY_CMD) {
            body.assign(m_memory.begin(), m_memory.begin() + gvcp::DiscoveryAck::Size);
        } else if (address + std::uint64_t{size} > m_memory.size() || size % 4 != 0 || address % 4 != 0) {
            status = gvcp::GEV_STATUS_INVALID_ADDRESS;
        } else if (command == gvcp::READREG_CMD || command == gvcp::READMEM_CMD) {
            if (command == gvcp::READMEM_CMD)
                body.assign(request.begin() + 8, request.begin() + 12);
            body.insert(body.end(), &m_memory[address], &m_memory[address] + size);
        } else {
            std::copy(request.begin() + 12, request.end(), m_memory.begin() + address);
            body = {0, 0, 0, 1};
        }
        Bytes answer(gvcp::HeaderSize + body.size());
        gvcp::WriteHeader(
            std::span(answer).first<gvcp::HeaderSize>(),
            {status, gvcp::AcknowledgeOf(command), static_cast<std::uint16_t>(body.size()), LoadBig16(&request[6])});
        std::copy(body.begin(), body.end(), answer.begin() + gvcp::HeaderSize);
        return answer;
    }
    void Serve()
    {
        timeval const patience{0, 20000};
        setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        while (!m_stop) {
            Bytes request(600);
            SocketAddress asker;
            ssize_t const size = ReceiveDatagram(m_socket, request, asker);
            if (size < 8)
                continue;
            request.resize(static_cast<std::size_t>(size));
            std::lock_guard<std::mutex> const lock(m_mutex);
            m_requests.push_back(request);
            // Packets that are asked for again, and greetings to where a stream comes from, have no answer.
            if (LoadBig16(&request[2]) == gvcp::PACKETRESEND_CMD ||
                (size < 12 && LoadBig16(&request[2]) != gvcp::DISCOVERY_CMD))
                continue;
            Bytes const good = GoodAnswer(request);
            for (Datagram const &out : m_script ? m_script(request, good) : std::vector<Datagram>{{good}}) {
                SendDatagram(out.isForeign ? m_foreign : m_socket, out.bytes,
                             {asker.address, out.port != 0 ? out.port : asker.port});
            }
        }
    }

    std::mutex m_mutex; // guards the next three
    Bytes m_memory;
    std::vector<Bytes> m_requests;
    Script m_script;
    int m_socket = -1, m_foreign = -1;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};
