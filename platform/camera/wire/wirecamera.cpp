#include "wirecamera.h"

#include "addressspace.h"
#include "framesender.h"
#include "gvcpserver.h"
#include "hostiledescription.h"
#include "registerdevice.h"
#include "wiresockets.h"

#include "aravisreleases.h"
#include "eventhub.h"
#include "sim/simcamera.h"
#include "sim/simstream.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <deque>
#include <future>
#include <mutex>
#include <new>
#include <stdexcept>
#include <sys/eventfd.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>

namespace B = gvcp::bootstrap;
namespace S = SimRegister;
namespace W = WireRegister;

namespace {

using Clock = GvcpServer::Clock;

constexpr auto RestartTime = std::chrono::seconds(1); // after DeviceReset
constexpr std::uint32_t GigabitLink = 1000;           // Mbit/s
constexpr std::uint32_t SmallestPacketSize = gvsp::SmallestPacket, LargestPacketSize = 9000;
constexpr std::uint64_t FirstActionTrigger = 10; // entries of TriggerSource

// A hardware address that nobody has given away, different for each address on the network.
std::uint64_t MacOf(std::uint32_t address)
{
    return std::uint64_t{0x0254} << 32 | address;
}

std::vector<SimModel const *> ServableModels()
{
    std::vector<SimModel const *> models;
    for (SimModel const &model : GetSimModels()) {
        if (model.kind == TovCam::InterfaceKindGigEVision)
            models.push_back(&model);
    }
    return models;
}

LocalAddress LocalAddressOf(std::string const &text)
{
    std::optional<std::uint32_t> const address = ParseAddress(text);
    if (!address)
        throw std::runtime_error(text + " is no IPv4 address");
    std::optional<LocalAddress> const local = FindLocalAddress(*address);
    if (!local)
        throw std::runtime_error(text + " is no address of this computer");
    return *local;
}

} // namespace

std::span<SimModel const *const> GetWireModels()
{
    static std::vector<SimModel const *> const models = ServableModels();
    return models;
}

// The calls of GvcpCamera and RegisterPort come on the control thread.
struct WireCamera::Impl final : private GvcpCamera, private RegisterPort
{
    Impl(WireCameraOptions const &options, std::unique_ptr<WireSockets> sockets);
    ~Impl() override;

    // Has the control thread do something and waits for it; what is thrown there is thrown here.
    template<class Task>
    auto Ask(Task task)
    {
        std::packaged_task<decltype(task())()> packaged(std::move(task));
        auto result = packaged.get_future();
        Post([&packaged] { packaged(); });
        return result.get();
    }

    // ---- On the control thread ----
    bool SetFeature(std::string const &name, std::string value, std::string &why);
    std::optional<std::string> GetFeature(std::string const &name, std::string &why);
    void Die();
    void Return(std::string const &address, bool reset);
    WireCameraStatus GetStatus() const;

private:
    void Post(std::function<void()> task);
    void Run();
    void RunTasks();
    void Wait();
    void Flush();
    void PowerUp();
    std::optional<LocalAddress> GetKeptAddress() const;
    WireDescription GetDescriptionKind() const;
    void ServeDescription(bool isFirst = true);
    void OpenChannel();
    StreamChannel DescribeChannel() const;
    void SetPacketSize(std::uint32_t size);
    void ControlTimestamp();
    void WriteEffects(std::uint32_t address, std::uint32_t size);
    void SettingsReset();
    static void OnEvent(void const *data, unsigned long size, void *self);

    gvcp::Status Read(std::uint32_t address, std::span<std::uint8_t> out) override;
    gvcp::Status Write(std::uint32_t address, std::span<std::uint8_t const> bytes) override;
    std::chrono::milliseconds DelayOf(std::uint32_t address, std::uint32_t size) override;
    gvcp::Status React(std::uint32_t address) override;
    void Resend(GvcpResend const &request) override;
    void ControlEnded() override;
    void Act(std::uint32_t action) override;
    bool TakeAddress(std::uint32_t address, std::uint32_t mask, std::uint32_t gateway) override;

    // For features by their names: as the hosts' accesses, without rights and delays.
    bool Read(std::uint64_t address, std::uint32_t size, std::uint8_t *out, GError **error) override;
    bool Write(std::uint64_t address, std::uint32_t size, std::uint8_t const *bytes, GError **error) override;
    bool IsBigEndian() const override
    {
        return true;
    }

    // Fixed.
    std::string const m_serial;
    SimModel const m_model;
    std::string const m_xml;
    std::uint64_t const m_mac;

    // The control thread's, but for the constructor.
    EventHub m_events;
    SimStream m_stream;
    SimCamera m_camera;
    AddressSpace m_space;
    BootstrapMemory m_memory;
    GvcpServer m_server;
    FrameSender m_sender;
    ArvDevice *m_device;
    std::unique_ptr<WireSockets> m_sockets;
    LocalAddress m_home;                        // at power-up, where it keeps no other
    std::uint32_t m_mask, m_gateway = 0;        // of its address
    std::unique_ptr<WireSockets> m_nextSockets; // taken once what is to be sent is out
    bool m_alive = true;
    bool m_dying = false; // dies once what is to be sent is out
    std::optional<Clock::time_point> m_back;
    bool m_backReset = false;
    std::string m_trouble;

    int const m_wake; // an eventfd
    std::mutex m_mutex;
    std::deque<std::function<void()>> m_tasks; // m_mutex
    bool m_quit = false;                       // m_mutex
    std::thread m_thread;                      // last: it uses everything above
};

// ---- Life --------------------------------------------------------------------------------------------------------

WireCamera::Impl::Impl(WireCameraOptions const &options, std::unique_ptr<WireSockets> sockets)
    : m_serial(options.serial.empty() ? options.model->serial : options.serial),
      m_model([&] {
          SimModel model = *options.model;
          model.serial = m_serial.c_str();
          return model;
      }()),
      m_xml(SimWireXml(m_model)),
      m_mac(MacOf(sockets->GetLocal().address)),
      m_stream(
          m_model, m_events, [this](SimFormat &format) { return m_camera.GetFormat(format); },
          SimStream::Packets::OfTaker),
      m_camera(m_model, m_stream, m_events),
      m_space(m_camera),
      m_server(m_memory, *this),
      m_sender(m_model, m_stream),
      m_device(NewRegisterDevice(m_xml)),
      m_sockets(std::move(sockets)),
      m_home(m_sockets->GetLocal()),
      m_mask(m_home.mask),
      m_wake(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC))
{
    if (!options.userName.empty())
        m_camera.SetText(S::UserID, options.userName);
    m_camera.SetSleeps(false);
    SetRegisterPort(m_device, this);
    ArvGc *const nodes = arv_device_get_genicam(m_device);
    arv_gc_set_range_check_policy(nodes, ARV_RANGE_CHECK_POLICY_ENABLE);
    m_camera.SetNodeMap(nodes);
    m_events.Register(TovCam::EventEventChannel, &Impl::OnEvent, this);
    PowerUp();
    m_thread = std::thread([this] { Run(); });
}

WireCamera::Impl::~Impl()
{
    if (m_thread.joinable()) {
        {
            std::lock_guard const lock(m_mutex);
            m_quit = true;
        }
        eventfd_write(m_wake, 1);
        m_thread.join();
    }
    m_events.UnregisterAll();
    m_stream.End();
    m_sender.End();
    m_sender.Close();
    SetRegisterPort(m_device, nullptr);
    g_object_unref(m_device);
    close(m_wake);
}

void WireCamera::Impl::Post(std::function<void()> task)
{
    {
        std::lock_guard const lock(m_mutex);
        m_tasks.push_back(std::move(task));
    }
    eventfd_write(m_wake, 1);
}

void WireCamera::Impl::Run()
{
    for (;;) {
        RunTasks();
        { // behind the reading of m_wake: what is set later wakes the next wait
            std::lock_guard const lock(m_mutex);
            if (m_quit)
                return;
        }
        if (m_alive)
            m_server.Poll(Clock::now());
        Flush();
        if (m_back && Clock::now() >= *m_back) {
            m_back.reset();
            try {
                std::uint64_t const address = m_space.GetWire().GetInt(W::ReturnAddress);
                Return(address == 0 ? std::string() : AddressText(static_cast<std::uint32_t>(address)), m_backReset);
            } catch (std::exception const &e) {
                m_trouble = e.what();
            }
        }
        Wait();
    }
}

void WireCamera::Impl::RunTasks()
{
    eventfd_t count;
    eventfd_read(m_wake, &count);
    std::deque<std::function<void()>> tasks;
    {
        std::lock_guard const lock(m_mutex);
        tasks.swap(m_tasks);
    }
    for (auto const &task : tasks)
        task();
}

void WireCamera::Impl::Wait()
{
    std::optional<Clock::time_point> due = m_back;
    if (std::optional<Clock::time_point> const next = m_server.NextDue(); m_alive && next && (!due || *next < *due))
        due = next;
    timespec timeout{};
    if (due) {
        auto const left = std::max<Clock::duration>(*due - Clock::now(), Clock::duration::zero());
        auto const ns = std::chrono::duration_cast<std::chrono::nanoseconds>(left).count();
        timeout = {static_cast<time_t>(ns / 1000000000), static_cast<long>(ns % 1000000000)};
    }
    m_sockets->Receive(m_wake, due ? &timeout : nullptr,
                       [this](std::span<std::uint8_t const> bytes, GvcpPeer from, bool broadcast) {
                           if (m_alive && !m_dying && !m_nextSockets)
                               m_server.Handle(bytes, from, broadcast, Clock::now());
                       });
}

// Sends what there is to send; what was to wait for that happens now.
void WireCamera::Impl::Flush()
{
    for (GvcpDatagram const &datagram : m_server.TakeOutgoing())
        m_sockets->Send(datagram);
    if (m_nextSockets) {
        m_sockets = std::move(m_nextSockets);
        m_stream.End();
        m_sender.End();
        m_server.Reset();
        PowerUp();
    }
    if (m_dying)
        Die();
}

void WireCamera::Impl::PowerUp()
{
    LocalAddress const &local = m_sockets->GetLocal();
    BootstrapMemory const before = std::exchange(m_memory, BootstrapMemory());
    for (std::uint32_t const kept : {B::NetworkInterfaceConfiguration, B::PersistentIpAddress, B::PersistentSubnetMask,
                                     B::PersistentDefaultGateway})
        m_memory.Set(kept, before.Get(kept));
    m_memory.Set(B::DeviceMacAddressHigh, static_cast<std::uint32_t>(m_mac >> 32));
    m_memory.Set(B::DeviceMacAddressLow, static_cast<std::uint32_t>(m_mac));
    m_memory.Set(B::CurrentIpAddress, local.address);
    m_memory.Set(B::CurrentSubnetMask, m_mask);
    m_memory.Set(B::CurrentDefaultGateway, m_gateway);
    m_memory.SetText(B::ManufacturerName, B::NameSize, m_camera.GetText(S::Vendor));
    m_memory.SetText(B::ModelName, B::NameSize, m_camera.GetText(S::Model));
    m_memory.SetText(B::DeviceVersion, B::NameSize, m_camera.GetText(S::Version));
    m_memory.SetText(B::ManufacturerSpecificInformation, B::InformationSize, m_camera.GetText(S::Info));
    m_memory.SetText(B::SerialNumber, B::IdentitySize, m_camera.GetText(S::Serial));
    m_memory.SetText(B::UserDefinedName, B::IdentitySize, m_camera.GetText(S::UserID));
    m_memory.Set(B::LinkSpeed, GigabitLink);
    m_memory.Set(B::TimestampTickFrequencyHigh, static_cast<std::uint32_t>(m_model.tickFrequency >> 32));
    m_memory.Set(B::TimestampTickFrequencyLow, static_cast<std::uint32_t>(m_model.tickFrequency));
    m_memory.Set(B::MessageChannelSourcePort, m_sockets->GetMessagePort());
    m_memory.Set(B::StreamChannelPacketSize, static_cast<std::uint32_t>(m_camera.GetInt(S::PacketSize)));
    m_camera.SetInt(S::IPAddress, local.address);
    m_camera.SetInt(S::MACAddress, m_mac, 8);
    ServeDescription();
    OpenChannel();
    m_sender.SetFaults(m_space.GetStreamFaults());
    m_server.SetFaults(m_space.GetControlFaults());
}

WireDescription WireCamera::Impl::GetDescriptionKind() const
{
    return static_cast<WireDescription>(m_space.GetWire().GetInt(W::Description));
}

// `isFirst`: for its first download since it was set.
void WireCamera::Impl::ServeDescription(bool isFirst)
{
    WireDescription kind = GetDescriptionKind();
    if (kind == WireDescription::ChangesOnce && isFirst)
        kind = WireDescription::Good;
    ServedDescription served = MakeDescription(kind, m_model.name, m_xml);
    m_memory.SetText(B::FirstUrl, B::UrlSize, served.firstUrl);
    m_memory.SetText(B::SecondUrl, B::UrlSize, served.secondUrl);
    m_space.SetDescriptions(std::move(served.plain), std::move(served.zipped));
}

void WireCamera::Impl::Die()
{
    m_dying = false;
    m_alive = false;
    m_nextSockets.reset();
    m_stream.End();
    m_sender.End();
    m_sender.Close();
    m_server.Reset();
    // The sockets stay: who sends to a camera that is unplugged gets no answer, not a refusal.
    if (std::uint64_t const down = m_space.GetWire().GetInt(W::DownTime); down != 0 && !m_back) {
        m_back = Clock::now() + std::chrono::milliseconds(down);
        m_backReset = m_space.GetWire().GetInt(W::ReturnReset) != 0;
    }
}

void WireCamera::Impl::Return(std::string const &address, bool reset)
{
    if (m_alive)
        Die();
    m_back.reset();
    std::optional<LocalAddress> const kept = address.empty() ? GetKeptAddress() : std::nullopt;
    LocalAddress const local = !address.empty() ? LocalAddressOf(address) : kept.value_or(m_home);
    if (local.address != m_sockets->GetLocal().address)
        m_sockets = std::make_unique<WireSockets>(local);
    if (!kept)
        m_home = local;
    m_mask = local.mask;
    m_gateway = kept ? m_memory.Get(B::PersistentDefaultGateway) : 0;
    if (reset)
        SettingsReset();
    m_stream.ResetTicks();
    m_trouble.clear();
    m_alive = true;
    PowerUp();
}

// As a host has stored it. Factory settings are not those of the network.
std::optional<LocalAddress> WireCamera::Impl::GetKeptAddress() const
{
    std::uint32_t const address = m_memory.Get(B::PersistentIpAddress);
    bool const isOn = (m_memory.Get(B::NetworkInterfaceConfiguration) & gvcp::networkinterface::PersistentIp) != 0;
    if (!isOn || address == 0)
        return std::nullopt;
    LocalAddress local = LocalAddressOf(AddressText(address));
    local.mask = m_memory.Get(B::PersistentSubnetMask);
    return local;
}

void WireCamera::Impl::SettingsReset()
{
    std::array<std::uint8_t, 4> const one{0, 0, 0, 1};
    m_space.Write(S::UserSetLoad, one);
    m_space.ResetChunks();
}

WireCameraStatus WireCamera::Impl::GetStatus() const
{
    StreamCounters const sent = m_sender.GetCounters();
    std::optional<GvcpPeer> const host = m_server.GetController();
    return {.alive = m_alive,
            .address = AddressText(m_sockets->GetLocal().address),
            .controller = host ? AddressText(host->address) + ":" + std::to_string(host->port) : std::string(),
            .controls = m_server.CountControls(),
            .trouble = m_trouble,
            .frames = sent.frames,
            .packets = sent.packets,
            .resent = sent.resent,
            .refused = sent.refused,
            .leftOut = sent.leftOut};
}

// ---- Memory ------------------------------------------------------------------------------------------------------

gvcp::Status WireCamera::Impl::Read(std::uint32_t address, std::span<std::uint8_t> out)
{
    auto const asked = [address, &out](std::uint32_t reg, std::size_t size) {
        return address < reg + size && reg < address + out.size();
    };
    if (asked(W::FramesSent, W::End - W::FramesSent)) {
        StreamCounters const sent = m_sender.GetCounters();
        m_space.GetWire().SetInt(W::FramesSent, sent.frames, 8);
        m_space.GetWire().SetInt(W::PacketsSent, sent.packets, 8);
        m_space.GetWire().SetInt(W::PacketsResent, sent.resent, 8);
        m_space.GetWire().SetInt(W::PacketsRefused, sent.refused, 8);
    }
    gvcp::Status const status = m_space.Read(address, out);
    if (GetDescriptionKind() == WireDescription::ChangesOnce &&
        m_space.EndsDescription(address, static_cast<std::uint32_t>(out.size())))
        ServeDescription(false);
    if (status == gvcp::GEV_STATUS_SUCCESS && address == S::PayloadSize && out.size() == gvcp::RegisterSize) {
        SimFormat format;
        m_camera.GetFormat(format);
        StoreBig32(out.data(), static_cast<std::uint32_t>(PayloadSize(DescribeChannel(), format)));
    }
    return status;
}

gvcp::Status WireCamera::Impl::Write(std::uint32_t address, std::span<std::uint8_t const> bytes)
{
    if (address == S::SimLoseCamera) {
        m_space.GetWire().SetInt(W::DownTime, 0);
        m_dying = true;
        return gvcp::GEV_STATUS_SUCCESS;
    }
    if (address == S::AcquisitionStart && !m_stream.IsRunning()) {
        SimFormat format;
        m_camera.GetFormat(format);
        try {
            m_sender.Begin(format.Payload());
        } catch (std::bad_alloc const &) {
            return gvcp::GEV_STATUS_ERROR;
        }
    }
    gvcp::Status const status = m_space.Write(address, bytes);
    if (status == gvcp::GEV_STATUS_SUCCESS)
        WriteEffects(address, static_cast<std::uint32_t>(bytes.size()));
    return status;
}

// What follows from a write beside what the simulation has done already.
void WireCamera::Impl::WriteEffects(std::uint32_t address, std::uint32_t size)
{
    SimMemory &wire = m_space.GetWire();
    switch (address) {
    case S::AcquisitionStop:
    case S::AcquisitionAbort:
        m_sender.End();
        break;
    case S::UserSetLoad:
        m_sender.End();
        m_space.ResetChunks();
        SetPacketSize(static_cast<std::uint32_t>(m_camera.GetInt(S::PacketSize)));
        break;
    case S::DeviceReset:
        m_space.ResetChunks();
        m_back = Clock::now() + RestartTime;
        m_backReset = true;
        m_dying = true;
        break;
    case S::PacketSize:
        SetPacketSize(static_cast<std::uint32_t>(m_camera.GetInt(S::PacketSize)));
        break;
    case W::Die:
        m_dying = wire.GetInt(W::Die) != 0;
        wire.SetInt(W::Die, 0);
        break;
    case W::Description:
        ServeDescription();
        break;
    case W::ClockDrift:
        m_stream.SetDrift(wire.GetFloat(W::ClockDrift));
        break;
    case W::Eager:
        m_stream.SetEager(wire.GetInt(W::Eager) != 0);
        break;
    default:
        break;
    }
    if (address >= S::UserID && address < S::UserID + S::TextSize)
        m_memory.SetText(B::UserDefinedName, B::IdentitySize, m_camera.GetText(S::UserID));
    if (address >= W::ChunkModeActive && address < W::FramesSent)
        OpenChannel();
    bool const isSimulationFault = address >= S::SimPacketLoss && address < S::LUT;
    if (isSimulationFault || (address >= W::Begin && address + size <= W::ChunkModeActive)) {
        m_sender.SetFaults(m_space.GetStreamFaults());
        m_server.SetFaults(m_space.GetControlFaults());
    }
}

std::chrono::milliseconds WireCamera::Impl::DelayOf(std::uint32_t address, std::uint32_t size)
{
    return m_camera.DelayOf(address, size);
}

// ---- Bootstrap registers -----------------------------------------------------------------------------------------

gvcp::Status WireCamera::Impl::React(std::uint32_t address)
{
    switch (address) {
    case B::StreamChannelPacketSize: {
        std::uint32_t const written = m_memory.Get(address);
        SetPacketSize(written & gvcp::packetsize::Mask);
        if ((written & gvcp::packetsize::FireTestPacket) != 0)
            m_sender.SendTestPacket();
        return gvcp::GEV_STATUS_SUCCESS;
    }
    case B::StreamChannelPort:
    case B::StreamChannelDestinationAddress:
    case B::StreamChannelPacketDelay:
    case B::StreamChannelConfiguration:
    case B::GvspConfiguration:
    case B::GvcpConfiguration:
        OpenChannel();
        return gvcp::GEV_STATUS_SUCCESS;
    case B::TimestampControl:
        ControlTimestamp();
        return gvcp::GEV_STATUS_SUCCESS;
    default:
        if (address >= B::UserDefinedName && address < B::UserDefinedName + B::IdentitySize)
            m_camera.SetText(S::UserID, m_memory.GetText(B::UserDefinedName, B::IdentitySize));
        return gvcp::GEV_STATUS_SUCCESS;
    }
}

// Both registers hold it; the bootstrap register's flags stay.
void WireCamera::Impl::SetPacketSize(std::uint32_t size)
{
    std::uint32_t const fit = std::clamp(size, SmallestPacketSize, LargestPacketSize) / 4 * 4;
    m_camera.SetInt(S::PacketSize, fit);
    std::uint32_t const flags = m_memory.Get(B::StreamChannelPacketSize) & ~std::uint32_t{gvcp::packetsize::Mask};
    m_memory.Set(B::StreamChannelPacketSize, flags | fit);
    OpenChannel();
}

void WireCamera::Impl::ControlTimestamp()
{
    std::uint32_t const wanted = m_memory.Get(B::TimestampControl);
    if ((wanted & gvcp::timestampcontrol::Reset) != 0)
        m_stream.ResetTicks();
    if ((wanted & gvcp::timestampcontrol::Latch) != 0) {
        std::uint64_t const ticks = m_stream.GetTicks();
        m_memory.Set(B::TimestampValueHigh, static_cast<std::uint32_t>(ticks >> 32));
        m_memory.Set(B::TimestampValueLow, static_cast<std::uint32_t>(ticks));
    }
}

StreamChannel WireCamera::Impl::DescribeChannel() const
{
    SimMemory const &wire = m_space.GetWire();
    std::uint32_t const size = m_memory.Get(B::StreamChannelPacketSize);
    std::uint32_t const configuration = m_memory.Get(B::StreamChannelConfiguration);
    double const delay = m_memory.Get(B::StreamChannelPacketDelay) * 1e9 / static_cast<double>(m_model.tickFrequency);
    StreamChannel channel{
        .localAddress = m_sockets->GetLocal().address,
        .address = m_memory.Get(B::StreamChannelDestinationAddress),
        .port = static_cast<std::uint16_t>(m_memory.Get(B::StreamChannelPort)),
        .packetSize = size & gvcp::packetsize::Mask,
        .doNotFragment = (size & gvcp::packetsize::DoNotFragment) != 0,
        .packetDelay = std::chrono::nanoseconds(static_cast<std::int64_t>(delay)),
        .extendedIds = (m_memory.Get(B::GvspConfiguration) & gvcp::gvspconfiguration::BlockId64) != 0,
        .allIn = (configuration & gvcp::streamchannel::AllInTransmission) != 0,
        .multiPart = (configuration & gvcp::streamchannel::MultiPart) != 0,
        .chunkMode = wire.GetInt(W::ChunkModeActive) != 0,
        .extendedStatus = (m_memory.Get(B::GvcpConfiguration) & gvcp::gvcpconfiguration::ExtendedStatusCodes20) != 0};
    for (std::uint32_t i = 0; i < WireChunks; ++i)
        channel.chunks |= (wire.GetInt(W::ChunkEnable + 8 * i) != 0 ? 1u : 0u) << i;
    return channel;
}

// Brings the sender up to what the registers say.
void WireCamera::Impl::OpenChannel()
{
    StreamChannel const channel = DescribeChannel();
    try {
        if (channel.port == 0 || channel.address == 0)
            m_sender.Close();
        else
            m_sender.Open(channel);
    } catch (std::system_error const &) {
        m_sender.Close(); // there is no way to that host: what is sent there gets lost
    }
    m_memory.Set(B::StreamChannelSourcePort, m_sender.GetLocalPort());
}

void WireCamera::Impl::Resend(GvcpResend const &request)
{
    m_sender.Resend(request.blockId, request.first, request.last);
}

void WireCamera::Impl::ControlEnded()
{
    m_stream.End();
    m_sender.End();
    OpenChannel();
}

void WireCamera::Impl::Act(std::uint32_t action)
{
    if (m_camera.GetInt(S::TriggerMode) != 0 && m_camera.GetInt(S::TriggerSource) == FirstActionTrigger + action)
        m_stream.Trigger();
}

bool WireCamera::Impl::TakeAddress(std::uint32_t address, std::uint32_t mask, std::uint32_t gateway)
{
    std::optional<LocalAddress> const local = FindLocalAddress(address);
    if (!local)
        return false;
    if (address != m_sockets->GetLocal().address) {
        try {
            m_nextSockets = std::make_unique<WireSockets>(*local);
        } catch (std::runtime_error const &) {
            return false;
        }
    }
    m_mask = mask;
    m_gateway = gateway;
    return true;
}

void WireCamera::Impl::OnEvent(void const *data, unsigned long size, void *self)
{
    // The simulation makes an event as a packet, and its acknowledge as the host would; the server makes its own.
    std::span const packet(static_cast<std::uint8_t const *>(data), size);
    std::optional<gvcp::Header> const header = gvcp::ReadHeader(packet);
    if (!header || header->code != gvcp::EVENT_CMD)
        return;
    std::span const body = gvcp::BodyOf(packet, *header);
    if (body.size() < gvcp::EventRecord::Size)
        return;
    std::uint16_t const event = LoadBig16(&body[gvcp::EventRecord::EventId]);
    std::uint64_t const block = LoadBig16(&body[gvcp::EventRecord::BlockId]);
    std::uint64_t const timestamp = LoadBig64(&body[gvcp::EventRecord::Timestamp]);
    auto *const camera = static_cast<Impl *>(self);
    camera->Post([=] {
        if (camera->m_alive)
            camera->m_server.SendEvent(event, block, timestamp, Clock::now());
    });
}

// ---- Features ----------------------------------------------------------------------------------------------------

bool WireCamera::Impl::Read(std::uint64_t address, std::uint32_t size, std::uint8_t *out, GError **error)
{
    if (address > UINT32_MAX) { // the class of the sensor, which no register of 32 bits names
        return m_camera.Read(address, size, out, error);
    }
    auto const at = static_cast<std::uint32_t>(address);
    gvcp::Status const status =
        BootstrapMemory::Covers(at) ? m_memory.Read(at, {out, size}) : Read(at, std::span(out, size));
    if (status == gvcp::GEV_STATUS_SUCCESS)
        return true;
    g_set_error(error, ARV_DEVICE_ERROR, ARV_DEVICE_ERROR_PROTOCOL_ERROR, "the camera refuses (status 0x%04x)",
                unsigned{status});
    return false;
}

bool WireCamera::Impl::Write(std::uint64_t address, std::uint32_t size, std::uint8_t const *bytes, GError **error)
{
    auto const at = static_cast<std::uint32_t>(address);
    gvcp::Status status = gvcp::GEV_STATUS_INVALID_ADDRESS;
    if (address == at && BootstrapMemory::Covers(at)) {
        status = m_server.WriteBootstrap(at, std::span(bytes, size));
    } else if (address == at) {
        status = Write(at, std::span(bytes, size));
    }
    if (status == gvcp::GEV_STATUS_SUCCESS)
        return true;
    g_set_error(error, ARV_DEVICE_ERROR, ARV_DEVICE_ERROR_PROTOCOL_ERROR, "the camera refuses (status 0x%04x)",
                unsigned{status});
    return false;
}

namespace {

// Without the names that every node on the way has put in front.
std::string TakeText(GError *error)
{
    std::string text = error->message;
    g_error_free(error);
    while (text.starts_with('[') && text.find("] ") != std::string::npos)
        text.erase(0, text.find("] ") + 2);
    return text;
}

ArvGcNode *FindFeature(ArvDevice *device, std::string const &name, std::string &why)
{
    ArvGcNode *const node = arv_gc_get_node(arv_device_get_genicam(device), name.c_str());
    if (node && ARV_IS_GC_FEATURE_NODE(node) && !ARV_IS_GC_CATEGORY(node))
        return node;
    why = "no such feature: " + name;
    return nullptr;
}

// As people write it: on, 1, 192.0.2.7.
std::string PlainValue(ArvGcNode *node, std::string value)
{
    if (ARV_IS_GC_BOOLEAN(node)) {
        bool const isTrue = value == "1" || value == "on" || value == "yes" || value == "true";
        bool const isFalse = value == "0" || value == "off" || value == "no" || value == "false";
        return isTrue ? "true" : isFalse ? "false" : value;
    }
    if (ARV_IS_GC_INTEGER(node)) {
        if (std::optional<std::uint32_t> const address = ParseAddress(value))
            return std::to_string(*address);
    }
    return value;
}

} // namespace

bool WireCamera::Impl::SetFeature(std::string const &name, std::string value, std::string &why)
{
    ArvGcNode *const node = FindFeature(m_device, name, why);
    if (!node)
        return false;
    GError *error = nullptr;
    if (ARV_IS_GC_COMMAND(node))
        arv_gc_command_execute(ARV_GC_COMMAND(node), &error);
    else
        arv_gc_feature_node_set_value_from_string(ARV_GC_FEATURE_NODE(node), PlainValue(node, std::move(value)).c_str(),
                                                  &error);
    if (error)
        why = name + ": " + TakeText(error);
    return why.empty();
}

std::optional<std::string> WireCamera::Impl::GetFeature(std::string const &name, std::string &why)
{
    ArvGcNode *const node = FindFeature(m_device, name, why);
    if (!node)
        return std::nullopt;
    GError *error = nullptr;
    char const *const value = arv_gc_feature_node_get_value_as_string(ARV_GC_FEATURE_NODE(node), &error);
    if (error)
        why = name + ": " + TakeText(error);
    if (!why.empty() || !value)
        return std::nullopt;
    return value;
}

// ---- The public side ---------------------------------------------------------------------------------------------

WireCamera::WireCamera(WireCameraOptions const &options)
    : m_impl(std::make_unique<Impl>(options, std::make_unique<WireSockets>(LocalAddressOf(options.address))))
{
}

WireCamera::~WireCamera() = default;

bool WireCamera::SetFeature(std::string const &name, std::string const &value, std::string &why)
{
    why.clear();
    return m_impl->Ask([&] { return m_impl->SetFeature(name, value, why); });
}

std::optional<std::string> WireCamera::GetFeature(std::string const &name, std::string &why)
{
    why.clear();
    return m_impl->Ask([&] { return m_impl->GetFeature(name, why); });
}

void WireCamera::Die()
{
    m_impl->Ask([&] { m_impl->Die(); });
}

void WireCamera::Return(std::string const &address, bool reset)
{
    m_impl->Ask([&] { m_impl->Return(address, reset); });
}

WireCameraStatus WireCamera::GetStatus() const
{
    return m_impl->Ask([&] { return m_impl->GetStatus(); });
}
