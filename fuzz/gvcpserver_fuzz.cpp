// Datagrams of any bytes from several hosts, at any times, to the control channel of a camera.
//
// An input is a list of records: a byte of StepFlags, the length in two bytes, and as many bytes of a datagram, or of
// an order to the harness.
#include "driver.h"

#include "gvcpserver.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <numeric>

namespace {

using Clock = GvcpServer::Clock;
using namespace gvcp::bootstrap;
using namespace std::chrono_literals;

enum StepFlags : std::uint8_t {
    HostMask = 0x03,
    IsBroadcast = 0x04,
    AsItIs = 0x08, // otherwise what every command needs is put right, so that more of them get far
    TimeMask = 0x70,
    IsOrder = 0x80,
};
constexpr unsigned TimeShift = 4;
constexpr std::size_t StepSize = 3, LengthLimit = 1024; // so that a changed length does not take in all that follows

constexpr std::uint32_t CameraAddress = 0x0A000001, Netmask = 0xFFFFFF00;
constexpr GvcpPeer Hosts[] = {{0x0A000002, 1000}, {0x0A000002, 1001}, {0x0A000003, 1000}, {0xAC100001, 5000}};

constexpr std::uint16_t Commands[] = {gvcp::DISCOVERY_CMD, gvcp::FORCEIP_CMD,  gvcp::PACKETRESEND_CMD,
                                      gvcp::READREG_CMD,   gvcp::WRITEREG_CMD, gvcp::READMEM_CMD,
                                      gvcp::WRITEMEM_CMD,  gvcp::ACTION_CMD,   gvcp::EVENT_CMD};

// Printed at the end, because an input holds any number of them.
struct Totals
{
    ~Totals()
    {
        std::printf("%llu datagrams, %llu of them commands, %llu sent\n", received, commands, sent);
    }
    unsigned long long received = 0, commands = 0, sent = 0;
} s_totals;

void Demand(bool condition, char const *what)
{
    if (!condition)
        FuzzFail(what);
}

// Checks what it is asked for.
class MemoryCamera final : public GvcpCamera
{
public:
    explicit MemoryCamera(BootstrapMemory &memory) : m_memory(memory)
    {
    }

    gvcp::Status Read(std::uint32_t address, std::span<std::uint8_t> out) override
    {
        CheckAccess(address, out.size());
        std::fill(out.begin(), out.end(), static_cast<std::uint8_t>(address >> 2));
        return address >= Missing ? gvcp::GEV_STATUS_INVALID_ADDRESS : gvcp::GEV_STATUS_SUCCESS;
    }
    gvcp::Status Write(std::uint32_t address, std::span<std::uint8_t const> bytes) override
    {
        CheckAccess(address, bytes.size());
        m_sum = std::accumulate(bytes.begin(), bytes.end(), m_sum); // reads them all
        return address >= Missing ? gvcp::GEV_STATUS_INVALID_ADDRESS : gvcp::GEV_STATUS_SUCCESS;
    }
    std::chrono::milliseconds DelayOf(std::uint32_t address, std::uint32_t size) override
    {
        Demand(size <= 0xFFFF, "a size that no packet can tell");
        return std::chrono::milliseconds(address >= Slow && address < SlowEnd ? (address - Slow) * 100 : 0);
    }
    gvcp::Status React(std::uint32_t address) override
    {
        Demand(BootstrapMemory::RegisterAt(address).address == address, "not the beginning of a register");
        Demand(m_memory.CheckWrite(address, gvcp::RegisterSize) == gvcp::GEV_STATUS_SUCCESS, "write to what cannot be");
        bool const refuses = address == StreamChannelPacketDelay && m_memory.Get(address) > 1000000;
        return refuses ? gvcp::GEV_STATUS_INVALID_PARAMETER : gvcp::GEV_STATUS_SUCCESS;
    }
    void Resend(GvcpResend const &request) override
    {
        Demand(request.first <= request.last && request.blockId != 0, "resend of nothing");
        Demand(request.extended || (request.blockId <= 0xFFFF && request.last <= 0xFFFFFF), "resend of long ids");
    }
    void ControlEnded() override
    {
        Demand(m_memory.Get(StreamChannelPort) == 0 && m_memory.Get(MessageChannelPort) == 0, "channels stay open");
    }
    void Act(std::uint32_t action) override
    {
        Demand(action < BootstrapMemory::Actions, "no such action");
    }
    bool TakeAddress(std::uint32_t address, std::uint32_t, std::uint32_t) override
    {
        return address % 2 == 0;
    }

private:
    static constexpr std::uint32_t Missing = 0x00800000, Slow = 0x0000B000, SlowEnd = 0x0000C000;

    static void CheckAccess(std::uint32_t address, std::size_t size)
    {
        Demand(!BootstrapMemory::Covers(address), "access to the bootstrap registers");
        Demand(address % 4 == 0 && size % 4 == 0 && size >= 4 && size <= 536, "access of an odd size");
        Demand(std::uint64_t{address} + size <= std::uint64_t{1} << 32, "access beyond the end");
    }

    BootstrapMemory &m_memory;
    unsigned m_sum = 0;
};

class Session
{
public:
    Session()
    {
        m_memory.Set(CurrentIpAddress, CameraAddress);
        m_memory.Set(CurrentSubnetMask, Netmask);
        m_memory.Set(DeviceMacAddressHigh, 0x0002);
        m_memory.Set(DeviceMacAddressLow, 0x03040506);
    }

    void Step(std::uint8_t flags, std::span<std::uint8_t const> bytes)
    {
        Advance((flags & TimeMask) >> TimeShift);
        if (flags & IsOrder) {
            Obey(bytes);
        } else {
            std::vector<std::uint8_t> datagram(bytes.begin(), bytes.end());
            if ((flags & AsItIs) == 0)
                MendCommand(datagram);
            ++s_totals.received;
            s_totals.commands += datagram.size() >= gvcp::HeaderSize && datagram[0] == gvcp::Key;
            m_server.Handle(datagram, Hosts[flags & HostMask], (flags & IsBroadcast) != 0, m_now);
        }
        Check();
    }
    bool HasAnswered() const
    {
        return m_sent > 0;
    }

private:
    void Advance(unsigned step)
    {
        constexpr std::chrono::nanoseconds Times[] = {0ns, 1ms, 100ms, 600ms, 3s, 1h};
        if (step < std::size(Times)) {
            m_now += Times[step];
            return;
        }
        std::optional const due = m_server.NextDue();
        if (!due)
            return;
        // At the very time, or just before it, when nothing may happen yet.
        m_now = step % 2 == 0 ? *due : std::max(m_now, *due - 1ns);
        m_server.Poll(m_now);
        Demand(step % 2 == 0 || *due == m_now || m_server.NextDue() == due, "done before its time");
    }
    static void MendCommand(std::vector<std::uint8_t> &datagram)
    {
        datagram.resize(std::max(datagram.size(), gvcp::HeaderSize));
        gvcp::Header header{LoadBig16(&datagram[0]), LoadBig16(&datagram[2]), LoadBig16(&datagram[4]),
                            LoadBig16(&datagram[6])};
        header.lead = gvcp::CommandLead(static_cast<std::uint8_t>(header.lead));
        if (std::find(std::begin(Commands), std::end(Commands), header.code) == std::end(Commands))
            header.code = Commands[header.code % std::size(Commands)];
        header.length = static_cast<std::uint16_t>(datagram.size() - gvcp::HeaderSize);
        header.id = std::max<std::uint16_t>(header.id, 1);
        gvcp::WriteHeader(std::span(datagram).first<gvcp::HeaderSize>(), header);
    }
    void Obey(std::span<std::uint8_t const> order)
    {
        m_server.Poll(m_now);
        auto const byte = [&](std::size_t i) {
            return i < order.size() ? order[i] : 0u;
        };
        switch (byte(0) % 4) {
        case 0:
        case 1:
            m_server.SendEvent(static_cast<std::uint16_t>(byte(1)), byte(2), byte(3), m_now);
            break;
        case 2:
            m_server.SetFaults({byte(1) / 256.0, byte(2) / 256.0, byte(3) / 256.0, byte(4) * 10, byte(5) == 1});
            m_spoilsLengths = m_spoilsLengths || byte(3) != 0;
            break;
        default:
            m_server.Reset();
            break;
        }
        m_server.Poll(m_now);
    }
    void Check()
    {
        std::optional const due = m_server.NextDue();
        Demand(!due || *due > m_now, "not done at its time");
        std::uint32_t const privilege = m_memory.Get(ControlChannelPrivilege);
        std::optional const controller = m_server.GetController();
        Demand(m_server.IsControlled() == (privilege != 0), "control without privilege, or the other way round");
        Demand(m_memory.Get(PrimaryApplicationPort) == (controller ? controller->port : 0), "another has control");
        Demand(m_server.IsControlled() ||
                   (m_memory.Get(StreamChannelPort) == 0 && m_memory.Get(MessageChannelPort) == 0),
               "a channel is open for nobody");
        for (GvcpDatagram const &datagram : m_server.TakeOutgoing())
            CheckSent(datagram);
    }
    void CheckSent(GvcpDatagram const &datagram)
    {
        ++m_sent;
        ++s_totals.sent;
        std::optional const header = gvcp::ReadHeader(datagram.bytes);
        if (!header)
            FuzzFail("sent without a header");
        Demand(datagram.bytes.size() <= gvcp::HeaderSize + gvcp::LongestBody, "sent too much");
        Demand(m_spoilsLengths || header->length == datagram.bytes.size() - gvcp::HeaderSize,
               "sent with a wrong length");
        Demand(datagram.message == (header->code == gvcp::EVENT_CMD && datagram.bytes[0] == gvcp::Key),
               "sent by the wrong channel");
        Demand(datagram.message || std::any_of(std::begin(Hosts), std::end(Hosts),
                                               [&](GvcpPeer const &host) {
                                                   return datagram.to == host ||
                                                          datagram.to == GvcpPeer{0xFFFFFFFF, host.port};
                                               }),
               "sent to nobody who asked");
    }

    BootstrapMemory m_memory;
    MemoryCamera m_camera{m_memory};
    GvcpServer m_server{m_memory, m_camera};
    bool m_spoilsLengths = false; // by an order
    Clock::time_point m_now;
    std::size_t m_sent = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const *data, std::size_t size)
{
    Session session;
    for (std::span<std::uint8_t const> input(data, size); input.size() > StepSize;) {
        std::uint8_t const flags = input[0];
        std::size_t const length = std::min<std::size_t>(LoadBig16(&input[1]) % LengthLimit, input.size() - StepSize);
        session.Step(flags, input.subspan(StepSize, length));
        input = input.subspan(StepSize + length);
    }
    return session.HasAnswered() ? 0 : FuzzRefused;
}
