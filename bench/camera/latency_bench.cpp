// How long a frame takes from its last packet to its picture in the window: a camera on loopback, the stream, the FIFO
// and the live view, offscreen. Each frame carries its number in bars, which are read from what was painted. For frame
// rates below, near and above the display's: half of the pictures are to be there within half a display tick and 10 ms,
// 99 % within a tick and 10 ms. Needs loopback alone: tests/support/in-netns latency_bench [seconds a rate]
// Before Qt, whose keywords it uses as names.
#include <arv.h>

#include "fakegige.h"
#include "replay.h"

#include "displayview.h"
#include "grabbingfifo.h"

#include <log4cpp/Category.hh>

#include <QApplication>
#include <QBackingStore>
#include <QImage>
#include <QPaintEvent>
#include <QTimer>

#include <atomic>
#include <functional>
#include <random>
#include <thread>

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr std::uint32_t Width = 1920, Height = 1200, PacketSize = 8192, Bits = 16, BarHeight = 80;
constexpr double LinkRate = 1e9 / 8 / PacketSize; // packets a second
constexpr double DisplayRate = 30.0;              // as it is left
constexpr QSize ViewSize(960, 600);

// Sends frames with numbers, each after a time that varies by a tenth, and notes when their last packets went out.
class Camera
{
public:
    Camera(std::uint16_t port, double framesPerSecond)
        : m_replay(Width, Height, PacketSize, 16, false),
          m_period(1.0 / framesPerSecond)
    {
        m_replay.SetTarget(port);
        m_thread = std::thread([this] { Run(); });
    }
    ~Camera()
    {
        m_quit = true;
        m_thread.join();
    }
    Clock::time_point SentAt(std::uint32_t number) const
    {
        return Clock::time_point(Clock::duration(m_sent[number].load(std::memory_order_acquire)));
    }

private:
    void Draw(std::uint32_t number)
    {
        for (std::uint32_t bit = 0; bit < Bits; ++bit) {
            std::uint8_t const value = (number >> bit & 1) != 0 ? 255 : 0;
            std::size_t const left = bit * Width / Bits;
            for (std::size_t y = (Height - BarHeight) / 2; y < (Height + BarHeight) / 2; ++y) {
                for (std::size_t x = left; x < left + Width / Bits; ++x)
                    m_replay.SetPixel(y * Width + x, value);
            }
        }
    }
    void Run()
    {
        std::minstd_rand random(2024);
        std::uniform_real_distribution<double> jitter(0.9, 1.1);
        auto next = Clock::now();
        for (std::uint32_t number = 1; !m_quit; number = number % 0xFFFF + 1) {
            Draw(number);
            std::this_thread::sleep_until(next);
            m_replay.Send(1, LinkRate);
            m_sent[number].store(Clock::now().time_since_epoch().count(), std::memory_order_release);
            next = std::max(next + std::chrono::duration_cast<Clock::duration>(
                                       std::chrono::duration<double>(m_period * jitter(random))),
                            Clock::now() - 100ms);
        }
    }

    Replay m_replay;
    double const m_period;
    std::vector<std::atomic<std::int64_t>> m_sent = std::vector<std::atomic<std::int64_t>>(1u << Bits);
    std::atomic<bool> m_quit{false};
    std::thread m_thread;
};

// Reads the number of the picture that has been painted, right after it was.
class Watcher final : public QObject
{
public:
    Watcher(QWidget *window, QWidget *viewport, std::function<void(std::uint32_t, Clock::time_point)> see)
        : m_window(window),
          m_viewport(viewport),
          m_see(std::move(see))
    {
        viewport->installEventFilter(this);
    }
    bool eventFilter(QObject *, QEvent *event) override
    {
        if (event->type() == QEvent::Paint)
            QCoreApplication::postEvent(this, new QEvent(QEvent::User), Qt::HighEventPriority);
        return false;
    }
    bool event(QEvent *event) override
    {
        if (event->type() != QEvent::User)
            return QObject::event(event);
        Clock::time_point const now = Clock::now();
        auto const *const image = dynamic_cast<QImage const *>(m_window->backingStore()->paintDevice());
        QPoint const origin = m_viewport->mapTo(m_window, QPoint());
        std::uint32_t number = 0;
        for (std::uint32_t bit = 0; image && bit < Bits; ++bit) {
            int const x = static_cast<int>((2 * bit + 1) * static_cast<unsigned>(m_viewport->width()) / (2 * Bits));
            QPoint const at = origin + QPoint(x, m_viewport->height() / 2);
            number |= image->valid(at) && qGray(image->pixel(at)) > 127 ? 1u << bit : 0u;
        }
        m_see(number, now);
        return true;
    }

private:
    QWidget *const m_window, *const m_viewport;
    std::function<void(std::uint32_t, Clock::time_point)> const m_see;
};

void Print(double framesPerSecond, std::vector<double> times)
{
    if (times.size() < 10) {
        std::printf("%5.0f frames/s: no pictures\n", framesPerSecond);
        return;
    }
    std::sort(times.begin(), times.end());
    auto const at = [&](double share) {
        return times[static_cast<std::size_t>(share * static_cast<double>(times.size() - 1))];
    };
    double const tick = 1000.0 / DisplayRate;
    std::printf("%5.0f frames/s: %zu pictures, p50 %.1f ms (goal %.1f), p99 %.1f ms (goal %.1f), longest %.1f ms\n",
                framesPerSecond, times.size(), at(0.5), tick / 2 + 10, at(0.99), tick + 10, times.back());
}

void Measure(TovCam::Device *device, double framesPerSecond, double seconds)
{
    GrabbingFifo fifo(nullptr, device);
    DisplayView view(nullptr, &fifo);
    view.setFrameShape(QFrame::NoFrame);
    view.resize(ViewSize);
    view.show();
    QApplication::processEvents();
    if (fifo.CreateBuffers() != 0 || !fifo.StartGrabbing())
        std::exit(1);
    fifo.SetState(SessionStateAcquisition);
    view.StartDisplaying();

    std::uint32_t port = 0;
    device->ReadRegister(gvcp::bootstrap::StreamChannelPort, &port, sizeof port);
    std::vector<double> times;
    {
        Camera camera(static_cast<std::uint16_t>(port), framesPerSecond);
        std::uint32_t last = 0;
        Clock::time_point const begin = Clock::now();
        Watcher watcher(&view, view.viewport(), [&](std::uint32_t number, Clock::time_point now) {
            // The first pictures set everything up.
            if (number != last && now - begin > 1s)
                times.push_back(std::chrono::duration<double, std::milli>(now - camera.SentAt(number)).count());
            last = number;
        });
        QTimer::singleShot(static_cast<int>(seconds * 1000), qApp, &QCoreApplication::quit);
        QApplication::exec();
    }
    view.StopDisplaying();
    fifo.SetGrabberThtreadBlocking(false);
    fifo.StopGrabbing();
    fifo.ReleaseBuffers();
    Print(framesPerSecond, times);
}

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    double const seconds = argc > 1 ? std::atof(argv[1]) : 15.0;
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    log4cpp::Category::getInstance("TOVSCP").setPriority(log4cpp::Priority::FATAL);
    setenv("TOV_CAMERA_INTERFACES", "gige", 1);
    FakeGigECamera camera; // for the registers; it sends nothing
    TovCam::System *const system = TovCam_GetSystem();
    TovCam::DeviceInfo *const info = system->FindDeviceByAddress("127.0.0.1", nullptr);
    TovCam::Device *const device = info ? TovCam_CreateDevice(info, 2, nullptr) : nullptr;
    if (!device) {
        std::fprintf(stderr, "no camera\n");
        return 1;
    }
    device->GetCameraParameters(nullptr)->SetIntegerValue("Width", Width);
    device->GetCameraParameters(nullptr)->SetIntegerValue("Height", Height);
    for (double const rate : {7.0, 25.0, 47.0})
        Measure(device, rate, seconds);
    device->Release();
    system->Release();
}
