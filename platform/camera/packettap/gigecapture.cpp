// The live source of a GigE Vision camera's packets: a packet socket and its ring.
#include "packetsource.h"

#include "gigeframing.h"

#include "capture/capturefilter.h"
#include "capture/capturehelper.h"
#include "gige/packetring.h"
#include "protocol/socketaddress.h"

#include <cerrno>
#include <cstring>
#include <new>
#include <pcap/dlt.h>

namespace {

using namespace std::chrono_literals;

// What the system's filter leaves of a packet is as much as the framing wants. The longest IP header.
constexpr std::uint32_t LongestHeaders = 60 + gvsp::UdpHeaderSize;
static_assert(CaptureControlSnap >= LongestHeaders + gvcp::HeaderSize + gvcp::LongestBody);
static_assert(CaptureStreamSnap >= LongestHeaders + GigEFraming::StreamBytesShown);

// 32 MB: seconds of a stream at the rate of 50,000 packets, so that a busy machine does not cost packets. Blocks of the
// least size, because few packets in a while take a whole one.
constexpr PacketRingSize RingSize{1 << 17, 256, 20ms};

// The filter is fixed with the socket: stream packets that nobody wants come too, cut to their beginning.
class GigECapture final : public PacketSource
{
public:
    GigECapture(std::unique_ptr<PacketRing> ring, std::uint32_t camera)
        : m_ring(std::move(ring)),
          m_framing(DLT_RAW, camera)
    {
    }

    bool Read(Sink const &sink, std::chrono::milliseconds patience) override
    {
        auto const take = [&](RingFrame const &frame) {
            TapPacket packet;
            if (!m_framing.Unpack({frame.bytes.data(), frame.bytes.size(), frame.size}, packet) ||
                (packet.channel == TovCam::EventStreamChannel && !m_streamWanted))
                return true;
            try {
                return sink(packet);
            } catch (std::bad_alloc const &) {
                ++m_noMemory;
                return true;
            }
        };
        if (m_ring->ReadFrames(take) == 0)
            m_ring->Wait(patience);
        return true;
    }
    void Wake() override
    {
        m_ring->Wake();
    }
    std::uint64_t GetMissed() override
    {
        return m_ring->GetDropped() + m_framing.GetCutShort() + m_noMemory;
    }
    void SetStreamWanted(bool wanted) override
    {
        m_streamWanted = wanted;
        m_framing.SetStreamWanted(wanted);
    }

private:
    std::unique_ptr<PacketRing> const m_ring;
    GigEFraming m_framing;
    bool m_streamWanted = true;
    std::uint64_t m_noMemory = 0; // packets for which there was none to hand them on
};

std::nullptr_t RefuseAdapter(std::string const &adapter, std::string const &reason, std::int32_t *status,
                             TovCam::CaptureFailure *failure)
{
    *status = TOV_CAM_ERR_NO_DEVICE;
    if (failure)
        *failure = {TovCam::CaptureRefusal::NoAdapter, adapter, reason};
    return nullptr;
}

} // namespace

std::unique_ptr<PacketSource> OpenGigECapture(std::string const &adapter, std::string const &camera,
                                              std::int32_t *status, TovCam::CaptureFailure *failure)
{
    std::optional<std::uint32_t> const address = ParseAddress(camera);
    if (adapter.empty() || !address)
        return RefuseAdapter(adapter, {}, status, failure);
    int const socket =
        RequestCaptureSocket({CaptureTraffic, adapter, *address, GetHostAddressTowards(*address)}, status, failure);
    if (socket < 0)
        return nullptr;
    std::unique_ptr<PacketRing> ring = PacketRing::Make(socket, RingSize);
    if (!ring)
        return RefuseAdapter(adapter, std::strerror(errno), status, failure);
    return std::make_unique<GigECapture>(std::move(ring), *address);
}
