// Logs on their way into files, each on a thread of its own, and what the operator is told about them: how far they
// are, how they ended, and what a session reports about its log. A write goes on when its session ends; at the end of
// the program it has a moment left.
//
// GUI thread only.
#pragma once

#include "linestore.h"
#include "noticeboard.h"

#include <QFile>
#include <QMainWindow>
#include <QObject>
#include <QPointer>
#include <QTimer>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

class LogWrite;

class LogFiles : public QObject
{
    Q_OBJECT
public:
    // The application's only one, which is deleted with it.
    static LogFiles &Instance();
    ~LogFiles() override;

    // Writes the lines into the open file for `owner`. A short log is in the file on return. A failure is shown over
    // the window; where the owner or the window has gone by then, the lines are kept as by Keep.
    void Save(LineStore lines, std::unique_ptr<QFile> file, QObject *owner, QMainWindow *window,
              std::function<void()> saved);
    bool IsSaving(QObject const *owner) const;
    // Ends a save and removes its file. False where there was none.
    bool CancelSave(QObject const *owner);
    // Writes the lines of a session that ends into a new file in the folder for temporary files, and reports its name.
    void Keep(LineStore lines);

    // The state of a session's log, shown until the next call. Empty for nothing.
    void SetState(NoticeLevel level, QString const &text);
    // Drops the notice of a write that has ended.
    void ForgetResult();

private:
    struct Job
    {
        std::unique_ptr<LogWrite> write;
        QPointer<QObject> owner; // null for a log that is kept
        QPointer<QMainWindow> window;
        std::function<void()> saved; // while the owner lives
        bool isSave;
    };
    struct Words
    {
        NoticeLevel level;
        QString text;
    };

    explicit LogFiles(QObject *parent);
    void Look(); // at each tick
    void Finish(Job job);
    void Fail(Job job);
    void SetResult(NoticeLevel level, QString const &text, bool stays);
    void Tell();
    Words Compose() const;

    std::vector<Job> m_jobs;
    Words m_state{NoticeLevel::Info, {}};
    Words m_result{NoticeLevel::Info, {}}; // of the last write that has ended
    bool m_told = false;
    QTimer m_look;   // while writes run
    QTimer m_forget; // of the result
};
