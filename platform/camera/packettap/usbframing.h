// USB3 Vision: the bulk transfers of one camera, as the kernel's USB monitor reports them.
#pragma once

#include "packetframing.h"

#include <string>

// Addresses of endpoints, with the bit of their direction; 0 is not known.
struct UsbEndpoints
{
    std::uint8_t commands = 0, answers = 0, events = 0, stream = 0;
};

struct UsbCamera
{
    std::uint16_t bus = 0; // 0: the first camera that is heard, its endpoints recognised by what comes through them
    std::uint8_t address = 0;
    UsbEndpoints endpoints;
};

// The endpoints out of a device's descriptors as the kernel hands them out. False where there is no control interface
// of USB3 Vision.
bool ParseUsbDescriptors(std::uint8_t const *bytes, std::size_t size, UsbEndpoints &endpoints);

// Looks through /sys below `root`, which is "" but for tests.
bool FindUsbCamera(std::string const &vendor, std::string const &serial, UsbCamera &camera,
                   std::string const &root = {});

class UsbFraming final : public PacketFraming
{
public:
    // The bytes of a stream transfer that a line can show.
    static constexpr std::size_t StreamBytesShown = 50;
    static constexpr std::size_t LongestTransfer = 16u << 20;

    static bool Knows(int linkType); // DLT_...
    UsbFraming(int linkType, UsbCamera const &camera);
    bool Unpack(CapturedFrame const &frame, TapPacket &packet) override;

private:
    void FindCamera(std::uint16_t bus, std::uint8_t address, std::uint8_t endpoint, std::uint8_t const *bytes,
                    std::size_t size);

    bool const m_hasMappedHeader;
    bool const m_listen; // to find out which camera it is
    UsbCamera m_camera;
};
