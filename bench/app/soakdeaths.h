// The deaths of the camera, and its returns: pulled, restarted, silent, with its settings and with those of the
// factory; with somebody there to close the message and without. And recordings that the operator ends and begins anew.
// One at a time, spread over the run. GUI thread.
#pragma once

#include "session.h"
#include "soakclicks.h"

#include <QPointer>

#include <chrono>
#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <vector>

class BlockWatch;
class SoakAccounts;
class TovScope;
class World;

class SoakDeaths
{
public:
    using Clock = std::chrono::steady_clock;

    SoakDeaths(TovScope &window, World &world, SoakAccounts &accounts, SoakClicks &clicks, BlockWatch &watch);

    // From now on, that many in that time, none in its last twentieth.
    void Begin(int deaths, std::chrono::seconds time);
    // To be called 50 times a second.
    void Step();
    bool IsQuiet() const // no death or new recording is under way
    {
        return m_stage == Stage::Running;
    }
    std::string Line() const;
    int Faults() const
    {
        return m_faults;
    }
    int Left() const
    {
        return static_cast<int>(m_due.size());
    }

private:
    enum class Stage { Running, Dying, Away, Returning, Resting };

    void Die();
    void Return();
    void Told();
    void LookAtMessage();
    bool StateIs(int state) const;
    void Go(Stage stage, char const *deed);
    void Fault(char const *what);
    double Since(Clock::time_point then) const;

    TovScope &m_window;
    World &m_world;
    SoakAccounts &m_accounts;
    SoakClicks &m_clicks;
    BlockWatch &m_watch;
    std::mt19937 m_random{5};
    std::vector<Clock::time_point> m_due, m_breaks; // the next last
    Stage m_stage = Stage::Running;
    Clock::time_point m_since;  // of the stage
    Clock::time_point m_return; // is due
    Clock::time_point m_returned;
    QPointer<Session> m_lost; // null once it has gone
    int m_round = -1, m_done = 0, m_faults = 0, m_breaksDone = 0;
    bool m_compared = true, m_hasMark = false;
    std::uint64_t m_sent = 0, m_leftOut = 0; // the mark
    std::vector<double> m_seconds;           // from the return to the recording
};
