// Cameras that answer slowly, or not at all, while they are opened: what the window shows meanwhile, and each way to
// end it at each call that waits. The system and the opening are the test's own; the selector is the real one.
#include "fakecamera.h"
#include "notices.h"
#include "waitingaction.h"
#include "window.h"

#include "tovcameragui.h"

namespace {

using Texts = std::vector<std::string>;
using namespace std::chrono_literals;

struct SlowInfo : FakeDeviceInfo
{
    std::atomic<TovCam::OpenProgress *> progress{nullptr};
    FAKE_GIVES(void SetOpenProgress(TovCam::OpenProgress *one), void(progress = one));
};

// One camera on one interface. At a step, by its name, it waits until it is let go, or the opening is cancelled.
class SlowSystem final : public TovCam::System, public TovCam::ObjectList
{
public:
    SlowInfo info;
    FakeDevice *device = nullptr; // the next one; null cannot be opened
    std::string slow;             // the step; set while nothing is opened
    std::atomic<bool> waits{false}, go{false};
    std::function<void()> onOpen;

    void Step(std::string const &name)
    {
        if (name != slow)
            return;
        waits = true;
        auto const end = std::chrono::steady_clock::now() + Patience;
        while (!go && !(info.progress && info.progress.load()->cancel) && std::chrono::steady_clock::now() < end)
            std::this_thread::yield();
        waits = false;
    }
    TovCam::Device *Open()
    {
        if (onOpen)
            onOpen();
        Step("open");
        bool const cancelled = slow == "open" && info.progress && info.progress.load()->cancel;
        if (device)
            device->params.onGet = [this](std::string const &name) {
                Step(name);
            };
        return cancelled ? nullptr : device;
    }

    FAKE_GIVES(void Release(), void());
    FAKE_GIVES(TovCam::ObjectList *GetInterfaceList(std::uint32_t), this);
    FAKE_GIVES(TovCam::Interface *GetFirst(), &info);
    FAKE_GIVES(TovCam::Interface *GetNext(), nullptr);
    FAKE_GIVES(TovCam::Device *OpenDeviceFromConfiguration(char const *, std::int32_t *), Open());
    FAKE_GIVES(std::int32_t LoadTransportLayer(char const *), 0);
    FAKE_GIVES(std::int32_t UpdateDeviceList(), 0);
    FAKE_GIVES(TovCam::DeviceInfo *FindDeviceByAddress(char const *, std::int32_t *), nullptr);
    FAKE_GIVES(void SetOpenProgress(TovCam::OpenProgress *one), info.SetOpenProgress(one));
};

SlowSystem *s_system = nullptr;

} // namespace

TovCam::System *TovCam_GetSystem()
{
    return s_system;
}

TovCam::Device *TovCam_CreateDevice(TovCam::DeviceInfo *, std::uint32_t, std::int32_t *)
{
    return s_system->Open();
}

namespace {

class Connecting : public WindowTest
{
protected:
    Connecting()
    {
        s_system = &m_system;
        WaitingAction::s_times = {0ms, 0ms, 0ms, Patience};
        QObject::connect(&m_operator, &QTimer::timeout, [this] { Act(); });
        m_operator.start(2);
        NewWindow();
    }
    ~Connecting() override
    {
        m_window.reset();
        EXPECT_EQ(m_told, Texts());
        EXPECT_EQ(QApplication::overrideCursor(), nullptr);
        WaitingAction::s_times = {};
    }
    void NewWindow()
    {
        WindowTest::NewWindow();
        QObject::connect(m_window.get(), &TovScope::closed, [this] { ++m_closed; });
    }
    // Chooses the camera, presses Ok in message boxes, and once does `m_meanwhile` when the camera lets wait.
    void Act()
    {
        QWidget *const modal = QApplication::activeModalWidget();
        if (auto *const selector = qobject_cast<TovGui::TovCameraSelectorDialog *>(modal)) {
            for (QPushButton *const button : selector->findChildren<QPushButton *>())
                if (button->isDefault() && button->isEnabled())
                    return button->click();
        } else if (auto *const box = qobject_cast<QMessageBox *>(modal)) {
            m_told.push_back(box->text().toStdString());
            box->button(QMessageBox::Ok)->click();
        } else if (m_meanwhile && m_system.waits && WaitingAction::IsWaiting() && Dialog()) {
            std::exchange(m_meanwhile, {})();
        }
    }
    // Gives back what was told until the camera is connected, or is not.
    Texts Connect(FakeDevice &device, std::string const &slow, std::function<void()> const &meanwhile)
    {
        m_system.device = &device;
        m_system.slow = slow;
        m_system.go = false;
        m_meanwhile = meanwhile;
        Action("Connect")->trigger();
        EXPECT_FALSE(m_meanwhile) << "it did not wait for " << slow;
        m_meanwhile = {};
        EXPECT_EQ(Dialog(), nullptr);
        EXPECT_EQ(m_system.info.progress, nullptr);
        return std::exchange(m_told, {});
    }
    void Go()
    {
        m_system.go = true;
    }
    QDialog *Dialog()
    {
        return Find<QDialog>("waitingDialog");
    }
    std::string Text(char const *label)
    {
        return Dialog()->findChild<QLabel *>(QString::fromLatin1(label))->text().toStdString();
    }
    static void Press(QWidget *widget)
    {
        QPointF const at = widget->rect().center();
        for (QEvent::Type const type : {QEvent::MouseButtonPress, QEvent::MouseButtonRelease}) {
            QMouseEvent event(type, at, Qt::LeftButton, Qt::LeftButton, Qt::NoModifier);
            QApplication::sendEvent(widget, &event);
        }
    }
    static void PressEscape(QWidget *widget)
    {
        QKeyEvent event(QEvent::KeyPress, Qt::Key_Escape, Qt::NoModifier);
        QApplication::sendEvent(widget, &event);
    }

    SlowSystem m_system;
    FakeDevice m_device, m_other;
    std::function<void()> m_meanwhile;
    int m_closed = 0;

private:
    QTimer m_operator;
    Texts m_told;
};

char const *const Steps[] = {"open", "GevTimestampTickFrequency", "DeviceSerialNumber", "Height"};

TEST_F(Connecting, AQuickCameraComesAsIfNobodyWaited)
{
    WaitingAction::s_times.quiet = Patience;
    bool delivered = false;
    m_system.onOpen = [&] {
        QMetaObject::invokeMethod(qApp, [&] { delivered = true; }, Qt::QueuedConnection);
    };
    m_device.script.At("RegisterEvent", [&] { EXPECT_FALSE(delivered || Dialog()); });
    EXPECT_EQ(Connect(m_device, "", {}), Texts());
    EXPECT_FALSE(delivered);
    EXPECT_EQ(Current()->GetState(), static_cast<SessionState>(-1));
    ASSERT_TRUE(Reaches(SessionStateIdle));
}

TEST_F(Connecting, ASlowCameraIsShownAndConnected)
{
    for (char const *const step : Steps) {
        FakeDevice device;
        auto const look = [&] {
            EXPECT_EQ(Text("waitingWhat"), "Connecting to Scripted camera");
            EXPECT_EQ(Text("waitingLimit").find("Gives up after 60 s ("), 0u);
            EXPECT_EQ(QApplication::overrideCursor()->shape(), Qt::BusyCursor);
            if (step == Steps[0]) {
                TovCam::OpenProgress *const progress = m_system.info.progress;
                progress->total = 4000;
                progress->bytes = 1025;
                progress->stage = TovCam::OpenProgress::Stage::Description;
                EXPECT_TRUE(
                    Eventually([&] { return Text("waitingStep") == "Downloading its description: 2 of 4 KB"; }));
                EXPECT_EQ(Dialog()->findChild<QProgressBar *>()->value(), 256);
            }
            Go();
        };
        EXPECT_EQ(Connect(device, step, look), Texts());
        ASSERT_TRUE(Reaches(SessionStateIdle)) << step;
        EXPECT_EQ(Title(), "TovScope -  bench [Scripted, SN:0042]");
        Action("Disconnect")->trigger();
        EXPECT_EQ(device.ReleaseCount(), 1);
    }
}

TEST_F(Connecting, ItCanBeGivenUpWhereverItWaits)
{
    auto const close = [this] {
        m_window->close();
        m_window->close();
        EXPECT_EQ(m_closed, 0); // not over the head of what runs
    };
    std::pair<std::function<void()>, char const *> const ways[] = {
        {[this] { Press(Dialog()->findChild<QPushButton *>()); }, "button"},
        {[this] { PressEscape(m_window.get()); }, "escape"},
        {[this] { Dialog()->close(); }, "dialog's"},
        {[this] { PressEscape(Dialog()), PressEscape(m_window.get()); }, "twice"},
        {close, "closed"},
    };
    for (char const *const step : Steps) {
        for (auto const &[give, name] : ways) {
            FakeDevice device;
            EXPECT_EQ(Connect(device, step, give), Texts()) << step << name;
            EXPECT_EQ(Current(), nullptr) << step << name;
            EXPECT_EQ(device.ReleaseCount(), step == Steps[0] ? 0 : 1) << step << name;
            EXPECT_EQ(device.script.Violations(), "");
            EXPECT_EQ(Title(), "TovScope - Camera is not connected");
            if (name != std::string("closed"))
                continue;
            EXPECT_TRUE(Eventually([&] { return m_closed == 1 && !m_window->isVisible(); })) << step;
            m_closed = 0;
            NewWindow();
        }
    }
    // As if nothing had been.
    EXPECT_EQ(Connect(m_device, "open", [this] { Go(); }), Texts());
    EXPECT_TRUE(Reaches(SessionStateIdle));
}

TEST_F(Connecting, WhatTakesTooLongOrFailsIsTold)
{
    std::string const message = "Camera cannot be instantinated";
    for (char const *const step : Steps) {
        FakeDevice device;
        WaitingAction::s_times.limit = 0ms;
        WaitingAction::s_times.quiet = 20ms; // the others come first
        EXPECT_EQ(Connect(device, step, {}), Texts{message}) << step;
        EXPECT_EQ(Current(), nullptr);
        EXPECT_EQ(device.ReleaseCount(), step == Steps[0] ? 0 : 1) << step;
    }
    EXPECT_EQ(NoticeBoard::Instance().Notices().front().text.toStdString(),
              "Scripted camera was given up: it took more than 60 s to open");
    WaitingAction::s_times.limit = Patience;
    FakeDevice unreadable;
    unreadable.SetParametersReadable(false);
    m_system.info.failure = {TovCam::OpenRefusal::Description, false, {}, "it is empty"};
    EXPECT_EQ(Connect(unreadable, "open", [this] { Go(); }),
              Texts{"Cannot get camera parameters\nError code: -40201 (GenICam: Tree error)"});
    EXPECT_EQ(unreadable.ReleaseCount(), 1);
    EXPECT_EQ(NoticeOf(NoticeTopic::Camera), "Scripted camera answers, but its description is damaged: it is empty");
}

TEST_F(Connecting, NothingElseIsBegunMeanwhile)
{
    ASSERT_EQ(Connect(m_device, "", {}), Texts());
    ASSERT_TRUE(Reaches(SessionStateIdle));
    Action("Play")->trigger();
    ASSERT_TRUE(Reaches(SessionStateAcquisition));
    Session *const session = Current();
    QWidget *button = nullptr;
    for (QToolBar *const bar : m_window->findChildren<QToolBar *>())
        button = button ? button : bar->widgetForAction(Action("Stop"));
    ASSERT_TRUE(button);
    for (bool const lost : {false, true}) {
        auto const meddle = [&] {
            for (char const *const name : {"Connect", "LoadConfiguration", "SaveConfiguration", "Stop", "Disconnect",
                                           "Record", "Snap", "About", "CameraInformation", "TestBandwidth"})
                Action(name)->trigger();
            Press(button);
            if (lost)
                m_device.LoseConnection();
            bool passed = false;
            QTimer::singleShot(0, [&] { passed = true; });
            EXPECT_TRUE(Eventually([&] { return passed; }));
            EXPECT_EQ(QApplication::activeModalWidget(), nullptr);
            EXPECT_EQ(session->GetState(), SessionStateAcquisition);
            PressEscape(m_window.get());
        };
        EXPECT_EQ(Connect(m_other, "open", meddle), Texts());
        ASSERT_EQ(Current(), session); // the one in use stays
    }
    // The loss is told once there is room for it.
    EXPECT_TRUE(Eventually([&] { return !Current(); }));
    EXPECT_EQ(Connect(m_other, "open", [this] { Go(); }), Texts{"Connection to the Camera was lost"});
    ASSERT_TRUE(Reaches(SessionStateIdle));
    // The camera in use is lost, and another takes its place.
    FakeDevice third;
    EXPECT_EQ(Connect(third, "open",
                      [&] {
                          m_other.LoseConnection();
                          Go();
                      }),
              Texts());
    ASSERT_TRUE(Reaches(SessionStateIdle));
    // The new one, before it is there.
    FakeDevice fourth;
    EXPECT_EQ(Connect(fourth, "Height",
                      [&] {
                          fourth.LoseConnection();
                          Go();
                      }),
              Texts());
    EXPECT_TRUE(Eventually([&] { return !Current(); }));
    EXPECT_EQ(Connect(m_device, "open", [this] { PressEscape(Dialog()); }), Texts{"Connection to the Camera was lost"});
}

TEST_F(Connecting, AConfigurationsCameraIsWaitedForToo)
{
    QTemporaryDir const folder;
    QString const path = folder.filePath(QStringLiteral("bench.tcfg"));
    QFile(path).open(QIODevice::WriteOnly);
    for (bool const cancelled : {true, false}) {
        m_system.device = &m_device;
        m_system.slow = "open";
        m_meanwhile = [&] {
            EXPECT_EQ(Text("waitingWhat"), "Opening the camera of bench.tcfg");
            cancelled ? PressEscape(Dialog()) : Go();
        };
        During<QFileDialog>([this] { Action("LoadConfiguration")->trigger(); },
                            [&](QFileDialog *dialog) { Choose(dialog, path); });
        EXPECT_EQ(Current() == nullptr, cancelled);
    }
    ASSERT_TRUE(Reaches(SessionStateIdle));
}

} // namespace
