// An open USB3 Vision camera.
#pragma once

#include "realdevice.h"

class AravisStream;

class AravisDevice final : public RealDevice
{
public:
    // Takes over the reference.
    AravisDevice(ArvDevice *device, DeviceInfoImpl *info);

    TovCam::Stream *GetStreamByIndex(std::uint32_t index) override;

protected:
    bool BeginRelease() override;
    void Close() override;
    void SayGoodbye(ArvDevice *device, bool mayWait) override;
    std::unique_ptr<PacketSource> OpenSource(std::int32_t *status, TovCam::CaptureFailure *failure) override;

private:
    ~AravisDevice() override;

    unsigned long m_lossHandler = 0;
    std::unique_ptr<AravisStream> m_stream;
};
