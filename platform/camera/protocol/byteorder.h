// Numbers as bytes in either order, whatever the order of this host. The caller has checked that there are enough
// bytes.
#pragma once

#include <cstddef>
#include <cstdint>

inline std::uint16_t LoadBig16(std::uint8_t const *bytes)
{
    return static_cast<std::uint16_t>(bytes[0] << 8 | bytes[1]);
}

inline std::uint32_t LoadBig32(std::uint8_t const *bytes)
{
    return std::uint32_t{LoadBig16(bytes)} << 16 | LoadBig16(bytes + 2);
}

inline std::uint64_t LoadBig48(std::uint8_t const *bytes)
{
    return std::uint64_t{LoadBig16(bytes)} << 32 | LoadBig32(bytes + 2);
}

inline std::uint64_t LoadBig64(std::uint8_t const *bytes)
{
    return std::uint64_t{LoadBig32(bytes)} << 32 | LoadBig32(bytes + 4);
}

inline std::uint16_t LoadLittle16(std::uint8_t const *bytes)
{
    return static_cast<std::uint16_t>(bytes[1] << 8 | bytes[0]);
}

inline std::uint32_t LoadLittle32(std::uint8_t const *bytes)
{
    return std::uint32_t{LoadLittle16(bytes + 2)} << 16 | LoadLittle16(bytes);
}

inline void StoreBig16(std::uint8_t *bytes, std::uint16_t value)
{
    bytes[0] = static_cast<std::uint8_t>(value >> 8);
    bytes[1] = static_cast<std::uint8_t>(value);
}

inline void StoreBig32(std::uint8_t *bytes, std::uint32_t value)
{
    StoreBig16(bytes, static_cast<std::uint16_t>(value >> 16));
    StoreBig16(bytes + 2, static_cast<std::uint16_t>(value));
}

// The low 48 bits.
inline void StoreBig48(std::uint8_t *bytes, std::uint64_t value)
{
    StoreBig16(bytes, static_cast<std::uint16_t>(value >> 32));
    StoreBig32(bytes + 2, static_cast<std::uint32_t>(value));
}

inline void StoreBig64(std::uint8_t *bytes, std::uint64_t value)
{
    StoreBig32(bytes, static_cast<std::uint32_t>(value >> 32));
    StoreBig32(bytes + 4, static_cast<std::uint32_t>(value));
}

inline void StoreLittle16(std::uint8_t *bytes, std::uint16_t value)
{
    bytes[0] = static_cast<std::uint8_t>(value);
    bytes[1] = static_cast<std::uint8_t>(value >> 8);
}

inline void StoreLittle32(std::uint8_t *bytes, std::uint32_t value)
{
    StoreLittle16(bytes, static_cast<std::uint16_t>(value));
    StoreLittle16(bytes + 2, static_cast<std::uint16_t>(value >> 16));
}

inline void StoreLittle64(std::uint8_t *bytes, std::uint64_t value)
{
    StoreLittle32(bytes, static_cast<std::uint32_t>(value));
    StoreLittle32(bytes + 4, static_cast<std::uint32_t>(value >> 32));
}
