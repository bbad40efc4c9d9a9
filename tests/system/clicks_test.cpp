// An operator at the main window with each simulated camera, by real clicks.
#include "operator.h"

namespace {

// GUI thread. How many different colours a coarse grid over the picture meets.
int ColoursShown(Operator const &hands)
{
    QImage const shown = hands.CurrentSession()->GetDisplayView()->viewport()->grab().toImage();
    QSet<QRgb> colours;
    for (int y = 0; y < 20; ++y)
        for (int x = 0; x < 20; ++x)
            colours.insert(shown.pixel((2 * x + 1) * shown.width() / 40, (2 * y + 1) * shown.height() / 40));
    return colours.size();
}

using EachSimulatedCamera = testing::TestWithParam<int>;

TEST_P(EachSimulatedCamera, IsConnectedWatchedStoppedAndDisconnected)
{
    char const *const serial = Serials[GetParam()];
    Operator::Run([&](Robot &robot, Operator &hands) {
        EXPECT_EQ(robot.Gui([&] { return hands.Title(); }), QStringLiteral("TovScope - Camera is not connected"));

        hands.Connect(robot, serial);
        EXPECT_TRUE(
            robot.Gui([&] { return hands.Title(); }).contains(QStringLiteral("SN:%1").arg(QLatin1String(serial))));

        for (int round = 0; round < 2; ++round) {
            hands.Play(robot);
            hands.OpenSelector(robot, Serials[round]); // and changes nothing
            robot.Screenshot(QStringLiteral("selector"));
            robot.Key("Escape");
            robot.WaitFor("the selector to close", [] { return !QApplication::activeModalWidget(); });
            std::uint64_t const first = robot.Gui([&] { return hands.ShownFrame(); });
            robot.WaitFor("the picture to move on", [&] { return hands.ShownFrame() > first + 5; });
            EXPECT_GT(robot.Gui([&] { return ColoursShown(hands); }), 10) << "the picture looks blank";

            // The pointer over the picture reads coordinates and a value.
            QPoint const middle = robot.Gui([&] {
                QWidget *view = hands.CurrentSession()->GetDisplayView()->viewport();
                return view->mapToGlobal(view->rect().center());
            });
            robot.MoveTo(middle + QPoint(17, 9));
            robot.WaitFor("coordinates in the status bar", [&] {
                auto const labels = hands.Window()->statusBar()->findChildren<QLabel *>();
                return labels.size() >= 2 && labels[0]->text().contains(QLatin1Char('x')) &&
                       !labels[1]->text().isEmpty();
            });

            robot.Click(hands.Window(), "actionActualSize");
            robot.ClickAt(middle, 4); // the wheel, one step in
            robot.Drag(middle, middle + QPoint(-90, 40));
            robot.Screenshot(QStringLiteral("camera%1-zoomed").arg(GetParam()));
            robot.Click(hands.Window(), "actionFitToWindow");
            robot.Screenshot(QStringLiteral("camera%1-live").arg(GetParam()));
            EXPECT_EQ(robot.Gui([&] { return hands.Counter("FramesIncomp"); }), 0);
            hands.Stop(robot);
        }
        hands.Disconnect(robot);
        EXPECT_EQ(robot.Gui([&] { return hands.Title(); }), QStringLiteral("TovScope - Camera is not connected"));
        EXPECT_FALSE(
            robot.Gui([&] { return hands.Window()->findChild<QAction *>(QStringLiteral("actionPlay"))->isEnabled(); }));
    });
}

INSTANTIATE_TEST_SUITE_P(Clicks, EachSimulatedCamera, testing::Range(0, 3));

} // namespace
