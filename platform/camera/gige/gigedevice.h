// An open GigE Vision camera: its control channel and its stream are ours, its node map is one of Aravis over our
// registers.
#pragma once

#include "controlchannel.h"
#include "realdevice.h"

#include <memory>
#include <string>

class GigePort;
class GigeStream;
class OpenWatch;

class GigeDevice final : public RealDevice
{
public:
    // Takes control of the camera with the info's address and reads its description. Null with a status:
    // TOV_CAM_ERR_GENICAM_ACCESS when another program has control, TOV_CAM_ERR_NO_DEVICE when it does not answer or the
    // opening is over, TOV_CAM_ERR_GENICAM_TREE when its description cannot be used, which `why` tells in a few words.
    static GigeDevice *Open(DeviceInfoImpl *info, OpenWatch &watch, std::int32_t *error, std::string *why);

    TovCam::Stream *GetStreamByIndex(std::uint32_t index) override;
    std::uint64_t GetSilence() override;

protected:
    bool BeginRelease() override;
    void Close() override;
    void SayGoodbye(ArvDevice *device, bool mayWait) override;
    std::unique_ptr<PacketSource> OpenSource(std::int32_t *status, TovCam::CaptureFailure *failure) override;
    void OnTapStarted() override;

private:
    // What the ArvDevice is made of; kept until that is gone.
    struct Connection;

    GigeDevice(std::shared_ptr<Connection> connection, DeviceInfoImpl *info);
    ~GigeDevice() override;

    std::shared_ptr<Connection> const m_connection;
    std::unique_ptr<GigeStream> m_stream;
};
