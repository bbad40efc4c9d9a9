#include "inspectview.h"
#include "inspectcheck.h"
#include "viewfixture.h"

#include "../image/reference.h"

#include <QMouseEvent>
#include <QWheelEvent>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <thread>

namespace {

int Texture(int x, int y)
{
    return int((x * 2654435761u + y * 40503u) >> 7 & 0xFF);
}

void PaintTexture(_TovImage &image)
{
    for (std::uint32_t y = 0; y < image.height; ++y)
        for (std::uint32_t x = 0; x < image.width; ++x)
            image.imageData[y * image.lineStep + x] = std::uint8_t(Texture(int(x), int(y)));
}

class InspectViewTest : public ViewFixture
{
protected:
    InspectViewTest()
    {
        view->resize(300, 200);
    }
    void Open(QSize size = {120, 90})
    {
        inspect = std::make_unique<InspectView>(&window, view->GetRenderer()->GetComponent(), QPoint(10, 10), 0, 0);
        inspect->JoinDisplay(view.get());
        inspect->resize(size);
        inspect->show();
    }
    QWidget *Picture()
    {
        return inspect->widget();
    }
    QRect Dump()
    {
        long values[4] = {};
        char const *const keys[] = {"dump.x", "dump.y", "dump.w", "dump.h"};
        for (int i = 0; i < 4; ++i)
            view->GetRenderer()->GetComponent()->GetParamInt(keys[i], &values[i]);
        return QRect(int(values[0]), int(values[1]), int(values[2]), int(values[3]));
    }
    static QImage Grab(QWidget *widget)
    {
        QApplication::processEvents();
        return widget->grab().toImage().convertToFormat(QImage::Format_RGB32);
    }
    int Grey()
    {
        return qRed(Grab(Picture()).pixel(Picture()->rect().center()));
    }
    bool HasMark()
    {
        QImage const main = Grab(view.get());
        for (int i = 0; i < main.width() * main.height(); ++i)
            if (main.pixel(i % main.width(), i / main.width()) == MARK_COLOUR)
                return true;
        return false;
    }
    void Mouse(QEvent::Type type, QPoint at, Qt::MouseButtons held)
    {
        QMouseEvent event(type, at, type == QEvent::MouseMove ? Qt::NoButton : Qt::LeftButton, held, Qt::NoModifier);
        QApplication::sendEvent(Picture(), &event);
    }
    void Drag(QPoint by)
    {
        Mouse(QEvent::MouseButtonPress, {50, 40}, Qt::LeftButton);
        Mouse(QEvent::MouseMove, QPoint(50, 40) + by, Qt::LeftButton);
        Mouse(QEvent::MouseButtonRelease, QPoint(50, 40) + by, Qt::NoButton);
    }

    // The view shows the texture from `first` on, pixel by pixel; the main view marks that part at every zoom.
    void ExpectExact(QPoint first, QSize image, char const *when)
    {
        SCOPED_TRACE(when);
        auto const at = [&](int x, int y) {
            return QRect(QPoint(), image).contains(first + QPoint(x, y)) ? Texture(first.x() + x, first.y() + y) : 0x26;
        };
        ASSERT_TRUE(WaitFor([&] {
            QImage const shown = Grab(Picture());
            for (int y = 0; y < shown.height(); ++y)
                for (int x = 0; x < shown.width(); ++x)
                    if (qRed(shown.pixel(x, y)) != at(x, y))
                        return false;
            return true;
        })) << first.x()
            << ", " << first.y();

        QRect const mark = MarkOf(first, Picture()->size(), image);
        EXPECT_EQ(Dump(), mark);
        for (int zoom : {-1, -2, -3, 1, 3, 17}) {
            view->GetRenderer()->GetComponent()->SetParamInt(zoom < 0 ? "display.fit" : "display.view.scale",
                                                             std::abs(zoom));
            if (zoom > 0) { // to a corner of the mark
                view->GetRenderer()->GetComponent()->SetParamFloat("display.at.x", double(mark.x()) / image.width());
                view->GetRenderer()->GetComponent()->SetParamFloat("display.at.y", double(mark.y()) / image.height());
            }
            EXPECT_EQ(MarkFault(Grab(view.get()), view->GetRenderer(), mark), "") << zoom;
        }
    }

    std::unique_ptr<InspectView> inspect;
};

TEST_F(InspectViewTest, ShowsItsPartPixelByPixelAndMarksItAtEveryZoom)
{
    device.stream.SetFormat(640, 480, TypeOf("Mono8"), 8);
    Begin();
    Open();
    EXPECT_LE(Dump().width(), -1); // no frame yet
    EXPECT_FALSE(HasMark());
    inspect->LookAt({300, 200}); // waits for it
    ASSERT_TRUE(Show({1}, PaintTexture));
    QSize const image(640, 480);
    ExpectExact({241, 156}, image, "opened");
    inspect->LookAt({639, 1});
    ExpectExact({520, 0}, image, "in a corner");
    inspect->LookAt({100, 470});
    ExpectExact({41, 390}, image, "at an edge");
    Drag({-30, 20});
    ExpectExact({71, 370}, image, "dragged");
    QKeyEvent key(QEvent::KeyPress, Qt::Key_Up, Qt::NoModifier);
    QApplication::sendEvent(Picture(), &key);
    ExpectExact({71, 359}, image, "by a key");
    // The scale is fixed.
    QWheelEvent wheel(QPoint(9, 9), QPoint(9, 9), {}, {0, 240}, Qt::NoButton, Qt::NoModifier, Qt::NoScrollPhase, false);
    QApplication::sendEvent(Picture(), &wheel);
    QKeyEvent plus(QEvent::KeyPress, Qt::Key_Plus, Qt::NoModifier);
    QApplication::sendEvent(Picture(), &plus);
    ExpectExact({71, 359}, image, "after the wheel");
    inspect->resize(121, 60);
    ExpectExact({71, 374}, image, "resized"); // about its middle
    inspect->resize(700, 500);
    ExpectExact({-30, -10}, image, "wider than the image");
}

TEST_F(InspectViewTest, AViewWiderThanTheImageMarksAllButOnePixel)
{
    device.stream.SetFormat(1024, 768, TypeOf("Mono8"), 8);
    Begin();
    Open({1100, 800});
    ASSERT_TRUE(Show({1}));
    EXPECT_TRUE(WaitFor([&] { return Dump() == QRect(1, 1, 1023, 767); }));
}

TEST_F(InspectViewTest, HidesShowsAndFollowsTheStream)
{
    auto const grey = [](int value) {
        return [value](_TovImage &image) {
            std::memset(image.imageData, value, image.imageSize);
        };
    };
    Begin();
    Open();
    ASSERT_TRUE(Show({1}, grey(50)));
    EXPECT_TRUE(WaitFor([&] { return Grey() == 50 && HasMark(); }));
    inspect->close();
    EXPECT_TRUE(inspect->isHidden());
    EXPECT_FALSE(HasMark());
    ASSERT_TRUE(Show({2}, grey(60)));
    // The stream pauses: the view catches up by itself.
    inspect->show();
    EXPECT_TRUE(HasMark());
    EXPECT_TRUE(WaitFor([&] { return Grey() == 60; }));
    // Another format comes while it is hidden.
    inspect->hide();
    Finish();
    device.stream.SetFormat(400, 300, TypeOf("Mono8"), 8);
    Begin();
    ASSERT_TRUE(Show({3}, grey(70)));
    inspect->show();
    ASSERT_TRUE(Show({4}, grey(80)));
    EXPECT_TRUE(WaitFor([&] { return Grey() == 80 && Dump().size() == QSize(119, 89); }));
    // The stream ends while it is hidden, and it is made when the stream has ended.
    inspect->hide();
    ASSERT_TRUE(Show({5}, grey(90)));
    Finish();
    inspect->show();
    EXPECT_EQ(Grey(), 90);
    Open({50, 50});
    inspect->LookAt({200, 100});
    EXPECT_EQ(Grey(), 90);
    EXPECT_EQ(Dump(), QRect(177, 77, 49, 49));
    EXPECT_TRUE(HasMark());
    inspect.reset();
    EXPECT_FALSE(HasMark());
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
        inspect->LookAt({double(i % 320), double(i % 240)});
        view->UpdateVideo();
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
