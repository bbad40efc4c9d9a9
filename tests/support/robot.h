// A user for tests in a real window: a thread that moves the X pointer, clicks and types through xdotool while the GUI
// thread runs its event loop, nested ones of modal dialogs included.
#pragma once

#include <QAction>
#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFileDialog>
#include <QImage>
#include <QMainWindow>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QProcess>
#include <QPushButton>
#include <QScreen>
#include <QThread>
#include <QTimer>
#include <QToolBar>
#include <QWidget>

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
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

    // Runs a function on the GUI thread, also inside a nested event loop, and waits for it.
    template<typename F>
    auto Gui(F f) -> decltype(f())
    {
        if constexpr (std::is_void_v<decltype(f())>) {
            QMetaObject::invokeMethod(qApp, [&] { f(); }, Qt::BlockingQueuedConnection);
        } else {
            decltype(f()) result{};
            QMetaObject::invokeMethod(qApp, [&] { result = f(); }, Qt::BlockingQueuedConnection);
            return result;
        }
    }

    bool Holds(std::function<bool()> condition, int milliseconds = 10000)
    {
        QElapsedTimer timer;
        timer.start();
        while (!Gui(condition)) {
            if (timer.elapsed() > milliseconds)
                return false;
            QThread::msleep(20);
        }
        return true;
    }

    // Throws when the condition does not come true: what follows would make no sense.
    void WaitFor(char const *what, std::function<bool()> condition, int milliseconds = 10000)
    {
        if (Holds(std::move(condition), milliseconds))
            return;
        QString const modal = Gui([] {
            QWidget *widget = QApplication::activeModalWidget();
            auto *box = qobject_cast<QMessageBox *>(widget);
            return box ? box->text() : widget ? widget->windowTitle() : QString();
        });
        throw std::runtime_error(std::string("waited in vain for ") + what +
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
        XDo({QStringLiteral("click"), QString::number(button)});
    }

    // Goes by the window as the X server has it: Qt may not have heard yet where the window manager put a new one.
    void Click(QWidget *widget)
    {
        QStringList arguments{QStringLiteral("mousemove"), QStringLiteral("--window")};
        Gui([&] {
            QPoint const at = widget->mapTo(widget->window(), widget->rect().center());
            arguments << QString::number(widget->window()->winId())
                      << QString::number(qRound(at.x() * widget->devicePixelRatioF()))
                      << QString::number(qRound(at.y() * widget->devicePixelRatioF()));
        });
        XDo(arguments);
        XDo({QStringLiteral("click"), QStringLiteral("1")});
    }

    // The button of an action in one of the window's visible toolbars.
    void Click(QMainWindow *window, char const *action)
    {
        QPoint at = Gui([=] {
            auto *found = window->findChild<QAction *>(QString::fromLatin1(action));
            for (QToolBar *bar : window->findChildren<QToolBar *>())
                if (QWidget *button = found ? bar->widgetForAction(found) : nullptr; button && button->isVisible())
                    return button->mapToGlobal(button->rect().center());
            return QPoint(-1, -1);
        });
        if (at.x() < 0)
            throw std::runtime_error(std::string("no visible button for ") + action);
        ClickAt(at);
    }

    // An action through its menu in the menu bar.
    void ClickMenu(QMainWindow *window, char const *action)
    {
        auto *found = Gui([=] { return window->findChild<QAction *>(QString::fromLatin1(action)); });
        auto *menu = Gui([=] {
            for (QMenu *menu : window->menuBar()->findChildren<QMenu *>())
                if (menu->actions().contains(found))
                    return menu;
            return static_cast<QMenu *>(nullptr);
        });
        if (!menu)
            throw std::runtime_error(std::string("no menu with ") + action);
        ClickAt(Gui([=] {
            QMenuBar *bar = window->menuBar();
            return bar->mapToGlobal(bar->actionGeometry(menu->menuAction()).center());
        }));
        WaitFor("the menu", [=] { return menu->isVisible(); });
        ClickAt(Gui([=] { return menu->mapToGlobal(menu->actionGeometry(found).center()); }));
    }

    void DoubleClickAt(QPoint global)
    {
        MoveTo(global);
        XDo({QStringLiteral("click"), QStringLiteral("--repeat"), QStringLiteral("2"), QStringLiteral("--delay"),
             QStringLiteral("60"), QStringLiteral("1")});
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

    // Waits for a file dialog, gives it the name and waits until it has gone.
    void AnswerFileDialog(QString const &file)
    {
        auto const dialog = [] {
            return qobject_cast<QFileDialog *>(QApplication::activeModalWidget());
        };
        WaitFor("a file dialog", [=] { return dialog() && dialog()->isActiveWindow(); });
        QThread::msleep(150); // let the window manager place it
        Key("ctrl+a");
        Type(file);
        Key("Return");
        WaitFor("the file dialog to close", [=] { return !dialog(); });
    }

    // Waits for a message box, returns its text and presses its default button with the pointer.
    QString AnswerMessageBox(int milliseconds = 10000)
    {
        WaitFor(
            "a message box", [] { return qobject_cast<QMessageBox *>(QApplication::activeModalWidget()) != nullptr; },
            milliseconds);
        QThread::msleep(150); // let the window manager place it
        QPoint at;
        QString text = Gui([&] {
            auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
            QPushButton *button = box->findChild<QPushButton *>();
            at = button->mapToGlobal(button->rect().center());
            return box->text();
        });
        ClickAt(at);
        WaitFor("the message box to close", [=] {
            auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
            return !box || box->text() != text;
        });
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
    void XDo(QStringList const &arguments)
    {
        QProcess process;
        process.start(QStringLiteral("xdotool"), arguments);
        if (!process.waitForFinished(10000) || process.exitCode() != 0)
            throw std::runtime_error("xdotool failed: " + process.readAllStandardError().toStdString());
    }
};
