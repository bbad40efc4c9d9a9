// What the operator is told without being interrupted: one line per topic, which the main window shows in its status
// bar and, whole, in the tooltip there. A topic's line stays until it is replaced or withdrawn; one about something
// that is over also goes after a while.
//
// Any thread unless noted. Posting takes a lock for a copy of the text and wakes the GUI thread at most once for
// several posts; the recording and camera threads may do so for every frame.
#pragma once

#include <QObject>
#include <QString>

#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <vector>

class QTimer;

enum class NoticeTopic { Camera, Answers, Configuration, Parameters, Picture, Recording, Log, Program, Host };
enum class NoticeLevel { Info, Warning, Error };

struct Notice
{
    NoticeTopic topic;
    NoticeLevel level;
    QString text;         // one line, plain text
    std::uint64_t number; // counts up with every notice
    // When it goes by itself; empty: never.
    std::optional<std::chrono::steady_clock::time_point> until;
};

class NoticeBoard : public QObject
{
    Q_OBJECT
public:
    static constexpr std::chrono::seconds ShownFor{20};

    // The program's only board, made on the first call. It belongs to the GUI thread, whichever thread calls.
    static NoticeBoard &Instance();

    // A standing notice, such as a recording under way or a log that lacks packets: shown until withdrawn or replaced.
    void Post(NoticeTopic topic, NoticeLevel level, QString const &text);
    // Something that has happened: shown for a while, and written to the program's log.
    void Report(NoticeTopic topic, NoticeLevel level, QString const &text);
    void Withdraw(NoticeTopic topic);
    // The most pressing first; of those, the newest.
    std::vector<Notice> Notices() const;

signals:
    void changed(); // on the GUI thread

private:
    NoticeBoard();
    void Put(Notice notice);
    void Wake();   // any thread, without the mutex
    void Expire(); // GUI thread

    mutable std::mutex m_mutex; // guards the three below; alone
    std::vector<Notice> m_notices;
    std::uint64_t m_count = 0;
    bool m_waking = false;
    QTimer *m_expiry; // GUI thread
};
