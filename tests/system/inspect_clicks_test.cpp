// An operator who looks closer at the picture of a simulated camera, by real clicks. What the inspection view shows and
// what the main view marks is checked pixel by pixel in screenshots.
#include "operator.h"

#include "inspectview.h"

namespace {

constexpr QRgb MarkColour = 0xFFFFC800;

class InspectTour : public Tour
{
public:
    using Tour::Tour;

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
    }

    // A double click at that share of the main view; the pixel there is then in the view's middle, if the picture
    // reaches so far.
    void Open(double x, double y)
    {
        QPoint const place = m_robot.Gui([&] {
            QSize const size = Main()->viewport()->size();
            return QPoint(qRound(x * size.width()), qRound(y * size.height()));
        });
        QPoint const at = m_robot.Gui([&] { return Main()->viewport()->mapToGlobal(place); });
        QPoint const pixel = m_robot.Gui([&] { return Main()->PixelAt(at).value_or(QPoint()); });
        m_robot.DoubleClick(Main()->viewport(), [=] { return place; });
        auto const first = [](int middle, int view, std::int64_t image) {
            return std::clamp(middle - (view - 1) / 2, 0, std::max(int(image) - view, 0)) + 1;
        };
        m_robot.WaitFor("the pixel at the pointer in the view", [&] {
            QSize const size = View() ? View()->widget()->size() : QSize();
            return View() && View()->isVisible() && View()->pos() == at &&
                   Mark().x() ==
                       first(pixel.x(), size.width(), m_hands.Features()->GetIntegerValue("Width", nullptr)) &&
                   Mark().y() ==
                       first(pixel.y(), size.height(), m_hands.Features()->GetIntegerValue("Height", nullptr));
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
    // When no more frames come, apart from a last one on its way.
    void ExpectExact(char const *when)
    {
        std::string difference;
        EXPECT_TRUE(Eventually([&] {
            QImage const screen = m_robot.Screenshot(QStringLiteral("inspect-%1").arg(QLatin1String(when)))
                                      .convertToFormat(QImage::Format_RGB32);
            return (difference = m_robot.Gui([&] { return WhatDiffers(screen); })).empty();
        })) << when
            << ": " << difference;
    }

private:
    // GUI thread. Between a picture of the screen and what should be there.
    std::string WhatDiffers(QImage const &screen) const
    {
        _TovImage *last = nullptr;
        _TovImage *colours = nullptr;
        if (!Main()->GetDisplayedImageRaw(&last) ||
            TovCreateImage(&colours, {last->width, last->height}, TV_PIXEL_RGB8) != 0 ||
            Main()->ConvertImage(last, colours) != 0)
            return "no picture";
        QImage const whole = QImage(colours->imageData, int(colours->width), int(colours->height),
                                    int(colours->lineStep), QImage::Format_RGB888)
                                 .convertToFormat(QImage::Format_RGB32);
        TovReleaseImage(&colours);
        QRect const mark = Mark();
        QImage const shown = screen.copy(Place(View()->widget()));
        if (mark.size() != shown.size() - QSize(1, 1))
            return "the mark has not the view's size";
        if (shown != whole.copy(mark.adjusted(-1, -1, 0, 0)))
            return "the view does not show the marked part";
        auto const isIn = [&](int x, int y) {
            return Main()->GetRenderer()->Translate(&x, &y, 1) == 0 && mark.contains(x, y);
        };
        QImage const main = screen.copy(Place(Main()->viewport()));
        for (int i = 0; i < main.width() * main.height(); ++i) {
            int const x = i % main.width();
            int const y = i / main.width();
            bool const inside = isIn(x - 1, y) && isIn(x + 1, y) && isIn(x, y - 1) && isIn(x, y + 1);
            if ((main.pixel(x, y) == MarkColour) != (isIn(x, y) && !inside))
                return "the outline is wrong at " + std::to_string(x) + ", " + std::to_string(y);
        }
        return {};
    }
};

TEST(InspectClicks, TheViewShowsAndMarksAPartExactly)
{
    Operator::Run([](Robot &robot, Operator &hands) {
        hands.Connect(robot, Serials[1]); // with a mosaic
        InspectTour tour(robot, hands);
        hands.Play(robot);
        tour.Open(0.4, 0.45);
        robot.Screenshot(QStringLiteral("inspect-opened"));
        tour.PutAside();
        robot.Gui([&] { hands.Features()->SetIntegerValue("SimMissingEvery", 1); });
        for (char const *zoom : {"actionFitToWindow", "actionSpreadToWindow", "actionActualSize", "actionZoomIn"}) {
            robot.Click(hands.Window(), zoom);
            tour.ExpectExact(zoom);
        }
        robot.Click(hands.Window(), "actionFitToWindow");
        tour.ExpectExact("fitted");
        QRect const before = robot.Gui([&] { return tour.Mark(); });
        QPoint const middle = robot.Gui([&] { return InspectTour::Place(tour.View()->widget()).center(); });
        robot.Drag(middle, middle + QPoint(-57, 23));
        robot.WaitFor("the part to move", [&] { return tour.Mark() == before.translated(57, -23); });
        tour.ExpectExact("dragged");

        // A further double click brings it, also when the picture has stopped; button, cross and key hide and show it.
        InspectView *const same = robot.Gui([&] { return tour.View(); });
        hands.Stop(robot);
        tour.Open(0.6, 0.6);
        EXPECT_EQ(robot.Gui([&] { return tour.View(); }), same);
        robot.Click(hands.Window(), "actionInspectionView");
        tour.ExpectShown(false);
        robot.Key("ctrl+i");
        tour.ExpectShown(true);
        robot.Click(same->findChild<QWidget *>(QStringLiteral("qt_dockwidget_closebutton")));
        tour.ExpectShown(false);
        hands.Disconnect(robot);
        EXPECT_FALSE(robot.Gui([&] { return tour.View(); }));
    });
}

} // namespace
