#include "simsensor.h"

#include <algorithm>
#include <cmath>
#include <random>

namespace {

constexpr std::uint32_t LightBits = 14;
constexpr std::uint32_t LightEnd = 1u << LightBits;
constexpr std::uint32_t GrainSize = 1 << 16; // a power of two

std::uint16_t Quantise(float light)
{
    return static_cast<std::uint16_t>(std::clamp(light, 0.0f, 1.0f) * (LightEnd - 1) + 0.5f);
}

} // namespace

SimSensor::SimSensor(bool colour) : m_colour(colour), m_grain(GrainSize)
{
    std::mt19937 random(20480);
    std::normal_distribution<float> normal(0.0f, 32.0f);
    for (std::int8_t &n : m_grain)
        n = static_cast<std::int8_t>(std::clamp(normal(random), -127.0f, 127.0f));
}

void SimSensor::Prepare(TovPixelTypeInfo const *info, SimLook const &look)
{
    m_info = info;
    MakeTone(look);
}

std::uint32_t SimSensor::Channels() const
{
    return m_colour ? 3 : 1;
}

void SimSensor::Collect(Colour c, std::uint16_t *light) const
{
    // Headroom: at the exposure and gain of power-up white does not clip.
    if (m_colour) {
        light[0] = Quantise(0.85f * c.r);
        light[1] = Quantise(0.85f * c.g);
        light[2] = Quantise(0.85f * c.b);
    } else {
        light[0] = Quantise(0.85f * (0.3f * c.r + 0.59f * c.g + 0.11f * c.b));
    }
}

void SimSensor::MakeTone(SimLook const &look)
{
    double const light = look.exposure / 10000.0 * look.gain;
    for (std::uint32_t c = 0; c < Channels(); ++c) {
        m_tone[c].resize(LightEnd);
        double const factor = light * (m_colour ? look.balance[c] : 1.0) / (LightEnd - 1);
        for (std::uint32_t i = 0; i < LightEnd; ++i) {
            double value = std::clamp(i * factor + look.black, 0.0, 1.0);
            if (look.gamma != 1.0)
                value = std::pow(value, look.gamma);
            if (look.useTable)
                value = look.table[static_cast<std::size_t>(value * (SimRegister::LutEntries - 1))] / 4095.0;
            m_tone[c][i] = static_cast<std::uint16_t>(value * 65535.0);
        }
    }
    // Noise of the read-out and of the light.
    for (std::size_t i = 0; i < m_noise.size(); ++i) {
        double const signal = static_cast<double>(i) / static_cast<double>(m_noise.size());
        double const sigma = 0.0012 * look.gain + 0.009 * std::sqrt(signal * look.gain);
        m_noise[i] = static_cast<std::int32_t>(std::min(sigma, 0.12) * 65535.0);
    }
}

std::uint32_t SimSensor::MosaicChannel(std::uint32_t x, std::uint32_t y) const
{
    static constexpr std::uint8_t Phases[5][4] = {{1, 1, 1, 1}, {1, 0, 2, 1}, {0, 1, 1, 2}, {1, 2, 0, 1}, {2, 1, 1, 0}};
    return Phases[m_info->bayer][(y & 1) * 2 + (x & 1)];
}

void SimSensor::Develop(std::uint16_t const *light, std::uint32_t pixels, std::uint32_t y, std::uint32_t seed,
                        std::uint16_t *samples) const
{
    int const shift = 16 - m_info->bitDepth;
    std::int8_t const *const grain = m_grain.data();
    auto const sample = [&](std::uint32_t value, std::uint32_t i) {
        std::int32_t const noise = grain[(seed + i) & (GrainSize - 1)] * m_noise[value >> 8];
        std::int32_t const noisy = static_cast<std::int32_t>(value) + (noise >> 5);
        return static_cast<std::uint16_t>(std::clamp(noisy, 0, 65535) >> shift);
    };
    if (m_info->family == TOV_FAMILY_RGB) {
        for (std::uint32_t i = 0; i < pixels * 3; ++i)
            samples[i] = sample(m_tone[i % 3][light[i]], i);
    } else if (m_info->family == TOV_FAMILY_BAYER) {
        std::uint32_t const channels[2] = {MosaicChannel(0, y), MosaicChannel(1, y)};
        for (std::uint32_t i = 0; i < pixels; ++i) {
            std::uint32_t const c = channels[i & 1];
            samples[i] = sample(m_tone[c][light[i * 3 + c]], i);
        }
    } else if (m_colour) {
        for (std::uint32_t i = 0; i < pixels; ++i) {
            std::uint32_t const value = (77u * m_tone[0][light[i * 3]] + 151u * m_tone[1][light[i * 3 + 1]] +
                                         28u * m_tone[2][light[i * 3 + 2]]) >>
                                        8;
            samples[i] = sample(value, i);
        }
    } else {
        for (std::uint32_t i = 0; i < pixels; ++i)
            samples[i] = sample(m_tone[0][light[i]], i);
    }
}

void SimSensor::Pack(std::uint16_t const *samples, std::uint32_t pixels, std::uint8_t *out) const
{
    std::uint32_t const count = pixels * m_info->channels;
    int const depth = m_info->bitDepth;
    if (m_info->packing == TOV_PACKED_GEV) {
        std::uint32_t const low = (1u << (depth - 8)) - 1;
        for (std::uint32_t i = 0; i + 1 < count; i += 2, out += 3) {
            out[0] = static_cast<std::uint8_t>(samples[i] >> (depth - 8));
            out[1] = static_cast<std::uint8_t>((samples[i] & low) | (samples[i + 1] & low) << 4);
            out[2] = static_cast<std::uint8_t>(samples[i + 1] >> (depth - 8));
        }
    } else if (m_info->packing == TOV_PACKED_P) {
        std::uint32_t bits = 0;
        int have = 0;
        for (std::uint32_t i = 0; i < count; ++i) {
            bits |= static_cast<std::uint32_t>(samples[i]) << have;
            for (have += depth; have >= 8; have -= 8, bits >>= 8)
                *out++ = static_cast<std::uint8_t>(bits);
        }
    } else if (depth == 8) {
        for (std::uint32_t i = 0; i < count; ++i)
            out[i] = static_cast<std::uint8_t>(samples[i]);
    } else {
        for (std::uint32_t i = 0; i < count; ++i) {
            out[2 * i] = static_cast<std::uint8_t>(samples[i]);
            out[2 * i + 1] = static_cast<std::uint8_t>(samples[i] >> 8);
        }
    }
}
