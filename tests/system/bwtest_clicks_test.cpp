// An operator who lets the program find the fastest clock of each simulated camera, by real clicks.
#include "bandwidthtour.h"

#include <QRegularExpression>
#include <QScrollBar>

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

using BandwidthOfEachFamily = testing::TestWithParam<Family>;

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

        tour.Begin();
        tour.Choose(
            "Testing is finished.",
            QStringLiteral("Optimized one = %1%2").arg(QString::number(family.best), QLatin1String(family.unit)));
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
        hands.Connect(robot, Serials[2]); // no family
        tour.IsRefused();
    });
}

} // namespace
