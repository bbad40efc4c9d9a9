#include "ticklabels.h"

#include <QFontMetrics>

#include <algorithm>
#include <cmath>
#include <cstddef>

QRect InkOf(QFontMetrics const &metrics, QPoint at, QString const &text)
{
    int const blanks =
        static_cast<int>(std::find_if(text.begin(), text.end(), [](QChar c) { return !c.isSpace(); }) - text.begin());
    return metrics.tightBoundingRect(text.mid(blanks))
        .translated(at + QPoint(metrics.horizontalAdvance(text.left(blanks)), 0));
}

QRect UprightInkOf(QFontMetrics const &metrics, QPoint at, QString const &text)
{
    QRect const flat = InkOf(metrics, QPoint(0, 0), text);
    return {at.x() + flat.top(), at.y() - flat.right(), flat.height(), flat.width()};
}

bool Touch(QRect const &a, QRect const &b)
{
    return a.adjusted(-TextGap, -TextGap, TextGap, TextGap).intersects(b);
}

void ThinLabels(std::vector<TickLabel> &ticks, bool log)
{
    auto const keep = [&](std::size_t stride) {
        double const step = ticks.size() < 2 ? 0.0 : static_cast<double>(stride) * (ticks[1].value - ticks[0].value);
        std::size_t first = 0;
        for (std::size_t i = 0; i < std::min(stride, ticks.size()) && first == 0; ++i) {
            if (std::fabs(std::remainder(ticks[i].value, step)) < 1e-6 * step)
                first = i;
        }
        TickLabel const *last = nullptr;
        bool apart = true;
        for (std::size_t i = 0; i < ticks.size(); ++i) {
            ticks[i].kept = i % stride == first && !(log && last && Touch(last->ink, ticks[i].ink));
            if (!ticks[i].kept)
                continue;
            apart = apart && !(last && Touch(last->ink, ticks[i].ink));
            last = &ticks[i];
        }
        return apart;
    };
    for (std::size_t decade = 1; decade <= ticks.size(); decade *= 10) {
        if (keep(decade) || keep(2 * decade) || keep(5 * decade))
            return;
    }
}
