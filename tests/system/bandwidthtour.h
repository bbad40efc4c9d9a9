// An operator at the bandwidth test: starts it, watches its log, answers its questions.
#pragma once

#include "bwtesting.h"
#include "paneltour.h"

#include <QTextEdit>

class BandwidthTour : public PanelTour
{
public:
    BandwidthTour(Robot &robot, Operator &hands) : PanelTour(robot, hands)
    {
        CBWTesting::s_waits = {16, 20, 40, 1000, 40, 20};
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
    static QTextEdit *Log()
    {
        return Dialog()->findChild<QTextEdit *>();
    }
    void WaitForLine(char const *text)
    {
        m_robot.WaitFor(text, [=] { return Dialog() && Log()->toPlainText().contains(QLatin1String(text)); }, 60000);
    }
    void Begin()
    {
        m_robot.Click(m_hands.Window(), "actionTestBandwidth");
        Choose("Bandwidth testing.", QStringLiteral("OK"));
    }
    // Presses the button of that text in the message box with that beginning.
    void Choose(char const *text, QString const &button)
    {
        auto const box = [=] {
            auto *found = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
            return found && found->text().startsWith(QLatin1String(text)) ? found : nullptr;
        };
        m_robot.WaitFor(text, [=] { return box() != nullptr; }, 60000);
        QThread::msleep(200); // let the window manager place it
        Look(QString::fromLatin1(text).left(4));
        QPushButton *found = nullptr;
        m_robot.Gui([&] {
            for (QPushButton *one : box()->findChildren<QPushButton *>())
                found = one->text().remove(QLatin1Char('&')) == button ? one : found;
        });
        ASSERT_TRUE(found);
        m_robot.Click(found);
        m_robot.WaitFor("the answer", [=] { return !box(); });
    }
    void PressButton()
    {
        m_robot.Click(
            m_robot.Gui([] { return Dialog()->findChild<QPushButton *>(QStringLiteral("stopCloseButton")); }));
    }
    void WaitUntilLeft()
    {
        m_robot.WaitFor("the end", [] { return !Dialog() && !QApplication::activeModalWidget(); });
        EXPECT_NE(m_robot.Gui([&] { return m_hands.State(); }), SessionStateAcquisition);
    }
    void IsRefused()
    {
        Begin();
        WaitForLine("Device is not compatible. Test is impossible.");
        Look(QStringLiteral("refused"));
        PressButton();
        WaitUntilLeft();
        m_hands.Play(m_robot);
    }
    void Look(QString const &name)
    {
        m_robot.Screenshot(QStringLiteral("bandwidth-%1-%2").arg(name, Robot::TestName()));
    }
};
