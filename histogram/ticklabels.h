// Where the labels of an axis go, and which of them are left out because they would touch. Coordinates are those of the
// painter's device.
#pragma once

#include <QPoint>
#include <QRect>
#include <QString>

#include <vector>

class QFontMetrics;

// A tick of an axis as it is drawn.
struct TickLabel
{
    double value;
    QPoint at;    // where the text begins, on its base line
    QString text; // empty for none
    QRect ink;    // of the text
    bool kept = true;
};

constexpr int TextGap = 3; // pixels between two texts, at least

// The pixels of a text that is drawn at that point; blanks before it have none.
QRect InkOf(QFontMetrics const &metrics, QPoint at, QString const &text);
// The same for a text that reads upwards.
QRect UprightInkOf(QFontMetrics const &metrics, QPoint at, QString const &text);
// Whether two texts are closer to each other than the gap.
bool Touch(QRect const &a, QRect const &b);

// Keeps so few labels that none touches the next. Ticks that are evenly spaced stay so: every second, fifth or tenth is
// kept, and so on, those of round values first. On a logarithmic axis single labels are left out as well.
void ThinLabels(std::vector<TickLabel> &ticks, bool log);
