// Painting the graph at 1000 x 600: the goal is 5 ms for 4,096 bars, and for three curves of 4,096 points. The counts
// are those of a picture, smooth with noise, or white noise from the bottom to the top, which is the worst case.
// "ratio" is the time over that of filling the same image once, taken in turns.
#include "histo_graph.h"

#include <QGuiApplication>
#include <QImage>
#include <QPainter>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <random>

namespace {

double Milliseconds(auto &&work)
{
    auto const begin = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin).count();
}

void Paint(benchmark::State &state, int curves, bool log, bool white)
{
    Histo_Graph graph;
    graph.Init(QRect(0, 0, 1000, 600), false, log, 0, 0);
    graph.SetScales("%5.0f", "%5.0f", {0, 500, 1000, 1500, 2000, 2500, 3000, 3500, 4000, 4096},
                    {log ? 1.0 : 0.0, 1000, 10000}, 1.0, 1.0);
    std::minstd_rand random(1);
    for (int i = 0; i < (curves ? curves : 1); ++i) {
        Histo_Plot *const plot = curves ? static_cast<Histo_Plot *>(new Histo_Curve) : new Histo_Bar;
        plot->color = QColor(i == 0 ? 255 : 0, i == 1 ? 255 : 0, i == 2 ? 255 : 0);
        plot->penWidth = curves ? 1 : 2;
        for (int x = 0; x < 4096; ++x) {
            double const hill = 8000 * std::exp(-std::pow((x - 1000.0 * (i + 1)) / 600, 2)) + 50;
            int const noise = int(random() >> 8);
            plot->points.emplace_back(x, white ? 1 + noise % 10000 : int(hill * (0.95 + noise % 100 * 0.001)));
        }
        graph.AddPlot(plot);
    }
    HistoThresholds thresholds{500, 3000, 2000, 1, 2, 3, 4, 5};
    graph.thresholds = &thresholds;
    QImage image(1000, 600, QImage::Format_ARGB32_Premultiplied);
    double ours = 1e9, fill = 1e9;
    for (auto _ : state) {
        double const taken = Milliseconds([&] {
            QPainter painter(&image);
            graph.DrawSelf(painter);
        });
        state.SetIterationTime(taken / 1e3);
        ours = std::min(ours, taken);
        fill = std::min(fill, Milliseconds([&] { image.fill(Qt::blue); }));
    }
    state.counters["ratio"] = ours / fill;
    state.counters["least_ms"] = ours;
}

} // namespace

BENCHMARK_CAPTURE(Paint, Bars, 0, false, false)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Paint, BarsLog, 0, true, false)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Paint, BarsWhite, 0, false, true)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Paint, Curves, 3, false, false)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Paint, CurvesWhite, 3, false, true)->UseManualTime()->Unit(benchmark::kMillisecond);

int main(int argc, char **argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication const app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
