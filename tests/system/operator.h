// What an operator does with the main window, step by step, for the tests that click.
#pragma once

#include "params.h"
#include "robot.h"

#include "displayview.h"
#include "guimanager.h"
#include "session.h"
#include "tovcamera.h"
#include "tovscope.h"

#include <QLabel>
#include <QSettings>
#include <QStatusBar>
#include <QTreeView>

// The serial numbers of the simulated cameras, in the order of the selector.
inline char const *const Serials[] = {"20480117", "19200342", "12800058"};

// A window of the program with settings of its own, and the hands of a user on it. Made on the GUI thread; the steps
// run on the user's.
class Operator
{
public:
    explicit Operator(TovScope &window) : m_window(&window)
    {
    }

    // Lets the user act on a fresh window; closes it at the end.
    static void Run(std::function<void(Robot &, Operator &)> user)
    {
        QSettings(QStringLiteral("Velmor"), QStringLiteral("TovScope")).clear();
        TovScope window(nullptr, false, false);
        window.show();
        Robot::Run([&](Robot &robot) {
            Operator hands(window);
            robot.WaitFor("the window", [&] { return window.isVisible() && window.isActiveWindow(); });
            user(robot, hands);
            robot.Gui([&] { window.close(); });
        });
    }

    TovScope *Window() const
    {
        return m_window;
    }
    // GUI thread.
    Session *CurrentSession() const
    {
        return m_window->GetGuiManager().GetSession();
    }
    // GUI thread.
    SessionState State() const
    {
        return CurrentSession() ? CurrentSession()->GetState() : SessionStateDisconnected;
    }
    // GUI thread. The frame that the picture shows, 0 when there is none.
    std::uint64_t ShownFrame() const
    {
        _TovImage *image = nullptr;
        if (!CurrentSession() || !CurrentSession()->GetDisplayView()->GetDisplayedImageRaw(&image))
            return 0;
        return image->frameID;
    }
    // GUI thread. A counter of the grabber.
    long Counter(char const *key) const
    {
        return CurrentSession() ? IntOf(CurrentSession()->GetGrabber(), key) : -1;
    }
    // GUI thread.
    QString Title() const
    {
        return m_window->windowTitle();
    }
    TovCam::ParamArray *Features() const
    {
        return CurrentSession()->GetDevice()->GetCameraParameters(nullptr);
    }

    // Opens the selector and waits until it lists a camera whose row holds the text; gives its list.
    QTreeView *OpenSelector(Robot &robot, char const *camera)
    {
        robot.Click(m_window, "actionConnect");
        robot.WaitFor(std::string(camera) + " in the selector", [=] { return !FindCamera(camera).isNull(); });
        return robot.Gui([] { return SelectorList(); });
    }

    void Connect(Robot &robot, char const *camera)
    {
        robot.DoubleClick(OpenSelector(robot, camera), [=] { return FindCamera(camera); });
        robot.WaitFor("the session to be idle",
                      [=, this] { return !QApplication::activeModalWidget() && State() == SessionStateIdle; });
    }

    void Play(Robot &robot)
    {
        robot.Click(m_window, "actionPlay");
        robot.WaitFor("acquisition", [this] { return State() == SessionStateAcquisition; });
        robot.WaitFor("a picture", [this] { return ShownFrame() != 0; });
    }

    void Stop(Robot &robot)
    {
        robot.Click(m_window, "actionStop");
        robot.WaitFor("idle", [this] { return State() == SessionStateIdle; });
    }

    void Disconnect(Robot &robot)
    {
        robot.Click(m_window, "actionDisconnect");
        robot.WaitFor("the disconnection", [this] { return CurrentSession() == nullptr; });
    }

    // What follows on a lost camera.
    void AnswerLoss(Robot &robot)
    {
        EXPECT_EQ(robot.AnswerMessageBox(), QStringLiteral("Connection to the Camera was lost"));
        robot.WaitFor("the disconnected picture", [this] { return CurrentSession() == nullptr; });
        EXPECT_EQ(robot.Gui([this] { return Title(); }), QStringLiteral("TovScope - Camera is not connected"));
    }

private:
    // GUI thread, as the next. Null while no selector is open.
    static QTreeView *SelectorList()
    {
        auto *dialog = qobject_cast<QDialog *>(QApplication::activeModalWidget());
        return dialog ? dialog->findChild<QTreeView *>() : nullptr;
    }
    // A place in the list's first row that holds the text.
    static QPoint FindCamera(char const *text)
    {
        QTreeView *const tree = SelectorList();
        for (int column = 0; tree && tree->model() && column < tree->model()->columnCount(); ++column) {
            auto const found = tree->model()->match(tree->model()->index(0, column), Qt::DisplayRole,
                                                    QString::fromUtf8(text), 1, Qt::MatchContains | Qt::MatchRecursive);
            QRect const rect = found.isEmpty() ? QRect() : tree->visualRect(found.first());
            if (!rect.isEmpty())
                return tree->viewport()->mapTo(tree, QPoint(rect.left() + 20, rect.center().y()));
        }
        return {};
    }

    TovScope *m_window;
};

// What an operator does with one part of the program, whatever the camera.
class Tour
{
public:
    Tour(Robot &robot, Operator &hands) : m_robot(robot), m_hands(hands)
    {
    }
    // GUI thread. A part of the window.
    template<typename W>
    W *Find(char const *name) const
    {
        W *const found = m_hands.Window()->findChild<W *>(QString::fromLatin1(name));
        if (!found)
            throw std::runtime_error(std::string("no ") + name);
        return found;
    }

protected:
    Robot &m_robot;
    Operator &m_hands;
};
