// An operator who looks closer at the picture of each simulated camera, by real clicks. What the inspection view shows
// and what the main view marks is checked pixel by pixel in screenshots.
#include "paneltour.h"
#include "recordingtour.h"

#include "inspectview.h"

namespace {

constexpr QRgb MarkColour = 0xFFFFC800;

class InspectTour : public PanelTour
{
public:
    using PanelTour::PanelTour;

    // GUI thread, as the next three. Null while there is none.
    InspectView *View() const
    {
        return m_hands.Window()->findChild<InspectView *>();
    }
    DisplayView *Main() const
    {
        return m_hands.CurrentSession()->GetDisplayView();
    }
    static QRect Place(QWidget *widget)
    {
        return QRect(widget->mapToGlobal(QPoint()), widget->size());
    }
    // What the main view was told to mark.
    QRect Mark() const
    {
        TovComponent *const c = Main()->GetRenderer()->GetComponent();
        return QRect(IntOf(c, "dump.x"), IntOf(c, "dump.y"), IntOf(c, "dump.w"), IntOf(c, "dump.h"));
    }
    void ExpectShown(bool shown)
    {
        auto *const action = m_hands.Window()->findChild<QAction *>(QStringLiteral("actionInspectionView"));
        m_robot.WaitFor(shown ? "the view" : "the view to hide",
                        [=, this] { return View() && View()->isVisible() == shown && action->isChecked() == shown; });
        QThread::msleep(300);
    }

    // A double click at that share of the main view; the pixel there is then in the view's middle, if the picture
    // reaches so far.
    void Open(double x, double y)
    {
        QPoint const at = m_robot.Gui([&] {
            QRect const place = Place(Main()->viewport());
            return place.topLeft() + QPoint(qRound(x * place.width()), qRound(y * place.height()));
        });
        QPoint const pixel = m_robot.Gui([&] { return Main()->PixelAt(at).value_or(QPoint()); });
        QThread::msleep(500); // two clicks, no more
        m_robot.DoubleClickAt(at);
        auto const first = [](int middle, int view, std::int64_t image) {
            return std::clamp(middle - (view - 1) / 2, 0, std::max(int(image) - view, 0)) + 1;
        };
        m_robot.WaitFor("the pixel at the pointer in the view", [&] {
            QSize const size = View() ? View()->widget()->size() : QSize();
            return View() && View()->isVisible() && View()->pos() == at &&
                   Mark().x() == first(pixel.x(), size.width(), Features()->GetIntegerValue("Width", nullptr)) &&
                   Mark().y() == first(pixel.y(), size.height(), Features()->GetIntegerValue("Height", nullptr));
        });
        ExpectShown(true);
    }
    // Out of the main view's way, by its title.
    void PutAside()
    {
        QRect const place = m_robot.Gui([&] { return Place(View()); });
        QRect const screen = m_robot.Gui([] { return QGuiApplication::primaryScreen()->availableGeometry(); });
        QPoint const grip = place.topLeft() + QPoint(30, 10);
        m_robot.Drag(grip, grip + screen.bottomRight() - place.bottomRight() - QPoint(5, 5));
        m_robot.WaitFor("the view to move", [&] { return !Place(View()).intersects(Place(Main())); });
    }
    // While the picture stands still.
    void ExpectExact(char const *when)
    {
        SCOPED_TRACE(when);
        QThread::msleep(400);
        QImage const screen =
            m_robot.Screenshot(QStringLiteral("inspect-%1-%2").arg(QLatin1String(when), Robot::TestName()))
                .convertToFormat(QImage::Format_RGB32);
        m_robot.Gui([&] {
            _TovImage *last = nullptr;
            _TovImage *colours = nullptr;
            ASSERT_TRUE(Main()->GetDisplayedImageRaw(&last));
            ASSERT_EQ(TovCreateImage(&colours, {last->width, last->height}, TV_PIXEL_RGB8), 0u);
            ASSERT_EQ(Main()->ConvertImage(last, colours), 0);
            QImage const whole(colours->imageData, int(colours->width), int(colours->height), int(colours->lineStep),
                               QImage::Format_RGB888);
            QRect const mark = Mark();
            QImage const shown = screen.copy(Place(View()->widget()));
            EXPECT_EQ(mark.size(), shown.size() - QSize(1, 1));
            EXPECT_EQ(shown, whole.copy(mark.adjusted(-1, -1, 0, 0)).convertToFormat(QImage::Format_RGB32));
            TovReleaseImage(&colours);

            auto const isIn = [&](int x, int y) {
                return Main()->GetRenderer()->Translate(&x, &y, 1) == 0 && mark.contains(x, y);
            };
            QImage const main = screen.copy(Place(Main()->viewport()));
            for (int i = 0; i < main.width() * main.height(); ++i) {
                int const x = i % main.width();
                int const y = i / main.width();
                bool const inside = isIn(x - 1, y) && isIn(x + 1, y) && isIn(x, y - 1) && isIn(x, y + 1);
                ASSERT_EQ(main.pixel(x, y) == MarkColour, isIn(x, y) && !inside) << x << ", " << y;
            }
        });
    }
};

using InspectionOfEachCamera = testing::TestWithParam<int>;

TEST_P(InspectionOfEachCamera, ShowsAndMarksAPartExactlyAndWorksWhileRecording)
{
    QTemporaryDir folder;
    Operator::Run([&](Robot &robot, Operator &hands) {
        hands.Connect(robot, Serials[GetParam()]);
        InspectTour tour(robot, hands);
        hands.Play(robot);
        tour.Open(0.4, 0.45);
        robot.Screenshot(QStringLiteral("inspect-opened-%1").arg(Robot::TestName()));
        tour.PutAside();
        tour.StandStill();
        for (char const *zoom : {"actionFitToWindow", "actionSpreadToWindow", "actionActualSize", "actionZoomIn"}) {
            robot.Click(hands.Window(), zoom);
            tour.ExpectExact(zoom);
        }
        robot.Click(hands.Window(), "actionFitToWindow");
        QRect const before = robot.Gui([&] { return tour.Mark(); });
        QPoint const middle = robot.Gui([&] { return InspectTour::Place(tour.View()->widget()).center(); });
        robot.Drag(middle, middle + QPoint(-57, 23));
        EXPECT_EQ(robot.Gui([&] { return tour.Mark(); }), before.translated(57, -23));
        tour.ExpectExact("dragged");

        // A further double click brings it, also when the picture has stopped; key, button, cross and menu hide it.
        InspectView *const same = robot.Gui([&] { return tour.View(); });
        hands.Stop(robot);
        tour.Open(0.6, 0.6);
        EXPECT_EQ(robot.Gui([&] { return tour.View(); }), same);
        robot.Key("ctrl+i");
        tour.ExpectShown(false);
        robot.Click(hands.Window(), "actionInspectionView");
        tour.ExpectShown(true);
        robot.Click(robot.Gui([&] { return same->findChild<QWidget *>(QStringLiteral("qt_dockwidget_closebutton")); }));
        tour.ExpectShown(false);
        robot.ClickMenu(hands.Window(), "actionInspectionView");
        tour.ExpectShown(true);
        robot.Key("ctrl+i"); // else it would come with the next camera
        tour.ExpectShown(false);
        hands.Disconnect(robot);
        EXPECT_FALSE(robot.Gui([&] { return tour.View(); }));

        // A recording of another format, and a camera that is lost.
        RecordingTour recording(robot, hands, Serials[GetParam()], folder.path());
        recording.Connect();
        recording.TypeFolder("inspect");
        recording.Start();
        robot.Key("ctrl+i"); // in the middle: the pointer is not over the picture
        tour.ExpectShown(true);
        tour.PutAside();
        tour.Open(0.4, 0.4);
        EXPECT_EQ(robot.Gui([&] { return hands.State(); }), SessionStateCapturing);
        hands.LoseCamera(robot);
        hands.AnswerLoss(robot);
        EXPECT_FALSE(robot.Gui([&] { return tour.View(); }));
    });
}

INSTANTIATE_TEST_SUITE_P(Clicks, InspectionOfEachCamera, testing::Range(0, 3));

} // namespace
