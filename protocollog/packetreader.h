// Numbers from an unchecked packet. What lies past its end reads as zero.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>

enum class ByteOrder { Big, Little };

template<ByteOrder Order>
class PacketReader
{
public:
    PacketReader(void const *data, std::uint64_t size) : m_data(static_cast<std::uint8_t const *>(data)), m_size(size)
    {
    }
    std::uint64_t Size() const
    {
        return m_size;
    }
    std::uint8_t Byte(std::uint64_t at) const
    {
        return at < m_size ? m_data[at] : 0;
    }
    std::uint16_t U16(std::uint64_t at) const
    {
        return static_cast<std::uint16_t>(Number(at, 2));
    }
    std::uint32_t U32(std::uint64_t at) const
    {
        return static_cast<std::uint32_t>(Number(at, 4));
    }
    // The number of `bytes` bytes, at most 8.
    std::uint64_t Number(std::uint64_t at, unsigned bytes) const
    {
        std::uint64_t value = 0;
        for (unsigned i = 0; i < bytes; ++i)
            value = value << 8 | Byte(at + (Order == ByteOrder::Big ? i : bytes - 1 - i));
        return value;
    }
    // The first bytes as they are.
    void Copy(void *to, std::uint64_t bytes) const
    {
        std::uint64_t const there = std::min(bytes, m_size);
        if (there > 0)
            std::memcpy(to, m_data, there);
        std::memset(static_cast<std::uint8_t *>(to) + there, 0, bytes - there);
    }

private:
    std::uint8_t const *m_data;
    std::uint64_t m_size;
};

using BigEndianReader = PacketReader<ByteOrder::Big>;
using LittleEndianReader = PacketReader<ByteOrder::Little>;
