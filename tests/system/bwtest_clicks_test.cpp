// An operator who lets the program find the fastest clock of each simulated camera, by real clicks.
#include "bandwidthtour.h"

#include <QProgressBar>
#include <QScrollBar>

#include <gtest/gtest.h>

#include <string>

namespace {

// The camera, its clock, a value in the middle of it that the link is made for, and the next faster one.
struct Family
{
    char const *serial;
    char const *clock;
    int best;
    int tooFast;
    char const *values; // that the search tries; one at which no frame is whole comes three times
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
        std::int64_t const before = camera->GetIntegerValue(family.clock, nullptr);
        camera->SetFloatValue("ExposureTime", 100.0);
        double const payload = double(camera->GetIntegerValue("PayloadSize", nullptr)) / 1048576.0;
        auto const rate = [&](int clock) {
            camera->SetIntegerValue(family.clock, clock);
            return payload * camera->GetFloatValue("ResultingFrameRate", nullptr);
        };
        double const limit = rate(family.best) * 1.0001;
        ASSERT_GT(rate(family.tooFast), limit);
        camera->SetFloatValue("SimLinkLimit", limit);
        camera->SetIntegerValue(family.clock, before);

        tour.Begin();
        tour.WaitForLine("Acceptable");
        tour.Look("running");
        // It follows its log, and keeps what is read when the operator scrolls back.
        auto *const bar = robot.Gui([&] { return tour.Dialog()->findChild<QTextEdit *>()->verticalScrollBar(); });
        EXPECT_TRUE(robot.Holds([&] { return bar->maximum() > 0 && bar->value() == bar->maximum(); }));
        tour.Choose("Testing is finished.", "Optimized");
        tour.WaitForLine("Optimized ");
        tour.Look("finished");

        QString const log = robot.Gui([&] { return tour.Log(); });
        std::string values;
        for (QString const &line : log.split(QLatin1Char('\n')))
            if (int const at = line.indexOf(QLatin1String("curClockValue = ")); at >= 0)
                values += line.mid(at + 16).section(QLatin1Char(' '), 0, 0).toStdString() + ' ';
        EXPECT_EQ(values, family.values);
        EXPECT_FALSE(log.contains(QLatin1String("Incomplete frames  = 0"))) << "a fast value failed otherwise";
        EXPECT_EQ(robot.Gui([&] {
            return tour.Dialog()->findChild<QProgressBar *>(QStringLiteral("progressPixelClock"))->value();
        }),
                  family.best);
        tour.Close();
        EXPECT_EQ(camera->GetIntegerValue(family.clock, nullptr), family.best);
        EXPECT_EQ(robot.Gui([&] { return hands.State(); }), SessionStateIdle);
        hands.Play(robot); // whole frames, so there is a picture
        hands.Disconnect(robot);
    });
}

TEST_P(BandwidthOfEachFamily, IsFoundOnAClockThatTakesStepsAndIsSlow)
{
    Operator::Run([&](Robot &robot, Operator &hands) {
        Family const &family = GetParam();
        hands.Connect(robot, family.serial);
        BandwidthTour tour(robot, hands);
        CBWTesting::s_waits.probe = 500;
        TovCam::ParamArray *const camera = tour.Features();
        std::int64_t const before = camera->GetIntegerValue(family.clock, nullptr);
        camera->SetIntegerValue("SimClockStep", 16);
        camera->SetStringValue("SimSlowFeature", family.clock);
        camera->SetIntegerValue("SimSlowDelay", 40);
        tour.Begin();
        tour.WaitForLine("Returned incorrect ");
        tour.Choose("Testing is finished.", "Old");
        tour.WaitForLine("Old ");
        tour.Close();
        camera->SetIntegerValue("SimSlowDelay", 0);
        EXPECT_EQ(camera->GetIntegerValue(family.clock, nullptr), before);
        hands.Disconnect(robot);
    });
}

INSTANTIATE_TEST_SUITE_P(Clicks, BandwidthOfEachFamily,
                         testing::Values(Family{"20480117", "PixelClock", 99, 100,
                                                "76 98 109 109 109 104 104 104 101 101 101 100 100 100 99 100 "},
                                         Family{"19200342", "LineTime", 1200, 1199,
                                                "2475 1512 1031 1031 1031 1271 1151 1151 1151 1211 1181 1181 1181 1196 "
                                                "1196 1196 1203 1199 1199 1199 1201 1200 1199 "}));

TEST(BandwidthClicks, IsStoppedLeftAndResized)
{
    Operator::Run([](Robot &robot, Operator &hands) {
        hands.Connect(robot, "20480117");
        BandwidthTour tour(robot, hands);
        CBWTesting::s_waits.settleStep = 200; // time to click into it
        CBWTesting::s_waits.probe = 1500;

        // While the first value settles.
        tour.Begin();
        tour.PressButton();
        tour.Choose("Test is in processing", "No");
        tour.WaitForLine("Start waiting...");
        robot.Gui([&] { tour.Dialog()->resize(900, 800); });
        robot.WaitFor("the size", [&] { return tour.Dialog()->width() == 900; });
        QThread::msleep(300);
        tour.Look("large");
        robot.Key("Escape"); // in the middle of the probe
        tour.Choose("Test is in processing", "Yes");
        tour.WaitForLine("Test is stopped");
        EXPECT_FALSE(robot.Gui([&] { return tour.Log(); }).endsWith(QLatin1String("Start waiting...")));
        robot.Gui([&] { tour.Dialog()->resize(10, 10); });
        robot.WaitFor("the size", [&] { return tour.Dialog()->width() < 400; });
        QThread::msleep(300);
        EXPECT_TRUE(robot.Gui([&] {
            auto *const bar = tour.Dialog()->findChild<QTextEdit *>()->verticalScrollBar();
            return bar->maximum() > 0 && bar->value() == bar->maximum();
        }));
        tour.Look("small");
        robot.Key("Return"); // the button is the default one
        tour.WaitUntilLeft();
        EXPECT_EQ(robot.Gui([&] { return hands.State(); }), SessionStateIdle);

        for (char const *moment : {"Saved init value", "Start waiting..."}) {
            tour.Begin();
            tour.WaitForLine(moment);
            tour.PressButton();
            tour.Choose("Test is in processing", "Yes and Close");
            tour.WaitUntilLeft();
            EXPECT_EQ(robot.Gui([&] { return hands.State(); }), SessionStateIdle) << moment;
        }

        // The camera is pulled.
        for (char const *moment : {"Saved init value", "Start waiting..."}) {
            if (!robot.Gui([&] { return hands.CurrentSession(); }))
                hands.Connect(robot, "20480117");
            tour.Begin();
            tour.WaitForLine(moment);
            robot.Gui([&] { tour.Features()->ExecuteCommand("SimLoseCamera"); });
            EXPECT_EQ(robot.AnswerMessageBox(), QStringLiteral("Connection to the Camera was lost"));
            tour.WaitForLine("Test is stopped");
            tour.Look("lost");
            tour.Close();
            EXPECT_EQ(robot.Gui([&] { return hands.CurrentSession(); }), nullptr);
        }
    });
}

TEST(BandwidthClicks, ACameraWithoutAFamilyIsRefused)
{
    Operator::Run([](Robot &robot, Operator &hands) {
        hands.Connect(robot, "12800058");
        BandwidthTour tour(robot, hands);
        tour.Begin();
        tour.WaitForLine("Device is not compatible. Test is impossible.");
        tour.Look("refused");
        tour.Close();
        hands.Play(robot);
        hands.Disconnect(robot);
    });
}

} // namespace
