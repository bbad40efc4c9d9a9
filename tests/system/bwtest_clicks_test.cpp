// An operator who lets the program find the fastest clock of each simulated camera, by real clicks.
#include "bandwidthtour.h"

#include <QRegularExpression>
#include <QScrollBar>

#include <gtest/gtest.h>

#include <string>

namespace {

// The camera, its clock and what to say of it; a value in the middle that the link is made for, the next faster one.
struct Family
{
    char const *serial;
    char const *clock;
    char const *unit;
    int best;
    int tooFast;
    char const *values; // that the search tries
};

class BandwidthOfEachFamily : public testing::TestWithParam<Family>
{
};

TEST_P(BandwidthOfEachFamily, IsFoundToTheStep)
{
    Operator::Run([&](Robot &robot, Operator &hands) {
        Family const &family = GetParam();
        hands.Connect(robot, family.serial);
        BandwidthTour tour(robot, hands);
        TovCam::ParamArray *const camera = tour.Features();
        camera->SetFloatValue("ExposureTime", 100.0);
        double const payload = double(camera->GetIntegerValue("PayloadSize", nullptr)) / 1048576.0;
        auto const rate = [&](int clock) {
            camera->SetIntegerValue(family.clock, clock);
            return payload * camera->GetFloatValue("ResultingFrameRate", nullptr);
        };
        std::int64_t const before = camera->GetIntegerValue(family.clock, nullptr);
        double const limit = rate(family.best) * 1.0001;
        ASSERT_GT(rate(family.tooFast), limit);
        camera->SetFloatValue("SimLinkLimit", limit);
        camera->SetIntegerValue(family.clock, before);

        auto const answer = [&](char const *which) {
            return QStringLiteral("%1 one = %2%3")
                .arg(QLatin1String(which), QString::number(family.best), QLatin1String(family.unit));
        };
        tour.Begin();
        tour.Choose("Testing is finished.", answer("Optimized"));
        tour.WaitForLine("Optimized ");
        tour.Look(QStringLiteral("finished"));
        QString const log = robot.Gui([&] { return tour.Log()->toPlainText(); });
        // A value without a whole frame comes again, of which a slow machine may have a few more.
        std::string values, last;
        for (auto at = QRegularExpression(QStringLiteral("curClockValue = (\\d+ )")).globalMatch(log); at.hasNext();) {
            std::string const value = at.next().captured(1).toStdString();
            values += value == last ? "" : value;
            last = value;
        }
        EXPECT_EQ(values, family.values);
        tour.PressButton();
        tour.WaitUntilLeft();
        EXPECT_EQ(camera->GetIntegerValue(family.clock, nullptr), family.best);
        hands.Play(robot); // whole frames, so there is a picture

        // A clock that takes steps and is slow; the test stops the picture itself.
        hands.Stop(robot);
        camera->SetFloatValue("SimLinkLimit", 0.0);
        camera->SetIntegerValue("SimClockStep", 8);
        camera->SetStringValue("SimSlowFeature", family.clock);
        camera->SetIntegerValue("SimSlowDelay", 40);
        tour.Begin();
        tour.WaitForLine("Returned incorrect ");
        tour.Choose("Testing is finished.", answer("Old"));
        tour.WaitForLine("Old ");
        tour.PressButton();
        tour.WaitUntilLeft();
    });
}

INSTANTIATE_TEST_SUITE_P(Clicks, BandwidthOfEachFamily,
                         testing::Values(Family{Serials[0], "PixelClock", " MHz", 99, 100,
                                                "76 98 109 104 101 100 99 100 "},
                                         Family{Serials[1], "LineTime", "", 1200, 1199,
                                                "2475 1512 1031 1271 1151 1211 1181 1196 1203 1199 1201 1200 1199 "}));

TEST(BandwidthClicks, IsStoppedLeftAndResized)
{
    Operator::Run([](Robot &robot, Operator &hands) {
        hands.Connect(robot, Serials[0]);
        BandwidthTour tour(robot, hands);
        CBWTesting::s_waits.settleStep = 200; // time to click into it
        CBWTesting::s_waits.probe = 1500;
        auto const resize = [&](int size) {
            robot.Gui([&] { tour.Dialog()->resize(size, size); });
            QThread::msleep(500);
            tour.Look(QStringLiteral("size%1").arg(size));
        };
        tour.Begin();
        tour.PressButton(); // while the first value settles
        tour.Choose("Test is in processing", QStringLiteral("No"));
        tour.WaitForLine("Start waiting...");
        resize(900);
        robot.Key("Escape"); // in the middle of the probe
        tour.Choose("Test is in processing", QStringLiteral("Yes"));
        tour.WaitForLine("Test is stopped");
        resize(10);
        EXPECT_TRUE(robot.Gui([&] { // the log is followed
            QScrollBar const *bar = tour.Log()->verticalScrollBar();
            return bar->maximum() > 0 && bar->value() == bar->maximum();
        }));
        robot.Key("Return"); // the button is the default one
        tour.WaitUntilLeft();

        for (char const *moment : {"Saved init value", "Start waiting..."}) {
            tour.Begin();
            tour.WaitForLine(moment);
            tour.PressButton();
            tour.Choose("Test is in processing", QStringLiteral("Yes and Close"));
            tour.WaitUntilLeft();
        }
        for (char const *moment : {"Saved init value", "Start waiting..."}) { // the camera is pulled
            if (!robot.Gui([&] { return hands.CurrentSession(); }))
                hands.Connect(robot, Serials[0]);
            tour.Begin();
            tour.WaitForLine(moment);
            hands.LoseCamera(robot);
            EXPECT_EQ(robot.AnswerMessageBox(), QStringLiteral("Connection to the Camera was lost"));
            tour.WaitForLine("Test is stopped");
            tour.PressButton();
            tour.WaitUntilLeft();
        }
        hands.Connect(robot, Serials[2]); // no family
        tour.IsRefused();
    });
}

} // namespace
