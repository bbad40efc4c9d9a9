// The sources that libpcap reads.
#include "packetsource.h"

#include "gigeframing.h"
#include "usbframing.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <linux/filter.h>
#include <linux/if_packet.h>
#include <new>
#include <pcap/pcap.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace {

using namespace std::chrono_literals;

// The longest ones of link and network, and the one of transport.
constexpr std::uint32_t LongestHeaders = 18 + 60 + gvsp::UdpHeaderSize;
constexpr int ControlSnap = 2048;
static_assert(ControlSnap > LongestHeaders + gvcp::HeaderSize + gvcp::LongestBody);
constexpr std::uint32_t StreamSnap = LongestHeaders + GigEFraming::StreamBytesShown;
// Seconds of a stream at the rate of 50,000 packets, so that a busy machine does not cost packets.
constexpr int RingBytes = 32 << 20;
constexpr int RingDelay = 20; // ms until a block of the ring that is not full is handed over
// The monitor's ring is five times this, and holds at least five transfers, of which it keeps so much.
constexpr int UsbSnap = 8192;
constexpr auto ErrorPause = 200ms; // an adapter that is down comes up again

class CaptureSource : public PacketSource
{
public:
    CaptureSource(pcap_t *handle, std::unique_ptr<PacketFraming> framing, bool live)
        : m_handle(handle),
          m_framing(std::move(framing)),
          m_live(live),
          m_wake(live ? eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK) : -1)
    {
    }
    ~CaptureSource() override
    {
        pcap_close(m_handle);
        if (m_wake >= 0)
            close(m_wake);
    }

    bool Read(Sink const &sink, std::chrono::milliseconds patience) override
    {
        m_sink = &sink;
        int const count = pcap_dispatch(m_handle, -1, OnFrame, reinterpret_cast<u_char *>(this));
        m_sink = nullptr;
        if (count > 0 || count == PCAP_ERROR_BREAK)
            return true;
        if (!m_live)
            return false;
        pollfd events[] = {{m_wake, POLLIN, 0}, {pcap_get_selectable_fd(m_handle), POLLIN, 0}};
        poll(events, count == 0 ? 2 : 1, static_cast<int>(count == 0 ? patience.count() : ErrorPause.count()));
        eventfd_t ignored;
        if (events[0].revents != 0)
            eventfd_read(m_wake, &ignored);
        return true;
    }
    void Wake() override
    {
        if (m_wake >= 0)
            eventfd_write(m_wake, 1);
    }
    std::uint64_t GetMissed() override
    {
        pcap_stat stat;
        // The system counts in 32 bits.
        if (m_live && pcap_stats(m_handle, &stat) == 0)
            m_dropped += static_cast<std::uint32_t>(stat.ps_drop - static_cast<std::uint32_t>(m_dropped));
        return m_dropped + m_framing->GetCutShort() + m_noMemory;
    }
    void SetStreamWanted(bool wanted) override
    {
        m_framing->SetStreamWanted(wanted);
    }

protected:
    pcap_t *const m_handle;
    std::unique_ptr<PacketFraming> const m_framing;

private:
    static void OnFrame(u_char *self, pcap_pkthdr const *header, u_char const *bytes)
    {
        auto *const source = reinterpret_cast<CaptureSource *>(self);
        TapPacket packet;
        try { // nothing may be thrown through libpcap
            if (source->m_framing->Unpack({bytes, header->caplen, header->len}, packet) && !(*source->m_sink)(packet))
                pcap_breakloop(source->m_handle);
        } catch (std::bad_alloc const &) {
            ++source->m_noMemory;
        }
    }

    bool const m_live;
    int const m_wake;
    Sink const *m_sink = nullptr; // during Read
    // Packets that are missing: the system had no room for them; there was no memory to hand them on.
    std::uint64_t m_dropped = 0, m_noMemory = 0;
};

// Of one GigE Vision camera. The filter in the system copies no more of a stream packet than a line can show, and
// nothing where nobody wants stream packets. Datagrams of the camera for ports that are not known yet are copied as
// well: the packet that gives the port may be in the ring already, ahead of them.
class GigECapture final : public CaptureSource
{
public:
    GigECapture(pcap_t *handle, std::unique_ptr<GigEFraming> framing, std::string camera)
        : CaptureSource(handle, std::move(framing), true),
          m_streamPort(static_cast<GigEFraming const &>(*m_framing).GetStreamPort()),
          m_camera(std::move(camera))
    {
        AttachFilter();
    }
    void SetStreamWanted(bool wanted) override
    {
        CaptureSource::SetStreamWanted(wanted);
        if (wanted == m_streamWanted && m_streamPort.All() == m_filteredPorts)
            return;
        m_streamWanted = wanted;
        AttachFilter();
    }

private:
    void AttachFilter()
    {
        m_filteredPorts = m_streamPort.All();
        std::vector<sock_filter> program;
        for (std::uint16_t const port : m_filteredPorts) {
            if (port != 0)
                Append(program, "udp and src host " + m_camera + " and dst port " + std::to_string(port),
                       m_streamWanted ? StreamSnap : 0, false);
        }
        Append(program, "udp and host " + m_camera + " and ip[6:2] & 0x1fff = 0", ControlSnap, true);
        sock_fprog const attached{static_cast<unsigned short>(program.size()), program.data()};
        // Not by libpcap, which empties the ring when a filter changes. Without a filter the framing still finds what
        // is ours.
        setsockopt(pcap_fileno(m_handle), SOL_SOCKET, SO_ATTACH_FILTER, &attached, sizeof attached);
    }

    // What the expression accepts is copied up to `snap` bytes. What it does not accept is left to the next one.
    void Append(std::vector<sock_filter> &program, std::string const &expression, std::uint32_t snap, bool last)
    {
        bpf_program compiled;
        if (pcap_compile(m_handle, &compiled, expression.c_str(), 1, PCAP_NETMASK_UNKNOWN) != 0)
            return;
        for (unsigned i = 0; i < compiled.bf_len; ++i) {
            bpf_insn const &from = compiled.bf_insns[i];
            sock_filter one{from.code, from.jt, from.jf, from.k};
            if (one.code == (BPF_RET | BPF_K)) {
                if (one.k != 0)
                    one.k = snap;
                else if (!last)
                    one = {BPF_JMP | BPF_JA, 0, 0, compiled.bf_len - 1 - i};
            }
            program.push_back(one);
        }
        pcap_freecode(&compiled);
    }

    FollowedPort const &m_streamPort;
    std::string const m_camera;
    bool m_streamWanted = true;
    std::array<std::uint16_t, 2> m_filteredPorts{};
};

// No source, and why.
std::nullptr_t Refuse(std::int32_t *status, std::int32_t error, TovCam::CaptureFailure *failure,
                      TovCam::CaptureRefusal refusal, std::string const &place, std::string const &reason)
{
    *status = error;
    if (failure)
        *failure = {refusal, place, reason};
    return nullptr;
}

// An activated capture, or null. The system keeps packets in a ring of `ring` bytes, 0 for its own choice.
pcap_t *Activate(std::string const &device, int snap, int ring, std::int32_t *status, TovCam::CaptureFailure *failure)
{
    char text[PCAP_ERRBUF_SIZE] = "";
    pcap_t *const handle = pcap_create(device.c_str(), text);
    int result = PCAP_ERROR;
    if (handle && pcap_set_snaplen(handle, snap) == 0 && pcap_set_timeout(handle, RingDelay) == 0 &&
        (ring == 0 || pcap_set_buffer_size(handle, ring) == 0))
        result = pcap_activate(handle);
    if (result >= 0 && pcap_setnonblock(handle, 1, text) == 0 && pcap_get_selectable_fd(handle) >= 0) {
        *status = TOV_CAM_ERR_OK;
        return handle;
    }
    bool const denied = result == PCAP_ERROR_PERM_DENIED || result == PCAP_ERROR_PROMISC_PERM_DENIED;
    std::string reason = handle ? pcap_geterr(handle) : text;
    if (reason.empty())
        reason = result < 0 ? pcap_statustostr(result) : text;
    if (handle)
        pcap_close(handle);
    return Refuse(status, denied ? TOV_CAM_ERR_GENICAM_ACCESS : TOV_CAM_ERR_NO_DEVICE, failure,
                  denied ? TovCam::CaptureRefusal::NoRight : TovCam::CaptureRefusal::NoAdapter, device, reason);
}

} // namespace

std::unique_ptr<PacketSource> OpenGigECapture(std::string const &adapter, std::string const &camera,
                                              std::int32_t *status, TovCam::CaptureFailure *failure)
{
    using TovCam::CaptureRefusal;
    in_addr address;
    if (adapter.empty() || inet_pton(AF_INET, camera.c_str(), &address) != 1)
        return Refuse(status, TOV_CAM_ERR_NO_DEVICE, failure, CaptureRefusal::NoAdapter, adapter, {});
    pcap_t *const handle = Activate(adapter, ControlSnap, RingBytes, status, failure);
    if (!handle)
        return nullptr;
    int const link = pcap_datalink(handle);
    if (!GigEFraming::Knows(link)) {
        pcap_close(handle);
        return Refuse(status, TOV_CAM_ERR_NO_DEVICE, failure, CaptureRefusal::NoAdapter, adapter,
                      "not an Ethernet adapter");
    }
    // A packet on loopback goes out and comes in; once is enough.
    if (adapter == "lo") {
        int const ignore = 1;
        setsockopt(pcap_fileno(handle), SOL_PACKET, PACKET_IGNORE_OUTGOING, &ignore, sizeof ignore);
    }
    return std::make_unique<GigECapture>(handle, std::make_unique<GigEFraming>(link, ntohl(address.s_addr)), camera);
}

std::unique_ptr<PacketSource> OpenUsbCapture(UsbCamera const &camera, std::int32_t *status,
                                             TovCam::CaptureFailure *failure)
{
    std::string const monitor = "usbmon" + std::to_string(camera.bus);
    pcap_t *const handle = Activate(monitor, UsbSnap, 0, status, failure);
    if (!handle)
        return nullptr;
    int const link = pcap_datalink(handle);
    if (UsbFraming::Knows(link))
        return std::make_unique<CaptureSource>(handle, std::make_unique<UsbFraming>(link, camera), true);
    pcap_close(handle);
    return Refuse(status, TOV_CAM_ERR_NO_DEVICE, failure, TovCam::CaptureRefusal::NoAdapter, monitor, {});
}

std::unique_ptr<PacketSource> OpenCaptureFile(std::string const &path, std::int32_t *status,
                                              TovCam::CaptureFailure *failure)
{
    std::FILE *const file = std::fopen(path.c_str(), "rbe");
    if (!file)
        return Refuse(status, TOV_CAM_ERR_FILE_NOT_FOUND, failure, TovCam::CaptureRefusal::NoFile, path,
                      std::strerror(errno));
    std::unique_ptr<PacketSource> source = OpenCaptureFile(file, status, failure);
    if (!source && failure)
        failure->place = path;
    return source;
}

std::unique_ptr<PacketSource> OpenCaptureFile(std::FILE *file, std::int32_t *status, TovCam::CaptureFailure *failure)
{
    using TovCam::CaptureRefusal;
    char text[PCAP_ERRBUF_SIZE];
    pcap_t *const handle = pcap_fopen_offline(file, text);
    if (!handle) {
        std::fclose(file);
        return Refuse(status, TOV_CAM_ERR_FILE_READ, failure, CaptureRefusal::NotACapture, {}, text);
    }
    std::unique_ptr<PacketFraming> framing;
    int const link = pcap_datalink(handle);
    if (GigEFraming::Knows(link))
        framing = std::make_unique<GigEFraming>(link, 0);
    else if (UsbFraming::Knows(link))
        framing = std::make_unique<UsbFraming>(link, UsbCamera());
    if (!framing) {
        pcap_close(handle);
        return Refuse(status, TOV_CAM_ERR_FILE_READ, failure, CaptureRefusal::NotACapture, {},
                      "neither Ethernet nor the USB monitor");
    }
    *status = TOV_CAM_ERR_OK;
    return std::make_unique<CaptureSource>(handle, std::move(framing), false);
}
