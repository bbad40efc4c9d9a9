// What files and movies cost, beside a plain program or a bare library call in the same run. The sides take turns;
// every figure is the median of the turns. "ratio" is the peer's time over ours: 1 is as fast, more is faster.
//
// Files go to the current folder, or to the one that TOV_BENCH_DIR names.
#include "tovserializer.h"

#include <benchmark/benchmark.h>

#include <turbojpeg.h>

#if defined(TOV_HAVE_IMGCODECS)
#include <opencv2/imgcodecs.hpp>
#endif

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

constexpr std::uint32_t Width = 4096, Height = 3000;
constexpr std::uint32_t BAYERRG8 = 0x0308010E;

double Now()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

double Quantile(std::vector<double> values, double part)
{
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, std::size_t(double(values.size()) * part))];
}

double Median(std::vector<double> const &values)
{
    return Quantile(values, 0.5);
}

// A scene as a sensor sees it: shading, edges, some texture, and noise of so many 8-bit steps.
class Frame
{
public:
    Frame(std::uint32_t type, double noise)
    {
        _TovImage *scene = nullptr;
        bool const colour = type == TV_PIXEL_RGB8;
        bool const wide = type == TV_PIXEL_MONO12 || type == TV_PIXEL_MONO16;
        TovCreateImage(&scene, {Width, Height}, colour ? BAYERRG8 : type);
        std::mt19937 random(1);
        std::normal_distribution<float> normal(0, float(noise));
        std::vector<float> grain(1 << 16);
        for (float &value : grain)
            value = normal(random);
        float const scale = type == TV_PIXEL_MONO16 ? 256 : type == TV_PIXEL_MONO12 ? 16 : 1;
        for (std::uint32_t y = 0; y < Height; ++y) {
            for (std::uint32_t x = 0; x < Width; ++x) {
                float value = 40 + 90.0f * float(x) / Width + 30.0f * float(y) / Height;
                value += (x / 300 + y / 200) % 2 ? 35.0f : 0.0f;
                value += 6 * std::sin(float(x) * 0.11f) * std::sin(float(y) * 0.07f);
                value = std::clamp((value + grain[random() & 0xFFFF]) * scale, 0.0f, 255.9f * scale);
                if (wide)
                    reinterpret_cast<std::uint16_t *>(scene->imageData)[y * Width + x] = std::uint16_t(value);
                else
                    scene->imageData[y * Width + x] = std::uint8_t(value);
            }
        }
        if (colour) {
            TovCreateImage(&m_image, {Width, Height}, type);
            TovConvertImage(m_image, scene);
            TovReleaseImage(&scene);
        } else {
            m_image = scene;
        }
    }
    ~Frame()
    {
        TovReleaseImage(&m_image);
    }
    Frame(Frame const &) = delete;
    Frame &operator=(Frame const &) = delete;
    _TovImage *Get() const
    {
        return m_image;
    }
    _TovImage *operator->() const
    {
        return m_image;
    }

private:
    _TovImage *m_image = nullptr;
};

class Folder
{
public:
    Folder()
    {
        char const *top = std::getenv("TOV_BENCH_DIR");
        m_path = fs::path(top ? top : ".") / ("serializer-bench-" + std::to_string(getpid()));
        fs::create_directories(m_path);
    }
    ~Folder()
    {
        fs::remove_all(m_path);
    }
    std::string Name(std::string const &name) const
    {
        return (m_path / name).string();
    }
    // Nothing of one turn is left to the next.
    void Clear() const
    {
        for (fs::directory_entry const &entry : fs::directory_iterator(m_path))
            fs::remove(entry.path());
        Sync();
    }
    void Sync() const
    {
        int const file = open(m_path.c_str(), O_RDONLY);
        syncfs(file);
        close(file);
    }

private:
    fs::path m_path;
};

struct Serializer
{
    ~Serializer()
    {
        TovImageSerializer::DeleteComponent(object);
    }
    TovImageSerializer *operator->() const
    {
        return object;
    }
    TovImageSerializer *object = TovImageSerializer::CreateComponent(true);
};

// The plain program. The memory is at a page, as O_DIRECT wants it.
bool WritePlainly(std::string const &name, void const *data, std::size_t size, int flags)
{
    int const file = open(name.c_str(), O_CREAT | O_EXCL | O_WRONLY | flags, 0666);
    auto const *bytes = static_cast<char const *>(data);
    while (file >= 0 && size > 0) {
        ssize_t const written = write(file, bytes, size);
        if (written <= 0)
            break;
        bytes += written;
        size -= std::size_t(written);
    }
    return close(file) == 0 && size == 0;
}

using WriteOne = std::function<bool(std::string const &name)>;

// A series of files beside the two plain ways of writing as many bytes. A turn's time ends when the file system has
// them.
void SeriesAgainstPlainWrites(benchmark::State &state, char const *extension, std::uint32_t type)
{
    constexpr int Frames = 150, Turns = 5;
    Frame const frame(type, 2);
    Folder const folder;
    Serializer serializer;
    std::size_t const size = frame->imageSize;
    WriteOne const sides[] = {
        [&](std::string const &name) { return serializer->WriteFrame(frame.Get(), name.c_str()) == TOV_SERIALIZER_OK; },
        [&](std::string const &name) { return WritePlainly(name, frame->imageData, size, 0); },
        [&](std::string const &name) { return WritePlainly(name, frame->imageData, size, O_DIRECT); },
    };
    for (auto _ : state) {
        std::vector<double> turns[3], unsynced[3], frames[3];
        serializer->StartImageSeries(frame.Get(), extension);
        for (int turn = -1; turn < Turns; ++turn) { // the first one warms up
            for (int side = 0; side < 3; ++side) {
                double const begin = Now();
                for (int i = 0; i < Frames; ++i) {
                    double const from = Now();
                    if (!sides[side](folder.Name(std::to_string(i) + "." + extension)))
                        state.SkipWithError("a file could not be written");
                    if (turn >= 0)
                        frames[side].push_back(Now() - from);
                }
                double const written = Now();
                folder.Sync();
                if (turn >= 0) {
                    turns[side].push_back(Now() - begin);
                    unsynced[side].push_back(written - begin);
                }
                folder.Clear();
            }
        }
        serializer->Stop();
        double const ours = Median(turns[0]);
        state.SetIterationTime(ours);
        double const megabytes = double(size) * Frames * 1e-6;
        state.counters["ratio"] = std::min(Median(turns[1]), Median(turns[2])) / ours;
        state.counters["ratio_unsynced"] = std::min(Median(unsynced[1]), Median(unsynced[2])) / Median(unsynced[0]);
        state.counters["MB/s"] = megabytes / ours;
        state.counters["write_MB/s"] = megabytes / Median(turns[1]);
        state.counters["direct_MB/s"] = megabytes / Median(turns[2]);
        state.counters["frame_ms"] = Median(frames[0]) * 1e3;
        state.counters["p99/median"] = Quantile(frames[0], 0.99) / Median(frames[0]);
        state.counters["direct_p99/median"] = Quantile(frames[2], 0.99) / Median(frames[2]);
    }
}

// As many frames as a long recording has, one after another: what a queue of 16 in front would have to hold.
void LongRawSeries(benchmark::State &state)
{
    constexpr int Frames = 2000, Kept = 400;
    constexpr double Queue = 16;
    Frame const frame(TV_PIXEL_MONO8, 2);
    Folder const folder;
    Serializer serializer;
    for (auto _ : state) {
        serializer->StartImageSeries(frame.Get(), "raw");
        std::vector<double> times;
        double const begin = Now();
        for (int i = 0; i < Frames; ++i) {
            double const from = Now();
            serializer->WriteFrame(frame.Get(), folder.Name("f" + std::to_string(i) + ".raw").c_str());
            times.push_back(Now() - from);
            if (i >= Kept) // outside a frame's time; the disk is not that large
                unlink(folder.Name("f" + std::to_string(i - Kept) + ".raw").c_str());
        }
        state.SetIterationTime(Now() - begin);
        serializer->Stop();
        double sum = 0;
        for (double const time : times)
            sum += time;
        // A camera at 0.9 of that rate: the longest that its queue becomes.
        double const period = sum / Frames / 0.9;
        double backlog = 0, longest = 0;
        for (double const time : times) {
            backlog = std::max(0.0, backlog + time - period);
            longest = std::max(longest, backlog / period);
        }
        state.counters["MB/s"] = double(frame->imageSize) * Frames / sum * 1e-6;
        state.counters["queue"] = longest;
        state.counters["drops"] = longest > Queue ? longest - Queue : 0;
        state.counters["p99/median"] = Quantile(times, 0.99) / Median(times);
        folder.Clear();
    }
}

// One HDF5 file beside as many raw files: what the file costs that other programs can read while it grows.
void Hdf5AgainstRawSeries(benchmark::State &state)
{
    constexpr int Frames = 150, Turns = 5;
    Frame const frame(TV_PIXEL_MONO8, 2);
    Folder const folder;
    Serializer serializer;
    auto const write = [&](bool hdf5) {
        if (hdf5)
            serializer->StartMovie(frame.Get(), folder.Name("m.h5").c_str(), 25);
        else
            serializer->StartImageSeries(frame.Get(), "raw");
        for (int i = 0; i < Frames; ++i) {
            std::string const name = folder.Name(std::to_string(i) + ".raw");
            if (serializer->WriteFrame(frame.Get(), hdf5 ? nullptr : name.c_str()) != TOV_SERIALIZER_OK)
                state.SkipWithError("a frame could not be written");
        }
        if (serializer->Stop() != TOV_SERIALIZER_OK || serializer->GetReadableFrames() != Frames)
            state.SkipWithError("not all frames are readable");
    };
    for (auto _ : state) {
        std::vector<double> turns[2], unsynced[2];
        for (int turn = -1; turn < Turns; ++turn) {
            for (int side = 0; side < 2; ++side) {
                double const begin = Now();
                write(side == 0);
                double const written = Now();
                folder.Sync();
                if (turn >= 0) {
                    turns[side].push_back(Now() - begin);
                    unsynced[side].push_back(written - begin);
                }
                folder.Clear();
            }
        }
        double const megabytes = double(frame->imageSize) * Frames * 1e-6;
        state.SetIterationTime(Median(turns[0]));
        state.counters["ratio"] = Median(turns[1]) / Median(turns[0]);
        state.counters["ratio_unsynced"] = Median(unsynced[1]) / Median(unsynced[0]);
        state.counters["MB/s"] = megabytes / Median(turns[0]);
        state.counters["raw_MB/s"] = megabytes / Median(turns[1]);
    }
}

// Uncompressed AVI beside the ffmpeg program, which gets the frames from memory. Its file is in the page cache at
// first: the longer the movie, the more of it the disk has to take at once.
void AviAgainstFfmpeg(benchmark::State &state)
{
    constexpr int Held = 8, Turns = 3;
    int const frames = int(state.range(0));
    Frame const frame(TV_PIXEL_MONO8, 2);
    Folder const folder;
    Serializer serializer;
    std::string const input = "/dev/shm/serializer-bench-" + std::to_string(getpid()) + ".gray";
    FILE *const file = std::fopen(input.c_str(), "wb");
    for (int i = 0; i < Held; ++i)
        std::fwrite(frame->imageData, 1, frame->imageSize, file);
    std::fclose(file);
    std::string const command = "ffmpeg -v error -nostdin -stream_loop " + std::to_string(frames / Held - 1) +
                                " -f rawvideo -pix_fmt gray -s 4096x3000 -r 25 -i " + input + " -c:v rawvideo -y " +
                                folder.Name("peer.avi");
    for (auto _ : state) {
        std::vector<double> turns[2], unsynced[2];
        std::uintmax_t sizes[2];
        for (int turn = -1; turn < Turns; ++turn) {
            double begin = Now();
            serializer->StartMovie(frame.Get(), folder.Name("ours.avi").c_str(), 25);
            for (int i = 0; i < frames; ++i)
                serializer->WriteFrame(frame.Get(), nullptr);
            if (serializer->Stop() != TOV_SERIALIZER_OK)
                state.SkipWithError("the movie could not be written");
            double const oursWritten = Now() - begin;
            folder.Sync();
            double const ours = Now() - begin;
            sizes[0] = fs::file_size(folder.Name("ours.avi"));
            folder.Clear();
            begin = Now();
            if (std::system(command.c_str()) != 0)
                state.SkipWithError("ffmpeg did not run");
            double const peerWritten = Now() - begin;
            folder.Sync();
            double const peer = Now() - begin;
            sizes[1] = fs::file_size(folder.Name("peer.avi"));
            folder.Clear();
            if (turn >= 0) {
                turns[0].push_back(ours);
                turns[1].push_back(peer);
                unsynced[0].push_back(oursWritten);
                unsynced[1].push_back(peerWritten);
            }
        }
        state.SetIterationTime(Median(turns[0]));
        state.counters["ratio"] = Median(turns[1]) / Median(turns[0]);
        state.counters["ratio_unsynced"] = Median(unsynced[1]) / Median(unsynced[0]);
        state.counters["size_ratio"] = double(sizes[0]) / double(sizes[1]);
        state.counters["MB/s"] = double(sizes[0]) / Median(turns[0]) * 1e-6;
        state.counters["peer_MB/s"] = double(sizes[1]) / Median(turns[1]) * 1e-6;
    }
    fs::remove(input);
}

// An encoder beside another: single frames, in turns. `peer` returns the bytes it made.
void EncodeAgainst(benchmark::State &state, Frame const &frame, char const *extension, Folder const &folder,
                   std::function<std::size_t()> const &peer)
{
    constexpr int Turns = 15;
    Serializer serializer;
    std::string const name = folder.Name(std::string("ours.") + extension);
    for (auto _ : state) {
        std::vector<double> turns[2];
        double sizes[2] = {};
        serializer->StartImageSeries(frame.Get(), extension);
        for (int turn = -1; turn < Turns; ++turn) {
            double const begin = Now();
            if (serializer->WriteFrame(frame.Get(), name.c_str()) != TOV_SERIALIZER_OK)
                state.SkipWithError("a file could not be written");
            double const between = Now();
            sizes[1] = double(peer());
            double const end = Now();
            sizes[0] = double(fs::file_size(name));
            fs::remove(name);
            if (turn >= 0) {
                turns[0].push_back(between - begin);
                turns[1].push_back(end - between);
            }
        }
        serializer->Stop();
        state.SetIterationTime(Median(turns[0]));
        state.counters["ratio"] = Median(turns[1]) / Median(turns[0]);
        state.counters["size_ratio"] = sizes[0] / sizes[1];
        state.counters["peer_ms"] = Median(turns[1]) * 1e3;
    }
}

// Both write the file.
void JpegAgainstTurbojpeg(benchmark::State &state, std::uint32_t type)
{
    Frame const frame(type, 2);
    Folder const folder;
    bool const grey = type == TV_PIXEL_MONO8;
    int const sampling = grey ? TJSAMP_GRAY : TJSAMP_420;
    std::vector<unsigned char> out(tjBufSize(Width, Height, sampling));
    tjhandle const encoder = tjInitCompress();
    std::string const name = folder.Name("peer.jpg");
    EncodeAgainst(state, frame, "jpg", folder, [&] {
        unsigned char *data = out.data();
        unsigned long size = out.size();
        tjCompress2(encoder, frame->imageData, Width, 0, Height, grey ? TJPF_GRAY : TJPF_RGB, &data, &size, sampling,
                    85, TJFLAG_NOREALLOC);
        WritePlainly(name, data, size, 0);
        unlink(name.c_str());
        return std::size_t(size);
    });
    tjDestroy(encoder);
}

#if defined(TOV_HAVE_IMGCODECS)
// OpenCV makes its file in memory only.
void PngAgainstOpenCv(benchmark::State &state, std::uint32_t type, double noise)
{
    Frame const frame(type, noise);
    Folder const folder;
    bool const wide = type == TV_PIXEL_MONO16;
    cv::Mat const picture(Height, Width, wide ? CV_16UC1 : type == TV_PIXEL_RGB8 ? CV_8UC3 : CV_8UC1, frame->imageData);
    std::vector<unsigned char> out;
    EncodeAgainst(state, frame, "png", folder, [&] {
        cv::imencode(".png", picture, out);
        return out.size();
    });
}
#endif

} // namespace

#define TOV_SERIALIZER_BENCH(function, name, ...)                                                                      \
    BENCHMARK_CAPTURE(function, name, __VA_ARGS__)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(1)

TOV_SERIALIZER_BENCH(SeriesAgainstPlainWrites, raw_12MP, "raw", TV_PIXEL_MONO8);
TOV_SERIALIZER_BENCH(SeriesAgainstPlainWrites, tvi_12MP, "tvi", TV_PIXEL_MONO8);
TOV_SERIALIZER_BENCH(SeriesAgainstPlainWrites, tif16_12MP, "tif", TV_PIXEL_MONO12);
BENCHMARK(LongRawSeries)->UseManualTime()->Unit(benchmark::kSecond)->Iterations(1);
BENCHMARK(Hdf5AgainstRawSeries)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(AviAgainstFfmpeg)
    ->ArgName("frames")
    ->Arg(120)
    ->Arg(960)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1);
TOV_SERIALIZER_BENCH(JpegAgainstTurbojpeg, grey, TV_PIXEL_MONO8);
TOV_SERIALIZER_BENCH(JpegAgainstTurbojpeg, colour, TV_PIXEL_RGB8);
#if defined(TOV_HAVE_IMGCODECS)
TOV_SERIALIZER_BENCH(PngAgainstOpenCv, grey_little_noise, TV_PIXEL_MONO8, 0.7);
TOV_SERIALIZER_BENCH(PngAgainstOpenCv, grey_noisy, TV_PIXEL_MONO8, 3.0);
TOV_SERIALIZER_BENCH(PngAgainstOpenCv, grey_no_noise, TV_PIXEL_MONO8, 0.0);
TOV_SERIALIZER_BENCH(PngAgainstOpenCv, colour, TV_PIXEL_RGB8, 1.5);
TOV_SERIALIZER_BENCH(PngAgainstOpenCv, grey_16_bit, TV_PIXEL_MONO16, 0.7);
#endif

BENCHMARK_MAIN();
