// The window of an action that waits: what is waited for, how far it is, when it will be given up, and a way to give it
// up at once. It comes up only where the action takes long; until then nothing of it exists. GUI thread only.
#pragma once

#include "waitingaction.h"

#include <QElapsedTimer>
#include <QObject>
#include <QPointer>
#include <QString>

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>

class QDialog;
class QLabel;
class QProgressBar;
class QWidget;

// Not modal in Qt's sense, in which the window's own close button would do nothing: closing the window is one of the
// ways to give up. Instead it filters the application's events while an event loop of the action runs, and keeps the
// operator's input from every window but its own, and from Escape, which is Cancel everywhere. A message box that comes
// up meanwhile gets its input as always.
class WaitingDialog : public QObject, public WaitingView
{
public:
    struct Step
    {
        QString text;
        std::uint64_t done = 0, total = 0; // 0: there is no knowing
        bool lasts = false;                // cannot be given up; what comes behind it can
    };
    // `what` and `step` are asked for while it is shown: plain text, one line each. Without `what` it only keeps the
    // input away, and never shows.
    WaitingDialog(QWidget *window, std::function<QString()> what, std::function<Step()> step,
                  std::optional<std::chrono::seconds> limit);
    ~WaitingDialog() override;

    void Enter() override;
    void Show() override;
    void Leave() override;
    void Close() override;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    class Window;

    void Cancel();
    void Tell();
    bool MayReach(QObject const *watched) const;

    QWidget *m_window;
    std::function<QString()> m_what;
    std::function<Step()> m_step;
    std::optional<std::chrono::seconds> m_limit;
    QElapsedTimer m_since;
    QPointer<QWidget> m_modalBefore; // when the event loop began
    QPointer<Window> m_dialog;       // goes with the window or dialog that it is over
};
