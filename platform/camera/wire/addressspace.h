// What lies behind the bootstrap registers of a camera on the network: the registers of the simulation, those of the
// network's faults, and the descriptions.
//
// Used by one thread at a time.
#pragma once

#include "sim/simcamera.h"
#include "wirefaults.h"
#include "wireregisters.h"

#include "protocol/gigevision.h"

#include <cstdint>
#include <span>
#include <string>

class AddressSpace
{
public:
    explicit AddressSpace(SimCamera &camera);

    gvcp::Status Read(std::uint32_t address, std::span<std::uint8_t> out);
    // Stores and has the simulation react; the faults are the owner's to fetch.
    gvcp::Status Write(std::uint32_t address, std::span<std::uint8_t const> bytes);

    StreamFaults GetStreamFaults() const;
    ControlFaults GetControlFaults() const;
    // The registers of WireRegister.
    SimMemory &GetWire()
    {
        return m_wire;
    }
    SimMemory const &GetWire() const
    {
        return m_wire;
    }
    // Chunk data are off, as at power-up.
    void ResetChunks();
    // What a host finds at the two addresses of the descriptions.
    void SetDescriptions(std::string plain, std::string zipped);
    // Whether a read has the last byte of either.
    bool EndsDescription(std::uint32_t address, std::uint32_t size) const;

private:
    SimCamera &m_camera;
    SimMemory m_wire;
    std::string m_plain, m_zipped;
};
