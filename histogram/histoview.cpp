#include "histoview.h"

#include <QMouseEvent>
#include <QPainter>

#include <algorithm>
#include <cmath>
#include <vector>

namespace {

constexpr double Narrowest = 0.01; // ADU; on a narrower axis neither ticks nor labels differ
constexpr double Widened = 5.0;    // ADU, on either side
constexpr int MostTicks = 1000;

// Full scale of a depth; 0 for one whose full scale does not fit 32 bits.
int FullScale(int bits)
{
    return bits >= 0 && bits <= 30 ? 1 << bits : 0;
}

// Truncated; 0 for what is not a number.
int TickCount(double count)
{
    return count >= 1.0 ? static_cast<int>(std::min(count, static_cast<double>(MostTicks))) : 0;
}

int ToInt(double value)
{
    return std::isnan(value) ? 0 : static_cast<int>(std::clamp(value, -1e9, 1e9));
}

// The low 16 bits of the whole number.
std::uint16_t ToMarker(float v)
{
    return static_cast<std::uint16_t>(static_cast<std::uint32_t>(ToInt(static_cast<double>(v))));
}

std::vector<double> Ticks(double first, double step, int count, double last)
{
    std::vector<double> ticks;
    ticks.reserve(static_cast<std::size_t>(std::max(count, 0)) + 1);
    for (int i = 0; i < count; ++i)
        ticks.push_back(first + i * step);
    ticks.push_back(last);
    return ticks;
}

int CountTicks(double range, double step)
{
    return step > 0.0 ? TickCount(range / step + 1.0) : 0;
}

} // namespace

HistoView::HistoView(QWidget *parent) : QWidget(parent)
{
    graph.Init(QRect(QPoint(0, 0), size()), false, false, 0, 0);
}

void HistoView::SetMode(int newMode)
{
    mode = newMode;
    QString const suffix = average ? tr(" (average)") : QString();
    QString const signal = tr("Signal (ADU)");
    QString const pixels = tr("Pixels");
    // The title and the suffix each have a blank: "Horizontal  (average)".
    switch (mode) {
    case HistoRow:
        graph.SetTitles(tr("Horizontal ") + suffix, pixels, signal);
        break;
    case HistoColumn:
        graph.SetTitles(tr("Vertical ") + suffix, pixels, signal);
        break;
    case HistoRGB:
        graph.SetTitles(tr("Histogram (RGB)"), signal, pixels);
        break;
    case HistoYUV:
        graph.SetTitles(tr("Histogram (YUV)"), signal, pixels);
        break;
    default:
        graph.SetTitles(tr("Histogram (RAW)"), signal, pixels);
        break;
    }
}

void HistoView::SetAverage(bool on)
{
    average = on;
    if (mode == HistoRow || mode == HistoColumn)
        SetMode(mode);
}

void HistoView::SetXAxisLimit(bool enable, int factor)
{
    xLimit = enable;
    xLimitFactor = factor;
}

void HistoView::UseYAxisLog(bool on)
{
    yLog = on;
}

void HistoView::SetTapMode(bool on, int count)
{
    tapMode = on;
    tapCount = count;
}

void HistoView::SetData(ComplexHisto *answer)
{
    width = answer->width;
    height = answer->height;
    bits = answer->bits;
    data = answer;
    SetupScales();
    SetupPlots();
}

void HistoView::ShowAxes(int depth)
{
    graph.ClearPlots();
    std::int32_t const levels = FullScale(depth);
    auto const area = static_cast<std::int32_t>(static_cast<std::uint32_t>(height) * width * 2u);
    SetupHistoGraph(area / (levels * 0.1), 0.0, levels);
}

// ---- Axes -----------------------------------------------------------------------------------------------------------

double HistoView::CalcStep(double range) const
{
    if (!(range > 0.0) || std::isinf(range))
        return 0.0;
    auto const power = std::trunc(std::log10(range));
    double const base = std::pow(10.0, power);
    if (range >= 0.5 * std::pow(10.0, power + 1.0))
        return base;
    double const half = base * 0.5;
    return range / half >= 5.0 ? half : half / 2.5;
}

int HistoView::RoundToVal(int value, int grid, bool up) const
{
    int const rest = value % grid;
    if (value > 0)
        return up ? value + grid - rest : value - rest;
    if (value < 0)
        return up ? value + rest : value - grid - rest;
    return 0;
}

void HistoView::SetupScales()
{
    if (!thresholds || !data || data->plots.empty())
        return;
    auto const &plots = data->plots;
    SimpleHisto const &brightest = **std::max_element(
        plots.begin(), plots.end(), [](SimpleHisto const *a, SimpleHisto const *b) { return a->mean < b->mean; });
    double low = 0.0;
    double high = FullScale(bits);
    if (xLimit) {
        low = brightest.mean - xLimitFactor * brightest.stdDev;
        high = brightest.mean + xLimitFactor * brightest.stdDev;
    }
    if (data->mode == HistoRaw || data->mode == HistoRGB || data->mode == HistoYUV) {
        double yMax = 0.0;
        for (std::int32_t const count : brightest.values)
            yMax = std::max(yMax, static_cast<double>(count));
        SetupHistoGraph(yMax, low, high);
        return;
    }
    double top = 0.0;
    double bottom = FullScale(bits);
    for (std::int32_t const signal : plots.front()->values) {
        top = std::max(top, static_cast<double>(signal));
        bottom = std::min(bottom, static_cast<double>(signal));
    }
    auto const area = static_cast<std::int32_t>(static_cast<std::uint32_t>(width) * height * 2u);
    SetupHistoGraph(area / (high * 0.1), bottom - 20.0, top + 20.0);
}

bool HistoView::IsProfile() const
{
    return mode != HistoRaw && mode != HistoRGB && mode != HistoYUV;
}

void HistoView::SetupHistoGraph(double yMax, double low, double high)
{
    std::vector<double> xTicks, yTicks;
    if (!IsProfile()) {
        if (!(high - low >= Narrowest)) { // a uniform image within its limits
            low -= Widened;
            high = low + 2 * Widened;
        }
        double const xStep = CalcStep(high - low);
        xTicks = Ticks(low, xStep, CountTicks(high - low, xStep), high);
        if (yLog) {
            int const count = TickCount(std::log10(yMax) + 1.0);
            for (int i = 0; i <= count; ++i)
                yTicks.push_back(std::pow(10.0, i));
        } else {
            double const yStep = CalcStep(yMax);
            int const count = CountTicks(yMax, yStep);
            yTicks = Ticks(0.0, yStep, count, count * yStep);
        }
    } else {
        double const length = mode == HistoColumn ? height : width;
        double const xStep = CalcStep(length);
        xTicks = Ticks(0.0, xStep, CountTicks(length, xStep), length);
        int const grid = high - low > 1000 ? 500 : high - low > 100 ? 100 : 20;
        int const top = RoundToVal(ToInt(high), grid, true);
        int const bottom = RoundToVal(ToInt(low), grid, false);
        yTicks = Ticks(bottom, grid, TickCount((top - bottom) / grid), top);
    }
    graph.SetLogMode(false, yLog);
    graph.SetScales("%5.0f", "%5.0f", xTicks, yTicks, 1.0, 1.0);
}

// ---- Plots ----------------------------------------------------------------------------------------------------------

void HistoView::SetupPlots()
{
    graph.ClearPlots();
    if (!thresholds || !data || data->plots.empty())
        return;
    auto const add = [this](Histo_Plot *plot, SimpleHisto const *series, int penWidth) {
        plot->color = series->color;
        plot->penWidth = penWidth;
        plot->penStyle = Qt::SolidLine;
        AddDataToPlot(plot, series);
        graph.AddPlot(plot);
    };
    switch (mode) {
    case HistoRaw:
        add(new Histo_Bar, data->plots.front(), 2);
        break;
    case HistoRow:
    case HistoColumn:
        add(new Histo_Curve, data->plots.front(), 2);
        break;
    default:
        for (SimpleHisto const *series : data->plots)
            add(new Histo_Curve, series, 1);
        break;
    }
}

void HistoView::AddDataToPlot(Histo_Plot *plot, SimpleHisto const *series)
{
    std::size_t const count = std::min(series->values.size(), series->positions.size());
    plot->points.reserve(count);
    for (std::size_t i = 0; i < count; ++i)
        plot->points.emplace_back(series->positions[i], series->values[i]);
}

// ---- Events ---------------------------------------------------------------------------------------------------------

// Nothing, so that a click neither moves a dock nor goes on to what is below.
void HistoView::mousePressEvent(QMouseEvent *)
{
}

void HistoView::mouseReleaseEvent(QMouseEvent *event)
{
    float v = 0.0f;
    if (!thresholds || !data || !graph.GetThresholds(event->localPos(), v))
        return;
    if (event->button() == Qt::LeftButton)
        MoveMarkers(v);
    else if (event->button() == Qt::RightButton)
        thresholds->markThreshold = ToMarker(v);
    update();
    emit signalUpdateThresolds();
}

void HistoView::MoveMarkers(float v)
{
    HistoThresholds &t = *thresholds;
    if (t.lowThreshold == 0 && t.highThreshold == 0) {
        int const full = FullScale(data->bits);
        auto const tenth = static_cast<float>(full / 10);
        bool const lower = static_cast<float>(full / 2) > v;
        t.lowThreshold = ToMarker(lower ? v : v - tenth);
        t.highThreshold = ToMarker(lower ? tenth + v : v);
    } else if (t.highThreshold <= v) {
        t.highThreshold = ToMarker(v);
    } else if (v <= t.lowThreshold) {
        t.lowThreshold = ToMarker(v);
    } else {
        int const middle = t.lowThreshold + (t.highThreshold - t.lowThreshold) / 2;
        (v < static_cast<float>(middle) ? t.lowThreshold : t.highThreshold) = ToMarker(v);
    }
}

void HistoView::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setPen(QPen(QBrush(Qt::blue, Qt::SolidPattern), 3.0, Qt::SolidLine, Qt::SquareCap, Qt::BevelJoin));
    QRect const frame(QPoint(0, 0), rect().bottomRight());
    painter.drawRects(&frame, 1);
    graph.DrawSelf(painter);
}

void HistoView::resizeEvent(QResizeEvent *)
{
    graph.Resize(QRect(QPoint(0, 0), size()));
}
