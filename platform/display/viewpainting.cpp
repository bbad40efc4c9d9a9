#include "viewpainting.h"

#include <QImage>
#include <QPainter>
#include <QRegion>
#include <QWidget>

#include <algorithm>

namespace {

// Around and before the picture: dark and neutral, so that neither a black nor a white picture loses its edge.
constexpr QRgb Background = 0xFF262626;
constexpr QRgb MarkColour = 0xFFFFC800;

// The line over the picture: light on dark, whatever is below it. In the widget's pixels.
constexpr QRgb MessageText = 0xFFFFFFFF;
constexpr QRgb MessageGround = 0xE6101010;
constexpr QRgb MessageEdge = 0x80FFFFFF; // on a dark picture
constexpr int MessageMargin = 10;
constexpr int MessagePadding = 8;

// Paints a picture where its edges are now; what it does not reach comes with the next frame.
void PaintMoved(QPainter &painter, QImage const &image, Picture const &picture, ViewGeometry const &geometry,
                QRect const &all)
{
    auto const moved = [](ViewAxis const &from, ViewAxis const &to, int device) {
        double const share = (device - from.origin) / (from.scale * from.image);
        return share * to.image * to.scale + to.origin;
    };
    ViewGeometry const &from = picture.geometry;
    QRectF const place(QPointF(moved(from.x, geometry.x, picture.x), moved(from.y, geometry.y, picture.y)),
                       QPointF(moved(from.x, geometry.x, picture.x + picture.width),
                               moved(from.y, geometry.y, picture.y + picture.height)));
    // Only what can be seen: enlarged 64 times, a picture's edges lie far outside.
    QRectF const seen = place & QRectF(all);
    double const across = picture.width / place.width();
    double const down = picture.height / place.height();
    QRectF const source((seen.x() - place.x()) * across, (seen.y() - place.y()) * down, seen.width() * across,
                        seen.height() * down);
    painter.fillRect(all, QColor(Background));
    if (!seen.isEmpty())
        painter.drawImage(seen, image, source);
}

} // namespace

void PaintPicture(QPainter &painter, Picture const *picture, ViewGeometry const &geometry)
{
    QRect const all(0, 0, geometry.x.view, geometry.y.view);
    if (!picture || picture->width <= 0 || picture->height <= 0) {
        painter.fillRect(all, QColor(Background));
        return;
    }
    QImage const image(reinterpret_cast<uchar const *>(picture->memory.Data()), picture->width, picture->height,
                       picture->width * 4, QImage::Format_RGB32);
    if (picture->geometry != geometry) {
        PaintMoved(painter, image, *picture, geometry, all);
        return;
    }
    QRect const place(picture->x, picture->y, picture->width, picture->height);
    for (QRect const &gap : QRegion(all) - place)
        painter.fillRect(gap, QColor(Background));
    painter.drawImage(place.topLeft(), image);
}

void PaintMark(QPainter &painter, ViewGeometry const &geometry, PixelRect const &mark, int line)
{
    if (mark.width < 1 || mark.height < 1)
        return;
    auto const device = [](ViewAxis const &axis, std::int64_t pixel) {
        return axis.ToDevice(static_cast<int>(std::clamp<std::int64_t>(pixel, -1, axis.image + 1)));
    };
    QRect const rect(QPoint(device(geometry.x, mark.x), device(geometry.y, mark.y)),
                     QPoint(device(geometry.x, mark.x + mark.width) - 1, device(geometry.y, mark.y + mark.height) - 1));
    if (!rect.isValid())
        return;
    QRegion const outline = QRegion(rect) - rect.adjusted(line, line, -line, -line);
    for (QRect const &part : outline)
        painter.fillRect(part, QColor(MarkColour));
}

void PaintMessage(QPainter &painter, QWidget const &widget, QString const &message)
{
    constexpr int Out = MessageMargin + MessagePadding;
    constexpr int Flags = Qt::AlignHCenter | Qt::AlignTop | Qt::TextWordWrap;
    painter.resetTransform(); // back to the widget's pixels
    painter.setRenderHint(QPainter::Antialiasing);
    QFont font = widget.font();
    font.setBold(true);
    painter.setFont(font);
    QRect const room = widget.rect().adjusted(Out, Out, -Out, -Out);
    QRect const place = painter.boundingRect(room, Flags, message);
    QRectF const ground = QRectF(place).adjusted(-MessagePadding + 0.5, -MessagePadding / 2 + 0.5, MessagePadding - 0.5,
                                                 MessagePadding / 2 - 0.5);
    painter.setPen(QColor::fromRgba(MessageEdge));
    painter.setBrush(QColor::fromRgba(MessageGround));
    painter.drawRoundedRect(ground, 4, 4);
    painter.setPen(QColor::fromRgba(MessageText));
    painter.drawText(place, Flags, message);
}
