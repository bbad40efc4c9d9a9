// Capture files of a camera's packets, as other programs read and write them.
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
    static constexpr std::uint16_t ControlPort = 3956, StreamPort = 40000, MessagePort = 40001;
    enum Link : std::uint32_t { RawIp = 101, UsbMonitor = 220 };
    static constexpr std::size_t HeaderBytes = 24, RecordBytes = 16, UdpBytes = 28; // of the file, a packet, IP and UDP

    explicit PcapFile(std::string const &path, Link link = RawIp) : m_out(path, std::ios::binary)
    {
        Little(0xA1B2C3D4, 4).Little(2, 2).Little(4, 2).Little(0, 8).Little(0x40000, 4).Little(link, 4);
    }
    // One packet on the port of its protocol; no more than `most` bytes of it are captured.
    void Add(std::uint32_t channel, std::vector<std::uint8_t> const &bytes, std::size_t most = 65535)
    {
        std::uint16_t const port = channel == TovCam::EventStreamChannel  ? StreamPort
                                   : channel == TovCam::EventEventChannel ? MessagePort
                                                                          : ControlPort;
        auto const length = static_cast<std::uint32_t>(UdpBytes + bytes.size());
        std::size_t const taken = std::min(bytes.size(), most);
        Record(UdpBytes + taken, length);
        Big(0x4500, 2).Big(length, 2).Big(0, 4).Big(0x4011, 2).Big(0, 2).Big(0x7F000001, 4).Big(0x7F000001, 4);
        Big(port, 2).Big(port, 2).Big(length - 20, 2).Big(0, 2);
        m_out.write(reinterpret_cast<char const *>(bytes.data()), static_cast<std::streamsize>(taken));
    }
    // What tells a reader that knows nothing of the camera which of its endpoints is what.
    void AddUsbDescriptors()
    {
        std::vector<std::uint8_t> const device{18, 1, 0, 3, 0xEF, 2, 1, 9, 0, 0, 0, 0, 0, 1, 0, 0, 0, 1};
        std::vector<std::uint8_t> configuration{9, 2, 0, 0, 3, 1, 0, 0xC0, 50};
        for (std::uint8_t const interface : {0, 1, 2}) { // control, event, stream
            bool const control = interface == 0;
            configuration.insert(configuration.end(), {9, 4, interface, 0, static_cast<std::uint8_t>(control ? 2 : 1),
                                                       0xEF, 5, interface, 0});
            if (control)
                configuration.insert(configuration.end(), {7, 5, 0x01, 2, 0, 4, 0});
            configuration.insert(configuration.end(), {7, 5, static_cast<std::uint8_t>(0x81 + interface), 2, 0, 4, 0});
        }
        configuration[2] = static_cast<std::uint8_t>(configuration.size());
        AddUsbDescriptor(1, device);
        AddUsbDescriptor(2, configuration);
    }
    // The same of a USB3 Vision camera: commands leave when they are submitted, all else comes when it is complete.
    void AddUsb(std::uint32_t channel, std::vector<std::uint8_t> const &bytes, std::size_t most = 65535)
    {
        constexpr std::size_t Header = 64;
        bool const control = channel == TovCam::EventControlChannel, command = control && bytes[6] % 2 == 0;
        std::size_t const taken = std::min(bytes.size(), most);
        Record(Header + taken, Header + bytes.size());
        Little(m_count, 8).Little(command ? 'S' : 'C', 1).Little(3, 1);
        Little(command ? 0x01 : control ? 0x81 : channel == TovCam::EventEventChannel ? 0x82 : 0x83, 1);
        Little(5, 1).Little(2, 2).Little('-', 1).Little(0, 1).Little(0, 16).Little(bytes.size(), 4).Little(taken, 4);
        Little(0, 24);
        m_out.write(reinterpret_cast<char const *>(bytes.data()), static_cast<std::streamsize>(taken));
    }

private:
    // Asked for and answered.
    void AddUsbDescriptor(std::uint8_t type, std::vector<std::uint8_t> const &bytes)
    {
        constexpr std::size_t Header = 64;
        for (char const event : {'S', 'C'}) {
            bool const answer = event == 'C';
            Record(Header + (answer ? bytes.size() : 0), Header + (answer ? bytes.size() : 0));
            Little(0x1000u + type, 8).Little(static_cast<std::uint8_t>(event), 1).Little(2, 1).Little(0x80, 1);
            Little(5, 1).Little(2, 2).Little(answer ? '-' : 0, 1).Little(answer ? 0 : '<', 1).Little(0, 16);
            Little(bytes.size(), 4).Little(answer ? bytes.size() : 0, 4);
            Little(0x80, 1).Little(6, 1).Little(0, 1).Little(type, 1).Little(0, 2).Little(bytes.size(), 2);
            Little(0, 16);
            if (answer)
                m_out.write(reinterpret_cast<char const *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        }
    }
    void Record(std::size_t taken, std::size_t length)
    {
        ++m_count;
        Little(m_count / 1000, 4).Little(m_count % 1000 * 1000, 4).Little(taken, 4).Little(length, 4);
    }
    PcapFile &Little(std::uint64_t value, int bytes)
    {
        for (int i = 0; i < bytes; ++i)
            m_out.put(i < 8 ? static_cast<char>(value >> 8 * i) : '\0');
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
