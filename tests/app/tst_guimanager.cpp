// Opening, running, losing and closing cameras through the GUI manager, with a scripted camera and an operator who
// answers every message.
#include "fakecamera.h"
#include "params.h"
#include "tovscopeexception.h"
#include "window.h"

namespace {

using Texts = std::vector<std::string>;

class Manager : public WindowTest
{
protected:
    Manager()
    {
        NewWindow();
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
        if (qobject_cast<QFileDialog *>(box->parent()))
            return box->button(QMessageBox::Yes)->click(); // a file that is there already may be overwritten
        EXPECT_EQ(box->windowTitle(), QCoreApplication::applicationName());
        EXPECT_EQ(box->icon(), QMessageBox::Critical);
        EXPECT_EQ(box->textFormat(), Qt::PlainText);
        m_told.push_back(box->text().toStdString());
        box->button(QMessageBox::Ok)->click();
    }
    // Answers the file dialog that opens in the course of the call, or cancels it where there is no path. Gives its
    // title, filter and suggestion.
    std::string ChooseFile(std::function<void()> const &call, QString const &path)
    {
        std::string asked;
        During<QFileDialog>(call, [&](QFileDialog *dialog) {
            asked = (dialog->windowTitle() + u'|' + dialog->nameFilters().join(u',') + u'|' +
                     dialog->findChild<QLineEdit *>(QStringLiteral("fileNameEdit"))->text())
                        .toStdString();
            Choose(dialog, path);
        });
        return asked;
    }
    std::string ChooseFile(char const *action, QString const &path)
    {
        return ChooseFile([=, this] { Action(action)->trigger(); }, path);
    }
    // What the message boxes said since the last call.
    Texts Told()
    {
        return std::exchange(m_told, {});
    }

    // Which of some actions, with different rows in the table of states, may be used.
    std::string Enabled()
    {
        std::string names;
        for (char const *name : {"LoadConfiguration", "SaveConfiguration", "Connect", "Disconnect", "Play",
                                 "TestBandwidth", "Stop", "Record", "Snap", "ZoomIn", "About", "Settings"})
            names += Action(name)->isEnabled() ? std::string(name) + " " : "";
        return names;
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
            Current()->signalStartCapturing();
        ASSERT_TRUE(Reaches(state));
    }
    void ExpectClosed(FakeDevice &device)
    {
        EXPECT_TRUE(Eventually([&] { return Current() == nullptr; }));
        EXPECT_EQ(Title(), "TovScope - Camera is not connected");
        EXPECT_EQ(Enabled(), "LoadConfiguration Connect About Settings ");
        EXPECT_EQ(device.ReleaseCount(), 1);
        EXPECT_EQ(device.stream.OutCount(), 0u);
        EXPECT_EQ(device.script.Violations(), "");
    }

    FakeDevice m_device;
    FakeDevice m_other;
    std::function<void()> m_onNextMessage; // runs while the message is open

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
    m_other.SetParametersReadable(false, -40201);
    EXPECT_FALSE(Gui().CreateSession(&m_other));
    EXPECT_EQ(Told(), Texts{"Cannot get camera parameters\nError code: -40201 (GenICam: Tree error)"});
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
    EXPECT_EQ(Enabled(),
              "LoadConfiguration SaveConfiguration Connect Disconnect Play TestBandwidth ZoomIn About Settings ");
    Action("Play")->trigger();
    ASSERT_TRUE(Reaches(SessionStateAcquisition));
    EXPECT_EQ(Enabled(), "SaveConfiguration Connect Disconnect Stop Record Snap ZoomIn About Settings ");
    for (SessionState const state : {SessionStateCapturing, SessionStateAcquisition, SessionStateCapturing}) {
        Action("Record")->trigger();
        ASSERT_TRUE(Reaches(state));
    }
    EXPECT_EQ(Enabled(), "SaveConfiguration Connect Disconnect Stop Record ZoomIn Settings ");
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

// By what the helper that captures lacks.
TEST_F(Manager, ARefusedCaptureSaysWhatHelps)
{
    QTemporaryDir const folder;
    QString const runs = folder.filePath(QStringLiteral("runs")), denied = folder.filePath(QStringLiteral("denied"));
    for (QString const &name : {runs, denied}) {
        QFile file(name);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        ASSERT_TRUE(file.setPermissions(name == runs ? QFile::ReadOwner | QFile::ExeOwner : QFile::ReadOwner));
    }
    QString const none = folder.filePath(QStringLiteral("none"));
    std::pair<QString, QString> const cases[] = {
        {runs, QStringLiteral("\nsudo setcap cap_net_raw=ep ") + runs},
        {denied, QStringLiteral("\nsudo usermod -aG %1 $USER").arg(QFileInfo(denied).group())},
        {none, QStringLiteral("is not installed: ") + none},
        {QStringLiteral("eth0"), QStringLiteral("of this camera.\n(why)")},
    };
    m_device.script.Fail("RegisterEvent", TOV_CAM_ERR_GENICAM_ACCESS);
    Bring(m_device, SessionStateIdle);
    Find<QGroupBox>("groupLogging")->setChecked(true);
    for (auto const &[place, help] : cases) {
        m_device.failure = {TovCam::CaptureRefusal::NoRight, place.toStdString(), "why"};
        auto *const box = Find<QCheckBox>("chkStream");
        box->click();
        EXPECT_TRUE(Eventually([&] { return !box->isChecked() && box->toolTip().contains(help); }))
            << box->toolTip().toStdString();
    }
}

TEST_F(Manager, TellsSessionErrorsAndMovesTheMachine)
{
    std::tuple<unsigned char, SessionState, char const *> const table[] = {
        {SessionErrorStartAcquisition, SessionStateIdle, "Can not start the Acquisition"},
        {SessionErrorStopCapturing, SessionStateIdle, "Can not stop the Capture"},
        {255, SessionStateAcquisition, "Unknown Error"}};
    for (auto const &[error, after, text] : table) {
        FakeDevice device;
        Bring(device, SessionStateAcquisition);
        Current()->signalSessionStateError(Current(), error);
        EXPECT_EQ(Told(), Texts{text});
        EXPECT_TRUE(Reaches(after));
        Gui().cameraDisconnect();
    }
    Bring(m_device, SessionStateAcquisition);
    Current()->signalSessionStateError(Current(), SessionErrorStopAcquisition);
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

TEST_F(Manager, ACameraLostWhileItStartsOrStopsIsClosedAfterTheMessages)
{
    Texts const lost{"Connection to the Camera was lost"}, notStarted{"Can not start the Acquisition", lost[0]};
    std::tuple<std::string, SessionState, Texts> const table[] = {
        {"AllocBufferQueue", SessionStateIdle, notStarted},   {"StartAcquisition", SessionStateIdle, notStarted},
        {"AcquisitionStart", SessionStateIdle, notStarted},   {"message", SessionStateIdle, notStarted},
        {"AcquisitionStop", SessionStateAcquisition, lost},   {"StopAcquisition", SessionStateAcquisition, lost},
        {"ReleaseBufferQueue", SessionStateAcquisition, lost}};
    for (auto const &[step, in, told] : table) {
        FakeDevice device;
        auto const lose = [&] {
            device.LoseConnection();
        };
        Bring(device, in);
        device.script.At(step, [&] {
            device.script.At(step, {});
            lose();
        });
        if (step == "message")
            m_onNextMessage = lose;
        bool const starts = in == SessionStateIdle;
        device.script.Fail(starts && !m_onNextMessage ? step
                           : starts                   ? "AcquisitionStart"
                                                      : "AcquisitionStop",
                           TOV_CAM_ERR_NO_DEVICE);
        Action(starts ? "Play" : "Stop")->trigger();
        ExpectClosed(device);
        EXPECT_EQ(Told(), told) << step;
    }
}

TEST_F(Manager, AnotherCameraReplacesARunningOneAndALateReportOfThatIsIgnored)
{
    Bring(m_device, SessionStateCapturing);
    m_device.LoseConnection(); // posted, not delivered
    QMetaObject::invokeMethod(&Gui(), [] { FAIL() << "posted for the camera before"; }, Qt::QueuedConnection);
    Bring(m_other, SessionStateAcquisition);
    EXPECT_EQ(m_device.ReleaseCount(), 1);
    EXPECT_EQ(m_device.stream.OutCount(), 0u);
    m_window->close();
    m_window.reset(); // with a camera that runs
    EXPECT_EQ(m_other.ReleaseCount(), 1);
    EXPECT_EQ(m_other.stream.OutCount(), 0u);
}

TEST_F(Manager, PanelsComeAndGoWithTheCameraAndKeepTheirPlaces)
{
    EXPECT_EQ(m_window->findChildren<QDockWidget *>().size(), 0);
    Bring(m_device, SessionStateIdle);
    EXPECT_EQ(m_window->dockWidgetArea(Find<QDockWidget>("CameraGenParamPanel")), Qt::LeftDockWidgetArea);
    EXPECT_EQ(m_window->dockWidgetArea(Find<QDockWidget>("StatisticsPanel")), Qt::BottomDockWidgetArea);
    Action("Statistics")->trigger();
    m_window->addDockWidget(Qt::RightDockWidgetArea, Find<QDockWidget>("StatisticsPanel"));
    QRect const place(200, 150, 420, 310);
    Find<QDockWidget>("CameraGenParamPanel")->setFloating(true);
    Find<QDockWidget>("CameraGenParamPanel")->setGeometry(place);
    Find<QTableView>("statisticsTable")->setColumnWidth(0, 234);
    Find<QLineEdit>("featureSearch")->setText(QStringLiteral("Gain"));

    // The camera goes and comes again, in this run and in the next, whether or not it was closed before the end.
    for (int round = 0; round < 3; ++round) {
        Gui().cameraDisconnect();
        EXPECT_EQ(m_window->findChildren<QDockWidget *>().size(), 0);
        EXPECT_FALSE(Action("GenICamTree")->isChecked());
        if (round > 0) {
            FakeDevice device;
            if (round == 2)
                Bring(device, SessionStateIdle);
            m_window->close();
            NewWindow();
        }
        Bring(m_device, SessionStateIdle);
        EXPECT_EQ(m_window->dockWidgetArea(Find<QDockWidget>("StatisticsPanel")), Qt::RightDockWidgetArea) << round;
        EXPECT_FALSE(Find<QDockWidget>("StatisticsPanel")->isVisible() || Action("Statistics")->isChecked()) << round;
        auto *const tree = Find<QDockWidget>("CameraGenParamPanel");
        EXPECT_TRUE(tree->isVisible() && tree->isFloating() && Action("GenICamTree")->isChecked()) << round;
        EXPECT_EQ(tree->geometry(), place) << round;
        EXPECT_EQ(Find<QTableView>("statisticsTable")->columnWidth(0), 234) << round;
        EXPECT_EQ(Find<QLineEdit>("featureSearch")->text(), QStringLiteral("Gain")) << round;
    }
}

TEST_F(Manager, TheCapturePanelBringsItsSettingsIntoTheirRanges)
{
    Bring(m_device, SessionStateIdle);
    TovComponent *const writer = Current()->GetImageWriter();
    writer->SetParamInt("FileFormat", 3);
    Gui().ClosePanels();
    ASSERT_TRUE(Gui().CreatePanels());
    EXPECT_EQ(IntOf(writer, "FileFormat"), 0); // the one that is offered
    EXPECT_EQ(Find<QComboBox>("cbFileFormat")->count(), 1);

    auto *const panel = Find<QDockWidget>("CapturePanel");
    QMetaObject::invokeMethod(panel, "GetFpsFromCamera"); // of a camera that tells 0
    EXPECT_DOUBLE_EQ(FloatOf(writer, "MovieFPS"), 0.1);

    QTemporaryDir const folder;
    for (bool const accepted : {true, false}) {
        ChooseFile([&] { QMetaObject::invokeMethod(panel, "FolderSelect"); }, accepted ? folder.path() : QString());
        EXPECT_EQ(ParamText(writer, "FilePath"), folder.path().toStdString()) << accepted;
    }
}

TEST_F(Manager, ConfigurationsAreSavedWhereTheOperatorSaid)
{
    std::string const filter = "|Velmor camera configuration files (*.tcfg)|";
    QTemporaryDir const folder;
    QString const first = folder.filePath(QStringLiteral("first.tcfg"));
    QString const second = folder.filePath(QStringLiteral("second"));
    QFile(first).open(QIODevice::WriteOnly);
    Bring(m_device, SessionStateIdle);
    m_device.script.TakeLog();
    EXPECT_EQ(ChooseFile("SaveConfiguration", {}), "Save camera configuration" + filter + "benchScripted_0042.tcfg");
    EXPECT_EQ(m_device.script.TakeLog(), "");
    ChooseFile("SaveConfiguration", second);
    Action("SaveConfiguration")->trigger(); // asks no more
    EXPECT_EQ(m_device.script.TakeLog(),
              QStringLiteral("SaveConfiguration %1; SaveConfiguration %1").arg(second).toStdString());
    EXPECT_EQ(Title(), QStringLiteral("TovScope -  bench [Scripted, SN:0042] { %1 }").arg(second).toStdString());
    EXPECT_EQ(ChooseFile("LoadConfiguration", first), std::string("Open camera configuration") + filter);
    EXPECT_EQ(m_device.script.TakeLog(), "LoadConfiguration " + first.toStdString());
    EXPECT_EQ(ChooseFile("SaveConfigurationAs", second), "Save camera configuration as..." + filter + "first.tcfg");
    EXPECT_EQ(m_device.script.TakeLog(), "SaveConfiguration " + second.toStdString());

    // A camera that goes while the question is open.
    QTimer::singleShot(0, [this] { Gui().cameraDisconnect(); });
    ChooseFile("SaveConfigurationAs", first);
    ExpectClosed(m_device);
}

TEST_F(Manager, DialogsTellCopyAndSaveTheReport)
{
    QTemporaryDir const folder;
    QString const path = folder.filePath(QStringLiteral("r.txt"));
    std::string const software = "Software information\nTovScope version:  1.3.0 (build 2230) \n";
    std::string const camera = "Device Information\nModel Name:        Scripted\n";
    bool loses = false;
    auto const look = [&](char const *action, std::string const &begin, std::string const &suggested) {
        auto const act = [&](QDialog *dialog) {
            auto const button = [&](char const *name) {
                return dialog->findChild<QPushButton *>(QString::fromLatin1(name));
            };
            if (loses) {
                m_device.LoseConnection();
                ExpectClosed(m_device);
            }
            QString const report = dialog->findChild<QTextBrowser *>()->toPlainText();
            EXPECT_EQ(report.toStdString().rfind(begin, 0), 0u) << report.toStdString();
            emit button("buttonCopy")->pressed();
            EXPECT_EQ(QGuiApplication::clipboard()->text(), report);
            QFile file(path);
            EXPECT_TRUE(file.open(QIODevice::WriteOnly));
            file.write(QByteArray(2000, '~'));
            file.close();
            EXPECT_EQ(ChooseFile([&] { emit button("buttonSave")->pressed(); }, path),
                      "Save camera info|Text file (*.txt)|" + suggested);
            EXPECT_TRUE(file.open(QIODevice::ReadOnly));
            QByteArray const content = file.readAll();
            EXPECT_TRUE(content.size() == 2000 && content.startsWith(report.toUtf8() + '~')) << "not truncated";
            emit button("buttonClose")->released();
            EXPECT_FALSE(dialog->isVisible());
        };
        During<QDialog>([=, this] { Action(action)->trigger(); }, act);
    };
    look("About", software, "");
    Bring(m_device, SessionStateIdle);
    look("About", software + "U3V driver version: 1.0\n" + camera, "benchScripted_0042");
    loses = true; // while its report is read
    look("CameraInformation", camera, "benchScripted_0042");
    EXPECT_EQ(Told(), Texts{"Connection to the Camera was lost"});
}

} // namespace
