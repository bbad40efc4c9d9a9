#include "ringsource.h"

#include "capture/capturehelper.h"
#include "hostfacts.h"
#include "packetring.h"

#include <arpa/inet.h>
#include <string>

namespace {

// 64 MB, as much as the largest socket: half a second of a link of 1 Gbit/s, in blocks of which a trickle of packets
// takes one every few milliseconds. To be woken for a block costs as much as some ten packets do: they are large.
constexpr PacketRingSize RingSize{1 << 20, 64, std::chrono::milliseconds(2)};
// Frames that are over are delivered in between.
constexpr std::size_t MostAtOnce = 128;

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
            take(datagram);
            return ++count < MostAtOnce;
        });
    }
    void Wait(std::chrono::milliseconds patience) override
    {
        m_ring->Wait(patience);
    }
    void Wake() override
    {
        m_ring->Wake();
    }
    std::uint64_t GetDrops() override
    {
        return m_ring->GetDropped();
    }

private:
    std::unique_ptr<PacketRing> const m_ring;
};

std::string AdapterOf(std::uint32_t address)
{
    in_addr const raw{htonl(address)};
    char text[INET_ADDRSTRLEN];
    return FindAdapter(inet_ntop(AF_INET, &raw, text, sizeof text));
}

} // namespace

std::unique_ptr<DatagramSource> OpenRingSource(std::uint32_t camera, std::uint32_t host, std::uint16_t port)
{
    // What goes to an address of this host does not leave it.
    std::string const adapter = AdapterOf(camera).empty() ? AdapterOf(host) : "lo";
    std::int32_t status = 0;
    int const socket = RequestCaptureSocket({CaptureStream, adapter, camera, host, port}, &status, nullptr);
    if (socket < 0)
        return nullptr;
    std::unique_ptr<PacketRing> ring = PacketRing::Make(socket, RingSize);
    return ring ? std::make_unique<RingSource>(std::move(ring)) : nullptr;
}
