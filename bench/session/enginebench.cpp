// What the engine costs a frame: frames of 1 KB from a scripted stream, once through a bare loop over the stream and
// once through the FIFO to a consumer; and what one keyed write costs.
#include "fakecamera.h"
#include "grabbingfifo.h"

#include <log4cpp/Category.hh>

#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>
#include <thread>

#include <time.h>

namespace {

constexpr std::uint32_t Buffers = 64;

double ProcessSeconds()
{
    timespec time;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

class Camera
{
public:
    explicit Camera(FakeStream &stream)
        : m_thread([this, &stream] {
              for (std::uint64_t id = 1; !m_done;) {
                  if (stream.Push({id, id * 100}))
                      ++id;
                  else
                      std::this_thread::yield();
              }
          })
    {
    }
    ~Camera()
    {
        m_done = true;
        m_thread.join();
    }

private:
    std::atomic<bool> m_done{false};
    std::thread m_thread;
};

void Report(benchmark::State &state, std::int64_t frames, double cpu)
{
    state.counters["frames"] = benchmark::Counter(static_cast<double>(frames), benchmark::Counter::kIsRate);
    state.counters["cpu_us_per_frame"] = cpu * 1e6 / static_cast<double>(frames);
}

void BareStream(benchmark::State &state)
{
    FakeDevice device;
    device.stream.AllocBufferQueue(nullptr, Buffers);
    device.stream.StartAcquisition(-1, 0);
    std::int64_t frames = 0;
    double cpu = 0;
    {
        Camera const camera(device.stream);
        double const begin = ProcessSeconds();
        for (auto _ : state) {
            std::int32_t error = 0;
            TovCam::Buffer *const buffer = device.stream.GetBuffer(TovCam::WaitForever, &error);
            benchmark::DoNotOptimize(buffer->GetFrameID());
            device.stream.QueueBuffer(buffer);
            ++frames;
        }
        cpu = ProcessSeconds() - begin;
    }
    Report(state, frames, cpu);
    device.stream.StopAcquisition(1);
    device.stream.ReleaseBufferQueue();
}
BENCHMARK(BareStream)->UseRealTime();

// Every frame of the stream passes the grabbing thread; the consumer takes what a recorder would take.
void ThroughFifo(benchmark::State &state)
{
    FakeDevice device;
    GrabbingFifo fifo(nullptr, &device);
    fifo.SetParamInt("QueueSize", Buffers);
    fifo.CreateBuffers();
    fifo.SetState(SessionStateCapturing);
    fifo.StartGrabbing();
    std::int64_t frames = 0;
    double cpu = 0;
    {
        Camera const camera(device.stream);
        std::int64_t const first = fifo.GetFramesAcquired();
        double const begin = ProcessSeconds();
        for (auto _ : state) {
            TovCam::Buffer *buffer = nullptr;
            fifo.PopOldestBuffer(&buffer);
            fifo.ReleaseBuffer(buffer);
        }
        cpu = ProcessSeconds() - begin;
        frames = fifo.GetFramesAcquired() - first;
    }
    Report(state, frames, cpu);
    state.counters["dropped"] = static_cast<double>(fifo.GetFramesDroppedSW());
    fifo.StopGrabbing();
    fifo.ReleaseBuffers();
}
BENCHMARK(ThroughFifo)->UseRealTime();

void WatchedThroughFifo(benchmark::State &state)
{
    FakeDevice device;
    GrabbingFifo fifo(nullptr, &device);
    fifo.SetParamInt("QueueSize", Buffers);
    fifo.CreateBuffers();
    fifo.SetState(SessionStateAcquisition);
    fifo.StartGrabbing();
    std::int64_t frames = 0;
    double cpu = 0;
    {
        Camera const camera(device.stream);
        double const begin = ProcessSeconds();
        for (auto _ : state)
            std::this_thread::sleep_for(std::chrono::milliseconds(10)); // the display takes a frame now and then
        cpu = ProcessSeconds() - begin;
        frames = fifo.GetFramesAcquired();
    }
    Report(state, frames, cpu);
    fifo.StopGrabbing();
    fifo.ReleaseBuffers();
}
BENCHMARK(WatchedThroughFifo)->UseRealTime();

class Owner : public TovComponentImp
{
public:
    Owner() : TovComponentImp(1)
    {
        for (char const *key : {"FramesAcquired", "FramesDroppedHW", "FramesDroppedSW", "QueueFilled", "QueueSize",
                                "Timestamp", "FrameID", "FramesIncomp"})
            AddIntParam(key, &values[count++], 0, 0, INT64_MAX);
    }
    std::int64_t values[8] = {};
    int count = 0;
};

void KeyedWrite(benchmark::State &state)
{
    Owner owner;
    TovComponent *component = &owner;
    benchmark::DoNotOptimize(component);
    long value = 0;
    for (auto _ : state)
        component->SetParamInt("FramesDroppedHW", ++value);
}
BENCHMARK(KeyedWrite);

} // namespace

int main(int argc, char **argv)
{
    log4cpp::Category::getInstance("TOVSCP").setPriority(log4cpp::Priority::FATAL);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
