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
#include <QMessageBox>
#include <QPushButton>
#include <QSettings>
#include <QTest>
#include <QTimer>

#include <functional>
#include <string>
#include <vector>

namespace {

using Texts = std::vector<std::string>;

class Manager : public testing::Test
{
protected:
    Manager()
    {
        QSettings(QStringLiteral("Velmor"), QStringLiteral("TovScope")).clear();
        QSettings(QStringLiteral("Velmor"), QStringLiteral("Session_bench_Scripted")).clear();
        QObject::connect(&m_operator, &QTimer::timeout, [this] { Answer(); });
        m_operator.start(5);
    }
    ~Manager() override
    {
        m_window.reset();
        EXPECT_EQ(Told(), Texts());
        EXPECT_EQ(m_device.script.Violations() + m_other.script.Violations(), "");
    }
    // The operator presses Ok in every message box.
    void Answer()
    {
        auto *const box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
        if (!box)
            return;
        if (auto const action = std::exchange(m_onNextMessage, {})) {
            action();
            return; // answered in a later round, after what the action has posted
        }
        EXPECT_EQ(box->windowTitle(), QCoreApplication::applicationName());
        EXPECT_EQ(box->icon(), QMessageBox::Critical);
        m_told.push_back(box->text().toStdString());
        box->button(QMessageBox::Ok)->click();
    }
    // What the message boxes said since the last call.
    Texts Told()
    {
        return std::exchange(m_told, {});
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
        return m_window->findChild<QAction *>(QStringLiteral("action") + QString::fromLatin1(name));
    }
    std::string Title()
    {
        return m_window->windowTitle().toStdString();
    }
    // Which of some actions, with different rows in the table of states, may be used.
    std::string Enabled()
    {
        std::string names;
        for (char const *name : {"LoadConfiguration", "SaveConfiguration", "Connect", "Play", "Stop", "Record", "Snap",
                                 "ZoomIn", "About", "Settings"})
            names += Action(name)->isEnabled() ? std::string(name) + " " : "";
        return names;
    }
    bool Reaches(SessionState state)
    {
        return QTest::qWaitFor([&] { return Current() && Current()->GetState() == state; });
    }
    // For SessionStateDisconnected it is connected, but its machine has not started yet.
    void Bring(FakeDevice &device, SessionState state)
    {
        ASSERT_TRUE(Gui().CreateSession(&device));
        ASSERT_TRUE(Gui().CreatePanels());
        if (state == SessionStateDisconnected)
            return;
        ASSERT_TRUE(Reaches(SessionStateIdle));
        if (state == SessionStateIdle)
            return;
        Action("Play")->trigger();
        ASSERT_TRUE(Reaches(SessionStateAcquisition));
        if (state == SessionStateCapturing)
            emit Current()->signalStartCapturing();
        ASSERT_TRUE(Reaches(state));
    }
    void ExpectClosed(FakeDevice &device)
    {
        EXPECT_TRUE(QTest::qWaitFor([&] { return Current() == nullptr; }));
        EXPECT_EQ(Title(), "TovScope - Camera is not connected");
        EXPECT_EQ(Enabled(), "LoadConfiguration Connect About Settings ");
        EXPECT_EQ(device.ReleaseCount(), 1);
        EXPECT_EQ(device.stream.OutCount(), 0u);
        EXPECT_EQ(device.script.Violations(), "");
    }

    FakeDevice m_device;
    FakeDevice m_other;
    std::function<void()> m_onNextMessage; // runs while the message is open
    std::unique_ptr<TovScope> m_window = std::make_unique<TovScope>(nullptr, false, false);

private:
    QTimer m_operator;
    Texts m_told;
};

TEST_F(Manager, AMissingOrUnreadableCameraLeavesTheOneInUseRunning)
{
    Bring(m_device, SessionStateAcquisition);
    Session *const session = Current();
    EXPECT_FALSE(Gui().CreateSession(nullptr));
    EXPECT_EQ(Told(), Texts{"Camera cannot be instantinated"});
    std::pair<std::int32_t, char const *> const table[] = {
        {0, "0 (OK)"}, {-40201, "-40201 (GenICam: Tree error)"}, {-1, "-1 (Unknown code)"}};
    for (auto const &[error, text] : table) {
        m_other.SetParametersReadable(false, error);
        EXPECT_FALSE(Gui().CreateSession(&m_other));
        EXPECT_EQ(Told(), Texts{std::string("Cannot get camera parameters\nError code: ") + text});
    }
    EXPECT_EQ(Current(), session);
    EXPECT_EQ(session->GetState(), SessionStateAcquisition);
    EXPECT_EQ(m_other.ReleaseCount(), 0); // the caller's
}

TEST_F(Manager, ASessionThatCannotBeBuiltIsReportedAndNothingRemains)
{
    Bring(m_device, SessionStateIdle);
    m_other.script.At("RegisterEvent", [] { throw TovScopeException("no events", 0x2a); });
    EXPECT_FALSE(Gui().CreateSession(&m_other));
    EXPECT_EQ(Told(), Texts{"no events\nError code: 0x{2a}"});
    m_other.script.At("RegisterEvent", [] { throw std::runtime_error("nor memory"); });
    EXPECT_FALSE(Gui().CreateSession(&m_other));
    EXPECT_EQ(Told(), Texts{"nor memory"});
    EXPECT_EQ(m_other.ReleaseCount(), 0);
    ExpectClosed(m_device);
    m_other.script.At("RegisterEvent", {});
    Bring(m_other, SessionStateAcquisition);
}

TEST_F(Manager, EnablesActionsByState)
{
    Bring(m_device, SessionStateDisconnected);
    Gui().updateGui();
    EXPECT_EQ(Enabled(), "Settings ");
    ASSERT_TRUE(Reaches(SessionStateIdle));
    EXPECT_EQ(Enabled(), "LoadConfiguration SaveConfiguration Connect Play ZoomIn About Settings ");
    Action("Play")->trigger();
    ASSERT_TRUE(Reaches(SessionStateAcquisition));
    EXPECT_EQ(Enabled(), "SaveConfiguration Connect Stop Record Snap ZoomIn About Settings ");
    emit Current()->signalStartCapturing();
    ASSERT_TRUE(Reaches(SessionStateCapturing));
    EXPECT_EQ(Enabled(), "SaveConfiguration Connect Stop Record ZoomIn Settings ");
    EXPECT_FALSE(Action("Record")->isChecked());
    EXPECT_EQ(Title(), "TovScope -  bench [Scripted, SN:0042]");

    // From capturing the first press stops the recording, the second the camera.
    Action("Stop")->trigger();
    ASSERT_TRUE(Reaches(SessionStateAcquisition));
    Action("Stop")->trigger();
    ASSERT_TRUE(Reaches(SessionStateIdle));
    Action("Disconnect")->trigger();
    ExpectClosed(m_device);
}

TEST_F(Manager, TellsSessionErrorsAndMovesTheMachine)
{
    struct
    {
        unsigned char error;
        SessionState after;
        char const *text;
    } const table[] = {{1, SessionStateIdle, "Can not start the Acquisition"},
                       {4, SessionStateIdle, "Can not stop the Capture"},
                       {255, SessionStateAcquisition, "Unknown Error"}};
    for (auto const &row : table) {
        FakeDevice device;
        Bring(device, SessionStateAcquisition);
        emit Current()->signalSessionStateError(Current(), row.error);
        EXPECT_EQ(Told(), Texts{row.text});
        EXPECT_TRUE(Reaches(row.after));
        Gui().cameraDisconnect();
    }
    Bring(m_device, SessionStateAcquisition);
    emit Current()->signalSessionStateError(Current(), 2);
    EXPECT_EQ(Told(), (Texts{"Connection to the Camera was terminated, because of invalid device state",
                             "Can not stop the Acquisition"}));
    ExpectClosed(m_device);
}

TEST_F(Manager, ALostCameraIsToldAndClosedOnceInEveryState)
{
    for (SessionState state :
         {SessionStateDisconnected, SessionStateIdle, SessionStateAcquisition, SessionStateCapturing}) {
        FakeDevice device;
        Bring(device, state);
        m_onNextMessage = [&] {
            device.LoseConnection();
        }; // again
        device.LoseConnection();
        ExpectClosed(device);
        EXPECT_EQ(Told(), Texts{"Connection to the Camera was lost"}) << state;
    }
}

TEST_F(Manager, ACameraLostWhileItFailsToStartIsClosedAfterTheMessage)
{
    for (char const *step : {"AllocBufferQueue", "StartAcquisition", "AcquisitionStart", "message"}) {
        FakeDevice device;
        Bring(device, SessionStateIdle);
        if (step == std::string("message")) {
            device.script.Fail("AcquisitionStart", TOV_CAM_ERR_GENICAM_GENERIC);
            m_onNextMessage = [&] {
                device.LoseConnection();
            };
        } else {
            device.script.At(step, [&] { device.LoseConnection(); });
            device.script.Fail(step, TOV_CAM_ERR_NO_DEVICE);
        }
        Action("Play")->trigger();
        ExpectClosed(device);
        EXPECT_EQ(Told(), (Texts{"Can not start the Acquisition", "Connection to the Camera was lost"})) << step;
    }
}

TEST_F(Manager, AnotherCameraReplacesARunningOneAndALateReportOfThatIsIgnored)
{
    Bring(m_device, SessionStateCapturing);
    m_device.LoseConnection(); // posted, not delivered
    Bring(m_other, SessionStateAcquisition);
    EXPECT_EQ(m_device.ReleaseCount(), 1);
    EXPECT_EQ(m_device.stream.OutCount(), 0u);
    m_window->close();
    m_window.reset(); // with a camera that runs
    EXPECT_EQ(m_other.ReleaseCount(), 1);
    EXPECT_EQ(m_other.stream.OutCount(), 0u);
}

} // namespace
