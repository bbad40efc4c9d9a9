// An operator who reads the protocol's traffic, by real clicks.
#include "operator.h"

#include "qttovlogmodel.h"
#include "qttovlogviewer.h"

#include "tovcamera.h"

#include <QCheckBox>
#include <QGroupBox>
#include <QHeaderView>
#include <QRegularExpression>
#include <QScrollBar>
#include <QTabBar>
#include <QTemporaryDir>

#include <set>
#include <string>

namespace {

using Channels = std::set<QString>;

class LogTour
{
public:
    LogTour(Robot &robot, Operator &hands) : m_robot(robot), m_hands(hands)
    {
    }
    void Connect(char const *camera)
    {
        m_hands.Connect(m_robot, camera);
        m_robot.Gui([this] {
            Features()->SetIntegerValue("Width", 256);
            Features()->SetIntegerValue("Height", 128);
            Features()->SetEnumValueStr("EventNotification", "On");
        });
        m_hands.Play(m_robot);
        // Its tab is behind the statistics' at first.
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
    template<typename W>
    W *Find(char const *name) const
    {
        return m_hands.Window()->findChild<W *>(QString::fromLatin1(name));
    }
    QtTovLogViewer *View() const
    {
        return m_hands.Window()->findChild<QtTovLogViewer *>();
    }
    TovCam::ParamArray *Features() const
    {
        return m_hands.CurrentSession()->GetDevice()->GetCameraParameters(nullptr);
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
        m_robot.Gui([this] { Features()->SetFloatValue("Gain", 1.0 + ++m_gain % 3); });
        EXPECT_TRUE(m_robot.Holds([&] { return seen() == expected; }, 3000));
        QThread::msleep(300);
        EXPECT_EQ(m_robot.Gui(seen), expected);
    }
    void ClickRow(int row)
    {
        m_robot.ClickAt(m_robot.Gui([=, this] {
            QRect const rect = View()->visualRect(View()->model()->index(row, 2));
            return View()->viewport()->mapToGlobal(QPoint(30, rect.center().y()));
        }));
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
    Robot &m_robot;
    Operator &m_hands;
    int m_gain = 0;
};

class LogOfEachKind : public testing::TestWithParam<char const *>
{
};

TEST_P(LogOfEachKind, IsSwitchedReadSavedAndOutlivesItsCamera)
{
    QTemporaryDir const folder;
    Operator::Run([&](Robot &robot, Operator &hands) {
        LogTour tour(robot, hands);
        tour.Connect(GetParam());
        tour.Screenshot("off");

        // Boxes cannot be pressed before logging is on; then in any order.
        Channels const none;
        tour.Press("chkStream");
        tour.ExpectTraffic(none);
        tour.Press("groupLogging");
        tour.ExpectTraffic(none);
        tour.Press("chkStream");
        tour.ExpectTraffic({QStringLiteral("Stream")});
        tour.Press("chkControl");
        tour.ExpectTraffic({QStringLiteral("Stream"), QStringLiteral("Control")});
        tour.Press("chkStream");
        tour.ExpectTraffic({QStringLiteral("Control")});
        tour.Press("groupLogging");
        tour.ExpectTraffic(none);
        tour.Press("groupLogging");
        tour.ExpectTraffic({QStringLiteral("Control")});
        tour.Press("chkEvent");
        tour.ExpectTraffic({QStringLiteral("Event"), QStringLiteral("Control")});
        tour.Press("chkStream");
        tour.ExpectTraffic({QStringLiteral("Event"), QStringLiteral("Stream"), QStringLiteral("Control")});

        // The view follows until a row is selected, and again from the last one on.
        robot.WaitFor("rows", [&] { return tour.Rows() > 100 && tour.Follows(); });
        tour.Screenshot("following");
        int const top = robot.Gui([&] { return tour.View()->rowAt(0) + 1; });
        tour.ClickRow(top);
        int const chosen = robot.Gui([&] { return tour.View()->currentIndex().row(); });
        int const rows = robot.Gui([&] { return tour.Rows(); });
        robot.WaitFor("more rows", [&] { return tour.Rows() > rows + 50; });
        EXPECT_EQ(robot.Gui([&] { return tour.View()->currentIndex().row(); }), chosen);
        tour.Screenshot("selected");
        tour.Press("groupLogging"); // the lines stay
        QThread::msleep(300);
        EXPECT_GT(robot.Gui([&] { return tour.Rows(); }), rows);
        robot.Click(tour.View()->viewport());
        robot.Key("ctrl+End");
        robot.WaitFor("the last row", [&] { return tour.Follows(); });
        int const last = robot.Gui([&] { return tour.Rows(); });

        // Saved as shown; a refused place is told, and the lines stay.
        QString const path = folder.filePath(QStringLiteral("traffic.log"));
        robot.Click(tour.Find<QWidget>("btnSave"));
        robot.AnswerFileDialog(path);
        robot.WaitFor("the file", [&] { return QFileInfo(path).size() > 0; });
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::ReadOnly));
        auto const lines =
            QString::fromUtf8(robot.Gui([&] { return file.readAll(); })).split(u'\n', Qt::SkipEmptyParts);
        EXPECT_EQ(lines.size(), last);
        QRegularExpression const form(QStringLiteral("^\\d\\d:\\d\\d:\\d\\d\\.\\d{3} (Control|Event|Stream) .*="));
        for (QString const &line : lines)
            EXPECT_TRUE(form.match(line).hasMatch()) << line.toStdString();
        robot.Click(tour.Find<QWidget>("btnSave"));
        robot.AnswerFileDialog(QStringLiteral("/proc/traffic.log"));
        EXPECT_NE(robot.AnswerMessageBox(), QString());
        EXPECT_EQ(robot.Gui([&] { return tour.Rows(); }), last);

        tour.Press("groupLogging");
        robot.WaitFor("the view to go on", [&] { return tour.Rows() > last + 50 && tour.Follows(); });

        // However the connection ends, the next one starts quiet and logs as ever.
        robot.Gui([&] { tour.Features()->ExecuteCommand("SimLoseCamera"); });
        EXPECT_EQ(robot.AnswerMessageBox(30000), QStringLiteral("Connection to the Camera was lost"));
        robot.WaitFor("the disconnected picture", [&] { return hands.CurrentSession() == nullptr; });
        for (int round = 0; round < 2; ++round) {
            tour.Connect(GetParam());
            tour.ExpectTraffic(none);
            tour.Press("groupLogging");
            tour.Press("chkStream");
            tour.ExpectTraffic({QStringLiteral("Stream")});
            if (round == 0)
                hands.Disconnect(robot);
        }
        robot.Key("alt+F4");
        robot.WaitFor("the window to close", [&] { return !hands.Window()->isVisible(); });
    });
}

INSTANTIATE_TEST_SUITE_P(Clicks, LogOfEachKind, testing::Values("20480117", "19200342", "12800058"));

} // namespace
