// What the table and the headers beside a raw series cost: small frames flat out, with and without them in turn; every
// figure is the median of the turns. "ratio" is the time without over the time with them; "percent_at_1000_Hz" is what
// they add to a frame, in percent of a millisecond. "cpu_" figures are of the thread's processor time, which says more
// on a machine with other work.
//
// Files go to the current folder, or to the one that TOV_BENCH_DIR names; one in memory leaves the disk out.
#include "tovserializer.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <ctime>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t Frames = 5000;
constexpr int Rounds = 15;

double Median(std::vector<double> values)
{
    std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2), values.end());
    return values[values.size() / 2];
}

double Microseconds(clockid_t clock)
{
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) * 1e-3;
}

// Microseconds a frame, the stop included.
struct Cost
{
    double wall = 0, cpu = 0;
};

// False when a frame was not saved.
bool Record(TovImageSerializer &serializer, _TovImage &image, fs::path const &folder, bool companions, Cost &cost)
{
    fs::create_directories(folder);
    serializer.SetCompanions(companions);
    std::string const start = (folder / "image_").string();
    char file[512];
    double const wall = Microseconds(CLOCK_MONOTONIC), cpu = Microseconds(CLOCK_THREAD_CPUTIME_ID);
    bool good = serializer.StartImageSeries(&image, "raw") == 0;
    for (std::uint64_t id = 1; good && id <= Frames; ++id) {
        image.frameID = id;
        image.timestamp = id * 1000;
        TovFrameNote note;
        note.arrival = std::chrono::system_clock::now().time_since_epoch().count();
        note.exposure = 125.5;
        serializer.NoteFrame(note);
        std::snprintf(file, sizeof file, "%s%08lu.raw", start.c_str(), static_cast<unsigned long>(id));
        good = serializer.WriteFrame(&image, file) == 0;
    }
    good = serializer.Stop() == 0 && good;
    cost = {(Microseconds(CLOCK_MONOTONIC) - wall) / Frames, (Microseconds(CLOCK_THREAD_CPUTIME_ID) - cpu) / Frames};
    fs::remove_all(folder);
    return good;
}

void CompanionsOfARawSeries(benchmark::State &state)
{
    char const *const asked = std::getenv("TOV_BENCH_DIR");
    fs::path const folder = fs::path(asked ? asked : ".") / ("tov_companionsbench_" + std::to_string(getpid()));
    auto const side = static_cast<std::uint32_t>(state.range(0));
    _TovImage *image = nullptr;
    TovCreateImage(&image, {side, side}, TV_PIXEL_MONO8);
    TovImageSerializer *const serializer = TovImageSerializer::CreateComponent(true);
    std::vector<double> wall[2], cpu[2];
    bool good = true;
    for (auto _ : state) {
        for (int round = 0; good && round < Rounds; ++round) {
            for (bool const companions : {false, true}) {
                Cost cost;
                good = Record(*serializer, *image, folder, companions, cost) && good;
                wall[companions].push_back(cost.wall);
                cpu[companions].push_back(cost.cpu);
            }
        }
    }
    TovImageSerializer::DeleteComponent(serializer);
    TovReleaseImage(&image);
    if (!good) {
        state.SkipWithError("a frame was not saved");
        return;
    }
    auto const tell = [&state](std::string const &what, std::vector<double> const(&times)[2]) {
        double const without = Median(times[0]), with = Median(times[1]);
        state.counters[what + "without_us"] = without;
        state.counters[what + "with_us"] = with;
        state.counters[what + "ratio"] = without / with;
        state.counters[what + "percent_at_1000_Hz"] = (with - without) / 10;
    };
    tell("", wall);
    tell("cpu_", cpu);
}
BENCHMARK(CompanionsOfARawSeries)
    ->ArgName("side")
    ->Arg(32)
    ->Arg(512)
    ->Iterations(1)
    ->Unit(benchmark::kSecond)
    ->UseRealTime();

} // namespace

BENCHMARK_MAIN();
