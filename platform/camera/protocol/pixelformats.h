// Pixel formats as cameras name them: codes of the Pixel Format Naming Convention. Only those that are used by name
// here; the image library has a table of all.
#pragma once

#include <cstdint>

namespace pfnc {

enum : std::uint32_t {
    Mono8 = 0x01080001,
    BayerGR8 = 0x01080008,
    RGB8 = 0x02180014,
};

} // namespace pfnc
