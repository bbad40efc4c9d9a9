// What simulated sensors look at, as light at a place: a chart that stands still, and the parts that move over it.
// Light is linear; 1 is white.
#pragma once

#include <array>
#include <cstdint>

struct Colour
{
    float r, g, b;
};

// The chart, as a function of the sensor's pixel: gradients, a star, line pairs, colour patches, a grey wedge, and
// edges that show a lost line.
class TestChart
{
public:
    TestChart(std::uint32_t width, std::uint32_t height);
    Colour At(float x, float y) const;

private:
    struct Point
    {
        float x, y;
    };

    Colour Background(float x, float y) const;
    Colour Star(float x, float y, Colour under) const;
    void LinePairs(float x, float y, Colour &colour) const;
    void Patches(float x, float y, Colour &colour) const;
    void Wedge(float x, float y, Colour &colour) const;
    void Frame(float x, float y, Colour &colour) const;

    float const m_w, m_h, m_unit; // the unit keeps the parts apart on every shape of sensor
    Point const m_star;
    float const m_radius, m_perGrid;
    std::array<Colour, 24> m_patches; // as bright as a screen shows them
};

// The parts that move, as functions of the pixel in them.
constexpr std::uint32_t CardWidth = 192, CardHeight = 96, BallSize = 96, DialSize = 128;
constexpr std::uint32_t DigitWidth = 32, DigitHeight = 44;
Colour CardAt(float x, float y);             // slides along the bottom
Colour BallAt(float x, float y);             // on its square, goes up and down
Colour DialAt(float x, float y, float turn); // with its hand, which turns once from 0 to 1
Colour DigitAt(std::uint32_t digit, std::uint32_t x, std::uint32_t y);

// White, yellow, cyan, green, magenta, red, blue and black, from left to right over `width`.
Colour BarAt(std::uint32_t x, std::uint32_t width);
