// Whether a picture of the main view marks a rectangle of the image exactly.
#pragma once

#include "tovdisplay.h"

#include <QImage>
#include <QRect>

#include <string>

constexpr QRgb MARK_COLOUR = 0xFFFFC800;

// What the inspection view tells the main one when it shows the image from `first` on: one pixel less at the left and
// the top.
inline QRect MarkOf(QPoint first, QSize view, QSize image)
{
    QPoint const from(std::max(first.x(), 0), std::max(first.y(), 0));
    return {from.x() + 1, from.y() + 1, std::min(image.width() - 1, first.x() + view.width() - from.x() - 1),
            std::min(image.height() - 1, first.y() + view.height() - from.y() - 1)};
}

// The first pixel of `shown`, the whole view, that has the mark's colour and should not or the other way round; empty
// when there is none. Device pixels and points are the same.
inline std::string MarkFault(QImage const &shown, TovDisplay *renderer, QRect mark)
{
    auto const isIn = [&](int x, int y) {
        return renderer->Translate(&x, &y, 1) == 0 && mark.contains(x, y);
    };
    for (int y = 0; y < shown.height(); ++y) {
        for (int x = 0; x < shown.width(); ++x) {
            bool const inside = isIn(x - 1, y) && isIn(x + 1, y) && isIn(x, y - 1) && isIn(x, y + 1);
            if ((shown.pixel(x, y) == MARK_COLOUR) != (isIn(x, y) && !inside))
                return std::to_string(x) + ", " + std::to_string(y);
        }
    }
    return {};
}
