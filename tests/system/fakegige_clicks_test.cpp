// An operator with a GigE Vision camera that is not ours, on loopback in a network namespace: seen by the selector,
// watched, lost, and found again.
#include "captureright.h"
#include "fakegige.h"
#include "operator.h"

#include "qttovlogmodel.h"
#include "qttovlogviewer.h"

#include <QCheckBox>
#include <QGroupBox>
#include <QTabBar>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <set>
#include <tuple>
#include <utility>

namespace {

// Before any system is made.
bool const s_gigeOnly = setenv("TOV_CAMERA_INTERFACES", "gige", 1) == 0;

TEST(FakeGigE, IsListedWatchedLostAndFoundAgain)
{
    Operator::Run([](Robot &robot, Operator &hands) {
        auto camera = std::make_unique<FakeGigECamera>();
        hands.Connect(robot, FakeGigECamera::Serial);
        // None may be lost; a machine with other work gets small frames and more than one try.
        robot.Gui([&] { hands.Features()->SetIntegerValue("Height", 128); });
        bool lossless = false;
        for (int attempt = 0; attempt < 5 && !lossless; ++attempt) {
            if (attempt > 0)
                hands.Stop(robot);
            hands.Play(robot);
            robot.WaitFor("300 frames", [&] { return hands.Counter("FramesAcquired") >= 300; });
            lossless =
                robot.Gui([&] { return hands.Counter("FramesIncomp") == 0 && hands.Counter("FramesDroppedHW") == 0; });
        }
        EXPECT_TRUE(lossless);
        robot.Screenshot(QStringLiteral("gige-live"));

        camera->Kill();
        hands.AnswerLoss(robot);

        camera = std::make_unique<FakeGigECamera>();
        hands.Connect(robot, FakeGigECamera::Serial);
        hands.Play(robot);
        hands.Stop(robot);
        hands.Disconnect(robot);
    });
}

using Channels = std::set<QString>;

// An operator who reads the camera's traffic in the log panel.
class LogTour : public Tour
{
public:
    using Tour::Tour;

    // Small frames run, and the log is in front: its tab is behind the capture panel's at first.
    void Begin()
    {
        m_hands.Connect(m_robot, FakeGigECamera::Serial);
        m_robot.Gui([this] {
            m_hands.Features()->SetIntegerValue("Width", 256);
            m_hands.Features()->SetIntegerValue("Height", 128);
        });
        m_hands.Play(m_robot);
        QTabBar *bar = nullptr;
        int tab = -1;
        m_robot.WaitFor("the log's tab", [&] {
            for (QTabBar *one : m_hands.Window()->findChildren<QTabBar *>())
                for (int i = 0; i < one->count(); ++i)
                    if (one->tabText(i) == QLatin1String("Log"))
                        std::tie(bar, tab) = std::pair(one, i);
            return bar && bar->isVisible();
        });
        m_robot.Click(bar, [=] { return bar->tabRect(tab).center(); });
        m_robot.WaitFor("the panel", [this] { return !View()->visibleRegion().isEmpty(); });
    }
    // A box is pressed at its indicator: beside the text nothing happens.
    void Press(char const *box)
    {
        auto *const widget = Find<QWidget>(box);
        m_robot.Click(widget, [=] { return QPoint(10, qobject_cast<QGroupBox *>(widget) ? 8 : widget->height() / 2); });
    }
    void ExpectRefused(char const *box, char const *reason)
    {
        Press(box);
        auto *const widget = Find<QCheckBox>(box);
        m_robot.WaitFor(std::string("a refusal with ") + reason,
                        [=] { return !widget->isChecked() && widget->toolTip().contains(QLatin1String(reason)); });
        m_robot.Screenshot(QStringLiteral("log-refused"));
    }
    // Only these channels, and all of them, bring lines: what a switched-off one had under way came before its box was
    // released, so what comes after the list was cleared is new.
    void ExpectTraffic(Channels const &expected)
    {
        m_robot.Click(Find<QWidget>("btnClear"));
        auto const seen = [this] {
            Channels channels;
            for (int row = 0; row < std::min(View()->model()->rowCount(), 2000); ++row)
                channels.insert(View()->model()->index(row, 1).data().toString());
            return channels;
        };
        m_robot.Gui([this] { m_hands.Features()->SetFloatValue("Gain", 1.0 + ++m_gain % 3); });
        EXPECT_TRUE(m_robot.Holds([&] { return seen() == expected; }));
        std::uint64_t const shown = m_robot.Gui([this] { return m_hands.ShownFrame(); });
        m_robot.WaitFor("more traffic", [=, this] { return m_hands.ShownFrame() > shown + 3; });
        EXPECT_EQ(m_robot.Gui(seen), expected);
    }

private:
    QtTovLogViewer *View() const
    {
        return m_hands.Window()->findChild<QtTovLogViewer *>();
    }

    int m_gain = 0;
};

TEST(FakeGigE, ItsTrafficIsReadOnceThereIsTheRightTo)
{
    QTemporaryDir const folder; // of the lines that outlive the camera
    qputenv("TMPDIR", folder.path().toUtf8());
    Operator::Run([](Robot &robot, Operator &hands) {
        FakeGigECamera camera;
        LogTour tour(robot, hands);
        tour.Begin();
        tour.Press("groupLogging");
        EXPECT_TRUE(robot.Gui([] { return SetRightToCapture(false, false); }));
        tour.ExpectRefused("chkStream", "sudo setcap cap_net_raw=ep ");
        EXPECT_TRUE(
            robot.Gui([] { return SetRightToCapture(false, true) && qputenv("TOV_PACKET_CAPTURE", "/no/such.pcap"); }));
        tour.ExpectRefused("chkStream", "/no/such.pcap");
        robot.Gui([] { qunsetenv("TOV_PACKET_CAPTURE"); });
        tour.Press("chkStream");
        tour.ExpectTraffic({QStringLiteral("Stream")});
        tour.Press("chkControl");
        tour.ExpectTraffic({QStringLiteral("Stream"), QStringLiteral("Control")});
        tour.Press("chkStream");
        tour.ExpectTraffic({QStringLiteral("Control")});
        tour.Press("chkStream");
        robot.Screenshot(QStringLiteral("log-real"));
        camera.Kill();
        hands.AnswerLoss(robot);
    });
    qunsetenv("TMPDIR");
}

} // namespace
