#include "simmemory.h"

#include "simregisters.h"

#include <algorithm>
#include <cmath>
#include <cstring>

SimMemory::SimMemory(bool bigEndian, std::uint32_t begin, std::uint32_t end)
    : m_big(bigEndian),
      m_begin(begin),
      m_end(end),
      m_bytes(end - begin)
{
}

bool SimMemory::IsBigEndian() const
{
    return m_big;
}

std::uint8_t *SimMemory::Find(std::uint64_t address, std::uint32_t size)
{
    if (size > 0 && address >= m_begin && address < m_end && size <= m_end - address)
        return At(static_cast<std::uint32_t>(address));
    return nullptr;
}

std::uint8_t *SimMemory::At(std::uint32_t address)
{
    return m_bytes.data() + (address - m_begin);
}

std::uint8_t const *SimMemory::At(std::uint32_t address) const
{
    return m_bytes.data() + (address - m_begin);
}

std::uint64_t SimMemory::GetInt(std::uint32_t address, std::uint32_t size) const
{
    std::uint64_t value = 0;
    for (std::uint32_t i = 0; i < size; ++i)
        value = value << 8 | At(address)[m_big ? i : size - 1 - i];
    return value;
}

void SimMemory::SetInt(std::uint32_t address, std::uint64_t value, std::uint32_t size)
{
    for (std::uint32_t i = 0; i < size; ++i, value >>= 8)
        At(address)[m_big ? size - 1 - i : i] = static_cast<std::uint8_t>(value);
}

double SimMemory::GetFloat(std::uint32_t address) const
{
    std::uint64_t const bits = GetInt(address, 8);
    double value;
    std::memcpy(&value, &bits, sizeof value);
    return std::isfinite(value) ? value : 0.0;
}

void SimMemory::SetFloat(std::uint32_t address, double value)
{
    std::uint64_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    SetInt(address, bits, 8);
}

std::string SimMemory::GetText(std::uint32_t address) const
{
    auto const *const text = reinterpret_cast<char const *>(At(address));
    return std::string(text, strnlen(text, SimRegister::TextSize));
}

void SimMemory::SetText(std::uint32_t address, std::string const &text)
{
    std::fill_n(At(address), SimRegister::TextSize, 0);
    std::copy_n(text.begin(), std::min<std::size_t>(text.size(), SimRegister::TextSize - 1), At(address));
}

void SimMemory::Clear(std::uint32_t begin, std::uint32_t end)
{
    std::fill(At(begin), At(end), 0);
}
