#include "params.h"
#include "viewfixture.h"
#include "wait.h"

#include "../image/reference.h"

#include <QMouseEvent>
#include <QSignalSpy>

#include <cstring>

namespace {

auto Grey(int value)
{
    return [value](_TovImage &image) {
        std::memset(image.imageData, value, image.imageSize);
    };
}

class DisplayViewTest : public ViewFixture
{
protected:
    int Shown()
    {
        QApplication::processEvents();
        return qRed(view->grab().toImage().pixel(100, 75));
    }
    std::string Map()
    {
        return ParamText(view->GetRenderer()->GetComponent(), "filter.channel.0");
    }
};

// ---- Colouring ------------------------------------------------------------------------------------------------------

constexpr char const *Markers8 = "0.0000,1,0.0000,1.0000,0.0000;0.9922,0;1.,1,1.0000,0.0000,0.0000;";
constexpr char const *Markers12 = "0.000237,1,0.000000,1.000000,0.000000;0.999504,0;1.,1,1.000000,0.000000,0.000000;";

TEST_F(DisplayViewTest, ColorizeRefusesAnEmptyRangeAndTakesTheLargestStretch)
{
    TovComponent *const component = view->GetRenderer()->GetComponent();
    component->SetParamString("filter.channel.0", "untouched");
    EXPECT_FALSE(view->Colorize(true, 5, 5, 256, false));
    EXPECT_FALSE(view->Colorize(false, 0, 254, 256, false)); // nothing to do
    EXPECT_FALSE(view->Colorize(true, 0, 1, 1, true));
    EXPECT_EQ(Map(), "untouched");
    EXPECT_TRUE(view->Colorize(false, 0, 2, 2, true));
    EXPECT_EQ(Map(), "0.0000,0.5,0.0000;0.5000,0.5,0.5000;1.,1,1.,1.,1.;");
    EXPECT_TRUE(view->Colorize(true, 0, 65534, 65536, true));
    EXPECT_EQ(component->RunCommand("filter.add"), 0u); // it fits
}

TEST_F(DisplayViewTest, ApplyColorationFollowsTheDepthOfTheStream)
{
    view->SetParamInt("ColorationType", 2);
    view->RunCommand("ApplyColoration");
    EXPECT_EQ(Map(), Markers8);
    device.stream.SetFormat(32, 32, TypeOf("Mono12"), 12);
    Begin();
    ASSERT_TRUE(Show({1}));
    view->RunCommand("ApplyColoration");
    EXPECT_EQ(Map(), Markers12);
}

// ---- Start, stop, the loop ------------------------------------------------------------------------------------------

TEST_F(DisplayViewTest, StopsAThreadThatWaitsForATick)
{
    view->SetParamFloat("DisplayRate", 0.0005); // no timer
    for (int i = 0; i < 50; ++i) {
        Begin();
        if (i % 2 == 0) {
            view->UpdateVideo(); // without a frame it sleeps in the FIFO
            ASSERT_TRUE(i % 4 != 0 || Show({std::uint64_t(i + 1)}));
        }
        Finish();
        EXPECT_FALSE(Last());
    }
    Begin();
    view->UpdateVideo();
    ASSERT_TRUE(Show({1000}));
    view.reset(); // while it displays
}

TEST_F(DisplayViewTest, ShowsEveryCompleteFrameOnce)
{
    for (std::uint32_t width : {32u, 32u, 64u}) { // each start takes up the format, and shows a number seen before
        device.stream.SetFormat(width, 30, TypeOf("Mono8"), 8);
        Begin();
        ASSERT_TRUE(Show({7}, Grey(50)));
        EXPECT_TRUE(WaitFor([&] { return Shown() == 50; }));
        ASSERT_TRUE(Offer({7}, Grey(60)));
        EXPECT_EQ(Shown(), 50);
        ASSERT_TRUE(Offer({8, 0, true}, Grey(70)));
        EXPECT_EQ(Shown(), 50);
        ASSERT_TRUE(Show({9}, Grey(80)));
        EXPECT_EQ(Shown(), 80);
        EXPECT_EQ(Last()->width, width);
        Finish();
    }
}

TEST(StreamWatchTest, TellsASilentStreamFromASlowOne)
{
    using namespace std::chrono_literals;
    using Silence = StreamWatch::Silence;
    struct Look
    {
        std::chrono::milliseconds at;
        int arrived, incomplete; // since the start
        std::optional<Silence> told;
    };
    std::vector<Look> const streams[] = {
        {{1900ms, 0, 0, {}}, {2000ms, 0, 0, Silence{2s}}, {65s, 0, 0, Silence{65s}}, {66s, 1, 0, {}}}, // one at last
        {{500ms, 3, 1, {}},
         {2000ms, 9, 7, {}},
         {2500ms, 12, 10, Silence{2s, 9}},
         {3500ms, 13, 11, Silence{3s, 10}},
         {3600ms, 14, 11, {}},
         {4000ms, 20, 17, {}}},
        {{1s, 5, 5, {}}, {2s, 9, 9, Silence{2s, 9}}, {4s, 9, 9, Silence{2s}}},            // incomplete, then none
        {{3s, 1, 0, {}}, {6s, 2, 0, {}}, {11s, 2, 0, {}}, {12s, 2, 0, Silence{6s}}},      // three seconds apart
        {{1s, 1, 0, {}}, {101s, 2, 0, {}}, {110s, 2, 0, {}}, {111s, 2, 0, Silence{10s}}}, // a trigger by hand
    };
    StreamWatch::Time const start{100h};
    for (auto const &looks : streams) {
        StreamWatch watch;
        watch.Start(start, 1000, 300);
        for (Look const &look : looks)
            EXPECT_EQ(watch.Look(start + look.at, 1000 + look.arrived, 300 + look.incomplete), look.told)
                << &looks - streams << ": " << look.at.count();
    }
}

TEST_F(DisplayViewTest, SaysThatThePictureIsOldUntilItIsNot)
{
    Begin();
    ASSERT_TRUE(Show({1}, Grey(90)));
    EXPECT_EQ(Shown(), 90);
    QImage const plain = view->grab().toImage();
    auto const isOld = [&] {
        return view->grab().toImage() != plain;
    };
    EXPECT_TRUE(WaitFor(isOld)); // nothing comes any more
    EXPECT_TRUE(std::all_of(Last()->imageData, Last()->imageData + Last()->imageSize, [](int v) { return v == 90; }));
    ASSERT_TRUE(Show({5000}, Grey(90)));
    EXPECT_EQ(Shown(), 90);
    EXPECT_FALSE(isOld());
    Finish();
}

// ---- Read-out -------------------------------------------------------------------------------------------------------

TEST_F(DisplayViewTest, ReadsTheValuesOfAPixel)
{
    struct
    {
        char const *type;
        std::vector<std::uint8_t> pixel; // bytes of every pixel
        int r, g, b;
    } const cases[] = {
        {"Mono8", {77}, -1, 77, -1},
        {"Mono16", {0x34, 0x12}, -1, 0x1234, -1},
        {"BayerRG12", {0xFF, 0x0F}, -1, 0x0FFF, -1},
        {"RGB8", {1, 2, 3}, 1, 2, 3},
        {"BGR8", {1, 2, 3}, 3, 2, 1},
        {"RGBa8", {1, 2, 3, 4}, 1, 2, 3},
        {"BGRa8", {1, 2, 3, 4}, 3, 2, 1},
        {"RGB16", {1, 0, 2, 0, 3, 1}, 1, 2, 0x103},
        {"BGR16", {1, 0, 2, 0, 3, 1}, 1, 2, 0x103},
        {"YUV422_8", {5, 6}, -1, 0x0605, -1},
        {"BayerRG8", {9}, -1, -1, -1},
    };
    QSignalSpy spy(view.get(), &DisplayView::mouseMoved);
    for (auto const &c : cases) {
        device.stream.SetFormat(7, 5, TypeOf(c.type), InfoOf(c.type).bitDepth);
        Begin();
        ASSERT_TRUE(Show({1}, [&](_TovImage &image) {
            for (std::uint32_t i = 0; i < image.imageSize; ++i)
                image.imageData[i] = c.pixel[i % c.pixel.size()];
        }));
        view->Zoom100();
        for (QPoint at : {QPoint(-1, 0), QPoint(0, -1), QPoint(7, 0), QPoint(0, 5), QPoint(6, 4)}) {
            view->sendMouseMoved(at.x(), at.y());
            auto const inside = at.x() == 6 ? std::optional(at) : std::nullopt;
            view->GetRenderer()->Translate(&at.rx(), &at.ry(), 0);
            EXPECT_EQ(view->PixelAt(view->viewport()->mapToGlobal(at)), inside) << at.x();
        }
        Finish();
        view->sendMouseMoved(6, 4); // no image
        ASSERT_EQ(spy.count(), 1);
        EXPECT_EQ(spy.takeFirst(), (QList<QVariant>{6, 4, c.r, c.g, c.b})) << c.type;
    }
}

TEST_F(DisplayViewTest, ThePointerReadsWhatItStandsOn)
{
    device.stream.SetFormat(400, 300, TypeOf("Mono8"), 8);
    Begin();
    ASSERT_TRUE(Show({1}, Grey(50)));
    QSignalSpy spy(view.get(), &DisplayView::mouseMoved);
    QMouseEvent move(QEvent::MouseMove, QPoint(50, 60), Qt::NoButton, Qt::NoButton, Qt::NoModifier);
    QApplication::sendEvent(view->viewport(), &move);
    ASSERT_FALSE(spy.isEmpty()); // fitted at a half
    EXPECT_EQ(spy.last(), (QList<QVariant>{101, 121, -1, 50, -1}));
    // It rests, and a new frame comes.
    ASSERT_TRUE(Show({2}, Grey(57)));
    EXPECT_TRUE(WaitFor([&] { return spy.last() == QList<QVariant>{101, 121, -1, 57, -1}; }));
    // It leaves.
    QEvent leave(QEvent::Leave);
    QApplication::sendEvent(view->viewport(), &leave);
    spy.clear();
    ASSERT_TRUE(Show({3}, Grey(59)));
    EXPECT_EQ(Shown(), 59);
    EXPECT_EQ(spy.count(), 0);
}

TEST_F(DisplayViewTest, AStillPictureFollowsTheZoomIntoItsPixels)
{
    device.stream.SetFormat(400, 300, TypeOf("Mono8"), 8);
    Begin();
    ASSERT_TRUE(Show({1}, [](_TovImage &image) {
        for (std::uint32_t i = 0; i < image.imageSize; ++i)
            image.imageData[i] = (i / 400 + i % 400) % 2 ? 255 : 0;
    }));
    auto const isCrisp = [&] {
        return Shown() % 255 == 0;
    };
    EXPECT_FALSE(isCrisp());
    EXPECT_TRUE(view->Zoom100());
    EXPECT_TRUE(WaitFor(isCrisp)); // paused
    EXPECT_TRUE(view->ZoomFitToWnd());
    EXPECT_TRUE(WaitFor([&] { return !isCrisp(); }));
    Finish();
    EXPECT_TRUE(view->Zoom100());
    EXPECT_TRUE(isCrisp());                                  // stopped
    EXPECT_TRUE(view->Colorize(true, 254, 255, 256, false)); // black becomes green
    QImage const picture = view->grab().toImage();
    EXPECT_NE(picture.pixel(100, 75) == qRgb(0, 255, 0), picture.pixel(101, 75) == qRgb(0, 255, 0));
}

} // namespace
