#include "aravisdevice.h"

#include "aravisstream.h"
#include "gvcpclient.h"
#include "hostfacts.h"
#include "packettap/usbframing.h"
#include "protocol/gigevision.h"
#include "storestatus.h"

#include <cstdlib>

namespace {

using namespace std::chrono_literals;

// Far more than a healthy camera needs to be closed.
constexpr auto ClosePatience = 1000ms;

// Frames over loopback come from a program, not through a network whose packets have to stay small.
constexpr guint LoopbackPacketSize = 8192;

bool IsLoopback(ArvGvDevice *device)
{
    GSocketAddress *const address = arv_gv_device_get_interface_address(device);
    return g_inet_address_get_is_loopback(g_inet_socket_address_get_address(G_INET_SOCKET_ADDRESS(address)));
}

} // namespace

// What the thread that reports a loss knows of the device, which may be released meanwhile.
struct AravisDevice::LossRelay
{
    std::mutex mutex; // guards the rest
    std::condition_variable idle;
    AravisDevice *device = nullptr;
    std::thread::id inside; // the thread in OnControlLost

    static void Notify(std::shared_ptr<LossRelay> const &relay)
    {
        std::unique_lock<std::mutex> lock(relay->mutex);
        relay->idle.wait(lock, [&relay] { return relay->inside == std::thread::id(); });
        if (!relay->device)
            return;
        relay->inside = std::this_thread::get_id();
        lock.unlock();
        relay->device->OnControlLost();
        lock.lock();
        relay->inside = {};
        relay->idle.notify_all();
    }
    static void OnSignal(ArvDevice *, gpointer relay)
    {
        Notify(*static_cast<std::shared_ptr<LossRelay> *>(relay));
    }
    static void Forget(gpointer relay, GClosure *)
    {
        delete static_cast<std::shared_ptr<LossRelay> *>(relay);
    }
};

AravisDevice::AravisDevice(ArvDevice *device, DeviceInfoImpl *info, std::string const &address)
    : DeviceBase(device, info),
      m_address(address),
      m_reachability(address),
      m_relay(std::make_shared<LossRelay>()),
      m_taps(m_events, [this](std::int32_t *status) { return OpenTap(status); })
{
    m_nodes.SetGate(&m_reachability);
    if (m_nodes.GetStatus() == TOV_CAM_ERR_OK)
        Negotiate();
    m_stream = std::make_unique<AravisStream>(m_device, m_access, m_reachability);
    m_relay->device = this;
    m_lossHandler = g_signal_connect_data(m_device, "control-lost", G_CALLBACK(LossRelay::OnSignal),
                                          new std::shared_ptr<LossRelay>(m_relay), LossRelay::Forget, GConnectFlags(0));
}

AravisDevice::~AravisDevice() = default;

void AravisDevice::Negotiate()
{
    if (!ARV_IS_GV_DEVICE(m_device))
        return;
    ArvGvDevice *const camera = ARV_GV_DEVICE(m_device);
    std::lock_guard<std::recursive_mutex> lock(m_access);
    // A camera that cannot do it keeps its packet size.
    if (IsLoopback(camera)) {
        // A privileged process would otherwise take a packet socket, which hears nothing there.
        arv_gv_device_set_stream_options(camera, ARV_GV_STREAM_OPTION_PACKET_SOCKET_DISABLED);
        arv_gv_device_set_packet_size(camera, LoopbackPacketSize, nullptr);
    } else {
        arv_gv_device_auto_packet_size(camera, nullptr);
    }
}

void AravisDevice::OnControlLost()
{
    m_reachability.SetLost();
    m_info->access.store(TovCam::DeviceInfo::AccessUnknown, std::memory_order_relaxed);
    m_events.Emit(TovCam::EventConnectionLost, nullptr, 0);
}

// The road to the camera. A file given by the environment takes its place.
std::unique_ptr<PacketSource> AravisDevice::OpenTap(std::int32_t *status)
{
    TovCam::CaptureFailure failure;
    std::unique_ptr<PacketSource> source;
    UsbCamera camera;
    if (char const *const file = std::getenv("TOV_PACKET_CAPTURE"); file && *file) {
        source = OpenCaptureFile(std::string(file), status, &failure);
    } else if (!m_address.empty()) {
        // What goes to an address of this host does not leave it.
        std::string adapter = "lo";
        if (FindAdapter(m_address).empty())
            adapter = FindAdapter(GvcpClient(m_address).GetLocalAddress());
        source = OpenGigECapture(adapter, m_address, status, &failure);
    } else if (FindUsbCamera(m_info->vendor, m_info->serial, camera)) {
        source = OpenUsbCapture(camera, status, &failure);
    } else {
        *status = TOV_CAM_ERR_NO_DEVICE;
        failure.refusal = TovCam::CaptureRefusal::NoAdapter;
    }
    std::lock_guard const lock(m_failureMutex);
    m_failure = std::move(failure);
    return source;
}

TovCam::CaptureFailure AravisDevice::GetCaptureFailure()
{
    std::lock_guard const lock(m_failureMutex);
    return m_failure;
}

// The tap hears the answers, and so learns where a running camera's stream and events go. By a socket of its own, so
// that a slow access elsewhere does not hold up the caller.
void AravisDevice::AskForPorts()
{
    if (m_address.empty() || m_reachability.IsLost())
        return;
    GvcpClient camera(m_address);
    std::uint32_t port;
    if (camera.ReadRegister(gvcp::bootstrap::StreamChannelPort, port))
        camera.ReadRegister(gvcp::bootstrap::MessageChannelPort, port);
}

bool AravisDevice::BeginRelease()
{
    {
        std::unique_lock<std::mutex> lock(m_relay->mutex);
        if (m_relay->inside == std::this_thread::get_id() || m_taps.IsOnThread()) {
            // From the callback itself: the thread it runs on could neither be waited for nor end the device.
            lock.unlock();
            Background::Run([this] { Release(); }, 0ms);
            return false;
        }
        m_relay->idle.wait(lock, [this] { return m_relay->inside == std::thread::id(); });
        m_relay->device = nullptr;
    }
    g_signal_handler_disconnect(m_device, m_lossHandler);
    m_taps.Close();
    return true;
}

void AravisDevice::Close()
{
    m_stream->Close();
    if (!m_reachability.IsLost())
        m_info->access.store(TovCam::DeviceInfo::AccessFree, std::memory_order_relaxed);
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

std::int32_t AravisDevice::RegisterEvent(std::uint32_t id, TovCam::EventCallback callback, void *user)
{
    // Aravis shows no packets: they are captured.
    if (PacketTaps::IsPacketChannel(id)) {
        bool started = false;
        std::int32_t const status = m_taps.Register(id, callback, user, &started);
        if (status == TOV_CAM_ERR_OK && started)
            AskForPorts();
        return status;
    }
    std::int32_t const status = DeviceBase::RegisterEvent(id, callback, user);
    // A loss before the subscription is reported all the same.
    if (status == TOV_CAM_ERR_OK && m_reachability.IsLost())
        Background::Run([relay = m_relay] { LossRelay::Notify(relay); }, 0ms);
    return status;
}

std::int32_t AravisDevice::UnregisterEvent(std::uint32_t id, TovCam::EventCallback callback, void *user)
{
    return PacketTaps::IsPacketChannel(id) ? m_taps.Unregister(id, callback, user)
                                           : DeviceBase::UnregisterEvent(id, callback, user);
}

std::int32_t AravisDevice::ReadRegister(std::uint64_t address, void *buffer, std::size_t size)
{
    std::lock_guard<std::recursive_mutex> lock(m_access);
    std::int32_t status = m_reachability.Enter();
    if (status == TOV_CAM_ERR_OK)
        status = DeviceBase::ReadRegister(address, buffer, size);
    m_reachability.Leave();
    return status;
}

bool AravisDevice::CanServe(std::uint32_t eventId) const
{
    return eventId == TovCam::EventConnectionLost || eventId == TovCam::EventPacketsMissed;
}

// ---- A camera without a description --------------------------------------------------------------------------------

namespace {

class UndescribedDevice final : public TovCam::Device
{
public:
    UndescribedDevice(DeviceInfoImpl *info, std::int32_t status) : m_info(info), m_status(status)
    {
    }
    void Release() override
    {
        delete this;
    }
    TovCam::Stream *GetStreamByIndex(std::uint32_t) override
    {
        return nullptr;
    }
    TovCam::DeviceInfo *GetDeviceInfo() override
    {
        return m_info;
    }
    std::int32_t RegisterEvent(std::uint32_t, TovCam::EventCallback, void *) override
    {
        return TOV_CAM_ERR_INVALID_STATE;
    }
    std::int32_t UnregisterEvent(std::uint32_t, TovCam::EventCallback, void *) override
    {
        return TOV_CAM_ERR_INVALID_STATE;
    }
    TovCam::ParamArray *GetCameraParameters(std::int32_t *error) override
    {
        StoreStatus(error, m_status);
        return nullptr;
    }
    std::int32_t ReadRegister(std::uint64_t, void *, std::size_t) override
    {
        return TOV_CAM_ERR_INVALID_STATE;
    }
    std::int32_t SaveConfiguration(char const *) override
    {
        return TOV_CAM_ERR_INVALID_STATE;
    }
    std::int32_t LoadConfiguration(char const *) override
    {
        return TOV_CAM_ERR_INVALID_STATE;
    }

private:
    SystemHold m_hold; // keeps the camera's information alive
    DeviceInfoImpl *const m_info;
    std::int32_t const m_status;
};

} // namespace

TovCam::Device *MakeUndescribedDevice(DeviceInfoImpl *info, std::int32_t status)
{
    return new UndescribedDevice(info, status);
}
