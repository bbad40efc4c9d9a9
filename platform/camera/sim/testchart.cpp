#include "testchart.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace {

constexpr std::uint32_t DigitScale = 5; // pixels a dot

Colour Grey(float value)
{
    return {value, value, value};
}

Colour Mix(Colour a, Colour b, float share)
{
    return {a.r + (b.r - a.r) * share, a.g + (b.g - a.g) * share, a.b + (b.b - a.b) * share};
}

// The six by four fields of the colour chart, linear light. The last row is grey.
constexpr Colour ChartColours[24] = {
    {.17f, .08f, .05f}, {.56f, .30f, .22f}, {.11f, .19f, .34f}, {.09f, .15f, .05f}, {.22f, .21f, .43f},
    {.13f, .51f, .40f}, {.68f, .20f, .03f}, {.06f, .10f, .38f}, {.53f, .08f, .12f}, {.10f, .04f, .14f},
    {.34f, .50f, .05f}, {.75f, .36f, .02f}, {.03f, .05f, .28f}, {.06f, .29f, .06f}, {.43f, .03f, .04f},
    {.81f, .57f, .01f}, {.50f, .09f, .30f}, {.01f, .24f, .38f}, {.88f, .88f, .87f}, {.58f, .58f, .58f},
    {.36f, .36f, .36f}, {.19f, .19f, .19f}, {.09f, .09f, .09f}, {.03f, .03f, .03f},
};

constexpr Colour BarColours[8] = {{1, 1, 1}, {1, 1, 0}, {0, 1, 1}, {0, 1, 0},
                                  {1, 0, 1}, {1, 0, 0}, {0, 0, 1}, {0, 0, 0}};

// Five by seven dots per digit, one bit per dot, the leftmost highest.
constexpr std::uint8_t DigitDots[10][7] = {
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

} // namespace

TestChart::TestChart(std::uint32_t width, std::uint32_t height)
    : m_w(static_cast<float>(width)),
      m_h(static_cast<float>(height)),
      m_unit(std::min(m_h, m_w / 1.6f)),
      m_star{0.27f * m_w, 0.42f * m_h},
      m_radius(0.32f * m_unit),
      m_perGrid(12.0f / m_unit)
{
    for (std::size_t i = 0; i < m_patches.size(); ++i) {
        Colour const c = ChartColours[i];
        m_patches[i] = {std::sqrt(c.r), std::sqrt(c.g), std::sqrt(c.b)};
    }
}

Colour TestChart::At(float x, float y) const
{
    Colour colour = Background(x, y);
    colour = Star(x, y, colour);
    LinePairs(x, y, colour);
    Patches(x, y, colour);
    Wedge(x, y, colour);
    Frame(x, y, colour);
    return colour;
}

Colour TestChart::Background(float x, float y) const
{
    // A gradient over the whole field with some fall-off to the corners, and a grid of fine lines.
    float const u = x / m_w - 0.5f, v = y / m_h - 0.5f;
    float const light = (0.36f + 0.24f * u + 0.16f * v) * (1.0f - 0.6f * (u * u + v * v));
    float const gridX = x * m_perGrid, gridY = y * m_perGrid, line = 2.0f * m_perGrid;
    Colour const base{light * 0.94f, light, light * 1.10f};
    bool const onLine = gridX - std::floor(gridX) < line || gridY - std::floor(gridY) < line;
    return onLine ? Mix(base, Grey(0.75f), 0.3f) : base;
}

Colour TestChart::Star(float x, float y, Colour under) const
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
        colour = Mix(colour, Colour{0.75f, 0.12f, 0.10f}, 1.0f - Edge(std::fabs(distance - ring * m_radius) - 0.7f));
    // A rim, and beyond it the background.
    colour = Mix(colour, Grey(0.03f), Edge(distance - m_radius + 4.0f));
    return Mix(colour, under, Edge(distance - m_radius - 4.0f));
}

void TestChart::LinePairs(float x, float y, Colour &colour) const
{
    // Groups of bars, each finer than the last, upright in the upper half and lying in the lower.
    float const left = 0.52f * m_w, top = 0.10f * m_h, size = 0.075f * m_unit, gap = 0.02f * m_unit;
    if (x < left || y < top)
        return;
    int const column = static_cast<int>((x - left) / (size + gap)), row = static_cast<int>((y - top) / (size + gap));
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

void TestChart::Patches(float x, float y, Colour &colour) const
{
    float const size = 0.095f * m_unit, gap = 0.012f * m_unit, left = 0.52f * m_w, top = 0.52f * m_h;
    float const px = x - left, py = y - top;
    float const width = 6.0f * (size + gap) + gap, height = 4.0f * (size * 0.8f + gap) + gap;
    if (px < 0 || py < 0 || px >= width || py >= height)
        return;
    colour = Grey(0.02f);
    float const stepX = size + gap, stepY = size * 0.8f + gap;
    int const column = static_cast<int>((px - gap) / stepX), row = static_cast<int>((py - gap) / stepY);
    float const inX = px - gap - static_cast<float>(column) * stepX, inY = py - gap - static_cast<float>(row) * stepY;
    if (px >= gap && py >= gap && inX < size && inY < size * 0.8f && column < 6 && row < 4)
        colour = m_patches[static_cast<std::size_t>(row) * 6 + static_cast<std::size_t>(column)];
}

void TestChart::Wedge(float x, float y, Colour &colour) const
{
    // Sixteen steps over a ramp without steps.
    float const left = 0.04f * m_w, width = 0.44f * m_w, top = 0.87f * m_h, height = 0.05f * m_h;
    float const along = (x - left) / width;
    if (along < 0 || along >= 1 || y < top || y >= top + 2 * height)
        return;
    float const value = y < top + height ? std::floor(along * 16.0f) / 15.0f : along;
    colour = Grey(0.95f * value);
}

void TestChart::Frame(float x, float y, Colour &colour) const
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

Colour CardAt(float x, float y)
{
    constexpr float Width = CardWidth, Height = CardHeight;
    float const edge = std::min(std::min(x, Width - 1 - x), std::min(y, Height - 1 - y));
    if (edge < 3)
        return Grey(0.9f);
    if (y < Height / 2)
        return BarColours[std::min(7, static_cast<int>(x * 8 / Width))];
    return Grey(static_cast<int>(x + y) / 12 % 2 ? 0.75f : 0.08f);
}

Colour BallAt(float x, float y)
{
    constexpr float Size = BallSize;
    float const dx = x - Size / 2 + 0.5f, dy = y - Size / 2 + 0.5f;
    float const distance = std::sqrt(dx * dx + dy * dy), radius = Size / 2 - 6;
    float const shade = std::max(0.1f, 1.0f - std::hypot(dx + radius / 3, dy + radius / 3) / (1.4f * radius));
    return Mix({0.85f * shade, 0.35f * shade, 0.08f * shade}, Grey(0.05f), Edge(distance - radius));
}

Colour DialAt(float x, float y, float turn)
{
    constexpr float Size = DialSize;
    float const dx = x - Size / 2 + 0.5f, dy = y - Size / 2 + 0.5f;
    float const distance = std::sqrt(dx * dx + dy * dy), radius = Size / 2 - 4;
    float const angle = turn * 2 * static_cast<float>(std::numbers::pi);
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
    bool const dot = x >= 3 && y >= 4 && column < 5 && row < 7 && (DigitDots[digit][row] >> (4 - column) & 1);
    return Grey(dot ? 0.85f : 0.02f);
}

Colour BarAt(std::uint32_t x, std::uint32_t width)
{
    return BarColours[x * 8 / width];
}
