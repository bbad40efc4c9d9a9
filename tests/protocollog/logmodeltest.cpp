// The log's model and the view that follows it. Threads append while the model's own thread shows, clears and copies.
#include "qttovlogmodel.h"

#include <QAbstractItemModelTester>
#include <QCoreApplication>
#include <QHeaderView>
#include <QSignalSpy>
#include <QTest>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

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
        return QTest::qWaitFor([&] { return m_model.rowCount() == rows; }, 30000);
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

TEST_F(LogModel, ColumnsAndRoles)
{
    QString const message = QStringLiteral("text");
    m_model.append(3600000, s_channel, message);
    m_model.append(86399999, QStringLiteral("Stream"), message);
    m_model.append(86400000, s_channel, message); // no time of day
    m_model._q_delayedAppendData();
    EXPECT_EQ(Data(0, 0), QStringLiteral("1:00:00.000"));
    EXPECT_EQ(Data(1, 0), QStringLiteral("23:59:59.999"));
    EXPECT_EQ(Data(2, 0), QString());
    EXPECT_FALSE(Data(0, 0, Qt::ToolTipRole).isValid());
    for (int const role : {Qt::DisplayRole, Qt::ToolTipRole}) {
        EXPECT_EQ(Data(0, 1, role), s_channel);
        EXPECT_EQ(Data(1, 1, role), QStringLiteral("Stream"));
        EXPECT_EQ(Data(1, 2, role), message);
    }
    EXPECT_FALSE(Data(0, 2, Qt::EditRole).isValid());
    EXPECT_FALSE(m_model.data(QModelIndex()).isValid());
    char const *const headers[] = {"Time", "Channel", "Message"};
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(m_model.headerData(i, Qt::Horizontal), QLatin1String(headers[i]));
    EXPECT_FALSE(m_model.headerData(0, Qt::Horizontal, Qt::ToolTipRole).isValid());
    EXPECT_EQ(m_model.headerData(4, Qt::Vertical), 5);
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

TEST_F(LogModel, ClearingDropsWhatIsPending)
{
    Append(10);
    m_model._q_delayedAppendData();
    Append(10);
    QSignalSpy const resets(&m_model, &QAbstractItemModel::modelReset);
    QSignalSpy const inserts(&m_model, &QAbstractItemModel::rowsInserted);
    m_model.clear();
    EXPECT_EQ(m_model.rowCount(), 0);
    EXPECT_TRUE(m_model.log().isEmpty());
    QTest::qWait(250); // the timer of the pending lines
    EXPECT_EQ(resets.size(), 1);
    EXPECT_EQ(inserts.size(), 0);
    Append(1);
    EXPECT_TRUE(RowsBecome(1));
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
    while (running != 0) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 10);
        if (m_model.rowCount() > 0)
            Data(m_model.rowCount() - 1, 2);
        m_model.log();
    }
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

TEST_F(LogModel, ClearingAndAppendingFromThreads)
{
    std::atomic<bool> stop{false};
    std::thread appender([&] {
        for (int i = 0; !stop; ++i)
            m_model.append(i, s_channel, Number(i));
    });
    std::thread clearer([&] {
        for (int i = 0; i < 300; ++i) {
            m_model.clear();
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        stop = true;
    });
    while (!stop) {
        QCoreApplication::processEvents();
        m_model._q_delayedAppendData();
        for (int row = std::max(0, m_model.rowCount() - 20); row < m_model.rowCount(); ++row)
            Data(row, 2);
    }
    appender.join();
    clearer.join();
    EXPECT_TRUE(RowsBecome(m_model.log().size()));
}

// ---- The view ----------------------------------------------------------------------------------------------------

class LogViewer : public LogModel
{
protected:
    LogViewer()
    {
        m_viewer.resize(600, 200);
        m_viewer.setModel(&m_model);
        m_viewer.show();
        QTest::qWait(50);
    }
    int CurrentAfterBatch(int lines)
    {
        Append(lines, m_model.rowCount());
        m_model._q_delayedAppendData();
        QCoreApplication::processEvents();
        return m_viewer.currentIndex().row();
    }

    QtTovLogViewer m_viewer;
};

TEST_F(LogViewer, FollowsWhileTheLastRowIsCurrent)
{
    EXPECT_EQ(m_viewer.autoScrollMode(), QtTovLogViewer::AutoScroll);
    EXPECT_EQ(CurrentAfterBatch(100), 99);
    EXPECT_TRUE(m_viewer.viewport()->rect().contains(m_viewer.visualRect(m_model.index(99, 1))));
    EXPECT_EQ(CurrentAfterBatch(1), 100);
    m_viewer.selectRow(50);
    EXPECT_EQ(CurrentAfterBatch(10), 50);
    m_viewer.selectRow(m_model.rowCount() - 1);
    EXPECT_EQ(CurrentAfterBatch(10), 120);
    m_model.clear();
    EXPECT_EQ(CurrentAfterBatch(5), 4);
}

TEST_F(LogViewer, OtherModes)
{
    m_viewer.setAutoScrollMode(QtTovLogViewer::AutoScrollDisabled);
    EXPECT_NE(CurrentAfterBatch(10), 9);
    m_viewer.selectRow(9);
    EXPECT_EQ(CurrentAfterBatch(10), 9);
    m_viewer.setProperty("autoScrollMode", QtTovLogViewer::AutoScrollAlways);
    m_viewer.selectRow(3);
    EXPECT_EQ(CurrentAfterBatch(10), 29);
}

TEST_F(LogViewer, FollowsOnlyItsModelAndRowsThatAreThere)
{
    Append(10);
    m_model._q_delayedAppendData();
    m_model.clear(); // before the view has moved
    QCoreApplication::processEvents();
    EXPECT_FALSE(m_viewer.currentIndex().isValid());

    QtTovLogModel other;
    m_viewer.setModel(&other);
    Append(10);
    m_model._q_delayedAppendData();
    QCoreApplication::processEvents();
    EXPECT_FALSE(m_viewer.currentIndex().isValid());
    m_viewer.setModel(nullptr);
}

TEST_F(LogViewer, RowsAndTimesFit)
{
    m_model.append(86399999, s_channel, s_channel);
    m_model._q_delayedAppendData();
    QSize const time = m_viewer.sizeHintForIndex(m_model.index(0, 0));
    EXPECT_GT(m_viewer.columnWidth(0), time.width());
    EXPECT_LT(m_viewer.columnWidth(0), 2 * time.width());
    EXPECT_GE(m_viewer.rowHeight(0), m_viewer.fontMetrics().height());
    EXPECT_EQ(m_viewer.horizontalHeader()->sectionResizeMode(0), QHeaderView::Fixed);
    EXPECT_EQ(m_viewer.verticalHeader()->sectionResizeMode(0), QHeaderView::Fixed);
    m_model.clear();
    EXPECT_GT(m_viewer.columnWidth(0), time.width());
}

} // namespace
