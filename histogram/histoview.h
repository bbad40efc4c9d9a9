// The widget that shows the analysis: turns an answer into axes and plots, and clicks on the data area into markers.
// No setter repaints; the next update does. GUI thread.
#pragma once

#include "histo.h"
#include "histo_graph.h"

#include <QWidget>

#include <cstdint>

class HistoView : public QWidget
{
    Q_OBJECT
public:
    explicit HistoView(QWidget *parent);

    void SetMode(int newMode); // a HistoMode; others have the titles of HistoRaw
    void SetAverage(bool on);
    // Limits the X axis of a histogram to the mean and `factor` standard deviations on either side.
    void SetXAxisLimit(bool enable, int factor);
    void UseYAxisLog(bool on);
    void SetTapMode(bool on, int count); // changes no picture
    // Not owned, and outlives the view. The axes and plots stay as they are while `thresholds` is null, or without
    // series.
    void SetData(ComplexHisto *answer);
    // The mode's axes over the whole scale of that depth, without data.
    void ShowAxes(int depth);

    void SetupScales();
    void SetupHistoGraph(double yMax, double low, double high);
    void SetupPlots();
    void AddDataToPlot(Histo_Plot *plot, SimpleHisto const *series);
    // Tick spacing for a range; 0 for one that is not positive and finite.
    double CalcStep(double range) const;
    // To a multiple of `grid`; a positive multiple still goes up by a whole grid step, and a negative value down.
    int RoundToVal(int value, int grid, bool up) const;

    // Of the image: pixels, and bits.
    std::int32_t width = 0;
    std::int32_t height = 0;
    std::int32_t bits = 0;
    std::int32_t mode = 0;
    std::int32_t xLimitFactor = 0;
    bool xLimit = false;
    bool yLog = false;
    bool average = false;
    bool tapMode = false;
    std::int32_t tapCount = 1;
    ComplexHisto *data = nullptr;          // not owned
    HistoThresholds *thresholds = nullptr; // not owned
    Histo_Graph graph;

signals:
    void signalUpdateThresolds(); // after each click on the data area

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;

private:
    void MoveMarkers(float v);
    bool IsProfile() const;
};
