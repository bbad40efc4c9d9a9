// What the operator is told without being interrupted: one line a topic, which the main window shows in its status bar
// and, whole, in the tooltip there. A topic's line stays until the next one takes its place, is withdrawn, or, where it
// tells of something that is over, has been on for a while.
//
// Any thread, but for what says otherwise. Posting takes a lock for a copy of the text and wakes the GUI thread at most
// once for all that was posted since; the recording and camera threads may do so for every frame.
#pragma once

#include <QObject>
#include <QString>

#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <vector>

class QTimer;

enum class NoticeTopic { Camera, Configuration, Parameters, Picture, Recording, Log, Program };
enum class NoticeLevel { Info, Warning, Error };

struct Notice
{
    NoticeTopic topic;
    NoticeLevel level;
    QString text;         // one line, plain text
    std::uint64_t number; // counts up with every notice
    // When it goes by itself; never without.
    std::optional<std::chrono::steady_clock::time_point> until;
};

class NoticeBoard : public QObject
{
    Q_OBJECT
public:
    static constexpr std::chrono::seconds ShownFor{20};

    // The one of the program. It is made on the first call, and belongs to the GUI thread whoever calls.
    static NoticeBoard &Instance();

    // A state of things, such as a recording at work or a log that is short of lines: until it is withdrawn or
    // replaced.
    void Post(NoticeTopic topic, NoticeLevel level, QString const &text);
    // Something that has happened. It is gone after a while, and goes to the program's log as well.
    void Report(NoticeTopic topic, NoticeLevel level, QString const &text);
    void Withdraw(NoticeTopic topic);
    // The most pressing first, and among those the newest.
    std::vector<Notice> Notices() const;

signals:
    void changed(); // on the GUI thread

private:
    NoticeBoard();
    void Put(Notice notice);
    void Wake();   // any thread, without the mutex
    void Expire(); // GUI thread, as all that follows on it

    mutable std::mutex m_mutex; // guards the three below; alone
    std::vector<Notice> m_notices;
    std::uint64_t m_count = 0;
    bool m_waking = false;
    QTimer *m_expiry; // GUI thread
};
