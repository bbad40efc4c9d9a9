// Who has answered a search for GigE Vision cameras.
#pragma once

#include "protocol/gigevision.h"
#include "tovcamera.h"

#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

// What a camera calls itself, without control characters.
struct GvcpIdentity
{
    std::string vendor, model, serial, userID;
    bool operator==(GvcpIdentity const &) const = default;
};

// The identity in the body of a DISCOVERY_ACK, of any bytes. Nothing where the body is too short.
std::optional<GvcpIdentity> ReadIdentity(std::span<std::uint8_t const> body);
// Where it believes to be, in the body of a DISCOVERY_ACK that has an identity; its address is the sender's.
TovCam::NetworkPlace ReadPlace(std::span<std::uint8_t const> body, std::uint32_t sender);

// Whether an application has control of a camera whose control channel privilege register reads so.
bool GvcpIsControlled(std::uint32_t privilege);

// The answers to one search in one network. Takes any datagrams and keeps little of them, however many come: who
// answers is at the address that the answer came from, whatever it says itself. No locks; one thread.
class CameraRoll
{
public:
    // Cameras beyond that take the places of such as have answered nothing that was asked of them alone: a sender can
    // invent addresses, but does not hear what is sent there.
    static constexpr std::size_t MostCameras = 256;
    // Cameras at one address by mistake cannot be used until that is mended, but are seen.
    static constexpr std::size_t MostAtOneAddress = 4;

    struct Camera
    {
        std::uint32_t address;
        GvcpIdentity identity;
        std::optional<bool> isControlled = std::nullopt; // by an application
        bool isAsked = false;                            // who controls it
        TovCam::NetworkPlace place = {};                 // the search adds what the roll does not know
        bool isAskedForHost = false;                     // that controls it
        std::uint32_t controller = 0; // its address; 0 without one, and where the camera does not tell
    };

    // Requests with these ids have been sent; 0: none.
    CameraRoll(std::uint16_t discoveryId, std::uint16_t privilegeId, std::uint16_t controllerId = 0);

    // An answer to DISCOVERY_CMD; anything else is left.
    void TakeDiscovery(std::uint32_t address, std::span<std::uint8_t const> datagram);
    // An answer to READREG_CMD for the privilege register, from a camera that is known; anything else is left.
    void TakePrivilege(std::uint32_t address, std::span<std::uint8_t const> datagram);

    // The same for the register with the address of the host that controls it.
    void TakeController(std::uint32_t address, std::span<std::uint8_t const> datagram);

    std::vector<Camera> &GetCameras();
    bool Has(std::uint32_t address) const;
    // Whether all have told who controls them.
    bool IsComplete() const;

private:
    std::uint16_t const m_discoveryId, m_privilegeId, m_controllerId;
    std::vector<Camera> m_cameras;
    std::size_t m_victim = 0; // where the search for a place begins
};
