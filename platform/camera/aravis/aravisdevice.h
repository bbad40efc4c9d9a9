// An open GigE Vision or USB3 Vision camera.
#pragma once

#include "background.h"

#include "devicebase.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <string>

class AravisStream;

// Whether a camera answers. A register access to a dead GigE Vision camera takes seconds, and Aravis reports the loss
// only after several of them, so after one slow access the camera is asked for a sign of life before each further one.
class Reachability final : public AccessGate
{
public:
    explicit Reachability(std::string address); // "" where asking is not possible
    std::int32_t Enter() override;
    void Leave() override;
    // From now on every access is refused.
    void SetLost();
    bool IsLost() const;
    // Refused until the job is over, which waits for the camera. With the device's lock held.
    void SetClosing(std::shared_ptr<BackgroundJob const> job);

private:
    std::string const m_address;
    std::atomic<bool> m_lost{false};

    // Guarded by the device's lock.
    bool m_suspect = false;
    std::shared_ptr<BackgroundJob const> m_closing;
    std::chrono::steady_clock::time_point m_entered;
};

class AravisDevice final : public DeviceBase
{
public:
    // Takes over the reference. `address` is the camera's IP address, "" for USB3 Vision.
    AravisDevice(ArvDevice *device, DeviceInfoImpl *info, std::string const &address);

    void Release() override;
    TovCam::Stream *GetStreamByIndex(std::uint32_t index) override;
    std::int32_t RegisterEvent(std::uint32_t id, TovCam::EventCallback callback, void *user) override;
    std::int32_t ReadRegister(std::uint64_t address, void *buffer, std::size_t size) override;

protected:
    bool CanServe(std::uint32_t eventId) const override;

private:
    struct LossRelay;
    ~AravisDevice() override;
    void Negotiate();
    void OnControlLost();

    Reachability m_reachability;
    std::shared_ptr<LossRelay> m_relay;
    unsigned long m_lossHandler = 0;
    std::unique_ptr<AravisStream> m_stream;
};

// A camera that is there and whose description cannot be used: open, without parameters.
TovCam::Device *MakeUndescribedDevice(DeviceInfoImpl *info, std::int32_t status);
