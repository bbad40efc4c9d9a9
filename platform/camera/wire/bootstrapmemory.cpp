#include "bootstrapmemory.h"

#include <algorithm>
#include <cstring>
#include <iterator>

using namespace gvcp::bootstrap;

namespace {

enum Access : std::uint8_t { RO = 1, WO = 2, RW = RO | WO };

struct Entry
{
    std::uint32_t address;
    Access access;
    std::uint32_t size = gvcp::RegisterSize;
    std::uint32_t mask = 0xFFFFFFFF; // bits that a host can set, of a register of 4 bytes
};

constexpr std::uint32_t IpConfigurations =
    gvcp::networkinterface::LinkLocalAddress | gvcp::networkinterface::Dhcp | gvcp::networkinterface::PersistentIp;
constexpr std::uint32_t GvcpChoices = gvcp::gvcpconfiguration::ExtendedStatusCodes20 |
                                      gvcp::gvcpconfiguration::UnconditionalAction |
                                      gvcp::gvcpconfiguration::PendingAck | gvcp::gvcpconfiguration::HeartbeatDisable;
constexpr std::uint32_t TimestampCommands = gvcp::timestampcontrol::Latch | gvcp::timestampcontrol::Reset;
constexpr std::uint32_t PacketSizeBits =
    gvcp::packetsize::FireTestPacket | gvcp::packetsize::DoNotFragment | gvcp::packetsize::Mask;
constexpr std::uint32_t StreamChoices = gvcp::streamchannel::MultiPart | gvcp::streamchannel::AllInTransmission;
constexpr std::uint32_t PortBits = 0xFFFF; // network interface 0, to the host
constexpr std::uint32_t KeyBits = 0xFFFF;

// Sorted by address. What the standard has beside these is absent, as the capabilities say.
constexpr Entry Entries[] = {
    {Version, RO},
    {DeviceMode, RO},
    {DeviceMacAddressHigh, RO},
    {DeviceMacAddressLow, RO},
    {NetworkInterfaceCapability, RO},
    {NetworkInterfaceConfiguration, RW, 4, IpConfigurations},
    {CurrentIpAddress, RO},
    {CurrentSubnetMask, RO},
    {CurrentDefaultGateway, RO},
    {ManufacturerName, RO, NameSize},
    {ModelName, RO, NameSize},
    {DeviceVersion, RO, NameSize},
    {ManufacturerSpecificInformation, RO, InformationSize},
    {SerialNumber, RO, IdentitySize},
    {UserDefinedName, RW, IdentitySize},
    {FirstUrl, RO, UrlSize},
    {SecondUrl, RO, UrlSize},
    {NumberOfNetworkInterfaces, RO},
    {PersistentIpAddress, RW},
    {PersistentSubnetMask, RW},
    {PersistentDefaultGateway, RW},
    {LinkSpeed, RO},
    {NumberOfMessageChannels, RO},
    {NumberOfStreamChannels, RO},
    {NumberOfActionSignals, RO},
    {ActionDeviceKey, WO},
    {NumberOfActiveLinks, RO},
    {GvspCapability, RO},
    {MessageChannelCapability, RO},
    {GvcpCapability, RO},
    {HeartbeatTimeout, RW},
    {TimestampTickFrequencyHigh, RO},
    {TimestampTickFrequencyLow, RO},
    {TimestampControl, WO, 4, TimestampCommands},
    {TimestampValueHigh, RO},
    {TimestampValueLow, RO},
    {DiscoveryAckDelay, RW},
    {GvcpConfiguration, RW, 4, GvcpChoices},
    {PendingTimeout, RO},
    {ControlSwitchoverKey, WO, 4, KeyBits},
    {GvspConfiguration, RW, 4, gvcp::gvspconfiguration::BlockId64},
    {PhysicalLinkConfigurationCapability, RO},
    {PhysicalLinkConfiguration, RW, 4, 0}, // there is no choice
    {ControlChannelPrivilege, RW},
    {PrimaryApplicationPort, RO},
    {PrimaryApplicationIpAddress, RO},
    {MessageChannelPort, RW, 4, PortBits},
    {MessageChannelDestinationAddress, RW},
    {MessageChannelTransmissionTimeout, RW},
    {MessageChannelRetryCount, RW},
    {MessageChannelSourcePort, RO},
    {StreamChannelPort, RW, 4, PortBits},
    {StreamChannelPacketSize, RW, 4, PacketSizeBits},
    {StreamChannelPacketDelay, RW},
    {StreamChannelDestinationAddress, RW},
    {StreamChannelSourcePort, RO},
    {StreamChannelCapability, RO},
    {StreamChannelConfiguration, RW, 4, StreamChoices},
    {ActionGroupKey, RW},
    {ActionGroupMask, RW},
    {ActionGroupKey + ActionStep, RW},
    {ActionGroupMask + ActionStep, RW},
    {ActionGroupKey + 2 * ActionStep, RW},
    {ActionGroupMask + 2 * ActionStep, RW},
    {ActionGroupKey + 3 * ActionStep, RW},
    {ActionGroupMask + 3 * ActionStep, RW},
};
static_assert(std::is_sorted(std::begin(Entries), std::end(Entries),
                             [](Entry const &a, Entry const &b) { return a.address + a.size <= b.address; }));
static_assert(std::rbegin(Entries)->address == ActionGroupMask + (BootstrapMemory::Actions - 1) * ActionStep);

// At power-up, where it is not zero.
constexpr struct
{
    std::uint32_t address, value;
} PowerUp[] = {
    {Version, 2u << 16 | 1}, // multi-part payload came with 2.1
    {DeviceMode, gvcp::devicemode::BigEndian | gvcp::devicemode::Utf8},
    {NetworkInterfaceCapability, IpConfigurations},
    {NetworkInterfaceConfiguration, gvcp::networkinterface::LinkLocalAddress | gvcp::networkinterface::Dhcp},
    {NumberOfNetworkInterfaces, 1},
    {LinkSpeed, 1000},
    {NumberOfMessageChannels, 1},
    {NumberOfStreamChannels, 1},
    {NumberOfActionSignals, BootstrapMemory::Actions},
    {NumberOfActiveLinks, 1},
    {GvspCapability, gvcp::gvspcapability::SourcePort | gvcp::gvspcapability::BlockId16},
    {MessageChannelCapability, gvcp::messagechannelcapability::SourcePort},
    {GvcpCapability,
     gvcp::gvcpcapability::UserDefinedName | gvcp::gvcpcapability::SerialNumber |
         gvcp::gvcpcapability::HeartbeatDisable | gvcp::gvcpcapability::LinkSpeed |
         gvcp::gvcpcapability::PrimaryApplication | gvcp::gvcpcapability::DiscoveryAckDelay |
         gvcp::gvcpcapability::WritableDiscoveryAckDelay | gvcp::gvcpcapability::PrimaryApplicationSwitchover |
         gvcp::gvcpcapability::UnconditionalAction | gvcp::gvcpcapability::ExtendedStatusCodes20 |
         gvcp::gvcpcapability::Action | gvcp::gvcpcapability::PendingAck | gvcp::gvcpcapability::Event |
         gvcp::gvcpcapability::PacketResend | gvcp::gvcpcapability::WriteMem | gvcp::gvcpcapability::Concatenation},
    {HeartbeatTimeout, 3000},
    {PendingTimeout, 200},
    {PhysicalLinkConfigurationCapability, gvcp::physicallink::SingleLink},
    {StreamChannelPacketSize, 1500},
    {StreamChannelCapability, StreamChoices},
};

constexpr std::uint32_t ShortestHeartbeat = 500; // ms

Entry const *Find(std::uint32_t address)
{
    auto const after = std::upper_bound(std::begin(Entries), std::end(Entries), address,
                                        [](std::uint32_t place, Entry const &entry) { return place < entry.address; });
    if (after == std::begin(Entries))
        return nullptr;
    Entry const &entry = *std::prev(after);
    return address - entry.address < entry.size ? &entry : nullptr;
}

// What a register holds after a host has written a value to it.
std::uint32_t Fitting(Entry const &entry, std::uint32_t value)
{
    value &= entry.mask;
    switch (entry.address) {
    case NetworkInterfaceConfiguration:
        return value | gvcp::networkinterface::LinkLocalAddress; // the last resort cannot be switched off
    case HeartbeatTimeout:
        return std::max(value, ShortestHeartbeat);
    case StreamChannelPacketSize:
        return (value & ~gvcp::packetsize::Mask) |
               std::max<std::uint32_t>(value & gvcp::packetsize::Mask, gvsp::SmallestPacket);
    default:
        return value;
    }
}

gvcp::Status CheckAccess(std::uint32_t address, std::size_t size, Access access, gvcp::Status refusal)
{
    if (address % gvcp::RegisterSize != 0 || size % gvcp::RegisterSize != 0)
        return gvcp::GEV_STATUS_BAD_ALIGNMENT;
    std::uint64_t const end = std::uint64_t{address} + size;
    for (std::uint32_t at = address; at < end;) {
        Entry const *const entry = Find(at);
        if (!entry)
            return gvcp::GEV_STATUS_INVALID_ADDRESS;
        if ((entry->access & access) == 0)
            return refusal;
        at = entry->address + entry->size;
    }
    return gvcp::GEV_STATUS_SUCCESS;
}

} // namespace

BootstrapMemory::BootstrapMemory() : m_bytes(ManufacturerRegisters)
{
    for (auto const &[address, value] : PowerUp)
        Set(address, value);
}

BootstrapMemory::Register BootstrapMemory::RegisterAt(std::uint32_t address)
{
    Entry const *const entry = Find(address);
    return entry ? Register{entry->address, entry->size} : Register{};
}

std::uint32_t BootstrapMemory::CommandBits(std::uint32_t address)
{
    return address == TimestampControl          ? TimestampCommands
           : address == StreamChannelPacketSize ? gvcp::packetsize::FireTestPacket
                                                : 0u;
}

std::uint32_t BootstrapMemory::Get(std::uint32_t address) const
{
    return LoadBig32(&m_bytes[address]);
}

void BootstrapMemory::Set(std::uint32_t address, std::uint32_t value)
{
    StoreBig32(&m_bytes[address], value);
}

std::string BootstrapMemory::GetText(std::uint32_t address, std::size_t size) const
{
    auto const *const text = reinterpret_cast<char const *>(&m_bytes[address]);
    return std::string(text, strnlen(text, size));
}

void BootstrapMemory::SetText(std::uint32_t address, std::size_t size, std::string_view text)
{
    auto const place = m_bytes.begin() + address;
    std::fill_n(place, size, 0);
    std::copy_n(text.begin(), std::min(text.size(), size - 1), place);
}

std::span<std::uint8_t> BootstrapMemory::Bytes(std::uint32_t address, std::size_t size)
{
    return std::span(m_bytes).subspan(address, size);
}

gvcp::Status BootstrapMemory::Read(std::uint32_t address, std::span<std::uint8_t> out) const
{
    gvcp::Status const status = CheckAccess(address, out.size(), RO, gvcp::GEV_STATUS_ACCESS_DENIED);
    if (status == gvcp::GEV_STATUS_SUCCESS)
        std::copy_n(m_bytes.begin() + address, out.size(), out.begin());
    return status;
}

gvcp::Status BootstrapMemory::CheckWrite(std::uint32_t address, std::size_t size) const
{
    return CheckAccess(address, size, WO, gvcp::GEV_STATUS_WRITE_PROTECT);
}

void BootstrapMemory::Write(std::uint32_t address, std::span<std::uint8_t const> bytes)
{
    while (!bytes.empty()) {
        Entry const *const entry = Find(address);
        std::uint32_t const size =
            std::min(entry->address + entry->size - address, static_cast<std::uint32_t>(bytes.size()));
        if (entry->size == gvcp::RegisterSize)
            Set(address, Fitting(*entry, LoadBig32(bytes.data())));
        else
            std::copy_n(bytes.begin(), size, m_bytes.begin() + address);
        address += size;
        bytes = bytes.subspan(size);
    }
}
