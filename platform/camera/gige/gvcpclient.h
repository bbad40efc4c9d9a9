// The few requests to a GigE Vision camera that nobody has opened: who it is, and whether it is in use.
#pragma once

#include "cameraroll.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

// One camera's control port. Any one thread at a time; every call is over after a few hundred milliseconds.
class GvcpClient
{
public:
    explicit GvcpClient(std::string const &address); // dotted IPv4; with anything else every request fails
    ~GvcpClient();
    GvcpClient(GvcpClient const &) = delete;
    GvcpClient &operator=(GvcpClient const &) = delete;

    bool Discover(GvcpIdentity &identity, TovCam::NetworkPlace *place = nullptr);
    bool ReadRegister(std::uint32_t address, std::uint32_t &value);
    bool ReadMemory(std::uint32_t address, std::size_t size, std::vector<std::uint8_t> &data);
    // The host's address on the way to the camera, "" when there is no way.
    std::string GetLocalAddress() const;

private:
    // The body of the acknowledge; false without one, and for one of a request that the camera refuses.
    bool Request(std::uint16_t command, std::span<std::uint8_t const> body, std::vector<std::uint8_t> &answer);

    std::uint32_t m_address = 0; // the camera's
    int m_socket = -1;
    std::uint16_t m_requestId = 0;
};
