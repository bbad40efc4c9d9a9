// Registers of a simulated camera as bytes, in the byte order of its transport.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

class SimMemory
{
public:
    SimMemory(bool bigEndian, std::uint32_t begin, std::uint32_t end);

    bool IsBigEndian() const;
    // Null where not all of the bytes are there.
    std::uint8_t *Find(std::uint64_t address, std::uint32_t size);

    // The addresses lie between begin and end.
    std::uint64_t GetInt(std::uint32_t address, std::uint32_t size = 4) const;
    void SetInt(std::uint32_t address, std::uint64_t value, std::uint32_t size = 4);
    double GetFloat(std::uint32_t address) const; // 0 for what is not finite
    void SetFloat(std::uint32_t address, double value);
    std::string GetText(std::uint32_t address) const;
    void SetText(std::uint32_t address, std::string const &text); // what is too long is cut
    void Clear(std::uint32_t begin, std::uint32_t end);

private:
    std::uint8_t *At(std::uint32_t address);
    std::uint8_t const *At(std::uint32_t address) const;

    bool const m_big;
    std::uint32_t const m_begin, m_end;
    std::vector<std::uint8_t> m_bytes;
};
