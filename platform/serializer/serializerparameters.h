// The serializer's parameters, as platform/tovserializer.h lists them.
#pragma once

#include "tovcomponentbase.h"

#include <array>
#include <cstdint>
#include <string>

// Set by any thread, and read where a recording starts.
class SerializerParameters final : public TovComponentBase
{
public:
    SerializerParameters();

    int JpegQuality() const;  // percent
    std::string Compressor(); // empty for one whose name is too long to be any

private:
    // Bound to the storage.
    std::int64_t m_jpegQuality = 85;
    std::array<char, 256> m_compressors{};
    std::array<char, 64> m_compressor{};
    std::int64_t m_options = 0;
};
