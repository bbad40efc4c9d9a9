// An ArvDevice whose registers are an object of ours.
//
// Threads: as ArvDevice, which has no lock of its own: one thread at a time.
#pragma once

#include <arv.h>

#include <cstdint>
#include <string_view>

// What the device reads and writes.
class RegisterPort
{
public:
    virtual ~RegisterPort() = default;

    // A refused access is false and an error.
    virtual bool Read(std::uint64_t address, std::uint32_t size, std::uint8_t *out, GError **error) = 0;
    virtual bool Write(std::uint64_t address, std::uint32_t size, std::uint8_t const *bytes, GError **error) = 0;
    virtual bool IsBigEndian() const = 0;
    // Four bytes as a number. By Read and Write where the camera has no other way.
    virtual bool ReadRegister(std::uint64_t address, std::uint32_t &value, GError **error);
    virtual bool WriteRegister(std::uint64_t address, std::uint32_t value, GError **error);
};

// One that is closed: every access fails. `xml` outlives it; the node map is made of it when it is first asked for,
// with its formulas guarded (genicam/formulaguard.h).
ArvDevice *NewRegisterDevice(std::string_view xml);
// Whether the device is one of these, so that arv_device_get_genicam gives a harmless node map.
bool HasGuardedFormulas(ArvDevice *device);
// Opens it, or closes it again with null. The device may outlive the port once it is closed.
void SetRegisterPort(ArvDevice *device, RegisterPort *port);
