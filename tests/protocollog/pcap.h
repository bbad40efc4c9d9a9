// Capture files of GigE Vision packets, as other programs read them.
#pragma once

#include "tovcamera.h"

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

class PcapFile
{
public:
    static constexpr std::uint16_t ControlPort = 3956, StreamPort = 40000;
    static constexpr std::size_t HeaderBytes = 24, RecordBytes = 16, UdpBytes = 28; // of the file, a packet, IP and UDP

    explicit PcapFile(std::string const &path) : m_out(path, std::ios::binary)
    {
        Little(0xA1B2C3D4, 4).Little(2, 2).Little(4, 2).Little(0, 8).Little(0x40000, 4).Little(101, 4); // raw IP
    }
    // One packet on the port of its protocol; no more than `most` bytes of it are captured.
    void Add(std::uint32_t channel, std::vector<std::uint8_t> const &bytes, std::size_t most = 65535)
    {
        std::uint16_t const port = channel == TovCam::EventStreamChannel ? StreamPort : ControlPort;
        auto const length = static_cast<std::uint32_t>(UdpBytes + bytes.size());
        std::size_t const taken = std::min(bytes.size(), most);
        ++m_count;
        Little(m_count / 1000, 4).Little(m_count % 1000 * 1000, 4).Little(UdpBytes + taken, 4).Little(length, 4);
        Big(0x4500, 2).Big(length, 2).Big(0, 4).Big(0x4011, 2).Big(0, 2).Big(0x7F000001, 4).Big(0x7F000001, 4);
        Big(port, 2).Big(port, 2).Big(length - 20, 2).Big(0, 2);
        m_out.write(reinterpret_cast<char const *>(bytes.data()), static_cast<std::streamsize>(taken));
    }

private:
    PcapFile &Little(std::uint64_t value, int bytes)
    {
        for (int i = 0; i < bytes; ++i)
            m_out.put(static_cast<char>(value >> 8 * i));
        return *this;
    }
    PcapFile &Big(std::uint64_t value, int bytes)
    {
        for (int i = bytes; i-- > 0;)
            m_out.put(static_cast<char>(value >> 8 * i));
        return *this;
    }

    std::ofstream m_out;
    std::uint32_t m_count = 0;
};
