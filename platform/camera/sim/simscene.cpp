#include "simscene.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>

namespace {

constexpr int RadianceBits = 14;
constexpr std::uint32_t RadianceEnd = 1u << RadianceBits;
constexpr std::uint32_t Variants = 4;        // finished pictures, a power of two
constexpr std::uint32_t Grid = 8;            // pixels that take whole bytes in every format; tiles stand on this grid
constexpr std::uint32_t NoiseSize = 1 << 16; // a power of two
constexpr double Pi = 3.14159265358979323846;
constexpr std::size_t BandBytes = 1 << 16; // copied in one go
constexpr std::uint32_t HandPhases = 24;
constexpr std::uint32_t Digits = 8;
constexpr std::uint32_t DigitScale = 5; // pixels a dot
constexpr std::uint32_t DigitWidth = 32, DigitHeight = 44;

struct Colour
{
    float r, g, b;
};

Colour Grey(float value)
{
    return {value, value, value};
}

Colour Mix(Colour a, Colour b, float share)
{
    return {a.r + (b.r - a.r) * share, a.g + (b.g - a.g) * share, a.b + (b.b - a.b) * share};
}

// The six by four fields of the colour chart, linear light. The last row is grey.
constexpr Colour s_chart[24] = {
    {.17f, .08f, .05f}, {.56f, .30f, .22f}, {.11f, .19f, .34f}, {.09f, .15f, .05f}, {.22f, .21f, .43f},
    {.13f, .51f, .40f}, {.68f, .20f, .03f}, {.06f, .10f, .38f}, {.53f, .08f, .12f}, {.10f, .04f, .14f},
    {.34f, .50f, .05f}, {.75f, .36f, .02f}, {.03f, .05f, .28f}, {.06f, .29f, .06f}, {.43f, .03f, .04f},
    {.81f, .57f, .01f}, {.50f, .09f, .30f}, {.01f, .24f, .38f}, {.88f, .88f, .87f}, {.58f, .58f, .58f},
    {.36f, .36f, .36f}, {.19f, .19f, .19f}, {.09f, .09f, .09f}, {.03f, .03f, .03f},
};

constexpr Colour s_bars[8] = {{1, 1, 1}, {1, 1, 0}, {0, 1, 1}, {0, 1, 0}, {1, 0, 1}, {1, 0, 0}, {0, 0, 1}, {0, 0, 0}};

// Five by seven dots of each digit, a bit a dot, the leftmost highest.
constexpr std::uint8_t s_digits[10][7] = {
    {0x0E, 0x11, 0x13, 0x15, 0x19, 0x11, 0x0E}, {0x04, 0x0C, 0x04, 0x04, 0x04, 0x04, 0x0E},
    {0x0E, 0x11, 0x01, 0x06, 0x08, 0x10, 0x1F}, {0x1F, 0x02, 0x04, 0x06, 0x01, 0x11, 0x0E},
    {0x02, 0x06, 0x0A, 0x12, 0x1F, 0x02, 0x02}, {0x1F, 0x10, 0x1E, 0x01, 0x01, 0x11, 0x0E},
    {0x07, 0x08, 0x10, 0x1E, 0x11, 0x11, 0x0E}, {0x1F, 0x01, 0x02, 0x04, 0x08, 0x08, 0x08},
    {0x0E, 0x11, 0x11, 0x0E, 0x11, 0x11, 0x0E}, {0x0E, 0x11, 0x11, 0x0F, 0x01, 0x02, 0x1C},
};

// A soft edge: 0 below, 1 above, over one pixel.
float Edge(float distance)
{
    return std::clamp(distance + 0.5f, 0.0f, 1.0f);
}

// The chart that stands still, as a function of the sensor's pixel.
class Chart
{
public:
    Chart(std::uint32_t width, std::uint32_t height)
        : m_w(static_cast<float>(width)),
          m_h(static_cast<float>(height)),
          m_unit(std::min(m_h, m_w / 1.6f)),
          m_star{0.27f * m_w, 0.42f * m_h},
          m_radius(0.32f * m_unit),
          m_perGrid(12.0f / m_unit)
    {
        for (std::size_t i = 0; i < m_patches.size(); ++i) {
            Colour const c = s_chart[i];
            m_patches[i] = {std::sqrt(c.r), std::sqrt(c.g), std::sqrt(c.b)};
        }
    }

    Colour At(float x, float y) const
    {
        Colour colour = Background(x, y);
        colour = Star(x, y, colour);
        LinePairs(x, y, colour);
        Patches(x, y, colour);
        Wedge(x, y, colour);
        Frame(x, y, colour);
        return colour;
    }

private:
    struct Point
    {
        float x, y;
    };

    Colour Background(float x, float y) const
    {
        // A gradient over the whole field with some fall-off to the corners, and a grid of fine lines.
        float const u = x / m_w - 0.5f, v = y / m_h - 0.5f;
        float const light = (0.36f + 0.24f * u + 0.16f * v) * (1.0f - 0.6f * (u * u + v * v));
        float const gridX = x * m_perGrid, gridY = y * m_perGrid, line = 2.0f * m_perGrid;
        Colour const base{light * 0.94f, light, light * 1.10f};
        bool const onLine = gridX - std::floor(gridX) < line || gridY - std::floor(gridY) < line;
        return onLine ? Mix(base, Grey(0.75f), 0.3f) : base;
    }

    Colour Star(float x, float y, Colour under) const
    {
        constexpr float Spokes = 36.0f;
        float const dx = x - m_star.x, dy = y - m_star.y;
        float const distance = std::sqrt(dx * dx + dy * dy);
        if (distance > m_radius + 8.0f)
            return under;
        // The width of a spoke's edge is one pixel at every radius; near the centre the spokes fade into grey.
        float const phase = std::sin(std::atan2(dy, dx) * Spokes);
        float const perPixel = Spokes / std::max(distance, 1.0f);
        float const sharp = std::clamp(phase / perPixel, -1.0f, 1.0f) * std::clamp(2.5f - perPixel, 0.0f, 1.0f);
        Colour colour = Grey(0.45f + 0.42f * sharp);
        for (float ring : {0.25f, 0.5f, 0.75f})
            colour =
                Mix(colour, Colour{0.75f, 0.12f, 0.10f}, 1.0f - Edge(std::fabs(distance - ring * m_radius) - 0.7f));
        // A rim, and beyond it the background.
        colour = Mix(colour, Grey(0.03f), Edge(distance - m_radius + 4.0f));
        return Mix(colour, under, Edge(distance - m_radius - 4.0f));
    }

    void LinePairs(float x, float y, Colour &colour) const
    {
        // Groups of bars, each finer than the last, upright in the upper half and lying in the lower.
        float const left = 0.52f * m_w, top = 0.10f * m_h, size = 0.075f * m_unit, gap = 0.02f * m_unit;
        if (x < left || y < top)
            return;
        int const column = static_cast<int>((x - left) / (size + gap)),
                  row = static_cast<int>((y - top) / (size + gap));
        if (column > 3 || row > 3)
            return;
        float const px = x - left - static_cast<float>(column) * (size + gap);
        float const py = y - top - static_cast<float>(row) * (size + gap);
        if (px >= size || py >= size)
            return;
        int const period = 16 >> (column % 4);
        int const along = static_cast<int>(row % 2 ? py : px);
        float const high = row < 2 ? 0.85f : 0.35f, low = row < 2 ? 0.03f : 0.15f;
        colour = Grey(along % period < period / 2 ? high : low);
    }

    void Patches(float x, float y, Colour &colour) const
    {
        float const size = 0.095f * m_unit, gap = 0.012f * m_unit, left = 0.52f * m_w, top = 0.52f * m_h;
        float const px = x - left, py = y - top;
        float const width = 6.0f * (size + gap) + gap, height = 4.0f * (size * 0.8f + gap) + gap;
        if (px < 0 || py < 0 || px >= width || py >= height)
            return;
        colour = Grey(0.02f);
        float const stepX = size + gap, stepY = size * 0.8f + gap;
        int const column = static_cast<int>((px - gap) / stepX), row = static_cast<int>((py - gap) / stepY);
        float const inX = px - gap - static_cast<float>(column) * stepX,
                    inY = py - gap - static_cast<float>(row) * stepY;
        if (px >= gap && py >= gap && inX < size && inY < size * 0.8f && column < 6 && row < 4)
            colour = m_patches[static_cast<std::size_t>(row * 6 + column)];
    }

    void Wedge(float x, float y, Colour &colour) const
    {
        // Sixteen steps over a ramp without steps.
        float const left = 0.04f * m_w, width = 0.44f * m_w, top = 0.87f * m_h, height = 0.05f * m_h;
        float const along = (x - left) / width;
        if (along < 0 || along >= 1 || y < top || y >= top + 2 * height)
            return;
        float const value = y < top + height ? std::floor(along * 16.0f) / 15.0f : along;
        colour = Grey(0.95f * value);
    }

    void Frame(float x, float y, Colour &colour) const
    {
        // The outermost pixels are white, so that a line lost at the edge shows; the corners carry a fine board.
        float const edge = std::min(std::min(x, m_w - 1 - x), std::min(y, m_h - 1 - y));
        if (edge < 2.0f)
            colour = Grey(0.9f);
        else if (edge < 6.0f)
            colour = Grey(0.02f);
        float const cornerX = std::min(x, m_w - 1 - x), cornerY = std::min(y, m_h - 1 - y);
        if (cornerX >= 6 && cornerY >= 6 && cornerX < 38 && cornerY < 38)
            colour = Grey((static_cast<int>(x) / 4 + static_cast<int>(y) / 4) % 2 ? 0.9f : 0.02f);
    }

    float const m_w, m_h, m_unit; // the unit keeps the parts apart on every shape of sensor
    Point const m_star;
    float const m_radius, m_perGrid;
    std::array<Colour, 24> m_patches; // as bright as a screen shows them
};

// The card that slides along the bottom.
Colour CardAt(float x, float y, float width, float height)
{
    float const edge = std::min(std::min(x, width - 1 - x), std::min(y, height - 1 - y));
    if (edge < 3)
        return Grey(0.9f);
    if (y < height / 2)
        return s_bars[std::min(7, static_cast<int>(x * 8 / width))];
    return Grey(static_cast<int>(x + y) / 12 % 2 ? 0.75f : 0.08f);
}

// The ball on its square that goes up and down.
Colour BallAt(float x, float y, float size)
{
    float const dx = x - size / 2 + 0.5f, dy = y - size / 2 + 0.5f;
    float const distance = std::sqrt(dx * dx + dy * dy), radius = size / 2 - 6;
    float const shade = std::max(0.1f, 1.0f - std::hypot(dx + radius / 3, dy + radius / 3) / (1.4f * radius));
    return Mix({0.85f * shade, 0.35f * shade, 0.08f * shade}, Grey(0.05f), Edge(distance - radius));
}

// The dial with its hand.
Colour DialAt(float x, float y, float size, float turn)
{
    float const dx = x - size / 2 + 0.5f, dy = y - size / 2 + 0.5f;
    float const distance = std::sqrt(dx * dx + dy * dy), radius = size / 2 - 4;
    float const angle = turn * 2 * static_cast<float>(Pi);
    float const along = dx * std::sin(angle) - dy * std::cos(angle);
    float const across = std::fabs(dx * std::cos(angle) + dy * std::sin(angle));
    Colour face = Grey(0.8f);
    float const tick = std::fabs(std::sin(std::atan2(dy, dx) * 6.0f)) * distance / 6.0f;
    if (distance > 0.8f * radius && tick < 2.0f)
        face = Grey(0.05f);
    if (along > -0.15f * radius && along < 0.85f * radius)
        face = Mix(Colour{0.6f, 0.04f, 0.05f}, face, Edge(across - 3.0f));
    face = Mix(face, Grey(0.1f), Edge(distance - radius + 3.0f));
    return Mix(face, Grey(0.3f), Edge(distance - radius));
}

Colour DigitAt(std::uint32_t digit, std::uint32_t x, std::uint32_t y)
{
    std::uint32_t const column = (x - 3) / DigitScale, row = (y - 4) / DigitScale;
    bool const dot = x >= 3 && y >= 4 && column < 5 && row < 7 && (s_digits[digit][row] >> (4 - column) & 1);
    return Grey(dot ? 0.85f : 0.02f);
}

std::uint16_t Quantise(float light)
{
    return static_cast<std::uint16_t>(std::clamp(light, 0.0f, 1.0f) * (RadianceEnd - 1) + 0.5f);
}

} // namespace

struct SimScene::Impl
{
    // A finished piece of picture, in the target format.
    struct Tile
    {
        std::uint32_t width = 0, height = 0;
        std::vector<std::uint8_t> bytes; // width * bits / 8 a line
    };

    Impl(std::uint32_t width, std::uint32_t height, bool isColour)
        : sensorWidth(width),
          sensorHeight(height),
          colour(isColour)
    {
        std::mt19937 random(20480);
        std::normal_distribution<float> normal(0.0f, 32.0f);
        noise.resize(NoiseSize);
        for (std::int8_t &n : noise)
            n = static_cast<std::int8_t>(std::clamp(normal(random), -127.0f, 127.0f));
    }

    void MakeRadiance()
    {
        std::size_t const pixels = std::size_t{sensorWidth} * sensorHeight;
        radiance.resize(pixels * Channels());
        Chart const chart(sensorWidth, sensorHeight);
        std::uint16_t *out = radiance.data();
        for (std::uint32_t y = 0; y < sensorHeight; ++y) {
            for (std::uint32_t x = 0; x < sensorWidth; ++x, out += Channels())
                Light(chart.At(static_cast<float>(x), static_cast<float>(y)), out);
        }
    }

    std::uint32_t Channels() const
    {
        return colour ? 3 : 1;
    }

    void Light(Colour c, std::uint16_t *out) const
    {
        // Headroom: at the exposure and gain of power-up white does not clip.
        if (colour) {
            out[0] = Quantise(0.85f * c.r);
            out[1] = Quantise(0.85f * c.g);
            out[2] = Quantise(0.85f * c.b);
        } else {
            out[0] = Quantise(0.85f * (0.3f * c.r + 0.59f * c.g + 0.11f * c.b));
        }
    }

    void MakeTone()
    {
        double const light = look.exposure / 10000.0 * look.gain;
        for (std::uint32_t c = 0; c < Channels(); ++c) {
            tone[c].resize(RadianceEnd);
            double const factor = light * (colour ? look.balance[c] : 1.0) / (RadianceEnd - 1);
            for (std::uint32_t i = 0; i < RadianceEnd; ++i) {
                double value = std::clamp(i * factor + look.black, 0.0, 1.0);
                if (look.gamma != 1.0)
                    value = std::pow(value, look.gamma);
                if (look.useTable)
                    value = look.table[static_cast<std::size_t>(value * (SimRegister::LutEntries - 1))] / 4095.0;
                tone[c][i] = static_cast<std::uint16_t>(value * 65535.0);
            }
        }
        // Noise of the read-out and of the light, in units of the 16-bit scale for a noise value of 32.
        for (std::size_t i = 0; i < noiseOf.size(); ++i) {
            double const signal = static_cast<double>(i) / static_cast<double>(noiseOf.size());
            double const sigma = 0.0012 * look.gain + 0.009 * std::sqrt(signal * look.gain);
            noiseOf[i] = static_cast<std::int32_t>(std::min(sigma, 0.12) * 65535.0);
        }
    }

    // Channel of a mosaic's pixel: 0 red, 1 green, 2 blue.
    std::uint32_t MosaicChannel(std::uint32_t x, std::uint32_t y) const
    {
        static constexpr std::uint8_t Phases[5][4] = {
            {1, 1, 1, 1}, {1, 0, 2, 1}, {0, 1, 1, 2}, {1, 2, 0, 1}, {2, 1, 1, 0}};
        return Phases[info->bayer][(y & 1) * 2 + (x & 1)];
    }

    // Turns the light of one line into samples of the target depth, with noise that begins at `seed`.
    void Develop(std::uint16_t const *light, std::uint32_t pixels, std::uint32_t y, std::uint32_t seed,
                 std::uint16_t *samples) const
    {
        int const shift = 16 - info->bitDepth;
        std::int8_t const *const grain = noise.data();
        auto const sample = [&](std::uint32_t value, std::uint32_t i) {
            std::int32_t const n = grain[(seed + i) & (NoiseSize - 1)] * noiseOf[value >> 8];
            std::int32_t const v = static_cast<std::int32_t>(value) + (n >> 5);
            return static_cast<std::uint16_t>(std::clamp(v, 0, 65535) >> shift);
        };
        if (info->family == TOV_FAMILY_RGB) {
            for (std::uint32_t i = 0; i < pixels * 3; ++i)
                samples[i] = sample(tone[i % 3][light[i]], i);
        } else if (info->family == TOV_FAMILY_BAYER) {
            std::uint32_t const channels[2] = {MosaicChannel(0, y), MosaicChannel(1, y)};
            for (std::uint32_t i = 0; i < pixels; ++i) {
                std::uint32_t const c = channels[i & 1];
                samples[i] = sample(tone[c][light[i * 3 + c]], i);
            }
        } else if (colour) {
            for (std::uint32_t i = 0; i < pixels; ++i) {
                std::uint32_t const value = (77u * tone[0][light[i * 3]] + 151u * tone[1][light[i * 3 + 1]] +
                                             28u * tone[2][light[i * 3 + 2]]) >>
                                            8;
                samples[i] = sample(value, i);
            }
        } else {
            for (std::uint32_t i = 0; i < pixels; ++i)
                samples[i] = sample(tone[0][light[i]], i);
        }
    }

    void Pack(std::uint16_t const *samples, std::uint32_t pixels, std::uint8_t *out) const
    {
        std::uint32_t const count = pixels * info->channels;
        int const depth = info->bitDepth;
        if (info->packing == TOV_PACKED_GEV) {
            std::uint32_t const low = (1u << (depth - 8)) - 1;
            for (std::uint32_t i = 0; i + 1 < count; i += 2, out += 3) {
                out[0] = static_cast<std::uint8_t>(samples[i] >> (depth - 8));
                out[1] = static_cast<std::uint8_t>((samples[i] & low) | (samples[i + 1] & low) << 4);
                out[2] = static_cast<std::uint8_t>(samples[i + 1] >> (depth - 8));
            }
        } else if (info->packing == TOV_PACKED_P) {
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

    // The light of line `y` of the region, mirrored and binned.
    void Expose(std::uint32_t y, std::uint16_t *light) const
    {
        std::uint32_t const channels = Channels();
        std::uint32_t const lines = sensorHeight / format.binningY, columns = sensorWidth / format.binningX;
        std::uint32_t const fromY = format.offsetY + y;
        std::uint32_t const row = format.reverseY ? lines - 1 - fromY : fromY;
        std::uint32_t const area = format.binningX * format.binningY;
        for (std::uint32_t x = 0; x < format.width; ++x) {
            std::uint32_t const fromX = format.offsetX + x;
            std::uint32_t const column = format.reverseX ? columns - 1 - fromX : fromX;
            std::size_t const at =
                (std::size_t{row} * format.binningY * sensorWidth + column * format.binningX) * channels;
            if (area == 1) {
                for (std::uint32_t c = 0; c < channels; ++c)
                    *light++ = radiance[at + c];
                continue;
            }
            for (std::uint32_t c = 0; c < channels; ++c) {
                std::uint32_t sum = 0;
                for (std::uint32_t i = 0; i < area; ++i)
                    sum +=
                        radiance[at +
                                 (std::size_t{i / format.binningX} * sensorWidth + i % format.binningX) * channels + c];
                *light++ = static_cast<std::uint16_t>(sum / area);
            }
        }
    }

    // A value of a test pattern, which no setting of the analog part touches.
    std::uint16_t PatternAt(std::uint32_t x, std::uint32_t y, std::uint32_t channel) const
    {
        if (look.pattern == SimPattern::VerticalRamp)
            return static_cast<std::uint16_t>(y * 65535u / std::max(1u, format.height - 1));
        if (look.pattern == SimPattern::ColourBars) {
            Colour const bar = s_bars[x * 8 / format.width];
            return channel == 0   ? (bar.r > 0 ? 65535 : 0)
                   : channel == 1 ? (bar.g > 0 ? 65535 : 0)
                                  : (bar.b > 0 ? 65535 : 0);
        }
        return static_cast<std::uint16_t>(x * 65535u / std::max(1u, format.width - 1));
    }

    void MakePattern()
    {
        std::vector<std::uint16_t> samples(std::size_t{format.width} * info->channels);
        int const shift = 16 - info->bitDepth;
        for (std::uint32_t y = 0; y < format.height; ++y) {
            for (std::uint32_t i = 0; i < samples.size(); ++i) {
                std::uint32_t const x = i / info->channels;
                std::uint32_t const channel = info->family == TOV_FAMILY_RGB ? i % 3 : MosaicChannel(x, y);
                samples[i] = static_cast<std::uint16_t>(PatternAt(x, y, channel) >> shift);
            }
            Pack(samples.data(), format.width, pictures[0].data() + y * lineBytes);
        }
    }

    void MakePictures()
    {
        std::vector<std::uint16_t> light(std::size_t{format.width} * Channels());
        std::vector<std::uint16_t> samples(std::size_t{format.width} * info->channels);
        std::minstd_rand random(1);
        for (std::uint32_t y = 0; y < format.height; ++y) {
            Expose(y, light.data());
            for (auto &picture : pictures) {
                Develop(light.data(), format.width, y, static_cast<std::uint32_t>(random()), samples.data());
                Pack(samples.data(), format.width, picture.data() + y * lineBytes);
            }
        }
    }

    template<class At>
    Tile MakeTile(std::uint32_t width, std::uint32_t height, At at) const
    {
        Tile tile;
        tile.width = width;
        tile.height = height;
        std::size_t const bytes = std::size_t{width} * info->bitsPerPixel / 8;
        tile.bytes.resize(bytes * height);
        std::vector<std::uint16_t> light(std::size_t{width} * Channels());
        std::vector<std::uint16_t> samples(std::size_t{width} * info->channels);
        std::minstd_rand random(7);
        for (std::uint32_t y = 0; y < height; ++y) {
            for (std::uint32_t x = 0; x < width; ++x)
                Light(at(x, y), light.data() + std::size_t{x} * Channels());
            Develop(light.data(), width, y, static_cast<std::uint32_t>(random()), samples.data());
            Pack(samples.data(), width, tile.bytes.data() + y * bytes);
        }
        return tile;
    }

    void MakeTiles()
    {
        card = MakeTile(192, 96, [](auto x, auto y) { return CardAt(float(x), float(y), 192, 96); });
        ball = MakeTile(96, 96, [](auto x, auto y) { return BallAt(float(x), float(y), 96); });
        hands.clear();
        for (std::uint32_t i = 0; i < HandPhases; ++i) {
            float const turn = static_cast<float>(i) / HandPhases;
            hands.push_back(
                MakeTile(128, 128, [turn](auto x, auto y) { return DialAt(float(x), float(y), 128, turn); }));
        }
        digits.clear();
        for (std::uint32_t i = 0; i < 10; ++i)
            digits.push_back(MakeTile(DigitWidth, DigitHeight, [i](auto x, auto y) { return DigitAt(i, x, y); }));
    }

    // Copies the part of a tile that lies inside the frame. `x` is brought down to the grid, `y` to an even line.
    void Place(Tile const &tile, std::int64_t x, std::int64_t y, std::uint8_t *out) const
    {
        x &= ~static_cast<std::int64_t>(Grid - 1);
        y &= ~std::int64_t{1};
        std::int64_t const left = std::max<std::int64_t>(x, 0);
        std::int64_t const right = std::min<std::int64_t>(x + tile.width, format.width);
        std::int64_t const top = std::max<std::int64_t>(y, 0);
        std::int64_t const bottom = std::min<std::int64_t>(y + tile.height, format.height);
        if (left >= right)
            return;
        std::size_t const tileLine = std::size_t{tile.width} * info->bitsPerPixel / 8;
        std::size_t const skip = static_cast<std::size_t>(left - x) * info->bitsPerPixel / 8;
        std::size_t const bytes = static_cast<std::size_t>(right - left) * info->bitsPerPixel / 8;
        std::uint8_t *line =
            out + static_cast<std::size_t>(top) * lineBytes + static_cast<std::size_t>(left) * info->bitsPerPixel / 8;
        for (std::int64_t i = top; i < bottom; ++i, line += lineBytes)
            std::memcpy(line, tile.bytes.data() + static_cast<std::size_t>(i - y) * tileLine + skip, bytes);
    }

    // The same for a place on the sensor.
    void PlaceOnSensor(Tile const &tile, double x, double y, std::uint8_t *out) const
    {
        double const columns = sensorWidth / format.binningX, lines = sensorHeight / format.binningY;
        double placeX = x * (columns - tile.width), placeY = y * (lines - tile.height);
        if (format.reverseX)
            placeX = columns - tile.width - placeX;
        if (format.reverseY)
            placeY = lines - tile.height - placeY;
        Place(tile, static_cast<std::int64_t>(placeX) - format.offsetX,
              static_cast<std::int64_t>(placeY) - format.offsetY, out);
    }

    std::uint32_t const sensorWidth, sensorHeight;
    bool const colour;
    std::vector<std::int8_t> noise;
    std::vector<std::uint16_t> radiance; // channels side by side
    std::array<std::vector<std::uint16_t>, 3> tone;
    std::array<std::int32_t, 256> noiseOf{};
    SimFormat format;
    SimLook look;
    bool ready = false;
    TovPixelTypeInfo const *info = nullptr;
    std::size_t lineBytes = 0;
    std::vector<std::vector<std::uint8_t>> pictures;
    Tile card, ball;
    std::vector<Tile> hands, digits;
};

SimScene::SimScene(std::uint32_t sensorWidth, std::uint32_t sensorHeight, bool colour)
    : m_impl(std::make_unique<Impl>(sensorWidth, sensorHeight, colour))
{
}

SimScene::~SimScene() = default;

void SimScene::Prepare(SimFormat const &format, SimLook const &look)
{
    Impl &s = *m_impl;
    if (s.ready && s.format == format && s.look == look)
        return;
    s.format = format;
    s.look = look;
    s.info = TovGetPixelTypeInfo(format.pixelType);
    s.lineBytes = format.LineBytes();
    if (s.radiance.empty())
        s.MakeRadiance();
    s.MakeTone();
    s.pictures.resize(look.pattern == SimPattern::Off ? Variants : 1);
    for (auto &picture : s.pictures)
        picture.resize(format.Payload());
    if (look.pattern == SimPattern::Off) {
        s.MakePictures();
        s.MakeTiles();
    } else {
        s.MakePattern();
    }
    s.ready = true;
}

void SimScene::Draw(std::uint64_t frame, double seconds, std::uint8_t *out) const
{
    Impl const &s = *m_impl;
    std::size_t const line = s.lineBytes;
    if (s.look.pattern == SimPattern::MovingRamp) {
        std::size_t const grid = std::size_t{Grid} * s.info->bitsPerPixel / 8;
        std::size_t const shift = frame * grid % line;
        for (std::uint32_t y = 0; y < s.format.height; ++y) {
            std::uint8_t const *const from = s.pictures[0].data() + y * line;
            std::memcpy(out + y * line, from + shift, line - shift);
            std::memcpy(out + y * line + line - shift, from, shift);
        }
        return;
    }
    if (s.look.pattern != SimPattern::Off) {
        std::memcpy(out, s.pictures[0].data(), s.pictures[0].size());
        return;
    }
    // A run of the generator says which picture each band of lines comes from. Bands are as long as a copy likes them.
    std::uint32_t const band = std::max<std::uint32_t>(1, static_cast<std::uint32_t>(BandBytes / line));
    std::uint64_t bits = (frame + 1) * 0x9E3779B97F4A7C15u;
    for (std::uint32_t y = 0; y < s.format.height; y += band) {
        bits ^= bits << 13;
        bits ^= bits >> 7;
        bits ^= bits << 17;
        std::size_t const size = std::min(band, s.format.height - y) * line;
        std::memcpy(out + y * line, s.pictures[bits >> 20 & (Variants - 1)].data() + y * line, size);
    }
    auto const swing = [seconds](double period) {
        return 0.5 - 0.5 * std::cos(seconds * 2 * Pi / period);
    };
    s.PlaceOnSensor(s.card, 0.02 + 0.45 * swing(9.0), 0.80, out);
    s.PlaceOnSensor(s.ball, 0.985, 0.05 + 0.36 * swing(4.0), out);
    double const turn = std::fmod(seconds / 3.0, 1.0);
    s.PlaceOnSensor(s.hands[static_cast<std::size_t>(turn * HandPhases) % HandPhases], 0.89, 0.12, out);
    std::uint64_t number = frame;
    for (std::uint32_t i = 0; i < Digits; ++i, number /= 10)
        s.Place(s.digits[number % 10], 40 + std::int64_t{Digits - 1 - i} * DigitWidth, 40, out);
}
