// The whole program for hours: its window, a camera on the network in another process, recording, packets that are
// lost, deaths and returns, and an operator who never rests. docs/performance.md tells what it asserts. Needs loopback
// alone:
//   tests/support/in-netns program_soak [--minutes N] [--deaths N] [--share PERCENT] [--capacity FPS] [--loss PERCENT]
//                                       [--warmup MINUTES] [--size WIDTHxHEIGHT] [--folder DIR]
// Ends with 1 where a frame is not accounted for, memory is not flat, the window was blocked for 200 ms or more, or a
// lost camera did not come back as it should.
#include "blockwatch.h"
#include "guimanager.h"
#include "imagewriter.h"
#include "processfigures.h"
#include "session.h"
#include "soakaccounts.h"
#include "soakclicks.h"
#include "soakdeaths.h"
#include "soakoptions.h"
#include "soakworld.h"
#include "tovscope.h"

#include <QDir>
#include <QSettings>
#include <QTemporaryDir>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr milliseconds LongestBlock{200};
constexpr std::size_t MostGrowth = 4096;  // kilobytes
constexpr std::int64_t SentAfterStop = 3; // frames: what a camera that is stopped has in hand
constexpr double Quarter = 0.25;
constexpr std::chrono::minutes Patience{2};
constexpr double SlowestRate = 30;                      // of the ramp
constexpr std::int64_t FastestClock = 120;              // of the sensor, MHz
constexpr double LossesOfRamp = 0.005, KeptRate = 0.95; // shares, of the frames and of the rate
constexpr char Model[] = "VG-2048M";

class Soak
{
public:
    Soak(SoakOptions const &options, QString const &folder)
        : m_options(options),
          m_folder(folder),
          m_world({QStringLiteral("--world"), QString::fromLatin1(Model), folder})
    {
        m_window.show();
        QObject::connect(&m_step, &QTimer::timeout, [this] { Step(); });
    }
    // 0 when all was as it should be.
    int Run()
    {
        TovCam::System *const system = TovCam_GetSystem();
        TovCam::DeviceInfo *const info = m_world.Runs() ? system->FindDeviceByAddress("127.0.0.1", nullptr) : nullptr;
        if (!info) {
            std::printf("no camera\n");
            return 1;
        }
        m_window.GetGuiManager().Open(info);
        m_step.start(20);
        int const code = QApplication::exec();
        m_step.stop();
        m_window.close();
        system->Release();
        return code;
    }

private:
    enum class Phase { Opening, Ramp, Stopping, Marking, Starting, Running, Ending, Finishing, Over };

    // ---- The course ----

    void Step()
    {
        m_accounts.Follow(Current());
        if (Clock::now() - m_phaseSince > Patience && m_phase != Phase::Running)
            return Fail("stuck before or after the run");
        switch (m_phase) {
        case Phase::Opening:
            if (StateIs(SessionStateIdle))
                Prepare();
            break;
        case Phase::Ramp:
            if (StateIs(SessionStateAcquisition) && !m_records)
                Record();
            else if (StateIs(SessionStateCapturing) && Clock::now() >= m_due)
                JudgeRate();
            break;
        case Phase::Stopping:
        case Phase::Ending:
            if (StateIs(SessionStateCapturing) || StateIs(SessionStateAcquisition))
                Stop();
            else if (StateIs(SessionStateIdle) && !m_accounts.IsRunning())
                Mark();
            break;
        case Phase::Starting:
            if (StateIs(SessionStateIdle) && !std::exchange(m_asked, true))
                m_clicks.ClickAction("actionPlay");
            else if (StateIs(SessionStateAcquisition) && !m_records)
                Record();
            else if (StateIs(SessionStateCapturing))
                Begin();
            break;
        case Phase::Running:
            m_deaths.Step();
            Watch();
            break;
        default: // answers of the camera's process go on with it
            break;
        }
    }
    Session *Current()
    {
        return m_window.GetGuiManager().GetSession();
    }
    bool StateIs(SessionState state)
    {
        return Current() && Current()->GetState() == state;
    }
    void Go(Phase phase)
    {
        m_phase = phase;
        m_phaseSince = Clock::now();
        m_asked = m_records = false;
    }
    void Fail(char const *why)
    {
        std::printf("FAILED: %s\n", why);
        PrintBlocks();
        QCoreApplication::exit(1);
        m_step.stop();
    }
    void PrintBlocks()
    {
        std::printf("\nthe longest blocks of the window:\n%s\n", m_watch.Report().c_str());
    }
    TovCam::ParamArray *Params()
    {
        return Current()->GetDevice()->GetCameraParameters(nullptr);
    }
    void Record()
    {
        m_records = true;
        m_clicks.ClickAction("actionRecord");
    }
    void Stop()
    {
        SessionState const state = Current()->GetState();
        if (std::exchange(m_stopped, state) != state)
            m_clicks.ClickAction("actionStop");
    }

    void Prepare()
    {
        auto *const params = Params();
        params->SetIntegerValue("Width", m_options.width);
        params->SetIntegerValue("Height", m_options.height);
        params->SetFloatValue("ExposureTime", 500);
        params->SetIntegerValue("PixelClock", FastestClock);
        params->SetBooleanValue("AcquisitionFrameRateEnable", false);
        std::int32_t error = 0;
        m_fastest = params->GetFloatValue("ResultingFrameRate", &error);
        params->SetBooleanValue("AcquisitionFrameRateEnable", true);
        m_rate = m_capacity = m_options.capacity > 0 ? m_options.capacity : SlowestRate;
        params->SetFloatValue("AcquisitionFrameRate", m_rate);
        static_cast<ImageWriter *>(Current()->GetImageWriter())
            ->SetParamString("FilePath", m_folder.toUtf8().constData());
        if (m_options.capacity > 0)
            return Go(Phase::Stopping);
        Go(Phase::Ramp);
        m_clicks.ClickAction("actionPlay");
        m_due = Clock::now() + RampTime + seconds(2);
        m_arrived = -1;
    }
    // The rate goes up until something is lost, the camera's process cannot keep it, or the sensor has no faster one.
    void JudgeRate()
    {
        std::int64_t const arrived = m_accounts.Arrived(), lost = m_accounts.Lost();
        double const time = std::chrono::duration<double>(Clock::now() - m_judged).count();
        double const got = static_cast<double>(arrived - m_arrived) / time;
        bool const isFirst = m_arrived < 0;
        bool const holds =
            isFirst || (static_cast<double>(lost - m_lost) <= LossesOfRamp * got * time && got > KeptRate * m_rate);
        if (!isFirst)
            std::printf("ramp: %.0f frames a second: got %.0f, lost %lld\n", m_rate, got,
                        static_cast<long long>(lost - m_lost));
        m_phaseSince = m_judged = Clock::now();
        m_arrived = arrived;
        m_lost = lost;
        if (!holds)
            return Go(Phase::Stopping);
        if (!isFirst) {
            m_capacity = std::min(m_rate, got);
            if (m_rate >= m_fastest)
                return Go(Phase::Stopping);
            m_rate = std::min(m_rate * 1.25, m_fastest);
            m_world.Ask(QStringLiteral("set AcquisitionFrameRate %1").arg(m_rate, 0, 'g', 12));
        }
        m_due = Clock::now() + RampTime;
    }
    void Mark()
    {
        bool const isEnd = m_phase == Phase::Ending || m_phase == Phase::Running;
        Go(isEnd ? Phase::Finishing : Phase::Marking);
        QTimer::singleShot(300, [this, isEnd] {
            m_world.Ask(QStringLiteral("sent"), [this, isEnd](QStringList const &words) {
                isEnd ? Finish(words[1].toULongLong(), words[2].toULongLong())
                      : Start(words[1].toULongLong(), words[2].toULongLong());
            });
        });
    }
    void Start(std::uint64_t sent, std::uint64_t leftOut)
    {
        m_world.Ask(QStringLiteral("files"), [this](QStringList const &words) { m_files = words[1].toLongLong(); });
        m_world.Ask(QStringLiteral("tables"), [this](QStringList const &words) { m_rows = words[2].toLongLong(); });
        m_accounts.Begin(sent, leftOut);
        m_sent = sent;
        m_leftOut = leftOut;
        if (m_options.capacity > 0)
            m_capacity = m_options.capacity;
        m_rate = m_capacity * m_options.share / 100;
        std::printf("%.0f frames of %d x %d a second: %.0f %% of %.0f\n", m_rate, m_options.width, m_options.height,
                    m_options.share, m_capacity);
        Params()->SetFloatValue("AcquisitionFrameRate", m_rate);
        m_world.Ask(QStringLiteral("set WirePacketLoss %1").arg(m_options.loss));
        m_stopped = SessionStateDisconnected;
        Go(Phase::Starting);
    }
    void Begin()
    {
        Go(Phase::Running);
        m_begin = Clock::now();
        m_nextMinute = m_begin + std::chrono::minutes(1);
        m_clicks.Begin();
        m_deaths.Begin(m_options.deaths, std::chrono::duration_cast<seconds>(Minutes(m_options.minutes)));
        m_watch.Begin();
    }
    static std::chrono::duration<double> Minutes(double minutes)
    {
        return std::chrono::duration<double>(60 * minutes);
    }

    // ---- The run ----

    void Watch()
    {
        auto const now = Clock::now();
        if (now >= m_nextLook && m_deaths.IsQuiet() && StateIs(SessionStateCapturing)) {
            m_nextLook = now + seconds(2);
            ProcessFigures const figures = LookAtProcess();
            m_memory.push_back({now, figures.own});
            m_most = std::max(m_most, figures.own);
        }
        if (now >= m_nextMinute) {
            m_nextMinute += std::chrono::minutes(1);
            m_world.Ask(QStringLiteral("sent"), [this](QStringList const &words) { Tell(words); });
        }
        if (now - m_begin >= Minutes(m_options.minutes) && m_deaths.IsQuiet() && StateIs(SessionStateCapturing)) {
            m_clicks.End();
            Go(Phase::Ending);
            m_watch.SetDeed("the end of the soak");
        }
        if (now - m_begin >= Minutes(m_options.minutes) + Patience) {
            std::printf("FAILED: there is no recording at the end\n");
            m_clicks.End();
            Mark();
        }
    }
    // Kilobytes of its own: the least from one share of the time after the warm-up to another. What the window and its
    // panels take for pictures goes up and down with their sizes; a leak lifts the least, too.
    std::size_t Memory(double from, double to) const
    {
        double const warm = std::min(m_options.warmup, m_options.minutes / 4);
        std::size_t least = 0;
        for (auto const &[at, own] : m_memory) {
            double const minute = std::chrono::duration<double>(at - m_begin).count() / 60;
            double const share = (minute - warm) / (m_options.minutes - warm);
            if (share >= from && share <= to)
                least = least == 0 ? own : std::min(least, own);
        }
        return least;
    }
    double ProcessorShare()
    {
        std::clock_t const processor = std::clock();
        auto const now = Clock::now();
        double const share = static_cast<double>(processor - m_processor) / CLOCKS_PER_SEC /
                             std::chrono::duration<double>(now - m_processorAt).count();
        m_processor = processor;
        m_processorAt = now;
        return 100 * share;
    }
    void Tell(QStringList const &sent)
    {
        ProcessFigures const figures = LookAtProcess();
        std::printf("\nminute %.1f: sent %llu frames (left out %llu), %llu packets again\n",
                    std::chrono::duration<double>(Clock::now() - m_begin).count() / 60, sent[1].toULongLong() - m_sent,
                    sent[2].toULongLong() - m_leftOut, sent[4].toULongLong());
        std::printf("  frames: %s\n  lost: %s\n  %s\n", m_accounts.Line().c_str(), m_accounts.Places().c_str(),
                    m_deaths.Line().c_str());
        std::printf("  memory: %zu KB after the warm-up, now %zu, most %zu; heap in use %zu; files' pages %zu, shared "
                    "%zu\n",
                    Memory(0, Quarter), figures.own, m_most, figures.inUse, figures.ofFiles, figures.shared);
        std::printf("  window: longest block %lld ms; %s; %ld deeds\n",
                    static_cast<long long>(m_watch.Longest().count()), m_watch.Histogram().c_str(), m_clicks.Count());
        std::printf("  processor: %.0f %% of one, camera's process %s %%; %zu file descriptors, %zu threads\n",
                    ProcessorShare(), qPrintable(sent.value(5)), figures.files, figures.threads);
    }

    // ---- The end ----

    void Finish(std::uint64_t sent, std::uint64_t leftOut)
    {
        std::string const report = m_accounts.Compare(sent, leftOut, SentAfterStop);
        if (!report.empty())
            std::printf("at the end:%s\n", report.c_str());
        m_world.Ask(QStringLiteral("sent"), [this](QStringList const &words) { Tell(words); });
        m_world.Ask(QStringLiteral("files"),
                    [this](QStringList const &words) { m_files = words[1].toLongLong() - m_files; });
        m_world.Ask(QStringLiteral("tables"), [this](QStringList const &words) {
            m_rows = words[2].toLongLong() - m_rows;
            m_holes = words[3].toLongLong();
            Judge();
        });
    }
    void Judge()
    {
        int failed = 0;
        auto const expect = [&failed](bool is, char const *what, long long value, long long wanted) {
            std::printf("%s %s: %lld (%lld)\n", is ? "ok    " : "FAILED", what, value, wanted);
            failed += !is;
        };
        auto const number = [](auto value) {
            return static_cast<long long>(value);
        };
        PrintBlocks();
        expect(m_accounts.Unaccounted() == 0, "frames unaccounted", m_accounts.Unaccounted(), 0);
        expect(m_files == m_accounts.Saved(), "files found, and frames told as saved", m_files, m_accounts.Saved());
        expect(m_rows == m_accounts.Saved(), "rows of tables, and frames told as saved", m_rows, m_accounts.Saved());
        expect(m_holes == 0, "ids that tables neither have nor tell as missing", m_holes, 0);
        auto const before = Memory(0, Quarter), after = Memory(1 - Quarter, 1);
        expect(before > 0 && after <= before + MostGrowth, "KB at least in the last quarter, and at most",
               number(after), number(before + MostGrowth));
        expect(m_watch.Longest() < LongestBlock, "ms of the longest block, less than",
               number(m_watch.Longest().count()), number(LongestBlock.count()));
        expect(m_deaths.Faults() == 0 && m_deaths.Left() == 0,
               "returns that were not as they should be, and not come to", m_deaths.Faults() + m_deaths.Left(), 0);
        m_step.stop();
        QCoreApplication::exit(failed == 0 ? 0 : 1);
    }

    static constexpr seconds RampTime{4};

    SoakOptions const m_options;
    QString const m_folder;
    World m_world;
    TovScope m_window{nullptr, false, false};
    BlockWatch m_watch;
    SoakAccounts m_accounts;
    SoakClicks m_clicks{m_window, m_watch};
    SoakDeaths m_deaths{m_window, m_world, m_accounts, m_clicks, m_watch};
    QTimer m_step;
    Phase m_phase = Phase::Opening;
    Clock::time_point m_phaseSince = Clock::now(), m_due, m_judged, m_begin, m_nextLook, m_nextMinute;
    bool m_asked = false, m_records = false;
    SessionState m_stopped = SessionStateDisconnected; // which Stop was clicked in
    double m_rate = 0, m_capacity = 0, m_fastest = 0;
    std::int64_t m_arrived = -1, m_lost = 0;
    std::uint64_t m_sent = 0, m_leftOut = 0;
    long long m_files = 0, m_rows = 0, m_holes = 0;
    std::vector<std::pair<Clock::time_point, std::size_t>> m_memory;
    std::size_t m_most = 0;
    std::clock_t m_processor = std::clock();
    Clock::time_point m_processorAt = Clock::now();
};

} // namespace

int main(int argc, char **argv)
{
    if (argc == 4 && QString::fromLocal8Bit(argv[1]) == QLatin1String("--world"))
        return RunWorld(QString::fromLocal8Bit(argv[2]), QString::fromLocal8Bit(argv[3]));
    QTemporaryDir const home;
    setenv("XDG_CONFIG_HOME", home.path().toUtf8().constData(), 1);
    setenv("TOV_CAMERA_INTERFACES", "gige", 1);
    setenv("QT_QPA_PLATFORM", "offscreen", 0);
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    WatchedApplication application(argc, argv);
    SoakOptions const options = ParseSoakOptions(application);
    QTemporaryDir const folder((options.folder.isEmpty() ? QDir::tempPath() : options.folder) +
                               QStringLiteral("/tovscope-soak-XXXXXX"));
    QSettings settings(QStringLiteral("Velmor"), QStringLiteral("TovScope"));
    settings.setValue(QStringLiteral("Camera/Reconnect"), true);
    settings.setValue(QStringLiteral("Camera/ResumeRecording"), true);
    settings.sync();
    return Soak(options, folder.path()).Run();
}
