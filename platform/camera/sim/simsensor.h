// A simulated sensor and the electronics behind it: makes samples of light, with exposure, gain and noise, and packs
// them into the bytes of a pixel format.
//
// Used by one thread at a time.
#pragma once

#include "simmodel.h"
#include "testchart.h"

#include <array>
#include <cstdint>
#include <vector>

class SimSensor
{
public:
    explicit SimSensor(bool colour);

    // Before samples are made, and again when one of the two changes.
    void Prepare(TovPixelTypeInfo const *info, SimLook const &look);

    // Values of a pixel's light: red, green and blue, or one.
    std::uint32_t Channels() const;
    // The light of a place, `Channels()` values.
    void Collect(Colour colour, std::uint16_t *light) const;
    // Which of them a pixel of the mosaic sees: 0 red, 1 green, 2 blue.
    std::uint32_t MosaicChannel(std::uint32_t x, std::uint32_t y) const;
    // Makes samples of the light of line `y`, as deep as the format, with noise that begins at `seed`.
    void Develop(std::uint16_t const *light, std::uint32_t pixels, std::uint32_t y, std::uint32_t seed,
                 std::uint16_t *samples) const;
    void Pack(std::uint16_t const *samples, std::uint32_t pixels, std::uint8_t *out) const;

private:
    void MakeTone(SimLook const &look);

    bool const m_colour;
    TovPixelTypeInfo const *m_info = nullptr;
    std::vector<std::int8_t> m_grain;                 // noise of a standard deviation of 32
    std::array<std::vector<std::uint16_t>, 3> m_tone; // of each channel, from light to 16 bits
    std::array<std::int32_t, 256> m_noise{};          // by the upper bits of a value, on the scale of 16 bits
};
