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

struct Join
{
    QLine line;
    int before; // uprights that were drawn before it
};

// A line of the plot is then one pixel wide.
bool IsBare(QPainter const &painter, Histo_Plot const &plot)
{
    return plot.penWidth == 1 && plot.penStyle == Qt::SolidLine &&
           painter.deviceTransform().type() <= QTransform::TxTranslate &&
           !painter.testRenderHint(QPainter::Antialiasing);
}

// Whether the uprights on either side cover all pixels of a join to the next column: except for its end, it stays in
// the column that it comes from.
bool IsCovered(Join const &join, QVector<QLine> const &uprights)
{
    QLine const &line = join.line;
    auto const has = [&](int index, int x, int y) {
        return index >= 0 && index < uprights.size() && uprights[index].x1() == x && y >= uprights[index].y2() &&
               y <= uprights[index].y1();
    };
    return line.dx() == 1 && has(join.before - 1, line.x1(), line.y1()) && has(join.before - 1, line.x1(), line.y2()) &&
           has(join.before, line.x2(), line.y2());
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
    constexpr double Far = 1 << 20;
    if (std::isnan(position))
        return 0;
    return static_cast<int>(std::fmin(std::fmax(position, -Far), Far));
}

// There may be several points to a pixel, and thousands of lines. Those in one column of pixels make up one line, from
// the highest end to the lowest; an opaque pen gives the same picture either way.
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
    QVector<QLine> uprights; // along one column of pixels each, from the lowest end to the highest
    std::vector<Join> joins; // from one column to another
    QPoint previous = pixelOf(points[0]);
    bool growing = false; // the last upright is in the column of `previous`, and may grow
    for (std::size_t i = 1; i < points.size(); ++i) {
        QPoint const next = pixelOf(points[i]);
        bool const stays = previous.x() == next.x();
        // The outer ends alone are tested: a line that begins in the data area may end far below or above it.
        bool const shown = previous.x() >= rect.left() && next.x() <= rect.right();
        if (shown && stays) {
            if (!growing)
                uprights.append(QLine(previous, previous));
            QLine &line = uprights.back();
            line = QLine(next.x(), std::max(line.y1(), next.y()), next.x(), std::min(line.y2(), next.y()));
        } else if (shown) {
            joins.push_back({QLine(previous, next), uprights.size()});
        }
        growing = shown && stays;
        previous = next;
    }
    painter.setPen(PenOf(*this));
    QVector<QLine> lines;
    bool const bare = IsBare(painter, *this);
    for (Join const &join : joins) {
        if (!bare || !IsCovered(join, uprights))
            lines.append(join.line);
    }
    if (bare) { // quicker than lines
        for (QLine const &line : uprights)
            painter.fillRect(QRect(line.p2(), line.p1()), color);
    } else {
        lines += uprights;
    }
    painter.drawLines(lines);
}
