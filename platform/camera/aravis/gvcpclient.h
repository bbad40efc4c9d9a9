// The few GigE Vision control requests that are made beside Aravis: Aravis tells neither a camera's user id nor whether
// it is in use, takes seconds over an address that nobody answers at, and loads a camera's description unseen.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

struct GvcpIdentity
{
    std::string vendor, model, serial, userID;
};

// One camera's control port. Any one thread at a time; every call is over after a few hundred milliseconds.
class GvcpClient
{
public:
    explicit GvcpClient(std::string const &address); // dotted IPv4; anything else answers nothing
    ~GvcpClient();
    GvcpClient(GvcpClient const &) = delete;
    GvcpClient &operator=(GvcpClient const &) = delete;

    bool Discover(GvcpIdentity &identity);
    bool ReadRegister(std::uint32_t address, std::uint32_t &value);
    bool ReadMemory(std::uint32_t address, std::size_t size, std::vector<std::uint8_t> &data);
    // The host's address on the way to the camera, "" when there is no way.
    std::string GetLocalAddress() const;

private:
    bool Request(std::uint16_t command, std::vector<std::uint8_t> const &payload, std::vector<std::uint8_t> &answer);

    int m_socket = -1;
    std::uint16_t m_requestId = 0;
};

constexpr std::uint32_t GvcpControlChannelPrivilege = 0x0A00;

// Whether an application has control of a camera whose control channel privilege register reads so.
bool GvcpIsControlled(std::uint32_t privilege);

// Looks at where the camera keeps its GenICam description before Aravis loads it: 0, or TOV_CAM_ERR_GENICAM_TREE for a
// file of the host, another server, an absurd size, or an archive that is broken or unpacks to an absurd size.
std::int32_t CheckDescriptionSource(GvcpClient &camera);
