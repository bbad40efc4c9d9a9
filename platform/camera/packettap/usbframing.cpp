#include "usbframing.h"

#include "tovcamera.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <pcap/dlt.h>

namespace fs = std::filesystem;

namespace {

constexpr std::uint8_t In = 0x80; // of an endpoint's address

// What the monitor puts in front of a transfer's bytes, in the byte order of this host.
struct MonitorHeader
{
    std::uint64_t id;
    std::uint8_t event, transfer, endpoint, address;
    std::uint16_t bus;
    char setupFlag, dataFlag;
    std::int64_t seconds;
    std::int32_t microseconds, status;
    std::uint32_t transferLength, dataLength;
    std::uint8_t setup[8];
};
static_assert(sizeof(MonitorHeader) == 48);
constexpr std::size_t MappedHeaderSize = 64; // with four fields more

bool StartsWith(std::uint8_t const *bytes, std::size_t size, char const *mark)
{
    return size >= 4 && std::memcmp(bytes, mark, 4) == 0;
}

std::string ReadAll(fs::path const &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// A number or a text of one line; -1 and "" where there is none.
std::string ReadLine(fs::path const &path)
{
    std::string const all = ReadAll(path);
    return all.substr(0, all.find('\n'));
}

int ReadNumber(fs::path const &path)
{
    std::string const line = ReadLine(path);
    return line.empty() ? -1 : std::atoi(line.c_str());
}

} // namespace

bool ParseUsbDescriptors(std::uint8_t const *bytes, std::size_t size, UsbEndpoints &endpoints)
{
    enum : std::uint8_t { Interface = 4, Endpoint = 5, Miscellaneous = 0xEF, Usb3Vision = 5, Bulk = 2 };
    enum : std::uint8_t { Control = 0, Event = 1, Stream = 2 };
    int protocol = -1; // of the interface that endpoints belong to, when it is one of ours
    endpoints = {};
    for (std::size_t at = 0; at + 2 <= size && bytes[at] >= 2 && at + bytes[at] <= size; at += bytes[at]) {
        std::uint8_t const *const one = bytes + at;
        if (one[1] == Interface && one[0] >= 9) {
            protocol = one[5] == Miscellaneous && one[6] == Usb3Vision ? one[7] : -1;
        } else if (one[1] == Endpoint && one[0] >= 7 && (one[3] & 3) == Bulk && protocol >= 0) {
            bool const in = (one[2] & In) != 0;
            if (protocol == Control)
                (in ? endpoints.answers : endpoints.commands) = one[2];
            else if (protocol == Event && in)
                endpoints.events = one[2];
            else if (protocol == Stream && in)
                endpoints.stream = one[2];
        }
    }
    return endpoints.commands != 0 && endpoints.answers != 0;
}

bool FindUsbCamera(std::string const &vendor, std::string const &serial, UsbCamera &camera, std::string const &root)
{
    std::error_code error;
    for (fs::directory_iterator i(root + "/sys/bus/usb/devices", error), end; !error && i != end; i.increment(error)) {
        fs::path const device = i->path();
        if (serial.empty() || ReadLine(device / "serial") != serial || ReadLine(device / "manufacturer") != vendor)
            continue;
        std::string const descriptors = ReadAll(device / "descriptors");
        int const bus = ReadNumber(device / "busnum"), address = ReadNumber(device / "devnum");
        if (bus <= 0 || bus > 0xFFFF || address <= 0 || address > 127 ||
            !ParseUsbDescriptors(reinterpret_cast<std::uint8_t const *>(descriptors.data()), descriptors.size(),
                                 camera.endpoints))
            continue;
        camera.bus = static_cast<std::uint16_t>(bus);
        camera.address = static_cast<std::uint8_t>(address);
        return true;
    }
    return false;
}

bool UsbFraming::Knows(int linkType)
{
    return linkType == DLT_USB_LINUX || linkType == DLT_USB_LINUX_MMAPPED;
}

UsbFraming::UsbFraming(int linkType, UsbCamera const &camera)
    : m_hasMappedHeader(linkType == DLT_USB_LINUX_MMAPPED),
      m_listen(camera.bus == 0),
      m_camera(camera)
{
}

bool UsbFraming::Unpack(CapturedFrame const &frame, TapPacket &packet)
{
    constexpr std::uint8_t Bulk = 3;
    constexpr std::int32_t ShortRead = -121;
    std::size_t const headerSize = m_hasMappedHeader ? MappedHeaderSize : sizeof(MonitorHeader);
    if (frame.captured > frame.length || frame.captured < headerSize)
        return false;
    MonitorHeader header;
    std::memcpy(&header, frame.bytes, sizeof header);
    // Bytes that leave the host are told when they are submitted, bytes that come when their transfer is complete. A
    // transfer of no bytes is none that carries a packet: a cancelled one, or the end of a series of full ones.
    bool const in = (header.endpoint & In) != 0;
    if (header.transfer != Bulk || (header.endpoint & ~In) == 0 || header.event != (in ? 'C' : 'S') ||
        header.dataFlag != 0 || header.transferLength == 0 || header.transferLength > LongestTransfer ||
        (in && header.status != 0 && header.status != ShortRead))
        return false;
    packet.bytes = frame.bytes + headerSize;
    packet.size = header.transferLength;
    packet.captured = std::min({frame.captured - headerSize, std::size_t{header.dataLength}, packet.size});
    if (m_listen)
        FindCamera(header.bus, header.address, header.endpoint, packet.bytes, packet.captured);
    if (header.bus != m_camera.bus || header.address != m_camera.address || m_camera.bus == 0)
        return false;
    UsbEndpoints const &endpoints = m_camera.endpoints;
    if (header.endpoint == endpoints.stream) {
        packet.channel = TovCam::EventStreamChannel;
        return AcceptStream(packet.captured >= std::min(packet.size, StreamBytesShown));
    }
    if (header.endpoint == endpoints.commands || header.endpoint == endpoints.answers)
        packet.channel = TovCam::EventControlChannel;
    else if (header.endpoint == endpoints.events)
        packet.channel = TovCam::EventEventChannel;
    else
        return false;
    constexpr std::size_t PacketPrefix = 12;
    return packet.size >= PacketPrefix && AcceptMessage(packet.captured == packet.size);
}

// Every packet but a stream's payload begins with what it is.
void UsbFraming::FindCamera(std::uint16_t bus, std::uint8_t address, std::uint8_t endpoint, std::uint8_t const *bytes,
                            std::size_t size)
{
    if (StartsWith(bytes, size, "U3VC") && m_camera.bus == 0) {
        m_camera.bus = bus;
        m_camera.address = address;
    }
    if (bus != m_camera.bus || address != m_camera.address)
        return;
    if (StartsWith(bytes, size, "U3VC"))
        ((endpoint & In) != 0 ? m_camera.endpoints.answers : m_camera.endpoints.commands) = endpoint;
    else if (StartsWith(bytes, size, "U3VE"))
        m_camera.endpoints.events = endpoint;
    else if (StartsWith(bytes, size, "U3VL") || StartsWith(bytes, size, "U3VT"))
        m_camera.endpoints.stream = endpoint;
}
