#include "usbframing.h"

#include "protocol/usb3vision.h"

#include "tovcamera.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <linux/usb/ch9.h>
#include <pcap/dlt.h>
#include <pcap/usb.h>

namespace fs = std::filesystem;

namespace {

// Whether bytes come to the host through the endpoint of this address.
bool IsIn(std::uint8_t endpoint)
{
    return (endpoint & USB_ENDPOINT_DIR_MASK) == USB_DIR_IN;
}

std::string ReadAll(fs::path const &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// The first line of a file as text, and as a number; "" and -1 where there is no such file.
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
    int protocol = -1; // of the interface that endpoints belong to, when it is one of ours
    endpoints = {};
    for (std::size_t at = 0; at + 2 <= size && bytes[at] >= 2 && at + bytes[at] <= size; at += bytes[at]) {
        std::uint8_t const length = bytes[at], type = bytes[at + 1];
        if (type == USB_DT_INTERFACE && length >= USB_DT_INTERFACE_SIZE) {
            usb_interface_descriptor one;
            std::memcpy(&one, bytes + at, USB_DT_INTERFACE_SIZE);
            bool const ours = one.bInterfaceClass == USB_CLASS_MISC && one.bInterfaceSubClass == u3v::InterfaceSubclass;
            protocol = ours ? one.bInterfaceProtocol : -1;
        } else if (type == USB_DT_ENDPOINT && length >= USB_DT_ENDPOINT_SIZE) {
            usb_endpoint_descriptor one;
            std::memcpy(&one, bytes + at, USB_DT_ENDPOINT_SIZE);
            if ((one.bmAttributes & USB_ENDPOINT_XFERTYPE_MASK) != USB_ENDPOINT_XFER_BULK)
                continue;
            bool const in = IsIn(one.bEndpointAddress);
            if (protocol == u3v::ControlInterface)
                (in ? endpoints.answers : endpoints.commands) = one.bEndpointAddress;
            else if (protocol == u3v::EventInterface && in)
                endpoints.events = one.bEndpointAddress;
            else if (protocol == u3v::StreamInterface && in)
                endpoints.stream = one.bEndpointAddress;
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
    constexpr std::int32_t ShortRead = -EREMOTEIO;
    // In front of a transfer's bytes, in the byte order of this host.
    std::size_t const headerSize = m_hasMappedHeader ? sizeof(pcap_usb_header_mmapped) : sizeof(pcap_usb_header);
    if (frame.captured > frame.length || frame.captured < headerSize)
        return false;
    pcap_usb_header header;
    std::memcpy(&header, frame.bytes, sizeof header);
    // The monitor reports bytes that leave the host when they are submitted, and bytes that come when their transfer is
    // complete. A transfer without bytes carries no packet: it was cancelled, or it ends a series of full ones.
    bool const in = IsIn(header.endpoint_number);
    std::uint8_t const told = in ? URB_COMPLETE : URB_SUBMIT;
    if (header.transfer_type != URB_BULK || (header.endpoint_number & ~USB_ENDPOINT_DIR_MASK) == 0 ||
        header.event_type != told || header.data_flag != 0 || header.urb_len == 0 || header.urb_len > LongestTransfer ||
        (in && header.status != 0 && header.status != ShortRead))
        return false;
    packet.bytes = frame.bytes + headerSize;
    packet.size = header.urb_len;
    packet.captured = std::min({frame.captured - headerSize, std::size_t{header.data_len}, packet.size});
    std::uint8_t const endpoint = header.endpoint_number;
    if (m_listen)
        FindCamera(header.bus_id, header.device_address, endpoint, packet.bytes, packet.captured);
    if (header.bus_id != m_camera.bus || header.device_address != m_camera.address || m_camera.bus == 0)
        return false;
    UsbEndpoints const &endpoints = m_camera.endpoints;
    if (endpoint == endpoints.stream) {
        packet.channel = TovCam::EventStreamChannel;
        return AcceptStream(packet.captured >= std::min(packet.size, StreamBytesShown));
    }
    if (endpoint == endpoints.commands || endpoint == endpoints.answers)
        packet.channel = TovCam::EventControlChannel;
    else if (endpoint == endpoints.events)
        packet.channel = TovCam::EventEventChannel;
    else
        return false;
    return packet.size >= u3v::HeaderSize && AcceptMessage(packet.captured == packet.size);
}

// Every packet but a stream's payload begins with what it is.
void UsbFraming::FindCamera(std::uint16_t bus, std::uint8_t address, std::uint8_t endpoint, std::uint8_t const *bytes,
                            std::size_t size)
{
    std::optional<std::uint32_t> const prefix = u3v::ReadPrefix({bytes, size});
    if (prefix == u3v::ControlPrefix && m_camera.bus == 0) {
        m_camera.bus = bus;
        m_camera.address = address;
    }
    if (bus != m_camera.bus || address != m_camera.address)
        return;
    if (prefix == u3v::ControlPrefix)
        (IsIn(endpoint) ? m_camera.endpoints.answers : m_camera.endpoints.commands) = endpoint;
    else if (prefix == u3v::EventPrefix)
        m_camera.endpoints.events = endpoint;
    else if (prefix == u3v::LeaderPrefix || prefix == u3v::TrailerPrefix)
        m_camera.endpoints.stream = endpoint;
}
