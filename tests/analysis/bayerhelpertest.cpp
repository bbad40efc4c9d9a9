#include "bayerhelper2.h"
#include "imgprocessor.h"

#include "plain.h"

namespace {

// The colour that the masks of a pattern give the pixel: 0 red, 1 green, 2 blue; -1 in the last line of an odd height.
int ColourAt(unsigned pattern, std::uint32_t height, std::uint32_t x, std::uint32_t y)
{
    if (y >= height / 2 * 2)
        return -1;
    bool const redFirst = pattern % 2 == 0; // red in the even columns
    bool const inRedOrBlue = (x % 2 == y % 2) == redFirst;
    return !inRedOrBlue ? 1 : y % 2 == 0 ? 0 : 2;
}

TEST(BayerHelper, CountsEachColourOfTheMaskedFrame)
{
    struct
    {
        char const *type;
        std::uint32_t width, height, padding; // of the image
        std::uint32_t frameWidth, frameHeight, bits;
        bool fits = true; // lines long enough for the frame, with a valid step
    } const cases[] = {
        {"BayerRG8", 8, 8, 0, 8, 8, 8},
        {"BayerGB8", 7, 5, 3, 7, 5, 8},
        {"BayerGR10", 6, 7, 2, 6, 7, 10},
        {"BayerBG12", 33, 12, 0, 33, 12, 12},
        {"BayerRG12", 8, 8, 0, 8, 31, 12}, // masks of a higher frame
        {"BayerRG8", 8, 8, 0, 6, 4, 8},    // of a smaller one
        {"BayerRG8", 16, 8, 0, 8, 8, 12},  // two pixels read as one
        {"Mono16", 4, 4, 0, 4, 4, 16},
        {"BayerRG8", 8, 8, 0, 16, 8, 8, false}, // of a wider one
        {"BayerRG12p", 8, 8, 0, 8, 8, 12, false},
        {"BayerRG12", 8, 8, 1, 8, 8, 12, false},
        {"BayerRG8", 8, 8, 0, 8, 8, 4228, false}, // a depth that no sample has
    };
    QColor const colours[] = {QColor(255, 0, 0), QColor(0, 255, 0), QColor(0, 0, 255)};
    ImgProcessor processor(nullptr, nullptr);
    for (auto const &c : cases) {
        for (unsigned pattern = 0; pattern < 4; ++pattern) {
            for (Picture const picture : {Picture::Random, Picture::Black, Picture::Flat, Picture::Saturated}) {
                SCOPED_TRACE(testing::Message() << c.type << ' ' << c.frameWidth << " x " << c.frameHeight
                                                << " pattern " << pattern << " picture " << int(picture));
                Pixels pixels(TypeOf(c.type), c.width, c.height, c.padding, pattern);
                Fill(pixels, picture);
                ComplexHisto histo;
                BayerHelper2 helper;
                helper.bayerPattern = pattern;
                helper.SetUp(c.frameWidth, c.frameHeight, c.bits, 0, 0, &histo);
                histo.bits = 3;
                processor.GetRGBHisto(pixels.Image(), &histo, &helper);
                ASSERT_EQ(histo.plots.size(), 3u);
                EXPECT_EQ(histo.bits, 3);
                EXPECT_EQ(histo.currentIndex, -1);
                for (int place = 0; place < 3; ++place) {
                    int const colour = pattern < 2 ? 2 - place : place;
                    SimpleHisto const &series = *histo.plots[std::size_t(place)];
                    EXPECT_EQ(series.color, colours[colour]);
                    EXPECT_EQ(series.bits, std::int32_t(c.bits));
                    std::vector<std::int32_t> counts(c.bits > 16 ? 0 : std::size_t(1) << c.bits), plane;
                    EXPECT_EQ(series.positions, counts); // zeros
                    for (std::uint32_t y = 0; c.fits && y < c.frameHeight; ++y)
                        for (std::uint32_t x = 0; x < c.frameWidth; ++x) {
                            int const bytes = c.bits == 8 ? 1 : 2;
                            int const value = SampleAt(pixels, y * pixels.Image()->lineStep + x * bytes, bytes);
                            plane.push_back(ColourAt(pattern, c.frameHeight, x, y) == colour ? value : 0);
                            if (std::size_t(plane.back()) < counts.size())
                                ++counts[std::size_t(plane.back())];
                        }
                    if (c.fits)
                        counts[0] = int(counts[0] - (colour == 1 ? 0.5 : 0.75) * c.frameWidth * c.frameHeight);
                    EXPECT_EQ(series.values, counts);
                    ExpectMoments(series, c.fits ? MomentsOf(plane) : Moments{111, 22});
                }
            }
        }
    }
}

} // namespace
