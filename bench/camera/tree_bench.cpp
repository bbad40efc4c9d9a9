// What the feature tree of a large camera costs, next to the parsing of its description.
#include "genicam/featuretree.h"
#include "genicam/formulaguard.h"
#include "genicam/xmlcheck.h"
#include "largexml.h"

#include <benchmark/benchmark.h>
#include <libxml/parser.h>

#include <cstdlib>
#include <fstream>
#include <unistd.h>

namespace {

std::string const &Description()
{
    static std::string const xml = LargeDescription(3000);
    return xml;
}

void ParseDescription(benchmark::State &state)
{
    for (auto _ : state) {
        ArvGc *const genicam = arv_gc_new(nullptr, Description().data(), Description().size());
        g_object_unref(genicam);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * Description().size()));
}

void CheckDescription(benchmark::State &state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(CheckGenicamXml(Description().data(), Description().size()));
}

void GuardDescription(benchmark::State &state)
{
    std::string guarded;
    for (auto _ : state)
        benchmark::DoNotOptimize(GuardFormulas(Description(), &guarded));
}

// What libxml2 alone takes to make a tree of it.
void ParseXml(benchmark::State &state)
{
    for (auto _ : state)
        xmlFreeDoc(xmlReadMemory(Description().data(), static_cast<int>(Description().size()), nullptr, nullptr, 0));
}

// The tree with every text, every selection and every dependent.
void BuildTree(benchmark::State &state)
{
    std::size_t dependents = 0;
    std::uint32_t features = 0;
    for (auto _ : state) {
        state.PauseTiming(); // a description keeps what it has been asked once
        ArvGc *const genicam = arv_gc_new(nullptr, Description().data(), Description().size());
        state.ResumeTiming();
        {
            FeatureTree tree(genicam);
            dependents = 0;
            features = tree.GetCount();
            for (std::uint32_t i = 0; i < features; ++i)
                dependents += tree.GetInfo(i)->dependents.size();
        }
        state.PauseTiming();
        g_object_unref(genicam);
        state.ResumeTiming();
    }
    state.counters["features"] = features;
    state.counters["dependents"] = static_cast<double>(dependents);
}

// Every feature read once, from a simulated camera.
void ReadFeatures(benchmark::State &state)
{
    TovCam::System *const system = TovCam_GetSystem();
    TovCam::Interface *const interface = system->GetInterfaceList(2)->GetFirst();
    TovCam::Device *const device =
        TovCam_CreateDevice(interface->GetDeviceInfoByIndex(interface->GetDeviceCount() - 1), 2, nullptr);
    TovCam::ParamArray *const nodes = device->GetCameraParameters(nullptr);
    TovCam::FeatureState feature;
    for (auto _ : state) {
        for (std::uint32_t i = 0; i < nodes->GetFeatureCount(); ++i)
            nodes->ReadFeature(i, &feature);
    }
    state.counters["features"] = nodes->GetFeatureCount();
    device->Release();
    system->Release();
}

BENCHMARK(ParseDescription)->Unit(benchmark::kMillisecond);
BENCHMARK(ParseXml)->Unit(benchmark::kMillisecond);
BENCHMARK(CheckDescription)->Unit(benchmark::kMillisecond);
BENCHMARK(GuardDescription)->Unit(benchmark::kMillisecond);
BENCHMARK(BuildTree)->Unit(benchmark::kMillisecond);
BENCHMARK(ReadFeatures)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char **argv)
{
    std::string const path = "/tmp/tree_bench_" + std::to_string(getpid()) + ".xml";
    std::ofstream(path) << Description();
    setenv("TOV_CAMERA_INTERFACES", "sim", 1);
    setenv("TOV_SIM_CAMERA_XML", path.c_str(), 1);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    std::remove(path.c_str());
    return 0;
}
