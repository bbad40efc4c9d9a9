// The firmware of a simulated camera: its registers, and what reading and writing them does.
//
// Threads: every call under the lock of the device that holds the camera.
#pragma once

#include "simmemory.h"
#include "simstream.h"

#include "giveupwatch.h"
#include "registerdevice.h"

#include <arv.h>

#include <chrono>
#include <string>

class SimCamera : private SimMemory, public RegisterPort
{
public:
    SimCamera(SimModel const &model, SimStream &stream, EventHub &events);

    bool Read(std::uint64_t address, std::uint32_t size, std::uint8_t *out, GError **error) override;
    bool Write(std::uint64_t address, std::uint32_t size, std::uint8_t const *bytes, GError **error) override;
    bool IsBigEndian() const override
    {
        return SimMemory::IsBigEndian();
    }
    // How long an access takes, and whether Read and Write take that long themselves, as they do unless told otherwise.
    std::chrono::milliseconds DelayOf(std::uint64_t address, std::uint32_t size);
    void SetSleeps(bool sleeps);
    // Of whoever waits; null: of nobody. Before the camera is used; outlives it.
    void SetGiveUpWatch(GiveUpWatch const *watch);
    // Registers by their addresses in SimRegister, past all delays and faults; a write has no effect but on the memory.
    using SimMemory::GetFloat;
    using SimMemory::GetInt;
    using SimMemory::GetText;
    using SimMemory::SetInt;
    using SimMemory::SetText;
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
    std::uint64_t LineLevel(std::uint32_t line, bool running) const;
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
    GiveUpWatch const *m_giveUp = nullptr;
    bool m_lost = false, m_sleeps = true;
    bool m_asking = false; // the camera itself reads registers
    std::array<std::uint8_t, 4> m_sensorClass{};
    std::unique_ptr<SimPackets> const m_packets;
};
