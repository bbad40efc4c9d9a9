// The search on a scripted camera, through the window's action, with an operator who answers every question.
#include "bwtesting.h"
#include "fakecamera.h"
#include "simcamera.h"

#include "../app/window.h"

#include <gmock/gmock.h>

namespace {

using testing::HasSubstr;
using testing::Not;

enum class Frames { Whole, SomeIncomplete, None };

constexpr int Probe = 25; // ms; no other timer has this period

// The camera's frames come as each probe ends, however late that is.
class BandwidthTest : public QObject, public WindowTest
{
protected:
    BandwidthTest()
    {
        CBWTesting::s_waits = {1, 1, 1, Probe, 1, 1};
        NewWindow();
        m_device.script.At("AcquisitionStart", [this] { ++m_probe; });
        QObject::connect(&m_operator, &QTimer::timeout, [this] { Answer(); });
        m_operator.start(1);
        qApp->installEventFilter(this);
    }
    ~BandwidthTest() override
    {
        CBWTesting::s_waits = {};
        m_window.reset();
        EXPECT_EQ(m_device.script.Violations(), "");
    }

    void MakeCamera(int family, char const *clock, std::int64_t value, std::int64_t minimum, std::int64_t maximum)
    {
        auto &ints = m_device.params.ints;
        ints.erase(m_clock);
        m_clock = clock;
        ints["FamilyID"].value = family;
        ints[clock].value = value;
        ints[clock].minimum = minimum;
        ints[clock].maximum = maximum;
        std::string const readBack = family == 2 ? "PixelClockInfo" : clock;
        m_device.params.onSet = [this, readBack](std::string const &name) {
            if (name == m_clock)
                m_device.params.ints[readBack].value = m_device.params.ints[m_clock].value / m_step * m_step;
        };
        m_device.params.onSet(clock);
    }
    // Runs the test from the click on its action to the end of its dialog; gives the values that were set.
    std::string Run()
    {
        if (!Current())
            Connect(&m_device);
        m_device.script.TakeLog();
        m_probe = 0;
        m_told.clear();
        Action("TestBandwidth")->trigger();
        std::string sets;
        for (QString const &call : QString::fromStdString(m_device.script.TakeLog()).split(QStringLiteral("; ")))
            if (call.startsWith(QStringLiteral("Set %1 ").arg(QString::fromStdString(m_clock))))
                sets += call.section(QLatin1Char(' '), 2).toStdString() + ' ';
        return sets;
    }
    // Whole frames at these clocks.
    static std::function<Frames(std::int64_t, int)> Between(int slow, int fast)
    {
        return [slow, fast](std::int64_t clock, int) {
            return clock >= slow && clock <= fast ? Frames::Whole : Frames::SomeIncomplete;
        };
    }
    static void Press(CBWTesting *dialog)
    {
        dialog->findChild<QPushButton *>(QStringLiteral("stopCloseButton"))->click();
    }

    FakeDevice m_device;
    std::string m_clock;
    std::int64_t m_step = 1;                                       // the camera takes multiples of it
    std::function<Frames(std::int64_t clock, int probe)> m_frames; // what it sends
    QString m_answer;                           // the button that is pressed where a box has it, else the default one
    std::function<void()> m_onBox;              // instead of answering the first box after the confirmation
    std::string m_line;                         // begin of the log's last line ...
    std::function<void(CBWTesting *)> m_onLine; // ... at which this is done, once
    std::string m_log;
    std::string m_told; // by message boxes
    int m_probe = 0;    // of this test

private:
    bool eventFilter(QObject *object, QEvent *event) override
    {
        auto const *const timer = event->type() == QEvent::Timer ? qobject_cast<QTimer *>(object) : nullptr;
        for (int i = 0; timer && timer->interval() == Probe && i < 40; ++i)
            Feed();
        return false;
    }
    void Feed()
    {
        if (!Current() || Current()->GetState() != SessionStateAcquisition)
            return;
        Frames const frames = m_frames(m_device.params.ints[m_clock].value, m_probe);
        for (bool const incomplete : {false, true}) {
            if (frames == Frames::None || (incomplete && frames == Frames::Whole))
                continue;
            ++m_id;
            if (m_device.stream.Push({m_id, m_id * 1000, incomplete}))
                m_device.stream.WaitUntilDrained(); // so the counters know of it
        }
    }
    void Answer()
    {
        QWidget *const modal = QApplication::activeModalWidget();
        if (auto *const box = qobject_cast<QMessageBox *>(modal)) {
            if (m_onBox && box->text() != QStringLiteral("Bandwidth testing."))
                return std::exchange(m_onBox, {})();
            m_told += (box->text() + u'|' + box->informativeText()).toStdString();
            QAbstractButton *chosen = box->defaultButton() ? box->defaultButton() : box->button(QMessageBox::Ok);
            for (QAbstractButton *button : box->findChildren<QPushButton *>()) { // in the order of their making
                m_told += '|' + button->text().toStdString() + (button == chosen ? "*" : "");
                if (button->text() == m_answer || button->text().startsWith(m_answer + QStringLiteral(" one")))
                    chosen = button;
            }
            m_told += '\n';
            chosen->click();
        } else if (auto *const dialog = qobject_cast<CBWTesting *>(modal)) {
            std::string const before =
                std::exchange(m_log, dialog->findChild<QTextEdit *>()->toPlainText().toStdString());
            m_still = before == m_log ? m_still + 1 : 0;
            std::string const last = m_log.substr(m_log.rfind('\n') + 1);
            bool const ended = dialog->findChild<QPushButton *>()->text() == QStringLiteral("Close") ||
                               last.find("impossible.") != std::string::npos;
            // Posted: a slot of this timer could not answer what it opens.
            if (m_onLine && last.rfind(m_line, 0) == 0)
                QTimer::singleShot(0, dialog, [act = std::exchange(m_onLine, {}), dialog] { act(dialog); });
            else if (ended && m_still > 20)
                QTimer::singleShot(0, dialog, [dialog] { Press(dialog); });
        }
    }

    QTimer m_operator;
    int m_still = 0; // rounds that the log has not changed for
    std::uint64_t m_id = 0;
};

TEST_F(BandwidthTest, EachSearchSetsTheValuesOfItsBisection)
{
    auto const onlyProbe = [](int wanted) {
        return [wanted](std::int64_t, int probe) {
            return probe == wanted ? Frames::Whole : Frames::None;
        };
    };
    struct
    {
        int family;
        char const *clock;
        std::int64_t saved, minimum, maximum;
        std::function<Frames(std::int64_t, int)> frames;
        char const *sets;
        char const *says; // somewhere in the log
        char const *answer = "";
        std::int64_t step = 1;
        std::int32_t status = 0; // of setting the clock
    } const table[] = {
        {2, "Frame_PixelClock", 64, 32, 120, Between(0, 9999), "76 98 109 115 118 119 120 120 ",
         "Speed = 1.0 MB/s, Clock Value = 120"},
        {1, "Frame_LineTime", 100, 32, 120, Between(0, 9999), "76 54 43 37 34 33 32 100 ",
         "Old Line Time was set = 100", "Old"},
        {2, "PixelClock", 64, 32, 120, Between(0, 100), "76 98 109 98 104 98 101 98 100 101 100 64 ",
         "Old pixel clock was set = 64 MHz", "Old"},
        {1, "LineTime", 60, 32, 120, Between(50, 999), "76 54 43 54 48 54 51 49 51 50 49 50 50 ",
         "Optimized Line Time was set = 50"},
        // Repeated twice, then it has failed; nothing is asked, as nothing was found.
        {2, "PixelClock", 11, 10, 12, onlyProbe(0), "11 11 11 11 11 11 11 11 ", "Acquired 0 frames. Try to repeat 2"},
        // A repeat before a pass counts for the probes after it.
        {2, "PixelClock", 10, 10, 18, onlyProbe(2), "14 10 14 16 14 16 14 15 14 15 14 15 14 15 14 14 ", "repeat 2"},
        // A value between two steps moves the high bound, in both families, and the tenth is probed all the same.
        {2, "PixelClock", 64, 32, 120, Between(0, 9999), "76 54 43 38 35 34 33 33 33 33 33 ",
         "Returned incorrect PixelClockInfo = 72, needed 76", "", 8},
        {1, "LineTime", 2000, 550, 4400, Between(0, 9999), "2475 1512 1031 790 670 610 580 565 557 553 551 550 550 ",
         "Returned incorrect LineTime = 2472, needed 2475", "", 8},
        {2, "PixelClock", 64, 32, 120, Between(0, 9999), "76 54 43 38 35 34 33 33 33 33 33 ",
         "Set PixelClock error -40204", "", 1, TOV_CAM_ERR_GENICAM_OUT_OF_RANGE},
        {0, "PixelClock", 11, 10, 12, Between(0, 9999), "", "Device is not compatible. Test is impossible."},
    };
    for (auto const &row : table) {
        m_step = row.step;
        MakeCamera(row.family, row.clock, row.saved, row.minimum, row.maximum);
        m_frames = row.frames;
        m_answer = QString::fromLatin1(row.answer);
        m_device.script.Fail(row.clock, row.status);
        EXPECT_EQ(Run(), row.sets) << row.says;
        m_device.script.Fail(row.clock, 0);
        EXPECT_EQ(Current()->GetState(), SessionStateIdle);
        EXPECT_THAT(m_log, HasSubstr(row.says));
        EXPECT_THAT(m_log, Not(HasSubstr("repeat 3")));
        EXPECT_EQ(m_log.ends_with(row.clock + std::string(" error")), row.status != 0) << m_log;
        EXPECT_EQ(m_told.find("Which value") == std::string::npos, row.saved == 11) << m_told;
    }
}

// Both families, on a link that is made for a value in the middle and too slow for the next faster one.
TEST_F(BandwidthTest, FindsTheClockOfARealStreamToTheStep)
{
    CBWTesting::s_waits = {16, 20, 40, 1000, 40, 20};
    TovCam::System *const system = TovCam_GetSystem();
    struct
    {
        char const *serial, *clock;
        int best, tooFast;
    } const cameras[] = {{"20480117", "PixelClock", 99, 100}, {"19200342", "LineTime", 1200, 1199}};
    for (auto const &row : cameras) {
        Connect(TovCam_CreateDevice(FindSimulated(system, row.serial), 2, nullptr));
        TovCam::ParamArray *const camera = Current()->GetDevice()->GetCameraParameters(nullptr);
        camera->SetFloatValue("ExposureTime", 100.0);
        double const payload = double(camera->GetIntegerValue("PayloadSize", nullptr)) / 1048576.0;
        auto const rate = [&](int clock) {
            camera->SetIntegerValue(row.clock, clock);
            return payload * camera->GetFloatValue("ResultingFrameRate", nullptr);
        };
        std::int64_t const before = camera->GetIntegerValue(row.clock, nullptr);
        double const limit = rate(row.best) * 1.0001;
        ASSERT_GT(rate(row.tooFast), limit);
        camera->SetFloatValue("SimLinkLimit", limit);
        camera->SetIntegerValue(row.clock, before);
        Run();
        EXPECT_THAT(m_told, HasSubstr("Optimized one = " + std::to_string(row.best)));
        EXPECT_EQ(camera->GetIntegerValue(row.clock, nullptr), row.best);
    }
    Gui().cameraDisconnect();
    system->Release();
}

// At any moment of it, the first ones before the dialog's own event loop runs.
class AnInterruptedTest : public BandwidthTest, public testing::WithParamInterface<char const *>
{
protected:
    AnInterruptedTest()
    {
        MakeCamera(2, "PixelClock", 10, 10, 200);
        m_frames = Between(0, 120);
        m_line = GetParam();
    }
};

TEST_P(AnInterruptedTest, IsStoppedAndReadOrLeftOrGoesOn)
{
    for (char const *answer : {"Yes", "Yes and Close", "No"}) {
        m_answer = QString::fromLatin1(answer);
        m_onLine = [](CBWTesting *dialog) {
            QTest::keyClick(dialog, Qt::Key_Escape);
        };
        Run();
        EXPECT_THAT(m_told, HasSubstr("Test is in processing|Are you sure to stop the test?|No*|Yes|Yes and Close\n"));
        EXPECT_EQ(m_told.find("Which value") == std::string::npos, *answer == 'Y') << answer;
        EXPECT_EQ(m_log.ends_with("Test is stopped"), std::string(answer) == "Yes") << m_log;
        int const probes = m_probe;
        QTest::qWait(60); // no probe is left that would begin
        EXPECT_EQ(m_probe, probes) << answer;
        EXPECT_EQ(Current()->GetState(), SessionStateIdle) << answer;
    }
}

TEST_P(AnInterruptedTest, OutlivesItsCamera)
{
    auto const lose = [this] {
        m_device.LoseConnection();
    };
    for (bool const asked : {false, true}) { // with a question open
        m_onBox = asked ? lose : std::function<void()>();
        m_onLine = [&](CBWTesting *dialog) {
            asked ? Press(dialog) : lose();
        };
        Run();
        EXPECT_EQ(Current(), nullptr);
        EXPECT_EQ(m_device.stream.OutCount(), 0u);
        EXPECT_THAT(m_told, HasSubstr("Connection to the Camera was lost"));
    }
}

INSTANTIATE_TEST_SUITE_P(Moments, AnInterruptedTest,
                         testing::Values("Saved init value", "Start waiting...", "Acceptable", "Nonworking"));

TEST_F(BandwidthTest, AValueThatCannotBeRestoredAndAStartThatFailsWaitForTheOperator)
{
    MakeCamera(2, "PixelClock", 10, 10, 12);
    m_device.script.Fail("PixelClock", TOV_CAM_ERR_NO_DEVICE);
    m_device.script.Fail("AcquisitionStart", TOV_CAM_ERR_NO_DEVICE);
    m_answer = QStringLiteral("Yes");
    m_line = "PixelClock error";
    m_onLine = Press;
    Run();
    EXPECT_THAT(m_log, HasSubstr("\n\nTimeout start wait\nStart waiting..."));
    EXPECT_THAT(m_log, HasSubstr("PixelClock error\nGood stop wait 1 ms\nTest is stopped"));
    EXPECT_THAT(m_told, HasSubstr("Can not start the Acquisition"));
}

} // namespace
