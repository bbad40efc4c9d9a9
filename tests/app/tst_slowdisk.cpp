// The end of a recording on a disk that does not answer: what the window does meanwhile, and that nothing is done in
// another order. The disk answers only after a timer of the window's thread has told it to.
#include "fakecamera.h"
#include "fakeserializer.h"
#include "imagewriter.h"
#include "waitingaction.h"
#include "window.h"

namespace {

using namespace std::chrono_literals;

class SlowDisk : public WindowTest
{
protected:
    SlowDisk()
    {
        QObject::connect(&m_operator, &QTimer::timeout, [this] {
            if (m_meanwhile && m_hangs && WaitingAction::IsWaiting() && Dialog())
                std::exchange(m_meanwhile, {})();
        });
        m_operator.start(2);
    }
    ~SlowDisk() override
    {
        m_hangs = false;
        m_window.reset();
        m_disk.Reset();
        WaitingAction::s_times = {};
    }
    // A new window that has recorded a frame, but for a disk that hangs in it.
    void Record(bool hangsInFrame)
    {
        m_hangs = false;
        m_window.reset();
        m_device = std::make_unique<FakeDevice>();
        m_disk.Reset();
        NewWindow();
        m_closed = 0;
        QObject::connect(m_window.get(), &TovScope::closed, [this] { ++m_closed; });
        Connect(m_device.get());
        WaitingAction::s_times = {0ms, 0ms, 0ms, Patience};
        Action("Play")->trigger();
        Action("Record")->trigger();
        ASSERT_TRUE(Reaches(SessionStateCapturing));
        if (hangsInFrame)
            Hang(&FakeSerializing::onWrite, [this](std::size_t) { return Answer(); });
        ASSERT_TRUE(m_device->stream.Push({1, 1000}));
        ASSERT_TRUE(Eventually([&] { return hangsInFrame ? m_inCall.load() : m_disk.Writes().size() == 1; }));
        if (!hangsInFrame)
            Hang(&FakeSerializing::onStop, [this] { return Answer(); });
        m_device->script.TakeLog();
    }
    template<typename T>
    void Hang(T FakeSerializing::*where, std::type_identity_t<T> call)
    {
        m_inCall = false;
        m_hangs = true;
        m_disk.Set(where, call);
    }
    std::int32_t Answer()
    {
        m_inCall = true;
        for (auto const end = std::chrono::steady_clock::now() + Patience;
             m_hangs && std::chrono::steady_clock::now() < end;)
            std::this_thread::yield();
        return 0;
    }
    QDialog *Dialog()
    {
        return Find<QDialog>("waitingDialog");
    }
    RecordingLedger Ledger()
    {
        return static_cast<ImageWriter *>(Current()->GetImageWriter())->GetLedger();
    }

    FakeSerializerScript &m_disk = FakeSerializerScript::Get();
    std::unique_ptr<FakeDevice> m_device;
    std::atomic<bool> m_hangs{false}, m_inCall{false};
    std::function<void()> m_meanwhile;
    int m_closed = 0;

private:
    QTimer m_operator;
};

TEST_F(SlowDisk, TheWindowLivesUntilTheFilesAreClosed)
{
    constexpr char StopLog[] = "Execute AcquisitionStop; StopAcquisition 1; Set TLParamsLocked 0; ReleaseBufferQueue";
    for (char const *const action : {"Record", "Stop", "Disconnect"}) {
        for (bool const hangsInFrame : {false, true}) {
            SCOPED_TRACE(std::string(action) + (hangsInFrame ? " in a frame" : " at the stop"));
            bool const ends = action == std::string("Disconnect");
            Record(hangsInFrame);
            m_meanwhile = [&] {
                EXPECT_EQ(Find<QLabel>("waitingWhat")->text().toStdString(),
                          (ends ? "Disconnecting" : "Ending the recording of") + std::string(" Scripted camera"));
                QKeyEvent escape(QEvent::KeyPress, Qt::Key_Escape, Qt::NoModifier);
                QApplication::sendEvent(m_window.get(), &escape);
                for (char const *const other : {"Play", "Stop", "Record", "Snap", "Disconnect"})
                    Action(other)->trigger();
                bool passed = false;
                QTimer::singleShot(0, [&] { passed = true; });
                EXPECT_TRUE(Eventually([&] { return passed; }));
                // The camera is not stopped before the files are closed, and the disk is not given up.
                EXPECT_EQ(m_device->script.TakeLog(), "");
                EXPECT_EQ(Current()->GetState(), SessionStateCapturing);
                EXPECT_TRUE(Find<QLabel>("waitingStep")->text().startsWith(QStringLiteral("Waiting for the disk")));
                m_hangs = false;
            };
            Action(action)->trigger();
            EXPECT_FALSE(m_meanwhile) << "the window stood still";
            EXPECT_EQ(Dialog(), nullptr);
            EXPECT_EQ(m_disk.Writes().size(), 1u);
            EXPECT_EQ(m_disk.TakeLog().substr(0, 6), "Series");
            std::string const log = m_device->script.TakeLog();
            if (ends) {
                EXPECT_EQ(Current(), nullptr);
                EXPECT_EQ(log.find(StopLog), 0u) << log;
                continue;
            }
            EXPECT_EQ(Current()->GetState(), SessionStateAcquisition);
            EXPECT_EQ(Ledger().saved, 1);
            EXPECT_TRUE(Ledger().AddsUp());
            // As if nothing had been.
            Action("Record")->trigger();
            EXPECT_TRUE(Reaches(SessionStateCapturing));
        }
    }
}

TEST_F(SlowDisk, AWindowThatIsClosedDoesNotWaitForIt)
{
    Record(false);
    m_meanwhile = [&] {
        m_window->close();
        EXPECT_EQ(m_closed, 0);
        EXPECT_TRUE(Eventually([this] { return m_closed == 1; })); // whoever hears it ends the program
        EXPECT_TRUE(m_hangs);
        m_hangs = false;
    };
    Action("Record")->trigger();
    EXPECT_FALSE(m_meanwhile);
    EXPECT_TRUE(Eventually([this] { return !m_window->isVisible(); })); // where the disk answers in time
    EXPECT_EQ(m_closed, 1);
    EXPECT_EQ(Current(), nullptr);
    EXPECT_EQ(m_device->ReleaseCount(), 1);
}

} // namespace
