#include "gigedevice.h"

#include "description.h"
#include "gigestream.h"
#include "gvcpclient.h"
#include "hostfacts.h"
#include "openwatch.h"
#include "packetsize.h"
#include "protocol/gigevision.h"
#include "registerdevice.h"
#include "ringsource.h"
#include "standardnodes.h"
#include "statisticnodes.h"

#include <limits>

namespace {

using namespace std::chrono_literals;

// Far more than a healthy camera needs to be closed.
constexpr auto ClosePatience = 1000ms;

// What StatusFromError makes the same status of.
ArvDeviceError ErrorOf(std::int32_t status, bool isClosed)
{
    switch (status) {
    case TOV_CAM_ERR_NO_DEVICE:
        return isClosed ? ARV_DEVICE_ERROR_NOT_CONNECTED : ARV_DEVICE_ERROR_TIMEOUT;
    case TOV_CAM_ERR_GENICAM_ACCESS:
        return ARV_DEVICE_ERROR_PROTOCOL_ERROR_ACCESS_DENIED;
    case TOV_CAM_ERR_GENICAM_INVALID_ARGUMENT:
        return ARV_DEVICE_ERROR_PROTOCOL_ERROR_INVALID_PARAMETER;
    default:
        return ARV_DEVICE_ERROR_PROTOCOL_ERROR;
    }
}

} // namespace

// The camera's registers. As the ArvDevice: one thread at a time.
class GigePort final : public RegisterPort
{
public:
    // `readsRegisters`: as the description of the camera means it, by IsLegacyDescription.
    GigePort(ControlChannel &channel, bool readsRegisters) : m_channel(channel), m_readsRegisters(readsRegisters)
    {
    }

    // What the numbers of the stream are read from; until then they cannot be.
    void SetStatistics(StreamStatistics const *statistics)
    {
        m_statistics = statistics;
    }

    bool Read(std::uint64_t address, std::uint32_t size, std::uint8_t *out, GError **error) override
    {
        if (m_statistics && IsStatistic(address, size)) {
            ReadStatistic(*m_statistics, address, out);
            return true;
        }
        if (IsRegister(address, size)) {
            std::uint32_t value = 0;
            bool const read = ReadRegister(address, value, error);
            StoreBig32(out, value);
            return read;
        }
        return Tell(Fits(address, size) ? m_channel.ReadMemory(static_cast<std::uint32_t>(address), {out, size})
                                        : static_cast<std::int32_t>(TOV_CAM_ERR_GENICAM_GENERIC),
                    error);
    }
    bool Write(std::uint64_t address, std::uint32_t size, std::uint8_t const *bytes, GError **error) override
    {
        if (IsRegister(address, size))
            return WriteRegister(address, LoadBig32(bytes), error);
        return Tell(Fits(address, size) ? m_channel.WriteMemory(static_cast<std::uint32_t>(address), {bytes, size})
                                        : static_cast<std::int32_t>(TOV_CAM_ERR_GENICAM_GENERIC),
                    error);
    }
    bool ReadRegister(std::uint64_t address, std::uint32_t &value, GError **error) override
    {
        return Tell(Fits(address, sizeof value) ? m_channel.ReadRegister(static_cast<std::uint32_t>(address), value)
                                                : static_cast<std::int32_t>(TOV_CAM_ERR_GENICAM_GENERIC),
                    error);
    }
    bool WriteRegister(std::uint64_t address, std::uint32_t value, GError **error) override
    {
        return Tell(Fits(address, sizeof value) ? m_channel.WriteRegister(static_cast<std::uint32_t>(address), value)
                                                : static_cast<std::int32_t>(TOV_CAM_ERR_GENICAM_GENERIC),
                    error);
    }
    bool IsBigEndian() const override
    {
        return true;
    }

private:
    static bool Fits(std::uint64_t address, std::uint32_t size)
    {
        constexpr std::uint64_t Last = std::numeric_limits<std::uint32_t>::max();
        return address <= Last && size <= Last - address + 1;
    }
    bool IsRegister(std::uint64_t address, std::uint32_t size) const
    {
        return m_readsRegisters && size == gvcp::RegisterSize && address % gvcp::RegisterSize == 0;
    }
    bool Tell(std::int32_t status, GError **error) const
    {
        if (status != TOV_CAM_ERR_OK)
            g_set_error(error, ARV_DEVICE_ERROR, ErrorOf(status, m_channel.IsLost()), "Status %d of the camera",
                        status);
        return status == TOV_CAM_ERR_OK;
    }

    ControlChannel &m_channel;
    bool const m_readsRegisters;
    StreamStatistics const *m_statistics = nullptr;
};

struct GigeDevice::Connection
{
    explicit Connection(std::string const &address) : channel(address)
    {
    }

    ControlChannel channel;
    std::string xml;
    std::unique_ptr<GigePort> port;
    ArvDevice *device = nullptr; // the DeviceBase's reference
};

GigeDevice *GigeDevice::Open(DeviceInfoImpl *info, OpenWatch &watch, std::int32_t *error, std::string *why)
{
    using Stage = TovCam::OpenProgress::Stage;
    auto const connection = std::make_shared<Connection>(info->address);
    connection->channel.Follow(&watch);
    std::int32_t status = connection->channel.Open();
    if (status == TOV_CAM_ERR_OK)
        status = DownloadDescription(connection->channel, watch, connection->xml, why);
    watch.Enter(Stage::Preparing);
    if (status != TOV_CAM_ERR_OK) {
        *error = status;
        return nullptr;
    }
    connection->device = NewRegisterDevice(connection->xml);
    ArvGc *const genicam = arv_device_get_genicam(connection->device);
    if (!ARV_IS_GC(genicam)) {
        g_object_unref(connection->device);
        *why = "no features can be made of it";
        *error = TOV_CAM_ERR_GENICAM_TREE;
        return nullptr;
    }
    AddStandardNodes(genicam);
    AddStatisticNodes(genicam);
    connection->port = std::make_unique<GigePort>(connection->channel, IsLegacyDescription(genicam));
    SetRegisterPort(connection->device, connection->port.get());
    auto *const device = new GigeDevice(connection, info);
    connection->channel.Follow(nullptr);
    if (!watch.IsOver())
        return device;
    device->Release();
    *error = TOV_CAM_ERR_NO_DEVICE;
    return nullptr;
}

GigeDevice::GigeDevice(std::shared_ptr<Connection> connection, DeviceInfoImpl *info)
    : RealDevice(
          connection->device, info, [channel = &connection->channel] { return channel->IsSilent(); },
          [channel = &connection->channel](bool begins) { channel->Hurry(begins); }),
      m_connection(std::move(connection))
{
    ControlChannel &channel = m_connection->channel;
    {
        std::lock_guard<std::recursive_mutex> lock(m_access);
        NegotiatePacketSize(channel, channel.GetMtu());
    }
    // It keeps the connection for a goodbye that takes long.
    std::shared_ptr<StreamControl> const control(m_connection, &channel);
    m_stream = std::make_unique<GigeStream>(m_device, m_access, m_reachability, control);
    m_stream->SetSource([control](std::uint16_t port) {
        return OpenRingSource(control->GetCameraAddress(), control->GetHostAddress(), port);
    });
    {
        std::lock_guard<std::recursive_mutex> lock(m_access);
        m_connection->port->SetStatistics(&m_stream->GetStatistics());
    }
    m_info->SetFacts(this, [&statistics = m_stream->GetStatistics()] { return DescribeStatistics(statistics); });
    channel.SetGiveUpWatch(m_giveUp);
    channel.SetLossHandler([relay = m_relay] { relay->Notify(); });
}

GigeDevice::~GigeDevice() = default;

TovCam::Stream *GigeDevice::GetStreamByIndex(std::uint32_t index)
{
    return index == 0 ? m_stream.get() : nullptr;
}

std::uint64_t GigeDevice::GetSilence()
{
    return static_cast<std::uint64_t>(m_connection->channel.GetSilence().count());
}

bool GigeDevice::BeginRelease()
{
    if (!RealDevice::BeginRelease())
        return false;
    m_connection->channel.BeginClosing();
    return true;
}

std::unique_ptr<PacketSource> GigeDevice::OpenSource(std::int32_t *status, TovCam::CaptureFailure *failure)
{
    // What goes to an address of this host does not leave it.
    std::string adapter = "lo";
    if (FindAdapter(m_info->address).empty())
        adapter = FindAdapter(GvcpClient(m_info->address).GetLocalAddress());
    return OpenGigECapture(adapter, m_info->address, status, failure);
}

// The tap hears the answers, and so learns where a running camera's stream and events go. By a socket of its own, so
// that a slow access elsewhere does not hold up the caller.
void GigeDevice::OnTapStarted()
{
    if (m_reachability.IsLost())
        return;
    GvcpClient camera(m_info->address);
    std::uint32_t port;
    if (camera.ReadRegister(gvcp::bootstrap::StreamChannelPort, port))
        camera.ReadRegister(gvcp::bootstrap::MessageChannelPort, port);
}

void GigeDevice::Close()
{
    m_info->SetFacts(this, {});
    m_stream->Close();
    SetRegisterPort(m_device, nullptr);
    RealDevice::Close();
}

void GigeDevice::SayGoodbye(ArvDevice *device, bool mayWait)
{
    // The camera may not answer: not on the caller's thread then. The description stays as long as the ArvDevice.
    auto const end = [device, connection = m_connection] {
        connection->channel.Close();
        g_object_unref(device);
    };
    if (mayWait)
        Background::Run(end, ClosePatience);
    else
        end();
}
