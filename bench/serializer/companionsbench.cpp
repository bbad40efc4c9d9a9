// What the table and the headers beside a raw series cost: small frames flat out, with and without them in turn; every
// figure is the median of the turns. "ratio" is the time without over the time with them; "percent_at_1000_Hz" is what
// they add to a frame, in percent of a millisecond.
//
// Files go to the current folder, or to the one that TOV_BENCH_DIR names.
#include "tovserializer.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

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

// Microseconds a frame, the stop included; negative when a frame was not saved.
double Record(TovImageSerializer &serializer, _TovImage &image, fs::path const &folder, bool companions)
{
    fs::create_directories(folder);
    serializer.SetCompanions(companions);
    std::string const start = (folder / "image_").string();
    char file[512];
    auto const begin = std::chrono::steady_clock::now();
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
    std::chrono::duration<double, std::micro> const time = std::chrono::steady_clock::now() - begin;
    fs::remove_all(folder);
    sync(); // what the removal still does is not the next turn's
    return good ? time.count() / Frames : -1;
}

void CompanionsOfARawSeries(benchmark::State &state)
{
    char const *const asked = std::getenv("TOV_BENCH_DIR");
    fs::path const folder = fs::path(asked ? asked : ".") / ("tov_companionsbench_" + std::to_string(getpid()));
    auto const side = static_cast<std::uint32_t>(state.range(0));
    _TovImage *image = nullptr;
    TovCreateImage(&image, {side, side}, TV_PIXEL_MONO8);
    TovImageSerializer *const serializer = TovImageSerializer::CreateComponent(true);
    std::vector<double> without, with;
    for (auto _ : state) {
        for (int round = 0; round < Rounds; ++round) {
            without.push_back(Record(*serializer, *image, folder, false));
            with.push_back(Record(*serializer, *image, folder, true));
            if (without.back() < 0 || with.back() < 0) {
                state.SkipWithError("a frame was not saved");
                break;
            }
        }
    }
    TovImageSerializer::DeleteComponent(serializer);
    TovReleaseImage(&image);
    if (without.empty() || with.empty())
        return;
    state.counters["without_us"] = Median(without);
    state.counters["with_us"] = Median(with);
    state.counters["ratio"] = Median(without) / Median(with);
    state.counters["percent_at_1000_Hz"] = (Median(with) - Median(without)) / 10;
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
