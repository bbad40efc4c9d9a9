// The bootstrap registers of a GigE Vision camera: their bytes, which of them exist, and who may write them. The
// capabilities among them are those of GvcpServer and FrameSender.
//
// Used by one thread at a time.
#pragma once

#include "protocol/gigevision.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

class BootstrapMemory
{
public:
    static constexpr std::uint32_t Actions = 4; // action signals

    struct Register
    {
        std::uint32_t address = 0, size = 0;
    };

    // As at power-up. What differs from camera to camera is zero: addresses, texts, frequencies.
    BootstrapMemory();

    // Whether the address belongs to them, whether a register is there or not.
    static bool Covers(std::uint32_t address)
    {
        return address < gvcp::bootstrap::ManufacturerRegisters;
    }
    // The register that this byte belongs to; its size is 0 where there is none.
    static Register RegisterAt(std::uint32_t address);
    // Bits of a register that ask for something to be done, and are 0 again afterwards.
    static std::uint32_t CommandBits(std::uint32_t address);

    // By the camera itself. The address is covered, the whole value or text is.
    std::uint32_t Get(std::uint32_t address) const;
    void Set(std::uint32_t address, std::uint32_t value);
    std::string GetText(std::uint32_t address, std::size_t size) const;
    void SetText(std::uint32_t address, std::size_t size, std::string_view text); // what is too long is cut
    std::span<std::uint8_t> Bytes(std::uint32_t address, std::size_t size);

    // What a host gets. Every byte has to lie in a register that exists and can be read.
    gvcp::Status Read(std::uint32_t address, std::span<std::uint8_t> out) const;
    // Whether a host may write there, by the register alone; who has control is the server's business.
    gvcp::Status CheckWrite(std::uint32_t address, std::size_t size) const;
    // What a host writes where it may. A register of 4 bytes takes the nearest that it can hold.
    void Write(std::uint32_t address, std::span<std::uint8_t const> bytes);

private:
    std::vector<std::uint8_t> m_bytes;
};
