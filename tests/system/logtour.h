// An operator who reads a camera's traffic in the log panel.
#pragma once

#include "operator.h"

#include "qttovlogmodel.h"
#include "qttovlogviewer.h"

#include <QGroupBox>
#include <QTabBar>

#include <set>

using Channels = std::set<QString>;

class LogTour : public Tour
{
public:
    using Tour::Tour;
    // With small frames, and events where the camera has them.
    void Connect(char const *camera)
    {
        m_hands.Connect(m_robot, camera);
        m_robot.Gui([this] {
            m_hands.Features()->SetIntegerValue("Width", 256);
            m_hands.Features()->SetIntegerValue("Height", 128);
            m_hands.Features()->SetEnumValueStr("EventNotification", "On");
        });
        Play();
    }
    void Play()
    {
        m_hands.Play(m_robot);
        // Its tab is behind the capture panel's at first.
        QPoint const tab = m_robot.Gui([this] {
            for (QTabBar *bar : m_hands.Window()->findChildren<QTabBar *>())
                for (int i = 0; i < bar->count(); ++i)
                    if (bar->tabText(i) == QLatin1String("Log"))
                        return bar->mapToGlobal(bar->tabRect(i).center());
            return QPoint();
        });
        m_robot.ClickAt(tab);
        m_robot.WaitFor("the panel", [this] { return !View()->visibleRegion().isEmpty(); });
    }
    QtTovLogViewer *View() const
    {
        return m_hands.Window()->findChild<QtTovLogViewer *>();
    }
    int Rows() const
    {
        return View()->model()->rowCount();
    }
    // A box is pressed at its indicator: beside the text nothing happens.
    void Press(char const *box)
    {
        m_robot.ClickAt(m_robot.Gui([=, this] {
            auto *const widget = Find<QWidget>(box);
            return widget->mapToGlobal(QPoint(10, qobject_cast<QGroupBox *>(widget) ? 8 : widget->height() / 2));
        }));
    }
    // After what was under way has come, only these channels, and all of them, bring lines.
    void ExpectTraffic(Channels const &expected)
    {
        QThread::msleep(250);
        m_robot.Click(Find<QWidget>("btnClear"));
        auto const seen = [this] {
            Channels channels;
            for (int row = 0; row < std::min(Rows(), 2000); ++row)
                channels.insert(View()->model()->index(row, 1).data().toString());
            return channels;
        };
        m_robot.Gui([this] { m_hands.Features()->SetFloatValue("Gain", 1.0 + ++m_gain % 3); });
        EXPECT_TRUE(m_robot.Holds([&] { return seen() == expected; }, 3000));
        QThread::msleep(300);
        EXPECT_EQ(m_robot.Gui(seen), expected);
    }
    // The second row of those in view. The rows may move on before the click: it goes to a place, not to a row.
    void ClickARow()
    {
        m_robot.ClickAt(m_robot.Gui([=, this] {
            QRect const rect = View()->visualRect(View()->model()->index(View()->rowAt(0) + 1, 2));
            return View()->viewport()->mapToGlobal(QPoint(30, rect.center().y()));
        }));
        QThread::msleep(500); // the click is on its way
    }
    bool Follows() const
    {
        return View()->currentIndex().row() == Rows() - 1;
    }
    void Screenshot(char const *state)
    {
        QThread::msleep(200);
        m_robot.Screenshot(
            QStringLiteral("log-%1-%2").arg(qRound(qApp->devicePixelRatio() * 100)).arg(QLatin1String(state)));
    }

private:
    int m_gain = 0;
};
