// The whole program before cameras that want to harm it: none ends it, blocks its window, or passes frames as complete
// that are not; after each, a good camera streams. In a network namespace of its own.
//
// TOV_HOSTILE is a part of the names of the scenarios that are tried; without it those are left out that are slow.
#include "displayview.h"
#include "guimanager.h"
#include "params.h"
#include "session.h"
#include "tovscope.h"
#include "wait.h"
#include "waitingaction.h"
#include "wireclients.h"

#include <QApplication>
#include <QMessageBox>
#include <QTextDocument>
#include <QTimer>
#include <QTreeView>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <future>
#include <sstream>

#include <unistd.h>

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

// Features of the camera and their values, set before it is found; behind "then", once the first frames have come. What
// stands first in a row belongs in front of the last word of each.
//   "!": no whole frame can come
//   "+": whole frames come in spite of it
//   "~": left out of the suite, for it takes long or resembles others
constexpr char const *Scenarios[][2] = {
    {"", "+ WirePacketLoss=8; ~ + SimPacketLoss=8; WirePacketLoss=3 WireIgnoreResend=1; "
         "~ + WireLostPackets=4,last; ! WireLostPackets=3 WireIgnoreResend=1; "
         "! WireTruncate=100 WireIgnoreResend=1; ~ WireTruncate=3 WireIgnoreResend=1; "
         "! WireWrongLength=100 WireIgnoreResend=1; ~ WireWrongPacketId=30; "
         "! WireWrongPacketId=100 WireIgnoreResend=1; ~ WireWrongBlockId=30; ~ WireWrongBlockId=100; "
         "+ WireDuplicate=100; + WireReorder=20 WireReorderDistance=9; ~ + WireDelay=50; + SimMissingEvery=3; "
         "! SimIncompleteEvery=1; ! WireSilence=Stream; + WireAnswerLoss=2; WireAnswerWrongId=10; "
         "WireAnswerWrongLength=10; + WireAnswerDelay=5; + then WireSilence=Stream; ~ WireSilence=All; "
         "~ + then WireSilence=All; ~ + then WireDie=1"},
    {"WireStreamForgery=",
     "+ HugePacketIds; HugeTrailer; Backwards; ! EarlyTrailer; ! TrailerLines; ! LeaderHuge; ! LeaderEmpty; "
     "! LeaderTall; ! LeaderFormat; ~ ! LeaderPadding; ~ LeaderTypes; ! LeaderShort; ~ LeaderTwice; "
     "+ Timestamps; ! PartsAbsurd; ! PartsOutside; ! PartsOverlap; ~ Formats; + StrangerPort; + StrangerHost; "
     "BlocksJump; ~ BlocksRepeat; BlocksBackwards; ! BlocksZero; ! BlocksMixed; BlocksAhead; ! IdsMixed; "
     "Flood; + Shards; Giants; ! Errors; ! Crumbs; ! ChunkLengths; ! AllInAbsurd; Mutated; ResendsLie; "
     "ResendsFlood; + then Mutated; ~ + then PartsAbsurd"},
    {"WireAnswerForgery=",
     "~ Empty; ~ Cut; Oversized; Longer; ~ Shorter; ~ WrongCode; ~ WrongAddress; + Duplicate; + Stale; "
     "~ OtherPort; Pending; + PendingFlood; Busy; ~ BadStatus; + CutPending; + Events; RandomBytes; "
     "~ RandomContent; ~ + then Pending; + then RandomContent; ~ + then Empty"},
    {"WireRegisterLie=",
     "PayloadZero; ~ PayloadTiny; PayloadHuge; WidthZero; WidthHuge; SizeLarge; SizeHuge; FormatUnknown; "
     "PacketSizeZero; PacketSizeHuge; ~ StreamPort; ~ SourcePort; ~ Destination; PrivilegeLost; ~ OtherController; "
     "+ HeartbeatZero; + HeartbeatHuge; + TicksZero; ~ + TicksHuge; NoCapabilities; AllCapabilities; "
     "~ NoChannels; Zeros; ~ Ones; Random; + Names; + then PrivilegeLost; + then Random"},
    {"WireDescription=",
     "! Truncated; ! NotXml; ! Empty; ! Entities; ! Nested; ! Circle; + BadZip; + ZipBomb; ! HugeUrl; "
     "! FileUrl; ! OutsideUrl; + ChangesOnce; Divisions; Shifts; NotNumbers; DeepFormula; DeepNodes; "
     "Selectors; ManyFeatures; ~ ManyEntries; HugeTexts; + Markup; HugeRegisters; Restless; WrongTypes"},
};

// How long a thread was kept from what it does every few milliseconds.
class Gap
{
public:
    void Tick()
    {
        auto const now = Clock::now();
        m_longest = std::max(m_longest, now - m_last);
        m_last = now;
    }
    // In milliseconds.
    long Take()
    {
        Tick();
        return std::exchange(m_longest, Clock::duration{}) / 1ms;
    }

private:
    Clock::time_point m_last = Clock::now();
    Clock::duration m_longest{0};
};

// The window's thread, and beside it one that does nothing: what keeps that one too is the machine's.
class Watch
{
public:
    Watch()
    {
        QObject::connect(&m_timer, &QTimer::timeout, [this] {
            m_gui.Tick();
            Answer();
            GiveUp();
        });
        m_timer.start(5);
    }
    ~Watch()
    {
        m_over = true;
    }

    struct Gaps
    {
        long gui = 0, machine = 0;

        bool IsBlocked() const
        {
            return gui > 1000 + 4 * machine;
        }
    };
    Gaps Take()
    {
        std::lock_guard const lock(m_mutex);
        return {m_gui.Take(), m_machine.Take()};
    }
    Milliseconds patience{0}; // as long as an operator waits for a camera
    // What the program has asked or told, and what of it would be taken for HTML.
    QString messages, markup;

private:
    void Answer()
    {
        auto *const box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
        if (!box)
            return;
        messages += box->text().simplified() + QLatin1String("; ");
        if (box->textFormat() != Qt::PlainText && Qt::mightBeRichText(box->text()))
            markup += box->text();
        box->reject();
    }
    void GiveUp()
    {
        WaitingAction *const action = WaitingAction::Current();
        if (action && !std::exchange(m_wasWaiting, true))
            m_waitingSince = Clock::now();
        m_wasWaiting = action;
        if (action && Clock::now() - m_waitingSince > patience && !action->IsGivenUp())
            action->Cancel();
    }

    Gap m_gui;
    std::mutex m_mutex;
    Gap m_machine; // m_mutex
    std::atomic<bool> m_over{false};
    bool m_wasWaiting = false;
    Clock::time_point m_waitingSince;
    QTimer m_timer;
    std::future<void> m_witness = std::async(std::launch::async, [this] {
        while (!m_over) {
            std::this_thread::sleep_for(5ms);
            std::lock_guard const lock(m_mutex);
            m_machine.Tick();
        }
    });
};

class Hostile : public testing::Test
{
protected:
    struct Result
    {
        std::string became = "not found";
        long whole = 0, incomplete = 0;
        Watch::Gaps opening, looking, streaming, closing;
        std::string wrong;
    };
    struct Settings
    {
        Features before, later;
        bool isSpoiled = false, isWhole = false, isSlow = false, isOfDescription = false;
    };

    Hostile() : m_window(nullptr, false, false), m_manager(m_window.GetGuiManager()), m_system(TovCam_GetSystem())
    {
        m_window.show();
    }
    ~Hostile() override
    {
        m_manager.cameraDisconnect();
        m_system->Release();
    }

    static std::vector<std::string> List()
    {
        std::vector<std::string> all;
        for (auto const &[feature, values] : Scenarios) {
            std::istringstream list(values);
            for (std::string scenario; std::getline(list >> std::ws, scenario, ';');)
                all.push_back(*feature ? scenario.insert(scenario.rfind(' ') + 1, feature) : scenario);
        }
        return all;
    }
    static Settings Parse(std::string const &scenario)
    {
        Settings settings;
        std::istringstream words(scenario);
        bool isLater = false;
        for (std::string word; words >> word;) {
            std::size_t const is = word.find('=');
            settings.isSpoiled = settings.isSpoiled || word == "!";
            settings.isWhole = settings.isWhole || word == "+";
            settings.isSlow = settings.isSlow || word == "~";
            isLater = isLater || word == "then";
            settings.isOfDescription = settings.isOfDescription || word.starts_with("WireDescription");
            if (is != word.npos)
                (isLater ? settings.later : settings.before).emplace_back(word.substr(0, is), word.substr(is + 1));
        }
        return settings;
    }

    long Counter(char const *name)
    {
        return m_manager.GetSession() ? IntOf(m_manager.GetSession()->GetGrabber(), name) : 0;
    }

    // A picture that is shown holds what strangers sent.
    bool ShowsStrangers()
    {
        constexpr std::size_t Run = 64;
        _TovImage *image = nullptr;
        if (!m_manager.GetSession() || !m_manager.GetSession()->GetDisplayView()->GetDisplayedImageRaw(&image))
            return false;
        std::uint8_t const *const end = image->imageData + image->imageSize;
        return std::search_n(static_cast<std::uint8_t const *>(image->imageData), end, Run, std::uint8_t{0xA5}) != end;
    }

    // False where nothing is to be streamed.
    bool Begin(char const *address, bool isPatient, Result &result)
    {
        std::future<TovCam::DeviceInfo *> found =
            std::async(std::launch::async, [&] { return m_system->FindDeviceByAddress(address, nullptr); });
        EXPECT_TRUE(Eventually([&] { return found.wait_for(0s) == std::future_status::ready; }));
        m_watch.Take();
        m_watch.patience = isPatient ? Milliseconds(Patience) : 800ms;
        if (TovCam::DeviceInfo *const info = found.get())
            m_manager.Open(info);
        bool const isOpen = m_manager.GetSession() != nullptr;
        result.became = isOpen ? "opened" : "refused";
        // The first look of the feature tree at the camera.
        EXPECT_TRUE(!isOpen || Eventually([&] {
            return m_manager.GetSession() == nullptr || m_manager.GetSession()->GetState() == SessionStateIdle;
        }));
        result.opening = m_watch.Take();
        m_watch.messages.clear();
        return isOpen;
    }
    // All features in the tree, and every value once.
    void LookAtFeatures(Result &result)
    {
        for (QTreeView *tree : m_window.findChildren<QTreeView *>()) {
            tree->expandAll();
            QModelIndexList const found =
                tree->model()->match(tree->model()->index(0, 0), Qt::DisplayRole, QStringLiteral("Hostile"));
            if (!found.isEmpty())
                tree->scrollTo(found.front(), QAbstractItemView::PositionAtTop);
        }
        TovCam::ParamArray *const nodes = m_manager.GetSession()->GetDevice()->GetCameraParameters(nullptr);
        std::future<void> const read = std::async(std::launch::async, [nodes] {
            TovCam::FeatureState state;
            for (std::uint32_t i = 0; i < nodes->GetFeatureCount(); ++i)
                nodes->ReadFeature(i, &state);
        });
        EXPECT_TRUE(Eventually([&] { return read.wait_for(0s) == std::future_status::ready; }));
        result.looking = m_watch.Take();
    }
    void Play(WireCamera &camera, Settings const &settings, Result &result)
    {
        m_manager.startAcquisition();
        bool showsStrangers = false;
        auto const sends = [&, before = camera.GetStatus().frames](std::uint64_t frames) {
            return [&, end = before + frames] {
                showsStrangers = showsStrangers || ShowsStrangers();
                return camera.GetStatus().frames >= end || !m_watch.messages.isEmpty();
            };
        };
        bool const runs = Eventually(sends(12), settings.isWhole ? 20s : 1200ms);
        result.became += !m_watch.messages.isEmpty() ? ", not started" : runs ? ", streamed" : ", silent";
        bool const isWhole = !settings.isWhole || Eventually([&] { return Counter("FramesAcquired") >= 3; }, 3s);
        if (!settings.later.empty()) {
            Set(camera, settings.later);
            (void)Eventually(sends(30), 1s);
        }
        result.whole = Counter("FramesAcquired");
        result.incomplete = Counter("FramesIncomp");
        if (!isWhole)
            result.wrong += "no whole frames; ";
        if (settings.isSpoiled && result.whole > 0)
            result.wrong += "frames pass as complete; ";
        if (showsStrangers)
            result.wrong += "shows what strangers sent; ";
        result.streaming = m_watch.Take();
    }
    void End(Settings const &settings, Result &result)
    {
        if (settings.isOfDescription && m_manager.GetSession())
            m_manager.GetSession()->SaveConfiguration(
                QString::fromStdString(testing::TempDir() + "hostile" + std::to_string(getpid()) + ".tcfg"));
        m_manager.stopAcquisitionAndCapture();
        m_manager.cameraDisconnect();
        result.closing = m_watch.Take();
    }

    Result Try(std::string const &scenario, char const *address)
    {
        m_watch.messages.clear();
        Settings const settings = Parse(scenario);
        auto const camera = Serve(Grey, address);
        MakeSmall(*camera);
        Set(*camera, {{"AcquisitionFrameRate", "120"}, {"DeviceUserID", "<b>hostile</b>"}});
        Set(*camera, settings.before);
        Result result;
        if (Begin(address, settings.isWhole, result)) {
            if (settings.isOfDescription)
                LookAtFeatures(result);
            Play(*camera, settings, result);
            End(settings, result);
        }
        if (result.opening.IsBlocked() || result.looking.IsBlocked() || result.streaming.IsBlocked() ||
            result.closing.IsBlocked())
            result.wrong += "blocks the window; ";
        if (settings.isWhole && result.whole == 0 && result.wrong.empty())
            result.wrong += "does not open; ";
        if (!m_watch.markup.isEmpty())
            result.wrong += "shows markup: " + std::exchange(m_watch.markup, {}).toStdString();
        return result;
    }

    TovScope m_window;
    GuiManager &m_manager;
    TovCam::System *m_system;
    Watch m_watch;
};

TEST_F(Hostile, CamerasNeitherEndNorBlockNorDeceiveTheWindow)
{
    char const *const wanted = std::getenv("TOV_HOSTILE");

    int tried = 0;
    auto const begin = Clock::now();
    std::printf("%-48s %-18s %6s %6s | longest gap in ms: opening, looking, streaming, closing (the machine's)\n",
                "scenario", "became", "whole", "incomp");
    for (std::string const &scenario : List()) {
        auto const since = Clock::now();
        if (wanted ? scenario.find(wanted) == scenario.npos : Parse(scenario).isSlow)
            continue;
        ++tried;
        Result result = Try(scenario, "127.0.0.1");
        if (!result.wrong.empty()) // once more, for the machine may have been busy
            result = Try(scenario, "127.0.0.1");
        QString const messages = std::exchange(m_watch.messages, {});
        Result const after = Try("+", "127.0.0.9");
        long const took = (Clock::now() - since) / 1ms;
        std::printf("%-48s %-18s %6ld %6ld | %4ld %4ld %4ld %4ld (%ld, %ld) in %ld ms %s %s\n", scenario.c_str(),
                    result.became.c_str(), result.whole, result.incomplete, result.opening.gui, result.looking.gui,
                    result.streaming.gui, result.closing.gui, result.opening.machine, result.streaming.machine, took,
                    result.wrong.c_str(), messages.left(60).toUtf8().constData());
        std::fflush(stdout);
        EXPECT_EQ(result.wrong, "") << scenario;
        EXPECT_EQ(after.wrong, "") << "a good camera after " << scenario;
    }
    EXPECT_TRUE(wanted || tried >= 60) << tried;
    std::printf("%d scenarios in %ld s\n", tried, long{(Clock::now() - begin) / 1s});
}

} // namespace
