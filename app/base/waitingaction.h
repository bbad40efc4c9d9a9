// An action of the operator that has to wait for a camera or a disk, while the window stays alive.
//
// What may take long is called through WaitFor: on a thread of its own, and the GUI thread goes on behind the call once
// it has returned. So an action reads, and acts, in the same order as without a wait. For the first moments the GUI
// thread waits as it would in the call itself; with a camera that answers, nothing shows that there was another thread.
// After that it runs an event loop, in which the windows are painted and can be moved, and no other action is taken:
// - the view takes the operator's input from all windows but its own;
// - what is triggered all the same asks IsWaiting, and does nothing;
// - what must not be lost is put off by WhenOver until the action is over: the report of a lost camera, the closing of
//   the window, a state machine's start, the end of a recording by its own rule.
//
// GUI thread, all of it. Outside of an action, on other threads, and where the event loop of a wait leads to another
// call, WaitFor is the call and nothing else.
#pragma once

#include <QPointer>

#include <chrono>
#include <exception>
#include <functional>
#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

// What is to be seen of it.
class WaitingView
{
public:
    virtual void Enter() = 0; // an event loop begins: from now on the input is the view's
    virtual void Show() = 0;  // it has lasted long enough to be told; once an action
    virtual void Leave() = 0; // the event loop has ended
    virtual void Close() = 0; // the action is over

protected:
    ~WaitingView() = default;
};

// Thrown by what cannot be finished because the action was given up.
class WaitingGivenUp : public std::exception
{
public:
    char const *what() const noexcept override
    {
        return "given up";
    }
};

enum class IfGivenUp { LeaveOut, CallAllTheSame };
// Who is to answer. A disk cannot be given up: what it has been told to write is under way.
enum class Awaited { Camera, Disk };

class WaitingAction
{
public:
    struct Times
    {
        std::chrono::milliseconds quiet{100}; // without events, all calls of an action together; then between any two
        std::chrono::milliseconds leastQuiet{10};
        std::chrono::milliseconds unseen{500};
        std::chrono::milliseconds limit{61000}; // of the action; the camera library's own, for the opening, comes first
    };
    static Times s_times; // tests change them

    // `cancel` asks the call under way to return, and returns at once. At the limit the action is given up; without one
    // only by the operator, for calls that end by themselves. Within another action this one shows nothing, and is
    // given up with it.
    WaitingAction(WaitingView &view, std::function<void()> cancel,
                  std::optional<std::chrono::milliseconds> limit = s_times.limit);
    ~WaitingAction();
    WaitingAction(WaitingAction const &) = delete;
    WaitingAction &operator=(WaitingAction const &) = delete;

    // The calls that follow are not waited for any more. Not while it waits.
    void End();
    // By the operator. The calls that follow are left out.
    void Cancel();
    // The end of the application does not cancel it; it is what the application ends with.
    void OutlastEventLoops();
    bool IsGivenUp() const; // cancelled or overdue
    bool IsOverdue() const; // has run into its limit

    static WaitingAction *Current();
    // False where there is none.
    static bool IsCurrentGivenUp();
    // An event loop of a wait runs.
    static bool IsWaiting();
    // Whom the call that is waited for, or was last, is for.
    Awaited GetAwaited() const;
    // At the end of the current action, unless the object has gone by then; at once where there is none.
    static void WhenOver(QObject *context, std::function<void()> call);

    // For WaitFor: the action that a call belongs to, and the wait. `call` does not throw.
    static WaitingAction *ForCall();
    void Wait(std::function<void()> const &call, Awaited awaited);

private:
    struct Call;
    bool RunEvents(Call &call, bool input, std::optional<std::chrono::milliseconds> most);
    void WaitWithEvents(Call &call);
    void Breathe();

    static WaitingAction *s_current;

    WaitingView &m_view;
    std::function<void()> m_cancel;
    std::optional<std::chrono::milliseconds> const m_limit;
    WaitingAction *const m_outer;          // within which this one is
    std::vector<WaitingAction *> m_within; // this one, the latest last
    std::chrono::steady_clock::time_point const m_start = std::chrono::steady_clock::now();
    std::chrono::milliseconds m_quiet = s_times.quiet;          // what is left of it
    std::chrono::steady_clock::time_point m_eventsAt = m_start; // were handled last
    bool m_waiting = false;
    bool m_shown = false;
    bool m_cancelled = false;
    bool m_overdue = false;
    bool m_outlasts = false;
    Awaited m_awaited = Awaited::Camera;
    std::vector<std::pair<QPointer<QObject>, std::function<void()>>> m_afterwards;
};

// The call's result, or what it throws. An empty result without the call where the action has been given up.
template<typename F>
auto WaitFor(F const &call, IfGivenUp ifGivenUp = IfGivenUp::LeaveOut, Awaited awaited = Awaited::Camera)
    -> std::invoke_result_t<F const &>
{
    using Result = std::invoke_result_t<F const &>;
    WaitingAction *const action = WaitingAction::ForCall();
    if (!action)
        return call();
    std::exception_ptr thrown;
    auto const guarded = [&thrown](auto const &work) {
        try {
            work();
        } catch (...) {
            thrown = std::current_exception();
        }
    };
    bool const leftOut = action->IsGivenUp() && ifGivenUp == IfGivenUp::LeaveOut;
    if constexpr (std::is_void_v<Result>) {
        if (!leftOut)
            action->Wait([&] { guarded(call); }, awaited);
        if (thrown)
            std::rethrow_exception(thrown);
    } else {
        Result result{};
        if (!leftOut)
            action->Wait([&] { guarded([&] { result = call(); }); }, awaited);
        if (thrown)
            std::rethrow_exception(thrown);
        return result;
    }
}
