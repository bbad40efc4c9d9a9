// What a view paints on its widget, by the GUI thread.
#pragma once

#include "framepainter.h"
#include "viewgeometry.h"

#include <cstdint>

class QPainter;
class QString;
class QWidget;

// In pixels of the image.
struct PixelRect
{
    std::int64_t x, y, width, height;
};

// The picture where `geometry` puts it now, and the background around it. One that was made for another geometry is
// transformed; null: no picture. The painter is on device pixels here and in PaintMark.
void PaintPicture(QPainter &painter, Picture const *picture, ViewGeometry const &geometry);
// A line on the outermost device pixels of those image pixels, `line` device pixels wide.
void PaintMark(QPainter &painter, ViewGeometry const &geometry, PixelRect const &mark, int line);
// A line of text over the top of the picture; resets the painter's transformation.
void PaintMessage(QPainter &painter, QWidget const &widget, QString const &message);
