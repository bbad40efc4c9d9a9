// A simulated camera on the network: GigE Vision over UDP, at an address of this computer.
//
// Threads: every call from one thread, the program's. The camera has a thread for its control channel, which owns its
// registers, and one that sends frames.
#pragma once

#include "sim/simmodel.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>

// The models that can be served.
std::span<SimModel const *const> GetWireModels();

struct WireCameraOptions
{
    SimModel const *model = nullptr;
    std::string address = "127.0.0.1"; // of this computer, dotted IPv4
    std::string serial;                // "": the model's own
    std::string userName;
};

struct WireCameraStatus
{
    bool alive = false;         // not unplugged
    std::string address;        // it answers at
    std::string controller;     // address:port of the host that has control, "" for none
    std::uint64_t controls = 0; // times that a host has got it
    std::string trouble;        // why it did not come back, "" for none
    std::uint64_t frames = 0, packets = 0, resent = 0, refused = 0; // sent
    std::uint64_t leftOut = 0; // frames of the sensor that were not sent, though later ones were
};

class WireCamera
{
public:
    // Answers when the constructor returns. Throws std::runtime_error with a text for the user: no such address, the
    // control port is taken, ...
    explicit WireCamera(WireCameraOptions const &options);
    ~WireCamera();
    WireCamera(WireCamera const &) = delete;
    WireCamera &operator=(WireCamera const &) = delete;

    // A feature by its name in the description; commands take any value. False, and why, where the camera refuses.
    bool SetFeature(std::string const &name, std::string const &value, std::string &why);
    std::optional<std::string> GetFeature(std::string const &name, std::string &why);
    // As if unplugged, and plugged in again: at another address where one is given, or else at the one that a host has
    // had it keep, or where it began; with or without the settings. A camera that has not gone restarts. Return throws
    // as the constructor does.
    void Die();
    void Return(std::string const &address = {}, bool reset = false);
    WireCameraStatus GetStatus() const;

private:
    struct Impl;
    std::unique_ptr<Impl> const m_impl;
};
