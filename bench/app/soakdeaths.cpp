#include "soakdeaths.h"

#include "blockwatch.h"
#include "guimanager.h"
#include "processfigures.h"
#include "soakaccounts.h"
#include "soakworld.h"
#include "tovscope.h"

#include <QApplication>
#include <QMessageBox>
#include <QPushButton>

#include <algorithm>
#include <cstdio>
#include <iterator>

using namespace std::chrono_literals;

namespace {

constexpr auto Patience = 60s;
constexpr auto Break = 2min; // between two recordings that the operator ends

struct Kind
{
    char const *name;
    char const *begin; // to the camera's process
    char const *end;   // nullptr: it is back by itself
};
constexpr Kind Kinds[] = {
    {"pulled", "die", "return"},
    {"restarted", "restart", nullptr},
    {"silent", "silence", "speak"},
    {"pulled, with factory settings", "die", "return reset"},
    {"restarted with factory settings", "restart reset", nullptr},
};

Kind const &KindOf(int round)
{
    return Kinds[static_cast<std::size_t>(round) % std::size(Kinds)];
}

} // namespace

SoakDeaths::SoakDeaths(TovScope &window, World &world, SoakAccounts &accounts, SoakClicks &clicks, BlockWatch &watch)
    : m_window(window),
      m_world(world),
      m_accounts(accounts),
      m_clicks(clicks),
      m_watch(watch)
{
}

void SoakDeaths::Begin(int deaths, std::chrono::seconds time)
{
    auto const now = Clock::now();
    auto const useful = time - time / 20;
    for (int i = deaths; i-- > 0;)
        m_due.push_back(now + useful * (2 * i + 1) / (2 * deaths));
    for (auto at = useful - Break / 2; at > 0s; at -= Break)
        m_breaks.push_back(now + at);
}

double SoakDeaths::Since(Clock::time_point then) const
{
    return std::chrono::duration<double>(Clock::now() - then).count();
}

bool SoakDeaths::StateIs(int state) const
{
    Session const *const session = m_window.GetGuiManager().GetSession();
    return session && session->GetState() == state;
}

void SoakDeaths::Go(Stage stage, char const *deed)
{
    m_stage = stage;
    m_since = Clock::now();
    m_watch.SetDeed(deed);
}

void SoakDeaths::Fault(char const *what)
{
    ++m_faults;
    std::printf("death %d, %s: %s\n", m_round + 1, KindOf(m_round).name, what);
}

void SoakDeaths::Step()
{
    LookAtMessage();
    bool const hasStopped = !m_lost || !m_accounts.IsRunning();
    if (m_hasMark && hasStopped && !m_compared) {
        m_compared = true;
        std::string const report = m_accounts.Compare(m_sent, m_leftOut);
        if (!report.empty())
            std::printf("death %d, %s:%s\n", m_round + 1, KindOf(m_round).name, report.c_str());
    }
    bool const late = m_stage != Stage::Running && Since(m_since) > std::chrono::duration<double>(Patience).count();
    auto const now = Clock::now();
    switch (m_stage) {
    case Stage::Running:
        if (!m_due.empty() && now >= m_due.back() && StateIs(SessionStateCapturing)) {
            m_due.pop_back();
            Die();
        } else if (!m_breaks.empty() && now >= m_breaks.back() && StateIs(SessionStateCapturing)) {
            m_breaks.pop_back();
            Go(Stage::Resting, "end of the recording");
            m_clicks.ClickAction("actionRecord");
        }
        break;
    case Stage::Dying:
        Told();
        break;
    case Stage::Away:
        if (now >= m_return)
            Return();
        break;
    case Stage::Returning:
        if (StateIs(SessionStateCapturing) && !m_lost && m_compared) {
            m_seconds.push_back(Since(m_returned));
            ++m_done;
            ProcessFigures const figures = LookAtProcess();
            std::printf("death %d, %s: back after %.1f s; %zu KB of its own, heap in use %zu\n", m_round + 1,
                        KindOf(m_round).name, m_seconds.back(), figures.own, figures.inUse);
            Go(Stage::Running, "back");
        }
        break;
    case Stage::Resting:
        if (StateIs(SessionStateAcquisition) && Since(m_since) > 1) {
            Go(Stage::Resting, "a new recording");
            m_clicks.ClickAction("actionRecord");
        } else if (StateIs(SessionStateCapturing) && Since(m_since) > 1) {
            ++m_breaksDone;
            Go(Stage::Running, "a new recording goes on");
        }
        break;
    }
    if (late && m_stage != Stage::Running) {
        Fault(m_stage == Stage::Dying     ? "the loss was not told"
              : m_stage == Stage::Resting ? "the recording did not change"
                                          : "it did not go on");
        if (m_stage == Stage::Dying)
            Return();
        else
            Go(Stage::Running, "after a fault");
    }
}

void SoakDeaths::Die()
{
    ++m_round;
    m_lost = m_window.GetGuiManager().GetSession();
    m_compared = m_hasMark = false;
    Go(Stage::Dying, KindOf(m_round).name);
    m_world.Ask(QString::fromLatin1(KindOf(m_round).begin), [this](QStringList const &words) {
        if (words.size() < 3)
            return;
        m_sent = words[1].toULongLong();
        m_leftOut = words[2].toULongLong();
        m_hasMark = true;
        m_returned = Clock::now(); // of those that are back by themselves
    });
}

// The message is there, or has been.
void SoakDeaths::Told()
{
    bool const isTold = qobject_cast<QMessageBox *>(QApplication::activeModalWidget()) || !m_lost;
    if (!isTold || !m_hasMark)
        return;
    m_return = Clock::now() + std::chrono::milliseconds(m_random() % 4000);
    Go(KindOf(m_round).end ? Stage::Away : Stage::Returning, "lost");
}

void SoakDeaths::Return()
{
    if (KindOf(m_round).end) {
        m_world.Ask(QString::fromLatin1(KindOf(m_round).end));
        m_returned = Clock::now();
    }
    Go(Stage::Returning, "return");
}

// Every other one is closed by somebody.
void SoakDeaths::LookAtMessage()
{
    auto *const box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
    if (box && m_round % 2 == 0)
        SoakClicks::Click(box->button(QMessageBox::Ok));
}

std::string SoakDeaths::Line() const
{
    std::vector<double> all = m_seconds;
    std::sort(all.begin(), all.end());
    char text[300];
    std::snprintf(text, sizeof text,
                  "%d deaths, %d returns; from the return, or its own restart, to the recording: median %.1f s, worst "
                  "%.1f s; %d recordings ended and begun anew; %d faults",
                  m_round + 1, m_done, all.empty() ? 0.0 : all[all.size() / 2], all.empty() ? 0.0 : all.back(),
                  m_breaksDone, m_faults);
    return text;
}
