#include "histo_plot.h"

#include <QPainter>
#include <QVector>

#include <algorithm>
#include <cmath>

namespace {

QPen PenOf(Histo_Plot const &plot)
{
    return QPen(QBrush(plot.color, Qt::SolidPattern), plot.penWidth, static_cast<Qt::PenStyle>(plot.penStyle),
                Qt::SquareCap, Qt::BevelJoin);
}

} // namespace

double TVLinearScale::Forward(double x) const
{
    return slope * x + offset;
}

double TVLinearScale::Backward(double p) const
{
    return (p - offset) / slope;
}

double TVLog10Scale::Forward(double x) const
{
    return x > 0.0 ? slope * std::log10(x) + offset : slope * x + offset;
}

double TVLog10Scale::Backward(double p) const
{
    return std::pow(10.0, p);
}

int ToPixel(double position)
{
    constexpr double FAR = 1 << 20;
    if (std::isnan(position))
        return 0;
    return static_cast<int>(std::fmin(std::fmax(position, -FAR), FAR));
}

// There may be several points to a pixel, and thousands of lines. Those that stand on one column of pixels make up one
// line, from the highest end to the lowest; an opaque pen leaves the same picture either way.
void Histo_Bar::Draw(QPainter &painter, TVScaleFunction *xScale, TVScaleFunction *yScale, QRect &rect)
{
    QVector<QLine> lines;
    int highest = 0;
    int lowest = 0;
    for (auto const &[x, y] : points) {
        int const left = ToPixel(xScale->Forward(x));
        int const top = ToPixel(yScale->Forward(y));
        if (left < rect.left() || left > rect.right() || y == 0.0)
            continue;
        if (lines.empty() || lines.back().x1() != left) {
            highest = lowest = rect.bottom();
            lines.append(QLine(left, rect.bottom(), left, rect.bottom()));
        }
        highest = std::min(highest, top);
        lowest = std::max(lowest, top);
        lines.back() = QLine(left, lowest, left, highest);
    }
    painter.setPen(PenOf(*this));
    painter.drawLines(lines);
}

void Histo_Curve::Draw(QPainter &painter, TVScaleFunction *xScale, TVScaleFunction *yScale, QRect &rect)
{
    if (points.empty())
        return;
    auto const pixelOf = [&](std::pair<double, double> const &point) {
        return QPoint(ToPixel(xScale->Forward(point.first)), ToPixel(yScale->Forward(point.second)));
    };
    QVector<QLine> lines;
    QPoint previous = pixelOf(points[0]);
    bool upright = false; // the last line is one of a single column, and may grow
    for (std::size_t i = 1; i < points.size(); ++i) {
        QPoint const next = pixelOf(points[i]);
        // The outer ends alone are tested; that is meant.
        bool const stays = previous.x() == next.x();
        if (previous.x() >= rect.left() && next.x() <= rect.right()) {
            if (stays && upright && lines.back().x1() == next.x()) {
                QLine &line = lines.back();
                line = QLine(next.x(), std::max(line.y1(), next.y()), next.x(), std::min(line.y2(), next.y()));
            } else if (stays) {
                lines.append(
                    QLine(next.x(), std::max(previous.y(), next.y()), next.x(), std::min(previous.y(), next.y())));
            } else {
                lines.append(QLine(previous, next));
            }
            upright = stays;
        } else {
            upright = false;
        }
        previous = next;
    }
    painter.setPen(PenOf(*this));
    painter.drawLines(lines);
}
