#include "ringsource.h"

#include "capture/capturehelper.h"
#include "hostfacts.h"
#include "packetring.h"
#include "protocol/socketaddress.h"

#include <atomic>
#include <string>

namespace {

// 64 MB, as much as the largest socket: half a second of a link of 1 Gbit/s. A block is handed over when it is full,
// and after a while: to be woken for one costs as much as some ten packets do, and displays show 30 pictures a second.
constexpr PacketRingSize RingSize{4 << 20, 16, std::chrono::milliseconds(10)};
// Frames that are over are delivered in between.
constexpr std::size_t MostAtOnce = 128;
constexpr std::chrono::milliseconds BlockPatience{100}; // until a block is handed over, and read

std::atomic<bool> s_isPermitted{true};

class RingSource final : public DatagramSource
{
public:
    explicit RingSource(std::unique_ptr<PacketRing> ring) : m_ring(std::move(ring))
    {
    }

    std::size_t Read(std::function<void(Datagram const &)> const &take) override
    {
        std::size_t count = 0;
        return m_ring->ReadDatagrams([&](RingDatagram const &packet) {
            Datagram datagram;
            datagram.pieces[0] = packet.payload;
            datagram.address = packet.source;
            datagram.port = packet.sourcePort;
            datagram.arrival = std::chrono::nanoseconds(packet.arrival);
            if (!IsForgotten(datagram.arrival))
                take(datagram);
            return ++count < MostAtOnce;
        });
    }
    void Wait(std::chrono::milliseconds patience, int other) override
    {
        m_ring->Wait(patience, other);
    }
    void Wake() override
    {
        m_ring->Wake();
    }
    void Forget() override
    {
        constexpr std::size_t Most = 1 << 20; // of a camera that goes on
        std::size_t count = 0;
        m_ring->ReadDatagrams([&](RingDatagram const &) { return ++count < Most; });
        m_begin = std::chrono::system_clock::now().time_since_epoch();
        m_fresh = std::chrono::steady_clock::now() + BlockPatience;
    }
    Losses GetLosses() override
    {
        return {m_ring->GetDropped(), m_ring->GetMalformed(), m_ring->GetFragments()};
    }
    std::uint64_t GetRoom() const override
    {
        return std::uint64_t{RingSize.blockBytes} * RingSize.blocks;
    }
    std::chrono::milliseconds GetDelay() const override
    {
        return RingSize.delay;
    }

private:
    // What came before is in a block that was not full yet. Only for as long as that may last: clocks are set.
    bool IsForgotten(std::chrono::nanoseconds arrival)
    {
        return arrival < m_begin && std::chrono::steady_clock::now() < m_fresh;
    }

    std::chrono::nanoseconds m_begin{0};
    std::chrono::steady_clock::time_point m_fresh;
    std::unique_ptr<PacketRing> const m_ring;
};

} // namespace

std::unique_ptr<DatagramSource> OpenRingSource(std::uint32_t camera, std::uint32_t host, std::uint16_t port)
{
    if (!s_isPermitted)
        return nullptr;
    // What goes to an address of this host does not leave it.
    std::string const adapter = FindAdapter(AddressText(camera)).empty() ? FindAdapter(AddressText(host)) : "lo";
    std::int32_t status = 0;
    int const socket = RequestCaptureSocket({CaptureStream, adapter, camera, host, port}, &status, nullptr);
    if (socket < 0)
        return nullptr;
    std::unique_ptr<PacketRing> ring = PacketRing::Make(socket, RingSize);
    return ring ? std::make_unique<RingSource>(std::move(ring)) : nullptr;
}

void PermitRingSource(bool isPermitted)
{
    s_isPermitted = isPermitted;
}
