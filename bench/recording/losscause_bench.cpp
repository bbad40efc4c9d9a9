// Losses with a known cause, and the cause that the program names: eight of them, each some runs long with other
// strengths, and a table of both. Ends with 1 where fewer than 95 of 100 runs are named right. Needs root, loopback
// alone, and ip and tc: tests/support/in-netns losscause_bench [runs] [only this cause]
#include "imagewriter.h"
#include "losstext.h"
#include "wirecamera.h"

#include "tovcamera.h"

#include <log4cpp/Category.hh>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <linux/capability.h>
#include <poll.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

// ---- A slow disk -------------------------------------------------------------------------------------------------

namespace {
std::atomic<int> s_diskDelay{0}; // milliseconds of each write
}

// In the place of the system's, for the library that writes the files, too.
extern "C" __attribute__((visibility("default"))) ssize_t pwritev(int file, iovec const *pieces, int count,
                                                                  off_t offset)
{
    using Call = ssize_t (*)(int, iovec const *, int, off_t);
    static auto const system = reinterpret_cast<Call>(dlsym(RTLD_NEXT, "pwritev"));
    if (int const delay = s_diskDelay; delay > 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(delay));
    return system(file, pieces, count, offset);
}

namespace {

using namespace std::chrono_literals;
using Dice = std::minstd_rand;

constexpr int RunFrames = 54;
constexpr std::chrono::milliseconds Patience{60'000};

[[noreturn]] void GiveUp(std::string const &why)
{
    std::fprintf(stderr, "losscause_bench: %s\n", why.c_str());
    std::_Exit(2);
}

int Throw(Dice &dice, int least, int most)
{
    return std::uniform_int_distribution<int>(least, most)(dice);
}

// Of this process and of what it starts, as if it were not the administrator's.
void DropRight(int right)
{
    prctl(PR_CAPBSET_DROP, right, 0, 0, 0);
    __user_cap_header_struct head{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct rights[2]{};
    syscall(SYS_capget, &head, rights);
    rights[0].effective &= ~(1u << right);
    rights[0].permitted &= ~(1u << right);
    if (syscall(SYS_capset, &head, rights) != 0)
        GiveUp("rights cannot be dropped");
}

// ---- The camera and its host -------------------------------------------------------------------------------------

using Features = std::vector<std::pair<std::string, std::string>>;

Features Frames(int width, int height, int rate)
{
    return {
        {"PixelClock", "120"},    {"Width", std::to_string(width)},    {"Height", std::to_string(height)},
        {"ExposureTime", "1000"}, {"AcquisitionFrameRateEnable", "1"}, {"AcquisitionFrameRate", std::to_string(rate)}};
}

void Set(WireCamera &camera, Features const &features)
{
    for (auto const &[name, value] : features) {
        std::string why;
        if (!camera.SetFeature(name, value, why))
            GiveUp(name + ": " + why);
    }
}

std::unique_ptr<WireCamera> Serve(std::string const &address, Features const &features)
{
    WireCameraOptions options;
    for (SimModel const *const model : GetWireModels())
        options.model = options.model ? options.model : model;
    options.address = address;
    auto camera = std::make_unique<WireCamera>(options);
    Set(*camera, features);
    return camera;
}

// Until the camera has sent so many more frames: a busy machine takes longer for them.
void AwaitFrames(WireCamera &camera, int frames)
{
    std::uint64_t const end = camera.GetStatus().frames + static_cast<std::uint64_t>(frames);
    auto const patience = std::chrono::steady_clock::now() + Patience / 2;
    while (camera.GetStatus().frames < end && std::chrono::steady_clock::now() < patience)
        std::this_thread::sleep_for(2ms);
}

// The camera's picture, on its way through the FIFO into files where that is wanted.
class Host
{
public:
    explicit Host(std::string const &address, int queue = 16)
    {
        TovCam::DeviceInfo *info = nullptr;
        for (int i = 0; i < 20 && !info; ++i)
            info = m_system->FindDeviceByAddress(address.c_str(), nullptr);
        for (int i = 0; i < 20 && info && !m_device; ++i)
            m_device = TovCam_CreateDevice(info, 2, nullptr);
        if (!m_device)
            GiveUp("no camera at " + address);
        m_fifo = std::make_unique<GrabbingFifo>(nullptr, m_device);
        m_writer = std::make_unique<ImageWriter>(nullptr, m_fifo.get(), nullptr);
        m_fifo->SetParamInt("QueueSize", queue);
        if (m_fifo->CreateBuffers() != 0 || !m_fifo->StartGrabbing())
            GiveUp("no stream");
        m_fifo->SetState(SessionStateAcquisition);
        m_begin = m_writer->GetLossCounts();
    }
    void Start()
    {
        m_device->GetCameraParameters(nullptr)->ExecuteCommand("AcquisitionStart");
    }
    void Record(std::string const &folder, ImageWriter::FileFormat format, char const *compressor)
    {
        if (*compressor)
            m_writer->GetSerializer()->SetParamString("movie.compressor", compressor);
        m_writer->SetParamString("FilePath", folder.c_str());
        m_writer->SetParamInt("FileFormat", format);
        m_fifo->SetState(SessionStateCapturing);
        m_writer->StartWriting();
    }
    // Takes all buffers, and gives them back when `wait` has returned.
    void Hold(std::function<void()> const &wait)
    {
        std::vector<TovCam::Buffer *> held;
        std::atomic<bool> isOver{false};
        std::thread taker([&] {
            while (!isOver) {
                TovCam::Buffer *buffer = nullptr;
                if (m_fifo->PopOldestBuffer(&buffer, 20ms) == 0 && buffer)
                    held.push_back(buffer);
            }
        });
        wait();
        isOver = true;
        taker.join();
        for (TovCam::Buffer *const buffer : held)
            m_fifo->ReleaseBuffer(buffer);
    }
    void Stop()
    {
        m_device->GetCameraParameters(nullptr)->ExecuteCommand("AcquisitionStop");
        if (m_writer->IsWriting())
            m_writer->StopWriting();
        m_fifo->SetState(SessionStateAcquisition);
        m_fifo->StopGrabbing();
        m_fifo->ReleaseBuffers();
    }
    std::vector<LossFinding> Explain()
    {
        return ExplainLosses(m_begin, m_writer->GetLossCounts());
    }

private:
    TovCam::System *const m_system = TovCam_GetSystem();
    TovCam::Device *m_device = nullptr;
    std::unique_ptr<GrabbingFifo> m_fifo;
    std::unique_ptr<ImageWriter> m_writer;
    LossCounts m_begin;
};

std::vector<LossFinding> Watch(Features features, Features const &faults)
{
    features.insert(features.end(), faults.begin(), faults.end());
    auto const camera = Serve("127.0.0.1", features);
    Host host("127.0.0.1");
    host.Start();
    AwaitFrames(*camera, RunFrames);
    host.Stop();
    return host.Explain();
}

std::string TemporaryFolder()
{
    std::string name = std::filesystem::temp_directory_path() / "tov_losscause_XXXXXX";
    return mkdtemp(name.data()) ? name : std::string();
}

std::vector<LossFinding> RecordInto(std::string const &folder, Features const &features, ImageWriter::FileFormat format,
                                    int queue, char const *compressor = "")
{
    auto const camera = Serve("127.0.0.1", features);
    Host host("127.0.0.1", queue);
    host.Record(folder, format, compressor);
    host.Start();
    AwaitFrames(*camera, RunFrames);
    host.Stop();
    s_diskDelay = 0;
    return host.Explain();
}

// ---- The causes --------------------------------------------------------------------------------------------------

std::vector<LossFinding> CameraLeavesOut(Dice &dice)
{
    return Watch(Frames(320, 200, 60), {{"SimMissingEvery", std::to_string(Throw(dice, 3, 25))}});
}

std::vector<LossFinding> WireLoses(Dice &dice)
{
    return Watch(Frames(320, 200, 60), {{"WirePacketLoss", std::to_string(Throw(dice, 2, 40) / 10.0)},
                                        {"WireLossBurst", std::to_string(Throw(dice, 1, 30))},
                                        {"WireIgnoreResend", "1"}});
}

void Shell(std::string const &command)
{
    if (std::system((command + " >/dev/null 2>&1").c_str()) != 0)
        GiveUp(command);
}

// The camera is in a network of its own, behind a cable that carries less than it sends.
std::vector<LossFinding> CableIsNarrow(Dice &dice)
{
    std::promise<pid_t> here;
    std::promise<void> plugged, end;
    std::promise<WireCamera *> served;
    int const rate = Throw(dice, 12, 26), limit = Throw(dice, 20, 80);
    std::thread far([&] {
        bool const isAway = unshare(CLONE_NEWNET) == 0;
        here.set_value(gettid());
        plugged.get_future().wait();
        std::unique_ptr<WireCamera> camera;
        if (isAway) {
            Shell("ip link set lo up && ip link set far up && ip address add 192.0.2.7/24 dev far && tc qdisc add dev "
                  "far root tbf rate " +
                  std::to_string(rate) + "mbit burst 32kb limit " + std::to_string(limit) + "kb");
            camera = Serve("192.0.2.7", Frames(320, 200, 60));
        }
        served.set_value(camera.get());
        end.get_future().wait();
    });
    std::string const near = "near" + std::to_string(getpid());
    Shell("ip link add " + near + " type veth peer name far netns " + std::to_string(here.get_future().get()) +
          " && ip address add 192.0.2.100/24 dev " + near + " && ip link set " + near + " up");
    plugged.set_value();
    WireCamera *const camera = served.get_future().get();
    if (!camera)
        GiveUp("no network namespace");
    Host host("192.0.2.7");
    host.Start();
    AwaitFrames(*camera, RunFrames);
    host.Stop();
    auto findings = host.Explain();
    Shell("ip link delete " + near); // before the next run has that address
    end.set_value();
    far.join();
    return findings;
}

std::atomic<bool> s_isHeld{false};

void Sleep(int)
{
    timespec const step{0, 1'000'000};
    while (s_isHeld)
        nanosleep(&step, nullptr);
}

// Keeps the receiver's thread from running while the camera sends so many frames.
void HoldReceiver(WireCamera &camera, int frames)
{
    s_isHeld = true;
    struct sigaction action{};
    action.sa_handler = Sleep;
    sigaction(SIGUSR1, &action, nullptr);
    for (auto const &task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        std::getline(std::ifstream(task.path() / "comm"), name);
        if (name == "gvsp")
            syscall(SYS_tgkill, getpid(), std::stoi(task.path().filename()), SIGUSR1);
    }
    AwaitFrames(camera, frames);
    s_isHeld = false;
}

std::vector<LossFinding> SocketIsSmall(Dice &dice)
{
    DropRight(CAP_NET_ADMIN); // which may exceed the system's limit
    auto const camera = Serve("127.0.0.1", Frames(2048, 1536, Throw(dice, 24, 28)));
    Set(*camera, {{"WireIgnoreResend", std::to_string(Throw(dice, 0, 1))}});
    Host host("127.0.0.1");
    host.Start();
    for (int i = Throw(dice, 2, 5); i > 0; --i) {
        AwaitFrames(*camera, 4);
        HoldReceiver(*camera, Throw(dice, 4, 5)); // of 3 MB each
    }
    AwaitFrames(*camera, 6);
    host.Stop();
    return host.Explain();
}

std::vector<LossFinding> ReceiverIsHeldUp(Dice &dice)
{
    bool const buffers = Throw(dice, 0, 1) == 1;
    auto const camera = Serve("127.0.0.1", Frames(1024, 1024, Throw(dice, 40, 60)));
    Host host("127.0.0.1", Throw(dice, 5, 12));
    host.Start();
    AwaitFrames(*camera, 5);
    if (buffers)
        host.Hold([&, frames = Throw(dice, 16, 40)] { AwaitFrames(*camera, frames); });
    else
        HoldReceiver(*camera, Throw(dice, 20, 50));
    AwaitFrames(*camera, 20);
    host.Stop();
    return host.Explain();
}

std::vector<LossFinding> QueueIsFull(Dice &dice)
{
    std::string const folder = TemporaryFolder();
    auto findings = RecordInto(folder, Frames(2048, 1024, 60), ImageWriter::FormatAvi, Throw(dice, 4, 6), "FFV1");
    std::filesystem::remove_all(folder);
    return findings;
}

std::vector<LossFinding> DiskIsSlow(Dice &dice)
{
    std::string const folder = TemporaryFolder();
    s_diskDelay = Throw(dice, 25, 120);
    auto findings = RecordInto(folder, Frames(320, 200, 60), ImageWriter::FormatRaw, Throw(dice, 4, 16));
    std::filesystem::remove_all(folder);
    return findings;
}

std::vector<LossFinding> DiskIsFull(Dice &dice)
{
    std::string const folder = TemporaryFolder(), size = "size=" + std::to_string(Throw(dice, 500, 2000)) + "k";
    if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("none", folder.c_str(), "tmpfs", 0, size.c_str()) != 0)
        GiveUp("no file system of its own");
    auto findings = RecordInto(folder, Frames(320, 200, 60), ImageWriter::FormatRaw, 16);
    umount(folder.c_str());
    std::filesystem::remove_all(folder);
    return findings;
}

struct Cause
{
    char const *name;
    LossPlace place;
    std::vector<LossFinding> (*inject)(Dice &);
    bool takesRing = false; // the packet ring, where there is the right to it
};
constexpr Cause Causes[] = {
    {"camera", LossPlace::Camera, CameraLeavesOut, true}, {"wire", LossPlace::Network, WireLoses, true},
    {"tbf", LossPlace::Network, CableIsNarrow, true},     {"small-socket", LossPlace::Socket, SocketIsSmall},
    {"receiver", LossPlace::Receiver, ReceiverIsHeldUp},  {"queue", LossPlace::Fifo, QueueIsFull, true},
    {"slow-disk", LossPlace::Disk, DiskIsSlow, true},     {"full-disk", LossPlace::Disk, DiskIsFull, true},
};

// ---- Runs --------------------------------------------------------------------------------------------------------

// In a process of its own; the word and the line that it gives.
void RunIn(int pipe, Cause const &cause, unsigned run)
{
    log4cpp::Category::getRoot().setPriority(log4cpp::Priority::FATAL);
    setenv("TOV_CAMERA_INTERFACES", "gige", 1);
    Dice dice(1000 * static_cast<unsigned>(cause.place) + run + 1);
    dice.discard(10);
    // As an operator's, whose streams come by the ring or by the socket.
    if (!cause.takesRing || run % 2 == 1)
        DropRight(CAP_NET_RAW);
    std::vector<LossFinding> const findings = cause.inject(dice);
    auto const most =
        std::max_element(findings.begin(), findings.end(), [](LossFinding const &a, LossFinding const &b) {
            return std::pair(a.frames, a.packets) < std::pair(b.frames, b.packets);
        });
    std::string text = most == findings.end() ? "nothing" : WordOf(most->place);
    for (LossFinding const &finding : findings)
        text += '\n' + LossLine(finding).toStdString();
    if (write(pipe, text.data(), text.size()) < 0)
        std::_Exit(3);
    std::_Exit(0); // a simulated camera's goodbyes take their time
}

std::string Run(Cause const &cause, unsigned run)
{
    int ends[2];
    if (pipe(ends) != 0)
        GiveUp("no pipe");
    pid_t const child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        RunIn(ends[1], cause, run);
    }
    close(ends[1]);
    std::string text;
    pollfd ready{ends[0], POLLIN, 0};
    char part[4096];
    while (poll(&ready, 1, static_cast<int>(Patience.count())) > 0) {
        ssize_t const got = read(ends[0], part, sizeof part);
        if (got <= 0)
            break;
        text.append(part, static_cast<std::size_t>(got));
    }
    close(ends[0]);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    return text.empty() ? "failed" : text;
}

} // namespace

int main(int argc, char **argv)
{
    unsigned const runs = argc > 1 ? static_cast<unsigned>(std::atoi(argv[1])) : 20;
    char const *const only = argc > 2 ? argv[2] : nullptr;
    std::map<std::string, std::map<std::string, unsigned>> table;
    std::vector<std::string> words{"nothing", "failed"};
    for (std::size_t i = LossPlaceCount; i-- > 0;)
        words.insert(words.begin(), WordOf(static_cast<LossPlace>(i)));
    unsigned right = 0, all = 0;
    std::printf("%-14s", "injected");
    for (std::string const &word : words)
        std::printf("%10s", word.c_str());
    std::printf("%10s\n", "right");
    for (Cause const &cause : Causes) {
        if (only && std::strcmp(only, cause.name) != 0)
            continue;
        std::map<std::string, unsigned> named;
        for (unsigned run = 0; run < runs; ++run) {
            std::string const text = Run(cause, run), word = text.substr(0, text.find('\n'));
            ++named[word];
            if (word != WordOf(cause.place) || only)
                std::fprintf(stderr, "%s, run %u: %s\n", cause.name, run, text.c_str());
        }
        std::printf("%-14s", cause.name);
        for (std::string const &word : words)
            std::printf("%10u", named[word]);
        unsigned const good = named[WordOf(cause.place)];
        std::printf("%9.0f%%\n", 100.0 * good / runs);
        std::fflush(stdout);
        right += good;
        all += runs;
    }
    std::printf("%u of %u named right\n", right, all);
    return right * 100 >= all * 95 ? 0 : 1;
}
