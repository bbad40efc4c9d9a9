// A small plotting canvas: title, axis titles, tick labels and a grid around a data area, the plots in it, and the
// threshold markers with their counts. It is not a widget, and lays itself out anew at each paint, from the font
// metrics. Coordinates are those of the painter's device. GUI thread.
#pragma once

#include "histo.h"
#include "histo_plot.h"
#include "ticklabels.h"

#include <QColor>
#include <QFont>
#include <QRect>
#include <QSize>
#include <QString>

#include <memory>
#include <vector>

class QPainter;
class QPointF;

class Histo_Graph
{
public:
    Histo_Graph();
    virtual ~Histo_Graph();
    Histo_Graph(Histo_Graph const &) = delete;
    Histo_Graph &operator=(Histo_Graph const &) = delete;

    // Before the first DrawSelf. The divisions are minor grid cells between two ticks.
    void Init(QRect rect, bool logX, bool logY, int yMinor, int xMinor);
    void SetTitles(QString const &title, QString const &xTitle, QString const &yTitle);
    void SetLogMode(bool logX, bool logY);
    // printf formats of the tick labels, of one double and at most 32 bytes: longer ones are cut. The ticks ascend; the
    // first and the last one are the ends of the axis. A label shows its tick times the factor.
    void SetScales(char const *xFormat, char const *yFormat, std::vector<double> const &xTicks,
                   std::vector<double> const &yTicks, double xFactor, double yFactor);
    void AddPlot(Histo_Plot *plot); // takes ownership
    void ClearPlots();
    void Resize(QRect rect);
    // A sentence over the data area, for what the plots cannot show; empty for none.
    void SetNotice(QString const &text);
    // An axis without ticks leaves the data area empty. Labels that would touch are thinned, and so are grid lines that
    // would run together; the ticks stay.
    void DrawSelf(QPainter &painter);

    // The signal value at a mouse position; false left of the data area, on its left edge, and before the first paint.
    bool GetThresholds(QPointF const &position, float &value) const;

    QRect const &GetPlotRect() const; // the data area of the last paint

    HistoThresholds *thresholds = nullptr; // not owned; null: no markers

private:
    void CreateFontEx(std::unique_ptr<QFont> &font, QPainter &painter, QFont::HintingPreference hinting);
    QSize GetTextSize(QFont const &font, QPainter &painter, QString const &text) const;
    void CreateScales();
    std::vector<TickLabel> PlaceHorLabels(QPainter &painter, QSize labelSize) const;
    std::vector<TickLabel> PlaceVertLabels(QPainter &painter, QSize labelSize) const;
    void DrawTitles(QPainter &painter, QSize const &titleSize, QSize const &xTitleSize, QSize const &yTitleSize,
                    std::vector<TickLabel> const &yLabels);
    void DrawGrid(QPainter &painter, std::vector<TickLabel> const &xLabels, std::vector<TickLabel> const &yLabels);
    void DrawLabels(QPainter &painter, std::vector<TickLabel> const &labels);
    void DrawThresholds(QPainter &painter);
    void PaintThresholdsPixels(QPainter &painter);
    void PaintRotatedString(QPainter &painter, int x, int y, float angle, QString const &text);
    void PaintNotice(QPainter &painter);

    QRect m_outerRect; // the whole canvas
    QRect m_plotRect;  // the data area
    QColor m_firstColor;
    bool m_logX = false;
    bool m_logY = false;
    std::shared_ptr<TVScaleFunction> m_xScale, m_yScale; // remade by each paint
    std::unique_ptr<QFont> m_labelFont, m_yTitleFont;    // made by the first paint
    QColor m_secondColor;
    QString m_title, m_xTitle, m_yTitle;
    QString m_notice;
    std::vector<Histo_Plot *> m_plots; // owned
    char m_xFormat[32] = {};
    char m_yFormat[32] = {};
    std::vector<double> m_xTicks, m_yTicks;
    double m_xFactor = 1.0;
    double m_yFactor = 1.0;
    int m_yMinorDivisions = 0;
    int m_xMinorDivisions = 0;
};
