// Actions that talk to an open camera which does not answer: what the window does meanwhile, and each thing that can
// come in between at each call that waits. The camera answers only after a timer of the window's thread has told it to.
#include "camerainfodlg.h"
#include "fakecamera.h"
#include "notices.h"
#include "waitingaction.h"
#include "window.h"

namespace {

using Texts = std::vector<std::string>;
using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

struct Deed
{
    char const *action;
    bool isPlaying; // before
    std::vector<char const *> steps;
    char const *what;
    SessionState after, afterGivingUp;
    NoticeTopic topic;
    char const *notice; // of a deed that was given up
};
constexpr auto Gone = SessionStateDisconnected, Idle = SessionStateIdle, Playing = SessionStateAcquisition;

Deed const Deeds[] = {
    {"Play",
     false,
     {"AllocBufferQueue", "TLParamsLocked", "StartAcquisition", "AcquisitionStart"},
     "Starting Scripted camera",
     Playing,
     Idle,
     NoticeTopic::Camera,
     ""},
    {"Stop",
     true,
     {"AcquisitionStop", "StopAcquisition", "TLParamsLocked", "ReleaseBufferQueue"},
     "Stopping Scripted camera",
     Idle,
     Idle,
     NoticeTopic::Camera,
     "Scripted camera was not waited for: it may not have stopped"},
    {"SaveConfiguration",
     true,
     {"SaveConfiguration"},
     "Saving the configuration of Scripted camera",
     Playing,
     Playing,
     NoticeTopic::Configuration,
     "bench.tcfg was not saved: it was given up"},
    {"LoadConfiguration",
     false,
     {"LoadConfiguration"},
     "Loading bench.tcfg into Scripted camera",
     Idle,
     Idle,
     NoticeTopic::Configuration,
     "bench.tcfg was given up while it was loaded: the camera may have a part of its settings"},
    {"CameraInformation",
     true,
     {"DeviceVersion"},
     "Reading what Scripted camera reports about itself",
     Playing,
     Playing,
     NoticeTopic::Camera,
     ""},
    {"Log",
     true,
     {"RegisterEvent"},
     "Switching the log's channels of Scripted camera",
     Playing,
     Playing,
     NoticeTopic::Camera,
     ""},
    {"Disconnect",
     true,
     {"AcquisitionStop", "StopAcquisition", "Release"},
     "Disconnecting Scripted camera",
     Gone,
     Gone,
     NoticeTopic::Camera,
     ""},
};

class Waiting : public WindowTest
{
protected:
    Waiting()
    {
        QObject::connect(&m_operator, &QTimer::timeout, [this] { Act(); });
        m_operator.start(2);
    }
    ~Waiting() override
    {
        m_operator.stop();
        m_window.reset();
        WaitingAction::s_times = {};
        std::printf("longest block of a window that waits: %ld ms\n", long{m_longest / 1ms});
    }
    // Stands for the operator, and for the watch on the event loop.
    void Act()
    {
        auto const now = Clock::now();
        if (std::exchange(m_wasWaiting, WaitingAction::IsWaiting()))
            m_longest = std::max(m_longest, now - m_last);
        m_last = now;
        QWidget *const modal = QApplication::activeModalWidget();
        if (m_meanwhile && m_waits && WaitingAction::IsWaiting() && (Dialog() || m_closed > 0)) {
            std::exchange(m_meanwhile, {})();
        } else if (auto *const files = qobject_cast<QFileDialog *>(modal)) {
            Choose(files, m_folder.filePath(QStringLiteral("bench.tcfg")));
        } else if (auto *const box = qobject_cast<QMessageBox *>(modal)) {
            m_told.push_back(box->text().toStdString());
            box->button(QMessageBox::Ok)->click();
        } else if (auto *const info = qobject_cast<CameraInfoDlgImpl *>(modal)) {
            ++m_reports;
            info->accept();
        }
    }
    // A new camera in a new window, in the state in which the deed begins.
    void Begin(Deed const &deed)
    {
        WaitingAction::s_times.quiet = Patience;
        m_window.reset();
        m_device = std::make_unique<FakeDevice>();
        QFile file(m_folder.filePath(QStringLiteral("bench.tcfg")));
        file.remove();
        if (deed.action == std::string("LoadConfiguration"))
            file.open(QIODevice::WriteOnly);
        NewWindow();
        m_closed = m_reports = 0;
        QObject::connect(m_window.get(), &TovScope::closed, [this] { ++m_closed; });
        Connect(m_device.get());
        Current()->SetParamBool("LogControl", true);
        if (deed.isPlaying)
            Action("Play")->trigger();
        NoticeBoard::Instance().Withdraw(deed.topic);
        m_device->script.TakeLog();
        WaitingAction::s_times = {0ms, 0ms, 0ms, Patience};
    }
    // The camera's answer at the step waits for Go, or for the end of the operator's patience.
    void Block(std::string const &step)
    {
        auto const wait = [this] {
            m_waits = true;
            for (auto const end = Clock::now() + Patience; !m_go && !m_device->IsGivenUp() && Clock::now() < end;)
                std::this_thread::yield();
            m_waits = false;
        };
        m_go = false;
        m_device->script.At(step, wait);
        m_device->params.onGet = [step, wait](std::string const &name) {
            if (name == step)
                wait();
        };
    }
    // Gives back the calls that the camera has seen.
    std::string Do(Deed const &deed, char const *step, std::function<void()> const &meanwhile)
    {
        if (step)
            Block(step);
        m_meanwhile = meanwhile;
        if (deed.action == std::string("Log"))
            Current()->SetParamBool("EnableLog", true);
        else
            Action(deed.action)->trigger();
        EXPECT_FALSE(m_meanwhile) << "it did not wait";
        m_meanwhile = {};
        EXPECT_EQ(Dialog(), nullptr);
        EXPECT_EQ(QApplication::overrideCursor(), nullptr);
        EXPECT_FALSE(m_device->IsGivenUp());
        m_go = true;
        return m_device->script.TakeLog();
    }
    void ForAll(std::function<void(Deed const &deed, char const *step)> const &test)
    {
        for (Deed const &deed : Deeds) {
            for (char const *const step : deed.steps) {
                SCOPED_TRACE(std::string(deed.action) + " at " + step);
                Begin(deed);
                test(deed, step);
                EXPECT_EQ(m_device->script.Violations(), "");
            }
        }
    }
    SessionState State()
    {
        return Current() ? Current()->GetState() : Gone;
    }
    QDialog *Dialog()
    {
        return Find<QDialog>("waitingDialog");
    }
    void PressEscape()
    {
        QKeyEvent event(QEvent::KeyPress, Qt::Key_Escape, Qt::NoModifier);
        QApplication::sendEvent(m_window.get(), &event);
    }

    QTemporaryDir const m_folder;
    std::unique_ptr<FakeDevice> m_device;
    std::atomic<bool> m_waits{false}, m_go{false};
    std::function<void()> m_meanwhile;
    Texts m_told;
    int m_closed = 0, m_reports = 0;

private:
    QTimer m_operator;
    Clock::time_point m_last = Clock::now();
    Clock::duration m_longest{0};
    bool m_wasWaiting = false;
};

TEST_F(Waiting, TheWindowLivesAndTakesNoOtherActionAndTheOrderIsThatWithoutAWait)
{
    ForAll([this](Deed const &deed, char const *step) {
        WaitingAction::s_times.quiet = Patience; // no event comes between
        std::string const order = Do(deed, nullptr, {});
        EXPECT_EQ(State(), deed.after);
        Begin(deed);
        SessionState const before = State();
        std::string const waited = Do(deed, step, [&] {
            EXPECT_EQ(Dialog()->findChild<QLabel *>(QStringLiteral("waitingWhat"))->text().toStdString(), deed.what);
            EXPECT_EQ(QApplication::overrideCursor()->shape(), Qt::BusyCursor);
            for (char const *const other : {"Play", "Stop", "Disconnect", "Record", "Snap", "Connect", "About",
                                            "LoadConfiguration", "CameraInformation", "TestBandwidth"})
                Action(other)->trigger();
            Gui().snapNextImage();
            Current() ? Current()->stopCapturingAndAcquisition() : void(); // as by a writer that is done
            bool passed = false;
            QTimer::singleShot(0, [&] { passed = true; });
            EXPECT_TRUE(Eventually([&] { return passed; }));
            EXPECT_EQ(QApplication::activeModalWidget(), nullptr);
            EXPECT_TRUE(!Current() || State() == before);
            m_go = true;
        });
        // The writer's report was taken once there was room for it.
        EXPECT_EQ(State(), deed.after == Playing ? Idle : deed.after);
        EXPECT_EQ(waited.substr(0, order.size()), order);
        EXPECT_TRUE(deed.after == Playing || waited == order) << waited;
        EXPECT_EQ(m_told, Texts());
    });
}

TEST_F(Waiting, ItCanBeGivenUpAndGoesOnAfterwards)
{
    ForAll([this](Deed const &deed, char const *step) {
        std::string const calls = Do(deed, step, [this] { PressEscape(); });
        EXPECT_EQ(State(), deed.afterGivingUp);
        EXPECT_EQ(m_told, Texts());
        EXPECT_EQ(m_reports, 0);
        EXPECT_EQ(NoticeOf(deed.topic), deed.notice);
        if (State() == Gone) {
            EXPECT_EQ(m_device->ReleaseCount(), 1);
            return;
        }
        // As if nothing had been.
        Action(deed.afterGivingUp == Idle ? "Play" : "Stop")->trigger();
        EXPECT_EQ(State(), deed.afterGivingUp == Idle ? Playing : Idle);
        Action("Disconnect")->trigger();
        EXPECT_EQ(m_device->ReleaseCount(), 1);
    });
}

TEST_F(Waiting, AWindowThatIsClosedGivesUpFirst)
{
    ForAll([this](Deed const &deed, char const *step) {
        Do(deed, step, [this] {
            m_window->close();
            m_window->close();
            EXPECT_EQ(m_closed, 0); // not over the head of what runs
        });
        EXPECT_TRUE(Eventually([this] { return m_closed == 1 && !m_window->isVisible(); }));
        EXPECT_EQ(Current(), nullptr);
        EXPECT_EQ(m_device->ReleaseCount(), 1);
        EXPECT_EQ(m_told, Texts());
    });
}

TEST_F(Waiting, ALossIsToldWhenTheActionIsOver)
{
    ForAll([this](Deed const &deed, char const *step) {
        bool const ends = deed.after == Gone;
        Do(deed, step, [&] {
            Session *const session = Current();
            m_device->LoseConnection();
            bool passed = false;
            QTimer::singleShot(0, [&] { passed = true; });
            EXPECT_TRUE(Eventually([&] { return passed; }));
            EXPECT_EQ(Current(), session);
            EXPECT_EQ(m_told, Texts());
            m_go = true;
        });
        EXPECT_TRUE(Eventually([&] { return !Current() && m_told.size() == (ends ? 0u : 1u); }));
        EXPECT_EQ(std::exchange(m_told, {}), ends ? Texts() : Texts{"Connection to the Camera was lost"});
        EXPECT_EQ(m_device->ReleaseCount(), 1);
    });
}

// The end of the program does not wait for a camera: nobody may be there to give up.
TEST_F(Waiting, TheClosingGivesUpByItself)
{
    for (char const *const step : {"AcquisitionStop", "Release"}) {
        for (bool const twice : {false, true}) {
            Begin(Deeds[1]);
            Block(step);
            m_meanwhile = [&] {
                EXPECT_EQ(Dialog(), nullptr);
                if (twice)
                    m_window->close();
            };
            m_window->close();
            EXPECT_FALSE(m_meanwhile) << "the window stood still";
            EXPECT_EQ(m_closed, 1);
            EXPECT_EQ(m_device->ReleaseCount(), 1);
            EXPECT_EQ(m_device->script.Violations(), "");
            QCoreApplication::processEvents();
            EXPECT_EQ(m_closed, 1);
        }
    }
}

} // namespace
