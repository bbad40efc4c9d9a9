// Texts of a camera for the eyes of an operator: whatever it sends is shown as it stands, and only there.
//
// A camera names itself, its features and their values. Qt takes a text that begins like HTML for HTML, in labels and
// tooltips; line breaks make one line look like several, and characters for the direction of text make one look like
// another. What is stored, or given back to the camera, keeps all of it. Any thread.
#pragma once

#include <QString>
#include <QVector>

// Whether the character has no look of its own: control characters, line breaks, what turns the direction of text. The
// joiners that some scripts are spelled with are not among them.
inline bool TovIsInvisible(uint character)
{
    switch (QChar::category(character)) {
    case QChar::Other_Control:
    case QChar::Separator_Line:
    case QChar::Separator_Paragraph:
        return true;
    case QChar::Other_Format:
        return character != 0x200C && character != 0x200D;
    default:
        return false;
    }
}

// One line without such characters: a blank for what breaks a line or is a tabulator, nothing for the others. `most`
// are characters; of a longer text the beginning, and an ellipsis.
inline QString TovPlainLine(QString const &text, int most = 500)
{
    QString line;
    for (uint const character : text.left(2 * most).toUcs4()) {
        if (!TovIsInvisible(character))
            line += QString::fromUcs4(&character, 1);
        else if (QChar::isSpace(character))
            line += QLatin1Char(' ');
    }
    if (line.size() <= most && text.size() <= 2 * most)
        return line;
    line.truncate(most - 1);
    if (!line.isEmpty() && line.at(line.size() - 1).isHighSurrogate())
        line.chop(1);
    return line + QChar(0x2026);
}

// For the name of a file: without what leads to another folder, hides the file, or is longer than file systems take.
inline QString TovPlainFileName(QString const &text)
{
    constexpr int MostBytes = 200; // 255, less what is put behind
    QString name;
    for (uint const character : text.toUcs4()) {
        if (!TovIsInvisible(character))
            name += character == '/' ? QStringLiteral("_") : QString::fromUcs4(&character, 1);
        if (name.toUtf8().size() > MostBytes) {
            name.chop(character > 0xFFFF ? 2 : 1);
            break;
        }
    }
    return name.startsWith(QLatin1Char('.')) ? QLatin1Char('_') + name : name;
}
