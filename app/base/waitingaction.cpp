#include "waitingaction.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QMetaObject>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <system_error>
#include <thread>

using std::chrono::duration_cast;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

struct WaitingAction::Call
{
    std::mutex mutex; // guards the two below; alone
    bool done = false;
    QEventLoop *loop = nullptr; // runs until the call is done
    std::condition_variable isDone;

    // The worker's last word. The loop stays until it has been posted.
    void Finish()
    {
        std::lock_guard const lock(mutex);
        done = true;
        if (loop)
            QMetaObject::invokeMethod(loop, &QEventLoop::quit, Qt::QueuedConnection);
        isDone.notify_all();
    }
    bool IsDone()
    {
        std::lock_guard const lock(mutex);
        return done;
    }
    bool WaitWithout(milliseconds most)
    {
        std::unique_lock lock(mutex);
        return isDone.wait_for(lock, most, [this] { return done; });
    }
};

WaitingAction::Times WaitingAction::s_times;
WaitingAction *WaitingAction::s_current = nullptr;

WaitingAction::WaitingAction(WaitingView &view, std::function<void()> cancel,
                             std::optional<std::chrono::milliseconds> limit)
    : m_view(view),
      m_cancel(std::move(cancel)),
      m_limit(limit),
      m_outer(s_current)
{
    if (!m_outer) {
        s_current = this;
        return;
    }
    m_outer->m_within.push_back(this);
    if (m_outer->IsGivenUp())
        m_cancel();
}

WaitingAction::~WaitingAction()
{
    if (m_outer)
        std::erase(m_outer->m_within, this);
    End();
}

void WaitingAction::End()
{
    if (s_current != this)
        return;
    s_current = nullptr;
    m_view.Close();
    for (auto const &[context, call] : std::exchange(m_afterwards, {})) {
        if (context)
            call();
    }
}

void WaitingAction::Cancel()
{
    m_cancelled = true;
    m_overdue = false; // the operator needs no telling
    m_cancel();
    for (WaitingAction const *const inner : m_within)
        inner->m_cancel();
}

void WaitingAction::OutlastEventLoops()
{
    m_outlasts = true;
}

bool WaitingAction::IsGivenUp() const
{
    return m_cancelled;
}

bool WaitingAction::IsOverdue() const
{
    return m_overdue;
}

WaitingAction *WaitingAction::Current()
{
    return s_current;
}

bool WaitingAction::IsCurrentGivenUp()
{
    return s_current && s_current->IsGivenUp();
}

bool WaitingAction::IsWaiting()
{
    return s_current && s_current->m_waiting;
}

void WaitingAction::WhenOver(QObject *context, std::function<void()> call)
{
    if (s_current)
        s_current->m_afterwards.emplace_back(context, std::move(call));
    else
        call();
}

WaitingAction *WaitingAction::ForCall()
{
    bool const here =
        QCoreApplication::instance() && QThread::currentThread() == QCoreApplication::instance()->thread();
    return here && s_current && !s_current->m_waiting ? s_current : nullptr;
}

Awaited WaitingAction::GetAwaited() const
{
    return m_awaited;
}

void WaitingAction::Wait(std::function<void()> const &call, Awaited awaited)
{
    m_awaited = awaited;
    Call state;
    std::thread worker;
    try {
        worker = std::thread([&] {
            call();
            state.Finish();
        });
    } catch (std::system_error const &) { // no thread is to be had
        call();
        return;
    }
    auto const begin = steady_clock::now();
    bool const quick = state.WaitWithout(std::max(m_quiet, s_times.leastQuiet));
    m_quiet -= std::min(m_quiet, duration_cast<milliseconds>(steady_clock::now() - begin));
    if (!quick)
        WaitWithEvents(state);
    worker.join();
    if (quick && steady_clock::now() - m_eventsAt > s_times.quiet)
        Breathe();
}

// Many quick calls make a long one, too: what there is to paint is painted.
void WaitingAction::Breathe()
{
    m_waiting = true;
    m_view.Enter();
    QEventLoop().processEvents(QEventLoop::ExcludeUserInputEvents);
    m_view.Leave();
    m_waiting = false;
    m_eventsAt = steady_clock::now();
}

void WaitingAction::WaitWithEvents(Call &call)
{
    m_waiting = true;
    m_view.Enter();
    // Input stays where it is: should it be over soon, nothing that was typed is lost.
    milliseconds const unseen = s_times.unseen - duration_cast<milliseconds>(steady_clock::now() - m_start);
    bool ended = !m_shown && RunEvents(call, false, std::max(unseen, milliseconds(0)));
    if (!ended) {
        if (!std::exchange(m_shown, true))
            m_view.Show();
        ended = RunEvents(call, true, {});
    }
    m_view.Leave();
    m_waiting = false;
    m_eventsAt = steady_clock::now();
}

// True once the call has returned, or the application is ending; false when the time is up.
bool WaitingAction::RunEvents(Call &call, bool input, std::optional<milliseconds> most)
{
    QEventLoop loop;
    bool late = false;
    QTimer end, limit;
    end.setSingleShot(true);
    limit.setSingleShot(true);
    QObject::connect(&end, &QTimer::timeout, &loop, [&] {
        late = true;
        loop.quit();
    });
    QObject::connect(&limit, &QTimer::timeout, &loop, [this] {
        if (m_cancelled)
            return;
        Cancel();
        m_overdue = true;
    });
    if (most)
        end.start(*most);
    if (m_limit) {
        milliseconds const left = *m_limit - duration_cast<milliseconds>(steady_clock::now() - m_start);
        limit.start(std::max(left, milliseconds(0)));
    }
    {
        std::lock_guard const lock(call.mutex);
        if (call.done)
            return true;
        call.loop = &loop;
    }
    loop.exec(input ? QEventLoop::AllEvents : QEventLoop::ExcludeUserInputEvents);
    if (!call.IsDone() && !late) {
        // The application ends, and event loops with it: without one the windows are painted, and the limit holds.
        if (!m_outlasts)
            Cancel();
        while (!call.IsDone())
            loop.processEvents(QEventLoop::ExcludeUserInputEvents | QEventLoop::WaitForMoreEvents);
    }
    std::lock_guard const lock(call.mutex);
    call.loop = nullptr;
    return call.done;
}
