#include "imgprocessor.h"

#include "plain.h"

#include <opencv2/core.hpp>

#include <numeric>

namespace {

constexpr Moments Untouched{111.0, 22.0};

std::vector<std::int32_t> Indices(std::size_t count)
{
    std::vector<std::int32_t> indices(count);
    std::iota(indices.begin(), indices.end(), 0);
    return indices;
}

struct Shape
{
    std::uint32_t width, height, padding;
};

class EveryPixelType : public testing::TestWithParam<Shape>
{
protected:
    // Calls the test with pictures of every pixel type there is.
    template<class Test>
    void ForEach(Test test)
    {
        auto const [width, height, padding] = GetParam();
        for (std::uint32_t row = 0; row < TOV_PIXEL_TYPE_ROWS; ++row) {
            TovPixelTypeInfo const &info = *TovGetPixelTypeInfoByRow(row);
            for (Picture const picture : {Picture::Random, Picture::Black, Picture::Flat, Picture::Saturated}) {
                SCOPED_TRACE(testing::Message() << info.name << ", picture " << int(picture));
                Pixels pixels(info.pixelType, width, height, padding, row);
                Fill(pixels, picture);
                step = std::int64_t(pixels.Image()->lineStep);
                bytes = info.bitDepth == 8 ? 1 : 2;
                oddStep = step % bytes != 0;
                test(pixels);
            }
        }
    }
    std::vector<std::int32_t> Line(Pixels &pixels, std::int64_t offset, std::int64_t advance, std::size_t count) const
    {
        std::vector<std::int32_t> values;
        for (std::size_t i = 0; i < count; ++i)
            values.push_back(SampleAt(pixels, offset + std::int64_t(i) * advance, bytes));
        return values;
    }

    ImgProcessor processor{nullptr, nullptr};
    std::int64_t step = 0;
    int bytes = 0;
    bool oddStep = false; // of two-byte pixels: OpenCV does not take it
};

TEST_P(EveryPixelType, HistogramCountsEachValueOrIsMissing)
{
    ForEach([this](Pixels &pixels) {
        TovPixelTypeInfo const &info = pixels.Info();
        ComplexHisto histo;
        processor.GetRAWHisto(pixels.Image(), &histo);
        EXPECT_EQ(histo.bits, info.bitDepth);
        bool const deep =
            info.packing == TOV_UNPACKED && info.channels == 1 && (info.bitDepth == 10 || info.bitDepth == 12);
        bool const known = info.bitDepth == 8 || (deep && info.family != TOV_FAMILY_YUV && !oddStep);
        ASSERT_EQ(histo.plots.size(), known ? 1u : 0u);
        EXPECT_EQ(histo.currentIndex, known ? 0 : -1);
        if (!known)
            return;
        std::vector<std::int32_t> values, counts(std::size_t(1) << info.bitDepth);
        for (std::uint32_t y = 0; y < pixels.Image()->height; ++y)
            for (int const value : Line(pixels, y * step, bytes, pixels.Image()->width)) {
                values.push_back(value);
                ++counts[std::size_t(value)];
            }
        SimpleHisto const &series = *histo.plots[0];
        EXPECT_EQ(series.values, counts);
        EXPECT_EQ(series.positions, Indices(counts.size()));
        EXPECT_EQ(series.bits, info.bitDepth);
        EXPECT_EQ(series.color, QColor(Qt::yellow));
        ExpectMoments(series, MomentsOf(values));
    });
}

TEST_P(EveryPixelType, ProfilesReadTheLineAndZerosOutsideTheImage)
{
    ForEach([this](Pixels &pixels) {
        std::uint32_t const width = pixels.Image()->width;
        std::uint32_t const height = pixels.Image()->height;
        for (int const at : {0, 1, int(height) - 1, int(height), int(width) - 1, int(width), -1, 100000, INT32_MIN}) {
            SCOPED_TRACE(at);
            ComplexHisto histo;
            histo.row = histo.column = at;
            processor.GetRowHisto(pixels.Image(), &histo);
            processor.GetColHisto(pixels.Image(), &histo);
            EXPECT_EQ(histo.currentIndex, 1);
            EXPECT_EQ(histo.width, std::int32_t(width));
            EXPECT_EQ(histo.height, std::int32_t(height));
            SimpleHisto const &row = *histo.plots[0];
            EXPECT_EQ(row.bits, pixels.Info().bitDepth);
            EXPECT_EQ(row.values, at >= 0 && at < int(height) ? Line(pixels, at * step, bytes, width)
                                                              : std::vector<std::int32_t>(width));
            EXPECT_EQ(row.positions, Indices(width));
            ExpectMoments(row, MomentsOf(row.values));
            SimpleHisto const &column = *histo.plots[1];
            std::size_t const count = oddStep ? 0 : height;
            EXPECT_EQ(column.values, at >= 0 && at < int(width) ? Line(pixels, std::int64_t(at) * bytes, step, count)
                                                                : std::vector<std::int32_t>(count));
            EXPECT_EQ(column.positions, Indices(count));
            ExpectMoments(column, oddStep ? Untouched : MomentsOf(column.values));
        }
    });
}

TEST_P(EveryPixelType, IntegratedProfilesAreTruncatedMeansAndBothDivideByTheWidth)
{
    ForEach([this](Pixels &pixels) {
        std::uint32_t const width = pixels.Image()->width;
        std::uint32_t const height = pixels.Image()->height;
        ComplexHisto histo;
        histo.integrated = true;
        processor.GetRowHisto(pixels.Image(), &histo);
        processor.GetColHisto(pixels.Image(), &histo);
        for (bool const lines : {false, true}) {
            std::size_t const count = !lines && oddStep ? 0 : lines ? height : width;
            std::vector<std::int32_t> means;
            double mean = 0.0, stdDev = 0.0;
            for (std::size_t i = 0; i < count; ++i) {
                cv::Scalar m, s; // the very bits decide what is truncated
                cv::meanStdDev(lines ? Line(pixels, std::int64_t(i) * step, bytes, width)
                                     : Line(pixels, std::int64_t(i) * bytes, step, height),
                               m, s);
                means.push_back(std::int32_t(m[0]));
                mean += m[0];
                stdDev += s[0];
            }
            SimpleHisto const &series = *histo.plots[lines];
            EXPECT_EQ(series.values, means);
            EXPECT_EQ(series.positions, Indices(count));
            EXPECT_EQ(series.mean, count == 0 ? Untouched.mean : mean / width);
            EXPECT_NEAR(series.stdDev, count == 0 ? Untouched.stdDev : stdDev / width, 1e-3);
        }
    });
}

INSTANTIATE_TEST_SUITE_P(Shapes, EveryPixelType,
                         testing::Values(Shape{7, 5, 0}, Shape{16, 9, 2}, Shape{33, 4, 3}, Shape{1, 1, 0},
                                         Shape{6, 13, 32}));

TEST(ImgProcessor, StandsImagesOfNoSizeNoPixelsAndNoKnownDepth)
{
    ImgProcessor processor(nullptr, nullptr);
    Pixels pixels(TypeOf("Mono8"), 8, 4, 0, 1);
    std::uint32_t const cases[][3] = {{0, 4, 8},  {8, 0, 8},  {0, 0, 12},  {8, 4, 12},
                                      {8, 4, 31}, {8, 4, 64}, {8, 4, ~0u}, {~0u, ~0u, 8}};
    for (auto const &[width, height, bits] : cases) {
        _TovImage image = *pixels.Image();
        image.width = width;
        image.height = height;
        image.bitDepth = bits;
        image.imageData = bits == 12 ? nullptr : image.imageData;
        ComplexHisto histo;
        for (int i = 0; i < 4; ++i) { // with the depth that the histogram left
            histo.integrated = i % 2;
            processor.GetRAWHisto(&image, &histo);
            processor.GetRowHisto(&image, &histo);
            processor.GetColHisto(&image, &histo);
        }
        if (width == 0 && bits == 8) {
            EXPECT_TRUE(std::isnan(histo.plots[2]->mean)); // over no width at all
        }
        int stride, w, h;
        delete[] processor.CreateFloatimage(&image, stride, w, h);
    }
}

} // namespace
