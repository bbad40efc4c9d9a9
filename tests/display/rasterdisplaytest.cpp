#include "displayfixture.h"

#include <map>

namespace {

using RasterDisplay = DisplayFixture;

QRgb Grey(int g)
{
    return qRgb(g, g, g);
}

// ---- Enlarged pictures ----------------------------------------------------------------------------------------------

// The whole frame made RGB.
QImage WholePicture(Pixels const &pixels)
{
    Pixels const colours(TV_PIXEL_RGB8, pixels.Image()->width, pixels.Image()->height, 0, 0);
    EXPECT_EQ(TovConvertImage(colours.Image(), pixels.Image()), 0u);
    QImage const picture(colours.Line(0), int(colours.Image()->width), int(colours.Image()->height),
                         int(colours.Image()->lineStep), QImage::Format_RGB888);
    return picture.convertToFormat(QImage::Format_RGB32);
}

class CrispPicture : public DisplayFixture, public testing::WithParamInterface<char const *>
{
protected:
    // Every device pixel shows the image pixel that Translate tells, or the background outside the picture.
    void ExpectPixels(Pixels const &pixels, char const *when)
    {
        QImage const whole = WholePicture(pixels), shown = Show(pixels.Image());
        for (int y = 0; y < shown.height(); ++y) {
            for (int x = 0; x < shown.width(); ++x) {
                QPoint const at = At(x, y);
                QRgb const expected = whole.rect().contains(at) ? whole.pixel(at) : Background;
                ASSERT_EQ(shown.pixel(x, y), expected) << when << " at " << x << ", " << y;
            }
        }
    }
};

TEST_P(CrispPicture, IsTheWholeConversionAtEveryZoomAndOffset)
{
    Pixels const small(TypeOf(GetParam()), 37, 22, 1, 2), pixels(TypeOf(GetParam()), 301, 203, 5, 1);
    ExpectPixels(small, "small, fitted");
    Set("display.fit", 2);
    ExpectPixels(small, "small, spread");
    Set("display.fit", 3);
    ExpectPixels(small, "small, actual size");
    ExpectPixels(pixels, "actual size");
    Drag({100, 100}, {57, 71}); // odd offsets
    ExpectPixels(pixels, "moved");
    Set("display.view.scale", 3);
    Drag({10, 10}, {180, 140});
    ExpectPixels(pixels, "three times");
    Wheel({33, 44}, -120); // 2.52...
    ExpectPixels(pixels, "between");
    Drag({190, 140}, {-1000, -1000});
    ExpectPixels(pixels, "the last pixels");
    Set("display.view.scale", 64);
    ExpectPixels(pixels, "64 times");
}

INSTANTIATE_TEST_SUITE_P(Types, CrispPicture,
                         testing::Values("Mono8", "Mono10Packed", "Mono12p", "Mono16", "Mono12_WEftPacked", "BayerGR8",
                                         "BayerRG8", "BayerGB8", "BayerBG8", "BayerGR12Packed", "BayerRG10p",
                                         "BayerGB16", "BayerBG12p", "BayerRG10Packed", "TrueSense_GRBG_WGGW_1_8",
                                         "RGB8", "BGRa8", "BGR10", "RGB_10_WEFT_Packed", "YUV422_8", "YUV444_8"));

// ---- Reduced pictures -----------------------------------------------------------------------------------------------

TEST_F(RasterDisplay, ReducedPicturesAreTheMeanOfWhatIsUnderEachDevicePixel)
{
    std::pair<char const *, int> const cases[] = {{"Mono12Packed", 2},   {"Mono12Packed", 3}, {"Mono8", 4},
                                                  {"BayerGR8", 2},       {"BayerGB10p", 4},   {"BayerBG16", 6},
                                                  {"BayerRG12Packed", 2}};
    for (auto const &[type, n] : cases) {
        Pixels const pixels(TypeOf(type), 200 * n, 150 * n, 3, 3);
        QImage const shown = Show(pixels.Image());
        for (int device = 0; device < 200 * 150; device += 11) {
            std::map<char, double> sums, counts; // by the colour of the filter
            for (int i = 0; i < n * n; ++i) {
                std::uint32_t const x = device % 200 * n + i % n, y = device / 200 * n + i / n;
                char const colour = TovGetFilterColour(&pixels.Info(), x, y);
                sums[colour] += pixels.Sample(y, x) >> (pixels.Info().bitDepth - 8);
                ++counts[colour];
            }
            QRgb const pixel = shown.pixel(device % 200, device / 200);
            for (auto const &[colour, sum] : sums) {
                int const value = colour == 'G' ? qGreen(pixel) : colour == 'B' ? qBlue(pixel) : qRed(pixel);
                ASSERT_NEAR(value, sum / counts[colour], 3.0) << type << " " << device << " " << colour;
            }
        }
    }
}

TEST_F(RasterDisplay, AnEvenPictureKeepsItsColourAtEveryReduction)
{
    for (char const *name : {"Mono8", "BayerGR8", "BayerRG8", "BayerGB8", "BayerBG8", "RGB8", "BGR8", "RGBa8", "BGRa8",
                             "TrueSense_BGGR_WBBW_0_8", "TrueSense_GRBG_WGGW_3_8"}) {
        Pixels const pixels(TypeOf(name), 701, 523, 3, 5);
        TovPixelTypeInfo const &info = pixels.Info();
        for (std::uint32_t i = 0; i < 701u * 523 * info.channels; ++i) {
            std::uint32_t const x = i / info.channels % 701, y = i / info.channels / 701;
            char const filter = TovGetFilterColour(&info, x, y);
            char const colour = info.family == TOV_FAMILY_RGB ? name[i % info.channels] : filter;
            pixels.Line(y)[x * info.channels + i % info.channels] = colour == 'R'   ? 200
                                                                    : colour == 'B' ? 50
                                                                    : colour == 'W' ? 128
                                                                                    : 100;
        }
        QRgb const expected = info.family == TOV_FAMILY_MONO ? Grey(100) : qRgb(200, 100, 50);
        for (int width : {690, 501, 349, 200, 123, 61, 21, 5}) {
            widget->resize(width, width * 523 / 701 + 1);
            QImage const shown = Show(pixels.Image());
            for (int i = 0; i < width * shown.height(); ++i) {
                QRgb const pixel = shown.pixel(i % width, i / width);
                bool const middle = i / width == shown.height() / 2;
                ASSERT_TRUE(pixel == expected || (!middle && pixel == Background))
                    << name << " " << width << " " << std::hex << pixel;
            }
        }
    }
}

// ---- The view -------------------------------------------------------------------------------------------------------

TEST_F(RasterDisplay, CommandsPlaceThePicture)
{
    Pixels const pixels(TypeOf("Mono8"), 400, 200, 0, 6);
    Show(pixels.Image());
    // Fitted by default: the whole width, centred over the height.
    EXPECT_EQ(At(0, 25), QPoint(1, 1));
    EXPECT_EQ(At(199, 124), QPoint(399, 199));
    widget->resize(100, 100);
    QApplication::processEvents();
    // Spread: the height fills the view, the sides overhang.
    Set("display.fit", 2);
    EXPECT_EQ(At(0, 0), QPoint(101, 1));
    EXPECT_EQ(At(99, 99), QPoint(299, 199));
    widget->resize(200, 150);
    QApplication::processEvents();
    // Actual size about the middle.
    Set("display.fit", 3);
    EXPECT_EQ(At(0, 0), QPoint(100, 25));
    Run("display.zoom.in");
    EXPECT_EQ(WidgetAt(200, 100), QPoint(100, 75));
    EXPECT_EQ(WidgetAt(202, 100), QPoint(103, 75)); // one and a half
    Drag({150, 75}, {100, 50});
    EXPECT_EQ(WidgetAt(200, 100), QPoint(50, 50));
    Mouse(QEvent::MouseMove, {5, 5}, Qt::NoButton); // the button is up
    EXPECT_EQ(WidgetAt(200, 100), QPoint(50, 50));
    Drag({0, 0}, {1000, 1000}); // to the edges
    EXPECT_EQ(At(0, 0), QPoint(0, 0));
    Run("display.atcenter");
    EXPECT_EQ(WidgetAt(200, 100), QPoint(100, 75));
    for (int i = 0; i < 100; ++i)
        Run("display.zoom.in");
    EXPECT_EQ(WidgetAt(201, 0).x() - WidgetAt(200, 0).x(), 64);
    // Another shape keeps the zoom.
    Pixels const other(TypeOf("Mono8"), 100, 300, 0, 7);
    Show(other.Image());
    EXPECT_EQ(WidgetAt(51, 0).x() - WidgetAt(50, 0).x(), 64);
}

TEST_F(RasterDisplay, CommandsWorkBeforeTheFirstFrame)
{
    for (char const *command : {"display.zoom.in", "display.zoom.out", "display.atcenter", "filter.del"})
        EXPECT_EQ(Run(command), 0u) << command;
    EXPECT_EQ(Grab().pixel(100, 75), Background);
    Wheel({10, 10}, 120);
    Drag({10, 10}, {20, 20});
    // How the view opens, once.
    Set("display.init.fit", 3);
    display->GetComponent()->SetParamFloat("display.init.at.x", 0.25);
    display->GetComponent()->SetParamFloat("display.init.at.y", 0.75);
    Pixels const pixels(TypeOf("Mono8"), 1000, 800, 0, 8);
    Show(pixels.Image());
    EXPECT_EQ(At(100, 75), QPoint(250, 600));
}

TEST_F(RasterDisplay, TheWheelKeepsThePointUnderThePointerAndTranslateGoesThereAndBack)
{
    Pixels const pixels(TypeOf("Mono8"), 2000, 1500, 0, 10);
    Show(pixels.Image());
    Set("display.fit", 3);
    for (QPoint const pointer : {QPoint(0, 0), QPoint(199, 149), QPoint(61, 97), QPoint(120, 3)}) {
        QPoint const point = At(pointer.x(), pointer.y());
        for (int delta : {120, 240, 30, 15, 120, 360, 120, -120, -240, -30, -15, -120, -360, -120}) {
            Wheel(pointer, delta);
            EXPECT_EQ(At(pointer.x(), pointer.y()), point) << delta;
            for (int x : {-700, -1, 0, 1, 17, 1999, 2000, 5000}) {
                QPoint const there = WidgetAt(x, x / 2); // the first of its device pixels
                EXPECT_EQ(At(there.x(), there.y()), QPoint(x, x / 2)) << delta;
                EXPECT_EQ(At(there.x() - 1, there.y() - 1), QPoint(x - 1, x / 2 - 1)) << delta;
            }
        }
        EXPECT_EQ(WidgetAt(1001, 0).x() - WidgetAt(1000, 0).x(), 1);
    }
}

// ---- Colour map -----------------------------------------------------------------------------------------------------

TEST_F(RasterDisplay, ColourMapsActOnTheInputScale)
{
    constexpr QRgb green = qRgb(0, 255, 0), red = qRgb(255, 0, 0), blue = qRgb(0, 0, 255);
    constexpr char const *map8 = "0.0000,1,0.0000,1.0000,0.0000;0.9922,0;1.,1,1.0000,0.0000,0.0000;";
    constexpr char const *map10 = "0.000969,1,0.,1.,0.;0.998039,0;1.,1,1.,0.,0.;";
    constexpr char const *map12 = "0.000237,1,0.,1.,0.;0.999504,0;1.,1,1.,0.,0.;";
    constexpr char const *map16 = "0.000008,1,0.,1.,0.;0.999962,0;1.,1,1.,0.,0.;";
    // Black below, white above; and levels past the last entry, which are plain.
    constexpr char const *stretch = "0.25,0.5,0.;0.375,0.5,0.5;0.5,0.5,1.;1.,1,1.,1.,1.;";
    constexpr char const *half = "0.5,1,0.,0.,1.;";
    std::tuple<char const *, char const *, std::vector<std::pair<unsigned, QRgb>>> const cases[] = {
        {"Mono8", map8, {{0, green}, {1, Grey(1)}, {253, Grey(253)}, {254, red}, {255, red}}},
        {"Mono10", map10, {{0, green}, {1, Grey(0)}, {1021, Grey(255)}, {1022, red}, {1023, red}}},
        {"Mono12", map12, {{0, green}, {1, Grey(0)}, {4093, Grey(255)}, {4094, red}, {4095, red}}},
        {"Mono16", map16, {{0, green}, {1, Grey(0)}, {65533, Grey(255)}, {65534, red}}},
        {"Mono8", stretch, {{63, Grey(0)}, {70, Grey(128)}, {120, Grey(255)}, {200, Grey(255)}}},
        {"Mono8", half, {{0, blue}, {127, blue}, {128, Grey(128)}, {255, Grey(255)}}},
    };
    Set("display.fit", 3);
    for (auto const &[type, map, levels] : cases) { // levels, and what each shows
        Pixels pixels(TypeOf(type), 200, 150, 0, 13);
        std::size_t const bytes = pixels.Info().bitsPerPixel / 8;
        for (std::size_t i = 0; i < pixels.Memory().size(); ++i) // columns in pairs
            pixels.Memory()[i] = std::uint8_t(levels[i / bytes % 200 / 2 % levels.size()].first >> i % bytes * 8);
        ASSERT_EQ(AddMap(map), 0u) << map;
        QImage const shown = Show(pixels.Image());
        for (std::size_t i = 0; i < levels.size(); ++i)
            EXPECT_EQ(shown.pixel(int(2 * i), 75), levels[i].second) << type << " level " << levels[i].first;
        EXPECT_EQ(Run("filter.del"), 0u);
    }
}

TEST_F(RasterDisplay, OneMarkedPixelStaysVisibleInAReducedPicture)
{
    ASSERT_EQ(AddMap("0.99,0;1.,1,1.,0.,0.;"), 0u);
    for (char const *name : {"Mono8", "BayerRG8", "BayerGB12Packed"}) {
        Pixels pixels(TypeOf(name), 601, 451, 0, 14);
        std::fill(pixels.Memory().begin(), pixels.Memory().end(), 0x40);
        std::fill_n(pixels.Line(222) + pixels.Image()->lineStep / 2, 2, 0xFF);
        for (int width : {200, 500, 97, 60, 31, 12}) { // between all cells taken and few of them
            widget->resize(width, width * 3 / 4);
            QImage const shown = Show(pixels.Image());
            int red = 0;
            for (int i = 0; i < shown.width() * shown.height(); ++i)
                red += shown.pixel(i % shown.width(), i / shown.width()) == qRgb(255, 0, 0);
            EXPECT_TRUE(red >= 1 && red <= 8) << name << " " << width << ": " << red;
        }
    }
}

TEST_F(RasterDisplay, RefusesWhatIsNoColourMap)
{
    Pixels pixels(TypeOf("Mono8"), 20, 20, 0, 15);
    std::fill(pixels.Memory().begin(), pixels.Memory().end(), 9);
    ASSERT_EQ(AddMap("1.,1,0.,0.,1.;"), 0u);
    for (char const *map : {"", "1.,1,0.,0.,1.", "1.,1,0.,0.;", "0.5,2;", "0.5,0.5;", "a,0;", "-0.1,0;", "1.1,0;",
                            "nan,0;", "0.5,1,2.,0.,0.;", "0.5,0;0.4,0;", "1.,1,0.,0.,1.;garbage"}) {
        EXPECT_NE(AddMap(map), 0u) << map;
        EXPECT_EQ(Show(pixels.Image()).pixel(100, 75), qRgb(0, 0, 255)) << map; // the one before stays
    }
    EXPECT_NE(AddMap("1.,0;", 2), 0u);
    EXPECT_EQ(AddMap("1.,0;", 1, 0), 0u); // known, but off
    EXPECT_EQ(Show(pixels.Image()).pixel(100, 75), Grey(9));
    ASSERT_EQ(AddMap("1.,1,1.,0.,0.;"), 0u);
    Set("filter.id", 3); // of several the highest shows
    display->GetComponent()->SetParamString("filter.channel.0", "1.,1,0.,0.,1.;");
    EXPECT_EQ(Run("filter.add"), 0u);
    EXPECT_EQ(Show(pixels.Image()).pixel(100, 75), qRgb(255, 0, 0));
}

// ---- Odd input and lives --------------------------------------------------------------------------------------------

TEST_F(RasterDisplay, RefusesWhatItCannotShow)
{
    Pixels const pixels(TypeOf("Mono8"), 64, 48, 0, 17);
    _TovImage bad[7];
    std::fill_n(bad, 7, *pixels.Image());
    bad[0].imageData = nullptr;
    bad[1].width = 0;
    bad[2].height = 0;
    bad[3].height = 49;
    bad[4].width = 65;
    bad[5].pixelType = 0x01080102;
    bad[6].lineStep = 63;
    for (_TovImage const &image : bad)
        EXPECT_NE(display->DisplayVideo(&image), 0) << &image - bad;
    EXPECT_NE(display->DisplayVideo(nullptr), 0);
    EXPECT_NE(display->SetVideoFormat(nullptr, "auto"), 0);
    EXPECT_NE(display->SetVideoFormat(pixels.Image(), "Vulkan"), 0);
    TovDisplay *const other = TovDisplay::CreateComponent();
    EXPECT_NE(other->Initialize(nullptr, "auto", 0), 0);
    EXPECT_NE(other->Initialize(widget.get(), "", 0), 0);
    EXPECT_EQ(other->DisplayVideo(pixels.Image()), 0); // shown nowhere
    TovDisplay::DeleteComponent(other);                // with its picture still under way
}

TEST_F(RasterDisplay, ShowsEveryTypeAndTheSmallestPictures)
{
    for (std::uint32_t i = 0; i < TOV_PIXEL_TYPE_ROWS * 5; ++i) {
        std::uint32_t const side = std::vector{1u, 2u, 3u, 5u, 60u}[i % 5];
        Pixels const pixels(TovGetPixelTypeInfoByRow(i / 5)->pixelType, side, side + 1, 1, i);
        for (QSize const size : {QSize(1, 1), QSize(200, 9), QSize(33, 150)}) {
            widget->resize(size);
            for (long fit : {1L, 2L, 3L}) {
                Set("display.fit", fit);
                Show(pixels.Image());
            }
        }
    }
}

TEST_F(RasterDisplay, AMessageStandsOverThePictureUntilTheNextFrame)
{
    for (int const grey : {0, 128, 255}) {
        Pixels pixels(TypeOf("Mono8"), 200, 150, 0, 1);
        std::fill(pixels.Memory().begin(), pixels.Memory().end(), grey);
        QImage const plain = Show(pixels.Image());
        display->ShowMessage("no frames for 4 s");
        QImage const told = Grab();
        EXPECT_EQ(told.copy(0, 50, 200, 100), plain.copy(0, 50, 200, 100));
        int light = 0, dark = 0; // the text and its ground
        for (int i = 0; i < 200 * 50; ++i) {
            light += qRed(told.pixel(i % 200, i / 200)) > 240;
            dark += qRed(told.pixel(i % 200, i / 200)) < 60;
        }
        EXPECT_TRUE(light > 50 && dark > 1000) << grey;
        EXPECT_EQ(Show(pixels.Image()), plain) << grey;
    }
}

TEST_F(RasterDisplay, WidgetAndRendererMayDieInAnyOrder)
{
    Pixels const pixels(TypeOf("Mono8"), 64, 48, 0, 18);
    Show(pixels.Image());
    EXPECT_EQ(display->DisplayVideo(pixels.Image()), 0);
    widget.reset();
    QApplication::processEvents();
    EXPECT_EQ(display->DisplayVideo(pixels.Image()), 0);
    EXPECT_EQ(Run("display.zoom.in"), 0u);
    EXPECT_EQ(display->KeepVideo(pixels.Image()), 0);
    QApplication::processEvents();
    widget = std::make_unique<QWidget>();
    EXPECT_EQ(display->Initialize(widget.get(), "GDI", 0), 0);
    Set("display.fit", 2);
    Show(pixels.Image());
    Mouse(QEvent::MouseButtonPress, {10, 10}); // in the middle of a drag
    TovDisplay::DeleteComponent(display);
    display = nullptr;
    Mouse(QEvent::MouseMove, {20, 20});
    Wheel({10, 10}, 120);
    Grab();
}

} // namespace
