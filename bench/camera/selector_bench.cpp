// What it costs to save and to load the settings of a camera whose features select each other.
#include "memorycamera.h"
#include "selectorxml.h"

#include "genicam/configuration.h"

#include <benchmark/benchmark.h>

#include <algorithm>

namespace {

void SaveAndLoad(benchmark::State &state)
{
    MemoryCamera camera(SelectorDescription(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)),
                                            static_cast<Selection>(state.range(2))));
    std::fill(camera.memory.begin(), camera.memory.end(), 0);
    std::size_t values = 0;
    for (auto _ : state) {
        Configuration configuration, copy;
        configuration.camera.model = "x";
        if (configuration.Take(camera.GetNodes()) != TOV_CAM_ERR_OK)
            state.SkipWithError("not taken");
        if (copy.Parse(configuration.ToText()) != TOV_CAM_ERR_OK ||
            copy.Apply(camera.GetNodes(), true) != TOV_CAM_ERR_OK)
            state.SkipWithError("not applied");
        values = copy.report.settings;
    }
    state.counters["values"] = static_cast<double>(values);
}

// Each value read and written once, without regard to what selects it: what the accesses alone take.
void ReadAndWrite(benchmark::State &state)
{
    auto const features = static_cast<int>(state.range(0));
    MemoryCamera camera(
        SelectorDescription(features, static_cast<int>(state.range(1)), static_cast<Selection>(state.range(2))));
    std::fill(camera.memory.begin(), camera.memory.end(), 0);
    NodeMap &nodes = camera.GetNodes();
    for (auto _ : state) {
        for (int i = 0; i < features; ++i) {
            std::string const name = "Feature" + std::to_string(i);
            nodes.SetIntegerValue(name.c_str(), nodes.GetIntegerValue(name.c_str(), nullptr));
        }
    }
}

BENCHMARK(ReadAndWrite)
    ->ArgNames({"features", "selected", "shape"})
    ->ArgsProduct({{3000}, {20}, {0, 1, 2}})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(SaveAndLoad)
    ->ArgNames({"features", "selected", "shape"})
    ->ArgsProduct({{300, 3000}, {2, 20}, {0, 1, 2}})
    ->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
