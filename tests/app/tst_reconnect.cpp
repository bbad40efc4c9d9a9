// A camera on the network that is lost and comes back, in the real window. In a network namespace of its own.
#include "window.h"
#include "wireclients.h"

#include "cameralookout.h"
#include "companionfiles.h"
#include "noticeboard.h"
#include "params.h"

#include "tovcameragui.h"

namespace {

class Reconnecting : public WindowTest
{
protected:
    Reconnecting()
    {
        SetChoice("Camera/Reconnect", true);
        NewWindow();
        MakeSmall(*m_camera);
        QObject::connect(&m_operator, &QTimer::timeout, [this] {
            auto *const box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
            if (box && m_attended)
                box->accept();
            m_message = box ? box->text().toStdString() : "";
            if (box && m_meanwhile)
                std::exchange(m_meanwhile, {})();
        });
        m_operator.start(5);
    }
    ~Reconnecting() override
    {
        m_window.reset();
        m_system->Release();
    }
    static void SetChoice(char const *key, bool on)
    {
        QSettings(QStringLiteral("Velmor"), QStringLiteral("TovScope")).setValue(QString::fromLatin1(key), on);
    }
    void Open()
    {
        Gui().Open(FindAt(m_system, m_camera->GetStatus().address.c_str()));
        ASSERT_TRUE(Reaches(SessionStateIdle));
    }
    TovCam::ParamArray *Nodes()
    {
        return Current()->GetDevice()->GetCameraParameters(nullptr);
    }
    void Play()
    {
        Action("Play")->trigger();
        ASSERT_TRUE(Reaches(SessionStateAcquisition));
    }
    static bool IsTold(QString const &text)
    {
        auto const notices = NoticeBoard::Instance().Notices();
        return std::any_of(notices.begin(), notices.end(),
                           [&](Notice const &notice) { return notice.text.startsWith(text); });
    }
    // As others look for it, so that the window has had the time to do so as well.
    void LookTwice(bool isThere)
    {
        CameraLookout lookout;
        int looks = 0;
        QObject::connect(&lookout, &CameraLookout::looked,
                         [&](TovCam::DeviceInfo *info, bool free) { looks += isThere ? info && free : !info; });
        lookout.Begin(m_system, *m_mark);
        EXPECT_TRUE(Eventually([&] { return looks == 2; }));
    }

    std::unique_ptr<WireCamera> m_camera = Serve(Colour), m_twin = std::make_unique<WireCamera>(WireCameraOptions{
                                                              &FindModel(Colour), "127.0.0.9", "TWIN", {}});
    TovCam::System *m_system = TovCam_GetSystem();
    std::optional<CameraLookout::Camera> m_mark{FindAt(m_system)};
    QString const m_waiting = QStringLiteral("Waiting for Velmor VG-1280C (W1280C)...");
    QTimer m_operator;
    bool m_attended = false;
    std::string m_message; // on the screen
    std::function<void()> m_meanwhile;
};

TEST_F(Reconnecting, AsItWasWhateverHasHappenedToItAndNoTwin)
{
    Open();
    struct
    {
        std::function<void()> go, comeBack;
        char const *address;
    } const losses[] = {
        {[this] { m_camera->Die(); }, [this] { m_camera->Return(); }, "127.0.0.1"},
        {[this] { Set(*m_camera, "WireSilence", "All"); }, [this] { Set(*m_camera, "WireSilence", "Off"); },
         "127.0.0.1"},
        {[this] { m_camera->Die(); }, [this] { m_camera->Return("127.0.0.77"); }, "127.0.0.77"},
        {[this] { m_camera->Die(); }, [this] { m_camera->Return("127.0.0.1", true); }, "127.0.0.1"},
    };
    int height = 100;
    for (auto const &loss : losses) {
        Action("Stop")->trigger();
        ASSERT_TRUE(Reaches(SessionStateIdle));
        Nodes()->SetIntegerValue("Height", height += 20);
        Play();
        m_attended = !m_attended;                    // nobody is there for the other two
        QPointer<Session> const session = Current(); // the next one may be at its place
        auto const away = [&] {
            EXPECT_TRUE(IsTold(m_waiting));
            LookTwice(false);
            EXPECT_EQ(Current(), m_attended ? nullptr : session.data());
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
        ASSERT_TRUE(Reaches(SessionStateAcquisition)) << loss.address;
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

TEST_F(Reconnecting, TheOperatorEndsTheWaiting)
{
    m_attended = true;
    auto const turnOff = [this] {
        During<TovGui::TovCameraSelectorDialog>([this] { Action("Connect")->trigger(); },
                                                [](TovGui::TovCameraSelectorDialog *dialog) {
                                                    auto *const box = dialog->findChild<QCheckBox *>();
                                                    EXPECT_TRUE(box->isChecked());
                                                    box->click();
                                                    dialog->reject();
                                                });
    };
    std::function<void()> const ways[] = {
        [this] { Action("Disconnect")->trigger(); },
        [this] {
            During<QFileDialog>([this] { Action("LoadConfiguration")->trigger(); },
                                [](QFileDialog *dialog) { Choose(dialog, {}); });
        },
        [this] { m_window->close(); },
        turnOff,
        [] {}, // as it was turned off, it is not even begun
    };
    for (auto const &end : ways) {
        bool const waits = &end != &ways[4];
        if (!m_window->isVisible())
            NewWindow();
        Open();
        m_camera->Die();
        EXPECT_TRUE(Eventually([&] { return !Current(); }));
        EXPECT_EQ(IsTold(m_waiting), waits);
        EXPECT_EQ(Action("Disconnect")->isEnabled(), waits);
        end();
        EXPECT_FALSE(IsTold(m_waiting) || Action("Disconnect")->isEnabled());
        m_camera->Return();
        LookTwice(true);
        EXPECT_EQ(Current(), nullptr);
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
        QPointer<Session> const session = Current(); // the next one may be at its place
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
