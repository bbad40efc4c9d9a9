// Streams of a camera that wants to harm its hosts: the packets of a block, forged in one of the ways of
// WireStreamForgery, by dice that fall the same in every run. It copies every packet, so it is far slower than a camera
// that behaves.
//
// Used by one thread at a time.
#pragma once

#include "streamchannel.h"
#include "wireregisters.h"

#include "protocol/gigevision.h"

#include <cstddef>
#include <cstdint>
#include <random>
#include <span>
#include <vector>

struct ForgedPacket
{
    enum class Sender : std::uint8_t { Camera, OtherPort, OtherHost };

    gvsp::Header header{};
    std::vector<std::uint8_t> body{}; // behind the header
    bool isBare = false;              // there is no header: the body is the datagram
    Sender sender = Sender::Camera;
};

struct ForgedBlock
{
    std::vector<ForgedPacket> packets{}; // in the order in which they go out
    std::uint64_t number = 0;            // of the block in the acquisition, from 1
    std::uint32_t total = 0;             // packets that a whole block has
    bool again = false;                  // one packet of it, which was asked for
};

class StreamForger
{
public:
    StreamForger() = default;
    ~StreamForger();
    StreamForger(StreamForger const &) = delete;
    StreamForger &operator=(StreamForger const &) = delete;

    void Forge(WireStreamForgery kind, ForgedBlock &block);
    // Sends a packet by the camera's socket, or by another one to the same host, and returns the bytes. What cannot be
    // sent, and what would come from a host that this computer is not, is lost: 0.
    std::size_t Send(ForgedPacket const &packet, int cameraSocket, StreamChannel const &channel);

private:
    int StrangerSocket(ForgedPacket::Sender sender, StreamChannel const &channel);

    std::minstd_rand m_random{2026};
    std::vector<std::uint8_t> m_datagram;
    int m_strangers[2] = {-1, -1}; // OtherPort, OtherHost
    std::uint32_t m_address = 0;   // where they send to
    std::uint16_t m_port = 0;
};
