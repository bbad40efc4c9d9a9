// What the operator learns about a recording: while it runs, for how long it has, what was saved, what failed and why,
// and the room that is left; afterwards its ledger, until the next one starts. It is on the notice board; the signal is
// for those who show it in another way.
//
// Threads: the GUI thread, which makes it; Failed, SetCompanionFailure and SetFreeBytes from the recording thread
// as well.
#pragma once

#include "noticeboard.h"
#include "recordingledger.h"

#include <QObject>
#include <QString>
#include <QTimer>

#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <utility>
#include <vector>

// Why a frame was not saved, in words for the operator.
struct RecordingFailure
{
    QString reason;
    QString file;          // the one that could not be written; empty where another one would have failed as well
    bool isOfDisk = false; // which has refused
};

class RecordingReport : public QObject
{
    Q_OBJECT
public:
    static constexpr std::chrono::milliseconds Period{500};

    RecordingReport();

    // `soFar` gives what is known of the ledger meanwhile; it is called on the GUI thread until End or Forget.
    void Begin(bool snap, std::function<RecordingLedger()> soFar);
    void End(RecordingLedger const &ledger);
    // There was nothing to report.
    void Forget();

    // That many more frames have failed; 0 for what went wrong at the end without costing a frame. True for a new
    // reason, which is shown at once.
    bool Failed(std::int64_t frames, RecordingFailure const &failure);
    // Why the files beside the recording are not whole; empty while they are. Shown with the next look.
    void SetCompanionFailure(QString const &why);
    // The same, after the end.
    void ShowCompanionFailure(QString const &why);
    // Of the folder; -1 where it is not known.
    void SetFreeBytes(std::int64_t bytes);

    // As of the last change.
    bool IsRunning() const;
    RecordingLedger const &GetLedger() const;
    // What failed and why, one sentence; empty when nothing did.
    QString GetFailures() const;
    // The same, each reason with its frames.
    std::vector<std::pair<QString, std::int64_t>> GetReasons() const;
    bool IsPlaceRefused() const; // another folder or name may help

signals:
    void changed();

private:
    // Of one reason.
    struct Failures
    {
        RecordingFailure failure; // the first
        std::int64_t frames;
    };

    void Look();
    void TakeFailures();
    void Reconcile();
    QStringList Parts() const;
    QString Text() const;
    NoticeLevel Level() const;
    void Tell();

    std::mutex m_mutex; // guards the three below; alone, for a few frames' worth of failures
    std::vector<Failures> m_noted;
    std::int64_t m_notedFree = -1; // bytes
    QString m_notedCompanions;

    // GUI thread.
    QTimer m_timer;
    bool m_running = false;
    bool m_snap = false;
    std::chrono::steady_clock::time_point m_begin;
    std::chrono::seconds m_elapsed{0};
    std::function<RecordingLedger()> m_soFar;
    RecordingLedger m_ledger;
    std::vector<Failures> m_failures;
    std::int64_t m_free = -1;
    QString m_companions; // why they are not whole
};
