// An operator at the bandwidth test: starts it, watches its log, answers its questions.
#pragma once

#include "bwtesting.h"
#include "paneltour.h"

#include <QTextEdit>

#include <algorithm>

class BandwidthTour : public PanelTour
{
public:
    BandwidthTour(Robot &robot, Operator &hands) : PanelTour(robot, hands), m_robot(robot), m_hands(hands)
    {
        CBWTesting::s_waits = {16, 20, 40, 600, 40, 20};
    }
    ~BandwidthTour()
    {
        CBWTesting::s_waits = {};
    }

    // GUI thread. Null when none is open.
    static CBWTesting *Dialog()
    {
        for (QWidget *widget : QApplication::topLevelWidgets())
            if (auto *dialog = qobject_cast<CBWTesting *>(widget); dialog && dialog->isVisible())
                return dialog;
        return nullptr;
    }
    // GUI thread. The log of the open dialog, or else of the last one.
    QString Log()
    {
        if (Dialog())
            m_log = Dialog()->findChild<QTextEdit *>()->toPlainText();
        return m_log;
    }
    void WaitForLine(char const *text, int milliseconds = 60000)
    {
        m_robot.WaitFor(
            text, [=, this] { return Log().contains(QLatin1String(text)); }, milliseconds);
    }
    void Begin()
    {
        m_robot.Click(m_hands.Window(), "actionTestBandwidth");
        Choose("Bandwidth testing.", "OK");
        m_robot.WaitFor("the dialog", [] { return Dialog() != nullptr; });
    }
    // Presses the shortest button with that beginning in the message box with that one.
    void Choose(char const *text, char const *button)
    {
        auto const box = [] {
            return qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
        };
        m_robot.WaitFor(
            text, [=] { return box() && box()->text().startsWith(QLatin1String(text)); }, 60000);
        QThread::msleep(200); // let the window manager place it
        m_robot.Screenshot(QStringLiteral("bandwidth-%1-%2").arg(QString::fromLatin1(text).left(4), Robot::TestName()));
        QAbstractButton *const found = m_robot.Gui([&] {
            auto buttons = box()->buttons();
            std::sort(buttons.begin(), buttons.end(), [](auto *a, auto *b) { return a->text() < b->text(); });
            auto const named = [=](QAbstractButton *one) {
                return one->text().remove(QLatin1Char('&')).startsWith(QLatin1String(button));
            };
            auto const first = std::find_if(buttons.begin(), buttons.end(), named);
            return first != buttons.end() ? *first : nullptr;
        });
        ASSERT_TRUE(found) << button;
        m_robot.Click(found);
        m_robot.WaitFor("the answer", [=] { return !box() || !box()->text().startsWith(QLatin1String(text)); });
    }
    void PressButton()
    {
        m_robot.Click(
            m_robot.Gui([] { return Dialog()->findChild<QPushButton *>(QStringLiteral("stopCloseButton")); }));
    }
    void WaitUntilLeft()
    {
        m_robot.WaitFor("the dialog to close", [] { return !Dialog() && !QApplication::activeModalWidget(); });
    }
    // By its button, from a test that has ended.
    void Close()
    {
        PressButton();
        WaitUntilLeft();
    }
    void Look(char const *name)
    {
        m_robot.Screenshot(QStringLiteral("bandwidth-%1-%2").arg(QLatin1String(name), Robot::TestName()));
    }

private:
    Robot &m_robot;
    Operator &m_hands;
    QString m_log; // GUI thread
};
