// An operator at the panels with each simulated camera, by real clicks.
#include "paneltour.h"

namespace {

using PanelsOfEachCamera = testing::TestWithParam<int>;

TEST_P(PanelsOfEachCamera, AreOperatedAndKeepTheCamerasSetUp)
{
    Operator::Run([&](Robot &robot, Operator &hands) {
        PanelTour tour(robot, hands);
        hands.Connect(robot, Serials[GetParam()]);
        tour.DocksComeAndGo();
        tour.StreamsWithTheTreeOpen(true);
        tour.ShowsItsReport();
        tour.IsKeptInAConfiguration();
    });
}

INSTANTIATE_TEST_SUITE_P(Clicks, PanelsOfEachCamera, testing::Range(0, 3));

TEST(PanelClicks, EveryKindOfFeatureIsEdited)
{
    Operator::Run([&](Robot &robot, Operator &hands) {
        PanelTour tour(robot, hands);
        hands.Connect(robot, Serials[0]);
        tour.ShowEverything();
        tour.Edit("Width", QStringLiteral("1024"));
        robot.WaitFor("the integer", [&] { return tour.Read("Width").value.integer == 1024; });
        tour.Edit("ExposureTime", QStringLiteral("4321"));
        robot.WaitFor("the float", [&] { return std::abs(tour.Read("ExposureTime").value.real - 4321) < 1; });
        tour.Edit("DeviceUserID", QStringLiteral("left eye"));
        robot.WaitFor("the string", [&] { return tour.Read("DeviceUserID").value.text == "left eye"; });
        tour.Edit("PixelFormat", QStringLiteral("Mono12"));
        robot.WaitFor("the enumeration", [&] { return tour.Read("PixelFormat").value.text.rfind("Mono12", 0) == 0; });

        tour.Search("ReverseX");
        bool const reversed = robot.Gui([&] { return tour.Read("ReverseX").value.integer; });
        robot.ClickAt(robot.Gui([&] { return tour.Cell("ReverseX", 0).center(); }));
        robot.Key("space");
        robot.WaitFor("the boolean", [&] { return bool(tour.Read("ReverseX").value.integer) != reversed; });

        // A command by its button: the next latched time is another one.
        std::int64_t const latched = robot.Gui([&] { return tour.Read("TimestampLatchValue").value.integer; });
        tour.Search("TimestampLatch");
        robot.ClickAt(robot.Gui([&] { return tour.Cell("TimestampLatch", 1).center(); }));
        robot.WaitFor("the command", [&] { return tour.Read("TimestampLatchValue").value.integer != latched; });

        // Out of range: nothing is lost and the camera is left alone or at its limit.
        tour.Edit("Width", QStringLiteral("99999999"));
        robot.Screenshot(QStringLiteral("tree-out-of-range"));
        robot.Key("Escape");
        TovCam::FeatureState const width = robot.Gui([&] { return tour.Read("Width"); });
        EXPECT_LE(width.value.integer, width.maximum);
    });
}

TEST(PanelClicks, TheLayoutOutlivesAReconnectAndARestart)
{
    Operator::Run([&](Robot &robot, Operator &hands) {
        PanelTour tour(robot, hands);
        hands.Connect(robot, Serials[0]);
        robot.Click(hands.Window(), "actionStatistics");
        tour.Search("Gain");
        hands.Disconnect(robot);
        hands.Connect(robot, Serials[0]);
        EXPECT_FALSE(robot.Gui([&] { return tour.Dock("StatisticsPanel")->isVisible(); }));
        EXPECT_TRUE(robot.Gui([&] { return tour.Dock("CameraGenParamPanel")->isVisible(); }));
        robot.WaitFor("the search to come back", [&] { return !tour.Cell("Gain", 1).isEmpty(); });
    });
    Robot::Run([&](Robot &robot) {
        auto *window = robot.Gui([] {
            auto *made = new TovScope(nullptr, false, false);
            made->show();
            return made;
        });
        Operator hands(*window);
        PanelTour tour(robot, hands);
        robot.WaitFor("the window", [&] { return window->isVisible() && window->isActiveWindow(); });
        hands.Connect(robot, Serials[0]);
        EXPECT_FALSE(robot.Gui([&] { return tour.Dock("StatisticsPanel")->isVisible(); }));
        EXPECT_TRUE(robot.Gui([&] { return tour.Dock("CameraGenParamPanel")->isVisible(); }));
        robot.Gui([&] {
            window->close();
            delete window;
        });
    });
}

} // namespace
