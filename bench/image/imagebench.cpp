// What the image library costs, beside a bare library call over the same memory in the same run. The two take turns, so
// that a disturbance meets both; the counter "ratio" is the peer's time over ours: 1 is as fast, more is faster. It is
// formed of the shortest turn of each, "mean_ratio" of all turns.
#include "tovimage.h"

#include <benchmark/benchmark.h>

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <limits>
#include <random>

namespace {

class Image
{
public:
    Image(std::uint32_t type, std::uint32_t width, std::uint32_t height)
    {
        TovCreateImage(&m_image, {width, height}, type);
        std::minstd_rand random(1);
        for (std::uint32_t i = 0; i < m_image->imageSize; ++i)
            m_image->imageData[i] = std::uint8_t(random() >> 8);
    }
    ~Image()
    {
        TovReleaseImage(&m_image);
    }
    Image(Image const &) = delete;
    Image &operator=(Image const &) = delete;
    _TovImage *operator->() const
    {
        return m_image;
    }
    _TovImage *Get() const
    {
        return m_image;
    }

private:
    _TovImage *m_image = nullptr;
};

class Turns
{
public:
    template<class F>
    double Time(F &&function)
    {
        auto const begin = std::chrono::steady_clock::now();
        function();
        benchmark::ClobberMemory();
        double const taken = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
        m_sum += taken;
        m_least = std::min(m_least, taken);
        return taken;
    }
    double Sum() const
    {
        return m_sum;
    }
    double Least() const
    {
        return m_least;
    }

private:
    double m_sum = 0;
    double m_least = std::numeric_limits<double>::max();
};

template<class Ours, class Peer>
void TakeTurns(benchmark::State &state, double traffic, Ours &&ours, Peer &&peer)
{
    Turns our, other;
    for (auto _ : state) {
        state.SetIterationTime(our.Time(ours));
        other.Time(peer);
    }
    state.counters["ratio"] = other.Least() / our.Least();
    state.counters["mean_ratio"] = other.Sum() / our.Sum();
    state.counters["GB/s"] = traffic / our.Least() * 1e-9;
    state.counters["peer_ms"] = other.Least() * 1e3;
}

// A conversion beside memcpy of as many bytes read and written.
void AgainstMemcpy(benchmark::State &state, std::uint32_t from, std::uint32_t to, std::uint32_t width,
                   std::uint32_t height)
{
    Image const source(from, width, height), destination(to, width, height);
    std::size_t const bytes = (std::size_t(source->imageSize) + destination->imageSize) / 2;
    Image const a(TV_PIXEL_MONO8, std::uint32_t(bytes / 1000), 1000),
        b(TV_PIXEL_MONO8, std::uint32_t(bytes / 1000), 1000);
    TakeTurns(
        state, 2.0 * double(bytes), [&] { TovConvertImage(destination.Get(), source.Get()); },
        [&] { std::memcpy(b->imageData, a->imageData, a->imageSize); });
}

// A mosaic to colours beside OpenCV's demosaicing of a whole frame, on one thread as ours.
void AgainstDemosaicing(benchmark::State &state, std::uint32_t from, std::uint32_t to, int depth)
{
    constexpr int WIDTH = 4096, HEIGHT = 3000;
    cv::setNumThreads(1);
    Image const source(from, WIDTH, HEIGHT), destination(to, WIDTH, HEIGHT);
    Image const raw(depth == CV_8U ? TV_PIXEL_MONO8 : TV_PIXEL_MONO16, WIDTH, HEIGHT);
    Image const picture(depth == CV_8U ? TV_PIXEL_RGB8 : TV_PIXEL_RGB16, WIDTH, HEIGHT);
    cv::Mat const mosaic(HEIGHT, WIDTH, CV_MAKETYPE(depth, 1), raw->imageData);
    cv::Mat colours(HEIGHT, WIDTH, CV_MAKETYPE(depth, 3), picture->imageData);
    TakeTurns(
        state, double(source->imageSize) + destination->imageSize,
        [&] { TovConvertImage(destination.Get(), source.Get()); },
        [&] { cv::demosaicing(mosaic, colours, cv::COLOR_BayerBG2RGB); });
}

// An image made and freed, as for every frame that is kept, beside what the heap gives; both touch every page.
void AgainstTheHeap(benchmark::State &state)
{
    constexpr std::size_t SIZE = 37'000'000;
    auto const touch = [](void *memory) {
        for (std::size_t at = 0; at < SIZE; at += 4096)
            static_cast<volatile char *>(memory)[at] = 1;
    };
    TakeTurns(
        state, 0,
        [&] {
            void *memory = TovAllocFrameMemory(SIZE);
            touch(memory);
            TovFreeFrameMemory(memory);
        },
        [&] {
            void *memory = std::malloc(SIZE);
            touch(memory);
            std::free(memory);
        });
}

constexpr std::uint32_t MONO10P = 0x010A2203, MONO10PACKED = 0x010C1204, MONO12P = 0x010C2307,
                        MONO12PACKED = 0x010C1308;
constexpr std::uint32_t BAYERRG8 = 0x0308010E, BAYERRG12 = 0x03100316, BAYERRG12P = 0x030C2323;

} // namespace

#define TOV_MEMCPY_BENCH(name, from, to)                                                                               \
    BENCHMARK_CAPTURE(AgainstMemcpy, name##_12MP, from, to, 4096u, 3000u)                                              \
        ->UseManualTime()                                                                                              \
        ->Unit(benchmark::kMillisecond)                                                                                \
        ->MinTime(0.3);                                                                                                \
    BENCHMARK_CAPTURE(AgainstMemcpy, name##_48MP, from, to, 8192u, 6000u)                                              \
        ->UseManualTime()                                                                                              \
        ->Unit(benchmark::kMillisecond)                                                                                \
        ->MinTime(0.3)

TOV_MEMCPY_BENCH(Mono12p_to_16, MONO12P, TV_PIXEL_MONO12);
TOV_MEMCPY_BENCH(Mono12Packed_to_16, MONO12PACKED, TV_PIXEL_MONO12);
TOV_MEMCPY_BENCH(Mono10p_to_16, MONO10P, TV_PIXEL_MONO10);
TOV_MEMCPY_BENCH(Mono10Packed_to_16, MONO10PACKED, TV_PIXEL_MONO10);
TOV_MEMCPY_BENCH(Mono16_to_8, TV_PIXEL_MONO16, TV_PIXEL_MONO8);
TOV_MEMCPY_BENCH(Mono12_to_8, TV_PIXEL_MONO12, TV_PIXEL_MONO8);
TOV_MEMCPY_BENCH(Mono12p_to_8, MONO12P, TV_PIXEL_MONO8);
TOV_MEMCPY_BENCH(Mono12Packed_to_8, MONO12PACKED, TV_PIXEL_MONO8);
TOV_MEMCPY_BENCH(Mono8_to_RGB8, TV_PIXEL_MONO8, TV_PIXEL_RGB8);
TOV_MEMCPY_BENCH(RGB8_to_BGR8, TV_PIXEL_RGB8, TV_PIXEL_BGR8);
TOV_MEMCPY_BENCH(YUV422_to_RGB8, 0x05100181u, TV_PIXEL_RGB8);
BENCHMARK_CAPTURE(AgainstDemosaicing, BayerRG8_to_RGB8, BAYERRG8, TV_PIXEL_RGB8, CV_8U)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(AgainstDemosaicing, BayerRG12p_to_RGB8, BAYERRG12P, TV_PIXEL_RGB8, CV_8U)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(AgainstDemosaicing, BayerRG12_to_RGB12, BAYERRG12, TV_PIXEL_RGB12, CV_16U)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(AgainstDemosaicing, TrueSense_to_RGB8, 0x04080131u, TV_PIXEL_RGB8, CV_8U)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(AgainstTheHeap)->UseManualTime()->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
