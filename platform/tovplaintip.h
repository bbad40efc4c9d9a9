// Texts of a camera in tooltips. Any thread.
#pragma once

#include "tovplaintext.h"

#include <QStringList>
#include <QTextDocument>

// TovPlainLine for each line, and never taken for HTML: a text that would be becomes HTML that shows it.
inline QString TovPlainTip(QString const &text)
{
    constexpr int MostLines = 40;
    QStringList lines = text.split(QLatin1Char('\n')).mid(0, MostLines);
    for (QString &line : lines)
        line = TovPlainLine(line, 2000);
    QString tip = lines.join(QLatin1Char('\n'));
    if (!Qt::mightBeRichText(tip))
        return tip;
    return QStringLiteral("<p>%1</p>").arg(tip.toHtmlEscaped().replace(QLatin1Char('\n'), QStringLiteral("<br>")));
}
