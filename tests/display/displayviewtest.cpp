#include "displayview.h"

#include "colormodel.h"
#include "fakecamera.h"
#include "grabbingfifo.h"

#include <QApplication>
#include <QDeadlineTimer>
#include <QMainWindow>
#include <QMouseEvent>
#include <QSignalSpy>
#include <QTest>

#include <log4cpp/Category.hh>
#include <log4cpp/StringQueueAppender.hh>

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <memory>
#include <set>

namespace {

std::uint32_t TypeOf(std::string const &name)
{
    for (ColorModelDescription const &row : s_colorModelDescription) {
        if (row.name == name)
            return row.pixelType;
    }
    ADD_FAILURE() << name;
    return 0;
}

// What the program logs while it lives.
class LogCapture
{
public:
    LogCapture() : m_category(log4cpp::Category::getInstance("TOVSCP"))
    {
        m_category.setPriority(log4cpp::Priority::DEBUG);
        m_category.addAppender(m_appender);
    }
    ~LogCapture()
    {
        m_category.removeAppender(m_appender);
        m_category.setPriority(log4cpp::Priority::NOTSET);
    }
    // With no other thread logging. Lines that begin with one of the prefixes.
    std::vector<std::string> Take(std::vector<std::string> const &prefixes)
    {
        std::vector<std::string> lines;
        while (m_appender->queueSize() > 0) {
            std::string line = m_appender->popMessage();
            line = line.substr(line.find(" : ") + 3);
            line.erase(line.find_last_not_of('\n') + 1);
            for (std::string const &prefix : prefixes) {
                if (line.rfind(prefix, 0) == 0) {
                    lines.push_back(line);
                    break;
                }
            }
        }
        return lines;
    }

private:
    log4cpp::Category &m_category;
    log4cpp::StringQueueAppender *const m_appender = new log4cpp::StringQueueAppender("test"); // the category's
};

class DisplayViewTest : public testing::Test
{
protected:
    DisplayViewTest()
    {
        view->resize(200, 150);
        view->show();
        QApplication::processEvents();
    }
    ~DisplayViewTest() override
    {
        if (m_running)
            Finish();
        view.reset();
        EXPECT_TRUE(device.script.Violations().empty());
    }

    void Begin(SessionState state = SessionStateAcquisition)
    {
        ASSERT_EQ(fifo.CreateBuffers(), 0);
        ASSERT_TRUE(fifo.StartGrabbing());
        fifo.SetState(state);
        m_running = true;
        ASSERT_TRUE(view->StartDisplaying());
    }
    void Finish()
    {
        m_running = false;
        EXPECT_NE(view->StopDisplaying(), 0);
        EXPECT_TRUE(fifo.StopGrabbing());
        EXPECT_EQ(fifo.ReleaseBuffers(), 0);
        fifo.SetState(SessionStateIdle);
        EXPECT_EQ(device.stream.OutCount(), 0u);
    }
    bool Push(FakeFrame const &frame, std::function<void(_TovImage &)> const &paint = {})
    {
        return device.stream.WaitForFree() && device.stream.Push(frame, paint) && device.stream.WaitUntilDrained();
    }
    bool WaitFor(std::function<bool()> const &condition)
    {
        for (QDeadlineTimer deadline(10000); !deadline.hasExpired();) {
            if (condition())
                return true;
            QTest::qWait(2);
        }
        return false;
    }
    // While watching: until that frame is the last one shown and its buffer is back with the stream.
    bool WaitShown(std::uint64_t id)
    {
        return WaitFor([&] {
            _TovImage *image = nullptr;
            return device.stream.OutCount() == 0 && view->GetDisplayedImageRaw(&image) && image->frameID == id;
        });
    }
    // While capturing: until the picture has that grey.
    bool WaitGrey(int grey)
    {
        return WaitFor([&] { return view->grab().toImage().pixel(100, 75) == qRgb(grey, grey, grey); });
    }
    std::string Map()
    {
        std::string text(1 << 20, '\0');
        auto size = static_cast<unsigned int>(text.size());
        EXPECT_EQ(view->GetRenderer()->GetComponent()->GetParamString("filter.channel.0", text.data(), &size), 0u);
        return text.c_str();
    }
    long FilterId()
    {
        long id = 0;
        EXPECT_EQ(view->GetRenderer()->GetComponent()->GetParamInt("filter.id", &id), 0u);
        return id;
    }

    QMainWindow window;
    FakeDevice device;
    GrabbingFifo fifo{nullptr, &device};
    std::unique_ptr<DisplayView> view = std::make_unique<DisplayView>(&window, &fifo);
    bool m_running = false;
};

// ---- Colouring ------------------------------------------------------------------------------------------------------

struct ColorizeCase
{
    bool colorize;
    long lo, hi, range;
    bool stretch;
    char const *map; // null: refused, the filter goes
};

TEST_F(DisplayViewTest, ColorizeWritesTheseMaps)
{
    ColorizeCase const cases[] = {
        {true, 0, 254, 256, false, "0.0000,1,0.0000,1.0000,0.0000;0.9922,0;1.,1,1.0000,0.0000,0.0000;"},
        {true, 0, 4094, 4096, false,
         "0.000237,1,0.000000,1.000000,0.000000;0.999504,0;1.,1,1.000000,0.000000,0.000000;"},
        {true, 0, 1022, 1024, false,
         "0.000969,1,0.000000,1.000000,0.000000;0.998039,0;1.,1,1.000000,0.000000,0.000000;"},
        {true, 1, 3, 4, true,
         "0.2500,1,0.0000,1.0000,0.0000;0.2500,0.5,0.0000;0.3750,0.5,0.2500;0.5000,0.5,0.5000;0.6250,0.5,0.7500;"
         "1.,1,1.0000,0.0000,0.0000;"},
        {false, 0, 2, 2, true, "0.0000,0.5,0.0000;0.5000,0.5,0.5000;1.,1,1.,1.,1.;"},
        {true, 5, 5, 256, false, nullptr},
        {true, -1, 5, 256, false, nullptr},
        {true, 0, 0, 256, true, nullptr},
        {false, 0, 254, 256, false, nullptr},
    };
    TovComponent *const component = view->GetRenderer()->GetComponent();
    for (ColorizeCase const &c : cases) {
        component->SetParamInt("filter.id", 7);
        component->SetParamInt("filter.state", 0);
        component->SetParamString("filter.channel.0", "untouched");
        EXPECT_EQ(view->Colorize(c.colorize, c.lo, c.hi, c.range, c.stretch), c.map != nullptr) << c.range;
        EXPECT_EQ(Map(), c.map ? c.map : "untouched");
        EXPECT_EQ(FilterId(), 1000);
    }
    component->SetParamInt("filter.id", 7);
    EXPECT_FALSE(view->Colorize(true, 0, 1, 1, true));
    EXPECT_EQ(FilterId(), 7);
    // The largest stretch there is still fits.
    EXPECT_TRUE(view->Colorize(true, 0, 65534, 65536, true));
    EXPECT_EQ(component->RunCommand("filter.add"), 0u);
}

TEST_F(DisplayViewTest, ApplyColorationFollowsTheDepthOfTheStream)
{
    EXPECT_EQ(view->RunCommand("ApplyColoration"), 0u);
    EXPECT_EQ(FilterId(), 1000);
    EXPECT_EQ(Map(), "");
    view->SetParamInt("ColorationType", 2);
    view->RunCommand("ApplyColoration");
    EXPECT_EQ(Map(), "0.0000,1,0.0000,1.0000,0.0000;0.9922,0;1.,1,1.0000,0.0000,0.0000;");
    device.stream.SetFormat(32, 32, TypeOf("Mono12"), 12);
    Begin();
    ASSERT_TRUE(Push({1}));
    ASSERT_TRUE(WaitShown(1));
    view->RunCommand("ApplyColoration");
    EXPECT_EQ(Map(), "0.000237,1,0.000000,1.000000,0.000000;0.999504,0;1.,1,1.000000,0.000000,0.000000;");
}

// ---- Start, stop, the loop ------------------------------------------------------------------------------------------

TEST_F(DisplayViewTest, LogsItsPasses)
{
    LogCapture log;
    view->SetParamFloat("DisplayRate", 0.0);
    Begin();
    EXPECT_FALSE(view->findChild<QTimer *>()->isActive());
    ASSERT_TRUE(Push({9})); // one tick was pending from the start
    ASSERT_TRUE(WaitShown(9));
    view->UpdateVideo(); // the next pass sleeps in the FIFO until the stop
    QTest::qWait(20);
    Finish();
    auto lines = log.Take({"DisplayView::St", "DisplayView::Work()", "GetNewestBuffer", "TVCopy", "TovCreate"});
    std::vector<std::string> const expected{
        "DisplayView::StartDisplaying(), code=0",
        "DisplayView::StartVideoTimer(), code=0",
        "DisplayView::Work(), code=0",
        "DisplayView::Work() DisplayVideo called for frame ID=9, code=0",
        "DisplayView::Work() DisplayVideo returned for frame ID=9, code=0",
        "DisplayView::Work(), code=0",
        "DisplayView::StopDisplaying(), code=0",
    };
    ASSERT_GE(lines.size(), expected.size());
    EXPECT_EQ(std::vector<std::string>(lines.begin(), lines.begin() + 7), expected);
    // The two threads' last words come in any order, and the stop may catch one more pass.
    std::set<std::string> const end(lines.begin() + 7, lines.end());
    EXPECT_TRUE(end.count("DisplayView::StopVideoTimer(), code=0"));
    EXPECT_TRUE(end.count("GetNewestBuffer returned buff=0, code=0"));

    EXPECT_EQ(view->StopDisplaying(), 0);
    lines = log.Take({"DisplayView::Start:"});
    EXPECT_EQ(lines, std::vector<std::string>{"DisplayView::Start: Invalid state: m_bStart==false, code=0"});
}

TEST_F(DisplayViewTest, StopsAThreadThatWaitsForATick)
{
    view->SetParamFloat("DisplayRate", 0.0005);
    for (int i = 0; i < 50; ++i) {
        Begin();
        if (i % 2 == 0) {
            ASSERT_TRUE(Push({std::uint64_t(i + 1)}));
            view->UpdateVideo();
            ASSERT_TRUE(i % 4 != 0 || WaitShown(std::uint64_t(i + 1)));
        }
        Finish();
        _TovImage *image = nullptr;
        EXPECT_FALSE(view->GetDisplayedImageRaw(&image));
    }
}

TEST_F(DisplayViewTest, ShowsTheNewestCompleteFrameOnce)
{
    LogCapture log;
    view->SetParamFloat("DisplayRate", 120.0);
    Begin(SessionStateCapturing); // shown frames come back to the front
    auto const grey = [](int value) {
        return [value](_TovImage &image) {
            std::memset(image.imageData, value, image.imageSize);
        };
    };
    ASSERT_TRUE(Push({5}, grey(50)));
    ASSERT_TRUE(WaitGrey(50));
    QTest::qWait(60); // meets the same frame again
    ASSERT_TRUE(Push({6, 0, true}, grey(60)));
    QTest::qWait(60);
    ASSERT_TRUE(Push({7}, grey(70)));
    ASSERT_TRUE(WaitGrey(70));
    fifo.SetState(SessionStateAcquisition);
    Finish();
    std::vector<std::string> const expected{"DisplayView::Work() DisplayVideo called for frame ID=5, code=0",
                                            "DisplayView::Work() DisplayVideo called for frame ID=7, code=0"};
    EXPECT_EQ(log.Take({"DisplayView::Work() DisplayVideo called"}), expected);
    // After a start the same number is shown again.
    Begin();
    ASSERT_TRUE(Push({7}));
    ASSERT_TRUE(WaitShown(7));
}

TEST_F(DisplayViewTest, TakesUpAFormatWithTheNextStart)
{
    for (std::uint32_t width : {40u, 40u, 64u}) {
        device.stream.SetFormat(width, 30, TypeOf("BayerGB8"), 8);
        Begin();
        ASSERT_TRUE(Push({1}));
        ASSERT_TRUE(WaitShown(1));
        _TovImage *image = nullptr;
        ASSERT_TRUE(view->GetDisplayedImageRaw(&image));
        EXPECT_EQ(image->width, width);
        Finish();
    }
    _TovImage *shape = nullptr;
    TovCreateImageHeader(&shape, {64, 30}, TypeOf("BayerGB8"));
    EXPECT_TRUE(view->VerifyDisplayFormat(shape));
    shape->width = 65;
    EXPECT_FALSE(view->VerifyDisplayFormat(shape)); // and takes note of it
    EXPECT_TRUE(view->VerifyDisplayFormat(shape));
    EXPECT_FALSE(view->VerifyDisplayFormat(nullptr));
    TovReleaseImageHeader(&shape);
}

TEST_F(DisplayViewTest, ComparesImagesWithTheLastOne)
{
    _TovImage image{};
    EXPECT_TRUE(view->IsImageSolid(&image)); // there is no last one
    Begin();
    EXPECT_TRUE(view->IsImageSolid(&image)); // nor a first one
    ASSERT_TRUE(Push({1}));
    ASSERT_TRUE(WaitShown(1));
    _TovImage *last = nullptr;
    ASSERT_TRUE(view->GetDisplayedImageRaw(&last));
    _TovImage same = *last;
    EXPECT_TRUE(view->IsImageSolid(&same));
    same.imageData = nullptr;
    EXPECT_FALSE(view->IsImageSolid(&same));
    for (auto field : {&_TovImage::width, &_TovImage::height, &_TovImage::pixelType, &_TovImage::imageSize}) {
        _TovImage other = *last;
        other.*field += 1;
        EXPECT_FALSE(view->IsImageSolid(&other));
    }
}

TEST_F(DisplayViewTest, MayGoWhileItDisplays)
{
    Begin();
    ASSERT_TRUE(Push({1}));
    ASSERT_TRUE(WaitShown(1));
    view.reset();
    m_running = false;
    fifo.StopGrabbing();
    EXPECT_EQ(fifo.ReleaseBuffers(), 0);
}

// ---- Read-out -------------------------------------------------------------------------------------------------------

struct ReadOut
{
    char const *type;
    std::uint32_t depth;
    std::vector<std::uint8_t> pixel; // bytes of every pixel
    int r, g, b;
};

TEST_F(DisplayViewTest, ReadsTheValuesOfAPixel)
{
    ReadOut const cases[] = {
        {"Mono8", 8, {77}, -1, 77, -1},
        {"Mono16", 16, {0x34, 0x12}, -1, 0x1234, -1},
        {"BayerRG12", 12, {0xFF, 0x0F}, -1, 0x0FFF, -1},
        {"RGB8", 8, {1, 2, 3}, 1, 2, 3},
        {"BGR8", 8, {1, 2, 3}, 3, 2, 1},
        {"RGBa8", 8, {1, 2, 3, 4}, 1, 2, 3},
        {"BGRa8", 8, {1, 2, 3, 4}, 3, 2, 1},
        {"RGB16", 16, {1, 0, 2, 0, 3, 1}, 1, 2, 0x103},
        {"BGR16", 16, {1, 0, 2, 0, 3, 1}, 1, 2, 0x103},
        {"YUV422_8", 8, {5, 6}, -1, 0x0605, -1},
        {"BayerRG8", 8, {9}, -1, -1, -1},
    };
    std::uint64_t id = 100;
    for (ReadOut const &c : cases) {
        device.stream.SetFormat(7, 5, TypeOf(c.type), c.depth);
        Begin();
        ASSERT_TRUE(Push({++id}, [&](_TovImage &image) {
            for (std::uint32_t i = 0; i < image.imageSize; ++i)
                image.imageData[i] = c.pixel[i % c.pixel.size()];
        }));
        ASSERT_TRUE(WaitShown(id));
        QSignalSpy spy(view.get(), &DisplayView::mouseMoved);
        for (QPoint const outside : {QPoint(-1, 0), QPoint(0, -1), QPoint(7, 0), QPoint(0, 5)})
            view->sendMouseMoved(outside.x(), outside.y());
        EXPECT_EQ(spy.count(), 0);
        view->sendMouseMoved(6, 4);
        ASSERT_EQ(spy.count(), 1);
        QList<QVariant> const expected{6, 4, c.r, c.g, c.b};
        EXPECT_EQ(spy.takeFirst(), expected) << c.type;
        Finish();
        view->sendMouseMoved(6, 4); // no image
        EXPECT_EQ(spy.count(), 0);
    }
}

TEST_F(DisplayViewTest, ThePointerReadsWhatItStandsOn)
{
    device.stream.SetFormat(400, 300, TypeOf("Mono8"), 8);
    view->SetParamFloat("DisplayRate", 120.0);
    Begin();
    auto const ramp = [](int add) {
        return [add](_TovImage &image) {
            for (std::uint32_t i = 0; i < image.imageSize; ++i)
                image.imageData[i] = std::uint8_t(i % 400 / 2 + add);
        };
    };
    ASSERT_TRUE(Push({1}, ramp(0)));
    ASSERT_TRUE(WaitShown(1));
    QSignalSpy spy(view.get(), &DisplayView::mouseMoved);
    QMouseEvent move(QEvent::MouseMove, QPoint(50, 60), Qt::NoButton, Qt::NoButton, Qt::NoModifier);
    QApplication::sendEvent(view->viewport(), &move);
    ASSERT_EQ(spy.count(), 1); // fitted at a half
    EXPECT_EQ(spy.takeFirst(), (QList<QVariant>{101, 121, -1, 50, -1}));
    // It rests, and a new frame comes.
    ASSERT_TRUE(Push({2}, ramp(7)));
    EXPECT_TRUE(WaitFor([&] { return !spy.isEmpty() && spy.last() == QList<QVariant>{101, 121, -1, 57, -1}; }));
    // It leaves.
    QEvent leave(QEvent::Leave);
    QApplication::sendEvent(view->viewport(), &leave);
    spy.clear();
    ASSERT_TRUE(Push({3}, ramp(9)));
    ASSERT_TRUE(WaitShown(3));
    QTest::qWait(60);
    EXPECT_EQ(spy.count(), 0);
}

TEST_F(DisplayViewTest, AStillPictureFollowsTheZoomIntoItsPixels)
{
    device.stream.SetFormat(400, 300, TypeOf("Mono8"), 8);
    view->SetParamFloat("DisplayRate", 120.0);
    Begin();
    ASSERT_TRUE(Push({1}, [](_TovImage &image) {
        for (std::uint32_t i = 0; i < image.imageSize; ++i)
            image.imageData[i] = (i / 400 + i % 400) % 2 ? 255 : 0;
    }));
    ASSERT_TRUE(WaitShown(1));
    auto const isCrisp = [&] {
        QRgb const pixel = view->grab().toImage().pixel(100, 75);
        return pixel == qRgb(0, 0, 0) || pixel == qRgb(255, 255, 255);
    };
    EXPECT_FALSE(isCrisp());
    EXPECT_TRUE(view->Zoom100());
    EXPECT_TRUE(WaitFor(isCrisp)); // paused
    EXPECT_TRUE(view->ZoomFitToWnd());
    EXPECT_TRUE(WaitFor([&] { return !isCrisp(); }));
    Finish();
    EXPECT_TRUE(view->Zoom100());
    EXPECT_TRUE(isCrisp()); // stopped
}

// ---- Commands -------------------------------------------------------------------------------------------------------

TEST_F(DisplayViewTest, CommandsSayTheirNamesAndReachTheRenderer)
{
    struct Command
    {
        bool (DisplayView::*run)();
        char const *log;
        long fit; // afterwards
    };
    Command const commands[] = {
        {&DisplayView::ZoomSpreadToWnd, "DisplayView::ZoomSpreadToWnd(), code=0", 2},
        {&DisplayView::ZoomFitToWnd, "DisplayView::ZoomFitToWnd(), code=0", 1},
        {&DisplayView::Zoom100, "DisplayView::Zoom100(), code=0", 3},
        {&DisplayView::ZoomIn, "DisplayView::ZoomIn(), code=0", 0},
        {&DisplayView::ZoomOut, "DisplayView::ZoomOut(), code=0", 0},
        {&DisplayView::CenterImage, "DisplayView::CenterImage(), code=0", 0},
    };
    LogCapture log;
    for (Command const &command : commands) {
        EXPECT_TRUE((view.get()->*command.run)());
        long fit = -1;
        view->GetRenderer()->GetComponent()->GetParamInt("display.fit", &fit);
        EXPECT_EQ(fit, command.fit) << command.log;
        EXPECT_EQ(log.Take({"DisplayView::Zoom", "DisplayView::Center"}), std::vector<std::string>{command.log});
    }
}

TEST_F(DisplayViewTest, TheDumpRectangleCountsBothEnds)
{
    EXPECT_FALSE(view->isInRectangle(0, 0));
    view->drawHexPixelDumpRectangle(10, 20, 1, 2);
    EXPECT_TRUE(view->isInRectangle(10, 20));
    EXPECT_TRUE(view->isInRectangle(11, 22));
    EXPECT_FALSE(view->isInRectangle(12, 22));
    EXPECT_FALSE(view->isInRectangle(11, 23));
    EXPECT_FALSE(view->isInRectangle(9, 20));
    view->onSizeChanged(0, 2);
    EXPECT_FALSE(view->isInRectangle(10, 20));
    view->onSizeChanged(3, 3);
    view->onStartPointChanged(INT_MAX - 1, -5);
    EXPECT_TRUE(view->isInRectangle(INT_MAX, -2));
    view->onClosing();
    EXPECT_EQ(view->clearHexDumpRectangle(), 0u);
}

// ---- Colour model ---------------------------------------------------------------------------------------------------

TEST(ColorModel, HasItsRows)
{
    struct Row
    {
        std::uint32_t row;
        char const *name, *layout;
        std::uint32_t channels, bits, phase, type;
        char const *letters; // at indices 0, 1, ...
    };
    Row const rows[] = {
        {1, "Mono8", "Y", 1, 8, 0, 0x01080101, "Y"},
        {7, "Mono12p", "Y", 1, 10, 0, 0x010C2307, "Y"},
        {13, "BayerGR8", "G R G2 B", 1, 8, 0, 0x0308010D, "Y"},
        {47, "BayerGB16", "G B G2 R", 1, 16, 0, 0x0310052F, "Y"},
        {50, "TrueSense_BGGR_WBBW_1_8", nullptr, 1, 8, 1, 0x04080132, "Y"},
        {113, "RGB8", "R G B", 3, 8, 0, 0x02180171, "RGB"},
        {116, "BGRa8", "B G R A", 4, 8, 0, 0x02200174, "BGRA"},
        {128, "YUV422_8_UYVY", "U Y V Y", 3, 8, 0, 0x05100180, "YUV"},
        {133, "YCbCr422_8", "Y Cb Y Cr", 3, 8, 0, 0x05100185, "YUV"},
    };
    for (Row const &row : rows) {
        ColorModelDescription const &model = s_colorModelDescription[row.row - 1];
        EXPECT_STREQ(model.name, row.name);
        if (row.layout) {
            EXPECT_STREQ(model.layout, row.layout);
        }
        EXPECT_EQ(model.channels, row.channels) << row.name;
        EXPECT_EQ(model.bitsPerChannel, row.bits) << row.name;
        EXPECT_EQ(model.mosaicPhase, row.phase) << row.name;
        EXPECT_EQ(model.pixelType, row.type) << row.name;
        EXPECT_EQ(GetColorModel(row.type), &model);
        for (int i = 0; row.letters[i]; ++i)
            EXPECT_EQ(model.getIndex(row.letters[i]), i) << row.name;
        EXPECT_EQ(model.getIndex(u'W'), -1);
    }
    // One of the mosaics with white pixels reads so.
    bool found = false;
    for (std::uint32_t row = 48; row < 112; ++row) {
        EXPECT_EQ(std::strlen(s_colorModelDescription[row].layout), 31u);
        found |= !std::strcmp(s_colorModelDescription[row].layout, "W B W G B W G W W G W R G W R W");
    }
    EXPECT_TRUE(found);
    EXPECT_EQ(GetColorModel(0x01080100), nullptr);
    EXPECT_EQ(GetColorModel(134), nullptr);
}

} // namespace
