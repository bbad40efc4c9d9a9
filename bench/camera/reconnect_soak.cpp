// A camera that is lost again and again, in the real window: pulled, restarted, silent, with another address, with
// factory settings; idle, with the picture running, while it is recorded; with somebody there to close the message, and
// without. Prints how soon it was back after its return, whether its settings were as before, how long it took to read
// them, what memory, threads and files there are every fifteen losses, and all that was not told or does not add up.
// Ends with 1 where anything was.
//
// Memory is the heap in use, by which a leak is seen, and what is resident without the pages of files: where the
// packets come through a ring, that is one, of 64 MB, while the picture runs.
// Needs loopback alone, of which several can have one each: tests/support/in-netns reconnect_soak [losses [seed]]
#include "guimanager.h"
#include "imagewriter.h"
#include "noticeboard.h"
#include "session.h"
#include "tovscope.h"
#include "wirecamera.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QMessageBox>
#include <QPixmapCache>
#include <QPointer>
#include <QSettings>
#include <QTemporaryDir>
#include <QTimer>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <malloc.h>

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr double LongestReturn = 2.0; // seconds
constexpr milliseconds Patience{30000};

enum class Kind { Pulled, Restarted, Silent, OtherAddress, Factory };
constexpr char const *KindNames[] = {"pulled", "restarted", "silent", "other address", "factory settings"};
constexpr SessionState States[] = {SessionStateIdle, SessionStateAcquisition, SessionStateCapturing};
constexpr char const *StateNames[] = {"idle", "picture", "recording"};

long StatusNumber(QByteArray const &text, char const *name)
{
    int const at = text.indexOf(name);
    return at < 0 ? 0 : std::atol(text.constData() + at + std::strlen(name));
}

QByteArray ReadAll(QString const &name)
{
    QFile file(name);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void PrintUse(int losses)
{
    QPixmapCache::clear(); // it grows with every icon that is made anew, up to a limit of its own
    QByteArray const status = ReadAll(QStringLiteral("/proc/self/status"));
    struct mallinfo2 const heap = mallinfo2();
    std::printf("after %4d losses: heap %zu KB, resident %ld KB, %ld threads, %d files\n", losses,
                (heap.uordblks + heap.hblkhd) / 1024, StatusNumber(status, "RssAnon:"),
                StatusNumber(status, "Threads:"), QDir(QStringLiteral("/proc/self/fd")).entryList().size());
}

class Soak
{
public:
    explicit Soak(SimModel const *model, unsigned seed) : m_camera({model, "127.0.0.1", "SOAK1", {}}), m_random(seed)
    {
        for (auto const &[name, value] : {std::pair("Width", "256"),
                                          {"Height", "128"},
                                          {"ExposureTime", "1000"},
                                          {"AcquisitionFrameRateEnable", "1"},
                                          {"AcquisitionFrameRate", "60"}})
            Set(name, value);
        QSettings settings(QStringLiteral("Velmor"), QStringLiteral("TovScope"));
        settings.setValue(QStringLiteral("Camera/Reconnect"), true);
        settings.setValue(QStringLiteral("Camera/ResumeRecording"), true);
        settings.sync();
        m_window = std::make_unique<TovScope>(nullptr, false, false);
        m_window->show();
        QObject::connect(&m_operator, &QTimer::timeout, [this] { LookAtMessages(); });
        m_operator.start(5);
    }

    bool Connect()
    {
        TovCam::System *const system = TovCam_GetSystem();
        TovCam::DeviceInfo *const info = system->FindDeviceByAddress("127.0.0.1", nullptr);
        if (info)
            m_window->GetGuiManager().Open(info);
        bool const is = Until([this] { return StateIs(SessionStateIdle); });
        system->Release();
        return is;
    }

    void Lose(int round)
    {
        m_round = round;
        auto const kind = static_cast<Kind>(round % 5);
        int const state = round / 5 % 3;
        m_attended = round / 15 % 2 != 0;
        QTemporaryDir const folder;
        if (!Prepare(state, folder.path()))
            return Fault("the camera could not be prepared");
        QByteArray const before = Settings();
        m_messages = 0;
        QPointer<Session> const session(Current()); // the next one may have its address
        Begin(kind);
        // Some are back before the loss is noticed. Where nobody closes the message, it is on the stack from then on.
        bool const early = kind != Kind::Silent && kind != Kind::Pulled && m_random() % 2 == 0;
        Clock::time_point returned;
        auto const comeBack = [&] {
            Until([] { return false; }, milliseconds(early ? 100 + m_random() % 800 : m_random() % 2000));
            End(kind);
            returned = Clock::now();
        };
        if (early)
            comeBack();
        else if (!m_attended)
            m_meanwhile = comeBack;
        if (!Until([&] { return m_messages > 0 && !session; }))
            return Fault("the loss was not told");
        if (!early && m_attended)
            comeBack();
        if (!Until([&] { return StateIs(States[state]); }))
            return Fault("the camera is not back");
        double const seconds = std::chrono::duration<double>(Clock::now() - std::max(returned, m_noticed)).count();
        m_seconds[static_cast<int>(kind)].push_back(seconds);
        if (seconds > LongestReturn)
            ++m_late;
        if (m_messages != 1)
            Fault("messages: " + std::to_string(m_messages));
        Check(before, state, folder.path());
    }

    int Report()
    {
        std::printf(
            "\nFrom the return, or from the message where that came later, in seconds:\n%-18s %6s %8s %8s %8s\n",
            "lost", "times", "median", "worst", "over 2 s");
        for (int kind = 0; kind < 5; ++kind) {
            std::vector<double> &all = m_seconds[kind];
            std::sort(all.begin(), all.end());
            if (all.empty())
                continue;
            auto const late = std::count_if(all.begin(), all.end(), [](double s) { return s > LongestReturn; });
            std::printf("%-18s %6zu %8.2f %8.2f %8td\n", KindNames[kind], all.size(), all[all.size() / 2], all.back(),
                        late);
        }
        std::sort(m_readings.begin(), m_readings.end());
        if (!m_readings.empty())
            std::printf("reading the settings: median %.0f ms, longest %.0f ms\n", m_readings[m_readings.size() / 2],
                        m_readings.back());
        std::printf("settings as before: %d, otherwise: %d\nnot told, or not adding up: %d\n", m_equal, m_different,
                    m_faults);
        return m_late + m_different + m_faults == 0 ? 0 : 1;
    }

private:
    static bool Until(std::function<bool()> const &condition, milliseconds patience = Patience)
    {
        for (auto const end = Clock::now() + patience; !condition();) {
            if (Clock::now() > end)
                return false;
            QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
            QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
            std::this_thread::sleep_for(milliseconds(1));
        }
        return true;
    }
    void Set(std::string const &name, std::string const &value)
    {
        std::string why;
        if (!m_camera.SetFeature(name, value, why))
            Fault("the camera does not take " + name + ": " + why);
    }
    Session *Current()
    {
        return m_window->GetGuiManager().GetSession();
    }
    bool StateIs(SessionState state)
    {
        return Current() && Current()->GetState() == state;
    }
    void Fault(std::string const &text)
    {
        ++m_faults;
        std::printf("%d, %s, %s: %s\n", m_round, KindNames[m_round % 5], StateNames[m_round / 5 % 3], text.c_str());
        // What comes next has a session to begin with.
        if (!Current()) {
            End(static_cast<Kind>(m_round % 5));
            Until([this] { return Current() != nullptr; });
        }
    }
    void LookAtMessages()
    {
        auto *const box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
        if (box && box != m_box && m_messages++ == 0)
            m_noticed = Clock::now();
        m_box = box;
        if (box && m_attended)
            box->accept();
        else if (box && m_meanwhile)
            std::exchange(m_meanwhile, {})();
    }

    // Other settings each time, and the state in which it is lost.
    bool Prepare(int state, QString const &folder)
    {
        GuiManager &gui = m_window->GetGuiManager();
        for (int i = 0; i < 3 && Current() && !StateIs(SessionStateIdle); ++i)
            gui.stopAcquisitionAndCapture();
        if (!Until([this] { return StateIs(SessionStateIdle); }))
            return false;
        TovCam::ParamArray *const params = Current()->GetDevice()->GetCameraParameters(nullptr);
        params->SetFloatValue("ExposureTime", 500.0 + static_cast<double>(m_random() % 5000));
        params->SetFloatValue("Gain", static_cast<double>(m_random() % 6));
        // Few sizes, so that free frames are soon there for each, and memory can be seen to be flat.
        params->SetIntegerValue("Height", 64 + 32 * static_cast<std::int64_t>(m_random() % 2));
        static_cast<ImageWriter *>(Current()->GetImageWriter())
            ->SetParamString("FilePath", folder.toUtf8().constData());
        gui.startAcquisition();
        if (!Until([this] { return StateIs(SessionStateAcquisition); }))
            return false;
        if (States[state] == SessionStateIdle)
            gui.stopAcquisitionAndCapture();
        if (States[state] == SessionStateCapturing)
            gui.startStopCapture();
        return Until([&] { return StateIs(States[state]) && (state != 2 || Saved() >= 3); });
    }
    long Saved()
    {
        long saved = 0;
        Current()->GetImageWriter()->GetParamInt("FramesSaved", &saved);
        return saved;
    }
    QByteArray Settings()
    {
        QTemporaryDir const folder;
        QString const name = folder.filePath(QStringLiteral("now.tcfg"));
        Clock::time_point const begin = Clock::now();
        Current()->GetDevice()->SaveConfiguration(QFile::encodeName(name).constData());
        m_readings.push_back(std::chrono::duration<double, std::milli>(Clock::now() - begin).count());
        return ReadAll(name);
    }

    void Begin(Kind kind)
    {
        if (kind == Kind::Silent)
            Set("WireSilence", "All");
        else
            m_camera.Die();
    }
    void End(Kind kind)
    {
        if (kind == Kind::Silent)
            Set("WireSilence", "Off");
        else if (kind == Kind::OtherAddress)
            m_camera.Return("127.0.0." + std::to_string(1 + m_random() % 250));
        else
            m_camera.Return({}, kind == Kind::Factory);
    }

    void Check(QByteArray const &before, int state, QString const &folder)
    {
        QByteArray const now = Settings();
        ++(now == before && !now.isEmpty() ? m_equal : m_different);
        if (States[state] == SessionStateCapturing)
            CheckRecordings(folder);
        bool told = false;
        for (Notice const &notice : NoticeBoard::Instance().Notices()) {
            told = told || notice.text.contains(QStringLiteral("is back"));
            if (notice.topic == NoticeTopic::Configuration)
                Fault(notice.text.toStdString());
        }
        if (!told)
            Fault("the return was not told");
    }
    // Of the one that was interrupted, and the one that went on.
    void CheckRecordings(QString const &folder)
    {
        if (!Until([this] { return Saved() >= 3; }))
            return Fault("no frame after the gap");
        m_window->GetGuiManager().startStopCapture();
        QStringList const series = QDir(folder).entryList({QStringLiteral("*.series")}, QDir::Dirs);
        if (series.size() != 2)
            Fault("recordings: " + std::to_string(series.size()));
        for (QString const &one : series) {
            QString const start = folder + QLatin1Char('/') + one + QLatin1Char('/') + one.chopped(7);
            std::map<QByteArray, long long> entries;
            QByteArray const ledger = ReadAll(start + QStringLiteral(".ledger.txt"));
            for (QByteArray const &line : ledger.split('\n'))
                entries.emplace(line.left(line.indexOf('=')), line.mid(line.indexOf('=') + 1).toLongLong());
            if (entries["acquired"] !=
                entries["saved"] + entries["unwanted"] + entries["failed"] + entries["droppedSW"] + entries["queued"])
                Fault("the frames of a recording do not add up");
            if (!ledger.contains("[Gap") || !ReadAll(start + QStringLiteral(".frames.csv")).contains("#gap,"))
                Fault("the gap is not told");
        }
    }

    WireCamera m_camera;
    std::unique_ptr<TovScope> m_window;
    QTimer m_operator;
    std::mt19937 m_random;
    QMessageBox *m_box = nullptr; // only compared
    bool m_attended = false;
    std::function<void()> m_meanwhile; // as soon as the message is there
    Clock::time_point m_noticed;       // the loss
    int m_round = 0, m_messages = 0, m_late = 0, m_equal = 0, m_different = 0, m_faults = 0;
    std::vector<double> m_seconds[5];
    std::vector<double> m_readings; // milliseconds
};

} // namespace

int main(int argc, char **argv)
{
    QTemporaryDir const home;
    setenv("XDG_CONFIG_HOME", home.path().toUtf8().constData(), 1);
    setenv("TOV_CAMERA_INTERFACES", "gige", 1);
    setenv("QT_QPA_PLATFORM", "offscreen", 0);
    QApplication application(argc, argv);
    int const losses = argc > 1 ? std::atoi(argv[1]) : 30;
    std::setvbuf(stdout, nullptr, _IOLBF, 0);

    SimModel const *model = GetWireModels().front();
    Soak soak(model, argc > 2 ? static_cast<unsigned>(std::atoi(argv[2])) : 17);
    if (!soak.Connect()) {
        std::printf("no camera\n");
        return 1;
    }
    constexpr int EveryKind = 15; // in every state
    for (int round = 0; round < losses; ++round) {
        if (round % EveryKind == 0)
            PrintUse(round);
        soak.Lose(round);
    }
    PrintUse(losses);
    return soak.Report();
}
