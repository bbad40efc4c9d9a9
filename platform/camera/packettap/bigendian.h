// Numbers in the order of the network. The caller has checked that the bytes are there.
#pragma once

#include <cstdint>

inline std::uint16_t Big16(std::uint8_t const *bytes)
{
    return static_cast<std::uint16_t>(bytes[0] << 8 | bytes[1]);
}

inline std::uint32_t Big32(std::uint8_t const *bytes)
{
    return std::uint32_t{Big16(bytes)} << 16 | Big16(bytes + 2);
}
