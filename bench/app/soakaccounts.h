// What became of every frame of the soak: what the camera's process has sent against what the program tells of it, from
// its own counts: the FIFO's accounts, the places of losses, the ledgers of the recordings. GUI thread.
#pragma once

#include "imagewriter.h"
#include "lossplace.h"
#include "recordingledger.h"
#include "session.h"

#include <QPointer>

#include <cstdint>
#include <string>

class SoakAccounts
{
public:
    // Looks at the window's session, as often as one likes; a new one is followed from then on.
    void Follow(Session *session);
    // From now on; the picture stands.
    void Begin(std::uint64_t sent, std::uint64_t leftOut);
    // What the camera had sent when it was lost or stopped, once the picture stands. Returns what does not agree, as a
    // line; empty where all does. What was found stays counted. So many frames may have been sent when nobody listened
    // any more: those count as under way.
    std::string Compare(std::uint64_t sent, std::uint64_t leftOut, std::int64_t afterStop = 0);
    bool IsRunning() const // a picture runs, or its accounts have not been taken yet
    {
        return m_runs;
    }
    // So far, the picture and the recording under way included.
    std::string Line() const;
    std::string Places() const;
    std::int64_t Arrived() const
    {
        return Now().arrived;
    }
    std::int64_t Lost() const // incomplete ones included
    {
        Picture const now = Now();
        return now.missing + now.incomplete + now.dropped;
    }
    std::int64_t Saved() const
    {
        return m_ledger.saved;
    }
    int Recordings() const
    {
        return m_recordings;
    }
    std::int64_t Unaccounted() const
    {
        return m_unaccounted;
    }

private:
    struct Picture // what came of one or more
    {
        std::int64_t arrived = 0, incomplete = 0, missing = 0, dropped = 0;
        std::int64_t underWay = 0; // when it stopped: the receiver had them, whole or in part
        long lastId = 0;           // of a complete frame, of the last picture
        LossTally lost;
        void Add(Picture const &other);
    };

    void Take();
    void TakeRecording();
    Picture Read() const; // of the session, since it was opened
    Picture Since(Picture const &base) const;
    Picture Now() const;
    std::int64_t ReceiverFrames() const;
    void Miss(std::int64_t frames, char const *what, std::string &report);

    QPointer<Session> m_session;
    bool m_runs = false, m_records = false;
    Picture m_base; // of the session, when the picture before had stopped
    Picture m_all;  // of those that have stopped
    RecordingLedger m_ledger;
    int m_recordings = 0;
    std::int64_t m_unaccounted = 0;
    std::uint64_t m_sentBefore = 0, m_leftOutBefore = 0;
    Picture m_before; // at the comparison before
    std::int64_t m_failedBefore = 0;
    std::string m_faults;
};
