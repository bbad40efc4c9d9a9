// An operator who looks closer at the picture of each simulated camera, by real clicks. What the inspection view shows
// and what the main view marks is checked pixel by pixel in screenshots.
#include "inspectcheck.h"
#include "paneltour.h"
#include "recordingtour.h"

#include "inspectview.h"

#include <gtest/gtest.h>

#include <utility>

namespace {

char const *const Serials[] = {"20480117", "19200342", "12800058"};
constexpr int Title = 10; // a point on the view's title, below its upper edge

class InspectTour : public PanelTour
{
public:
    InspectTour(Robot &robot, Operator &hands, char const *camera)
        : PanelTour(robot, hands),
          m_robot(robot),
          m_hands(hands),
          m_camera(QString::fromLatin1(camera))
    {
    }

    // GUI thread. Null while there is none.
    InspectView *View() const
    {
        return m_hands.Window()->findChild<InspectView *>();
    }
    DisplayView *Main() const
    {
        return m_hands.CurrentSession()->GetDisplayView();
    }
    bool IsChecked() const
    {
        return m_hands.Window()->findChild<QAction *>(QStringLiteral("actionInspectionView"))->isChecked();
    }
    // GUI thread. On the screen.
    static QRect Place(QWidget *widget)
    {
        return QRect(widget->mapToGlobal(QPoint()), widget->size());
    }
    // GUI thread. Where the mark stands, without the pixel that it lacks.
    QPoint First() const
    {
        long x = 0;
        long y = 0;
        Main()->GetRenderer()->GetComponent()->GetParamInt("dump.x", &x);
        Main()->GetRenderer()->GetComponent()->GetParamInt("dump.y", &y);
        return QPoint(int(x) - 1, int(y) - 1);
    }

    // A double click at that share of the main view; the pixel there is then in the middle of the view.
    void Open(double x, double y)
    {
        QPoint at;
        QPoint pixel;
        m_robot.Gui([&] {
            QRect const place = Place(Main()->viewport());
            at = place.topLeft() + QPoint(qRound(x * place.width()), qRound(y * place.height()));
            pixel = Main()->PixelAt(at).value_or(QPoint(-1, -1));
        });
        ASSERT_GE(pixel.x(), 0);
        QThread::msleep(500); // two clicks, no more
        m_robot.DoubleClickAt(at);
        m_robot.WaitFor("the view at the pointer",
                        [&] { return View() && View()->isVisible() && View()->pos() == at; });
        EXPECT_TRUE(m_robot.Gui([&] { return IsChecked(); }));
        m_robot.WaitFor("the pixel in its middle", [&] {
            // As far as the picture reaches.
            auto const first = [](int at, int view, std::int64_t image) {
                return std::clamp(at - (view - 1) / 2, 0, std::max(int(image) - view, 0));
            };
            QSize const size = View()->widget()->size();
            return First() == QPoint(first(pixel.x(), size.width(), Features()->GetIntegerValue("Width", nullptr)),
                                     first(pixel.y(), size.height(), Features()->GetIntegerValue("Height", nullptr)));
        });
    }
    // Out of the main view's way, by its title.
    void PutAside()
    {
        QRect const place = m_robot.Gui([&] { return Place(View()); });
        QRect const screen = m_robot.Gui([] { return QGuiApplication::primaryScreen()->availableGeometry(); });
        QPoint const grip(place.left() + 30, place.top() + Title);
        m_robot.Drag(grip, grip + screen.bottomRight() - place.bottomRight() - QPoint(5, 5));
        m_robot.WaitFor("the view to move", [&] { return !Place(View()).intersects(Place(Main())); });
    }
    // Frames end, the picture stays.
    void StandStill(bool still = true)
    {
        m_robot.Gui([&] { Features()->SetIntegerValue("SimMissingEvery", still); });
        std::uint64_t last = 0;
        QElapsedTimer since;
        since.start();
        m_robot.WaitFor("the picture to stand", [&] {
            if (std::uint64_t const shown = m_hands.ShownFrame(); std::exchange(last, shown) != shown)
                since.start();
            return !still || since.elapsed() > 1000;
        });
    }

    // While the picture stands still.
    void ExpectExact(char const *when)
    {
        SCOPED_TRACE(when);
        QThread::msleep(400);
        QImage const screen = m_robot.Screenshot(QStringLiteral("inspect-%1-%2").arg(m_camera, QLatin1String(when)));
        m_robot.Gui([&] {
            _TovImage *last = nullptr;
            ASSERT_TRUE(Main()->GetDisplayedImageRaw(&last));
            _TovImage *colours = nullptr;
            ASSERT_EQ(TovCreateImage(&colours, {last->width, last->height}, TV_PIXEL_RGB8), 0u);
            ASSERT_EQ(Main()->ConvertImage(last, colours), 0);
            QImage const whole(colours->imageData, int(colours->width), int(colours->height), int(colours->lineStep),
                               QImage::Format_RGB888);
            QPoint const first = First();
            QRect const place = Place(View()->widget());
            QImage const shown = screen.copy(place).convertToFormat(QImage::Format_RGB32);
            EXPECT_EQ(shown, whole.copy(QRect(first, place.size())).convertToFormat(QImage::Format_RGB32));
            QImage const main = screen.copy(Place(Main()->viewport())).convertToFormat(QImage::Format_RGB32);
            EXPECT_EQ(MarkFault(main, Main()->GetRenderer(), MarkOf(first, place.size(), whole.size())), "");
            TovReleaseImage(&colours);
        });
    }

private:
    Robot &m_robot;
    Operator &m_hands;
    QString m_camera;
};

class InspectionOfEachCamera : public testing::TestWithParam<int>
{
};

TEST_P(InspectionOfEachCamera, ShowsAndMarksAPartOfThePictureExactly)
{
    Operator::Run([&](Robot &robot, Operator &hands) {
        hands.Connect(robot, Serials[GetParam()]);
        InspectTour tour(robot, hands, Serials[GetParam()]);
        QMainWindow *const window = hands.Window();
        hands.Play(robot);
        tour.Open(0.4, 0.45);
        robot.Screenshot(QStringLiteral("inspect-%1-opened").arg(QLatin1String(Serials[GetParam()])));
        tour.PutAside();
        tour.StandStill();
        tour.ExpectExact("fit");
        for (char const *zoom : {"actionSpreadToWindow", "actionActualSize", "actionZoomIn", "actionZoomIn"}) {
            robot.Click(window, zoom);
            tour.ExpectExact(zoom);
        }
        robot.Click(window, "actionFitToWindow");

        // Panned by a drag and by keys; the wheel changes nothing.
        QPoint const before = robot.Gui([&] { return tour.First(); });
        QPoint const middle = robot.Gui([&] { return InspectTour::Place(tour.View()->widget()).center(); });
        robot.Drag(middle, middle + QPoint(-57, 23));
        EXPECT_EQ(robot.Gui([&] { return tour.First(); }), before + QPoint(57, -23));
        robot.ClickAt(middle, 4);
        tour.ExpectExact("dragged");
        robot.Key("Left");
        robot.WaitFor("the key", [&] { return tour.First().x() < before.x() + 57; });
        tour.ExpectExact("key");

        // By its lower left corner; the upper one would be as good.
        QRect const place = robot.Gui([&] { return InspectTour::Place(tour.View()); });
        robot.Drag(place.topLeft() + QPoint(1, 1), place.topLeft() - QPoint(80, 49));
        robot.WaitFor("the size", [&] { return tour.View()->width() > place.width() + 50; });
        tour.ExpectExact("resized");

        // A further double click brings it.
        tour.StandStill(false);
        InspectView *const same = robot.Gui([&] { return tour.View(); });
        tour.Open(0.6, 0.6);
        EXPECT_EQ(robot.Gui([&] { return tour.View(); }), same);

        // Hidden and shown by key, button and cross.
        auto const expectShown = [&](bool shown) {
            robot.WaitFor(shown ? "the view" : "the view to hide",
                          [&] { return tour.View()->isVisible() == shown && tour.IsChecked() == shown; });
            QThread::msleep(300);
            QImage const main =
                robot.Gui([&] { return tour.Main()->grab().toImage().convertToFormat(QImage::Format_RGB32); });
            int marked = 0;
            for (int i = 0; i < main.width() * main.height(); ++i)
                marked += main.pixel(i % main.width(), i / main.width()) == MARK_COLOUR;
            EXPECT_EQ(marked > 0, shown);
        };
        robot.Key("ctrl+i");
        expectShown(false);
        robot.Click(window, "actionInspectionView");
        expectShown(true);
        robot.Click(
            robot.Gui([&] { return tour.View()->findChild<QWidget *>(QStringLiteral("qt_dockwidget_closebutton")); }));
        expectShown(false);
        robot.ClickMenu(window, "actionInspectionView");
        expectShown(true);

        // The stopped picture can be looked at as well.
        hands.Stop(robot);
        tour.Open(0.3, 0.3);
        robot.Screenshot(QStringLiteral("inspect-%1-stopped").arg(QLatin1String(Serials[GetParam()])));
        // Another format.
        tour.PutAside();
        robot.Gui([&] {
            tour.Features()->SetIntegerValue("Width", 640);
            tour.Features()->SetIntegerValue("Height", 400);
        });
        hands.Play(robot);
        tour.Open(0.5, 0.5);
        tour.PutAside();
        tour.StandStill();
        tour.ExpectExact("format");
        hands.Disconnect(robot);
        EXPECT_FALSE(robot.Gui([&] { return tour.View(); }));
        EXPECT_FALSE(robot.Gui([&] { return tour.IsChecked(); }));
    });
}

TEST_P(InspectionOfEachCamera, WorksWhileARecordingRunsAndGoesWithALostCamera)
{
    QTemporaryDir folder;
    Operator::Run([&](Robot &robot, Operator &hands) {
        RecordingTour recording(robot, hands, Serials[GetParam()], folder.path());
        recording.Connect();
        recording.TypeFolder("inspect");
        recording.Start();
        InspectTour tour(robot, hands, Serials[GetParam()]);
        robot.Key("ctrl+i"); // at the pointer, which is not over the picture: in its middle
        robot.WaitFor("the view", [&] { return tour.View() && tour.View()->isVisible(); });
        tour.PutAside();
        tour.Open(0.5, 0.4);
        for (int i = 0; i < 3; ++i) {
            robot.Key("ctrl+i");
            robot.WaitFor("the view to hide", [&] { return !tour.View()->isVisible(); });
            robot.Key("ctrl+i");
            robot.WaitFor("the view", [&] { return tour.View()->isVisible(); });
        }
        tour.PutAside();
        EXPECT_EQ(robot.Gui([&] { return hands.State(); }), SessionStateCapturing);
        robot.Gui([&] { tour.Features()->ExecuteCommand("SimLoseCamera"); });
        EXPECT_EQ(robot.AnswerMessageBox(), QStringLiteral("Connection to the Camera was lost"));
        robot.WaitFor("the end", [&] { return !hands.CurrentSession(); });
        EXPECT_FALSE(robot.Gui([&] { return tour.View(); }));
    });
}

INSTANTIATE_TEST_SUITE_P(Clicks, InspectionOfEachCamera, testing::Range(0, 3));

} // namespace
