// What the analysis costs, beside its OpenCV calls alone on the same picture of 4096 x 3000 in the same run. The two
// take turns; "ratio" is our time over theirs, of the shortest turn of each, "mean_ratio" of all turns: 1 is as fast,
// less is faster.
#include "bayerhelper2.h"
#include "imgprocessor.h"

#include <benchmark/benchmark.h>

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <ctime>
#include <random>

namespace {

constexpr int Width = 4096;
constexpr int Height = 3000;

class Picture
{
public:
    // 8, 10 and 12 bits, as mono or as a mosaic.
    Picture(int bits, bool mosaic)
    {
        std::uint32_t const mono[] = {TV_PIXEL_MONO8, TV_PIXEL_MONO10, TV_PIXEL_MONO12};
        std::uint32_t const bayer[] = {0x0308010E, 0x03100212, 0x03100316};
        TovCreateImage(&image, {Width, Height}, (mosaic ? bayer : mono)[(bits - 8) / 2]);
        pixels = cv::Mat(Height, Width, bits == 8 ? CV_8UC1 : CV_16UC1, image->imageData);
        // A gradient with noise, which is what a camera gives.
        std::minstd_rand random(1);
        for (int y = 0; y < Height; ++y)
            for (int x = 0; x < Width; ++x) {
                int const value = int(((x + y) * 15 >> 7) + int(random() >> 8) % 64) % 1024 * (1 << bits) / 1024;
                if (bits == 8)
                    pixels.at<std::uint8_t>(y, x) = std::uint8_t(value);
                else
                    pixels.at<std::uint16_t>(y, x) = std::uint16_t(value);
            }
    }
    ~Picture()
    {
        TovReleaseImage(&image);
    }
    Picture(Picture const &) = delete;
    Picture &operator=(Picture const &) = delete;

    _TovImage *image = nullptr;
    cv::Mat pixels;
};

template<class Ours, class Peer>
void TakeTurns(benchmark::State &state, Ours &&ours, Peer &&peer)
{
    auto const time = [](auto &work) {
        auto const now = [] {
            timespec time;
            clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
            return double(time.tv_sec) + double(time.tv_nsec) * 1e-9;
        };
        double const begin = now();
        work();
        benchmark::ClobberMemory();
        return now() - begin;
    };
    double least[2] = {1e9, 1e9}, sum[2] = {};
    auto const note = [&](int who, double taken) {
        least[who] = std::min(least[who], taken);
        sum[who] += taken;
        return taken;
    };
    for (auto _ : state) {
        state.SetIterationTime(note(0, time(ours)));
        note(1, time(peer));
    }
    state.counters["ratio"] = least[0] / least[1];
    state.counters["mean_ratio"] = sum[0] / sum[1];
    state.counters["peer_ms"] = least[1] * 1e3;
}

void Measure(cv::Mat const &pixels, int levels)
{
    int const channel = 0;
    float const range[] = {0.0f, float(levels)};
    float const *ranges = range;
    cv::Mat histogram;
    cv::calcHist(&pixels, 1, &channel, cv::Mat(), histogram, 1, &levels, &ranges, true, false);
    cv::Scalar mean, stdDev;
    cv::meanStdDev(pixels, mean, stdDev);
    benchmark::DoNotOptimize(mean);
}

void Histogram(benchmark::State &state)
{
    int const bits = int(state.range(0));
    Picture const picture(bits, false);
    ImgProcessor processor(nullptr, nullptr);
    ComplexHisto histo;
    TakeTurns(
        state,
        [&] {
            histo.ClearPlots();
            processor.GetRAWHisto(picture.image, &histo);
        },
        [&] { Measure(picture.pixels, 1 << bits); });
}

void Colours(benchmark::State &state)
{
    int const bits = int(state.range(0));
    Picture const picture(bits, true);
    ImgProcessor processor(nullptr, nullptr);
    ComplexHisto histo;
    BayerHelper2 helper;
    helper.SetUp(Width, Height, std::uint32_t(bits), BayerHelper2::ColorClass, 1, &histo);
    cv::Mat plane(picture.pixels.size(), picture.pixels.type());
    TakeTurns(
        state,
        [&] {
            histo.ClearPlots();
            processor.GetRGBHisto(picture.image, &histo, &helper);
        },
        [&] {
            for (cv::Mat const *mask : {&helper.MaskB, &helper.MaskG, &helper.MaskA}) {
                plane.setTo(0);
                picture.pixels.copyTo(plane, *mask);
                Measure(plane, 1 << bits);
            }
        });
}

// The mean of each column and of each line: one call of meanStdDev each.
template<bool columns>
void Profile(benchmark::State &state)
{
    Picture const picture(int(state.range(0)), false);
    ImgProcessor processor(nullptr, nullptr);
    ComplexHisto histo;
    histo.integrated = true;
    TakeTurns(
        state,
        [&] {
            histo.ClearPlots();
            if (columns)
                processor.GetRowHisto(picture.image, &histo);
            else
                processor.GetColHisto(picture.image, &histo);
        },
        [&] {
            for (int i = 0; i < (columns ? Width : Height); ++i) {
                cv::Scalar mean, stdDev;
                cv::meanStdDev(columns ? picture.pixels.col(i) : picture.pixels.row(i), mean, stdDev);
                benchmark::DoNotOptimize(mean);
            }
        });
}

#define TOV_DEPTHS DenseRange(8, 12, 2)->UseManualTime()->Unit(benchmark::kMillisecond)
BENCHMARK(Histogram)->TOV_DEPTHS;
BENCHMARK(Colours)->TOV_DEPTHS;
BENCHMARK(Profile<true>)->TOV_DEPTHS;
BENCHMARK(Profile<false>)->TOV_DEPTHS;

} // namespace

BENCHMARK_MAIN();
