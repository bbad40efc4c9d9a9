// The display's work on one frame of 4096 x 3000 fitted into a view of 1500 x 1100, against a plain program's: make the
// whole frame RGB (OpenCV's demosaicing for Bayer) and draw it with a smooth QPainter. Both in one run, taking turns.
//
// display_ms is the display thread's part, gui_ms the GUI thread's, peer_ms the plain program's and lean_ms that of a
// tuned one; ratio is (display_ms + gui_ms) / peer_ms, lean_ratio the same with lean_ms, and faults the page faults of
// one of our frames.
#include "tovdisplay.h"
#include "tovimage.h"

#include <QApplication>
#include <QPainter>
#include <QWidget>

#include <opencv2/imgproc.hpp>

#include <benchmark/benchmark.h>

#include <sys/resource.h>

#include <cstring>
#include <ctime>
#include <functional>
#include <random>

namespace {

constexpr int Width = 4096;
constexpr int Height = 3000;
constexpr int ViewWidth = 1500;
constexpr int ViewHeight = 1100;

// Processor time of all threads: on an idle machine our parts, being of one thread each, take as long by the clock.
double Milliseconds(std::function<void()> const &work)
{
    auto const now = [] {
        timespec time;
        clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
        return double(time.tv_sec) * 1e3 + double(time.tv_nsec) * 1e-6;
    };
    double const from = now();
    work();
    return now() - from;
}

long PageFaults()
{
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_minflt;
}

// Draws a whole picture smoothly scaled, as a simple viewer does.
class PeerWidget : public QWidget
{
public:
    QImage image;

protected:
    void paintEvent(QPaintEvent *) override
    {
        QPainter painter(this);
        painter.fillRect(rect(), Qt::black);
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        QSize const size = image.size().scaled(this->size(), Qt::KeepAspectRatio);
        painter.drawImage(QRect(QPoint((width() - size.width()) / 2, (height() - size.height()) / 2), size), image);
    }
};

class Peer
{
public:
    explicit Peer(_TovImage const &frame) : m_info(*TovGetPixelTypeInfo(frame.pixelType))
    {
        m_widget.resize(ViewWidth, ViewHeight);
        m_widget.show();
    }
    // The plain program makes QImages of grey frames and demosaics at the frame's own depth. `lean` is one that has
    // been tuned: 8 bits from the start, OpenCV throughout, large buffers kept from frame to frame.
    void Show(_TovImage const &frame, bool lean)
    {
        bool const bayer = m_info.bayer != TOV_BAYER_NONE;
        auto const line = [&](int y) {
            return frame.imageData + y * frame.lineStep;
        };
        m_bytes.create(Height, Width, CV_8U);
        if (lean) {
            for (int y = 0; y < Height; ++y)
                TovUnpackLine8(frame.pixelType, line(y), Width, m_bytes.ptr(y));
            cv::cvtColor(m_bytes, m_screen, bayer ? cv::COLOR_BayerRG2BGRA : cv::COLOR_GRAY2BGRA);
        } else if (bayer) {
            m_words.create(Height, Width, CV_16U);
            for (int y = 0; y < Height; ++y)
                TovUnpackLine(frame.pixelType, line(y), Width, m_words.ptr<std::uint16_t>(y));
            cv::cvtColor(m_words, m_colours, cv::COLOR_BayerRG2BGR);
            m_colours.convertTo(m_reduced, CV_8U, 1.0 / (1 << (m_info.bitDepth - 8)));
            cv::cvtColor(m_reduced, m_screen, cv::COLOR_BGR2BGRA);
        } else {
            QImage const grey(frame.imageData, Width, Height, int(frame.lineStep),
                              m_info.bitDepth > 8 ? QImage::Format_Grayscale16 : QImage::Format_Grayscale8);
            m_widget.image = grey.convertToFormat(QImage::Format_RGB32);
            m_widget.repaint();
            return;
        }
        m_widget.image = QImage(m_screen.data, Width, Height, int(m_screen.step), QImage::Format_RGB32);
        m_widget.repaint();
    }

private:
    TovPixelTypeInfo const m_info;
    PeerWidget m_widget;
    cv::Mat m_bytes;
    cv::Mat m_words;
    cv::Mat m_colours;
    cv::Mat m_reduced;
    cv::Mat m_screen;
};

std::uint32_t TypeOf(char const *name)
{
    for (std::uint32_t row = 0; row < TOV_PIXEL_TYPE_ROWS; ++row) {
        if (!std::strcmp(TovGetPixelTypeInfoByRow(row)->name, name))
            return TovGetPixelTypeInfoByRow(row)->pixelType;
    }
    return 0;
}

// `fit` as the key "display.fit"; 8 enlarges eight times.
void Display(benchmark::State &state, char const *type, long fit, bool withPeer, QSize view)
{
    _TovImage *frame = nullptr;
    TovCreateImage(&frame, {Width, Height}, TypeOf(type));
    std::mt19937 random(1);
    for (std::uint32_t i = 0; i < frame->imageSize; ++i)
        frame->imageData[i] = std::uint8_t(i / 40 + (random() & 7));

    QWidget widget;
    widget.resize(view);
    TovDisplay *const display = TovDisplay::CreateComponent();
    display->Initialize(&widget, "auto", 0);
    if (fit == 8)
        display->GetComponent()->SetParamInt("display.view.scale", 8);
    else
        display->GetComponent()->SetParamInt("display.fit", fit);
    widget.show();
    Peer peer(*frame);
    auto const process = [&] {
        QCoreApplication::sendPostedEvents();
        widget.repaint();
    };
    for (int i = 0; i < 5; ++i) {
        display->DisplayVideo(frame);
        process();
        if (withPeer) {
            peer.Show(*frame, true);
            peer.Show(*frame, false);
        }
    }

    double displayMs = 0;
    double guiMs = 0;
    double peerMs = 0;
    double leanMs = 0;
    long faults = 0;
    for (auto _ : state) {
        long const before = PageFaults();
        double const display1 = Milliseconds([&] { display->DisplayVideo(frame); });
        double const gui1 = Milliseconds(process);
        faults += PageFaults() - before;
        state.SetIterationTime((display1 + gui1) / 1000);
        displayMs += display1;
        guiMs += gui1;
        if (withPeer) {
            peerMs += Milliseconds([&] { peer.Show(*frame, false); });
            leanMs += Milliseconds([&] { peer.Show(*frame, true); });
        }
    }
    auto const frames = double(state.iterations());
    state.counters["display_ms"] = displayMs / frames;
    state.counters["gui_ms"] = guiMs / frames;
    state.counters["faults"] = double(faults) / frames;
    if (withPeer) {
        state.counters["peer_ms"] = peerMs / frames;
        state.counters["ratio"] = (displayMs + guiMs) / peerMs;
        state.counters["lean_ms"] = leanMs / frames;
        state.counters["lean_ratio"] = (displayMs + guiMs) / leanMs;
    }
    TovDisplay::DeleteComponent(display);
    TovReleaseImage(&frame);
}

} // namespace

int main(int argc, char **argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    QSize const full(ViewWidth, ViewHeight);
    for (char const *type : {"Mono8", "BayerRG12Packed", "Mono16"})
        benchmark::RegisterBenchmark((std::string("Fitted/") + type).c_str(), Display, type, 1L, true, full)
            ->UseManualTime();
    for (char const *type : {"Mono8", "BayerRG12Packed", "Mono16"}) {
        benchmark::RegisterBenchmark((std::string("FittedHalf/") + type).c_str(), Display, type, 1L, false, full / 2)
            ->UseManualTime();
        benchmark::RegisterBenchmark((std::string("FittedQuarter/") + type).c_str(), Display, type, 1L, false, full / 4)
            ->UseManualTime();
    }
    for (char const *type : {"Mono8", "BayerRG12Packed", "BayerRG8", "Mono12p", "RGB8", "YUV422_8"}) {
        benchmark::RegisterBenchmark((std::string("ActualSize/") + type).c_str(), Display, type, 3L, false, full)
            ->UseManualTime();
        benchmark::RegisterBenchmark((std::string("Enlarged8/") + type).c_str(), Display, type, 8L, false, full)
            ->UseManualTime();
    }
    for (char const *type : {"BayerRG8", "BayerRG12Packed", "BayerRG12p", "Mono12p", "RGB8", "YUV422_8"})
        benchmark::RegisterBenchmark((std::string("Fitted/") + type).c_str(), Display, type, 1L, false, full)
            ->UseManualTime();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
