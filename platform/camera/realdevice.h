// What the cameras have that are not simulated: they can be lost, they fall silent, and their packets are captured.
#pragma once

#include "aravis/reachability.h"
#include "devicebase.h"
#include "lossrelay.h"
#include "packettap/packettap.h"

#include <memory>
#include <mutex>

class RealDevice : public DeviceBase
{
public:
    std::int32_t RegisterEvent(std::uint32_t id, TovCam::EventCallback callback, void *user) override;
    std::int32_t UnregisterEvent(std::uint32_t id, TovCam::EventCallback callback, void *user) override;
    std::int32_t ReadRegister(std::uint64_t address, void *buffer, std::size_t size) override;
    TovCam::CaptureFailure GetCaptureFailure() override;

protected:
    // Takes over the reference. `isSilent` and `hurry` as Reachability's.
    RealDevice(ArvDevice *device, DeviceInfoImpl *info, std::function<bool()> isSilent = {},
               std::function<void(bool)> hurry = {});
    ~RealDevice() override;

    bool CanServe(std::uint32_t eventId) const override;
    bool BeginRelease() override;
    void Close() override; // sets the camera free in the list

    // Where the camera's packets come by.
    virtual std::unique_ptr<PacketSource> OpenSource(std::int32_t *status, TovCam::CaptureFailure *failure) = 0;
    // A tap has begun to listen. On the thread of the one who subscribed.
    virtual void OnTapStarted()
    {
    }

    Reachability m_reachability;
    std::shared_ptr<LossRelay> const m_relay; // to be told of a loss

private:
    void OnLost();
    std::unique_ptr<PacketSource> OpenTap(std::int32_t *status);

    PacketTaps m_taps;
    std::mutex m_failureMutex;          // alone
    TovCam::CaptureFailure m_failure{}; // m_failureMutex; of the last attempt to open a tap
};

// A camera that is there and whose description cannot be used: open, without parameters.
TovCam::Device *MakeUndescribedDevice(DeviceInfoImpl *info, std::int32_t status);
