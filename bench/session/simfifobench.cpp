// A simulated camera's frames of 1 KB through stream and FIFO to a consumer, as fast as the sensor goes; the log is
// off.
#include "grabbingfifo.h"

#include "tovcamera.h"

#include <benchmark/benchmark.h>

#include <cstdlib>

namespace {

void SimulatedFramesThroughFifo(benchmark::State &state)
{
    auto const sessionState = static_cast<SessionState>(state.range(0));
    TovCam::System *const system = TovCam_GetSystem();
    TovCam::Interface *const interface = system->GetInterfaceList(2)->GetFirst();
    TovCam::Device *const device = TovCam_CreateDevice(interface->GetFirstDeviceInfo(), 2, nullptr);
    TovCam::ParamArray *const nodes = device->GetCameraParameters(nullptr);
    nodes->SetIntegerValue("Width", 32);
    nodes->SetIntegerValue("Height", 32);
    nodes->SetFloatValue("ExposureTime", 10.0);
    nodes->SetIntegerValue("PixelClock", 120);
    {
        GrabbingFifo fifo(nullptr, device);
        fifo.SetParamInt("QueueSize", 64);
        fifo.CreateBuffers();
        fifo.StartGrabbing();
        fifo.SetState(sessionState);
        nodes->ExecuteCommand("AcquisitionStart");
        std::int64_t taken = 0;
        for (auto _ : state) {
            TovCam::Buffer *buffer = nullptr;
            if (sessionState == SessionStateCapturing)
                fifo.PopOldestBuffer(&buffer);
            else
                fifo.GetNewestBuffer(&buffer, false);
            if (buffer) {
                fifo.ReleaseBuffer(buffer);
                ++taken;
            }
        }
        auto const rate = [](std::int64_t frames) {
            return benchmark::Counter(static_cast<double>(frames), benchmark::Counter::kIsRate);
        };
        state.counters["acquired/s"] = rate(fifo.GetFramesAcquired());
        state.counters["taken/s"] = rate(taken);
        state.counters["dropped_sw"] = static_cast<double>(fifo.GetFramesDroppedSW());
        state.counters["dropped_hw"] = static_cast<double>(fifo.GetFramesDroppedHW());
        nodes->ExecuteCommand("AcquisitionStop");
        fifo.StopGrabbing();
        fifo.ReleaseBuffers();
    }
    device->Release();
    system->Release();
}

BENCHMARK(SimulatedFramesThroughFifo)
    ->ArgName("state")
    ->Arg(SessionStateAcquisition)
    ->Arg(SessionStateCapturing)
    ->MinTime(2.0)
    ->UseRealTime();

} // namespace

int main(int argc, char **argv)
{
    setenv("TOV_CAMERA_INTERFACES", "sim", 1);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
