// The colour model table: what the samples of each pixel type are called and where a component's letter finds them.
#pragma once

#include <cstdint>

// The channel of a component letter, or -1.
int GetIndexMONO(char16_t letter);
int GetIndexRGB(char16_t letter);
int GetIndexBGR(char16_t letter);
int GetIndexRGBA(char16_t letter);
int GetIndexBGRA(char16_t letter);
int GetIndexYUV(char16_t letter);

struct ColorModelDescription
{
    char const *name;
    char const *layout; // component letters in memory order, or over a mosaic's cell
    std::uint32_t channels;
    std::uint32_t bitsPerChannel;
    int (*getIndex)(char16_t letter);
    std::uint32_t mosaicPhase; // 0 to 3, non-zero in TrueSense rows only
    std::uint32_t pixelType;   // TV_PIXEL_TYPE_DEFINES
};

constexpr std::uint32_t ColorModelRows = 133;

// Indexed by the low byte of a pixel type minus 1. Any thread.
extern ColorModelDescription const (&s_colorModelDescription)[ColorModelRows];

// The row of a pixel type, or null when its low byte names none.
ColorModelDescription const *GetColorModel(std::uint32_t pixelType);
