// Waiting for a lost camera in the real window. What is lost is a scripted camera that calls itself as a simulated one
// does; so that one is what comes back, as soon as the test, which has it open like another program, lets it go.
#include "losttest.h"

#include "fakecamera.h"
#include "fakehost.h"
#include "notices.h"
#include "reconnect.h"
#include "simcamera.h"
#include "waitingaction.h"

#include "tovcameragui.h"

namespace {

using namespace std::chrono_literals;

class LostCamera : public LostTest
{
protected:
    LostCamera()
    {
        m_attended = true;
    }
    ~LostCamera() override
    {
        m_window.reset();
        Return();
        Reconnect::s_readingLimit = 10s;
        WaitingAction::s_times = {};
    }
    // A new camera, which is open, while another program has the one that will come back.
    void Begin()
    {
        if (!m_window->isVisible())
            NewWindow();
        Gui().cameraDisconnect();
        NoticeBoard::Instance().Withdraw(NoticeTopic::Camera);
        if (!m_other)
            m_other = TovCam_CreateDevice(m_info, 2, nullptr);
        ASSERT_TRUE(m_other);
        m_camera = std::make_unique<FakeDevice>();
        m_camera->info.vendor = m_info->GetVendorName();
        m_camera->info.model = m_info->GetModelName();
        m_camera->info.serial = m_info->GetSerialNumber();
    }
    void Lose()
    {
        m_camera->LoseConnection();
        EXPECT_TRUE(Eventually([this] { return !Current(); }));
    }
    void Return()
    {
        if (TovCam::Device *const other = std::exchange(m_other, nullptr))
            other->Release();
    }
    // The camera was free for long enough to be found.
    bool StaysAway()
    {
        Return();
        LookTwice(CameraLookout::Camera(m_info), true);
        return !Current();
    }

    TovCam::DeviceInfo *const m_info = FindSimulated(m_system, "VG-1280C");
    TovCam::Device *m_other = nullptr;
    std::unique_ptr<FakeDevice> m_camera;
    QString const m_waiting = QStringLiteral("Waiting for Scripted camera...");
};

TEST_F(LostCamera, WaitingEndsByWhateverTheOperatorBegins)
{
    struct
    {
        char const *way;
        std::function<void()> end;
    } const ways[] = {
        {"Connect",
         [this] {
             During<TovGui::TovCameraSelectorDialog>([this] { Action("Connect")->trigger(); },
                                                     [](auto *dialog) { dialog->reject(); });
         }},
        {"Load configuration",
         [this] {
             During<QFileDialog>([this] { Action("LoadConfiguration")->trigger(); },
                                 [](QFileDialog *dialog) { Choose(dialog, {}); });
         }},
        {"Disconnect",
         [this] {
             Action("Disconnect")->trigger();
         }},
        {"closing",
         [this] {
             m_window->close();
         }},
        {"nothing", {}},
    };
    for (auto const &[way, end] : ways) {
        SCOPED_TRACE(way);
        Begin();
        Connect(m_camera.get());
        Lose();
        EXPECT_TRUE(
            Eventually([this] { return IsTold(m_waiting + QStringLiteral(" It is in use by another program")); }));
        EXPECT_TRUE(Action("Disconnect")->isEnabled());
        if (end) {
            end();
            EXPECT_FALSE(IsTold(m_waiting) || Action("Disconnect")->isEnabled());
            EXPECT_TRUE(StaysAway());
        } else {
            Return();
            EXPECT_TRUE(Reaches(SessionStateIdle));
            EXPECT_EQ(Current()->GetDevice()->GetDeviceInfo(), m_info);
            EXPECT_TRUE(IsTold(QStringLiteral("Scripted camera is back")));
        }
    }
}

TEST_F(LostCamera, WaitingIsNotEvenBegunWhereItIsNotWantedOrCannotBe)
{
    FakeScript script;
    std::unique_ptr<FakePlugin> plugin;
    struct
    {
        char const *why;
        std::function<void()> prepare;
        bool isTold; // why
    } const cases[] = {
        {"without a serial number", [this] { m_camera->info.serial = ""; }, true},
        {"beside a plug-in", [&] { plugin = std::make_unique<FakePlugin>(script); }, false},
        {"turned off",
         [&] {
             plugin.reset();
             During<TovGui::TovCameraSelectorDialog>([this] { Action("Connect")->trigger(); },
                                                     [](auto *dialog) {
                                                         auto *const box = dialog->template findChild<QCheckBox *>();
                                                         EXPECT_TRUE(box->isChecked());
                                                         box->click();
                                                         dialog->reject();
                                                     });
         },
         false},
    };
    for (auto const &[why, prepare, isTold] : cases) {
        SCOPED_TRACE(why);
        Begin();
        prepare();
        Connect(m_camera.get());
        Lose();
        EXPECT_FALSE(IsTold(m_waiting) || Action("Disconnect")->isEnabled());
        EXPECT_EQ(IsTold(QStringLiteral("Scripted camera is not waited for")), isTold);
        EXPECT_TRUE(StaysAway());
    }
}

// Between the session's subscription and the window's connection to it.
TEST_F(LostCamera, ALossIsNoticedHoweverEarlyItComes)
{
    Begin();
    int subscriptions = 0;
    m_camera->script.At("RegisterEvent", [&] {
        if (++subscriptions == 2)
            m_camera->LoseConnection();
    });
    EXPECT_TRUE(Gui().CreateSession(m_camera.get()) && Gui().CreatePanels());
    EXPECT_TRUE(Eventually([this] { return !Current(); }));
    Return();
    EXPECT_TRUE(Reaches(SessionStateIdle));
}

TEST_F(LostCamera, SettingsThatItRefusesAreListedOnce)
{
    Begin();
    QTemporaryDir const folder;
    QString const name = folder.filePath(QStringLiteral("camera.tcfg"));
    ASSERT_EQ(m_other->SaveConfiguration(QFile::encodeName(name).constData()), 0);
    QFile file(name);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    QString text = QString::fromUtf8(file.readAll());
    text.replace(QRegularExpression(QStringLiteral("\nHeight=\\d+")), QStringLiteral("\nHeight=7654321"));
    text.replace(QRegularExpression(QStringLiteral("\nExposureTime=[\\d.]+")), QStringLiteral("\nExposureTime=1234"));
    m_camera->script.At("SaveConfiguration", [&] {
        QString const call = QString::fromStdString(m_camera->script.TakeLog());
        QFile written(call.mid(call.lastIndexOf(QLatin1Char(' ')) + 1));
        written.open(QIODevice::WriteOnly);
        written.write(text.toUtf8());
    });
    Connect(m_camera.get());
    Action("Play")->trigger();
    ASSERT_TRUE(Reaches(SessionStateAcquisition));
    Lose();
    Return();
    for (bool const isFirst : {true, false}) {
        ASSERT_TRUE(Reaches(SessionStateAcquisition));
        std::string const told = NoticeOf(NoticeTopic::Configuration);
        EXPECT_EQ(told.starts_with("The configuration of Scripted camera: the camera refused Height"), isFirst) << told;
        EXPECT_EQ(Nodes()->GetFloatValue("ExposureTime", nullptr), 1234.0);
        if (!isFirst)
            break;
        // With the settings that it has taken.
        Action("Stop")->trigger();
        ASSERT_TRUE(Reaches(SessionStateIdle));
        Action("Play")->trigger();
        ASSERT_TRUE(Reaches(SessionStateAcquisition));
        QPointer<Session> const session(Current());
        Nodes()->ExecuteCommand("SimLoseCamera");
        ASSERT_TRUE(Eventually([&] { return Current() && !session; }));
    }
}

TEST_F(LostCamera, TheStartWaitsForTheSettingsButNotForGood)
{
    auto const block = [this] {
        for (auto const end = std::chrono::steady_clock::now() + Patience;
             !m_camera->IsGivenUp() && std::chrono::steady_clock::now() < end;)
            std::this_thread::sleep_for(1ms);
    };
    struct
    {
        char const *what;
        std::chrono::milliseconds limit;
        std::function<void()> reading; // on another thread
        std::int32_t status;
        bool isCancelled, starts, isTold;
    } const cases[] = {
        {"it fails", Patience, {}, TOV_CAM_ERR_UNKNOWN, false, true, true},
        {"it takes too long", 50ms, block, 0, false, true, true},
        {"it is given up", Patience, block, 0, true, false, false},
        {"the camera is lost", Patience,
         [this] {
             m_camera->LoseConnection();
             EXPECT_TRUE(Eventually([this] { return IsTold(m_waiting); }));
         },
         TOV_CAM_ERR_NO_DEVICE, false, false, false},
    };
    QTimer cancel;
    QObject::connect(&cancel, &QTimer::timeout, [this] {
        auto *const dialog = Find<QDialog>("waitingDialog");
        if (!dialog)
            return;
        EXPECT_EQ(dialog->findChild<QLabel *>(QStringLiteral("waitingWhat"))->text(),
                  QStringLiteral("Reading the settings of Scripted camera, which it gets back if it is lost"));
        QKeyEvent event(QEvent::KeyPress, Qt::Key_Escape, Qt::NoModifier);
        QApplication::sendEvent(m_window.get(), &event);
    });
    for (auto const &[what, limit, reading, status, isCancelled, starts, isTold] : cases) {
        SCOPED_TRACE(what);
        Begin();
        Connect(m_camera.get());
        m_camera->script.At("SaveConfiguration", reading);
        m_camera->script.Fail("SaveConfiguration", status);
        m_camera->script.TakeLog();
        Reconnect::s_readingLimit = limit;
        WaitingAction::s_times = {0ms, 0ms, 0ms, Patience};
        if (isCancelled)
            cancel.start(2);
        Action("Play")->trigger();
        cancel.stop();
        WaitingAction::s_times = {};
        EXPECT_EQ(m_camera->script.TakeLog().find("StartAcquisition") != std::string::npos, starts);
        EXPECT_EQ(IsTold(QStringLiteral("The settings of Scripted camera could not be read")), isTold);
        EXPECT_EQ(Current() && Current()->GetState() == SessionStateAcquisition, starts);
        if (!starts)
            continue;
        Action("Stop")->trigger();
        EXPECT_TRUE(Reaches(SessionStateIdle));
        Action("Play")->trigger();
        EXPECT_EQ(m_camera->script.TakeLog().find("SaveConfiguration") != std::string::npos, limit == Patience);
    }
    // Nothing ran, so nothing goes on.
    EXPECT_TRUE(Eventually([this] { return !Current(); }));
    Return();
    EXPECT_TRUE(Reaches(SessionStateIdle));
}

} // namespace
