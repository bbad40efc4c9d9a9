// What the image library costs, beside a bare library call over the same memory in the same run. The two take turns, so
// that a disturbance meets both; the counter "ratio" is the peer's median time over ours: 1 is as fast, more is faster.
// "best_ratio" is formed of the shortest turn of each.
#include "tovimage.h"

#include <benchmark/benchmark.h>

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#if defined(TOV_HAVE_SWSCALE)
extern "C" {
#include <libswscale/swscale.h>
}
#endif

namespace {

TovPixelTypeInfo const *InfoOf(std::string const &name)
{
    std::uint32_t row = 0;
    while (TovGetPixelTypeInfoByRow(row)->name != name)
        ++row;
    return TovGetPixelTypeInfoByRow(row);
}

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
        m_taken.push_back(std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
        return m_taken.back();
    }
    double Median()
    {
        auto const middle = m_taken.begin() + std::ptrdiff_t(m_taken.size() / 2);
        std::nth_element(m_taken.begin(), middle, m_taken.end());
        return *middle;
    }
    double Least() const
    {
        return *std::min_element(m_taken.begin(), m_taken.end());
    }

private:
    std::vector<double> m_taken;
};

template<class Ours, class Peer>
void TakeTurns(benchmark::State &state, double traffic, Ours &&ours, Peer &&peer)
{
    Turns our, other;
    // What is only done once, such as starting threads and taking memory, is not part of it.
    ours();
    peer();
    for (auto _ : state) {
        state.SetIterationTime(our.Time(ours));
        other.Time(peer);
    }
    state.counters["ratio"] = other.Median() / our.Median();
    state.counters["best_ratio"] = other.Least() / our.Least();
    state.counters["GB/s"] = traffic / our.Median() * 1e-9;
    state.counters["peer_ms"] = other.Median() * 1e3;
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

constexpr std::uint32_t Width = 4096, Height = 3000;

cv::Mat MatOf(Image const &image, int type)
{
    return cv::Mat(int(image->height), int(image->width), type, image->imageData, image->lineStep);
}

// A mosaic to colours beside the quickest way we know to do the same with OpenCV, on as many threads: its demosaicing,
// before it our unpacking into another frame where the samples are packed or too deep, and OpenCV's shift where they
// become deeper.
void AgainstOpenCV(benchmark::State &state, TovPixelTypeInfo const *from, TovPixelTypeInfo const *to, int threads)
{
    cv::setNumThreads(threads);
    state.counters["threads"] = cv::getNumThreads();
    Image const source(from->pixelType, Width, Height), destination(to->pixelType, Width, Height);
    bool const bytes = to->bitDepth == 8;
    std::string const flat = std::string(from->name, 7) + std::to_string(bytes ? 8 : from->bitDepth);
    TovPixelTypeInfo const *raw = InfoOf(flat);
    Image const unpacked(raw->pixelType, Width, Height), shifted(raw->pixelType, Width, Height);
    Image const picture(to->pixelType, Width, Height);
    int const depth = bytes ? CV_8U : CV_16U;
    bool const unpack = raw != from;
    bool const shift = to->bitDepth > raw->bitDepth;
    cv::Mat const plain = MatOf(unpack ? unpacked : source, depth);
    cv::Mat deep = MatOf(shifted, depth);
    cv::Mat colours = MatOf(picture, CV_MAKETYPE(depth, 3));
    // OpenCV calls a pattern by the pixels one line down and one column on.
    int const redFirst[] = {cv::COLOR_BayerGR2RGB, cv::COLOR_BayerRG2RGB, cv::COLOR_BayerGB2RGB, cv::COLOR_BayerBG2RGB};
    int const blueFirst[] = {cv::COLOR_BayerGR2BGR, cv::COLOR_BayerRG2BGR, cv::COLOR_BayerGB2BGR,
                             cv::COLOR_BayerBG2BGR};
    int const opposite[] = {TOV_BAYER_GB, TOV_BAYER_BG, TOV_BAYER_GR, TOV_BAYER_RG};
    int const pattern = opposite[from->bayer - TOV_BAYER_GR] - TOV_BAYER_GR;
    int const code = to->name[0] == 'B' ? blueFirst[pattern] : redFirst[pattern];
    TakeTurns(
        state, double(source->imageSize) + destination->imageSize,
        [&] { TovConvertImage(destination.Get(), source.Get()); },
        [&] {
            if (unpack)
                TovConvertImage(unpacked.Get(), source.Get());
            if (shift)
                plain.convertTo(deep, depth, 1 << (to->bitDepth - raw->bitDepth));
            cv::demosaicing(shift ? deep : plain, colours, code);
        });
    cv::Rect const inside(1, 1, int(Width) - 2, int(Height) - 2);
    if (!shift && cv::norm(colours(inside), MatOf(destination, colours.type())(inside), cv::NORM_INF) != 0)
        state.SkipWithError("the pictures differ");
}

#if defined(TOV_HAVE_SWSCALE)

struct SwscalePair
{
    char const *from;
    char const *to;
    AVPixelFormat peerFrom;
    AVPixelFormat peerTo;
};
constexpr SwscalePair s_swscalePairs[] = {
    {"BayerRG8", "RGB8", AV_PIX_FMT_BAYER_RGGB8, AV_PIX_FMT_RGB24},
    {"BayerGB8", "RGB8", AV_PIX_FMT_BAYER_GBRG8, AV_PIX_FMT_RGB24},
    {"BayerRG16", "RGB16", AV_PIX_FMT_BAYER_RGGB16LE, AV_PIX_FMT_RGB48LE},
    {"Mono10", "Mono8", AV_PIX_FMT_GRAY10LE, AV_PIX_FMT_GRAY8},
    {"Mono12", "Mono8", AV_PIX_FMT_GRAY12LE, AV_PIX_FMT_GRAY8},
    {"RGB8", "BGR8", AV_PIX_FMT_RGB24, AV_PIX_FMT_BGR24},
    {"YUV422_8", "RGB8", AV_PIX_FMT_YUYV422, AV_PIX_FMT_RGB24},
};

void AgainstSwscale(benchmark::State &state, TovPixelTypeInfo const *from, TovPixelTypeInfo const *to,
                    SwscalePair const &pair)
{
    cv::setNumThreads(1);
    Image const source(from->pixelType, Width, Height), destination(to->pixelType, Width, Height);
    Image const picture(to->pixelType, Width, Height);
    // Samples within their depth.
    if (from->bitDepth > 8 && from->bitDepth < 16) {
        for (std::uint32_t i = 1; i < source->imageSize; i += 2)
            source->imageData[i] &= 0xFF >> (16 - from->bitDepth);
    }
    SwsContext *const context = sws_getContext(int(Width), int(Height), pair.peerFrom, int(Width), int(Height),
                                               pair.peerTo, SWS_FAST_BILINEAR, nullptr, nullptr, nullptr);
    if (!context)
        return state.SkipWithError("swscale cannot");
    std::uint8_t const *const lines[] = {source->imageData, nullptr, nullptr, nullptr};
    std::uint8_t *const out[] = {picture->imageData, nullptr, nullptr, nullptr};
    int const step[] = {int(source->lineStep), 0, 0, 0}, outStep[] = {int(picture->lineStep), 0, 0, 0};
    TakeTurns(
        state, double(source->imageSize) + destination->imageSize,
        [&] { TovConvertImage(destination.Get(), source.Get()); },
        [&] { sws_scale(context, lines, step, 0, int(Height), out, outStep); });
    sws_freeContext(context);
}

#endif

// An image made and freed, as for every frame that is kept, beside what the heap gives; both touch every page.
void AgainstTheHeap(benchmark::State &state)
{
    constexpr std::size_t Size = 37'000'000;
    auto const touch = [](void *memory) {
        for (std::size_t at = 0; at < Size; at += 4096)
            static_cast<volatile char *>(memory)[at] = 1;
    };
    TakeTurns(
        state, 0,
        [&] {
            void *memory = TovAllocFrameMemory(Size);
            touch(memory);
            TovFreeFrameMemory(memory);
        },
        [&] {
            void *memory = std::malloc(Size);
            touch(memory);
            std::free(memory);
        });
}

template<class F>
void Register(std::string const &name, F const &function)
{
    benchmark::RegisterBenchmark(name.c_str(), function)->UseManualTime()->Unit(benchmark::kMillisecond)->MinTime(0.3);
}

void RegisterMemcpy(std::string const &from, std::string const &to)
{
    for (auto const &[name, width, height] : {std::tuple("12MP", 4096u, 3000u), std::tuple("48MP", 8192u, 6000u)}) {
        Register("memcpy/" + from + "/" + to + "/" + name, [=](benchmark::State &state) {
            AgainstMemcpy(state, InfoOf(from)->pixelType, InfoOf(to)->pixelType, width, height);
        });
    }
}

void RegisterOpenCV(std::string const &from, std::string const &to)
{
    for (int const threads : {1, cv::getNumberOfCPUs()}) {
        Register("opencv/" + from + "/" + to + "/threads:" + std::to_string(threads),
                 [=](benchmark::State &state) { AgainstOpenCV(state, InfoOf(from), InfoOf(to), threads); });
    }
}

} // namespace

int main(int argc, char **argv)
{
    for (char const *depth : {"10", "12"}) {
        std::string const mono = std::string("Mono") + depth;
        for (char const *packing : {"", "p", "Packed"})
            RegisterMemcpy(mono + packing, "Mono8");
        for (char const *packing : {"p", "Packed"}) {
            RegisterMemcpy(mono + packing, mono);
            RegisterMemcpy(mono + packing, "Mono16");
        }
    }
    RegisterMemcpy("Mono12", "Mono16");
    RegisterMemcpy("Mono16", "Mono8");
    RegisterMemcpy("Mono8", "RGB8");
    RegisterMemcpy("RGB8", "BGR8");
    RegisterMemcpy("YUV422_8", "RGB8");

    // Every way of demosaicing behind one mosaic, and every mosaic one way.
    for (char const *from :
         {"BayerRG8", "BayerRG10", "BayerRG10p", "BayerRG10Packed", "BayerRG12", "BayerRG12p", "BayerRG12Packed"}) {
        for (char const *to : {"RGB8", "BGR8"})
            RegisterOpenCV(from, to);
        if (InfoOf(from)->bitDepth > 8) {
            RegisterOpenCV(from, "RGB" + std::to_string(InfoOf(from)->bitDepth));
            RegisterOpenCV(from, "RGB16");
        }
    }
    for (char const *mosaic : {"BayerGR", "BayerGB", "BayerBG"}) {
        RegisterOpenCV(mosaic + std::string("8"), "RGB8");
        RegisterOpenCV(mosaic + std::string("12Packed"), "RGB12");
    }
#if defined(TOV_HAVE_SWSCALE)
    for (SwscalePair const &pair : s_swscalePairs) {
        Register(std::string("swscale/") + pair.from + "/" + pair.to,
                 [&pair](benchmark::State &state) { AgainstSwscale(state, InfoOf(pair.from), InfoOf(pair.to), pair); });
    }
#endif
    Register("heap/37MB", AgainstTheHeap);

    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
