#include "simpackets.h"

#include "tovcamera.h"

#include <algorithm>

std::vector<SimPacket> SimPackets::Control(SimAccess const &access)
{
    constexpr std::size_t LongestAccess = 512; // of one packet; both transports carry a few bytes more
    std::vector<SimPacket> packets;
    for (std::size_t done = 0; done < access.size; done += LongestAccess) {
        SimAccess part = access;
        part.address += done;
        part.bytes += part.bytes ? done : 0;
        part.size = std::min(LongestAccess, access.size - done);
        packets.push_back(Command(part));
        packets.push_back(Acknowledge(part));
    }
    return packets;
}

std::unique_ptr<SimPackets> MakeSimPackets(std::uint32_t interfaceKind)
{
    return interfaceKind == TovCam::InterfaceKindUSB3Vision ? MakeUsb3VisionPackets() : MakeGigEVisionPackets();
}
