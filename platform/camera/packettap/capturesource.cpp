// The sources that libpcap reads: the USB monitor, and files.
#include "packetsource.h"

#include "gigeframing.h"
#include "usbframing.h"

#include <cerrno>
#include <cstring>
#include <new>
#include <pcap/pcap.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;

constexpr int RingDelay = 20; // ms until a block of the ring that is not full is handed over
// The monitor's ring is five times this, and holds at least five transfers, of which it keeps so much.
constexpr int UsbSnap = 8192;
constexpr auto ErrorPause = 200ms; // what is gone may come back

class CaptureSource final : public PacketSource
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

    pcap_t *const m_handle;
    std::unique_ptr<PacketFraming> const m_framing;
    bool const m_live;
    int const m_wake;
    Sink const *m_sink = nullptr; // during Read
    // Packets that are missing: the system had no room for them; there was no memory to hand them on.
    std::uint64_t m_dropped = 0, m_noMemory = 0;
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

// An activated capture, or null.
pcap_t *Activate(std::string const &device, int snap, std::int32_t *status, TovCam::CaptureFailure *failure)
{
    char text[PCAP_ERRBUF_SIZE] = "";
    pcap_t *const handle = pcap_create(device.c_str(), text);
    int result = PCAP_ERROR;
    if (handle && pcap_set_snaplen(handle, snap) == 0 && pcap_set_timeout(handle, RingDelay) == 0)
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

std::unique_ptr<PacketSource> OpenUsbCapture(UsbCamera const &camera, std::int32_t *status,
                                             TovCam::CaptureFailure *failure)
{
    std::string const monitor = "usbmon" + std::to_string(camera.bus);
    pcap_t *const handle = Activate(monitor, UsbSnap, status, failure);
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
