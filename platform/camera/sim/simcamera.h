// The firmware of a simulated camera: its registers, and what reading and writing them does.
//
// Threads: every call under the lock of the device that holds the camera.
#pragma once

#include "simmemory.h"
#include "simstream.h"

#include <arv.h>

#include <string>

class SimCamera : private SimMemory
{
public:
    SimCamera(SimModel const &model, SimStream &stream, EventHub &events);

    // As ArvDevice has them; a refused access is FALSE and an error.
    bool Read(std::uint64_t address, std::uint32_t size, std::uint8_t *out, GError **error);
    bool Write(std::uint64_t address, std::uint32_t size, std::uint8_t const *bytes, GError **error);
    using SimMemory::IsBigEndian;
    // The node map of this camera, which names the features that fail or are slow. It outlives the camera's last
    // access.
    void SetNodeMap(ArvGc *nodeMap);
    std::int32_t GetFormat(SimFormat &format);

private:
    // As Find, with the register that lies far from the others.
    std::uint8_t *FindBytes(std::uint64_t address, std::uint32_t size);

    void PowerUp();
    void Refresh(std::uint64_t address, std::uint32_t size);
    void React(std::uint32_t address);
    void FitFormat();
    SimFormat CurrentFormat() const;
    SimSettings CurrentSettings() const;
    std::uint64_t PixelClock() const; // MHz, as the clock generator makes it
    double SensorPeriod() const;      // s
    double FramePeriod() const;
    void Delay(std::uint64_t address, std::uint32_t size);
    bool IsFeatureAt(std::uint32_t nameRegister, std::uint64_t address, std::uint32_t size);
    void Log(bool write, bool failed, std::uint64_t address, std::uint8_t const *bytes, std::uint32_t size);

    SimModel const &m_model;
    SimStream &m_stream;
    EventHub &m_events;
    ArvGc *m_nodeMap = nullptr;
    bool m_lost = false;
    bool m_asking = false; // the camera itself reads registers
    std::array<std::uint8_t, 4> m_sensorClass{};
    std::unique_ptr<SimPackets> const m_packets;
};
