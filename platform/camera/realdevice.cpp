#include "realdevice.h"

#include "background.h"
#include "storestatus.h"

#include <cstdlib>

using namespace std::chrono_literals;

RealDevice::RealDevice(ArvDevice *device, DeviceInfoImpl *info, std::function<bool()> isSilent,
                       std::function<void(bool)> hurry)
    : DeviceBase(device, info),
      m_reachability(
          [giveUp = m_giveUp, isSilent = std::move(isSilent)] { return giveUp->IsOver() || (isSilent && isSilent()); },
          std::move(hurry)),
      m_relay(std::make_shared<LossRelay>([this] { OnLost(); })),
      m_taps(m_events, [this](std::int32_t *status) { return OpenTap(status); })
{
    m_nodes.SetGate(&m_reachability);
}

RealDevice::~RealDevice() = default;

void RealDevice::OnLost()
{
    m_reachability.SetLost();
    m_info->access.store(TovCam::DeviceInfo::AccessUnknown, std::memory_order_relaxed);
    m_events.Emit(TovCam::EventConnectionLost, nullptr, 0);
}

// A file given by the environment takes the place of the road to the camera.
std::unique_ptr<PacketSource> RealDevice::OpenTap(std::int32_t *status)
{
    TovCam::CaptureFailure failure;
    char const *const file = std::getenv("TOV_PACKET_CAPTURE");
    std::unique_ptr<PacketSource> source =
        file && *file ? OpenCaptureFile(std::string(file), status, &failure) : OpenSource(status, &failure);
    std::lock_guard const lock(m_failureMutex);
    m_failure = std::move(failure);
    return source;
}

TovCam::CaptureFailure RealDevice::GetCaptureFailure()
{
    std::lock_guard const lock(m_failureMutex);
    return m_failure;
}

bool RealDevice::BeginRelease()
{
    if (m_relay->IsInside() || m_taps.IsOnThread()) {
        // From the callback itself: the thread it runs on could neither be waited for nor end the device.
        Background::Run([this] { Release(); }, 0ms);
        return false;
    }
    m_relay->Close();
    m_taps.Close();
    return true;
}

void RealDevice::Close()
{
    if (!m_reachability.IsLost())
        m_info->access.store(TovCam::DeviceInfo::AccessFree, std::memory_order_relaxed);
    if (m_info->GetOpenFailure().isOurs)
        m_info->SetOpenFailure({});
}

std::int32_t RealDevice::RegisterEvent(std::uint32_t id, TovCam::EventCallback callback, void *user)
{
    // No library shows packets: they are captured.
    if (PacketTaps::IsPacketChannel(id)) {
        bool started = false;
        std::int32_t const status = m_taps.Register(id, callback, user, &started);
        if (status == TOV_CAM_ERR_OK && started)
            OnTapStarted();
        return status;
    }
    std::int32_t const status = DeviceBase::RegisterEvent(id, callback, user);
    // A loss before the subscription is reported all the same.
    if (status == TOV_CAM_ERR_OK && m_reachability.IsLost())
        Background::Run([relay = m_relay] { relay->Notify(); }, 0ms);
    return status;
}

std::int32_t RealDevice::UnregisterEvent(std::uint32_t id, TovCam::EventCallback callback, void *user)
{
    return PacketTaps::IsPacketChannel(id) ? m_taps.Unregister(id, callback, user)
                                           : DeviceBase::UnregisterEvent(id, callback, user);
}

std::int32_t RealDevice::ReadRegister(std::uint64_t address, void *buffer, std::size_t size)
{
    std::lock_guard<std::recursive_mutex> lock(m_access);
    std::int32_t status = m_reachability.Enter();
    if (status == TOV_CAM_ERR_OK)
        status = DeviceBase::ReadRegister(address, buffer, size);
    m_reachability.Leave();
    return status;
}

bool RealDevice::CanServe(std::uint32_t eventId) const
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
