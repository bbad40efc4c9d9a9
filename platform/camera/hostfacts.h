// What the host knows about the path to a camera, read from /sys and /proc.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

// Lines "Label: value", the values below each other in a fixed pitch. Facts that are not known are left out.
std::string AlignLines(std::vector<std::pair<std::string, std::string>> const &facts);

struct NetworkAdapter
{
    std::string name; // "" when there is none
    std::uint64_t mac = 0;
    std::string mtu, speed, driver; // as an operator reads them, "" when not known
};

// Reads below `root`, which is "" but for tests.
class HostFacts
{
public:
    explicit HostFacts(std::string root = {});
    NetworkAdapter GetAdapter(std::string const &name) const;
    std::string GetReceiveBuffer() const; // the most that a socket may ask for
    std::string GetUsbBuffer() const;     // for all USB transfers of the host together
    std::string GetKernel() const;
    std::string GetUsbSpeed(std::string const &serialNumber) const; // of the device with it
    // Its folder below /sys/bus/usb/devices, "" when there is none.
    std::string FindUsbDevice(std::string const &serialNumber) const;
    std::string Read(std::string const &file) const; // the first line, "" when it cannot be read
    std::string const &GetRoot() const
    {
        return m_root;
    }

private:
    std::string const m_root;
};

// The adapter that has the host's address `address` (dotted IPv4), "" when there is none.
std::string FindAdapter(std::string const &address);
