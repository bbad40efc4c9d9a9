#include "report.h"

#include "tovplaintext.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileDialog>
#include <QTextBrowser>

void Report::Show(QTextBrowser *browser, QString const &text)
{
    QFont font = browser->font();
    font.setStyleHint(QFont::TypeWriter); // where the named family is not installed
    browser->setFont(font);
    browser->setPlainText(text);
}

QString Report::SuggestedFileName(QString title)
{
    for (char const unwanted : {' ', '[', ']'})
        title.remove(QLatin1Char(unwanted));
    return TovPlainFileName(title.replace(QLatin1String(",SN:"), QLatin1String("_")));
}

void Report::SaveAs(QString const &suggestedName, QString const &text)
{
    QString const path =
        QFileDialog::getSaveFileName(nullptr, QCoreApplication::translate("Report", "Save camera info"), suggestedName,
                                     QCoreApplication::translate("Report", "Text file (*.txt)"));
    if (path.isEmpty())
        return;
    QFile file(path);
    // Not truncated: the rest of a longer file stays after the text.
    if (file.open(QIODevice::ReadWrite | QIODevice::Text))
        file.write(text.toUtf8());
}
