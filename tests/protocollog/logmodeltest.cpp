// The log's model. Threads append while the model's own thread shows, clears and copies.
#include "asleep.h"
#include "linestore.h"
#include "localclock.h"
#include "logwrite.h"
#include "memoryroom.h"
#include "qttovlogmodel.h"
#include "qttovlogviewer.h"
#include "wait.h"

#include <QAbstractItemModelTester>
#include <QClipboard>
#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QGuiApplication>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <map>

#include <fcntl.h>
#include <sys/stat.h>

namespace {

QString const s_channel = QStringLiteral("Control");

QString Number(int i)
{
    return QString::number(i);
}

class LogModel : public testing::Test
{
protected:
    void Append(int count, int first = 0)
    {
        for (int i = first; i < first + count; ++i)
            m_model.append(i, s_channel, Number(i));
    }
    QVariant Data(int row, int column, int role = Qt::DisplayRole)
    {
        return m_model.data(m_model.index(row, column), role);
    }
    bool RowsBecome(int rows)
    {
        return Eventually([&] { return m_model.rowCount() == rows; });
    }

    QtTovLogModel m_model;
    QAbstractItemModelTester m_tester{&m_model, QAbstractItemModelTester::FailureReportingMode::Fatal};
};

TEST_F(LogModel, ABurstIsOneInsert)
{
    QSignalSpy const inserts(&m_model, &QAbstractItemModel::rowsInserted);
    Append(10000);
    EXPECT_EQ(m_model.rowCount(), 0);
    EXPECT_EQ(m_model.log().size(), 10000);
    ASSERT_TRUE(RowsBecome(10000));
    Append(3, 10000);
    ASSERT_TRUE(RowsBecome(10003));
    ASSERT_EQ(inserts.size(), 2);
    EXPECT_EQ(inserts[0][1], 0);
    EXPECT_EQ(inserts[0][2], 9999);
    EXPECT_EQ(inserts[1][1], 10000);
    EXPECT_EQ(inserts[1][2], 10002);
    EXPECT_EQ(Data(10002, 2), QStringLiteral("10002"));
}

// Every text comes back as it was, whatever the way it is kept, and wherever in memory it lies.
TEST_F(LogModel, KeepsEveryText)
{
    QString all;
    for (int c = 0; c < 0x10000; ++c)
        all += QChar(c);
    QStringList texts{QString(), all.left(256), all, QStringLiteral("%1"), all.mid(0xD800, 1)};
    texts += QString(3000000, QLatin1Char('x')); // more than a block of lines
    for (int i = 0; i < 30000; ++i)
        texts += QString(i % 200, QChar(i % 7 == 0 ? 0x416 : 'a' + i % 26));
    for (int i = 0; i < texts.size(); ++i)
        m_model.append(qlonglong{i} << 32, i % 3 ? s_channel : Number(i % 11), texts[i]);
    m_model._q_delayedAppendData();
    auto const log = m_model.log();
    ASSERT_EQ(log.size(), texts.size());
    for (int i = 0; i < texts.size(); ++i) {
        ASSERT_EQ(log[i].message, texts[i]) << i;
        ASSERT_EQ(Data(i, 2), texts[i]) << i;
        ASSERT_EQ(log[i].time, qlonglong{i} << 32);
        ASSERT_EQ(log[i].channel, i % 3 ? s_channel : Number(i % 11));
    }
}

// On its own thread at once, from another one with the next pass of the event loop.
TEST_F(LogModel, ClearingDropsRowsAndWhatIsPending)
{
    for (bool const elsewhere : {false, true}) {
        SCOPED_TRACE(elsewhere);
        Append(10);
        m_model._q_delayedAppendData();
        Append(10);
        QSignalSpy const resets(&m_model, &QAbstractItemModel::modelReset);
        QSignalSpy const inserts(&m_model, &QAbstractItemModel::rowsInserted);
        elsewhere ? std::thread(&QtTovLogModel::clear, &m_model).join() : m_model.clear();
        EXPECT_TRUE(m_model.log().isEmpty());
        EXPECT_EQ(m_model.rowCount(), elsewhere ? 10 : 0);
        QCoreApplication::sendPostedEvents(&m_model);
        EXPECT_EQ(m_model.rowCount(), 0);
        EXPECT_EQ(resets.size(), 1);
        EXPECT_EQ(inserts.size(), 0);
        Append(1);
        EXPECT_TRUE(RowsBecome(1));
        EXPECT_EQ(inserts.size(), 1);
        m_model.clear();
    }
}

// They fill a block to the byte, or miss that by a few; a copy keeps what it had.
TEST(LinesOfABlock, AreWholeWhereverTheyEnd)
{
    constexpr int Block = 1 << 20, Record = 20; // bytes; a line's besides its text
    for (int spare = -2 * Record; spare <= 2 * Record; ++spare) {
        LineStore store;
        QString const texts[] = {QString(Block - 1000, u'a'), QString(1000 - 2 * Record - spare, u'b'), Number(3)};
        store.Append(0, s_channel, texts[0]);
        store.Append(1, s_channel, texts[1]);
        LineStore const copy = store;
        store.Append(2, s_channel, texts[2]);
        EXPECT_EQ(copy.Count(), 2u);
        for (std::size_t row = 0; row < 3; ++row) {
            ASSERT_EQ(store.At(row).Message(), texts[row]) << spare << ' ' << row;
            ASSERT_EQ(store.At(row).time, qlonglong(row)) << spare;
            ASSERT_TRUE(row == 2 || copy.At(row).Message() == texts[row]) << spare << ' ' << row;
        }
    }
}

// Into a pipe a write lasts until the test reads.
TEST(LogWriteTest, WakesWhoWaitsForItsEndAndRemovesWhatIsCancelled)
{
    LineStore lines;
    for (int i = 0; i < 20000; ++i)
        lines.Append(i, s_channel, QString(100, u'x'));
    for (bool const cancel : {false, true}) {
        SCOPED_TRACE(cancel);
        QTemporaryDir folder;
        QByteArray const path = folder.filePath(QStringLiteral("pipe")).toLocal8Bit();
        ASSERT_EQ(mkfifo(path.constData(), 0600), 0);
        int const reader = open(path.constData(), O_RDONLY | O_NONBLOCK);
        auto file = std::make_unique<QFile>(QString::fromLocal8Bit(path));
        ASSERT_TRUE(file->open(QIODevice::WriteOnly));
        ASSERT_EQ(fcntl(reader, F_SETFL, 0), 0); // from here on the reader waits
        LogWrite write(lines, std::move(file), false);
        auto ended = std::async(std::launch::async, [&] { return write.WaitFor(std::chrono::hours(1)); });
        EXPECT_TRUE(OthersFallAsleep());
        EXPECT_TRUE(IsUnderWay(ended));
        EXPECT_EQ(write.GetState(), LogWrite::State::Running);
        if (cancel)
            write.Cancel();
        std::size_t read = 0;
        char part[65536];
        for (ssize_t bytes; (bytes = ::read(reader, part, sizeof part)) > 0;)
            read += static_cast<std::size_t>(std::count(part, part + bytes, '\n'));
        close(reader);
        ASSERT_TRUE(Returns(ended)) << "it sleeps on";
        EXPECT_TRUE(ended.get());
        EXPECT_EQ(write.GetState(), cancel ? LogWrite::State::Cancelled : LogWrite::State::Written);
        EXPECT_EQ(write.Written(), read);
        EXPECT_EQ(read < lines.Count(), cancel);
        EXPECT_EQ(QFile::exists(QString::fromLocal8Bit(path)), !cancel);
    }
}

TEST_F(LogModel, TheViewFollowsFromItsLastRowOn)
{
    QtTovLogViewer view;
    view.setModel(&m_model);
    auto const row = [&view] {
        QCoreApplication::processEvents();
        return view.currentIndex().row();
    };
    auto const insert = [this](int count) {
        Append(count);
        m_model._q_delayedAppendData();
    };
    insert(10);
    EXPECT_EQ(row(), 9);
    insert(10);
    EXPECT_EQ(row(), 19);
    insert(10);
    view.selectRow(5); // by hand, when the step to the new last row is on its way
    EXPECT_EQ(row(), 5);
    insert(10);
    EXPECT_EQ(row(), 5);
    view.selectRow(39);
    insert(10);
    EXPECT_EQ(row(), 49);
}

// Whole lines; typing letters does not search.
TEST_F(LogModel, TheViewCopiesWholeLines)
{
    QtTovLogViewer view;
    view.setModel(&m_model);
    Append(10);
    m_model._q_delayedAppendData();
    QGuiApplication::clipboard()->clear();
    view.selectRow(3);
    QTest::keyClick(&view, Qt::Key_7);
    EXPECT_EQ(view.currentIndex().row(), 3);
    QTest::keyClick(&view, Qt::Key_C, Qt::ControlModifier);
    EXPECT_EQ(QGuiApplication::clipboard()->text(), QStringLiteral("0:00:00.003 Control 3"));
}

// Qt's own clock agrees, second by second where the clocks are changed and at times that clocks go through twice.
TEST(LocalClock, AgreesWithTheSystemsZones)
{
    QByteArray const before = qgetenv("TZ");
    for (char const *const zone : {"Europe/Berlin", "America/New_York", "Australia/Lord_Howe", "Asia/Kathmandu",
                                   "Pacific/Kiritimati", "UTC0", ""}) {
        zone[0] ? qputenv("TZ", zone) : qunsetenv("TZ");
        tzset();
        LocalClock clock;
        for (qint64 const change : {1774746000, 1792890000, 1775314800, 1791043200, 1772953200, 1793512800}) {
            for (qint64 second = change - 130; second < change + 130; ++second) {
                qint64 const expected =
                    QDateTime::fromMSecsSinceEpoch(second * 1000 + 987).time().msecsSinceStartOfDay();
                ASSERT_EQ(clock.TimeOfDay(second, 987654321), expected) << zone << ' ' << second;
            }
        }
    }
    before.isNull() ? qunsetenv("TZ") : qputenv("TZ", before);
    tzset();
}

// What is shortest counts, and what the system can give back is left.
TEST(MemoryRoom, KnowsEveryLimit)
{
    struct
    {
        char const *name;
        std::map<std::string, QByteArray> files;
        double left;
    } const cases[] = {
        {"nothing known", {}, 1.0},
        {"the system", {{"proc/meminfo", "MemTotal:  1000 kB\nMemFree: 1 kB\nMemAvailable: 250 kB\n"}}, 0.25},
        {"a group",
         {{"proc/self/cgroup", "0::/a/b\n"},
          {"sys/fs/cgroup/a/b/memory.max", "max\n"},
          {"sys/fs/cgroup/a/b/memory.current", "900\n"},
          {"sys/fs/cgroup/a/memory.max", "1000\n"},
          {"sys/fs/cgroup/a/memory.current", "970\n"},
          {"sys/fs/cgroup/a/memory.stat", "anon 1\nfile 50\ninactive_file 30\nactive_file 20\n"}},
         0.08},
        {"a group of the old kind",
         {{"proc/self/cgroup", "5:cpu:/x\n4:memory:/d\n"},
          {"sys/fs/cgroup/memory/memory.limit_in_bytes", "2000\n"},
          {"sys/fs/cgroup/memory/memory.usage_in_bytes", "1000\n"}},
         0.5},
    };
    for (auto const &c : cases) {
        QTemporaryDir root;
        for (auto const &[path, text] : c.files) {
            QFileInfo const info(root.filePath(QString::fromStdString(path)));
            QDir().mkpath(info.path());
            QFile file(info.filePath());
            ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.write(text) == text.size());
        }
        EXPECT_DOUBLE_EQ(MemoryLeft(root.path().toStdString()), c.left) << c.name;
    }
    EXPECT_GT(MemoryLeft(), 0.0);
    EXPECT_LT(MemoryLeft(), 1.0);
}

// More than 50,000 lines a second from three threads while the model's own thread shows and copies them.
TEST_F(LogModel, NoLineIsLostBetweenThreads)
{
    constexpr int Threads = 3, Lines = 40000;
    std::atomic<int> running{Threads};
    std::vector<std::thread> threads;
    for (int t = 0; t < Threads; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < Lines; ++i)
                m_model.append(i, Number(t), Number(i));
            --running;
        });
    EXPECT_TRUE(Eventually([&] {
        if (m_model.rowCount() > 0)
            Data(m_model.rowCount() - 1, 2);
        m_model.log();
        return running == 0;
    }));
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_TRUE(RowsBecome(Threads * Lines));
    int next[Threads] = {};
    for (auto const &line : m_model.log()) {
        int const thread = line.channel.toInt();
        ASSERT_EQ(line.message, Number(next[thread]++)); // each thread's lines in their order
    }
    EXPECT_EQ(next[0] + next[1] + next[2], Threads * Lines);
}

} // namespace
