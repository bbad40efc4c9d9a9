// Samples of one line, from whatever form they have in memory.
#pragma once

#include "tovimage.h"

#include <bit>

static_assert(std::endian::native == std::endian::little, "deep samples are read as they stand in memory");

// The hot loops are plain C++ over vectors of 16 bytes, which every target has. Debian's x86-64 baseline lacks the byte
// shuffle they rely on, so there the functions marked with this are compiled for newer processors as well, and the
// loader picks. It picks before a sanitizer is ready, hence not under one.
#if defined(__x86_64__) && defined(__gnu_linux__) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#define TOV_CPU_CLONES __attribute__((target_clones("avx2", "ssse3", "default")))
#else
#define TOV_CPU_CLONES
#endif
#define TOV_ALWAYS_INLINE inline __attribute__((always_inline))

namespace TovPixels {

// Lines of foreign memory may begin anywhere, so deep samples are read and written through this type.
using Sample16 = std::uint16_t __attribute__((aligned(1), may_alias));

// Samples that one pixel takes.
std::uint32_t SamplesPerPixel(TovPixelTypeInfo const &info);

// `count` samples of a line from the sample `first` on: at their own depth, right-aligned, or their upper eight bits.
// Packed samples are shifted up by `shift` bits on the way; others are not. Nothing behind the last sample's last byte
// is read. The output must not overlap the line.
void Unpack16(TovPixelTypeInfo const &info, std::uint8_t const *line, std::size_t first, std::size_t count,
              Sample16 *samples, unsigned shift = 0);
void Unpack8(TovPixelTypeInfo const &info, std::uint8_t const *line, std::size_t first, std::size_t count,
             std::uint8_t *samples);

} // namespace TovPixels
