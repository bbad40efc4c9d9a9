// A user for tests in a real window: a thread that moves the X pointer, clicks and types through xdotool while the GUI
// thread runs its event loop, nested ones of modal dialogs included.
#pragma once

#include "wait.h"

#include <QAction>
#include <QApplication>
#include <QDir>
#include <QEventLoop>
#include <QImage>
#include <QMainWindow>
#include <QMessageBox>
#include <QProcess>
#include <QPushButton>
#include <QScreen>
#include <QTimer>
#include <QToolBar>
#include <QWidget>

#include <gtest/gtest.h>

#include <exception>
#include <functional>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>

class Robot
{
public:
    // Runs `user` on a thread of its own while this, the GUI thread, processes events; returns when it has ended. An
    // exception out of `user` fails the test.
    static void Run(std::function<void(Robot &)> user)
    {
        QEventLoop loop;
        delete qApp->findChild<QTimer *>(QStringLiteral("closer")); // of a test before that failed
        std::thread thread([&] {
            Robot robot;
            try {
                user(robot);
            } catch (std::exception const &e) {
                robot.Screenshot(QStringLiteral("failed-%1").arg(TestName()));
                ADD_FAILURE() << e.what();
                robot.Gui([] { CloseWhatIsModal(); });
            }
            QMetaObject::invokeMethod(&loop, [&] { loop.quit(); }, Qt::QueuedConnection);
        });
        loop.exec();
        thread.join();
    }

    // From now on nothing modal keeps the GUI thread in a loop, the boxes that come up while the windows are taken down
    // included: nobody will answer them.
    static void CloseWhatIsModal()
    {
        auto *timer = new QTimer(qApp);
        timer->setObjectName(QStringLiteral("closer"));
        QObject::connect(timer, &QTimer::timeout, qApp, [] {
            if (QWidget *modal = QApplication::activeModalWidget())
                modal->close();
        });
        timer->start(100);
    }

    // Runs a function on the GUI thread, also inside a nested event loop, and waits for it. What it throws comes here.
    template<typename F>
    auto Gui(F f) -> decltype(f())
    {
        std::packaged_task<decltype(f())()> task(std::move(f));
        QMetaObject::invokeMethod(qApp, [&] { task(); }, Qt::BlockingQueuedConnection);
        return task.get_future().get();
    }

    bool Holds(std::function<bool()> const &condition)
    {
        return Eventually([&] { return Gui(condition); });
    }

    // Throws when the condition does not come true: what follows would make no sense.
    void WaitFor(std::string const &what, std::function<bool()> const &condition)
    {
        if (Holds(condition))
            return;
        QString const modal = Gui([] {
            QWidget *widget = QApplication::activeModalWidget();
            auto *box = qobject_cast<QMessageBox *>(widget);
            return box ? box->text() : widget ? widget->windowTitle() : QString();
        });
        throw std::runtime_error("waited in vain for " + what +
                                 (modal.isEmpty() ? "" : ", in front stands: " + modal.toStdString()));
    }

    void MoveTo(QPoint global)
    {
        QPoint const at = global * qGuiApp->devicePixelRatio();
        XDo({QStringLiteral("mousemove"), QString::number(at.x()), QString::number(at.y())});
    }

    void ClickAt(QPoint global, int button = 1)
    {
        MoveTo(global);
        Press(button);
    }

    void Click(QWidget *widget, std::function<QPoint()> const &place)
    {
        PointAt(widget, place);
        Press(1);
    }
    void Click(QWidget *widget)
    {
        Click(widget, [=] { return widget->rect().center(); });
    }

    // Two clicks are a double one however late the second comes.
    void DoubleClick(QWidget *widget, std::function<QPoint()> const &place)
    {
        PointAt(widget, place);
        Gui([] { QApplication::setDoubleClickInterval(PatienceMs); });
        XDo({QStringLiteral("click"), QStringLiteral("--repeat"), QStringLiteral("2"), QStringLiteral("--delay"),
             QStringLiteral("60"), QStringLiteral("1")});
    }

    // The button of an action in one of the window's visible toolbars, as soon as it may be used.
    void Click(QMainWindow *window, char const *action)
    {
        QWidget *button = nullptr;
        WaitFor(std::string("a button for ") + action, [&] {
            auto *const found = window->findChild<QAction *>(QString::fromLatin1(action));
            for (QToolBar *bar : window->findChildren<QToolBar *>())
                if (QWidget *const one = found ? bar->widgetForAction(found) : nullptr; one && one->isVisible())
                    button = one;
            return button && button->isEnabled();
        });
        Click(button);
    }

    void Drag(QPoint from, QPoint to)
    {
        MoveTo(from);
        XDo({QStringLiteral("mousedown"), QStringLiteral("1")});
        for (int i = 1; i <= 8; ++i)
            MoveTo(from + (to - from) * i / 8);
        XDo({QStringLiteral("mouseup"), QStringLiteral("1")});
    }

    void Key(char const *name)
    {
        XDo({QStringLiteral("key"), QString::fromLatin1(name)});
    }

    void Type(QString const &text)
    {
        XDo({QStringLiteral("type"), QStringLiteral("--delay"), QStringLiteral("4"), QStringLiteral("--"), text});
    }

    // Waits for a message box, returns its text and presses its default button with the pointer.
    QString AnswerMessageBox()
    {
        auto const box = [] {
            return qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
        };
        WaitFor("a message box", [=] { return box() && box()->isVisible(); });
        QString const text = Gui([=] { return box()->text(); });
        Click(Gui([=] { return box()->findChild<QPushButton *>(); }));
        WaitFor("the message box to close", [=] { return !box() || box()->text() != text; });
        return text;
    }

    // A picture of the whole screen under screenshots/ in the build folder, for a person to look at.
    QImage Screenshot(QString const &name)
    {
        return Gui([=] {
            QImage image = QGuiApplication::primaryScreen()->grabWindow(0).toImage();
            QDir().mkpath(QStringLiteral(TOV_SCREENSHOT_DIR));
            image.save(QStringLiteral(TOV_SCREENSHOT_DIR "/%1.png").arg(name));
            return image;
        });
    }

    static QString TestName()
    {
        auto const *info = testing::UnitTest::GetInstance()->current_test_info();
        return QString::fromLatin1(info ? info->name() : "test").replace(QLatin1Char('/'), QLatin1Char('-'));
    }

private:
    // The pointer onto a place of a widget, by its window as the X server has it. The window manager may still be
    // moving that, of which Qt hears late: both agree once the widget is what Qt finds under the pointer.
    void PointAt(QWidget *widget, std::function<QPoint()> const &place)
    {
        auto const isThere = [&] {
            QStringList arguments{QStringLiteral("mousemove"), QStringLiteral("--window")};
            Gui([&] {
                QPoint const at = widget->mapTo(widget->window(), place());
                arguments << QString::number(widget->window()->winId())
                          << QString::number(qRound(at.x() * widget->devicePixelRatioF()))
                          << QString::number(qRound(at.y() * widget->devicePixelRatioF()));
            });
            XDo(arguments);
            return Gui([&] {
                QWidget *const under = QApplication::widgetAt(QCursor::pos());
                return under && (under == widget || widget->isAncestorOf(under));
            });
        };
        if (!Eventually(isThere))
            throw std::runtime_error("something covers " + Gui([&] { return widget->objectName(); }).toStdString());
    }
    void Press(int button)
    {
        Gui([] { QApplication::setDoubleClickInterval(400); }); // 0 would close what a combo box opens
        XDo({QStringLiteral("click"), QString::number(button)});
    }
    void XDo(QStringList const &arguments)
    {
        QProcess process;
        process.start(QStringLiteral("xdotool"), arguments);
        if (!process.waitForFinished(PatienceMs) || process.exitCode() != 0)
            throw std::runtime_error("xdotool failed: " + process.readAllStandardError().toStdString());
    }
};
