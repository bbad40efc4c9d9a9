// Scales between data and pixels, and plots that draw themselves by two scales. GUI thread.
#pragma once

#include <QColor>
#include <QRect>

#include <cstdint>
#include <utility>
#include <vector>

class QPainter;

class TVScaleFunction
{
public:
    double offset = 0.0;
    double slope = 1.0;

    virtual double Forward(double x) const = 0;  // from data to pixel
    virtual double Backward(double p) const = 0; // from pixel to data

protected:
    ~TVScaleFunction() = default;
};

class TVLinearScale final : public TVScaleFunction
{
public:
    double Forward(double x) const override;
    double Backward(double p) const override;
};

class TVLog10Scale final : public TVScaleFunction
{
public:
    double Forward(double x) const override; // linear for what has no logarithm
    // 10 to the power of the pixel itself, and so not the inverse of Forward: only the X scale is inverted, and that is
    // linear.
    double Backward(double p) const override;
};

// A pixel position as a whole number, truncated; 0 for what is not a number, and bounded far outside any window.
int ToPixel(double position);

class Histo_Plot
{
public:
    QColor color;
    std::int32_t penWidth = 1;
    std::int32_t penStyle = Qt::SolidLine;
    std::vector<std::pair<double, double>> points; // x, y

    virtual ~Histo_Plot() = default;
    virtual void Draw(QPainter &painter, TVScaleFunction *xScale, TVScaleFunction *yScale, QRect &rect) = 0;
};

// A line from the bottom edge for each point that is not 0.
class Histo_Bar : public Histo_Plot
{
public:
    void Draw(QPainter &painter, TVScaleFunction *xScale, TVScaleFunction *yScale, QRect &rect) override;
};

// The points, joined.
class Histo_Curve : public Histo_Plot
{
public:
    void Draw(QPainter &painter, TVScaleFunction *xScale, TVScaleFunction *yScale, QRect &rect) override;
};
