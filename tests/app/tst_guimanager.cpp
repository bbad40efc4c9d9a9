// Opening, running, losing and closing cameras through the GUI manager, with a scripted camera and an operator who
// answers every message.
#include "fakecamera.h"
#include "guimanager.h"
#include "session.h"
#include "tovscope.h"
#include "tovscopeexception.h"

#include <gtest/gtest.h>

#include <QAction>
#include <QApplication>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QPushButton>
#include <QSettings>
#include <QTest>
#include <QTimer>

#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace {

// Presses Ok in every message box and remembers what it said.
class Operator : public QObject
{
public:
    Operator()
    {
        connect(&m_timer, &QTimer::timeout, this, &Operator::Answer);
        m_timer.start(5);
    }
    std::vector<std::string> Take()
    {
        return std::exchange(m_texts, {});
    }
    std::function<void()> onNextMessage; // runs while the message is open

private:
    void Answer()
    {
        QWidget *const modal = QApplication::activeModalWidget();
        if (auto *const box = qobject_cast<QMessageBox *>(modal)) {
            EXPECT_EQ(box->windowTitle(), QCoreApplication::applicationName());
            EXPECT_EQ(box->icon(), QMessageBox::Critical);
            EXPECT_EQ(box->standardButtons(), QMessageBox::Ok);
            if (auto const action = std::exchange(onNextMessage, {})) {
                action();
                return; // answered in a later round, after what the action has posted
            }
            m_texts.push_back(box->text().toStdString());
            box->button(QMessageBox::Ok)->click();
        } else if (auto *const dialog = qobject_cast<QDialog *>(modal)) {
            dialog->reject(); // the camera selector
        }
    }
    QTimer m_timer;
    std::vector<std::string> m_texts;
};

using Texts = std::vector<std::string>;

class Manager : public testing::Test
{
protected:
    Manager()
    {
        QSettings(QStringLiteral("Velmor"), QStringLiteral("TovScope")).clear();
        QSettings(QStringLiteral("Velmor"), QStringLiteral("Session_bench_Scripted")).clear();
        m_window = std::make_unique<TovScope>(nullptr, false, false);
        m_window->show();
    }
    ~Manager() override
    {
        m_window.reset();
        EXPECT_EQ(m_operator.Take(), Texts());
        for (FakeDevice *device : {&m_device, &m_other})
            EXPECT_EQ(device->script.Violations(), "");
    }

    GuiManager &Gui()
    {
        return m_window->GetGuiManager();
    }
    Session *Current()
    {
        return Gui().GetSession();
    }
    QAction *Action(char const *name)
    {
        return m_window->findChild<QAction *>(QString::fromLatin1(name));
    }
    std::string Title()
    {
        return m_window->windowTitle().toStdString();
    }
    // Reachable actions that may be used, without those that always may.
    std::string Enabled()
    {
        QStringList names;
        for (QMenu const *menu : m_window->menuBar()->findChildren<QMenu *>()) {
            for (QAction const *action : menu->actions()) {
                if (action->isEnabled() && action->objectName().startsWith(QLatin1String("action")))
                    names << action->objectName().mid(6);
            }
        }
        names.sort();
        return names.join(QLatin1Char(' ')).toStdString();
    }
    ::testing::AssertionResult Reaches(SessionState state)
    {
        if (QTest::qWaitFor([&] { return Current() && Current()->GetState() == state; }, 5000))
            return ::testing::AssertionSuccess();
        return ::testing::AssertionFailure() << "state " << state << " was not reached";
    }
    void Connect(FakeDevice &device)
    {
        ASSERT_TRUE(Gui().CreateSession(&device));
        ASSERT_TRUE(Gui().CreatePanels());
    }
    void Bring(FakeDevice &device, SessionState state)
    {
        Connect(device);
        ASSERT_TRUE(Reaches(SessionStateIdle));
        if (state >= SessionStateAcquisition) {
            Action("actionPlay")->trigger();
            ASSERT_TRUE(Reaches(SessionStateAcquisition));
        }
        if (state == SessionStateCapturing) {
            emit Current()->signalStartCapturing();
            ASSERT_TRUE(Reaches(SessionStateCapturing));
        }
    }
    void ExpectDisconnected(FakeDevice &device)
    {
        ASSERT_TRUE(QTest::qWaitFor([&] { return Current() == nullptr; }, 5000));
        EXPECT_EQ(Title(), "TovScope - Camera is not connected");
        EXPECT_EQ(Enabled(), "About Connect Exit Help LoadConfiguration Settings");
        EXPECT_EQ(device.ReleaseCount(), 1);
        EXPECT_EQ(device.stream.OutCount(), 0u);
    }

    FakeDevice m_device;
    FakeDevice m_other;
    Operator m_operator;
    std::unique_ptr<TovScope> m_window;
};

TEST_F(Manager, AMissingOrUnreadableCameraLeavesTheOneInUseRunning)
{
    Bring(m_device, SessionStateAcquisition);
    Session *const session = Current();
    EXPECT_FALSE(Gui().CreateSession(nullptr));
    EXPECT_EQ(m_operator.Take(), Texts{"Camera cannot be instantinated"});
    std::pair<std::int32_t, char const *> const table[] = {
        {0, "0 (OK)"},
        {-40001, "-40001 (Unknown error)"},
        {-40051, "-40051 (Invalid state)"},
        {-40201, "-40201 (GenICam: Tree error)"},
        {-40206, "-40206 (GenICam: Invalid argument)"},
        {-1, "-1 (Unknown code)"},
        {7, "7 (Unknown code)"},
    };
    for (auto const &[error, text] : table) {
        m_other.SetParametersReadable(false, error);
        EXPECT_FALSE(Gui().CreateSession(&m_other));
        EXPECT_EQ(m_operator.Take(), Texts{std::string("Cannot get camera parameters\nError code: ") + text});
    }
    EXPECT_EQ(Current(), session);
    EXPECT_EQ(session->GetState(), SessionStateAcquisition);
    EXPECT_EQ(m_other.ReleaseCount(), 0); // the caller's
    EXPECT_EQ(m_device.ReleaseCount(), 0);
}

TEST_F(Manager, ASessionThatCannotBeBuiltIsReportedAndNothingRemains)
{
    Bring(m_device, SessionStateIdle);
    m_other.script.At("RegisterEvent", [] { throw TovScopeException("no events", 0x2a); });
    EXPECT_FALSE(Gui().CreateSession(&m_other));
    EXPECT_EQ(m_operator.Take(), Texts{"no events\nError code: 0x{2a}"});
    EXPECT_EQ(m_other.ReleaseCount(), 0);
    ExpectDisconnected(m_device);

    m_other.script.At("RegisterEvent", [] { throw std::runtime_error("nor memory"); });
    EXPECT_FALSE(Gui().CreateSession(&m_other));
    EXPECT_EQ(m_operator.Take(), Texts{"nor memory"});

    m_other.script.At("RegisterEvent", {});
    Bring(m_other, SessionStateAcquisition);
}

TEST_F(Manager, EnablesActionsByState)
{
    Connect(m_device);
    Gui().updateGui(); // the machine has not started yet
    EXPECT_EQ(Enabled(), "Settings");

    ASSERT_TRUE(Reaches(SessionStateIdle));
    EXPECT_EQ(Enabled(), "About ActualSize CameraInformation Capture CenterImage Connect Disconnect Exit FitToWindow "
                         "GenICamTree Help HistogramPanel LoadConfiguration Log Play SaveConfiguration "
                         "SaveConfigurationAs Settings SpreadToWindow Statistics TestBandwidth ZoomIn ZoomOut");
    Action("actionPlay")->trigger();
    ASSERT_TRUE(Reaches(SessionStateAcquisition));
    EXPECT_EQ(Enabled(), "About ActualSize CameraInformation Capture CenterImage Connect Disconnect Exit FitToWindow "
                         "GenICamTree Help HistogramPanel Log Record SaveConfiguration "
                         "SaveConfigurationAs Settings Snap SpreadToWindow Statistics Stop ZoomIn ZoomOut");
    emit Current()->signalStartCapturing();
    ASSERT_TRUE(Reaches(SessionStateCapturing));
    EXPECT_EQ(Enabled(), "ActualSize CameraInformation Capture CenterImage Connect Disconnect Exit FitToWindow "
                         "GenICamTree Help HistogramPanel Log Record SaveConfiguration "
                         "SaveConfigurationAs Settings SpreadToWindow Statistics Stop ZoomIn ZoomOut");
    EXPECT_FALSE(Action("actionRecord")->isChecked());
    EXPECT_EQ(Title(), "TovScope -  bench [Scripted, SN:0042]");

    // From capturing the first press stops the recording, the second the camera.
    Action("actionStop")->trigger();
    ASSERT_TRUE(Reaches(SessionStateAcquisition));
    Action("actionStop")->trigger();
    ASSERT_TRUE(Reaches(SessionStateIdle));
    Action("actionDisconnect")->trigger();
    ExpectDisconnected(m_device);
}

TEST_F(Manager, EveryFailureToStartIsToldOnceAndLeavesTheSessionIdle)
{
    Connect(m_device);
    ASSERT_TRUE(Reaches(SessionStateIdle));
    for (char const *step : {"AllocBufferQueue", "TLParamsLocked", "StartAcquisition", "AcquisitionStart"}) {
        m_device.script.Fail(step, TOV_CAM_ERR_GENICAM_GENERIC);
        Action("actionPlay")->trigger();
        QTest::qWait(30);
        EXPECT_EQ(m_operator.Take(), Texts{"Can not start the Acquisition"}) << step;
        ASSERT_TRUE(Reaches(SessionStateIdle));
        EXPECT_TRUE(Action("actionPlay")->isEnabled()) << step;
        m_device.script.Fail(step, 0);
        Action("actionPlay")->trigger();
        ASSERT_TRUE(Reaches(SessionStateAcquisition)) << step;
        Action("actionStop")->trigger();
        ASSERT_TRUE(Reaches(SessionStateIdle));
    }
}

TEST_F(Manager, TellsSessionErrorsAndMovesTheMachine)
{
    struct
    {
        unsigned char error;
        SessionState after;
        char const *text;
    } const table[] = {{1, SessionStateIdle, "Can not start the Acquisition"},
                       {3, SessionStateIdle, "Can not stop the Capture"},
                       {4, SessionStateIdle, "Can not stop the Capture"},
                       {0, SessionStateAcquisition, "Unknown Error"},
                       {255, SessionStateAcquisition, "Unknown Error"}};
    Bring(m_device, SessionStateAcquisition);
    for (auto const &row : table) {
        emit Current()->signalSessionStateError(Current(), row.error);
        EXPECT_EQ(m_operator.Take(), Texts{row.text});
        ASSERT_TRUE(Reaches(row.after));
        if (row.after == SessionStateIdle) {
            Action("actionPlay")->trigger();
            ASSERT_TRUE(Reaches(SessionStateAcquisition));
        }
    }
    emit Current()->signalSessionStateError(Current(), 2);
    EXPECT_EQ(m_operator.Take(), (Texts{"Connection to the Camera was terminated, because of invalid device state",
                                        "Can not stop the Acquisition"}));
    ExpectDisconnected(m_device);
}

TEST_F(Manager, ALostCameraIsToldAndClosedInEveryState)
{
    for (SessionState state : {SessionStateIdle, SessionStateAcquisition, SessionStateCapturing}) {
        FakeDevice device;
        Bring(device, state);
        device.LoseConnection();
        ASSERT_TRUE(QTest::qWaitFor([&] { return Current() == nullptr; }, 5000));
        EXPECT_EQ(m_operator.Take(), Texts{"Connection to the Camera was lost"}) << state;
        ExpectDisconnected(device);
        EXPECT_EQ(device.script.Violations(), "");
    }
    // Before the machine has started.
    Connect(m_device);
    m_device.LoseConnection();
    ASSERT_TRUE(QTest::qWaitFor([&] { return Current() == nullptr; }, 5000));
    EXPECT_EQ(m_operator.Take(), Texts{"Connection to the Camera was lost"});
    ExpectDisconnected(m_device);
}

TEST_F(Manager, ACameraLostInEachStepOfStartingIsClosed)
{
    for (char const *step : {"AllocBufferQueue", "TLParamsLocked", "StartAcquisition", "AcquisitionStart"}) {
        FakeDevice device;
        Bring(device, SessionStateIdle);
        device.script.At(step, [&device] {
            device.script.At("AllocBufferQueue", {});
            device.LoseConnection();
        });
        device.script.Fail(step, TOV_CAM_ERR_NO_DEVICE);
        Action("actionPlay")->trigger();
        ASSERT_TRUE(QTest::qWaitFor([&] { return Current() == nullptr; }, 5000)) << step;
        EXPECT_EQ(m_operator.Take(), (Texts{"Can not start the Acquisition", "Connection to the Camera was lost"}))
            << step;
        ExpectDisconnected(device);
        EXPECT_EQ(device.script.Violations(), "");
    }
}

TEST_F(Manager, ACameraLostWhileAFailureIsOnTheScreenIsClosedAfterIt)
{
    Bring(m_device, SessionStateIdle);
    m_device.script.Fail("AcquisitionStart", TOV_CAM_ERR_GENICAM_GENERIC);
    m_operator.onNextMessage = [&] {
        m_device.LoseConnection();
    };
    Action("actionPlay")->trigger();
    ASSERT_TRUE(QTest::qWaitFor([&] { return Current() == nullptr; }, 5000));
    EXPECT_EQ(m_operator.Take(), (Texts{"Can not start the Acquisition", "Connection to the Camera was lost"}));
    ExpectDisconnected(m_device);
}

TEST_F(Manager, ACameraLostTwiceIsClosedOnce)
{
    Bring(m_device, SessionStateAcquisition);
    m_operator.onNextMessage = [&] {
        m_device.LoseConnection();
    };
    m_device.LoseConnection();
    ASSERT_TRUE(QTest::qWaitFor([&] { return Current() == nullptr; }, 5000));
    QTest::qWait(20);
    EXPECT_EQ(m_operator.Take(), Texts{"Connection to the Camera was lost"});
    ExpectDisconnected(m_device);
}

TEST_F(Manager, AReportOfASessionThatIsGoneIsIgnored)
{
    Bring(m_device, SessionStateAcquisition);
    m_device.LoseConnection(); // posted, not delivered
    Action("actionDisconnect")->trigger();
    Connect(m_other);
    QTest::qWait(30);
    ASSERT_TRUE(Reaches(SessionStateIdle));
    EXPECT_EQ(m_operator.Take(), Texts());
    EXPECT_EQ(m_device.ReleaseCount(), 1);
    EXPECT_EQ(m_other.ReleaseCount(), 0);
}

TEST_F(Manager, AnotherCameraReplacesARunningOne)
{
    Bring(m_device, SessionStateCapturing);
    Bring(m_other, SessionStateIdle);
    EXPECT_EQ(m_device.ReleaseCount(), 1);
    EXPECT_EQ(m_device.stream.OutCount(), 0u);
    EXPECT_EQ(m_operator.Take(), Texts());
    EXPECT_EQ(m_other.ReleaseCount(), 0);
}

TEST_F(Manager, CancellingTheSelectorLeavesTheSessionUntouched)
{
    Action("actionConnect")->trigger();
    EXPECT_EQ(Current(), nullptr);
    Bring(m_device, SessionStateAcquisition);
    Session *const session = Current();
    Action("actionConnect")->trigger(); // the operator rejects every dialog
    EXPECT_EQ(Current(), session);
    EXPECT_EQ(session->GetState(), SessionStateAcquisition);
}

TEST_F(Manager, ClosingTheWindowClosesARunningCamera)
{
    Bring(m_device, SessionStateAcquisition);
    m_window->close();
    m_window.reset();
    EXPECT_EQ(m_device.ReleaseCount(), 1);
    EXPECT_EQ(m_device.stream.OutCount(), 0u);
}

TEST_F(Manager, AnUnattendedStartOpensTheFirstCameraAlsoWithoutAPlugin)
{
    m_window = std::make_unique<TovScope>(nullptr, true, true); // no plug-in lies beside this test
    m_window->show();
    ASSERT_TRUE(Reaches(SessionStateIdle));
    EXPECT_EQ(Title().rfind("TovScope -  ", 0), 0u) << Title();
}

TEST_F(Manager, ActionsWithoutASessionDoNothing)
{
    for (void (GuiManager::*slot)() :
         {&GuiManager::cameraDisconnect, &GuiManager::startAcquisition, &GuiManager::stopAcquisitionAndCapture,
          &GuiManager::zoomIn, &GuiManager::zoomOut, &GuiManager::zoom100, &GuiManager::zoomFitToWnd,
          &GuiManager::zoomSpreadToWnd, &GuiManager::centerImage})
        (Gui().*slot)();
    EXPECT_EQ(Title(), "TovScope - Camera is not connected");
    Action("actionCaptureOptions")->trigger();
    EXPECT_EQ(m_operator.Take(), Texts{"Capture Options Dlg"});
}

} // namespace
