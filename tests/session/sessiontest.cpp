#include "session.h"
#include "asleep.h"
#include "displayview.h"
#include "fakehost.h"
#include "fakeserializer.h"
#include "grabbingfifo.h"
#include "imagewriter.h"
#include "inspectsink.h"
#include "notices.h"
#include "params.h"
#include "tovscopeexception.h"
#include "wait.h"

#include <QApplication>
#include <QMessageBox>
#include <QTimer>

namespace {

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
        session.reset();
        FakeSerializerScript::Get().Reset();
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

    void Feed(std::uint64_t first, std::uint64_t last)
    {
        for (std::uint64_t id = first; id <= last; ++id)
            EXPECT_TRUE(device.stream.Push({id, id * 1000}));
        EXPECT_TRUE(device.stream.WaitUntilDrained());
    }

    FakeDevice device;
    FakeHost host{device.script};
    std::unique_ptr<Session> session;
    std::vector<SessionState> states; // at each signalUpdateGui
    std::vector<int> errors;
};

#define START_LOG "AllocBufferQueue 16; Set TLParamsLocked 1; StartAcquisition -1 0; Execute AcquisitionStart"
#define STOP_LOG "Execute AcquisitionStop; StopAcquisition 1; Set TLParamsLocked 0; ReleaseBufferQueue"
#define CLOSE_LOG "RemoveDisplayWidget; Release"

TEST_F(SessionTest, IsBuiltAndEntersIdleOnTheNextPass)
{
    session = std::make_unique<Session>(nullptr, &device, &host);
    EXPECT_EQ(session->GetState(), static_cast<SessionState>(-1));
    EXPECT_EQ(device.script.TakeLog(), "AddDisplayWidget; RegisterEvent 1004; RegisterEvent 1005");
    emit session->signalStartAcquisition(); // nobody listens yet
    QCoreApplication::processEvents();
    EXPECT_EQ(session->GetState(), SessionStateIdle);
    session.reset();
    EXPECT_EQ(device.script.TakeLog(), "UnregisterEvent 1004; UnregisterEvent 1005; " CLOSE_LOG);
}

TEST_F(SessionTest, WhatCannotBeBuiltLeavesTheCameraToItsOwnerAndNothingInTheWindow)
{
    device.script.Fail("AddDisplayWidget", 1);
    EXPECT_THROW(Session(nullptr, &device, &host), TovScopeException);
    EXPECT_EQ(device.script.TakeLog(), "AddDisplayWidget; RemoveDisplayWidget");
}

TEST_F(SessionTest, NamesItselfByWhatTheCameraTells)
{
    std::tuple<char const *, char const *, char const *> const rows[] = {
        {"", "Session_bench_Scripted", " bench [Scripted, SN:0042]"},
        {"DeviceUserID", "Session_Scripted", " [Scripted, SN:0042]"},
        {"DeviceModelName", "Session", ", SN:0042]"},
        {"DeviceSerialNumber", "Session", "]"}};
    for (auto const &[absent, name, title] : rows) { // each with one node less
        device.params.texts.erase(absent);
        Connect();
        EXPECT_EQ(session->GetSettingsName().toStdString(), name);
        EXPECT_EQ(session->GetTitle().toStdString(), title);
        session.reset();
    }
}

TEST_F(SessionTest, ShowsACamerasTextsInOneLineEach)
{
    device.params.texts["DeviceUserID"].value = "<b>bench</b>\n\u202E2";
    device.params.texts["DeviceModelName"].value = "Model\nSerial Number:     1\x07";
    Connect();
    EXPECT_EQ(session->GetTitle().toStdString(), " <b>bench</b> 2 [Model Serial Number:     1, SN:0042]");
    EXPECT_EQ(session->GetCameraInfo().count(QStringLiteral("\nSerial Number:")), 1);
    NoticeBoard::Instance().Report(NoticeTopic::Program, NoticeLevel::Info, QStringLiteral("a\nb\u202Ec"));
    EXPECT_EQ(NoticeOf(NoticeTopic::Program), "a bc");
    NoticeBoard::Instance().Withdraw(NoticeTopic::Program);
}

TEST_F(SessionTest, TellsForHowLongTheCameraHasNotAnswered)
{
    Connect();
    for (auto const &[silence, text] :
         {std::pair(2000u, ": no answer for 2 s"), {3900u, ": no answer for 3 s"}, {1999u, ""}, {70000u, "for 70 s"}}) {
        device.silence = silence;
        EXPECT_TRUE(Eventually([text = std::string(text)] {
            std::string const told = NoticeOf(NoticeTopic::Answers);
            return text.empty() ? told.empty() : told.find(text) != std::string::npos;
        })) << text;
    }
    session.reset();
    EXPECT_EQ(NoticeOf(NoticeTopic::Answers), "");
}

TEST_F(SessionTest, StartsCapturesAndStopsInOrder)
{
    FakePlugin const plugin(device.script);
    Connect();
    emit session->signalStartAcquisition();
    EXPECT_EQ(device.script.TakeLog(), "PrepareToAcquition; " START_LOG);
    Feed(1, 5);
    EXPECT_EQ(ParamText(session->GetGrabber(), "FramesAcquired"), "5");
    emit session->signalStartCapturing();
    Feed(6, 15);
    EXPECT_GE(std::stoi(ParamText(session->GetGrabber(), "QueueFilled")), 8)
        << "no recorder took them; the display has borrowed one or two";
    emit session->signalStopCapturing();
    Feed(16, 16);
    EXPECT_LE(std::stoi(ParamText(session->GetGrabber(), "QueueFilled")), 1);
    EXPECT_EQ(device.script.TakeLog(), "OnStartCapturing") << "the camera is left alone";
    emit session->signalStopAcquisition();
    EXPECT_EQ(device.script.TakeLog(), STOP_LOG "; OnStop");
    TovCam::Buffer *buffer = nullptr;
    EXPECT_EQ(static_cast<GrabbingFifo *>(session->GetGrabber())->PopOldestBuffer(&buffer), TOV_CAM_ERR_INVALID_STATE);
    EXPECT_EQ(states, (std::vector<SessionState>{SessionStateAcquisition, SessionStateCapturing,
                                                 SessionStateAcquisition, SessionStateIdle}));
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

// Each step fails by its status, and by an exception out of the library; after each the session starts again.
TEST_F(SessionTest, AFailingStepOfTheStartIsUndoneWhole)
{
#define UNDO_LOG "Execute AcquisitionAbort; Set TLParamsLocked 0; ReleaseBufferQueue"
    std::pair<char const *, char const *> const rows[] = {
        {"AllocBufferQueue", "AllocBufferQueue 16; " UNDO_LOG},
        {"TLParamsLocked", "AllocBufferQueue 16; Set TLParamsLocked 1; " UNDO_LOG},
        {"StartAcquisition", "AllocBufferQueue 16; Set TLParamsLocked 1; StartAcquisition -1 0; " UNDO_LOG},
        {"AcquisitionStart",
         START_LOG "; Execute AcquisitionAbort; StopAcquisition 1; Set TLParamsLocked 0; ReleaseBufferQueue"},
    };
    Connect();
    for (auto const &[step, log] : rows) {
        for (bool const throws : {false, true}) {
            SCOPED_TRACE(std::string(step) + (throws ? " throws" : " fails"));
            device.script.Fail(step, throws ? 0 : -40001);
            if (throws)
                device.script.At(step, [&, step = step] {
                    device.script.At(step, {});
                    throw std::runtime_error("broken");
                });
            emit session->signalStartAcquisition();
            EXPECT_EQ(device.script.TakeLog(), log);
            EXPECT_EQ(std::exchange(errors, {}), std::vector<int>{1});
            EXPECT_EQ(states, std::vector<SessionState>{SessionStateIdle}) << "the answer led back to Idle";
            device.script.Fail(step, 0);
            GoTo(SessionStateAcquisition);
            emit session->signalStopAcquisition();
            device.script.TakeLog();
            states.clear();
        }
    }
}

TEST_F(SessionTest, MissingNodesDoNotPreventAStartButAMissingNodeMapDoes)
{
    device.params.ints.erase("TLParamsLocked");
    device.params.commands.erase("AcquisitionStart");
    Connect();
    GoTo(SessionStateAcquisition);
    device.SetParametersReadable(false);
    emit session->signalStopAcquisition();
    EXPECT_EQ(device.script.TakeLog(), "StopAcquisition 1; ReleaseBufferQueue");
    EXPECT_EQ(session->GetState(), SessionStateIdle);
    emit session->signalStartAcquisition();
    EXPECT_EQ(errors, std::vector<int>{1});
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
        EXPECT_EQ(device.script.TakeLog(), "UnregisterEvent 1004; UnregisterEvent 1005; " STOP_LOG "; " CLOSE_LOG);
    }
}

TEST_F(SessionTest, WhatTheUndoingOfAStartLeftIsStoppedBeforeTheNextOne)
{
    Connect();
    device.script.Fail("AcquisitionStart", -40001);
    device.script.At("AcquisitionAbort", [] { throw std::runtime_error("broken"); });
    emit session->signalStartAcquisition();
    EXPECT_EQ(errors, std::vector<int>{1});
    device.script.Fail("AcquisitionStart", 0);
    device.script.TakeLog();
    emit session->signalStartAcquisition();
    EXPECT_EQ(device.script.TakeLog(), "Execute AcquisitionStop; Set TLParamsLocked 0; ReleaseBufferQueue; " START_LOG);
    EXPECT_EQ(session->GetState(), SessionStateAcquisition);
}

// Each is held in the middle of a frame, which must be back before the stream is stopped and its buffers go.
TEST_F(SessionTest, AStopWaitsForTheDisplayAndTheRecorder)
{
    struct : InspectSink, Gate
    {
        void DisplayImage(_TovImage const *) override
        {
            Pass();
        }
        FAKE_GIVES(void StopDisplaying(), void());
        FAKE_GIVES(void RefreshImage(_TovImage const *), void());
        FAKE_GIVES(void KeepImage(_TovImage const *), void());
    } view;
    Gate file;
    Connect();
    FakeSerializerScript &serializer = FakeSerializerScript::Get();
    serializer.Set(&FakeSerializing::onWrite, [&](std::size_t) { return file.Pass(), 0; });
    session->GetDisplayView()->AddInspectView(&view);
    std::tuple<Gate *, std::function<void()>, char const *, char const *> const rows[] = {
        {&view, [this] { session->signalStopAcquisition(); }, "Execute AcquisitionStop",
         "StopAcquisition 1; Set TLParamsLocked 0; ReleaseBufferQueue"},
        {&file, [this] { session->stopCapturing(); }, "", ""},
        {&file, [this] { session.reset(); }, "UnregisterEvent 1004; UnregisterEvent 1005", STOP_LOG "; " CLOSE_LOG}};
    for (auto const &[gate, stop, before, after] : rows) {
        bool const recording = gate == &file;
        GoTo(recording ? SessionStateCapturing : SessionStateAcquisition);
        gate->Close();
        int const reached = gate->Reached();
        Feed(1, 1);
        EXPECT_TRUE(Eventually([&, gate = gate] { return gate->Reached() > reached; }));
        auto const opened = gate->OpenOnceAllSleep([&, before = before] {
            EXPECT_EQ(device.script.TakeLog(), before);
            EXPECT_EQ(serializer.TakeLog(), recording ? "Series raw 1080101 q50" : "");
        });
        stop();
        opened.wait();
        EXPECT_EQ(serializer.TakeLog(), recording ? "Stop" : "");
        EXPECT_EQ(device.script.TakeLog(), after);
    }
}

TEST_F(SessionTest, AFailingPluginLeavesTheMachineInCapturing)
{
    FakePlugin const plugin(device.script);
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

// What ends a recording, and where that leads; the next one works.
TEST_F(SessionTest, RecordsUntilSomethingEndsIt)
{
    FakeSerializerScript &serializer = FakeSerializerScript::Get();
    struct
    {
        char const *what;
        SessionState after;
        std::size_t saved;
        std::vector<int> errors;
    } const rows[] = {
        {"the operator", SessionStateAcquisition, 3, {}},
        {"a snap", SessionStateAcquisition, 1, {}},
        {"a failing movie", SessionStateAcquisition, 2, {}},
        {"files that cannot be closed", SessionStateIdle, 3, {4}},
        {"the end of an evaluation", SessionStateIdle, 3, {}},
        {"the lost camera", SessionStateDisconnected, 3, {}},
        {"the end of the session", SessionStateDisconnected, 3, {}},
    };
    for (auto const &row : rows) {
        SCOPED_TRACE(row.what);
        errors.clear();
        Connect();
        GoTo(SessionStateAcquisition);
        auto const is = [&row](char const *what) {
            return std::string(what) == row.what;
        };
        if (is("a failing movie")) {
            session->GetImageWriter()->SetParamInt("FileFormat", ImageWriter::FormatAvi);
            serializer.Set(&FakeSerializing::onWrite, [](std::size_t number) { return number == 2 ? -4 : 0; });
        } else if (is("files that cannot be closed")) {
            serializer.Set(&FakeSerializing::onStop, []() -> int { throw std::bad_alloc(); });
        }
        if (is("a snap"))
            EXPECT_TRUE(session->SnapNextFrame());
        else
            emit session->signalStartCapturing();
        ASSERT_EQ(session->GetState(), SessionStateCapturing);
        Feed(1, 3);
        auto *const fifo = static_cast<GrabbingFifo *>(session->GetGrabber());
        EXPECT_TRUE(!is("a snap") || Becomes([=] { return fifo->GetAccounts().queued == 0; })); // it is told late
        EXPECT_TRUE(Eventually([&] { return serializer.Writes().size() >= row.saved; }));
        if (is("the operator") || is("files that cannot be closed"))
            emit session->signalStopCapturing();
        else if (is("the end of an evaluation"))
            static_cast<ImageWriter *>(session->GetImageWriter())->PostFinishEvaltest();
        else if (is("the lost camera"))
            emit session->signalCameraStateDisconnected();
        else if (is("the end of the session"))
            session.reset();
        EXPECT_TRUE(Eventually([&] { return !session || session->GetState() == row.after; }));
        EXPECT_EQ(serializer.Writes().size(), row.saved);
        EXPECT_EQ(errors, row.errors);
        if (row.after != SessionStateAcquisition)
            continue;
        RecordingLedger const &ledger = static_cast<ImageWriter *>(session->GetImageWriter())->GetLedger();
        EXPECT_TRUE(ledger.AddsUp());
        EXPECT_EQ(ledger.acquired, 3);
        serializer.Reset();
        GoTo(SessionStateCapturing);
        Feed(4, 6);
        EXPECT_TRUE(Eventually([&] { return serializer.Writes().size() >= 3; }));
        EXPECT_TRUE(Eventually([&] { return ParamText(session->GetImageWriter(), "CaptureFramesAcquired") == "3"; }));
    }
}

TEST_F(SessionTest, ALateReportOfOneRecordingDoesNotEndTheNext)
{
    Connect();
    GoTo(SessionStateCapturing);
    static_cast<ImageWriter *>(session->GetImageWriter())->PostFinishWriting();
    emit session->signalStopCapturing();
    emit session->signalStartCapturing();
    QCoreApplication::processEvents();
    EXPECT_EQ(session->GetState(), SessionStateCapturing);
}

TEST_F(SessionTest, ASnapOutsideOfAcquisitionWaitsForTheNextRecording)
{
    Connect();
    EXPECT_TRUE(session->SnapNextFrame());
    EXPECT_EQ(session->GetState(), SessionStateIdle);
    GoTo(SessionStateCapturing);
    Feed(1, 5);
    EXPECT_TRUE(Eventually([&] { return session->GetState() == SessionStateAcquisition; }));
    EXPECT_EQ(FakeSerializerScript::Get().Writes().size(), 1u);
}

TEST_F(SessionTest, KeepsSettingsAndForgetsCounters)
{
    Connect();
    session->GetGrabber()->SetParamInt("QueueSize", 25);
    session->GetDisplay()->SetParamFloat("DisplayRate", 12.5);
    session->GetImageWriter()->SetParamString("ImageName", "run_${time}");
    session->GetImageWriter()->SetParamInt("FramesSaved", 9);
    GoTo(SessionStateAcquisition);
    Feed(7, 7);
    Connect();
    EXPECT_EQ(ParamText(session->GetDisplay(), "DisplayRate"), "12.5");
    EXPECT_EQ(ParamText(session->GetImageWriter(), "ImageName"), "run_${time}");
    EXPECT_EQ(ParamText(session->GetImageWriter(), "FramesSaved"), "0");
    for (char const *key : {"FramesAcquired", "FramesDroppedHW", "FramesDroppedSW", "FramesIncomp", "Timestamp",
                            "FrameID", "FpsAvg", "FpsInst", "Speed"})
        EXPECT_EQ(ParamText(session->GetGrabber(), key), "0") << key;
    emit session->signalStartAcquisition();
    EXPECT_EQ(device.script.TakeLog().rfind("AllocBufferQueue 25", 0), 0u);
}

TEST_F(SessionTest, ReportsWhatTheCameraHasAndNothingElse)
{
    FakeParams adapter{device.script};
    device.info.interface = &adapter; // without a MAC it has no section
    device.info.host = "line one\nline two \xc3\xa4";
    Connect();
    auto &ints = device.params.ints;
    device.params.texts.clear();
    device.params.enums.clear();
    ints.clear();
    adapter.ints.clear();
    device.params.texts["DeviceVendorName"].value = "100% %1";
    device.params.texts["DeviceUserID"].value = "bench";
    ints["CameraHeadFirmwareVersion"].value = 0xAB;
    ints["GevFirmwareHwVersion"].value = -1;
    EXPECT_EQ(session->GetCameraInfo(),
              QString::fromUtf8("Device Information\nManufacturer Name: 100% %1\nUser Defined Name: bench\n"
                                "\nVersion Information\nFirmware Version:  ver:ab\n hw:ffffffffffffffff\n"
                                "\nHost Information\nline one\nline two \xc3\xa4"));
    adapter.ints["GevInterfaceMACAddress"].value = 0x0A1B2C3D4E5F;
    EXPECT_TRUE(session->GetCameraInfo().contains(QStringLiteral("\nMAC:  a1b2c3d4e5f\n")));
}

TEST_F(SessionTest, TellsWhenAConfigurationCouldNotBeSaved)
{
    Connect();
    session->LoadConfiguration(QStringLiteral("/a/\u00e4.tcfg"));
    session->SaveConfiguration(QStringLiteral("/b.tcfg"));
    EXPECT_EQ(device.script.TakeLog(), "LoadConfiguration /a/\xc3\xa4.tcfg; SaveConfiguration /b.tcfg");
    std::pair<std::int32_t, char const *> const rows[] = {
        {TOV_CAM_ERR_FILE_NOT_FOUND, ""},
        {TOV_CAM_ERR_GENICAM_GENERIC, "\nGen<i>Cam error"},
        {TOV_CAM_ERR_UNKNOWN, "\nUnknown error"},
    };
    for (auto const &[status, more] : rows) {
        device.script.Fail("SaveConfiguration", status);
        QString told;
        QTimer::singleShot(0, [&] {
            auto *const box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
            ASSERT_NE(box, nullptr);
            told = box->windowTitle() + QLatin1String(": ") + box->text();
            session.reset(); // the camera goes while the message is open
            box->accept();
        });
        session->SaveConfiguration(QStringLiteral("/c"));
        EXPECT_EQ(told.toStdString(), std::string("Error: Can not save configuration file: /c") + more);
        Connect();
    }
}

TEST_F(SessionTest, TellsWhatCameOfAConfigurationWithoutAMessage)
{
    using TovCam::ConfigurationReport;
    using enum ConfigurationReport::Problem;
    Connect();
    TovCam::RefusedSetting const width{"Width", {}, "9", "8", TOV_CAM_ERR_GENICAM_OUT_OF_RANGE, false};
    TovCam::RefusedSetting const gain{"Gain", "GainSelector=Red", "2", {}, TOV_CAM_ERR_OK, false};
    TovCam::RefusedSetting const height{"Height", {}, "7", "6", TOV_CAM_ERR_GENICAM_ACCESS, true};
    auto const report = [](ConfigurationReport::Problem problem, std::vector<TovCam::RefusedSetting> refused = {}) {
        ConfigurationReport made;
        made.problem = problem;
        made.systemError = EACCES;
        made.model = "VG";
        made.serial = "7";
        made.settings = 54;
        made.refused = std::move(refused);
        return made;
    };
    std::tuple<std::int32_t, ConfigurationReport, char const *> const rows[] = {
        {TOV_CAM_ERR_FILE_READ, report(File), "a.tcfg was not loaded: Permission denied"},
        {TOV_CAM_ERR_WRONG_CONFIGURATION, report(NotWhole), "a.tcfg was not loaded: a part of the file is missing"},
        {TOV_CAM_ERR_WRONG_CONFIGURATION, report(NoValue, {width}),
         "a.tcfg was not loaded: \"9\" is not a value for Width"},
        {TOV_CAM_ERR_WRONG_CONFIGURATION, report(OtherCamera),
         "a.tcfg was not loaded: it was made by another model, the VG (7)"},
        {TOV_CAM_ERR_NO_DEVICE, report(None), "a.tcfg was not loaded: the camera is gone"},
        {TOV_CAM_ERR_UNKNOWN, {}, "a.tcfg was not loaded: error -40001"}, // a library that says no more
        {TOV_CAM_ERR_GENICAM_OUT_OF_RANGE, report(None, {width}),
         "a.tcfg: the camera refused Width = 9 (out of range; it is 8)"},
        {TOV_CAM_ERR_GENICAM_ACCESS, report(None, {height, gain, width, width, width}),
         "a.tcfg: the camera refused 5 of 54 settings: Height = 7 (locked while the picture runs; it is 6), "
         "Gain at GainSelector=Red = 2 (taken, but not kept), Width = 9 (out of range; it is 8), 2 more"},
        {TOV_CAM_ERR_OK, report(None), ""},
    };
    for (auto const &[status, made, text] : rows) {
        device.script.Fail("LoadConfiguration", status);
        device.configuration = made;
        session->LoadConfiguration(QStringLiteral("/x/a.tcfg"));
        EXPECT_EQ(NoticeOf(NoticeTopic::Configuration), text);
        EXPECT_EQ(QApplication::activeModalWidget(), nullptr);
    }
    device.configuration.keptAs = "/x/a.tcfg~";
    session->SaveConfiguration(QStringLiteral("/x/a.tcfg"));
    EXPECT_EQ(NoticeOf(NoticeTopic::Configuration),
              "a.tcfg was saved; the file of the VG (7) that was there is kept as a.tcfg~");
}

TEST_F(SessionTest, SwitchesTheLogsChannelsAndClearsTheSwitchOfARefusedOne)
{
    Connect();
    session->SetParamBool("LogEvent", true);
    session->SetParamBool("LogControl", true);
    EXPECT_EQ(device.script.TakeLog(), "");
    session->SetParamBool("EnableLog", true);
    EXPECT_EQ(device.script.TakeLog(), "RegisterEvent 1000; RegisterEvent 1002");
    session->SetParamBool("LogControl", false);
    EXPECT_EQ(device.script.TakeLog(), "UnregisterEvent 1000");
    device.script.Fail("RegisterEvent", TOV_CAM_ERR_INVALID_ARGUMENT);
    session->SetParamBool("LogStream", true);
    EXPECT_EQ(device.script.TakeLog(), "RegisterEvent 1001");
    EXPECT_EQ(ParamText(session.get(), "LogStream"), "0");
    session->SetParamBool("EnableLog", false);
    EXPECT_EQ(device.script.TakeLog(), "UnregisterEvent 1002");
    // Refused once more, and then only those that are still asked for.
    session->SetParamBool("EnableLog", true);
    EXPECT_EQ(device.script.TakeLog(), "RegisterEvent 1002");
    EXPECT_EQ(ParamText(session.get(), "LogEvent"), "0");
    device.script.Fail("RegisterEvent", 0);
    session->SetParamBool("LogControl", true);
    device.script.TakeLog();
    session.reset(); // with a channel on
    EXPECT_EQ(device.script.TakeLog(), "UnregisterEvent 1004; UnregisterEvent 1005; UnregisterEvent 1000; " CLOSE_LOG);
}

} // namespace
