#include "session.h"
#include "displayview.h"
#include "fakecamera.h"
#include "grabbingfifo.h"
#include "rigtestplugin.h"
#include "sessionhost.h"
#include "tovscopeexception.h"

#include <QCoreApplication>
#include <QMainWindow>
#include <QTemporaryDir>
#include <QThread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

namespace {

constexpr auto NoState = static_cast<SessionState>(-1);

class MockPlugin : public RigTestPlugin
{
public:
    MOCK_METHOD(void, ShowPanel, (QMainWindow *, int, int), (override));
    MOCK_METHOD(void, Detach, (QMainWindow *), (override));
    MOCK_METHOD(bool, Attach, (QMainWindow *, TovCam::Device *), (override));
    MOCK_METHOD(void, ProcessBuffer, (TovCam::Buffer *), (override));
    MOCK_METHOD(bool, NeedNextFrame, (bool *), (override));
    MOCK_METHOD(void, Reserved1, (), (override));
    MOCK_METHOD(void, Reserved2, (), (override));
    MOCK_METHOD(void, OnStartCapturing, (), (override));
    MOCK_METHOD(void, OnStop, (), (override));
    MOCK_METHOD(void, PrepareToAcquition, (), (override));
    MOCK_METHOD(void, RunAutoEvaluation, (), (override));
    MOCK_METHOD(void, SetComponents, (TovComponent *, TovComponent *, TovComponent *), (override));
};

class Host : public SessionHost
{
public:
    explicit Host(FakeScript &script) : m_script(script)
    {
    }
    QSettings *GetSessionSettings(QString const &name) override
    {
        m_settings.emplace(m_folder.filePath(name + QStringLiteral(".ini")), QSettings::IniFormat);
        return &*m_settings;
    }
    bool AddDisplayWidget(QWidget *widget) override
    {
        m_script.Note("AddDisplayWidget");
        widget->setParent(&window);
        return accepts;
    }
    bool RemoveDisplayWidget(QWidget *) override
    {
        m_script.Note("RemoveDisplayWidget");
        return true;
    }
    void setCoordinatesAndValue(int x, int, int, int, int) override
    {
        pointerX = x;
    }
    QMainWindow *GetMainWindow() override
    {
        return &window;
    }

    QMainWindow window;
    bool accepts = true;
    int pointerX = -1;

private:
    FakeScript &m_script;
    QTemporaryDir m_folder;
    std::optional<QSettings> m_settings;
};

// Its calls are steps of the camera's script.
class Plugin : public testing::NiceMock<MockPlugin>
{
public:
    explicit Plugin(FakeScript &script)
    {
        RigTestSlot() = this;
        ON_CALL(*this, OnStartCapturing).WillByDefault([&] { script.Run("OnStartCapturing", "OnStartCapturing"); });
        ON_CALL(*this, OnStop).WillByDefault([&] { script.Run("OnStop", "OnStop"); });
        ON_CALL(*this, PrepareToAcquition).WillByDefault([&] { script.Run("Prepare", "PrepareToAcquition"); });
    }
    ~Plugin() override
    {
        RigTestSlot() = nullptr;
    }
};

class SessionTest : public testing::Test
{
protected:
    ~SessionTest() override
    {
        session.reset();
        EXPECT_EQ(device.script.Violations(), "");
    }

    void Connect()
    {
        session = std::make_unique<Session>(nullptr, &device, &host);
        QObject::connect(session.get(), &Session::signalUpdateGui, [this] { states.push_back(session->GetState()); });
        // As the program's manager answers.
        QObject::connect(session.get(), &Session::signalSessionStateError, [this](void *sender, unsigned char error) {
            EXPECT_EQ(sender, session.get());
            errors.push_back(error);
            emit session->signalStopAcquisition();
        });
        QCoreApplication::processEvents();
        ASSERT_EQ(session->GetState(), SessionStateIdle);
        states.clear();
        device.script.TakeLog();
    }

    void GoTo(SessionState state)
    {
        if (state >= SessionStateAcquisition)
            emit session->signalStartAcquisition();
        if (state == SessionStateCapturing)
            emit session->signalStartCapturing();
        ASSERT_EQ(session->GetState(), state);
        device.script.TakeLog();
        states.clear();
    }

    long Grabber(char const *key)
    {
        long value = -1;
        session->GetGrabber()->GetParamInt(key, &value);
        return value;
    }

    FakeDevice device;
    Host host{device.script};
    std::unique_ptr<Session> session;
    std::vector<SessionState> states; // at each signalUpdateGui
    std::vector<int> errors;
};

#define START_LOG "AllocBufferQueue 16; Set TLParamsLocked 1; StartAcquisition -1 0; Execute AcquisitionStart"
#define STOP_LOG "Execute AcquisitionStop; StopAcquisition 1; Set TLParamsLocked 0; ReleaseBufferQueue"
#define CLOSE_LOG "RemoveDisplayWidget; Release"

TEST_F(SessionTest, IsBuiltInOrderAndEntersIdleOnTheNextPass)
{
    session = std::make_unique<Session>(nullptr, &device, &host);
    EXPECT_EQ(session->GetState(), NoState);
    EXPECT_EQ(device.script.TakeLog(), "Read GevTimestampTickFrequency; AddDisplayWidget; RegisterEvent 1004");
    emit session->signalStartAcquisition(); // nobody listens yet
    QCoreApplication::processEvents();
    EXPECT_EQ(session->GetState(), SessionStateIdle);
    EXPECT_EQ(session->GetSettingsName(), QStringLiteral("Session_bench_Scripted"));
    EXPECT_EQ(session->GetTitle(), QStringLiteral(" bench [Scripted, SN:0042]"));
    EXPECT_EQ(session->GetParamCount(), 4u);
    emit session->GetDisplayView()->mouseMoved(17, 0, 0, 0, 0);
    EXPECT_EQ(host.pointerX, 17);
    session.reset();
    EXPECT_EQ(device.script.TakeLog(), "UnregisterEvent 1004; " CLOSE_LOG);
    EXPECT_EQ(device.SubscriberCount(), 0u);
}

TEST_F(SessionTest, NamesItselfByWhatTheCameraTells)
{
    struct
    {
        char const *absent;
        char const *name;
        char const *title;
    } const rows[] = {
        {"DeviceUserID", "Session_Scripted", " [Scripted, SN:0042]"},
        {"DeviceModelName", "Session", ", SN:0042]"},
        {"DeviceSerialNumber", "Session", "]"},
    };
    for (auto const &row : rows) {
        device.params.Remove(row.absent);
        Connect();
        EXPECT_EQ(session->GetSettingsName().toStdString(), row.name);
        EXPECT_EQ(session->GetTitle().toStdString(), row.title);
        session.reset();
    }
    device.SetParametersReadable(false);
    Connect();
    EXPECT_EQ(session->GetSettingsName(), QStringLiteral("Session"));
    EXPECT_EQ(session->GetTitle(), QString());
}

TEST_F(SessionTest, StartsAndStopsInOrder)
{
    Plugin const plugin(device.script);
    Connect();
    emit session->signalStartAcquisition();
    EXPECT_EQ(device.script.TakeLog(), "PrepareToAcquition; " START_LOG);
    EXPECT_EQ(states, std::vector<SessionState>{SessionStateAcquisition});
    for (std::uint64_t id = 1; id <= 5; ++id)
        EXPECT_TRUE(device.stream.Push({id, id * 1000}));
    EXPECT_TRUE(device.stream.WaitUntilDrained());
    EXPECT_EQ(Grabber("FramesAcquired"), 5);
    emit session->signalStopAcquisition();
    EXPECT_EQ(device.script.TakeLog(), STOP_LOG "; OnStop");
    EXPECT_EQ(states, (std::vector<SessionState>{SessionStateAcquisition, SessionStateIdle}));
    EXPECT_EQ(errors, std::vector<int>{});
}

// Every signal of the machine in every state.
TEST_F(SessionTest, MovesOnlyWhereATransitionLeads)
{
    using Signal = void (Session::*)();
    struct
    {
        Signal signal;
        SessionState fromIdle, fromAcquisition, fromCapturing;
    } const rows[] = {
        {&Session::signalStartAcquisition, SessionStateAcquisition, SessionStateAcquisition, SessionStateCapturing},
        {&Session::signalStopAcquisition, SessionStateIdle, SessionStateIdle, SessionStateCapturing},
        {&Session::signalStartCapturing, SessionStateIdle, SessionStateCapturing, SessionStateCapturing},
        {&Session::signalStopCapturing, SessionStateIdle, SessionStateAcquisition, SessionStateAcquisition},
        {&Session::stopCapturing, SessionStateIdle, SessionStateAcquisition, SessionStateAcquisition},
        {&Session::stopCapturingAndAcquisition, SessionStateIdle, SessionStateIdle, SessionStateIdle},
        {&Session::signalCameraStateDisconnected, SessionStateDisconnected, SessionStateDisconnected,
         SessionStateDisconnected},
    };
    for (auto const &row : rows) {
        SessionState const expected[] = {row.fromIdle, row.fromAcquisition, row.fromCapturing};
        for (int from = SessionStateIdle; from <= SessionStateCapturing; ++from) {
            SCOPED_TRACE("row " + std::to_string(&row - rows) + " from " + std::to_string(from));
            Connect();
            GoTo(static_cast<SessionState>(from));
            (session.get()->*row.signal)();
            EXPECT_EQ(session->GetState(), expected[from - 1]);
        }
    }
    EXPECT_EQ(errors, std::vector<int>{});
}

TEST_F(SessionTest, CapturingKeepsFramesAndLeavesTheCameraAlone)
{
    Connect();
    GoTo(SessionStateAcquisition);
    emit session->signalStartCapturing();
    for (std::uint64_t id = 1; id <= 10; ++id)
        device.stream.Push({id, id * 1000});
    EXPECT_TRUE(device.stream.WaitUntilDrained());
    EXPECT_EQ(Grabber("FramesDroppedSW"), 0);
    EXPECT_GE(Grabber("QueueFilled"), 8) << "no recorder took them; the display has borrowed one or two";
    emit session->signalStopCapturing();
    device.stream.Push({11, 11000});
    EXPECT_TRUE(device.stream.WaitUntilDrained());
    EXPECT_LE(Grabber("QueueFilled"), 1);
    EXPECT_EQ(device.script.TakeLog(), "");
    EXPECT_EQ(states, (std::vector<SessionState>{SessionStateCapturing, SessionStateAcquisition}));
}

// Each step fails by its status, and by an exception out of the library.
TEST_F(SessionTest, AFailingStepOfTheStartIsUndoneWhole)
{
#define UNDO_LOG "Execute AcquisitionAbort; Set TLParamsLocked 0; ReleaseBufferQueue"
    struct
    {
        char const *step, *log;
    } const rows[] = {
        {"AllocBufferQueue", "AllocBufferQueue 16; " UNDO_LOG},
        {"TLParamsLocked", "AllocBufferQueue 16; Set TLParamsLocked 1; " UNDO_LOG},
        {"StartAcquisition", "AllocBufferQueue 16; Set TLParamsLocked 1; StartAcquisition -1 0; " UNDO_LOG},
        {"AcquisitionStart",
         START_LOG "; Execute AcquisitionAbort; StopAcquisition 1; Set TLParamsLocked 0; ReleaseBufferQueue"},
    };
    Connect();
    for (auto const &row : rows) {
        for (bool const throws : {false, true}) {
            SCOPED_TRACE(std::string(row.step) + (throws ? " throws" : " fails"));
            bool armed = true;
            if (throws)
                device.script.At(row.step, [&armed] {
                    if (std::exchange(armed, false))
                        throw std::runtime_error("broken");
                });
            else
                device.script.Fail(row.step, -40001);
            emit session->signalStartAcquisition();
            EXPECT_EQ(device.script.TakeLog(), row.log);
            EXPECT_EQ(errors, std::vector<int>{1});
            EXPECT_EQ(states, std::vector<SessionState>{SessionStateIdle}) << "the answer led back to Idle";
            device.script.Fail(row.step, 0);
            device.script.At(row.step, {});
            errors.clear();
            states.clear();

            emit session->signalStartAcquisition();
            EXPECT_EQ(session->GetState(), SessionStateAcquisition) << "and it starts again";
            emit session->signalStopAcquisition();
            device.script.TakeLog();
            states.clear();
        }
    }
}

TEST_F(SessionTest, ACameraWithoutTheNodesStarts)
{
    device.params.Remove("TLParamsLocked");
    device.params.Remove("AcquisitionStart");
    Connect();
    emit session->signalStartAcquisition();
    EXPECT_EQ(session->GetState(), SessionStateAcquisition);
}

TEST_F(SessionTest, ACameraThatCannotBeReadDoesNotStartAndStops)
{
    Connect();
    device.SetParametersReadable(false);
    emit session->signalStartAcquisition();
    EXPECT_EQ(errors, std::vector<int>{1});
    device.SetParametersReadable(true);
    GoTo(SessionStateAcquisition);
    device.SetParametersReadable(false);
    emit session->signalStopAcquisition();
    EXPECT_EQ(session->GetState(), SessionStateIdle);
    EXPECT_EQ(device.script.TakeLog(), "StopAcquisition 1; ReleaseBufferQueue");
}

TEST_F(SessionTest, AFailingStopIsFollowedByAnAbort)
{
    Connect();
    GoTo(SessionStateAcquisition);
    device.script.Fail("AcquisitionStop", -40001);
    emit session->signalStopAcquisition();
    EXPECT_EQ(device.script.TakeLog(), "Execute AcquisitionStop; Execute AcquisitionAbort; StopAcquisition 1; "
                                       "Set TLParamsLocked 0; ReleaseBufferQueue");
}

TEST_F(SessionTest, WhatAnExceptionLeftRunningIsStoppedBeforeTheNextStartOrTheEnd)
{
    for (bool const restart : {false, true}) {
        Connect();
        GoTo(SessionStateAcquisition);
        device.script.At("AcquisitionStop", [] { throw std::runtime_error("broken"); });
        emit session->signalStopAcquisition();
        EXPECT_EQ(device.script.TakeLog(), "Execute AcquisitionStop") << "the rest is skipped";
        EXPECT_EQ(session->GetState(), SessionStateIdle);
        device.script.At("AcquisitionStop", {});
        if (restart) {
            emit session->signalStartAcquisition();
            EXPECT_EQ(device.script.TakeLog(), STOP_LOG "; " START_LOG);
            EXPECT_EQ(session->GetState(), SessionStateAcquisition);
        }
        session.reset();
        EXPECT_EQ(device.script.TakeLog(), "UnregisterEvent 1004; " STOP_LOG "; " CLOSE_LOG);
    }
}

TEST_F(SessionTest, AFailingPluginLeavesTheMachineInCapturing)
{
    Plugin const plugin(device.script);
    Connect();
    GoTo(SessionStateAcquisition);
    device.script.At("OnStartCapturing", [] { throw 42; });
    emit session->signalStartCapturing();
    EXPECT_EQ(errors, std::vector<int>{3});
    EXPECT_EQ(session->GetState(), SessionStateAcquisition);
    emit session->signalStopAcquisition();
    EXPECT_EQ(device.script.TakeLog(), "OnStartCapturing") << "no transition leads out";
    emit session->signalCameraStateDisconnected();
    EXPECT_EQ(device.script.TakeLog(), STOP_LOG "; OnStop");
    EXPECT_EQ(states, (std::vector<SessionState>{SessionStateIdle, SessionStateDisconnected}));
}

// The camera goes away in each state, and in the middle of each step of a start and a stop; its report comes on a
// foreign thread and is answered on this one, as the program's manager does.
TEST_F(SessionTest, ALostCameraEndsTheSessionFromEveryState)
{
    struct
    {
        SessionState state;
        char const *step; // null: while nothing happens
    } const rows[] = {
        {SessionStateIdle, nullptr},
        {SessionStateAcquisition, nullptr},
        {SessionStateCapturing, nullptr},
        {SessionStateIdle, "AllocBufferQueue"},
        {SessionStateIdle, "TLParamsLocked"},
        {SessionStateIdle, "StartAcquisition"},
        {SessionStateIdle, "AcquisitionStart"},
        {SessionStateAcquisition, "AcquisitionStop"},
        {SessionStateAcquisition, "StopAcquisition"},
        {SessionStateAcquisition, "ReleaseBufferQueue"},
    };
    int released = 0;
    for (auto const &row : rows) {
        SCOPED_TRACE(std::to_string(row.state) + " " + (row.step ? row.step : "at rest"));
        Connect();
        GoTo(row.state);
        QObject manager;
        int heard = 0;
        QObject::connect(session.get(), &Session::signalCameraDisconnected, &manager,
                         [&](void *sender, unsigned char reason) {
                             EXPECT_EQ(QThread::currentThread(), manager.thread());
                             EXPECT_EQ(sender, session.get());
                             EXPECT_EQ(reason, 1);
                             ++heard;
                             emit session->signalCameraStateDisconnected();
                             EXPECT_EQ(session->GetState(), SessionStateDisconnected) << "within the emission";
                             session.reset();
                         });
        auto const lose = [this] {
            for (char const *node : {"TLParamsLocked", "AcquisitionStart", "AcquisitionStop", "AcquisitionAbort"})
                device.script.Fail(node, -40006);
            device.LoseConnection();
        };
        if (row.step) {
            device.script.At(row.step, [this, lose, &row] {
                device.script.At(row.step, {});
                lose();
            });
            if (row.state == SessionStateIdle)
                emit session->signalStartAcquisition();
            else
                emit session->signalStopAcquisition();
        } else {
            lose();
        }
        EXPECT_EQ(heard, 0) << "only queued";
        QCoreApplication::processEvents();
        EXPECT_EQ(heard, 1);
        EXPECT_EQ(session, nullptr);
        EXPECT_EQ(device.ReleaseCount(), ++released);
        for (char const *node : {"TLParamsLocked", "AcquisitionStart", "AcquisitionStop", "AcquisitionAbort"})
            device.script.Fail(node, 0);
        session.reset();
    }
}

TEST_F(SessionTest, DeletedWhileItRunsItStopsEverythingFirst)
{
    Connect();
    GoTo(SessionStateCapturing);
    device.stream.Push({1, 1000});
    session.reset();
    EXPECT_EQ(device.script.TakeLog(), "UnregisterEvent 1004; " STOP_LOG "; " CLOSE_LOG);
}

TEST_F(SessionTest, KeepsSettingsAndForgetsCounters)
{
    Connect();
    session->GetGrabber()->SetParamInt("QueueSize", 25);
    session->GetDisplay()->SetParamFloat("DisplayRate", 12.5);
    GoTo(SessionStateAcquisition);
    device.stream.Push({7, 1000});
    EXPECT_TRUE(device.stream.WaitUntilDrained());
    emit session->signalCameraStateDisconnected();
    session.reset();
    Connect();
    EXPECT_EQ(Grabber("QueueSize"), 25);
    double rate = 0;
    EXPECT_EQ(session->GetDisplay()->GetParamFloat("DisplayRate", &rate), TOV_PARAM_OK);
    EXPECT_EQ(rate, 12.5);
    for (char const *key :
         {"FramesAcquired", "FramesDroppedHW", "FramesDroppedSW", "FramesIncomp", "Timestamp", "FrameID"})
        EXPECT_EQ(Grabber(key), 0) << key;
    for (char const *key : {"FpsAvg", "FpsInst", "Speed"}) {
        EXPECT_EQ(session->GetGrabber()->GetParamFloat(key, &rate), TOV_PARAM_OK);
        EXPECT_EQ(rate, 0) << key;
    }
    emit session->signalStartAcquisition();
    EXPECT_EQ(device.script.TakeLog().rfind("AllocBufferQueue 25", 0), 0u);
}

TEST_F(SessionTest, ABuildThatFailsLeavesTheDeviceToTheCaller)
{
    host.accepts = false;
    try {
        Session const built(nullptr, &device, &host);
        FAIL() << "was built";
    } catch (TovScopeException const &exception) {
        EXPECT_STREQ(exception.what(), "CreateDisplayView( ) failed");
        EXPECT_EQ(exception.GetCode(), 0u);
    }
    EXPECT_EQ(device.ReleaseCount(), 0);
    EXPECT_EQ(device.SubscriberCount(), 0u);
    EXPECT_TRUE(host.window.findChildren<DisplayView *>().isEmpty());
}

TEST_F(SessionTest, ManyConnectionsWithFramesLeaveNothingBehind)
{
    for (int cycle = 0; cycle < 10; ++cycle) {
        Connect();
        for (int start = 0; start < 3; ++start) {
            GoTo(start == 2 ? SessionStateCapturing : SessionStateAcquisition);
            for (std::uint64_t id = 1; id <= 20; ++id)
                device.stream.Push({id, id * 1000});
            QCoreApplication::processEvents();
            session->stopCapturingAndAcquisition();
            ASSERT_EQ(session->GetState(), SessionStateIdle);
        }
        emit session->signalCameraStateDisconnected();
        session.reset();
    }
    EXPECT_EQ(device.ReleaseCount(), 10);
}

} // namespace
