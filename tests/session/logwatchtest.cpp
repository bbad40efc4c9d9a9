// What becomes of a log when something goes wrong: packets that are missing, memory that runs out, a camera that goes,
// files that take long.
#include "fakehost.h"
#include "linestore.h"
#include "logfiles.h"
#include "notices.h"
#include "qttovlogmodel.h"
#include "session.h"
#include "wait.h"

#include <QDir>

#include <sys/resource.h>

namespace {

QString const s_channel = QStringLiteral("Stream");
constexpr unsigned char Packet[] = {0x42, 1, 0, 0x80, 0, 4, 0, 1, 0, 0, 0x0A, 0}; // registers are read

QString Notice()
{
    return QString::fromStdString(NoticeOf(NoticeTopic::Log));
}

bool NoticeBecomes(char const *part)
{
    return Eventually([&] { return Notice().contains(QLatin1String(part)); });
}

QByteArrayList LinesOf(QString const &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll().split('\n') : QByteArrayList();
}

class LogWatched : public testing::Test
{
protected:
    LogWatched()
    {
        qputenv("TMPDIR", m_folder.path().toUtf8());
        host.window.show();
    }
    ~LogWatched() override
    {
        session.reset();
        LogFiles::Instance().ForgetResult();
        qunsetenv("TMPDIR");
    }
    void Log(int lines)
    {
        for (int i = 0; i < lines; ++i)
            session->WriteLog(Session::LogEnumControl, Packet, sizeof Packet);
    }
    QStringList Kept() const
    {
        return QDir(m_folder.path()).entryList({QStringLiteral("tovscope-*.log")}, QDir::Files);
    }

    QTemporaryDir m_folder;
    FakeDevice device;
    FakeHost host{device.script};
    std::unique_ptr<Session> session = std::make_unique<Session>(nullptr, &device, &host);
};

TEST_F(LogWatched, MissingPacketsAreToldWhileLoggingAndUntilItIsCleared)
{
    std::uint64_t total = 1234;
    Session::PacketsMissedCallback(&total, sizeof total, session.get());
    session->SetParamBool("LogStream", true);
    EXPECT_EQ(Notice(), QString());
    session->SetParamBool("EnableLog", true);
    EXPECT_TRUE(NoticeBecomes("missing from the log: 1,234"));
    session->SetParamBool("EnableLog", false);
    EXPECT_EQ(Notice(), QString());
    EXPECT_TRUE(session->GetLogReport().contains(QLatin1String("1,234")));
    session->clearLog();
    EXPECT_FALSE(session->GetLogReport().contains(QLatin1String("1,234")));
    total += 7;
    Session::PacketsMissedCallback(&total, sizeof total, session.get());
    session->SetParamBool("EnableLog", true);
    EXPECT_TRUE(NoticeBecomes("missing from the log: 7"));
}

// The limit stands for a computer that is full: first for lines, then already at the look that comes before them.
TEST_F(LogWatched, LoggingIsSwitchedOffWithoutMemory)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "they reserve more than any limit";
#endif
    session->SetParamBool("LogControl", true);
    for (char const *const why : {"no memory for another line", "less than a tenth of the memory"}) {
        SCOPED_TRACE(why);
        bool const atOnce = why[0] == 'l';
        session->SetParamBool("EnableLog", true);
        if (!atOnce)
            Log(1); // the look at the memory, while there is some
        rlimit before;
        getrlimit(RLIMIT_AS, &before);
        rlimit none = before;
        none.rlim_cur = 1;
        setrlimit(RLIMIT_AS, &none);
        Log(atOnce ? 1 : 200000); // more than the block that is there holds
        setrlimit(RLIMIT_AS, &before);
        EXPECT_TRUE(Eventually([&] {
            bool on = true;
            session->GetParamBool("EnableLog", &on);
            return !on;
        }));
        if (atOnce)
            EXPECT_TRUE(NoticeBecomes(why)) << qPrintable(Notice());
        else // the next second may have begun
            EXPECT_TRUE(NoticeBecomes("switched off")) << qPrintable(Notice());
        EXPECT_FALSE(session->GetLogReport().contains(QLatin1String("missing from them: 0.")));
        session->clearLog();
        EXPECT_EQ(Notice(), QString());
    }
    session->SetParamBool("EnableLog", true);
    Log(5);
    EXPECT_EQ(session->GetLogModel()->log().size(), 5);
}

TEST_F(LogWatched, UnsavedLinesOutliveTheCamera)
{
    Log(1234);
    auto const lines = session->GetLogModel()->log();
    session.reset();
    EXPECT_TRUE(NoticeBecomes("1,234 lines in"));
    ASSERT_EQ(Kept().size(), 1);
    QString const path = QDir::temp().filePath(Kept().first());
    EXPECT_TRUE(Notice().contains(path)) << qPrintable(Notice());
    QByteArrayList const kept = LinesOf(path);
    ASSERT_EQ(kept.size(), 1235); // and what follows the last end of a line
    EXPECT_EQ(
        kept[7],
        (QTime::fromMSecsSinceStartOfDay(static_cast<int>(lines[7].time)).toString(QStringLiteral("hh:mm:ss.zzz")) +
         QStringLiteral(" Control ") + lines[7].message)
            .toUtf8());

    // Nothing where there are no lines, and none when the window is closed as well.
    session = std::make_unique<Session>(nullptr, &device, &host);
    session.reset();
    session = std::make_unique<Session>(nullptr, &device, &host);
    Log(10);
    host.window.hide();
    session.reset();
    EXPECT_EQ(Kept().size(), 1);
}

LineStore ManyLines(int count)
{
    LineStore lines;
    QString const text(100, QLatin1Char('x'));
    for (int i = 0; i < count; ++i)
        lines.Append(i, s_channel, text + QString::number(i));
    return lines;
}

// Into a pipe that nobody reads yet, a save lasts as long as the test wants.
TEST_F(LogWatched, ALongSaveHoldsNobodyUpAndCanBeCancelled)
{
    QString const path = m_folder.filePath(QStringLiteral("pipe"));
    LineStore const lines = ManyLines(20000);
    for (bool const cancel : {false, true}) {
        SCOPED_TRACE(cancel);
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        auto file = std::make_unique<QFile>();
        ASSERT_TRUE(file->open(ends[1], QIODevice::WriteOnly, QFileDevice::AutoCloseHandle));
        auto owner = std::make_unique<QObject>();
        bool saved = false;
        LogFiles &files = LogFiles::Instance();
        files.Save(lines, std::move(file), owner.get(), &host.window, [&] { saved = true; });
        EXPECT_TRUE(files.IsSaving(owner.get()));
        EXPECT_TRUE(NoticeBecomes("of 20,000 lines"));
        if (cancel)
            EXPECT_TRUE(files.CancelSave(owner.get()));
        else
            owner.reset(); // its session has gone
        char part[65536];
        while (::read(ends[0], part, sizeof part) > 0) {
        }
        close(ends[0]);
        EXPECT_TRUE(NoticeBecomes(cancel ? "cancelled" : "Log saved: 20,000"));
        EXPECT_FALSE(saved);
        files.ForgetResult();
    }
}

// A disk that is full; the session has gone meanwhile.
TEST_F(LogWatched, ASaveThatFailsKeepsTheLinesElsewhere)
{
    auto file = std::make_unique<QFile>(QStringLiteral("/dev/full"));
    ASSERT_TRUE(file->open(QIODevice::WriteOnly));
    LogFiles::Instance().Save(ManyLines(1000), std::move(file), nullptr, nullptr, {});
    EXPECT_TRUE(NoticeBecomes("1,000 lines in"));
    ASSERT_EQ(Kept().size(), 1);
    EXPECT_EQ(LinesOf(QDir::temp().filePath(Kept().first())).size(), 1001);
}

} // namespace
