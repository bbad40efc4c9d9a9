// What a frame of a GigE Vision camera costs on its way through the stream, the FIFO and the hand-over to a display,
// against a bare loop that pops and pushes buffers of Aravis: CPU time of the process and wall time a frame, the same
// fake camera, rounds taken in turn. Needs loopback alone: tests/support/in-netns aravis_framepath_bench
// Before Qt, whose keywords it uses as names.
#include <arv.h>

#include "fakegige.h"

#include "grabbingfifo.h"

#include <log4cpp/Category.hh>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace {

using namespace std::chrono_literals;

constexpr int Buffers = 16; // as many as the FIFO asks for
constexpr guint PacketSize = 8192;
constexpr auto DisplayPeriod = 40ms;

double Seconds(clockid_t clock)
{
    timespec time;
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

struct Cost
{
    double cpu, wall; // microseconds a frame
};

// From the first frame after a warm-up on.
class Meter
{
public:
    void Begin()
    {
        m_cpu = Seconds(CLOCK_PROCESS_CPUTIME_ID);
        m_wall = Seconds(CLOCK_MONOTONIC);
    }
    Cost End(double frames) const
    {
        return {1e6 * (Seconds(CLOCK_PROCESS_CPUTIME_ID) - m_cpu) / frames,
                1e6 * (Seconds(CLOCK_MONOTONIC) - m_wall) / frames};
    }

private:
    double m_cpu = 0, m_wall = 0;
};

constexpr int WarmUp = 50;

Cost RunBare(int frames, int size)
{
    GInetAddress *const host = g_inet_address_new_loopback(G_SOCKET_FAMILY_IPV4);
    ArvDevice *const device = arv_gv_device_new(host, host, nullptr);
    g_object_unref(host);
    arv_gv_device_set_stream_options(ARV_GV_DEVICE(device), ARV_GV_STREAM_OPTION_PACKET_SOCKET_DISABLED);
    arv_gv_device_set_packet_size(ARV_GV_DEVICE(device), PacketSize, nullptr);
    arv_device_set_integer_feature_value(device, "Width", size, nullptr);
    arv_device_set_integer_feature_value(device, "Height", size, nullptr);
    arv_device_set_float_feature_value(device, "AcquisitionFrameRate", 1000.0, nullptr);
    ArvStream *const stream = arv_device_create_stream(device, nullptr, nullptr, nullptr);
    g_object_set(stream, "socket-buffer", ARV_GV_STREAM_SOCKET_BUFFER_FIXED, "socket-buffer-size", 4 << 20, nullptr);
    auto const payload = static_cast<std::size_t>(arv_device_get_integer_feature_value(device, "PayloadSize", nullptr));
    for (int i = 0; i < Buffers; ++i)
        arv_stream_push_buffer(stream, arv_buffer_new_allocate(payload));
    arv_device_execute_command(device, "AcquisitionStart", nullptr);
    Meter meter;
    for (int i = 0; i < WarmUp + frames; ++i) {
        if (i == WarmUp)
            meter.Begin();
        arv_stream_push_buffer(stream, arv_stream_pop_buffer(stream));
    }
    Cost const cost = meter.End(frames);
    arv_device_execute_command(device, "AcquisitionStop", nullptr);
    g_object_unref(stream);
    g_object_unref(device);
    return cost;
}

TovCam::Device *Open(TovCam::System *system, int size)
{
    TovCam::DeviceInfo *const info = system->FindDeviceByAddress("127.0.0.1", nullptr);
    TovCam::Device *const device = info ? TovCam_CreateDevice(info, 2, nullptr) : nullptr;
    if (!device) {
        std::fprintf(stderr, "no camera\n");
        std::exit(1);
    }
    TovCam::ParamArray *const nodes = device->GetCameraParameters(nullptr);
    nodes->SetIntegerValue("Width", size);
    nodes->SetIntegerValue("Height", size);
    nodes->SetFloatValue("AcquisitionFrameRate", 1000.0);
    return device;
}

Cost RunStream(TovCam::System *system, int frames, int size)
{
    TovCam::Device *const device = Open(system, size);
    TovCam::ParamArray *const nodes = device->GetCameraParameters(nullptr);
    TovCam::Stream *const stream = device->GetStreamByIndex(0);
    stream->AllocBufferQueue(nullptr, Buffers);
    stream->StartAcquisition(-1, 0);
    nodes->ExecuteCommand("AcquisitionStart");
    Meter meter;
    for (int i = 0; i < WarmUp + frames; ++i) {
        if (i == WarmUp)
            meter.Begin();
        std::int32_t error;
        stream->QueueBuffer(stream->GetBuffer(TovCam::WaitForever, &error));
    }
    Cost const cost = meter.End(frames);
    nodes->ExecuteCommand("AcquisitionStop");
    device->Release();
    return cost;
}

// With a consumer that takes the newest frame at the display's pace, or every frame with a period of 0.
Cost RunFifo(TovCam::System *system, int frames, int size, std::chrono::milliseconds period)
{
    TovCam::Device *const device = Open(system, size);
    TovCam::ParamArray *const nodes = device->GetCameraParameters(nullptr);
    Cost cost;
    {
        GrabbingFifo fifo(nullptr, device);
        fifo.CreateBuffers();
        fifo.StartGrabbing();
        fifo.SetState(SessionStateAcquisition);
        std::atomic<bool> stop{false};
        std::thread display([&] {
            while (!stop) {
                TovCam::Buffer *buffer = nullptr;
                fifo.GetNewestBuffer(&buffer, false);
                if (buffer)
                    fifo.ReturnBuffer(buffer);
                if (period != 0ms)
                    std::this_thread::sleep_for(period);
            }
        });
        nodes->ExecuteCommand("AcquisitionStart");
        // Sleeps until they ought to be there: looking again and again would cost as much as the display does.
        auto const waitFor = [&fifo](std::int64_t count) {
            for (std::int64_t left; (left = count - fifo.GetFramesAcquired()) > 0;)
                std::this_thread::sleep_for(std::max(50ms, left * 1ms));
            return fifo.GetFramesAcquired();
        };
        std::int64_t const first = waitFor(WarmUp);
        Meter meter;
        meter.Begin();
        std::int64_t const last = waitFor(first + frames);
        cost = meter.End(static_cast<double>(last - first));
        nodes->ExecuteCommand("AcquisitionStop");
        stop = true;
        fifo.SetGrabberThtreadBlocking(false);
        display.join();
        fifo.StopGrabbing();
        fifo.ReleaseBuffers();
    }
    device->Release();
    return cost;
}

double Median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// Each round against the peer's of the same time: what else the machine does weighs on both.
void Print(char const *name, std::vector<Cost> const &costs, std::vector<Cost> const &peers)
{
    std::printf("%-34s", name);
    for (auto const &[title, value] : {std::pair{"cpu", &Cost::cpu}, std::pair{"wall", &Cost::wall}}) {
        std::vector<double> own, ratio;
        for (std::size_t i = 0; i < costs.size(); ++i) {
            own.push_back(costs[i].*value);
            ratio.push_back(costs[i].*value / (peers[i].*value));
        }
        double best = peers[0].*value;
        for (Cost const &peer : peers)
            best = std::min(best, peer.*value);
        std::printf("   %s %7.1f us, ratio %.3f, of the best %.3f", title, Median(own), Median(ratio),
                    *std::min_element(own.begin(), own.end()) / best);
    }
    std::printf("\n");
}

} // namespace

int main(int argc, char **argv)
{
    int const rounds = argc > 1 ? std::atoi(argv[1]) : 7;
    int const frames = argc > 2 ? std::atoi(argv[2]) : 1000;
    int const size = argc > 3 ? std::atoi(argv[3]) : 512;
    // As the program is shipped. Left alone, the log library formats what nobody reads, which takes longer than
    // everything else that the FIFO does with a frame.
    log4cpp::Category::getInstance("TOVSCP").setPriority(log4cpp::Priority::FATAL);
    setenv("TOV_CAMERA_INTERFACES", "gige", 1);
    FakeGigECamera camera;
    TovCam::System *const system = TovCam_GetSystem();
    std::vector<Cost> bare, stream, fifo, every;
    for (int i = 0; i < rounds; ++i) {
        bare.push_back(RunBare(frames, size));
        stream.push_back(RunStream(system, frames, size));
        fifo.push_back(RunFifo(system, frames, size, DisplayPeriod));
        every.push_back(RunFifo(system, frames, size, 0ms));
    }
    Print("bare pop loop", bare, bare);
    Print("stream", stream, bare);
    Print("stream, FIFO, display's pace", fifo, bare);
    Print("stream, FIFO, every frame taken", every, bare);
    system->Release();
}
