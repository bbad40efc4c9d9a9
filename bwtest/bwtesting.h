// Finds the fastest clock at which frames still arrive whole: a bisection over the range of the camera's pixel clock
// (higher is faster) or line time (lower is faster). Each probe sets a value, reads it back, lets the camera run for a
// while and judges it by the grabber's counters. At the end the operator chooses between the old value and the best.
//
// The camera is waited for, as by any action of the operator: then nothing of the dialog reacts but the way to give up,
// with which the camera counts as one that fails.
//
// Modal; the construction starts the test and already processes events, so the operator may have left the dialog, and
// the session may be gone, before exec() is called: exec() then returns at once, or shows what has happened until then.
// The session may go at any time while the dialog is open. GUI thread only.
#pragma once

#include "ui_formbwtesting.h"

#include <QColor>
#include <QDialog>
#include <QElapsedTimer>
#include <QPointer>
#include <QString>

#include <cstdint>
#include <memory>
#include <string>

class QMessageBox;
class QTimer;
class Session;
class TovComponent;
namespace TovCam {
class Device;
class ParamArray;
} // namespace TovCam

class CBWTesting : public QDialog, private Ui_FormBWTesting
{
    Q_OBJECT
public:
    // How long the test waits for what, in milliseconds.
    struct Waits
    {
        int poll = 16;         // between two looks at the session's state, of which there are at most 150
        int settleStep = 100;  // seven of them after a value was set
        int retry = 200;       // after a value that the camera did not take
        int probe = 3000;      // the acquisition that a value is judged by
        int restoreStep = 200; // seven of them after the last good value was set again
        int applyStep = 100;   // seven of them after the operator's choice was set
    };
    static Waits s_waits; // tests shorten them

    // The session is not owned.
    CBWTesting(Session *session, QWidget *parent, Qt::WindowFlags flags);
    ~CBWTesting() override;

    int exec() override;
    void done(int result) override;
    // Esc and the window manager's close act like the button.
    void reject() override;

public slots:
    void slCheckQuality(); // judges the probe
    void slAccept();       // the button

private:
    // Each returns false, with m_error set, when the camera cannot be tested.
    bool init();
    bool ReadCamera();
    bool ChooseNodes(); // by the camera's family
    bool ReadRange();   // of the clock, and its value

    void checkQuality(); // prepares and starts one probe
    void finalMessage();
    void stopAll();
    bool waitForStop();
    bool waitForStart();

    void Append(QString const &text);
    void Append(QString const &text, QColor const &color);
    void FollowLog();
    bool WaitForState(std::int64_t state, char const *good, char const *timeout);
    // Sleeps, and processes events often enough for the window. False when the test was stopped or the camera lost
    // meanwhile.
    bool Pause(int milliseconds);
    bool Settle(int step); // seven pauses
    bool ProcessEvents();
    std::int32_t SetClock(std::int64_t value); // the session is there
    bool SetAndReadBack();                     // one attempt at the current value; false also when the test was stopped
    void Pass(std::int64_t acquired, double speed);
    void Fail(std::int64_t incomplete, std::int64_t acquired, double speed);
    int Ask(QMessageBox &box); // the number of the button
    void DismissQuestion();
    void SessionGone();
    bool IsPixelClock() const;
    void ReadCounters(std::int64_t *incomplete, std::int64_t *acquired);

    QPointer<Session> m_session;       // null once it has gone, with the three below
    TovComponent *m_grabber = nullptr; // the session's
    TovCam::Device *m_device = nullptr;
    TovCam::ParamArray *m_params = nullptr; // the device's
    std::unique_ptr<QTimer> m_timer;        // of the probe; made when the camera can be tested
    QPointer<QMessageBox> m_question;       // the open one
    std::int64_t m_family = 0;
    std::int64_t m_incompleteAtStart = 0;
    std::int64_t m_acquiredAtStart = 0;
    std::string m_clockName;    // of the node that is set
    std::string m_readBackName; // of the node that is read back
    std::int64_t m_savedValue = 0;
    std::int64_t m_low = 32;
    std::int64_t m_high = 120;
    std::int64_t m_current = 100;
    std::int64_t m_halfRange = 10;
    std::int64_t m_lastGood = 100;
    QColor m_goodColor = Qt::darkGreen;
    QColor m_normalColor = Qt::black;
    std::int32_t m_repeatCount = 0; // probes repeated because no frame came
    bool m_running = false;
    bool m_sessionGone = false; // there was one
    bool m_done = false;        // the operator has left
    bool m_follows = true;      // the log is at its end
    QElapsedTimer m_elapsed;
    QString m_error; // why init failed
};
