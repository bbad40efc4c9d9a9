// GigE Vision: the UDP datagrams of one camera.
//
// Which ports of the host its stream and its events go to is in the camera's registers. Whoever reads or writes those
// does it by control packets, so the framing follows the ports by listening, in the order of the packets, in a stored
// capture as in a live one.
#pragma once

#include "packetframing.h"

#include "protocol/gigevision.h"

#include <array>
#include <span>

// A port, and the one before it: packets on their way when it changes belong to the camera as well.
class FollowedPort
{
public:
    void Note(std::uint16_t port); // 0, a closed channel, changes nothing
    bool Has(std::uint16_t port) const
    {
        return port != 0 && (port == m_ports[0] || port == m_ports[1]);
    }
    bool IsKnown() const
    {
        return m_ports[0] != 0;
    }
    std::array<std::uint16_t, 2> const &All() const // the newest first, 0 for none
    {
        return m_ports;
    }

private:
    std::array<std::uint16_t, 2> m_ports{};
};

class GigEFraming final : public PacketFraming
{
public:
    // The bytes of a stream packet that a line can show: all headers and sections, and 33 bytes of the data behind
    // them. With less of it captured, it does not count as whole.
    static constexpr std::size_t StreamBytesShown =
        gvsp::ExtendedHeaderSize + gvsp::ImageLeader::Size + gvsp::ImageTrailer::Size + 33;

    static bool Knows(int linkType); // DLT_...
    // The camera's IPv4 address as a number; 0 takes the first camera that is heard on a control channel.
    GigEFraming(int linkType, std::uint32_t camera);
    bool Unpack(CapturedFrame const &frame, TapPacket &packet) override;

    FollowedPort const &GetStreamPort() const
    {
        return m_streamPort;
    }

private:
    struct Datagram
    {
        std::uint32_t source, destination;
        std::uint16_t sourcePort, destinationPort;
        std::uint8_t const *bytes;
        std::size_t captured, size;
    };
    bool FindIp(CapturedFrame const &frame, std::size_t &at) const;
    bool FindDatagram(CapturedFrame const &frame, Datagram &datagram) const;
    void FindCamera(Datagram const &datagram);
    void Listen(std::span<std::uint8_t const> packet);
    void NoteRequest(std::uint16_t id, std::span<std::uint8_t const> addresses);
    void NoteMemory(std::span<std::uint8_t const> body);
    void NoteRegister(std::uint32_t address, std::uint32_t value);

    int const m_linkType;
    std::uint32_t m_camera;
    FollowedPort m_streamPort, m_messagePort;
    // Registers that the last command of interest asks for, and where they are in its answer.
    std::uint16_t m_askedBy = 0;
    std::vector<std::uint32_t> m_asked;
};
