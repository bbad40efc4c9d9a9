// Texts of a camera in tooltips. Any thread.
#pragma once

#include "tovplaintext.h"

#include <QStringList>
#include <QTextDocument>

// Qt breaks the lines of a tooltip at blanks alone, and only those of HTML: a word of a thousand letters would make it
// wider than the screen. Such words get places to break them, which cannot be seen.
inline QString TovBreakable(QString const &text)
{
    constexpr int LongestWord = 50;
    QString out;
    int word = 0;
    for (QChar const character : text) {
        word = character.isSpace() ? 0 : word + 1;
        out += character;
        if (word >= LongestWord && !character.isHighSurrogate()) {
            out += QChar(0x200B);
            word = 0;
        }
    }
    return out;
}

// TovPlainLine for each line, and never taken for HTML: a text that would be becomes HTML that shows it, and so does
// one with long lines, which only HTML breaks.
inline QString TovPlainTip(QString const &text)
{
    constexpr int MostLines = 40, LongestLine = 150;
    QStringList lines = text.split(QLatin1Char('\n')).mid(0, MostLines);
    bool isLong = false;
    for (QString &line : lines) {
        line = TovPlainLine(line, 2000);
        isLong = isLong || line.size() > LongestLine;
    }
    QString tip = lines.join(QLatin1Char('\n'));
    if (!isLong && !Qt::mightBeRichText(tip))
        return tip;
    return QStringLiteral("<p>%1</p>")
        .arg(TovBreakable(tip).toHtmlEscaped().replace(QLatin1Char('\n'), QStringLiteral("<br>")));
}
