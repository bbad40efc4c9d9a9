#include "displayfixture.h"

#include <QDeadlineTimer>
#include <QTest>

#include <functional>
#include <map>
#include <thread>

namespace {

// The whole frame made RGB, sample by sample where it is not the image library's interpolation.
QImage WholePicture(Pixels const &pixels)
{
    TovPixelTypeInfo const &info = pixels.Info();
    TovImageSize const size{pixels.Image()->width, pixels.Image()->height};
    QImage picture(int(size.width), int(size.height), QImage::Format_RGB32);
    _TovImage *colours = nullptr;
    TovCreateImage(&colours, size, TV_PIXEL_RGB8);
    bool const oneSample = info.family == TOV_FAMILY_MONO || info.bayer != TOV_BAYER_NONE;
    if (oneSample) {
        char const *const names[] = {"Mono8", "BayerGR8", "BayerRG8", "BayerGB8", "BayerBG8"};
        _TovImage *bytes = nullptr;
        TovCreateImage(&bytes, size, TypeOf(names[info.bayer]));
        for (std::uint32_t y = 0; y < size.height; ++y) {
            for (std::uint32_t x = 0; x < size.width; ++x)
                bytes->imageData[y * bytes->lineStep + x] = std::uint8_t(pixels.Sample(y, x) >> (info.bitDepth - 8));
        }
        EXPECT_EQ(TovConvertImage(colours, bytes), 0u);
        TovReleaseImage(&bytes);
    } else {
        EXPECT_EQ(TovConvertImage(colours, pixels.Image()), 0u);
    }
    for (std::uint32_t y = 0; y < size.height; ++y) {
        for (std::uint32_t x = 0; x < size.width; ++x) {
            std::uint8_t const *const rgb = colours->imageData + y * colours->lineStep + 3 * x;
            picture.setPixel(int(x), int(y), qRgb(rgb[0], rgb[1], rgb[2]));
        }
    }
    TovReleaseImage(&colours);
    return picture;
}

// Every device pixel shows the image pixel that Translate tells, or the background outside the picture.
class CrispPicture : public DisplayFixture, public testing::WithParamInterface<char const *>
{
protected:
    void ExpectPixels(QImage const &shown, QImage const &whole, char const *when)
    {
        int wrong = 0;
        for (int y = 0; y < shown.height(); ++y) {
            for (int x = 0; x < shown.width(); ++x) {
                QPoint const at = At(x, y);
                QRgb const expected = whole.rect().contains(at) ? whole.pixel(at) : BACKGROUND;
                if (shown.pixel(x, y) != expected && ++wrong == 1)
                    ADD_FAILURE() << when << ": device pixel " << x << "," << y << " is " << std::hex
                                  << shown.pixel(x, y) << ", not " << expected;
            }
        }
        EXPECT_EQ(wrong, 0) << when;
    }
};

TEST_P(CrispPicture, IsTheWholeConversionAtEveryZoomAndOffset)
{
    Pixels const pixels(TypeOf(GetParam()), 301, 203, 5, 1);
    QImage const whole = WholePicture(pixels);
    Set("display.fit", 3);
    ExpectPixels(Show(pixels.Image()), whole, "actual size");
    Drag({100, 100}, {57, 71}); // odd offsets
    ExpectPixels(Show(pixels.Image()), whole, "moved");
    Set("display.view.scale", 3);
    Drag({10, 10}, {180, 140});
    ExpectPixels(Show(pixels.Image()), whole, "three times");
    Wheel({33, 44}, -120); // 2.52...
    ExpectPixels(Show(pixels.Image()), whole, "between");
    Drag({190, 140}, {0, 0});
    Drag({190, 140}, {0, 0});
    Drag({190, 140}, {0, 0});
    ExpectPixels(Show(pixels.Image()), whole, "the last pixels");
    Set("display.view.scale", 64);
    ExpectPixels(Show(pixels.Image()), whole, "64 times");
}

TEST_P(CrispPicture, OfAPictureSmallerThanTheView)
{
    Pixels const pixels(TypeOf(GetParam()), 37, 22, 1, 2);
    QImage const whole = WholePicture(pixels);
    ExpectPixels(Show(pixels.Image()), whole, "fitted");
    Set("display.fit", 2);
    ExpectPixels(Show(pixels.Image()), whole, "spread");
    Set("display.fit", 3);
    ExpectPixels(Show(pixels.Image()), whole, "actual size");
}

INSTANTIATE_TEST_SUITE_P(Types, CrispPicture,
                         testing::Values("Mono8", "Mono10Packed", "Mono12p", "Mono16", "Mono12_WEftPacked", "BayerGR8",
                                         "BayerRG8", "BayerGB8", "BayerBG8", "BayerGR12Packed", "BayerRG10p",
                                         "BayerGB16", "BayerBG12p", "BayerRG10Packed", "TrueSense_GRBG_WGGW_1_8",
                                         "RGB8", "BGRa8", "BGR10", "RGB_10_WEFT_Packed", "YUV422_8", "YUV444_8"),
                         [](auto const &info) { return std::string(info.param); });

// ---- Reduced pictures -----------------------------------------------------------------------------------------------

using RasterDisplay = DisplayFixture;

TEST_F(RasterDisplay, ReducedPicturesAreTheMeanOfWhatIsUnderEachDevicePixel)
{
    struct Case
    {
        char const *type;
        int reduction;
    };
    for (Case const &c : {Case{"Mono12Packed", 2},
                          {"Mono12Packed", 3},
                          {"Mono8", 4},
                          {"BayerGR8", 2},
                          {"BayerRG12Packed", 2},
                          {"BayerGB10p", 4},
                          {"BayerBG16", 6}}) {
        int const n = c.reduction;
        Pixels const pixels(TypeOf(c.type), 200 * n, 150 * n, 3, 3);
        QImage const shown = Show(pixels.Image());
        for (int y = 0; y < 150; y += 7) {
            for (int x = 0; x < 200; x += 3) {
                std::map<char, std::pair<double, int>> sums; // by the colour of the filter
                for (int i = 0; i < n * n; ++i) {
                    std::uint32_t const px = x * n + i % n;
                    std::uint32_t const py = y * n + i / n;
                    auto &[sum, count] = sums[TovGetFilterColour(&pixels.Info(), px, py)];
                    sum += pixels.Sample(py, px) >> (pixels.Info().bitDepth - 8);
                    ++count;
                }
                QRgb const pixel = shown.pixel(x, y);
                for (auto const &[colour, sum] : sums) {
                    int const value = colour == 'G' ? qGreen(pixel) : colour == 'B' ? qBlue(pixel) : qRed(pixel);
                    ASSERT_NEAR(value, sum.first / sum.second, 3.0) << c.type << " " << x << " " << y << " " << colour;
                }
            }
        }
    }
}

TEST_F(RasterDisplay, AnEvenPictureStaysEvenAtEveryReduction)
{
    for (char const *name : {"Mono8", "BayerGR8", "RGB8", "YUV444_8", "TrueSense_BGGR_WBBW_0_8"}) {
        Pixels pixels(TypeOf(name), 701, 523, 3, 5);
        std::fill(pixels.Memory().begin(), pixels.Memory().end(), 128);
        for (int width : {690, 500, 349, 200, 123, 61, 20, 5}) {
            widget->resize(width, width * 523 / 701 + 1);
            QImage const shown = Show(pixels.Image());
            QRect picture;
            for (int y = 0; y < shown.height(); ++y) {
                for (int x = 0; x < shown.width(); ++x) {
                    if (shown.pixel(x, y) == BACKGROUND)
                        continue;
                    ASSERT_EQ(shown.pixel(x, y), qRgb(128, 128, 128)) << name << " " << width << " " << x << " " << y;
                    picture |= QRect(x, y, 1, 1);
                }
            }
            EXPECT_EQ(picture.width(), width) << name;
        }
    }
}

// ---- The view -------------------------------------------------------------------------------------------------------

TEST_F(RasterDisplay, CommandsPlaceThePicture)
{
    Pixels const pixels(TypeOf("Mono8"), 400, 200, 0, 6);
    Pixels const other(TypeOf("Mono8"), 100, 300, 0, 7);
    Show(pixels.Image());
    // Fitted by default: the whole width, centred over the height.
    EXPECT_EQ(Get("display.fit"), 1);
    EXPECT_EQ(At(0, 25), QPoint(1, 1));
    EXPECT_EQ(At(199, 124), QPoint(399, 199));
    EXPECT_EQ(At(0, 24).y(), -1);
    widget->resize(100, 100);
    QApplication::processEvents();
    EXPECT_EQ(At(0, 25), QPoint(2, 2));
    // Spread: the height fills the view, the sides overhang.
    Set("display.fit", 2);
    EXPECT_EQ(At(0, 0), QPoint(101, 1));
    EXPECT_EQ(At(99, 99), QPoint(299, 199));
    widget->resize(200, 150);
    QApplication::processEvents();
    // Actual size about the middle.
    Set("display.fit", 3);
    EXPECT_EQ(At(0, 0), QPoint(100, 25));
    EXPECT_EQ(Run("display.zoom.in"), 0u);
    EXPECT_EQ(Get("display.fit"), 0);
    EXPECT_EQ(WidgetAt(200, 100), QPoint(100, 75));
    EXPECT_EQ(WidgetAt(202, 100), QPoint(103, 75)); // one and a half
    Drag({150, 75}, {100, 50});
    EXPECT_EQ(WidgetAt(200, 100), QPoint(50, 50));
    EXPECT_EQ(Run("display.atcenter"), 0u);
    EXPECT_EQ(WidgetAt(200, 100), QPoint(100, 75));
    Set("display.fit", 3);
    EXPECT_EQ(Run("display.zoom.out"), 0u);
    EXPECT_EQ(WidgetAt(203, 100), QPoint(102, 75)); // two thirds
    for (int i = 0; i < 100; ++i)
        Run("display.zoom.out");
    EXPECT_GT(WidgetAt(400, 0).x() - WidgetAt(0, 0).x(), 50);
    for (int i = 0; i < 100; ++i)
        Run("display.zoom.in");
    EXPECT_EQ(WidgetAt(201, 0).x() - WidgetAt(200, 0).x(), 64);
    // Another shape keeps the zoom.
    Show(other.Image());
    EXPECT_EQ(WidgetAt(51, 0).x() - WidgetAt(50, 0).x(), 64);
    Set("display.fit", 1);
    EXPECT_EQ(At(75, 0), QPoint(1, 1));
}

TEST_F(RasterDisplay, CommandsWorkBeforeTheFirstFrame)
{
    for (char const *command : {"display.zoom.in", "display.zoom.out", "display.atcenter", "display.dump.on",
                                "display.dump.off", "filter.del"})
        EXPECT_EQ(Run(command), 0u) << command;
    int x = 3, y = 4;
    EXPECT_NE(display->Translate(&x, &y, 1), 0);
    EXPECT_EQ(QPoint(x, y), QPoint(3, 4));
    EXPECT_EQ(Grab().pixel(100, 75), BACKGROUND);
    Wheel({10, 10}, 120);
    Drag({10, 10}, {20, 20});

    // How the view opens, once.
    Set("display.init.fit", 3);
    display->GetComponent()->SetParamFloat("display.init.at.x", 0.25);
    display->GetComponent()->SetParamFloat("display.init.at.y", 0.75);
    Pixels const pixels(TypeOf("Mono8"), 1000, 800, 0, 8);
    Show(pixels.Image());
    EXPECT_EQ(At(100, 75), QPoint(250, 600));
    Set("display.init.fit", 1);
    EXPECT_EQ(At(100, 75), QPoint(250, 600));
}

TEST_F(RasterDisplay, TranslateGoesThereAndBack)
{
    Pixels const pixels(TypeOf("Mono8"), 640, 480, 0, 9);
    Show(pixels.Image());
    Set("display.fit", 3);
    for (int step = 0; step < 12; ++step) {
        for (int x : {-700, -1, 0, 1, 17, 320, 639, 640, 5000}) {
            QPoint const there = WidgetAt(x, x / 2);
            EXPECT_EQ(At(there.x(), there.y()), QPoint(x, x / 2)) << step;
            EXPECT_EQ(At(there.x() - 1, there.y() - 1), QPoint(x - 1, x / 2 - 1)) << step; // the first of its pixels
        }
        Wheel({step * 7, step * 11}, 120);
    }
}

TEST_F(RasterDisplay, TheWheelKeepsThePointUnderThePointer)
{
    Pixels const pixels(TypeOf("Mono8"), 2000, 1500, 0, 10);
    Show(pixels.Image());
    Set("display.fit", 3);
    for (QPoint const pointer : {QPoint(0, 0), QPoint(199, 149), QPoint(61, 97), QPoint(120, 3)}) {
        QPoint const point = At(pointer.x(), pointer.y());
        for (int delta : {120, 240, 30, 15, 120, 360, 120, -120, -240, -30, -15, -120, -360, -120}) {
            Wheel(pointer, delta);
            EXPECT_EQ(At(pointer.x(), pointer.y()), point) << delta;
        }
        EXPECT_EQ(WidgetAt(1001, 0).x() - WidgetAt(1000, 0).x(), 1);
    }
    // Away from the edges the middle stays when zooming out as well, to a device pixel.
    Set("display.fit", 3);
    Wheel({100, 75}, -120);
    EXPECT_NEAR(At(100, 75).x(), 1000, 2);
}

TEST_F(RasterDisplay, DraggingMovesByItsPixelsAndStopsAtTheEdges)
{
    Pixels const pixels(TypeOf("Mono8"), 300, 300, 0, 11);
    Show(pixels.Image());
    QPoint const fitted = At(100, 75);
    Drag({100, 75}, {150, 100});
    EXPECT_EQ(At(100, 75), fitted); // nothing overhangs
    Set("display.fit", 3);
    QPoint const before = At(100, 75);
    Drag({100, 75}, {77, 86});
    EXPECT_EQ(At(77, 86), before);
    Drag({0, 0}, {1000, 1000});
    EXPECT_EQ(At(0, 0), QPoint(0, 0));
    Drag({199, 149}, {-1000, -1000});
    EXPECT_EQ(At(199, 149), QPoint(299, 299));
    QMouseEvent move(QEvent::MouseMove, QPoint(5, 5), Qt::NoButton, Qt::NoButton, Qt::NoModifier);
    QApplication::sendEvent(widget.get(), &move);
    EXPECT_EQ(At(199, 149), QPoint(299, 299)); // the button is up
}

TEST_F(RasterDisplay, ShowsTheLastPictureTransformedUntilACrispOneComes)
{
    Pixels pixels(TypeOf("Mono8"), 400, 300, 0, 12);
    for (int y = 0; y < 300; ++y) {
        for (int x = 0; x < 400; ++x)
            pixels.Line(y)[x] = x < 200 ? 40 : (x + y) % 2 ? 255 : 0;
    }
    Show(pixels.Image());
    Set("display.view.scale", 4);
    QImage const stretched = Grab();
    EXPECT_EQ(qRed(stretched.pixel(50, 75)), 40);
    EXPECT_NEAR(qRed(stretched.pixel(150, 75)), 128, 2); // the fitted picture's mean
    // A paused stream gets it from the same frame, a stopped one from the copy; neither when nothing has changed.
    EXPECT_EQ(display->RefreshVideo(pixels.Image()), 0);
    EXPECT_EQ(Grab().pixel(100, 75), qRgb(0, 0, 0));
    EXPECT_EQ(Grab().pixel(104, 75), qRgb(255, 255, 255));
    EXPECT_EQ(display->KeepVideo(pixels.Image()), 0);
    std::fill(pixels.Memory().begin(), pixels.Memory().end(), 7);
    EXPECT_EQ(display->RefreshVideo(pixels.Image()), 0);
    EXPECT_EQ(Grab().pixel(100, 75), qRgb(0, 0, 0));
    Set("display.view.scale", 8);
    EXPECT_EQ(Grab().pixel(100, 75), qRgb(0, 0, 0));
    EXPECT_EQ(Grab().pixel(108, 75), qRgb(255, 255, 255));
    EXPECT_EQ(AddMap("1.,1,0.,0.,1.;"), 0u);
    EXPECT_EQ(Grab().pixel(100, 75), qRgb(0, 0, 255));
    EXPECT_EQ(Show(pixels.Image()).pixel(100, 75), qRgb(0, 0, 255)); // the next frame lets the copy go
    EXPECT_EQ(Run("filter.del"), 0u);
    EXPECT_EQ(Show(pixels.Image()).pixel(100, 75), qRgb(7, 7, 7));
}

// ---- Colour map -----------------------------------------------------------------------------------------------------

// A row of levels at actual size: what each shows.
struct MapCase
{
    char const *type;
    char const *map;
    std::vector<unsigned> levels;
    std::vector<QRgb> shown;
};

TEST_F(RasterDisplay, ColourMapsActOnTheInputScale)
{
    constexpr char const *saturation8 = "0.0000,1,0.0000,1.0000,0.0000;0.9922,0;1.,1,1.0000,0.0000,0.0000;";
    constexpr QRgb green = qRgb(0, 255, 0), red = qRgb(255, 0, 0);
    auto const grey = [](int g) {
        return qRgb(g, g, g);
    };
    MapCase const cases[] = {
        {"Mono8", saturation8, {0, 1, 100, 253, 254, 255}, {green, grey(1), grey(100), grey(253), red, red}},
        {"Mono10",
         "0.000969,1,0.,1.,0.;0.998039,0;1.,1,1.,0.,0.;",
         {0, 1, 1021, 1022, 1023},
         {green, grey(0), grey(255), red, red}},
        {"Mono12",
         "0.000237,1,0.,1.,0.;0.999504,0;1.,1,1.,0.,0.;",
         {0, 1, 16, 4093, 4094, 4095},
         {green, grey(0), grey(1), grey(255), red, red}},
        {"Mono16",
         "0.000008,1,0.,1.,0.;0.999962,0;1.,1,1.,0.,0.;",
         {0, 1, 256, 65533, 65534, 65535},
         {green, grey(0), grey(1), grey(255), red, red}},
        {"BayerGR12", "0.000237,1,0.,1.,0.;0.999504,0;1.,1,1.,0.,0.;", {0, 4094, 4095}, {green, red, red}},
        // Stretched between 64 and 128: black below, white above.
        {"Mono8",
         "0.25,0.5,0.;0.375,0.5,0.5;0.5,0.5,1.;1.,1,1.,1.,1.;",
         {0, 63, 70, 120, 200},
         {grey(0), grey(0), grey(128), grey(255), grey(255)}},
        // Levels past the last entry are plain.
        {"Mono8", "0.5,1,0.,0.,1.;", {0, 127, 128, 255}, {qRgb(0, 0, 255), qRgb(0, 0, 255), grey(128), grey(255)}},
    };
    Set("display.fit", 3);
    for (MapCase const &c : cases) {
        Pixels pixels(TypeOf(c.type), 200, 150, 0, 13);
        for (std::size_t x = 0; x < 200; ++x) {
            unsigned const level = c.levels[x / 2 % c.levels.size()];
            for (std::size_t y = 0; y < 150; ++y) {
                if (pixels.Info().bitDepth == 8)
                    pixels.Line(y)[x] = std::uint8_t(level);
                else
                    reinterpret_cast<std::uint16_t *>(pixels.Line(y))[x] = std::uint16_t(level);
            }
        }
        ASSERT_EQ(AddMap(c.map), 0u) << c.map;
        QImage const shown = Show(pixels.Image());
        for (std::size_t i = 0; i < c.levels.size(); ++i)
            EXPECT_EQ(shown.pixel(int(2 * i), 75), c.shown[i]) << c.type << " level " << c.levels[i];
        EXPECT_EQ(Run("filter.del"), 0u);
    }
}

TEST_F(RasterDisplay, OneMarkedPixelStaysVisibleInAReducedPicture)
{
    for (char const *name : {"Mono8", "BayerRG8", "BayerGB12Packed"}) {
        ASSERT_EQ(AddMap("0.99,0;1.,1,1.,0.,0.;"), 0u);
        Pixels pixels(TypeOf(name), 601, 451, 0, 14);
        std::fill(pixels.Memory().begin(), pixels.Memory().end(), 0x40);
        pixels.Line(222)[pixels.Image()->lineStep / 2] = 0xFF;
        pixels.Line(222)[pixels.Image()->lineStep / 2 + 1] = 0xFF;
        for (int width : {200, 500, 97, 60, 31, 12}) { // between all cells taken and few of them
            widget->resize(width, width * 3 / 4);
            QImage const shown = Show(pixels.Image());
            int red = 0;
            for (int i = 0; i < shown.width() * shown.height(); ++i)
                red += shown.pixel(i % shown.width(), i / shown.width()) == qRgb(255, 0, 0);
            EXPECT_GE(red, 1) << name << " " << width;
            EXPECT_LE(red, 8) << name << " " << width;
        }
    }
}

TEST_F(RasterDisplay, RefusesWhatIsNoColourMap)
{
    Pixels pixels(TypeOf("Mono8"), 20, 20, 0, 15);
    std::fill(pixels.Memory().begin(), pixels.Memory().end(), 9);
    ASSERT_EQ(AddMap("1.,1,0.,0.,1.;"), 0u);
    std::string const many(100000, ',');
    for (char const *map : {"",
                            ";",
                            "1.,1,0.,0.,1.",
                            "1.,1,0.,0.;",
                            "1.,1,0.,0.,1.,1.;",
                            "0.5,2;",
                            "0.5,0.5;",
                            "0.5,0,1.;",
                            "a,0;",
                            "0.5,0 ;",
                            "-0.1,0;",
                            "1.1,0;",
                            "nan,0;",
                            "inf,0;",
                            "0.5,1,2.,0.,0.;",
                            "0.5,0;0.4,0;",
                            "0,5,0;",
                            "1e999,0;",
                            "1.,1,0.,0.,1.;garbage",
                            many.c_str()}) {
        EXPECT_NE(AddMap(map), 0u) << map;
        EXPECT_EQ(Show(pixels.Image()).pixel(100, 75), qRgb(0, 0, 255)) << map; // the one before stays
    }
    display->GetComponent()->SetParamInt("filter.channels", 2);
    display->GetComponent()->SetParamString("filter.channel.0", "1.,0;");
    EXPECT_NE(Run("filter.add"), 0u);
    display->GetComponent()->SetParamInt("filter.channels", 1);
    display->GetComponent()->SetParamInt("filter.state", 0);
    EXPECT_EQ(Run("filter.add"), 0u); // known, but off
    EXPECT_EQ(Show(pixels.Image()).pixel(100, 75), qRgb(9, 9, 9));
}

// ---- Dump rectangle -------------------------------------------------------------------------------------------------

TEST_F(RasterDisplay, OutlinesTheDumpRectangleOnItsPixels)
{
    Pixels pixels(TypeOf("Mono8"), 200, 150, 0, 16);
    std::fill(pixels.Memory().begin(), pixels.Memory().end(), 9);
    Set("display.view.scale", 8);
    Show(pixels.Image());
    QPoint const from = At(0, 0);
    Set("dump.x", from.x() + 3);
    Set("dump.y", from.y() + 2);
    Set("dump.w", 4);
    Set("dump.h", 5);
    QRgb const plain = qRgb(9, 9, 9);
    EXPECT_EQ(Grab().pixel(24, 20), plain);
    Run("display.dump.on");
    QImage const shown = Grab();
    QPoint const first = WidgetAt(from.x() + 3, from.y() + 2);
    QRect const rect(first, QSize(32, 40));
    for (int y = 0; y < 150; ++y) {
        for (int x = 0; x < 200; ++x) {
            bool const on = rect.contains(x, y) && !rect.adjusted(1, 1, -1, -1).contains(x, y);
            ASSERT_EQ(shown.pixel(x, y) != plain, on) << x << " " << y;
        }
    }
    for (long width : {0L, -5L, 2147483647L, -2147483647L}) {
        Set("dump.w", width);
        Set("dump.x", -width);
        Grab();
    }
    Run("display.dump.off");
    EXPECT_EQ(Grab().pixel(first), plain);
}

// ---- Odd input ------------------------------------------------------------------------------------------------------

TEST_F(RasterDisplay, RefusesWhatItCannotShow)
{
    Pixels const pixels(TypeOf("Mono8"), 64, 48, 0, 17);
    _TovImage const good = *pixels.Image();
    EXPECT_NE(display->DisplayVideo(nullptr), 0);
    auto const refused = [&](std::function<void(_TovImage &)> const &spoil) {
        _TovImage bad = good;
        spoil(bad);
        return display->DisplayVideo(&bad) != 0;
    };
    EXPECT_TRUE(refused([](_TovImage &i) { i.imageData = nullptr; }));
    EXPECT_TRUE(refused([](_TovImage &i) { i.width = 0; }));
    EXPECT_TRUE(refused([](_TovImage &i) { i.height = 0; }));
    EXPECT_TRUE(refused([](_TovImage &i) { i.height = 49; }));
    EXPECT_TRUE(refused([](_TovImage &i) { i.width = 65; }));
    EXPECT_TRUE(refused([](_TovImage &i) { i.pixelType = 0x01080102; }));
    EXPECT_TRUE(refused([](_TovImage &i) { i.lineStep = 63; }));
    EXPECT_NE(display->SetVideoFormat(nullptr, "auto"), 0);
    EXPECT_NE(display->SetVideoFormat(&good, "Vulkan"), 0);
    EXPECT_EQ(display->SetVideoFormat(&good, "OpenGL"), 0);
    EXPECT_EQ(display->DisplayVideo(&good), 0);

    TovDisplay *const other = TovDisplay::CreateComponent();
    EXPECT_NE(other->Initialize(nullptr, "auto", 0), 0);
    EXPECT_NE(other->Initialize(widget.get(), "", 0), 0);
    EXPECT_EQ(other->DisplayVideo(&good), 0); // shown nowhere
    TovDisplay::DeleteComponent(other);       // with its picture still under way
}

TEST_F(RasterDisplay, ShowsEveryTypeAndTheSmallestPictures)
{
    for (std::uint32_t row = 0; row < TOV_PIXEL_TYPE_ROWS; ++row) {
        std::uint32_t const type = TovGetPixelTypeInfoByRow(row)->pixelType;
        for (std::uint32_t side : {1u, 2u, 3u, 5u, 60u}) {
            Pixels const pixels(type, side, side + 1, 1, row);
            for (QSize const size : {QSize(1, 1), QSize(200, 9), QSize(33, 150)}) {
                widget->resize(size);
                for (long fit : {1L, 2L, 3L}) {
                    Set("display.fit", fit);
                    Show(pixels.Image());
                }
            }
        }
    }
}

// ---- Lives ----------------------------------------------------------------------------------------------------------

TEST_F(RasterDisplay, TheWidgetMayDieFirst)
{
    Pixels const pixels(TypeOf("Mono8"), 64, 48, 0, 18);
    Show(pixels.Image());
    EXPECT_EQ(display->DisplayVideo(pixels.Image()), 0);
    widget.reset();
    QApplication::processEvents();
    EXPECT_EQ(display->DisplayVideo(pixels.Image()), 0);
    QApplication::processEvents();
    EXPECT_EQ(Run("display.zoom.in"), 0u);
    EXPECT_EQ(display->KeepVideo(pixels.Image()), 0);
    widget = std::make_unique<QWidget>();
    EXPECT_EQ(display->Initialize(widget.get(), "GDI", 0), 0);
    Show(pixels.Image());
}

TEST_F(RasterDisplay, TheRendererMayDieFirst)
{
    Pixels const pixels(TypeOf("Mono8"), 64, 48, 0, 19);
    Set("display.fit", 2);
    Show(pixels.Image());
    Mouse(QEvent::MouseButtonPress, {10, 10}); // in the middle of a drag
    TovDisplay::DeleteComponent(display);
    display = nullptr;
    Mouse(QEvent::MouseMove, {20, 20});
    Wheel({10, 10}, 120);
    Grab();
    display = TovDisplay::CreateComponent();
    EXPECT_EQ(display->Initialize(widget.get(), "auto", 0), 0);
    Show(pixels.Image());
}

TEST_F(RasterDisplay, ManyFramesMakeOneEvent)
{
    Pixels pixels(TypeOf("Mono8"), 64, 48, 0, 20);
    std::thread thread([&] {
        for (int i = 0; i < 50; ++i) {
            std::fill(pixels.Memory().begin(), pixels.Memory().end(), std::uint8_t(i));
            display->DisplayVideo(pixels.Image());
        }
    });
    thread.join();
    struct Counter : QObject
    {
        int paints = 0;
        bool eventFilter(QObject *, QEvent *event) override
        {
            paints += event->type() == QEvent::Paint;
            return false;
        }
    } counter;
    widget->installEventFilter(&counter);
    for (QDeadlineTimer deadline(5000); counter.paints == 0 && !deadline.hasExpired();)
        QApplication::processEvents();
    QTest::qWait(50);
    EXPECT_EQ(counter.paints, 1);
    EXPECT_EQ(Grab().pixel(100, 75), qRgb(49, 49, 49)); // the newest
}

} // namespace
