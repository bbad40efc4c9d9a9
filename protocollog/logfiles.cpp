#include "logfiles.h"

#include "logwrite.h"
#include "numbertext.h"
#include "tovlog.h"

#include <QCoreApplication>
#include <QDir>
#include <QMessageBox>
#include <QStringList>
#include <QTemporaryFile>

#include <algorithm>
#include <chrono>
#include <iterator>

namespace {

using namespace std::chrono_literals;

constexpr auto Patience = 150ms;    // a log written by then needs no progress display
constexpr auto LastMoment = 1500ms; // of writes at the end of the program
constexpr auto LookPeriod = 200ms;

QString Lines(std::size_t count)
{
    return GroupedNumber(static_cast<qlonglong>(count));
}

} // namespace

LogFiles &LogFiles::Instance()
{
    static QPointer<LogFiles> instance;
    if (!instance)
        instance = new LogFiles(QCoreApplication::instance());
    return *instance;
}

LogFiles::LogFiles(QObject *parent) : QObject(parent)
{
    connect(&m_look, &QTimer::timeout, this, &LogFiles::Look);
    m_forget.setSingleShot(true);
    connect(&m_forget, &QTimer::timeout, this, &LogFiles::ForgetResult);
}

LogFiles::~LogFiles()
{
    auto const end = std::chrono::steady_clock::now() + LastMoment;
    for (Job const &job : m_jobs) {
        auto const left = std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        if (!job.write->WaitFor(std::max(left, 0ms)))
            TovLog::Warning(0, "Log: the program ended before all lines were in %s", qPrintable(job.write->Path()));
    }
}

void LogFiles::Save(LineStore lines, std::unique_ptr<QFile> file, QObject *owner, QMainWindow *window,
                    std::function<void()> saved)
{
    Job job{std::make_unique<LogWrite>(std::move(lines), std::move(file), false), owner, window, std::move(saved),
            true};
    bool const ended = job.write->WaitFor(Patience);
    if (ended) {
        Finish(std::move(job));
        return;
    }
    m_jobs.push_back(std::move(job));
    m_look.start(LookPeriod);
    Tell();
}

bool LogFiles::IsSaving(QObject const *owner) const
{
    return std::any_of(m_jobs.begin(), m_jobs.end(),
                       [owner](Job const &job) { return job.isSave && job.owner == owner; });
}

bool LogFiles::CancelSave(QObject const *owner)
{
    bool found = false;
    for (Job const &job : m_jobs) {
        if (!job.isSave || job.owner.data() != owner)
            continue;
        found = true;
        job.write->Cancel();
    }
    return found;
}

void LogFiles::Keep(LineStore lines)
{
    std::size_t const count = lines.Count();
    auto file = std::make_unique<QTemporaryFile>(QDir::temp().filePath(QStringLiteral("tovscope-XXXXXX.log")));
    file->setAutoRemove(false);
    if (!file->open()) {
        SetResult(NoticeLevel::Error,
                  tr("Log: %1 unsaved lines are lost, as no file could be made in %2: %3")
                      .arg(Lines(count), QDir::tempPath(), file->errorString()),
                  true);
        return;
    }
    m_jobs.push_back({std::make_unique<LogWrite>(std::move(lines), std::move(file), true), {}, {}, {}, false});
    m_look.start(LookPeriod);
    Tell();
}

void LogFiles::Look()
{
    for (;;) {
        auto const ended = std::find_if(m_jobs.begin(), m_jobs.end(), [](Job const &job) {
            return job.write->GetState() != LogWrite::State::Running;
        });
        if (ended == m_jobs.end())
            break;
        Job job = std::move(*ended);
        m_jobs.erase(ended);
        Finish(std::move(job)); // may show a message, and come back here while it is open
    }
    if (m_jobs.empty())
        m_look.stop();
    Tell();
}

void LogFiles::Finish(Job job)
{
    QString const path = QDir::toNativeSeparators(job.write->Path()), lines = Lines(job.write->Count());
    switch (job.write->GetState()) {
    case LogWrite::State::Written:
        if (job.isSave)
            SetResult(NoticeLevel::Info, tr("Log saved: %1 lines in %2").arg(lines, path), false);
        else
            SetResult(NoticeLevel::Info, tr("The unsaved log was kept: %1 lines in %2").arg(lines, path), true);
        if (job.owner && job.saved)
            job.saved();
        break;
    case LogWrite::State::Cancelled:
        SetResult(NoticeLevel::Info, tr("Saving the log was cancelled, and %1 removed").arg(path), false);
        break;
    default:
        Fail(std::move(job));
    }
}

void LogFiles::Fail(Job job)
{
    QString error = job.write->Error();
    if (error.isEmpty())
        error = tr("There is not enough memory");
    if (!job.isSave) {
        SetResult(NoticeLevel::Error,
                  tr("Log: only %1 of %2 unsaved lines could be kept in %3: %4")
                      .arg(Lines(job.write->Written()), Lines(job.write->Count()), job.write->Path(), error),
                  true);
    } else if (job.owner && job.window) {
        SetResult(NoticeLevel::Error, tr("The log was not saved: %1").arg(error), false);
        QMessageBox::critical(job.window, tr("Error saving log"), error, QMessageBox::Ok);
    } else {
        TovLog::Error(0, "Log: %s could not be written: %s", qPrintable(job.write->Path()), qPrintable(error));
        Keep(job.write->TakeLines());
    }
}

void LogFiles::SetState(NoticeLevel level, QString const &text)
{
    if (m_state.level == level && m_state.text == text)
        return;
    m_state = {level, text};
    Tell();
}

void LogFiles::SetResult(NoticeLevel level, QString const &text, bool stays)
{
    auto const log = level == NoticeLevel::Error ? TovLog::Error : TovLog::Info;
    log(0, "%s", qPrintable(text));
    m_result = {level, text};
    if (stays)
        m_forget.stop();
    else
        m_forget.start(NoticeBoard::ShownFor);
    Tell();
}

void LogFiles::ForgetResult()
{
    m_result.text.clear();
    Tell();
}

LogFiles::Words LogFiles::Compose() const
{
    NoticeLevel level = NoticeLevel::Info;
    QStringList texts;
    for (Job const &job : m_jobs) {
        std::size_t const percent = job.write->Written() * 100 / std::max<std::size_t>(job.write->Count(), 1);
        QString const form = job.isSave ? tr("Saving the log: %1 % of %2 lines (Save again cancels)")
                                        : tr("Keeping the unsaved log: %1 % of %2 lines");
        texts += form.arg(percent).arg(Lines(job.write->Count()));
    }
    if (texts.isEmpty() && !m_result.text.isEmpty()) {
        texts += m_result.text;
        level = m_result.level;
    }
    if (!m_state.text.isEmpty()) {
        texts.prepend(m_state.text);
        level = std::max(level, m_state.level);
    }
    return {level, texts.join(QStringLiteral("; "))};
}

void LogFiles::Tell()
{
    Words const words = Compose();
    if (!words.text.isEmpty())
        NoticeBoard::Instance().Post(NoticeTopic::Log, words.level, words.text);
    else if (m_told)
        NoticeBoard::Instance().Withdraw(NoticeTopic::Log);
    m_told = !words.text.isEmpty();
}
