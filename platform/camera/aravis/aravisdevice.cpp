#include "aravisdevice.h"

#include "aravisstream.h"
#include "packettap/usbframing.h"

namespace {

using namespace std::chrono_literals;

// Far more than a healthy camera needs to be closed; with the stream's, less than a second.
constexpr auto ClosePatience = 400ms;

// What the signal of a loss keeps.
using RelayReference = std::shared_ptr<LossRelay>;

void OnControlLost(ArvDevice *, gpointer relay)
{
    RelayReference const held = *static_cast<RelayReference *>(relay);
    held->Notify();
}

void ForgetRelay(gpointer relay, GClosure *)
{
    delete static_cast<RelayReference *>(relay);
}

} // namespace

AravisDevice::AravisDevice(ArvDevice *device, DeviceInfoImpl *info)
    : RealDevice(device, info),
      m_stream(std::make_unique<AravisStream>(m_device, m_access, m_reachability))
{
    m_lossHandler = g_signal_connect_data(m_device, "control-lost", G_CALLBACK(OnControlLost),
                                          new RelayReference(m_relay), ForgetRelay, GConnectFlags(0));
}

AravisDevice::~AravisDevice() = default;

std::unique_ptr<PacketSource> AravisDevice::OpenSource(std::int32_t *status, TovCam::CaptureFailure *failure)
{
    UsbCamera camera;
    if (FindUsbCamera(m_info->vendor, m_info->serial, camera))
        return OpenUsbCapture(camera, status, failure);
    *status = TOV_CAM_ERR_NO_DEVICE;
    failure->refusal = TovCam::CaptureRefusal::NoAdapter;
    return nullptr;
}

bool AravisDevice::BeginRelease()
{
    if (!RealDevice::BeginRelease())
        return false;
    g_signal_handler_disconnect(m_device, m_lossHandler);
    return true;
}

void AravisDevice::Close()
{
    m_stream->Close();
    RealDevice::Close();
}

void AravisDevice::SayGoodbye(ArvDevice *device, bool mayWait)
{
    // Dropping the last reference may wait long for a camera that is gone: not on the caller's thread then.
    if (mayWait)
        Background::Run([device] { g_object_unref(device); }, ClosePatience);
    else
        g_object_unref(device);
}

TovCam::Stream *AravisDevice::GetStreamByIndex(std::uint32_t index)
{
    return index == 0 ? m_stream.get() : nullptr;
}
