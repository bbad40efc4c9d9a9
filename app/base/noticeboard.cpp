#include "noticeboard.h"

#include "tovlog.h"
#include "tovplaintext.h"

#include <QCoreApplication>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <utility>

namespace {

constexpr int MostCharacters = 2000;

} // namespace

NoticeBoard &NoticeBoard::Instance()
{
    // Never deleted: threads of libraries may post until the very end of the process.
    static auto *const board = new NoticeBoard;
    return *board;
}

NoticeBoard::NoticeBoard() : m_expiry(new QTimer(this))
{
    m_expiry->setSingleShot(true);
    connect(m_expiry, &QTimer::timeout, this, &NoticeBoard::Expire);
    // Whichever thread has made it, its events are the GUI thread's.
    if (QCoreApplication *const application = QCoreApplication::instance())
        moveToThread(application->thread());
}

void NoticeBoard::Post(NoticeTopic topic, NoticeLevel level, QString const &text)
{
    Put({topic, level, TovPlainLine(text, MostCharacters), 0, std::nullopt});
}

void NoticeBoard::Report(NoticeTopic topic, NoticeLevel level, QString const &text)
{
    auto const log = level == NoticeLevel::Info      ? TovLog::Info
                     : level == NoticeLevel::Warning ? TovLog::Warning
                                                     : TovLog::Error;
    QString const line = TovPlainLine(text, MostCharacters);
    log(0, "%s", qPrintable(line));
    Put({topic, level, line, 0, std::chrono::steady_clock::now() + ShownFor});
}

void NoticeBoard::Put(Notice notice)
{
    {
        std::lock_guard const lock(m_mutex);
        auto const same = std::find_if(m_notices.begin(), m_notices.end(),
                                       [&](Notice const &other) { return other.topic == notice.topic; });
        if (same != m_notices.end()) {
            if (!notice.until && !same->until && same->level == notice.level && same->text == notice.text)
                return;
            m_notices.erase(same);
        }
        notice.number = ++m_count;
        m_notices.push_back(std::move(notice));
    }
    Wake();
}

void NoticeBoard::Withdraw(NoticeTopic topic)
{
    {
        std::lock_guard const lock(m_mutex);
        if (std::erase_if(m_notices, [topic](Notice const &notice) { return notice.topic == topic; }) == 0)
            return;
    }
    Wake();
}

std::vector<Notice> NoticeBoard::Notices() const
{
    std::unique_lock lock(m_mutex);
    std::vector<Notice> notices = m_notices;
    lock.unlock();
    // What has just gone wrong ranks as high as a standing notice of the next level, which has been read.
    auto const rank = [](Notice const &notice) {
        int const level = static_cast<int>(notice.level);
        return level + (notice.until && notice.level != NoticeLevel::Info ? 1 : 0);
    };
    std::sort(notices.begin(), notices.end(), [rank](Notice const &a, Notice const &b) {
        return rank(a) != rank(b) ? rank(a) > rank(b) : a.number > b.number;
    });
    return notices;
}

void NoticeBoard::Wake()
{
    {
        std::lock_guard const lock(m_mutex);
        if (std::exchange(m_waking, true))
            return;
    }
    QMetaObject::invokeMethod(this, &NoticeBoard::Expire, Qt::QueuedConnection);
}

void NoticeBoard::Expire()
{
    using namespace std::chrono;
    auto const now = steady_clock::now();
    std::optional<steady_clock::time_point> next;
    {
        std::lock_guard const lock(m_mutex);
        m_waking = false;
        std::erase_if(m_notices, [now](Notice const &notice) { return notice.until && *notice.until <= now; });
        for (Notice const &notice : m_notices) {
            if (notice.until && (!next || *notice.until < *next))
                next = notice.until;
        }
    }
    if (next)
        m_expiry->start(ceil<milliseconds>(*next - now));
    else
        m_expiry->stop();
    emit changed();
}
