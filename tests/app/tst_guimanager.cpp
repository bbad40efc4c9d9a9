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
#include <QClipboard>
#include <QComboBox>
#include <QDockWidget>
#include <QFileDialog>
#include <QLineEdit>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QSettings>
#include <QTableView>
#include <QTemporaryDir>
#include <QTest>
#include <QTextBrowser>
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
        if (qobject_cast<QFileDialog *>(box->parent()))
            return box->button(QMessageBox::Yes)->click(); // a file that is there already may be overwritten
        EXPECT_EQ(box->windowTitle(), QCoreApplication::applicationName());
        EXPECT_EQ(box->icon(), QMessageBox::Critical);
        m_told.push_back(box->text().toStdString());
        box->button(QMessageBox::Ok)->click();
    }
    // While `call` runs, one dialog opens and `act` answers it.
    template<typename Dialog>
    void During(std::function<void()> const &call, std::function<void(Dialog *)> const &act)
    {
        QTimer answer;
        QObject::connect(&answer, &QTimer::timeout, [&] {
            if (auto *const dialog = qobject_cast<Dialog *>(QApplication::activeModalWidget())) {
                answer.stop();
                act(dialog);
            }
        });
        answer.start(5);
        call();
        EXPECT_FALSE(answer.isActive()) << "no dialog";
    }
    // Answers the file dialog that opens in the course of the call, or cancels it where there is no path. Gives its
    // title, filter and suggestion.
    std::string ChooseFile(std::function<void()> const &call, QString const &path)
    {
        std::string asked;
        During<QFileDialog>(call, [&](QFileDialog *dialog) {
            auto *const name = dialog->findChild<QLineEdit *>(QStringLiteral("fileNameEdit"));
            asked =
                (dialog->windowTitle() + u'|' + dialog->nameFilters().join(u',') + u'|' + name->text()).toStdString();
            name->setText(path);
            QMetaObject::invokeMethod(dialog, path.isEmpty() ? "reject" : "accept");
        });
        return asked;
    }
    std::string ChooseFile(char const *action, QString const &path)
    {
        return ChooseFile([=, this] { Action(action)->trigger(); }, path);
    }
    template<typename W>
    W *Find(char const *name)
    {
        return m_window->findChild<W *>(QString::fromLatin1(name));
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
    for (SessionState const state : {SessionStateCapturing, SessionStateAcquisition, SessionStateCapturing}) {
        Action("Record")->trigger();
        ASSERT_TRUE(Reaches(state));
    }
    EXPECT_EQ(Enabled(), "SaveConfiguration Connect Stop Record ZoomIn Settings ");
    EXPECT_FALSE(Action("Record")->isChecked());
    EXPECT_EQ(Title(), "TovScope -  bench [Scripted, SN:0042]");

    // From capturing the first press stops the recording, the second the camera.
    Action("Stop")->trigger();
    ASSERT_TRUE(Reaches(SessionStateAcquisition));
    QTemporaryDir const folder;
    Current()->GetImageWriter()->SetParamString("FilePath", folder.path().toUtf8().constData());
    Action("Snap")->trigger();
    ASSERT_TRUE(Reaches(SessionStateCapturing));
    ASSERT_TRUE(m_device.stream.Push({42, 1}));
    ASSERT_TRUE(Reaches(SessionStateAcquisition));
    EXPECT_TRUE(QFile::exists(folder.filePath(QStringLiteral("image_00000042.raw"))));
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

TEST_F(Manager, ACameraLostWhileItStopsIsClosed)
{
    for (char const *step : {"AcquisitionStop", "StopAcquisition", "ReleaseBufferQueue"}) {
        FakeDevice device;
        Bring(device, SessionStateAcquisition);
        device.script.At(step, [&] {
            device.script.At(step, {});
            device.script.Fail("AcquisitionStop", TOV_CAM_ERR_NO_DEVICE);
            device.LoseConnection();
        });
        Action("Stop")->trigger();
        ExpectClosed(device);
        EXPECT_EQ(Told(), Texts{"Connection to the Camera was lost"}) << step;
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

TEST_F(Manager, PanelsComeAndGoWithTheCameraAndKeepTheirPlaces)
{
    m_window->show();
    EXPECT_EQ(m_window->findChildren<QDockWidget *>().size(), 0);
    Bring(m_device, SessionStateIdle);
    EXPECT_EQ(m_window->dockWidgetArea(Find<QDockWidget>("CameraGenParamPanel")), Qt::LeftDockWidgetArea);
    EXPECT_EQ(m_window->dockWidgetArea(Find<QDockWidget>("StatisticsPanel")), Qt::BottomDockWidgetArea);
    Action("Statistics")->trigger();
    m_window->addDockWidget(Qt::RightDockWidgetArea, Find<QDockWidget>("StatisticsPanel"));
    QRect const place(200, 150, 420, 310);
    Find<QDockWidget>("CameraGenParamPanel")->setFloating(true);
    Find<QDockWidget>("CameraGenParamPanel")->setGeometry(place);
    auto *const table = Find<QTableView>("statisticsTable");
    table->setColumnWidth(0, 234);

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
            m_window = std::make_unique<TovScope>(nullptr, false, false);
            m_window->show();
        }
        Bring(m_device, SessionStateIdle);
        EXPECT_EQ(m_window->dockWidgetArea(Find<QDockWidget>("StatisticsPanel")), Qt::RightDockWidgetArea) << round;
        EXPECT_FALSE(Find<QDockWidget>("StatisticsPanel")->isVisible() || Action("Statistics")->isChecked()) << round;
        auto *const tree = Find<QDockWidget>("CameraGenParamPanel");
        EXPECT_TRUE(tree->isVisible() && tree->isFloating() && Action("GenICamTree")->isChecked()) << round;
        EXPECT_EQ(tree->geometry(), place) << round;
        EXPECT_EQ(Find<QTableView>("statisticsTable")->columnWidth(0), 234) << round;
    }
}

TEST_F(Manager, TheCapturePanelOffersWhatItsFormatHas)
{
    m_window->show();
    Bring(m_device, SessionStateIdle);
    auto const format = [this] {
        long value = -1;
        Current()->GetImageWriter()->GetParamInt("FileFormat", &value);
        return value;
    };
    Current()->GetImageWriter()->SetParamInt("FileFormat", 3);
    Gui().ClosePanels();
    ASSERT_TRUE(Gui().CreatePanels());
    EXPECT_EQ(format(), 0); // the one that is offered
    auto *const panel = Find<QDockWidget>("CapturePanel");
    auto *const formats = Find<QComboBox>("cbFileFormat");
    EXPECT_EQ(formats->count(), 1);

    struct
    {
        int format;
        char const *shown;
        char const *reset;
    } const cases[] = {{0, "imageFileNameWidget ", "edFileName=image_${image.id}"},
                       {3, "imageFileNameWidget labelJpgQual edJpgQuality ", "edFileName=image_${image.id}"},
                       {5, "imageFileNameWidget chNormalizedTif ", "edFileName=image_${image.id}"},
                       {6,
                        "movieFileNameWidget labelFPS edFPS btnGetFpsFromCamera labelCompressor cbCompressor "
                        "btnCompressorOptions ",
                        "edMovieFileName=movie"},
                       {7, "movieFileNameWidget ", "edMovieFileName=movie"}};
    for (auto const &c : cases) {
        formats->addItem(QString::number(c.format), c.format);
        QMetaObject::invokeMethod(panel, "FileFormatChanged", Q_ARG(int, formats->count() - 1));
        EXPECT_EQ(format(), std::min(c.format, 6));
        std::string shown;
        for (char const *const name :
             {"imageFileNameWidget", "movieFileNameWidget", "chNormalizedTif", "labelJpgQual", "edJpgQuality",
              "labelFPS", "edFPS", "btnGetFpsFromCamera", "labelCompressor", "cbCompressor", "btnCompressorOptions"}) {
            if (!Find<QWidget>(name)->isHidden())
                shown += std::string(name) + ' ';
        }
        EXPECT_EQ(shown, c.shown) << c.format;
        QAction reset(QStringLiteral("Reset"));
        QMetaObject::invokeMethod(panel, "OnNameTemplatesMenu", Q_ARG(QAction *, &reset));
        std::string const target = std::string(c.reset).substr(0, std::string(c.reset).find('='));
        EXPECT_EQ(target + '=' + Find<QLineEdit>(target.c_str())->text().toStdString(), c.reset) << c.format;
    }

    QMetaObject::invokeMethod(panel, "GetFpsFromCamera"); // of a camera that tells 0
    double fps = 0;
    Current()->GetImageWriter()->GetParamFloat("MovieFPS", &fps);
    EXPECT_DOUBLE_EQ(fps, 0.1);

    QTemporaryDir const folder;
    for (bool const accepted : {true, false}) {
        ChooseFile([&] { QMetaObject::invokeMethod(panel, "FolderSelect"); }, accepted ? folder.path() : QString());
        char path[1000] = "";
        unsigned int size = sizeof path;
        Current()->GetImageWriter()->GetParamString("FilePath", path, &size);
        EXPECT_EQ(QString::fromUtf8(path), folder.path()) << accepted;
    }
}

TEST_F(Manager, StatisticsFollowTheCamera)
{
    Bring(m_device, SessionStateAcquisition);
    auto *const table = Find<QTableView>("statisticsTable");
    int refreshes = 0;
    QObject::connect(table->model(), &QAbstractItemModel::dataChanged, [&] { ++refreshes; });
    for (std::uint64_t id = 1; id <= 9; ++id)
        EXPECT_TRUE(m_device.stream.Push({id, id * 40000}));
    EXPECT_TRUE(QTest::qWaitFor([&] { return refreshes > 0; }));
    std::string text;
    for (int row = 0; row < table->model()->rowCount(); ++row)
        text += table->model()->index(row, 0).data().toString().toStdString() + "=" +
                table->model()->index(row, 1).data().toString().toStdString() + "; ";
    EXPECT_EQ(text, "Frames acquired=9; Timestamp [ns]=360000; Current BlockID=9; Frames dropped=0; FPS=28.12; "
                    "Thoughput [MB/s]=0.00; Frames incompleted=0; ");
    EXPECT_LE(refreshes, table->model()->rowCount());
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
