#include "histo_graph.h"

#include <QCoreApplication>
#include <QFontMetrics>
#include <QPainter>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

constexpr int Centred = Qt::AlignHCenter | Qt::AlignVCenter;
constexpr int LineGap = 6; // pixels from which grid lines run together
QColor const Outside(255, 255, 245), Area(245, 245, 255);

QPen ThinPen(QColor const &color)
{
    return QPen(QBrush(color, Qt::SolidPattern), 1.0, Qt::SolidLine, Qt::SquareCap, Qt::BevelJoin);
}

void CopyFormat(char (&to)[32], char const *from)
{
    std::strncpy(to, from, sizeof to - 1);
    to[sizeof to - 1] = '\0';
}

QString Label(char const *format, double value)
{
    return QString::asprintf(format, value);
}

QString Number(std::int32_t value)
{
    return QString::asprintf("%d", value);
}

// Ticks but the last one, and the lines of the cells between them.
template<class Draw>
void ForEachGridLine(std::vector<double> const &ticks, int divisions, Draw draw)
{
    for (std::size_t i = 0; i + 1 < ticks.size(); ++i) {
        draw(ticks[i]);
        if (divisions < 1 || i == 0)
            continue;
        double const cell = (ticks[i] - ticks[i - 1]) / divisions;
        for (int k = 1; k < divisions; ++k)
            draw(ticks[i - 1] + k * cell);
    }
}

} // namespace

Histo_Graph::Histo_Graph() = default;

Histo_Graph::~Histo_Graph()
{
    ClearPlots();
}

void Histo_Graph::Init(QRect rect, bool logX, bool logY, int yMinor, int xMinor)
{
    m_outerRect = rect;
    m_logX = logX;
    m_logY = logY;
    m_yMinorDivisions = yMinor;
    m_xMinorDivisions = xMinor;
    m_firstColor = QColor(0, 255, 0);
    m_secondColor = QColor(0, 0, 255);
    SetTitles(QCoreApplication::translate("Histo_Graph", "Title"),
              QCoreApplication::translate("Histo_Graph", "Arguments"),
              QCoreApplication::translate("Histo_Graph", "Values"));
    m_xScale.reset();
    m_yScale.reset();
}

void Histo_Graph::SetTitles(QString const &title, QString const &xTitle, QString const &yTitle)
{
    m_title = title;
    m_xTitle = xTitle;
    m_yTitle = yTitle;
}

void Histo_Graph::SetLogMode(bool logX, bool logY)
{
    m_logX = logX;
    m_logY = logY;
}

void Histo_Graph::SetScales(char const *xFormat, char const *yFormat, std::vector<double> const &xTicks,
                            std::vector<double> const &yTicks, double xFactor, double yFactor)
{
    CopyFormat(m_xFormat, xFormat);
    CopyFormat(m_yFormat, yFormat);
    m_xTicks = xTicks;
    m_yTicks = yTicks;
    m_xFactor = xFactor;
    m_yFactor = yFactor;
}

void Histo_Graph::AddPlot(Histo_Plot *plot)
{
    m_plots.push_back(plot);
}

void Histo_Graph::ClearPlots()
{
    for (Histo_Plot *plot : m_plots)
        delete plot;
    m_plots.clear();
}

void Histo_Graph::SetNotice(QString const &text)
{
    m_notice = text;
}

void Histo_Graph::Resize(QRect rect)
{
    m_outerRect = rect;
}

bool Histo_Graph::GetThresholds(QPointF const &position, float &value) const
{
    if (!m_xScale || static_cast<float>(position.x() - m_plotRect.left()) <= 0.0f)
        return false;
    value = static_cast<float>(m_xScale->Backward(position.x()));
    return true;
}

QRect const &Histo_Graph::GetPlotRect() const
{
    return m_plotRect;
}

// ---- Layout ---------------------------------------------------------------------------------------------------------

void Histo_Graph::CreateFontEx(std::unique_ptr<QFont> &font, QPainter &, QFont::HintingPreference hinting)
{
    if (font)
        return;
    font = std::make_unique<QFont>(QStringLiteral("Tahoma"), 9, QFont::Light, false);
    font->setHintingPreference(hinting);
}

QSize Histo_Graph::GetTextSize(QFont const &font, QPainter &painter, QString const &text) const
{
    QFontMetrics const metrics(font, painter.device());
    return {metrics.horizontalAdvance(text), metrics.height()};
}

void Histo_Graph::DrawSelf(QPainter &painter)
{
    CreateFontEx(m_labelFont, painter, QFont::PreferDefaultHinting);
    CreateFontEx(m_yTitleFont, painter, QFont::PreferVerticalHinting);
    bool const hasAxes = !m_xTicks.empty() && !m_yTicks.empty();
    auto const labelSize = [&](char const *format, std::vector<double> const &ticks, double factor) {
        return hasAxes ? GetTextSize(*m_labelFont, painter, Label(format, ticks.back() * factor)) : QSize(0, 0);
    };
    QSize const titleSize = GetTextSize(*m_labelFont, painter, m_title);
    QSize const xTitleSize = GetTextSize(*m_labelFont, painter, m_xTitle);
    QSize const yTitleSize = GetTextSize(*m_yTitleFont, painter, m_yTitle).transposed(); // as drawn, rotated
    QSize const xLabelSize = labelSize(m_xFormat, m_xTicks, m_xFactor);
    QSize const yLabelSize = labelSize(m_yFormat, m_yTicks, m_yFactor);

    m_plotRect = m_outerRect.adjusted(yTitleSize.width() + yLabelSize.width(), titleSize.height(), 0,
                                      -(xLabelSize.height() + xTitleSize.height()));
    painter.fillRect(m_outerRect, Outside);
    painter.fillRect(m_plotRect, Area);
    if (!hasAxes) {
        m_xScale.reset();
        m_yScale.reset();
        DrawTitles(painter, titleSize, xTitleSize, yTitleSize, {});
        PaintNotice(painter);
        return;
    }
    CreateScales();
    std::vector<TickLabel> const xLabels = PlaceHorLabels(painter, xLabelSize);
    std::vector<TickLabel> const yLabels = PlaceVertLabels(painter, yLabelSize);
    DrawTitles(painter, titleSize, xTitleSize, yTitleSize, yLabels);
    DrawGrid(painter, xLabels, yLabels);
    DrawLabels(painter, xLabels);
    DrawLabels(painter, yLabels);
    for (Histo_Plot *plot : m_plots)
        plot->Draw(painter, m_xScale.get(), m_yScale.get(), m_plotRect);
    DrawThresholds(painter);
    PaintThresholdsPixels(painter);
    PaintNotice(painter);
}

// The first tick is on the left or bottom pixel, the last one a pixel beyond the right or top one.
void Histo_Graph::CreateScales()
{
    double const width = m_plotRect.right() - m_plotRect.left() + 1;
    double const height = m_plotRect.bottom() - m_plotRect.top() + 1;
    auto const make = [](bool log) -> std::shared_ptr<TVScaleFunction> {
        if (log)
            return std::make_shared<TVLog10Scale>();
        return std::make_shared<TVLinearScale>();
    };
    // An axis without a span has an infinite slope, which ToPixel bounds.
    // A logarithmic one whose end has no logarithm ends at 1.
    auto const end = [](bool log, double tick) {
        return !log ? tick : tick > 0.0 ? std::log10(tick) : 0.0;
    };
    double const xFirst = end(m_logX, m_xTicks.front());
    double const xSpan = end(m_logX, m_xTicks.back()) - xFirst;
    m_xScale = make(m_logX);
    m_xScale->slope = width / xSpan;
    // A logarithmic X axis begins at 1, wherever its first tick is; the Y axis begins at its first tick.
    m_xScale->offset = m_logX ? m_plotRect.left() : m_plotRect.left() - width * xFirst / xSpan;
    double const yFirst = end(m_logY, m_yTicks.front());
    double const ySpan = end(m_logY, m_yTicks.back()) - yFirst;
    m_yScale = make(m_logY);
    m_yScale->slope = -height / ySpan;
    m_yScale->offset = m_plotRect.bottom() + height * yFirst / ySpan;
}

// ---- Labels ---------------------------------------------------------------------------------------------------------

std::vector<TickLabel> Histo_Graph::PlaceHorLabels(QPainter &painter, QSize labelSize) const
{
    QFontMetrics const metrics(*m_labelFont, painter.device());
    int const y = m_plotRect.bottom() + labelSize.height();
    std::vector<TickLabel> ticks;
    for (double const value : m_xTicks) {
        QPoint const at(ToPixel(m_xScale->Forward(value) - labelSize.width() / 2), y);
        QString const text = Label(m_xFormat, value * m_xFactor);
        ticks.push_back({value, at, text, InkOf(metrics, at, text)});
    }
    // The end of the axis has the label of the last tick but one: of ticks up to 250 and 256 it says 250.
    TickLabel const last = ticks.back();
    ticks.pop_back();
    if (!ticks.empty()) {
        TickLabel end = ticks.back();
        ticks.pop_back();
        end.at.setX(m_plotRect.right() - labelSize.width());
        end.ink = InkOf(metrics, end.at, end.text);
        ThinLabels(ticks, m_logX);
        for (TickLabel &tick : ticks) {
            if (Touch(tick.ink, end.ink))
                tick.text.clear();
        }
        ticks.push_back(end);
    }
    ticks.push_back({last.value, last.at, QString(), QRect()});
    return ticks;
}

std::vector<TickLabel> Histo_Graph::PlaceVertLabels(QPainter &painter, QSize labelSize) const
{
    QFontMetrics const metrics(*m_labelFont, painter.device());
    int const x = m_plotRect.left() - labelSize.width();
    std::vector<TickLabel> ticks;
    for (double const value : m_yTicks) {
        int const below = ticks.empty() ? 0 : labelSize.height() / 2;
        QPoint const at(x, ToPixel(m_yScale->Forward(value) + below));
        QString const text = Label(m_yFormat, value * m_yFactor);
        ticks.push_back({value, at, text, InkOf(metrics, at, text)});
    }
    ThinLabels(ticks, m_logY);
    return ticks;
}

void Histo_Graph::DrawLabels(QPainter &painter, std::vector<TickLabel> const &labels)
{
    painter.setFont(*m_labelFont);
    for (TickLabel const &label : labels) {
        if (label.kept)
            painter.drawText(label.at, label.text);
    }
}

// ---- Drawing --------------------------------------------------------------------------------------------------------

void Histo_Graph::DrawTitles(QPainter &painter, QSize const &titleSize, QSize const &xTitleSize,
                             QSize const &yTitleSize, std::vector<TickLabel> const &yLabels)
{
    painter.setBackgroundMode(Qt::TransparentMode);
    painter.setFont(*m_labelFont);
    QRect const &outer = m_outerRect;
    painter.drawText(QRect(outer.left(), outer.top(), outer.width(), titleSize.height()), Centred, m_title);
    painter.drawText(QRect(outer.left(), outer.bottom() - xTitleSize.height() + 1, outer.width(), xTitleSize.height()),
                     Centred, m_xTitle);
    // The text starts at the middle of the canvas and reads upwards from there; it is not centred.
    painter.setFont(*m_yTitleFont);
    QPoint const at(yTitleSize.width(), outer.bottom() - (outer.height() - yTitleSize.width()) / 2);
    // Its descenders may touch a long label.
    QRect const ink = UprightInkOf(QFontMetrics(*m_yTitleFont, painter.device()), at, m_yTitle);
    int over = 0;
    for (TickLabel const &label : yLabels) {
        if (label.kept && Touch(ink, label.ink))
            over = std::max(over, ink.right() + TextGap + 1 - label.ink.left());
    }
    over = std::min(over, std::max(0, ink.left() - outer.left()));
    PaintRotatedString(painter, at.x() - over, at.y(), -90.0f, m_yTitle);
}

void Histo_Graph::DrawGrid(QPainter &painter, std::vector<TickLabel> const &xLabels,
                           std::vector<TickLabel> const &yLabels)
{
    // The ticks that have lines, and the last one, which has none.
    auto const lines = [](std::vector<TickLabel> const &ticks, TVScaleFunction const &scale) {
        bool crowded = false;
        for (std::size_t i = 1; i < ticks.size(); ++i) {
            double const distance = scale.Forward(ticks[i].value) - scale.Forward(ticks[i - 1].value);
            crowded = crowded || std::fabs(distance) < LineGap;
        }
        std::vector<double> values;
        for (TickLabel const &tick : ticks) {
            if (tick.kept || !crowded || &tick == &ticks.back())
                values.push_back(tick.value);
        }
        return values;
    };
    QPen const textPen = painter.pen();
    painter.setPen(ThinPen(QColor(192, 192, 192)));
    ForEachGridLine(lines(xLabels, *m_xScale), m_xMinorDivisions, [&](double tick) {
        int const x = ToPixel(m_xScale->Forward(tick));
        painter.drawLine(x, m_plotRect.top(), x, m_plotRect.bottom());
    });
    ForEachGridLine(lines(yLabels, *m_yScale), m_yMinorDivisions, [&](double tick) {
        int const y = ToPixel(m_yScale->Forward(tick));
        painter.drawLine(m_plotRect.left(), y, m_plotRect.right(), y);
    });
    painter.setPen(textPen); // labels in the colour of the titles, not as faint as the grid
}

void Histo_Graph::DrawThresholds(QPainter &painter)
{
    if (!thresholds)
        return;
    struct
    {
        std::uint16_t value;
        QColor color;
    } const markers[] = {{thresholds->highThreshold, QColor(255, 0, 0)},
                         {thresholds->lowThreshold, QColor(0, 255, 0)},
                         {thresholds->markThreshold, QColor(255, 0, 255)}};
    int const top = m_plotRect.top();
    int const bottom = m_plotRect.bottom();
    for (auto const &marker : markers) {
        int const x = ToPixel(m_xScale->Forward(marker.value));
        painter.setPen(ThinPen(marker.color));
        if (marker.value != 0)
            painter.drawLine(x, top, x, bottom);
    }
    // The numbers at half height, and below one another where the markers are close.
    QFontMetrics const metrics(painter.font(), painter.device());
    std::vector<QRect> taken;
    for (auto const &marker : markers) {
        if (marker.value == 0)
            continue;
        QString const text = Number(marker.value);
        QPoint at(ToPixel(m_xScale->Forward(marker.value)), top + (bottom - top) / 2);
        QRect ink = UprightInkOf(metrics, at, text);
        if (m_plotRect.contains(at) && ink.left() <= m_plotRect.left()) { // keeps off the labels of the Y axis
            int const over = at.x() + TextGap - ink.left();
            at.rx() += over;
            ink.translate(over, 0);
        }
        while (std::any_of(taken.begin(), taken.end(), [&](QRect const &other) { return Touch(other, ink); })) {
            at.ry() += TextGap;
            ink.translate(0, TextGap);
        }
        taken.push_back(ink);
        if (m_plotRect.contains(ink))
            painter.fillRect(ink.adjusted(-1, -1, 0, 1), Area);
        painter.setPen(ThinPen(marker.color));
        PaintRotatedString(painter, at.x(), at.y(), -90.0f, text);
    }
}

void Histo_Graph::PaintThresholdsPixels(QPainter &painter)
{
    if (!thresholds)
        return;
    painter.setFont(*m_labelFont);
    HistoThresholds const &t = *thresholds;
    int const left = m_plotRect.left();
    int const right = m_plotRect.right();
    auto const widthOf = [&](std::int32_t count) {
        return GetTextSize(*m_labelFont, painter, Number(count)).width();
    };
    QFontMetrics const metrics(*m_labelFont, painter.device());
    int const lineHeight = GetTextSize(*m_labelFont, painter, Number(t.belowLow)).height();
    auto const draw = [&](std::int32_t count, QColor const &color, int x, int y) {
        painter.fillRect(InkOf(metrics, {x, y}, Number(count)).adjusted(-1, -1, 1, 1), Area); // clear of bars and lines
        painter.setPen(QPen(color));
        painter.drawText(x, y, Number(count));
    };
    // From the top of the canvas, not of the data area: two and three lines below it, whatever the title's height.
    int const first = 2 * lineHeight;
    int const second = first + lineHeight;
    if (t.belowLow != 0 || t.aboveHigh != 0 || t.betweenLowHigh != 0) {
        draw(t.belowLow, QColor(0, 204, 0), left, first);
        draw(t.aboveHigh, QColor(204, 0, 0), right - widthOf(t.aboveHigh), first);
        draw(t.betweenLowHigh, QColor(192, 192, 0), (left + right) / 2 - widthOf(t.betweenLowHigh) / 2, first);
    }
    if (t.belowMark != 0 || t.aboveMark != 0) {
        draw(t.belowMark, QColor(192, 0, 192), left, second);
        draw(t.aboveMark, QColor(192, 0, 192), right - widthOf(t.aboveMark), second);
    }
}

void Histo_Graph::PaintRotatedString(QPainter &painter, int x, int y, float angle, QString const &text)
{
    painter.save();
    painter.translate(x, y);
    painter.rotate(static_cast<qreal>(angle));
    painter.drawText(0, 0, text);
    painter.restore();
}

void Histo_Graph::PaintNotice(QPainter &painter)
{
    if (m_notice.isEmpty())
        return;
    painter.setFont(*m_labelFont);
    int const flags = Centred | Qt::TextWordWrap;
    QRect room = m_plotRect.adjusted(12, 4, -12, -4);
    if (!m_plots.empty()) // in front of the plots
        room.setBottom(room.center().y());
    QRect const box = painter.boundingRect(room, flags, m_notice);
    painter.fillRect(box.adjusted(-6, -3, 6, 3), Area);
    painter.setPen(Qt::black);
    painter.drawText(box, flags, m_notice);
}
