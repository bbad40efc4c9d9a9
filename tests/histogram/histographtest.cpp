#include "histo_graph.h"

#include <QImage>
#include <QPainter>

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <tuple>
#include <vector>

namespace {

QRgb const Outside = qRgb(255, 255, 245), AREA = qRgb(245, 245, 255), GRID = qRgb(192, 192, 192);

class HistoGraph : public testing::Test
{
protected:
    HistoGraph()
    {
        graph.Init(QRect(0, 0, 500, 380), false, false, 0, 0);
        graph.SetScales("%5.0f", "%5.0f", {0, 50, 100, 150, 200, 250, 256}, {0, 250, 500, 750, 1000}, 1.0, 1.0);
    }
    void Paint()
    {
        image.fill(Qt::black);
        QPainter painter(&image);
        painter.setPen(Qt::blue);
        graph.DrawSelf(painter);
        area = graph.GetPlotRect();
    }
    int XOf(double x) const
    {
        return int(area.left() + area.width() * x / 256);
    }
    int YOf(double y) const
    {
        return int(area.bottom() - area.height() * y / 1000);
    }
    Histo_Graph graph;
    QImage image{500, 380, QImage::Format_RGB32};
    QRect area;
};

TEST_F(HistoGraph, DrawsGridBarsAndLabelsInTheirPlaces)
{
    auto *const bars = new Histo_Bar;
    bars->color = Qt::yellow;
    bars->points = {{30, 600}, {60, 0}, {255, 1000}, {256, 900}, {-1, 900}};
    graph.AddPlot(bars);
    Paint();
    EXPECT_EQ(image.pixel(area.left() + 1, area.top() + 1), AREA);
    EXPECT_EQ(image.pixel(area.left() - 1, 0), Outside);
    for (double const tick : {0, 50, 100, 150, 200, 250})
        EXPECT_EQ(image.pixel(XOf(tick), YOf(770)), GRID) << tick;
    for (double const tick : {0, 250, 500, 750})
        EXPECT_EQ(image.pixel(XOf(70), YOf(tick)), GRID) << tick;
    EXPECT_NE(image.pixel(XOf(70), area.top()), GRID); // the last tick has no line
    QRgb const yellow = QColor(Qt::yellow).rgb();
    EXPECT_EQ(image.pixel(XOf(30), YOf(600)), yellow);
    EXPECT_EQ(image.pixel(XOf(30), area.bottom()), yellow);
    EXPECT_EQ(image.pixel(XOf(30), YOf(600) - 2), AREA);
    EXPECT_EQ(image.pixel(XOf(60), area.bottom() - 3), AREA); // no bar without a count
    EXPECT_EQ(image.pixel(XOf(255), area.top() + 5), yellow);
}

TEST_F(HistoGraph, MarkersStandAtTheirSignalWithTheirCounts)
{
    HistoThresholds t{40, 220, 128, 0, 0, 0, 0, 0};
    graph.thresholds = &t;
    Paint();
    int const y = area.top() + 3;
    EXPECT_EQ(image.pixel(XOf(40), y), qRgb(0, 255, 0));
    EXPECT_EQ(image.pixel(XOf(220), y), qRgb(255, 0, 0));
    EXPECT_EQ(image.pixel(XOf(128), y), qRgb(255, 0, 255));
    t = {0, 0, 0, 5, 0, 0, 0, 0};
    Paint();
    EXPECT_EQ(image.pixel(XOf(40), y), AREA);
    float value = 0.0f;
    EXPECT_FALSE(graph.GetThresholds(QPointF(area.left(), 5), value));
    EXPECT_TRUE(graph.GetThresholds(QPointF(XOf(128), -50), value));
    EXPECT_NEAR(value, 128.0f, 0.7f);
    EXPECT_TRUE(graph.GetThresholds(QPointF(area.right() + 200, 5), value));
    EXPECT_GT(value, 256.0f);
    EXPECT_FALSE(Histo_Graph().GetThresholds(QPointF(100, 100), value));
}

// Labels of the Y axis stand apart from one another and from the title, however many ticks there are.
TEST_F(HistoGraph, ThinsLabelsThatWouldTouch)
{
    std::vector<double> profile, decades;
    for (int tick = -500; tick <= 66000; tick += 500)
        profile.push_back(tick);
    for (double tick = 1; tick < 1e8; tick *= 10)
        decades.push_back(tick);
    std::tuple<std::vector<double>, bool> const axes[] = {{profile, false}, {profile, true}, {decades, true}};
    for (auto const &[ticks, log] : axes) {
        for (int height = 101; height <= 380; height += 3) {
            graph.SetLogMode(false, log);
            graph.SetScales("%5.0f", "%5.0f", {0, 256}, ticks, 1.0, 1.0);
            graph.Resize(QRect(0, 0, 500, height));
            graph.SetTitles(QString(), QString(), QString());
            Paint();
            QImage const labels = image;
            int run = 0, longest = 0, runs = 0;
            for (int y = 0; y < area.bottom() - 2; ++y) {
                bool inked = false;
                for (int x = 0; x < area.left(); ++x)
                    inked = inked || image.pixel(x, y) != Outside;
                run = inked ? run + 1 : 0;
                runs += run == 1;
                longest = std::max(longest, run);
            }
            EXPECT_GE(runs, 2) << height;
            EXPECT_LE(longest, 12) << height << ", " << log; // a digit
            graph.SetTitles(QString(), QString(), QStringLiteral("Signal (ADU)"));
            Paint();
            for (int y = 0; y < height; ++y)
                for (int x = 1; x < area.left() - 1; ++x)
                    ASSERT_TRUE(image.pixel(x, y) == labels.pixel(x, y) ||
                                (labels.pixel(x - 1, y) == Outside && labels.pixel(x, y) == Outside &&
                                 labels.pixel(x + 1, y) == Outside))
                        << "the title on a label at " << x << ' ' << y << " of " << height;
        }
    }
}

// Every point a line of its own, one call each.
TEST(HistoPlots, LookAsIfEachLineWereDrawn)
{
    std::mt19937 random(1);
    TVLinearScale scale[2];
    QRect rect(20, 10, 60, 80);
    for (int round = 0; round < 200; ++round) {
        bool const curve = round % 2;
        std::unique_ptr<Histo_Plot> plot;
        if (curve)
            plot = std::make_unique<Histo_Curve>();
        else
            plot = std::make_unique<Histo_Bar>();
        plot->color = Qt::red;
        plot->penWidth = 1 + round / 2 % 2;
        for (int i = 0; i < 40; ++i)
            plot->points.emplace_back(round % 3 == 0   ? random() % 100
                                      : round % 3 == 1 ? i * 2.4 + random() % 2
                                                       : 18 + i / 5, // crowded
                                      int(random() % 130) - 20);
        QImage image(100, 110, QImage::Format_RGB32), expected(100, 110, QImage::Format_RGB32);
        image.fill(Qt::white);
        expected.fill(Qt::white);
        QPainter painter(&image), plain(&expected);
        plot->Draw(painter, &scale[0], &scale[1], rect);
        plain.setPen(QPen(QBrush(Qt::red), plot->penWidth, Qt::SolidLine, Qt::SquareCap, Qt::BevelJoin));
        for (std::size_t i = 0; i < plot->points.size(); ++i) {
            QPoint const at(int(plot->points[i].first), int(plot->points[i].second));
            if (curve) {
                QPoint const from(int(plot->points[i ? i - 1 : 0].first), int(plot->points[i ? i - 1 : 0].second));
                if (i > 0 && from.x() >= 20 && at.x() <= 79)
                    plain.drawLine(from, at);
            } else if (at.x() >= 20 && at.x() <= 79 && at.y() != 0) {
                plain.drawLine(QPoint(at.x(), 89), at);
            }
        }
        EXPECT_EQ(image, expected) << round;
    }
}

} // namespace
