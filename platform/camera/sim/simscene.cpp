#include "simscene.h"

#include "simsensor.h"
#include "testchart.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>
#include <random>

namespace {

constexpr std::uint32_t Variants = 4;      // finished pictures, a power of two
constexpr std::uint32_t Grid = 8;          // pixels that take whole bytes in every format; tiles are on this grid
constexpr std::size_t BandBytes = 1 << 16; // copied in one go
constexpr std::uint32_t HandPhases = 24;
constexpr std::uint32_t Digits = 8;

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
          sensor(isColour)
    {
    }

    void MakeRadiance()
    {
        std::uint32_t const channels = sensor.Channels();
        radiance.resize(std::size_t{sensorWidth} * sensorHeight * channels);
        TestChart const chart(sensorWidth, sensorHeight);
        std::uint16_t *out = radiance.data();
        for (std::uint32_t y = 0; y < sensorHeight; ++y) {
            for (std::uint32_t x = 0; x < sensorWidth; ++x, out += channels)
                sensor.Collect(chart.At(static_cast<float>(x), static_cast<float>(y)), out);
        }
    }

    // The light of line `y` of the region, mirrored and binned.
    void Expose(std::uint32_t y, std::uint16_t *light) const
    {
        std::uint32_t const channels = sensor.Channels();
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
            Colour const bar = BarAt(x, format.width);
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
                std::uint32_t const channel = info->family == TOV_FAMILY_RGB ? i % 3 : sensor.MosaicChannel(x, y);
                samples[i] = static_cast<std::uint16_t>(PatternAt(x, y, channel) >> shift);
            }
            sensor.Pack(samples.data(), format.width, pictures[0].data() + y * lineBytes);
        }
    }

    void MakePictures()
    {
        std::vector<std::uint16_t> light(std::size_t{format.width} * sensor.Channels());
        std::vector<std::uint16_t> samples(std::size_t{format.width} * info->channels);
        std::minstd_rand random(1);
        for (std::uint32_t y = 0; y < format.height; ++y) {
            Expose(y, light.data());
            for (auto &picture : pictures) {
                sensor.Develop(light.data(), format.width, y, static_cast<std::uint32_t>(random()), samples.data());
                sensor.Pack(samples.data(), format.width, picture.data() + y * lineBytes);
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
        std::vector<std::uint16_t> light(std::size_t{width} * sensor.Channels());
        std::vector<std::uint16_t> samples(std::size_t{width} * info->channels);
        std::minstd_rand random(7);
        for (std::uint32_t y = 0; y < height; ++y) {
            for (std::uint32_t x = 0; x < width; ++x)
                sensor.Collect(at(x, y), light.data() + std::size_t{x} * sensor.Channels());
            sensor.Develop(light.data(), width, y, static_cast<std::uint32_t>(random()), samples.data());
            sensor.Pack(samples.data(), width, tile.bytes.data() + y * bytes);
        }
        return tile;
    }

    void MakeTiles()
    {
        card = MakeTile(CardWidth, CardHeight, [](float x, float y) { return CardAt(x, y); });
        ball = MakeTile(BallSize, BallSize, [](float x, float y) { return BallAt(x, y); });
        hands.clear();
        for (std::uint32_t i = 0; i < HandPhases; ++i) {
            float const turn = static_cast<float>(i) / HandPhases;
            hands.push_back(MakeTile(DialSize, DialSize, [turn](float x, float y) { return DialAt(x, y, turn); }));
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
    SimSensor sensor;
    std::vector<std::uint16_t> radiance; // the chart's light on every pixel, channels side by side
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
    s.sensor.Prepare(s.info, look);
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
    // A run of the generator says which picture each band of lines comes from. Bands have a length that copies fast.
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
        return 0.5 - 0.5 * std::cos(seconds * 2 * std::numbers::pi / period);
    };
    s.PlaceOnSensor(s.card, 0.02 + 0.45 * swing(9.0), 0.80, out);
    s.PlaceOnSensor(s.ball, 0.985, 0.05 + 0.36 * swing(4.0), out);
    double const turn = std::fmod(seconds / 3.0, 1.0);
    s.PlaceOnSensor(s.hands[static_cast<std::size_t>(turn * HandPhases) % HandPhases], 0.89, 0.12, out);
    std::uint64_t number = frame;
    for (std::uint32_t i = 0; i < Digits; ++i, number /= 10)
        s.Place(s.digits[number % 10], 40 + std::int64_t{Digits - 1 - i} * DigitWidth, 40, out);
}
