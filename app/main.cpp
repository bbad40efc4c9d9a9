#include "noticeboard.h"
#include "rights.h"
#include "tovlog.h"
#include "tovscope.h"

#include <QApplication>
#include <QScreen>
#include <QString>

#include <chrono>
#include <cstdlib>
#include <thread>

namespace {

constexpr std::chrono::milliseconds LongestEnd{2500};

// A camera or a file system that does not answer must not keep the process alive without a window. By then all settings
// are stored, and the recording was the first to be ended.
void EndInAnyCase()
{
    std::thread([] {
        std::this_thread::sleep_for(LongestEnd);
        std::_Exit(EXIT_SUCCESS);
    }).detach();
}

// The helper tovscope-capture has the one right that the program needs.
void TellRights()
{
    NoticeBoard::Instance().Report(
        NoticeTopic::Program, NoticeLevel::Warning,
        QCoreApplication::translate("main", "The program was given rights that it does not need. It has given them up "
                                            "until its next start; this command takes them away: sudo setcap -r %1")
            .arg(QCoreApplication::applicationFilePath()));
}

} // namespace

int main(int argc, char **argv)
{
    bool const hadRights = GiveUpRights();
    TovLog4Cpp_configure("tovscopelog.property", "TOVSCP");

    QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
    QCoreApplication::setAttribute(Qt::AA_UseHighDpiPixmaps);
    QCoreApplication::setApplicationName(QStringLiteral("TovScope"));
    QApplication application(argc, argv);

    // The keywords are recognised by their position.
    QString const first = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QString();
    QString const second = argc > 2 ? QString::fromLocal8Bit(argv[2]) : QString();

    bool const rigTest = first == QLatin1String("rigtest");
    bool const autoRun = second == QLatin1String("auto");
    TovScope window(nullptr, rigTest, autoRun);
    // On a small screen the right and lower edges would be out of the operator's reach. A restored window fits already.
    QSize const room = window.screen()->availableSize();
    bool const attended = !(rigTest && autoRun);
    if (attended && (window.width() > room.width() || window.height() > room.height()))
        window.setWindowState(window.windowState() | Qt::WindowMaximized);
    // Not when the last window closes: floating panels and dialogs would keep the program.
    QApplication::setQuitOnLastWindowClosed(false);
    QObject::connect(&window, &TovScope::closed, &application, [] {
        EndInAnyCase();
        QCoreApplication::quit();
    });
    window.show();
    if (hadRights)
        TellRights();
    return QApplication::exec();
}
