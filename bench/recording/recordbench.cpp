// Recording raw series of 12 MP frames: a scripted camera, the FIFO, the writer and the real serializer, against a
// plain program that writes the same bytes under as many names. A run's time ends when the file system has them. Where
// the long runs' files have no room side by side they are removed as they come; the folder is TOV_BENCH_FOLDER, or the
// one for temporary files.
#include "fakecamera.h"
#include "imagewriter.h"

#include <log4cpp/Category.hh>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint32_t Width = 4096;
constexpr std::uint32_t Height = 3000;
constexpr std::size_t FrameSize = std::size_t{Width} * Height;
constexpr std::uint64_t RunFrames = 120;
constexpr std::uint64_t LongRunFrames = 2000;
constexpr int Rounds = 5;

constexpr int LongRounds = 3;
constexpr std::uint64_t FilesKept = 8;
constexpr std::uint64_t QueueSize = 16;
constexpr std::uint64_t QueuePlaces = QueueSize - 3; // a capturing FIFO leaves three buffers to the stream
constexpr std::int64_t QueueRoom = 8;                // an unhurried camera never fills the FIFO

std::string Folder()
{
    char const *const asked = std::getenv("TOV_BENCH_FOLDER");
    std::string const path = (asked ? std::string(asked) : std::filesystem::temp_directory_path().string()) +
                             "/tov_recordbench_" + std::to_string(getpid());
    std::filesystem::create_directories(path);
    return path;
}

std::string FileName(std::uint64_t id)
{
    char name[64];
    std::snprintf(name, sizeof name, "/image_%08lu.raw", static_cast<unsigned long>(id));
    return Folder() + name;
}

void RemoveOld(std::uint64_t id)
{
    if (id > FilesKept)
        unlink(FileName(id - FilesKept).c_str());
}

void RemoveAll()
{
    std::filesystem::remove_all(Folder());
}

double Median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

double Seconds(Clock::time_point begin)
{
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

void Sync()
{
    int const directory = open(Folder().c_str(), O_RDONLY | O_DIRECTORY);
    syncfs(directory);
    close(directory);
}

bool HasRoomFor(std::uint64_t frames)
{
    return std::filesystem::space(Folder()).available > (frames + RunFrames) * FrameSize;
}

// Seconds of each frame, none when it failed. What the file system still does afterwards is not in them.
std::vector<double> WritePlainly(std::uint64_t frames, int flags)
{
    void *memory = nullptr;
    if (posix_memalign(&memory, 4096, FrameSize) != 0)
        return {};
    std::fill_n(static_cast<char *>(memory), FrameSize, 0);
    bool const keep = HasRoomFor(frames);
    std::vector<double> times;
    for (std::uint64_t id = 1; id <= frames; ++id) {
        auto const begin = Clock::now();
        int const file = open(FileName(id).c_str(), O_CREAT | O_WRONLY | O_EXCL | flags, 0666);
        std::size_t done = 0;
        while (file >= 0 && done < FrameSize) {
            ssize_t const count = write(file, static_cast<char *>(memory) + done, FrameSize - done);
            if (count <= 0)
                break;
            done += static_cast<std::size_t>(count);
        }
        if (file >= 0)
            close(file);
        if (done < FrameSize) {
            times.clear();
            RemoveAll(); // or its names would be taken for the next try
            break;
        }
        times.push_back(Seconds(begin));
        if (!keep)
            RemoveOld(id);
    }
    std::free(memory);
    return times;
}

// Frames a second.
double PlainRun(int flags)
{
    auto const begin = Clock::now();
    bool const failed = WritePlainly(RunFrames, flags).empty();
    Sync();
    double const time = Seconds(begin);
    RemoveAll();
    return failed ? 0 : RunFrames / time;
}

// Whether a queue with these places never overflows when frames come at this rate and are served in these times.
bool Allows(std::vector<double> const &times, double rate)
{
    std::vector<double> ends;
    double end = 0;
    for (std::size_t i = 0; i < times.size(); ++i) {
        double const arrival = static_cast<double>(i) / rate;
        // The frame that takes this one's place must have been taken out by now.
        if (i > QueuePlaces && ends[i - QueuePlaces - 1] > arrival)
            return false;
        end = std::max(end, arrival) + times[i];
        ends.push_back(end);
    }
    return true;
}

// Frames a second that a plain program with such a queue would have written without a loss.
double AllowedRate(std::vector<double> const &times)
{
    double low = 0, high = 1 / Median(times);
    for (int i = 0; i < 40; ++i) {
        double const middle = (low + high) / 2;
        (Allows(times, middle) ? low : high) = middle;
    }
    return low;
}

struct Run
{
    double rate; // frames a second
    std::int64_t saved, dropped, refused;
};

// With a rate the camera keeps it and a frame that finds no buffer is lost; with 0 it waits for the writer.
// `companions`: with the files beside the recording.
Run Record(std::uint64_t frames, double rate, bool companions = true)
{
    FakeDevice device;
    device.stream.SetFormat(Width, Height, TV_PIXEL_MONO8, 8);
    GrabbingFifo fifo(nullptr, &device);
    ImageWriter writer(nullptr, &fifo, nullptr);
    writer.SetParamString("FilePath", Folder().c_str());
    writer.SetCompanions(companions);
    fifo.CreateBuffers();
    fifo.StartGrabbing();
    fifo.SetState(SessionStateCapturing);
    writer.StartWriting();
    Run run{};
    std::int64_t pushed = 0;
    auto const waiting = [&] {
        GrabbingFifo::Accounts const accounts = fifo.GetAccounts();
        return pushed - accounts.arrived + accounts.queued;
    };
    bool const keep = HasRoomFor(frames);
    auto const begin = Clock::now();
    for (std::uint64_t id = 1; id <= frames; ++id) {
        if (rate > 0)
            std::this_thread::sleep_until(begin + std::chrono::duration_cast<Clock::duration>(
                                                      std::chrono::duration<double>(static_cast<double>(id) / rate)));
        else
            while (waiting() > QueueRoom)
                std::this_thread::sleep_for(std::chrono::microseconds(200));
        FakeFrame frame;
        frame.id = id;
        frame.timestamp = id;
        bool const taken = device.stream.Push(frame);
        pushed += taken;
        run.refused += !taken;
        if (!keep)
            RemoveOld(id > 16 ? id - 16 : 0); // what the FIFO may hold is not written yet
    }
    device.stream.WaitUntilDrained();
    GrabbingFifo::Accounts accounts = fifo.GetAccounts();
    while (accounts.queued + accounts.withConsumers > 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        accounts = fifo.GetAccounts();
    }
    if (rate == 0)
        Sync();
    run.rate = static_cast<double>(frames) / Seconds(begin);
    writer.StopWriting();
    run.saved = writer.GetLedger().saved;
    run.dropped = writer.GetLedger().droppedSW;
    fifo.SetState(SessionStateAcquisition);
    fifo.StopGrabbing();
    fifo.ReleaseBuffers();
    RemoveAll();
    return run;
}

double Megabytes(double rate)
{
    return rate * static_cast<double>(FrameSize) / 1e6;
}

// Both in turn, so that what else the machine does hits both.
void RawSeriesAgainstPlainWrite(benchmark::State &state)
{
    std::vector<double> cached, direct, own, alone;
    std::int64_t lost = 0;
    for (auto _ : state) {
        for (int round = 0; round < Rounds; ++round) {
            cached.push_back(PlainRun(0));
            direct.push_back(PlainRun(O_DIRECT));
            Run const run = Record(RunFrames, 0);
            own.push_back(run.rate);
            alone.push_back(Record(RunFrames, 0, false).rate);
            lost += static_cast<std::int64_t>(RunFrames) - run.saved;
        }
    }
    double const plain = std::max(Median(cached), Median(direct));
    state.counters["plain_cached_MB/s"] = Megabytes(Median(cached));
    state.counters["plain_direct_MB/s"] = Megabytes(Median(direct));
    state.counters["writer_MB/s"] = Megabytes(Median(own));
    state.counters["ratio"] = Median(own) / plain;
    state.counters["to_no_companions"] = Median(own) / Median(alone);
    state.counters["lost"] = static_cast<double>(lost); // of an unhurried camera: none
}
BENCHMARK(RawSeriesAgainstPlainWrite)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

// The camera keeps a share of the rate at which a plain program with a queue as long would just not have lost a frame,
// which has been tried directly before. No frame may be dropped, unless the disk stalls for longer than it did then.
void NoDropAtTheRateOfTheDisk(benchmark::State &state)
{
    std::vector<double> allowed; // frames a second
    double const share = static_cast<double>(state.range(0)) / 100;
    Run sum{};
    for (auto _ : state) {
        for (int round = 0; round < LongRounds; ++round) {
            std::vector<double> times = WritePlainly(LongRunFrames, O_DIRECT);
            if (times.empty())
                times = WritePlainly(LongRunFrames, 0); // a file system that knows no O_DIRECT
            if (times.empty()) {
                state.SkipWithError("the plain program could not write");
                return;
            }
            Sync();
            RemoveAll();
            Sync();
            allowed.push_back(AllowedRate(times));
            Run const run = Record(LongRunFrames, share * allowed.back());
            sum.saved += run.saved;
            sum.dropped += run.dropped;
            sum.refused += run.refused;
            std::printf("  plain, flat out: %.0f MB/s, slowest frame %.0f ms, allows %.0f MB/s; camera %.0f MB/s: "
                        "%ld saved, %ld dropped, %ld without a buffer\n",
                        Megabytes(static_cast<double>(times.size()) / std::accumulate(times.begin(), times.end(), 0.0)),
                        1e3 * *std::max_element(times.begin(), times.end()), Megabytes(allowed.back()),
                        Megabytes(share * allowed.back()), static_cast<long>(run.saved), static_cast<long>(run.dropped),
                        static_cast<long>(run.refused));
        }
    }
    state.counters["frames"] = static_cast<double>(LongRounds * LongRunFrames);
    state.counters["saved"] = static_cast<double>(sum.saved);
    state.counters["dropped_sw"] = static_cast<double>(sum.dropped);
    state.counters["no_buffer"] = static_cast<double>(sum.refused);
    state.counters["allowed_MB/s"] = Megabytes(Median(allowed));
    state.counters["camera_MB/s"] = Megabytes(share * Median(allowed));
}
BENCHMARK(NoDropAtTheRateOfTheDisk)
    ->ArgName("percent")
    ->Arg(95)
    ->Arg(80)
    ->Iterations(1)
    ->Unit(benchmark::kSecond)
    ->UseRealTime();

} // namespace

int main(int argc, char **argv)
{
    log4cpp::Category::setRootPriority(log4cpp::Priority::ERROR);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    RemoveAll();
    return 0;
}
