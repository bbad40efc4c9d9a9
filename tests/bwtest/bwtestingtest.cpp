// The search on a scripted camera, through the window's action, with an operator who answers every question.
#include "bwtesting.h"
#include "fakecamera.h"
#include "guimanager.h"
#include "session.h"
#include "tovscope.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QAction>
#include <QApplication>
#include <QElapsedTimer>
#include <QMessageBox>
#include <QPushButton>
#include <QRegularExpression>
#include <QSettings>
#include <QTest>
#include <QTextEdit>
#include <QTimer>

#include <algorithm>
#include <functional>
#include <string>

namespace {

using testing::HasSubstr;
using testing::Not;

enum class Frames { Whole, SomeIncomplete, None };

class BandwidthTest : public testing::Test
{
protected:
    BandwidthTest()
    {
        CBWTesting::s_waits = {1, 1, 1, 25, 1, 1};
        QSettings(QStringLiteral("Velmor"), QStringLiteral("TovScope")).clear();
        QObject::connect(&m_operator, &QTimer::timeout, [this] {
            Feed();
            Answer();
        });
        m_operator.start(1);
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
        m_clock = clock;
        ints["FamilyID"].value = family;
        ints[clock].value = value;
        ints[clock].minimum = minimum;
        ints[clock].maximum = maximum;
        std::string const readBack = family == 2 ? "PixelClockInfo" : clock;
        ints[readBack].value = value;
        m_device.params.onSet = [this, readBack](std::string const &name) {
            if (name == m_clock)
                m_device.params.ints[readBack].value = m_device.params.ints[m_clock].value / m_step * m_step;
        };
    }
    // Runs the test from the click on its action to the end of its dialog; gives the values that were set.
    std::string Run()
    {
        if (!Current()) {
            EXPECT_TRUE(Gui().CreateSession(&m_device) && Gui().CreatePanels());
            EXPECT_TRUE(QTest::qWaitFor([&] { return Current()->GetState() == SessionStateIdle; }));
        }
        m_device.script.TakeLog();
        m_probe = 0;
        m_device.script.At("AcquisitionStart", [this] { ++m_probe; });
        m_window->findChild<QAction *>(QStringLiteral("actionTestBandwidth"))->trigger();
        EXPECT_EQ(QApplication::activeModalWidget(), nullptr);
        std::string sets;
        QStringList const calls = QString::fromStdString(m_device.script.TakeLog()).split(QStringLiteral("; "));
        QString const set = QStringLiteral("Set %1 ").arg(QString::fromStdString(m_clock));
        for (QString const &call : calls)
            sets += call.startsWith(set) ? call.mid(set.size()).toStdString() + ' ' : "";
        return sets;
    }

    GuiManager &Gui()
    {
        return m_window->GetGuiManager();
    }
    Session *Current()
    {
        return Gui().GetSession();
    }
    void Feed()
    {
        if (!Current() || Current()->GetState() != SessionStateAcquisition)
            return;
        Frames const frames = m_frames(m_device.params.ints[m_clock].value);
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
            m_told += (box->text() + u'|' + box->informativeText() + u'\n').toStdString();
            QAbstractButton *chosen = box->defaultButton() ? box->defaultButton() : box->button(QMessageBox::Ok);
            auto buttons = box->buttons();
            std::sort(buttons.begin(), buttons.end(), [](auto *a, auto *b) { return a->text() > b->text(); });
            for (QAbstractButton *button : buttons) {
                m_told += button->text().toStdString() + (button == box->defaultButton() ? "*\n" : "\n");
                if (!m_answer.isEmpty() && button->text().startsWith(m_answer))
                    chosen = button;
            }
            if (m_onBox && box->text() != QStringLiteral("Bandwidth testing."))
                std::exchange(m_onBox, {})();
            else
                chosen->click();
            return;
        }
        auto *const dialog = qobject_cast<CBWTesting *>(modal);
        if (!dialog)
            return;
        auto *const button = dialog->findChild<QPushButton *>(QStringLiteral("stopCloseButton"));
        if (std::string const log = dialog->findChild<QTextEdit *>()->toPlainText().toStdString(); log != m_log) {
            m_log = log;
            m_sinceLog.start();
        }
        std::string const last = m_log.substr(m_log.rfind('\n') + 1);
        // Posted: a slot of this timer could not answer what it opens.
        if (m_onLine && last.rfind(m_line, 0) == 0)
            QTimer::singleShot(0, dialog, [act = std::exchange(m_onLine, {}), dialog] { act(dialog); });
        else if (m_sinceLog.elapsed() < 30)
            return;
        else if (button->text() == QStringLiteral("Close") || last.find("impossible.") != std::string::npos)
            QMetaObject::invokeMethod(button, "click", Qt::QueuedConnection);
    }
    static void Press(CBWTesting *dialog)
    {
        dialog->findChild<QPushButton *>(QStringLiteral("stopCloseButton"))->click();
    }

    FakeDevice m_device;
    std::string m_clock;
    std::int64_t m_step = 1;                            // the camera takes multiples of it
    std::function<Frames(std::int64_t clock)> m_frames; // what it sends
    int m_probe = 0;                                    // number of the acquisition
    QString m_answer;              // begin of the button that is pressed where a box has it, else the default one
    std::function<void()> m_onBox; // instead of answering the first box
    std::string m_line;            // begin of the log's last line ...
    std::function<void(CBWTesting *)> m_onLine; // ... at which this is done, once
    std::string m_log;
    std::string m_told;
    std::unique_ptr<TovScope> m_window = std::make_unique<TovScope>(nullptr, false, false);

private:
    QTimer m_operator;
    QElapsedTimer m_sinceLog; // that it has changed
    std::uint64_t m_id = 0;
};

constexpr char Confirmation[] = "Bandwidth testing.|Do you want to begin?\nOK*\nCancel\n";

TEST_F(BandwidthTest, AShortSearchToTheLetter)
{
    CBWTesting::s_waits.poll = 16;
    MakeCamera(2, "PixelClock", 10, 10, 12);
    m_frames = [](std::int64_t clock) {
        return clock <= 11 ? Frames::Whole : Frames::SomeIncomplete;
    };
    EXPECT_EQ(Run(), "11 12 11 11 ");
    QString log = QString::fromStdString(m_log);
    log.replace(QRegularExpression(QStringLiteral("rames( *)= \\d+")), QStringLiteral("rames\\1= N"));
    EXPECT_EQ(log.toStdString(), R"(Initialization...
Good stop wait 16 ms
Saved init value = 10

Good start wait 16 ms
Start waiting...
Good stop wait 16 ms
[10 .. 12] curClockValue = 11  range/2 = 1
Acceptable parameters. Acquired Frames= N , Speed = 1.0 MB/s, Clock Value = 11

Good start wait 16 ms
Start waiting...
Good stop wait 16 ms
[11 .. 12] curClockValue = 12  range/2 = 0
Nonworking parameters. Incomplete frames  = N, Acquired Frames = N, Speed = 0.5 MB/s, Clock Value= 12
Last good pixel clock was set = 11
Testing is finished. Time elapsed 0 s
Optimized Pixel Clock was set = 11 MHz)");
    EXPECT_EQ(m_told, std::string(Confirmation) +
                          "Testing is finished. Time elapsed 0 s|Which value of Pixel Clock do you want to apply?\n"
                          "Optimized one = 11 MHz*\nOld one = 10 MHz\n");
    EXPECT_EQ(Current()->GetState(), SessionStateIdle);
}

TEST_F(BandwidthTest, NothingBeginsWithoutConsentOrCamera)
{
    MakeCamera(2, "PixelClock", 10, 10, 12);
    m_answer = QStringLiteral("Cancel");
    EXPECT_EQ(Run(), "");
    m_onBox = [] {
    };
    m_answer.clear();
    Gui().cameraDisconnect();
    Gui().startTestBandwidth();
    EXPECT_EQ(m_log, "");
    EXPECT_EQ(m_told, Confirmation);
}

struct Search
{
    int family;
    char const *clock;
    std::int64_t saved, minimum, maximum;
    std::function<Frames(std::int64_t clock, int probe)> frames;
    char const *sets;
    char const *says;   // somewhere in the log
    char const *asks;   // at the end
    char const *answer; // begin of the button; the default one otherwise
    std::int64_t step = 1;
    std::int32_t status = 0; // of setting the clock
};

TEST_F(BandwidthTest, EachSearchSetsTheValuesOfItsBisection)
{
    auto const whole = [](std::int64_t, int) {
        return Frames::Whole;
    };
    auto const never = [](std::int64_t, int) {
        return Frames::None;
    };
    Search const table[] = {
        {2, "Frame_PixelClock", 64, 32, 120, whole, "76 98 109 115 118 119 120 120 ",
         "Optimized Pixel Clock was set = 120 MHz", "Optimized one = 120 MHz*\nOld one = 64 MHz\n", ""},
        {1, "Frame_LineTime", 100, 32, 120, whole, "76 54 43 37 34 33 32 100 ", "Old Line Time was set = 100",
         "Which value of Line Time do you want to apply?\nOptimized one = 32*\nOld one = 100\n", "Old"},
        {2, "PixelClock", 64, 32, 120,
         [](std::int64_t clock, int) { return clock <= 100 ? Frames::Whole : Frames::SomeIncomplete; },
         "76 98 109 98 104 98 101 98 100 101 100 64 ", "Old pixel clock was set = 64 MHz", "", "Old"},
        {1, "LineTime", 60, 32, 120,
         [](std::int64_t clock, int) { return clock >= 50 ? Frames::Whole : Frames::SomeIncomplete; },
         "76 54 43 54 48 54 51 49 51 50 49 50 50 ", "Optimized Line Time was set = 50", "", ""},
        // Repeated twice, then it has failed; nothing is asked, as nothing was found.
        {2, "PixelClock", 11, 10, 12, never, "11 11 11 11 11 11 11 11 ", "Acquired 0 frames. Try to repeat 2", "", ""},
        // A repeat before a pass counts for the probes after it.
        {2, "PixelClock", 10, 10, 18, [](std::int64_t, int probe) { return probe == 2 ? Frames::Whole : Frames::None; },
         "14 10 14 16 14 16 14 15 14 15 14 15 14 15 14 14 ", "Try to repeat 2", "", ""},
        // A value between two steps moves the high bound, in both families, and the tenth is probed all the same.
        {2, "PixelClock", 64, 32, 120, whole, "76 54 43 38 35 34 33 33 33 33 33 ",
         "Returned incorrect PixelClockInfo = 72, needed 76", "Optimized one = 33 MHz*", "", 8},
        {1, "LineTime", 2000, 550, 4400, whole, "2475 1512 1031 790 670 610 580 565 557 553 551 550 550 ",
         "Returned incorrect LineTime = 2472, needed 2475", "Optimized one = 550*", "", 8},
        {2, "PixelClock", 64, 32, 120, whole, "76 54 43 38 35 34 33 33 33 33 33 ", "Set PixelClock error -40204", "",
         "", 1, TOV_CAM_ERR_GENICAM_OUT_OF_RANGE},
    };
    for (Search const &row : table) {
        m_device.params.ints.erase(m_clock);
        MakeCamera(row.family, row.clock, row.saved, row.minimum, row.maximum);
        m_step = row.step;
        m_frames = [&](std::int64_t clock) {
            return row.frames(clock, m_probe);
        };
        m_answer = QString::fromLatin1(row.answer);
        m_device.script.Fail(row.clock, row.status);
        m_told.clear();
        EXPECT_EQ(Run(), row.sets) << row.says;
        m_device.script.Fail(row.clock, 0);
        EXPECT_THAT(m_log, HasSubstr(row.says));
        EXPECT_THAT(m_log, Not(HasSubstr("repeat 3")));
        EXPECT_EQ(m_log.substr(m_log.rfind('\n') + 1) == row.clock + std::string(" error"), row.status != 0) << m_log;
        EXPECT_THAT(m_told, HasSubstr(row.asks));
        EXPECT_EQ(m_told.find("Which value") == std::string::npos, row.saved == 11) << m_told;
        EXPECT_EQ(Current()->GetState(), SessionStateIdle);
    }
}

TEST_F(BandwidthTest, ACameraThatCannotBeTestedIsRefusedWithTheReason)
{
    auto &ints = m_device.params.ints;
    std::pair<std::function<void()>, char const *> const table[] = {
        {[&] { ints.erase("FamilyID"); }, "Device is not compatible. Test is impossible."},
        {[&] { ints["FamilyID"].value = 3; }, "Incorrect FamilyID 3. Device is not compatible. Test is impossible."},
        {[&] { ints["FamilyID"].value = 1; }, "Unknown parameter. Device is not compatible. Test is impossible."},
        {[&] {
             ints["FamilyID"].value = 2;
             ints["PixelClock"].error = TOV_CAM_ERR_GENICAM_ACCESS;
         },
         "Get PixelClock error -40202. Test is impossible."},
    };
    MakeCamera(2, "PixelClock", 10, 10, 12);
    for (auto const &[prepare, reason] : table) {
        prepare();
        EXPECT_EQ(Run(), "");
        EXPECT_EQ(m_log, std::string("Initialization...\nGood stop wait 1 ms\n") + reason);
    }
    CBWTesting without(nullptr, nullptr, {});
    EXPECT_THAT(without.findChild<QTextEdit *>()->toPlainText().toStdString(), HasSubstr("Invalid session pointer"));
    Press(&without);
    EXPECT_TRUE(without.isVisible()); // only the keyboard leaves it
    QTest::keyClick(&without, Qt::Key_Escape);
    EXPECT_FALSE(without.isVisible());
}

// At any moment of it, the first ones before the dialog's own event loop runs.
class AnInterruptedTest : public BandwidthTest, public testing::WithParamInterface<char const *>
{
protected:
    AnInterruptedTest()
    {
        MakeCamera(2, "PixelClock", 10, 10, 200);
        m_frames = [](std::int64_t clock) {
            return clock <= 120 ? Frames::Whole : Frames::SomeIncomplete;
        };
        m_line = GetParam();
    }
};

TEST_P(AnInterruptedTest, IsStoppedAndReadOrLeftOrGoesOn)
{
    for (char const *answer : {"Yes", "Yes and", "No"}) {
        m_answer = QString::fromLatin1(answer);
        m_told.clear();
        m_onLine = [](CBWTesting *dialog) {
            QTest::keyClick(dialog, Qt::Key_Escape);
        };
        Run();
        EXPECT_FALSE(m_onLine);
        EXPECT_THAT(m_told,
                    HasSubstr("Test is in processing|Are you sure to stop the test?\nYes and Close\nYes\nNo*\n"));
        EXPECT_EQ(m_told.find("Which value") == std::string::npos, *answer == 'Y') << answer;
        EXPECT_EQ(m_log.find("Test is stopped") != std::string::npos, std::string(answer) == "Yes") << m_log;
        QTest::qWait(60); // no probe is left that would begin
        EXPECT_EQ(Current()->GetState(), SessionStateIdle) << answer;
    }
}

TEST_P(AnInterruptedTest, OutlivesItsCamera)
{
    for (bool const asked : {false, true}) { // with a question open
        m_onLine = [&](CBWTesting *dialog) {
            if (asked) {
                m_onBox = [&] {
                    m_device.LoseConnection();
                };
                Press(dialog);
            } else {
                m_device.LoseConnection();
            }
        };
        Run();
        EXPECT_EQ(Current(), nullptr);
        EXPECT_EQ(m_device.stream.OutCount(), 0u);
        EXPECT_THAT(m_told, HasSubstr("Connection to the Camera was lost"));
        EXPECT_THAT(m_log, HasSubstr("Test is stopped"));
    }
}

INSTANTIATE_TEST_SUITE_P(Moments, AnInterruptedTest,
                         testing::Values("Saved init value", "Start waiting...", "Acceptable", "Nonworking"));

TEST_F(BandwidthTest, ACameraLostAtTheLastQuestion)
{
    MakeCamera(2, "PixelClock", 10, 10, 12);
    m_frames = [](std::int64_t) {
        return Frames::Whole;
    };
    m_onBox = [this] {
        m_device.LoseConnection();
    };
    EXPECT_EQ(Run(), "11 12 ");
    EXPECT_EQ(Current(), nullptr);
}

TEST_F(BandwidthTest, AValueThatCannotBeRestoredAndAStartThatFailsWaitForTheOperator)
{
    MakeCamera(2, "PixelClock", 10, 10, 12);
    m_frames = [](std::int64_t) {
        return Frames::None;
    };
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
