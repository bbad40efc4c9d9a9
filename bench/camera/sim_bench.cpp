// What a simulated frame costs, next to a memcpy of the same bytes, and how many small frames pass a second.
#include "sim/simscene.h"

#include "tovcamera.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <ctime>
#include <vector>

namespace {

struct Case
{
    std::uint32_t pfnc;
    bool colour;
};
constexpr Case s_cases[] = {{0x01080001, false}, {0x010C0006, false}, {0x01100007, false}, {0x01080008, true}};

SimFormat FormatOf(Case const &c)
{
    SimFormat format;
    format.pixelType = TovGetPixelTypeInfoByPfnc(c.pfnc)->pixelType;
    format.width = 2048;
    format.height = 1536;
    return format;
}

void DrawFrame(benchmark::State &state)
{
    Case const &c = s_cases[state.range(0)];
    SimFormat const format = FormatOf(c);
    SimScene scene(2048, 1536, c.colour);
    scene.Prepare(format, SimLook());
    std::vector<std::uint8_t> out(format.Payload());
    std::uint64_t frame = 0;
    for (auto _ : state) {
        scene.Draw(frame, static_cast<double>(frame) / 30.0, out.data());
        ++frame;
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * format.Payload()));
    state.SetLabel(TovGetPixelTypeInfoByPfnc(c.pfnc)->name);
}

void CopyFrame(benchmark::State &state)
{
    SimFormat const format = FormatOf(s_cases[state.range(0)]);
    // As many sources as the scene draws from, so that the caches are no kinder to this one.
    std::vector<std::vector<std::uint8_t>> sources(4, std::vector<std::uint8_t>(format.Payload(), 1));
    std::vector<std::uint8_t> out(format.Payload());
    std::size_t i = 0;
    for (auto _ : state) {
        std::memcpy(out.data(), sources[i++ % 4].data(), out.size());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * format.Payload()));
}

// A change of exposure, gain or format while frames flow.
void PrepareScene(benchmark::State &state)
{
    Case const &c = s_cases[state.range(0)];
    SimFormat const format = FormatOf(c);
    SimScene scene(2048, 1536, c.colour);
    SimLook look;
    for (auto _ : state) {
        look.gain += 1e-6;
        scene.Prepare(format, look);
    }
}

void FirstScene(benchmark::State &state)
{
    Case const &c = s_cases[state.range(0)];
    for (auto _ : state) {
        SimScene scene(2048, 1536, c.colour);
        scene.Prepare(FormatOf(c), SimLook());
    }
}

double ProcessSeconds()
{
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

// Frames of 1 KB through the whole stream, as fast as the sensor goes.
void SmallFrames(benchmark::State &state)
{
    TovCam::System *const system = TovCam_GetSystem();
    TovCam::Interface *const interface = system->GetInterfaceList(2)->GetFirst();
    TovCam::Device *const device = TovCam_CreateDevice(interface->GetFirstDeviceInfo(), 2, nullptr);
    TovCam::ParamArray *const nodes = device->GetCameraParameters(nullptr);
    nodes->SetIntegerValue("Width", 32);
    nodes->SetIntegerValue("Height", 32);
    nodes->SetFloatValue("ExposureTime", 10.0);
    nodes->SetIntegerValue("PixelClock", 120);
    TovCam::Stream *const stream = device->GetStreamByIndex(0);
    stream->AllocBufferQueue(nullptr, 64);
    stream->StartAcquisition(-1, 0);
    nodes->ExecuteCommand("AcquisitionStart");
    std::uint64_t first = 0, last = 0;
    std::int64_t frames = 0;
    double const begin = ProcessSeconds();
    for (auto _ : state) {
        TovCam::Buffer *const buffer = stream->GetBuffer(5000, nullptr);
        last = buffer->GetFrameID();
        if (frames++ == 0)
            first = last;
        stream->QueueBuffer(buffer);
    }
    state.counters["frames/s"] = benchmark::Counter(static_cast<double>(frames), benchmark::Counter::kIsRate);
    state.counters["cpu_us/frame"] = (ProcessSeconds() - begin) * 1e6 / static_cast<double>(frames);
    state.counters["lost"] = static_cast<double>(last - first + 1) - static_cast<double>(frames);
    nodes->ExecuteCommand("AcquisitionStop");
    stream->StopAcquisition(1);
    stream->ReleaseBufferQueue();
    device->Release();
    system->Release();
}

BENCHMARK(CopyFrame)->DenseRange(0, 3)->Unit(benchmark::kMicrosecond);
BENCHMARK(DrawFrame)->DenseRange(0, 3)->Unit(benchmark::kMicrosecond);
BENCHMARK(PrepareScene)->DenseRange(0, 3)->Unit(benchmark::kMillisecond);
BENCHMARK(FirstScene)->DenseRange(0, 3)->Unit(benchmark::kMillisecond);
BENCHMARK(SmallFrames)->UseRealTime();

} // namespace

int main(int argc, char **argv)
{
    setenv("TOV_CAMERA_INTERFACES", "sim", 1);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
