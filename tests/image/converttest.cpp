#include "reference.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <string>

namespace {

using Colour = std::array<int, 3>; // red, green, blue

// The index in the picture that stands for one outside it: a tile further in.
int Inside(int i, int size, int period)
{
    while (i < 0)
        i += period;
    while (i >= size)
        i -= period;
    return std::max(i, 0);
}

// Colours of a picture at a working depth, one pixel at a time.
class ReferencePicture
{
public:
    ReferencePicture(Pixels const &pixels, int depth) : m_pixels(pixels), m_depth(depth)
    {
    }

    Colour At(int x, int y) const
    {
        switch (m_info.family) {
        case TOV_FAMILY_MONO:
            return {Sample(y, x), Sample(y, x), Sample(y, x)};
        case TOV_FAMILY_RGB: {
            int const at = m_info.channels * x, red = m_info.name[0] == 'B' ? 2 : 0;
            return {Sample(y, at + red), Sample(y, at + 1), Sample(y, at + 2 - red)};
        }
        case TOV_FAMILY_BAYER:
            return {Bayer(x, y, 'R'), Bayer(x, y, 'G'), Bayer(x, y, 'B')};
        case TOV_FAMILY_TRUESENSE:
            return {TrueSense(x, y, 'R'), TrueSense(x, y, 'G'), TrueSense(x, y, 'B')};
        default:
            return FromYuv(Yuv(x, y));
        }
    }

    // Grey has the luma of YUV as it is; else it is weighed from the colours.
    int GreyAt(int x, int y) const
    {
        if (m_info.family == TOV_FAMILY_YUV)
            return Yuv(x, y)[0];
        Colour const c = At(x, y);
        return int(std::floor(0.299 * c[0] + 0.587 * c[1] + 0.114 * c[2] + 0.5));
    }

private:
    int Sample(int y, int i) const
    {
        return int(m_pixels.Sample(std::size_t(y), std::size_t(i)) >> (m_info.bitDepth - m_depth));
    }
    int Pixel(int x, int y, int period) const
    {
        return Sample(Inside(y, m_height, period), Inside(x, m_width, period));
    }
    char Filter(int x, int y) const
    {
        return TovGetFilterColour(&m_info, std::uint32_t(x + 64), std::uint32_t(y + 64));
    }

    // The mean of the pixels around with that filter, or the pixel itself.
    int Bayer(int x, int y, char colour) const
    {
        if (Filter(x, y) == colour)
            return Pixel(x, y, 2);
        int sum = 0, count = 0;
        for (int dy = -1; dy <= 1; ++dy) {
            for (int dx = -1; dx <= 1; ++dx) {
                if (Filter(x + dx, y + dy) == colour) {
                    sum += Pixel(x + dx, y + dy, 2);
                    ++count;
                }
            }
        }
        return (sum + count / 2) / count;
    }

    double White(int x, int y) const
    {
        if (Filter(x, y) == 'W')
            return Pixel(x, y, 4);
        return (Pixel(x - 1, y, 4) + Pixel(x + 1, y, 4) + Pixel(x, y - 1, 4) + Pixel(x, y + 1, 4)) / 4.0;
    }
    int TrueSense(int x, int y, char colour) const
    {
        double sum = 0, weights = 0;
        for (int dy = -3; dy <= 3; ++dy) {
            for (int dx = -3; dx <= 3; ++dx) {
                if (Filter(x + dx, y + dy) != colour)
                    continue;
                double const weight = (4 - std::abs(dx)) * (4 - std::abs(dy));
                weights += weight;
                sum += weight * (Pixel(x + dx, y + dy, 4) - White(x + dx, y + dy));
            }
        }
        return int(std::clamp(White(x, y) + sum / weights, 0.0, double((1 << m_depth) - 1)) + 0.5);
    }

    Colour Yuv(int x, int y) const
    {
        if (m_info.channels == 4)
            return {Sample(y, 4 * x), Sample(y, 4 * x + 1), Sample(y, 4 * x + 2)};
        bool const uyvy = std::string(m_info.name) == "YUV422_8_UYVY";
        int const pair = x / 2 * 4;
        bool const alone = x % 2 == 0 && x + 1 == m_width;
        int const v = !alone ? Sample(y, pair + (uyvy ? 2 : 3)) : x == 0 ? 1 << (m_depth - 1) : Yuv(x - 1, y)[2];
        return {Sample(y, pair + x % 2 * 2 + (uyvy ? 1 : 0)), Sample(y, pair + (uyvy ? 0 : 1)), v};
    }
    Colour FromYuv(Colour yuv) const
    {
        int const middle = 1 << (m_depth - 1);
        double const u = yuv[1] - middle, v = yuv[2] - middle;
        double const colours[] = {yuv[0] + 1.402 * v, yuv[0] - 0.344136 * u - 0.714136 * v, yuv[0] + 1.772 * u};
        Colour result;
        for (int c = 0; c < 3; ++c)
            result[c] = int(std::clamp(std::floor(colours[c] + 0.5), 0.0, double((1 << m_depth) - 1)));
        return result;
    }

    Pixels const &m_pixels;
    int const m_depth;
    TovPixelTypeInfo const &m_info = m_pixels.Info();
    int const m_width = int(m_pixels.Image()->width), m_height = int(m_pixels.Image()->height);
};

bool IsRawOf(TovPixelTypeInfo const &to, TovPixelTypeInfo const &from)
{
    bool same = to.family == from.family && from.family != TOV_FAMILY_RGB && from.family != TOV_FAMILY_YUV;
    for (std::uint32_t i = 0; i < 16; ++i)
        same = same && TovGetFilterColour(&to, i % 4, i / 4) == TovGetFilterColour(&from, i % 4, i / 4);
    return same;
}

void ExpectConverted(TovPixelTypeInfo const &from, TovPixelTypeInfo const &to, std::uint32_t width,
                     std::uint32_t height, std::uint32_t padding)
{
    SCOPED_TRACE(testing::Message() << from.name << " to " << to.name << " " << width << " x " << height);
    Pixels source(from.pixelType, width, height, padding, width * 31 + height);
    Pixels destination(to.pixelType, width, height, padding, 1);
    source.Image()->frameID = 22;
    std::vector<std::uint8_t> const before = destination.Memory();
    ASSERT_EQ(TovConvertImage(destination.Image(), source.Image()), TOV_IMAGE_OK);
    EXPECT_EQ(destination.Image()->frameID, 22u);

    int const depth = std::min(from.bitDepth, to.bitDepth == 8 ? std::uint8_t(8) : from.bitDepth);
    auto const scaled = [&](int value) {
        return to.bitDepth >= depth ? value << (to.bitDepth - depth) : value >> (depth - to.bitDepth);
    };
    // One step where floating point may round the other way.
    bool const exact = from.family <= TOV_FAMILY_BAYER && (to.family != TOV_FAMILY_MONO || from.family == to.family);
    int const tolerance = exact ? 0 : std::max(1, scaled(1));
    ReferencePicture const reference(source, depth);
    for (std::uint32_t y = 0; y < height; ++y) {
        for (std::uint32_t x = 0; x < width; ++x) {
            std::vector<int> expected;
            if (IsRawOf(to, from)) {
                expected = {scaled(int(source.Sample(y, x)) >> (from.bitDepth - depth))};
            } else if (to.family == TOV_FAMILY_MONO) {
                expected = {scaled(reference.GreyAt(int(x), int(y)))};
            } else {
                Colour const c = reference.At(int(x), int(y));
                expected = {scaled(c[0]), scaled(c[1]), scaled(c[2])};
                if (to.name[0] == 'B')
                    std::swap(expected[0], expected[2]);
                bool const alpha = from.family == TOV_FAMILY_RGB && from.channels == 4;
                if (to.channels == 4)
                    expected.push_back(alpha ? int(source.Sample(y, 4 * x + 3)) : 255);
            }
            for (std::size_t c = 0; c < expected.size(); ++c)
                ASSERT_NEAR(int(destination.Sample(y, x * expected.size() + c)), expected[c], tolerance)
                    << x << ", " << y << " channel " << c;
        }
        // Nothing is written between the lines.
        std::uint8_t const *const end = destination.Line(y) + TovLineBytes(to.pixelType, width);
        if (y + 1 < height) {
            ASSERT_TRUE(std::equal(end, end + padding, before.data() + (end - destination.Line(0))));
        }
    }
}

using ConvertFrom = testing::TestWithParam<std::uint32_t>;

TEST_P(ConvertFrom, EveryTargetAtOddShapes)
{
    TovPixelTypeInfo const &from = *TovGetPixelTypeInfoByRow(GetParam());
    std::uint32_t const shapes[][3] = {{1, 1, 0}, {2, 1, 3}, {1, 4, 1}, {3, 3, 0}, {5, 2, 7}, {18, 11, 1}, {35, 6, 0}};
    for (std::uint32_t row = 0; row < TOV_PIXEL_TYPE_ROWS; ++row) {
        TovPixelTypeInfo const &to = *TovGetPixelTypeInfoByRow(row);
        bool const target = to.packing == TOV_UNPACKED && (to.family <= TOV_FAMILY_RGB || IsRawOf(to, from));
        if (&to == &from)
            continue;
        if (target) {
            for (auto const &[width, height, padding] : shapes)
                ExpectConverted(from, to, width, height, padding);
        } else {
            Pixels const source(from.pixelType, 3, 2, 0, 1), destination(to.pixelType, 3, 2, 0, 1);
            EXPECT_EQ(TovConvertImage(destination.Image(), source.Image()), TOV_IMAGE_ERR_UNSUPPORTED) << to.name;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(AllTypes, ConvertFrom, testing::Range(0u, TOV_PIXEL_TYPE_ROWS));

// Vectors, what they leave over on both sides, and lines unpacked a few at a time.
TEST(Convert, MosaicsOfEveryWidth)
{
    for (char const *from : {"BayerGR8", "BayerRG12p", "BayerGB10Packed", "BayerBG16"})
        for (char const *to : {"RGB8", "BGR8", "RGB12", "RGB16"})
            for (std::uint32_t width = 1; width <= 40; ++width)
                ExpectConverted(InfoOf(from), InfoOf(to), width, 5, width % 3);
}

// More lines than one strip of a mosaic takes, and a picture that threads share.
TEST(Convert, StripsOfAMosaicJoinWithoutASeam)
{
    for (std::uint32_t row : {40u, 49u, 68u})
        for (char const *to : {"RGB8", "RGB12"})
            ExpectConverted(*TovGetPixelTypeInfoByRow(row - 1), InfoOf(to), 301, 150, 5);
    ExpectConverted(InfoOf("BayerGB12Packed"), InfoOf("RGB16"), 2051, 513, 5);
}

TEST(Convert, RefusesWhatDoesNotFit)
{
    Pixels const a(TV_PIXEL_MONO12, 4, 4, 0, 1), b(TV_PIXEL_MONO8, 4, 4, 0, 1), wide(TV_PIXEL_MONO8, 5, 4, 0, 1);
    EXPECT_EQ(TovConvertImage(wide.Image(), a.Image()), TOV_IMAGE_ERR_SHAPE);
    _TovImage broken[3] = {*a.Image(), *a.Image(), *a.Image()};
    broken[0].lineStep = 7;
    broken[1].pixelType = 0x01100307;
    broken[2].imageData = nullptr;
    for (_TovImage *image : {&broken[0], &broken[1], &broken[2], static_cast<_TovImage *>(nullptr)}) {
        EXPECT_EQ(TovConvertImage(b.Image(), image), TOV_IMAGE_ERR_ARGUMENT);
        EXPECT_EQ(TovConvertImage(image, b.Image()), TOV_IMAGE_ERR_ARGUMENT);
    }
}

} // namespace
