#include "tovlog.h"
#include "tovscope.h"

#include <QApplication>
#include <QScreen>
#include <QString>

int main(int argc, char **argv)
{
    TovLog4Cpp_configure("tovscopelog.property", "TOVSCP");

    QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
    QCoreApplication::setAttribute(Qt::AA_UseHighDpiPixmaps);
    QCoreApplication::setApplicationName(QStringLiteral("TovScope"));
    QApplication application(argc, argv);

    // The keywords work by position.
    QString const first = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QString();
    QString const second = argc > 2 ? QString::fromLocal8Bit(argv[2]) : QString();

    TovScope window(nullptr, first == QLatin1String("rigtest"), second == QLatin1String("auto"));
    // On a small screen the right and lower edges would be out of reach. A window that was restored fits already.
    QSize const room = window.screen()->availableSize();
    if (window.width() > room.width() || window.height() > room.height())
        window.setWindowState(window.windowState() | Qt::WindowMaximized);
    window.show();
    return QApplication::exec();
}
