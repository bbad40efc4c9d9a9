// An open GigE Vision or USB3 Vision camera.
#pragma once

#include "reachability.h"

#include "devicebase.h"
#include "packettap/packettap.h"

#include <memory>
#include <mutex>
#include <string>

class AravisStream;

class AravisDevice final : public DeviceBase
{
public:
    // Takes over the reference. `address` is the camera's IP address, "" for USB3 Vision.
    AravisDevice(ArvDevice *device, DeviceInfoImpl *info, std::string const &address);

    TovCam::Stream *GetStreamByIndex(std::uint32_t index) override;
    std::int32_t RegisterEvent(std::uint32_t id, TovCam::EventCallback callback, void *user) override;
    std::int32_t UnregisterEvent(std::uint32_t id, TovCam::EventCallback callback, void *user) override;
    std::int32_t ReadRegister(std::uint64_t address, void *buffer, std::size_t size) override;
    TovCam::CaptureFailure GetCaptureFailure() override;

protected:
    bool CanServe(std::uint32_t eventId) const override;
    bool BeginRelease() override;
    void Close() override;
    void SayGoodbye(ArvDevice *device, bool mayWait) override;

private:
    struct LossRelay;
    ~AravisDevice() override;
    void Negotiate();
    void OnControlLost();
    std::unique_ptr<PacketSource> OpenTap(std::int32_t *status);
    void AskForPorts();

    std::string const m_address;
    Reachability m_reachability;
    std::shared_ptr<LossRelay> m_relay;
    unsigned long m_lossHandler = 0;
    std::unique_ptr<AravisStream> m_stream;
    PacketTaps m_taps;
    std::mutex m_failureMutex;          // alone
    TovCam::CaptureFailure m_failure{}; // m_failureMutex; of the last attempt to open a tap
};

// A camera that is there and whose description cannot be used: open, without parameters.
TovCam::Device *MakeUndescribedDevice(DeviceInfoImpl *info, std::int32_t status);
