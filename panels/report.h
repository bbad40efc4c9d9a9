// What the dialogs with a report have in common. GUI thread only.
#pragma once

#include <QString>

class QTextBrowser;

namespace Report {

// Shows the text in a fixed-pitch font, for its columns.
void Show(QTextBrowser *browser, QString const &text);

// The file name that a session's title suggests.
QString SuggestedFileName(QString title);

// Asks for a file and writes the text into it in UTF-8; a file that cannot be opened is silently left alone. The rest
// of a longer file stays after the text.
void SaveAs(QString const &suggestedName, QString const &text);

} // namespace Report
