#include "guide.h"

#include "noticeboard.h"

#include <QCoreApplication>
#include <QDesktopServices>
#include <QDir>
#include <QFileInfo>
#include <QUrl>

namespace {

// From the executable's folder: installed, and in the build tree.
constexpr char const *Places[] = {"../share/tovscope/docs/guide.md", "../../../docs/guide.md"};

} // namespace

QString Guide::Find(QString const &programFolder)
{
    for (char const *const place : Places) {
        QFileInfo const file(QDir(programFolder), QString::fromLatin1(place));
        if (file.isFile())
            return file.canonicalFilePath();
    }
    return {};
}

void Guide::Open()
{
    NoticeBoard &board = NoticeBoard::Instance();
    QString const path = Find(QCoreApplication::applicationDirPath());
    if (path.isEmpty())
        board.Report(
            NoticeTopic::Program, NoticeLevel::Warning,
            QCoreApplication::translate("Guide", "The guide is not installed; it is docs/guide.md in the source"));
    else if (QDesktopServices::openUrl(QUrl::fromLocalFile(path)))
        board.Report(NoticeTopic::Program, NoticeLevel::Info,
                     QCoreApplication::translate("Guide", "The guide: %1").arg(path));
    else
        board.Report(
            NoticeTopic::Program, NoticeLevel::Warning,
            QCoreApplication::translate("Guide", "No program on this computer opens the guide; it is the text file %1")
                .arg(path));
}
