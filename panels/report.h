// What the dialogs with a report have in common. GUI thread only.
#pragma once

#include <QString>

class QTextBrowser;

namespace Report {

// Shows the text in a fixed pitch, which its columns are made for.
void Show(QTextBrowser *browser, QString const &text);

// The file name that a session's title suggests.
QString SuggestedFileName(QString title);

// Writes the text in UTF-8; a file that cannot be opened is silently left alone. What a longer file held behind the
// text stays there.
void Write(QString const &path, QString const &text);

} // namespace Report
