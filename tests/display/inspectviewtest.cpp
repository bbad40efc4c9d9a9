#include "inspectview.h"
#include "params.h"
#include "viewfixture.h"

#include "../image/reference.h"

#include <QMouseEvent>
#include <QWheelEvent>

#include <cstring>
#include <thread>

namespace {

int Texture(QPoint at)
{
    return int((at.x() * 2654435761u + at.y() * 40503u) >> 7 & 0xFF);
}

class InspectViewTest : public ViewFixture
{
protected:
    void Open(QSize size)
    {
        inspect = std::make_unique<InspectView>(&window, view->GetRenderer()->GetComponent(), QPoint(10, 10), 0, 0);
        inspect->JoinDisplay(view.get());
        inspect->resize(size);
        inspect->show();
    }
    QRect Dump()
    {
        TovComponent *const c = view->GetRenderer()->GetComponent();
        return QRect(IntOf(c, "dump.x"), IntOf(c, "dump.y"), IntOf(c, "dump.w"), IntOf(c, "dump.h"));
    }
    QImage Picture(QWidget *widget)
    {
        QApplication::processEvents();
        return widget->grab().toImage().convertToFormat(QImage::Format_RGB32);
    }
    // A picture of one grey, and in the main view a mark on it or none.
    bool Shows(int grey, bool mark = true)
    {
        QImage const main = Picture(view.get());
        bool marked = false;
        for (int i = 0; i < main.width() * main.height(); ++i)
            marked |= main.pixel(i % main.width(), i / main.width()) == 0xFFFFC800;
        QWidget *const shown = inspect->widget();
        return marked == mark && qRed(Picture(shown).pixel(shown->rect().center())) == grey;
    }
    void Drag(QPoint by)
    {
        QPoint const from(50, 40);
        for (auto const &[type, at] : {std::pair(QEvent::MouseButtonPress, from),
                                       {QEvent::MouseMove, from + by},
                                       {QEvent::MouseButtonRelease, from + by},
                                       {QEvent::MouseMove, from}}) {
            QMouseEvent event(type, at, Qt::LeftButton, Qt::LeftButton, Qt::NoModifier);
            QApplication::sendEvent(inspect->widget(), &event);
        }
    }

    std::unique_ptr<InspectView> inspect;
};

TEST_F(InspectViewTest, ShowsItsPartPixelByPixelAndTellsWhichItIs)
{
    device.stream.SetFormat(640, 480, TypeOf("Mono8"), 8);
    Begin();
    Open({120, 90});
    EXPECT_LE(Dump().width(), -1); // no frame yet
    inspect->LookAt({300, 200});   // waits for it
    ASSERT_TRUE(Show({1}, [](_TovImage &image) {
        for (std::uint32_t i = 0; i < image.imageSize; ++i)
            image.imageData[i] = std::uint8_t(Texture(QPoint(int(i % 640), int(i / 640))));
    }));
    // What is shown at the upper left; the mark is a pixel less at the left and the top.
    auto const expectPart = [this](QPoint first, QRect dump) {
        EXPECT_TRUE(WaitFor([&] {
            QImage const shown = Picture(inspect->widget());
            for (int i = 0; i < shown.width() * shown.height(); ++i) {
                QPoint const device(i % shown.width(), i / shown.width());
                QPoint const at = first + device;
                if (qRed(shown.pixel(device)) != (QRect(0, 0, 640, 480).contains(at) ? Texture(at) : 0x26))
                    return false;
            }
            return true;
        })) << first.x();
        EXPECT_EQ(Dump(), dump) << first.x();
    };
    expectPart({241, 156}, {242, 157, 119, 89});
    inspect->LookAt({639, 1});
    expectPart({520, 0}, {521, 1, 119, 89});
    inspect->LookAt({100, 470});
    expectPart({41, 390}, {42, 391, 119, 89});
    Drag({-30, 20});
    expectPart({71, 370}, {72, 371, 119, 89});
    QTest::keyClick(inspect->widget(), Qt::Key_Up);
    expectPart({71, 359}, {72, 360, 119, 89});
    QWheelEvent wheel(QPoint(9, 9), QPoint(9, 9), {}, {0, 240}, Qt::NoButton, Qt::NoModifier, Qt::NoScrollPhase, false);
    QApplication::sendEvent(inspect->widget(), &wheel); // there is no zoom
    QTest::keyClick(inspect->widget(), Qt::Key_Plus);
    expectPart({71, 359}, {72, 360, 119, 89});
    inspect->resize(121, 60); // about its middle
    expectPart({71, 374}, {72, 375, 120, 59});
    inspect->resize(700, 500);
    expectPart({-30, -10}, {1, 1, 639, 479});
}

TEST_F(InspectViewTest, HidesShowsAndFollowsTheStream)
{
    auto const show = [this](std::uint64_t id) {
        return Show({id}, [id](_TovImage &image) { std::memset(image.imageData, int(10 * id), image.imageSize); });
    };
    Begin();
    Open({120, 90});
    ASSERT_TRUE(show(5));
    EXPECT_TRUE(WaitFor([&] { return Shows(50); }));
    inspect->close();
    ASSERT_TRUE(show(6));
    EXPECT_TRUE(Shows(50, false));
    // The stream pauses: the view catches up by itself.
    inspect->show();
    EXPECT_TRUE(WaitFor([&] { return Shows(60); }));
    // Another format comes while it is hidden.
    inspect->hide();
    Finish();
    device.stream.SetFormat(400, 300, TypeOf("Mono8"), 8);
    Begin();
    ASSERT_TRUE(show(7));
    inspect->show();
    ASSERT_TRUE(show(8));
    EXPECT_TRUE(WaitFor([&] { return Shows(80) && Dump().size() == QSize(119, 89); }));
    // The stream ends while it is hidden.
    inspect->hide();
    ASSERT_TRUE(show(9));
    Finish();
    inspect->show();
    EXPECT_TRUE(Shows(90));
    // It is opened when the stream has ended.
    Open({50, 50});
    inspect->LookAt({200, 100});
    EXPECT_TRUE(Shows(90));
    EXPECT_EQ(Dump(), QRect(177, 77, 49, 49));
}

TEST_F(InspectViewTest, ComesAndGoesAThousandTimesWhileFramesRun)
{
    device.stream.SetFormat(320, 240, TypeOf("Mono8"), 8);
    Begin();
    std::atomic<bool> stop{false};
    std::thread camera([&] {
        for (std::uint64_t id = 1; !stop && device.stream.WaitForFree(); ++id)
            device.stream.Push({id});
    });
    for (int i = 0; i < 1000; ++i) {
        Open({60 + i % 50, 60});
        inspect->LookAt(QPointF(i % 320, i % 240));
        view->UpdateVideo();
        if (i % 10 == 0) { // and the other renderer
            EXPECT_TRUE(i % 20 == 0 ? view->Zoom100() : view->ZoomFitToWnd());
            view->Colorize(true, i % 3, 254, 256, i % 30 == 0);
            view->GetRenderer()->GetComponent()->RunCommand(i % 40 == 0 ? "filter.del" : "filter.add");
            view->resize(100 + i % 99, 80 + i % 70);
        }
        if (i % 8 == 0) {
            EXPECT_TRUE(WaitFor([&] { return view->UpdateVideo(), Dump().width() > 0; })) << i;
            Drag({i % 7, i % 5});
            inspect->setVisible(i % 16 == 0);
        }
        for (int rounds = i % 3; rounds > 0; --rounds)
            QApplication::processEvents();
        view->UpdateVideo();
        if (i % 2 == 0)
            inspect.reset();
    }
    stop = true;
    camera.join();
}

} // namespace
