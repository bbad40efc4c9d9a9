// An operator with a GigE Vision camera that is not ours, on loopback in a network namespace: seen by the selector,
// watched, lost, and found again.
#include "bandwidthtour.h"
#include "fakegige.h"
#include "logtour.h"
#include "recordingtour.h"

#include <QCheckBox>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <optional>

#include <linux/capability.h>
#include <sys/syscall.h>

namespace {

class FakeGigE : public testing::Test
{
protected:
    void SetUp() override
    {
        setenv("TOV_CAMERA_INTERFACES", "gige", 1);
    }
};

TEST_F(FakeGigE, IsListedWatchedLostAndFoundAgain)
{
    Operator::Run([](Robot &robot, Operator &hands) {
        auto camera = std::make_unique<FakeGigECamera>();
        hands.OpenSelector(robot, FakeGigECamera::Serial);
        robot.Screenshot(QStringLiteral("selector-gige"));
        robot.Key("Escape");
        robot.WaitFor("the selector to close", [] { return !QApplication::activeModalWidget(); });

        hands.Connect(robot, FakeGigECamera::Serial);
        // None of a thousand may be lost; a machine with other work gets more than one try.
        bool lossless = false;
        for (int attempt = 0; attempt < 5 && !lossless; ++attempt) {
            if (attempt > 0)
                hands.Stop(robot);
            hands.Play(robot);
            robot.WaitFor("a thousand frames", [&] { return hands.Counter("FramesAcquired") >= 1000; }, 120000);
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

// Of the calling thread.
bool SetRightToCapture(bool given)
{
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct rights[_LINUX_CAPABILITY_U32S_3];
    if (syscall(SYS_capget, &header, rights) != 0)
        return false;
    std::uint32_t const raw = 1u << CAP_NET_RAW;
    rights[0].effective = given ? rights[0].effective | raw : rights[0].effective & ~raw;
    return syscall(SYS_capset, &header, rights) == 0;
}

TEST_F(FakeGigE, ItsTrafficIsReadOnceThereIsTheRightTo)
{
    QTemporaryDir const folder; // of the lines that outlive the camera
    qputenv("TMPDIR", folder.path().toUtf8());
    Operator::Run([](Robot &robot, Operator &hands) {
        FakeGigECamera camera;
        LogTour tour(robot, hands);
        tour.Connect(FakeGigECamera::Serial);
        tour.Press("groupLogging");
        EXPECT_TRUE(robot.Gui([] { return SetRightToCapture(false); }));
        tour.Press("chkStream");
        auto *const stream = tour.Find<QCheckBox>("chkStream");
        EXPECT_TRUE(robot.Holds([&] { return !stream->isChecked() && stream->toolTip().contains(u"sudo setcap "); }));
        tour.Screenshot("refused");
        EXPECT_TRUE(
            robot.Gui([] { return SetRightToCapture(true) && qputenv("TOV_PACKET_CAPTURE", "/no/such.pcap"); }));
        tour.Press("chkStream");
        EXPECT_TRUE(robot.Holds([&] { return !stream->isChecked() && stream->toolTip().contains(u"/no/such.pcap"); }));
        tour.Screenshot("nofile");
        robot.Gui([] { qunsetenv("TOV_PACKET_CAPTURE"); });
        tour.Press("chkStream");
        tour.ExpectTraffic({QStringLiteral("Stream")});
        tour.Press("chkControl");
        tour.ExpectTraffic({QStringLiteral("Stream"), QStringLiteral("Control")});
        tour.Press("chkStream");
        tour.ExpectTraffic({QStringLiteral("Control")});
        tour.Press("chkStream");
        tour.Screenshot("real");
        camera.Kill();
        hands.AnswerLoss(robot);
    });
    qunsetenv("TMPDIR");
}

TEST_F(FakeGigE, ItsPanelsAreOperatedAndKeepItsSetUp)
{
    Operator::Run([](Robot &robot, Operator &hands) {
        FakeGigECamera camera;
        BandwidthTour tour(robot, hands);
        hands.Connect(robot, FakeGigECamera::Serial);
        tour.IsRefused(); // it has no clock that could be set
        hands.Stop(robot);
        tour.DocksComeAndGo();
        tour.StreamsWithTheTreeOpen(false);
        tour.ShowsItsReport();
        tour.IsKeptInAConfiguration();
    });
}

TEST_F(FakeGigE, IncompleteFramesAreCountedAndNotShown)
{
    Operator::Run([](Robot &robot, Operator &hands) {
        FakeGigECamera camera({"-r", "2"});
        hands.Connect(robot, FakeGigECamera::Serial);
        robot.Click(hands.Window(), "actionPlay");
        robot.WaitFor("incomplete frames", [&] { return hands.Counter("FramesIncomp") >= 5; }, 60000);
        robot.WaitFor("whole frames", [&] { return hands.Counter("FramesAcquired") >= 5; }, 60000);
        hands.Stop(robot);
        hands.Disconnect(robot);
    });
}

TEST_F(FakeGigE, IsRecordedFrom)
{
    QTemporaryDir const folder;
    std::optional<RecordingTour> tour;
    Operator::Run([&](Robot &robot, Operator &hands) {
        auto camera = std::make_unique<FakeGigECamera>();
        tour.emplace(robot, hands, FakeGigECamera::Serial, folder.path());
        tour->Connect();
        tour->RecordsSnapsAndRecordsAgain();
        tour->OutlivesTheEndOfTheConnection([&] { camera->Kill(); },
                                            [&] { camera = std::make_unique<FakeGigECamera>(); });
        tour->ClosesTheWindow();
    });
    if (!HasFailure())
        tour->FilesAreWhole();
}

} // namespace
