#include "histoview.h"

#include <QApplication>
#include <QMouseEvent>

#include <gtest/gtest.h>

#include <cmath>

namespace {

TEST(HistoView, HasNoStepForWhatIsNoRange)
{
    for (double const range : {0.0, -5.0, double(NAN), double(INFINITY)})
        EXPECT_EQ(HistoView(nullptr).CalcStep(range), 0) << range;
}

class HistoViewOfSeries : public testing::Test
{
protected:
    HistoViewOfSeries()
    {
        view.resize(600, 400);
        series.bits = 8;
        for (int i = 0; i < 256; ++i) {
            series.positions.push_back(i);
            series.values.push_back(i == 100 ? 5000 : 0);
        }
        series.mean = 100;
        series.stdDev = 10;
        data.plots = {&series};
    }
    ~HistoViewOfSeries() override
    {
        data.plots.clear();
    }
    void Show()
    {
        data.mode = view.mode;
        view.SetData(&data);
        view.grab();
    }
    // The signal at a place that is so many pixels beside the data area's left edge.
    float At(int x) const
    {
        float value = NAN;
        view.graph.GetThresholds(QPointF(view.graph.GetPlotRect().left() + x, 0), value);
        return value;
    }
    float End() const
    {
        return At(view.graph.GetPlotRect().width());
    }
    void Click(double signal, Qt::MouseButton button)
    {
        QRect const area = view.graph.GetPlotRect();
        QPointF const at(area.left() + area.width() * signal / 256, area.center().y());
        QMouseEvent release(QEvent::MouseButtonRelease, at, button, Qt::NoButton, Qt::NoModifier);
        QCoreApplication::sendEvent(&view, &release);
    }

    HistoView view{nullptr};
    SimpleHisto series;
    ComplexHisto data;
    HistoThresholds markers{};
};

TEST_F(HistoViewOfSeries, LimitsTheAxisAndWidensOneThatIsNone)
{
    view.SetupHistoGraph(1000, 0, 64);
    Show(); // without markers: the axes stay
    EXPECT_NEAR(End(), 64, 0.01);
    view.thresholds = &markers;
    Show();
    EXPECT_NEAR(End(), 256, 0.01);
    view.SetXAxisLimit(true, 1);
    Show();
    EXPECT_NEAR(End(), 110, 0.01);
    EXPECT_NEAR(At(1), 90, 0.1);
    series.stdDev = 0;
    Show();
    EXPECT_GT(End(), 101);
    EXPECT_LT(At(1), 99);
}

TEST_F(HistoViewOfSeries, MovesTheMarkersByClicks)
{
    int told = 0;
    QObject::connect(&view, &HistoView::signalUpdateThresolds, [&] { ++told; });
    Click(100, Qt::LeftButton);
    EXPECT_EQ(told, 0); // nothing to mark yet
    view.thresholds = &markers;
    data.bits = 8;
    Show();
    struct
    {
        double signal;
        Qt::MouseButton button;
        int low, high, mark; // afterwards
    } const clicks[] = {
        {200.5, Qt::LeftButton, 175, 200, 0},   {240.5, Qt::LeftButton, 175, 240, 0},
        {50.5, Qt::LeftButton, 50, 240, 0},     {140.5, Qt::LeftButton, 140, 240, 0},
        {200.5, Qt::LeftButton, 140, 200, 0},   {77.5, Qt::RightButton, 140, 200, 77},
        {99.5, Qt::MiddleButton, 140, 200, 77}, {-20, Qt::LeftButton, 140, 200, 77},
    };
    for (auto const &click : clicks) {
        Click(click.signal, click.button);
        EXPECT_EQ(markers.lowThreshold, click.low) << click.signal;
        EXPECT_EQ(markers.highThreshold, click.high) << click.signal;
        EXPECT_EQ(markers.markThreshold, click.mark) << click.signal;
    }
    EXPECT_EQ(told, 7); // not for the one beside the data area
    markers = {};
    Click(20.5, Qt::LeftButton);
    EXPECT_EQ(markers.lowThreshold, 20);
    EXPECT_EQ(markers.highThreshold, 45);
}

} // namespace
