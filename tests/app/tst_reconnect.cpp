// A camera on the network that is lost and comes back, in the real window. In a network namespace of its own.
#include "losttest.h"
#include "wireclients.h"

#include "companionfiles.h"
#include "params.h"
#include "waitingaction.h"

#include "gige/camerasearch.h"

namespace {

using namespace std::chrono_literals;

class Reconnecting : public LostTest
{
protected:
    Reconnecting()
    {
        s_searchRound = 20ms;
        MakeSmall(*m_camera);
    }
    ~Reconnecting() override
    {
        m_window.reset();
        WaitingAction::s_times = {};
    }
    void Open()
    {
        Gui().Open(FindAt(m_system, m_camera->GetStatus().address.c_str()));
        ASSERT_TRUE(Reaches(SessionStateIdle));
    }
    void Play()
    {
        Action("Play")->trigger();
        ASSERT_TRUE(Reaches(SessionStateAcquisition));
    }
    // It is gone, and the library has noticed, which takes it six seconds otherwise.
    void Pull()
    {
        m_camera->Die();
        Session::CameraDisconnectCallback(nullptr, 0, Current());
    }

    std::unique_ptr<WireCamera> m_camera = Serve(Colour), m_twin = std::make_unique<WireCamera>(WireCameraOptions{
                                                              &FindModel(Colour), "127.0.0.9", "TWIN", {}});
    CameraLookout::Camera const m_mark{FindAt(m_system)};
    QString const m_waiting = QStringLiteral("Waiting for Velmor VG-1280C (W1280C)...");
};

TEST_F(Reconnecting, AsItWasWhateverHasHappenedToItAndNoTwin)
{
    Open();
    struct
    {
        std::function<void()> go, comeBack;
        char const *address;
    } const losses[] = {
        {[this] { Set(*m_camera, "WireSilence", "All"); }, [this] { Set(*m_camera, "WireSilence", "Off"); },
         "127.0.0.1"},
        {[this] { Pull(); }, [this] { m_camera->Return("127.0.0.77"); }, "127.0.0.77"},
        {[this] { Pull(); }, [this] { m_camera->Return("127.0.0.1", true); }, "127.0.0.1"},
    };
    int height = 100;
    for (auto const &loss : losses) {
        SCOPED_TRACE(loss.address);
        Action("Stop")->trigger();
        ASSERT_TRUE(Reaches(SessionStateIdle));
        Nodes()->SetIntegerValue("Height", height += 20);
        Play();
        m_attended = !m_attended; // nobody is there for the second
        QPointer<Session> const session(Current());
        auto const away = [&] {
            EXPECT_TRUE(IsTold(m_waiting));
            LookTwice(m_mark, false);
            EXPECT_EQ(session.isNull(), m_attended);
            EXPECT_EQ(m_message, m_attended ? "" : "Connection to the Camera was lost");
            loss.comeBack();
        };
        if (!m_attended)
            m_meanwhile = away; // the message is open
        loss.go();
        if (m_attended) {
            EXPECT_TRUE(Eventually([&] { return !Current(); }));
            away();
        }
        ASSERT_TRUE(Eventually([&] { return Current() && !session; }));
        ASSERT_TRUE(Reaches(SessionStateAcquisition));
        EXPECT_EQ(Nodes()->GetIntegerValue("Height", nullptr), height);
        EXPECT_EQ(Nodes()->GetFloatValue("ExposureTime", nullptr), 1000.0);
        EXPECT_STREQ(Nodes()->GetString("DeviceSerialNumber", nullptr)->GetValue(nullptr), "W1280C");
        EXPECT_STREQ(Current()->GetDevice()->GetDeviceInfo()->GetAddress(), loss.address);
        EXPECT_EQ(QApplication::activeModalWidget(), nullptr);
        EXPECT_TRUE(IsTold(QStringLiteral("Velmor VG-1280C (W1280C) is back")));
        EXPECT_FALSE(IsTold(QStringLiteral("The configuration")));
    }
    EXPECT_EQ(m_twin->GetStatus().controls, 0u);
}

// As soon as it has given control, and as soon as there is a window around it.
TEST_F(Reconnecting, LostAgainWhileItIsOpened)
{
    Open();
    Nodes()->SetIntegerValue("Height", 160);
    Play();
    for (bool const hasSession : {false, true}) {
        SCOPED_TRACE(hasSession);
        std::uint64_t const before = m_camera->GetStatus().controls;
        bool again = false;
        QTimer watch;
        QObject::connect(&watch, &QTimer::timeout, [&] {
            bool const isThere = hasSession ? Current() != nullptr : m_camera->GetStatus().controls > before;
            if (isThere && !std::exchange(again, true))
                m_camera->Return({}, true);
        });
        WaitingAction::s_times = {0ms, 0ms, 0ms, Patience}; // so that something can happen
        m_attended = true;
        Pull();
        EXPECT_TRUE(Eventually([&] { return !Current(); }));
        m_attended = false;
        m_camera->Return({}, true);
        watch.start(1);
        ASSERT_TRUE(Eventually([&] {
            return again && m_camera->GetStatus().controls >= before + 2 && Current() &&
                   Current()->GetState() == SessionStateAcquisition && !QApplication::activeModalWidget();
        }));
        EXPECT_EQ(Nodes()->GetIntegerValue("Height", nullptr), 160);
        EXPECT_EQ(Nodes()->GetFloatValue("ExposureTime", nullptr), 1000.0);
        EXPECT_FALSE(IsTold(QStringLiteral("The configuration")));
    }
}

TEST_F(Reconnecting, ARecordingGoesOnOnlyIfThatIsWantedAndTellsTheGap)
{
    for (bool const resumes : {false, true}) {
        SetChoice("Camera/ResumeRecording", resumes);
        Open();
        QTemporaryDir const folder;
        Current()->GetImageWriter()->SetParamString("FilePath", folder.path().toUtf8().constData());
        Play();
        Action("Record")->trigger();
        EXPECT_TRUE(Eventually([&] { return IntOf(Current()->GetImageWriter(), "FramesSaved") >= 3; }));
        QPointer<Session> const session(Current());
        m_camera->Return({}, true);
        ASSERT_TRUE(Eventually([&] { return Current() && !session; }));
        ASSERT_TRUE(Reaches(resumes ? SessionStateCapturing : SessionStateAcquisition));
        EXPECT_TRUE(IsTold(QStringLiteral("Velmor VG-1280C (W1280C) is back")));
        long const least = resumes ? 3 : 0;
        EXPECT_TRUE(Eventually([&] { return IntOf(Current()->GetImageWriter(), "FramesSaved") >= least; }));
        Gui().cameraDisconnect();
        QFileInfoList const series =
            QDir(folder.path()).entryInfoList({QStringLiteral("*.series")}, QDir::Dirs, QDir::Time | QDir::Reversed);
        ASSERT_EQ(series.size(), resumes ? 2 : 1);
        if (!resumes)
            continue;
        struct
        {
            std::vector<Row> rows;
            QList<QByteArray> gap;
            bool isFirstLine;
            QByteArray ledger;
        } sides[2];
        for (int i = 0; i < 2; ++i) {
            QString const start = series[i].filePath() + QLatin1Char('/') + series[i].completeBaseName();
            QFile table(start + QStringLiteral(".frames.csv")), ledger(start + QStringLiteral(".ledger.txt"));
            ASSERT_TRUE(table.open(QIODevice::ReadOnly) && ledger.open(QIODevice::ReadOnly));
            sides[i].ledger = ledger.readAll();
            for (QByteArray const &line : table.readAll().split('\n').mid(1)) {
                if (line.startsWith('#')) {
                    sides[i].isFirstLine = sides[i].rows.empty();
                    sides[i].gap = line.split(',');
                } else if (!line.isEmpty()) {
                    EXPECT_TRUE(SeriesFiles::Decode(line.toStdString(), sides[i].rows.emplace_back()));
                }
            }
            Outcome const check = RunShell(TOVFILE " check " + series[i].filePath().toStdString());
            EXPECT_EQ(check.code, 0) << check.text;
        }
        Row const &last = sides[0].rows.back(), &first = sides[1].rows.front();
        QByteArray const seconds = QByteArray::number(double(*first.arrival - *last.arrival) / 1e9, 'f', 3);
        EXPECT_FALSE(sides[0].isFirstLine);
        EXPECT_TRUE(sides[1].isFirstLine);
        for (int i = 0; i < 2; ++i) {
            ASSERT_EQ(sides[i].gap.size(), 7);
            EXPECT_EQ(sides[i].gap[1].toULongLong(), last.frameId);
            EXPECT_EQ(sides[i].gap[3].toULongLong(), first.frameId);
            EXPECT_EQ(sides[i].gap[5], seconds);
            EXPECT_EQ(sides[i].gap[6], series[1 - i].fileName().toUtf8());
            EXPECT_TRUE(sides[i].ledger.contains((i == 0 ? "[GapAfter]\nlastFrame=" : "[GapBefore]\nlastFrame=") +
                                                 QByteArray::number(qulonglong(last.frameId)) + '\n'));
            EXPECT_TRUE(sides[i].ledger.contains("\nseconds=" + seconds + '\n'));
        }
    }
}

} // namespace
