// The program as a whole, as it is started from a shell.
#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QImage>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <set>

namespace {

class Program : public testing::Test
{
protected:
    Program()
    {
        m_environment = QProcessEnvironment::systemEnvironment();
        m_environment.insert(QStringLiteral("TOVSCOPE_RIGTEST_DIR"), m_folder.path());
        m_environment.insert(QStringLiteral("TOVSCOPE_RIGTEST_FRAMES"), QStringLiteral("40"));
        m_environment.insert(QStringLiteral("TOVSCOPE_RIGTEST_TIMEOUT"), QStringLiteral("60"));
    }
    // A copy of the executable in a folder of its own, with nothing beside it.
    QString CopyAlone()
    {
        QString const copy = m_folder.filePath(QStringLiteral("tovscope"));
        EXPECT_TRUE(QFile::copy(QStringLiteral(TOV_PROGRAM), copy));
        return copy;
    }
    void Put(char const *name, QByteArray const &content)
    {
        QFile file(m_folder.filePath(QString::fromLatin1(name)));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(content);
    }
    void Start(QString const &program, QStringList const &arguments)
    {
        m_process.setProcessEnvironment(m_environment);
        m_process.start(program, arguments);
        ASSERT_TRUE(m_process.waitForStarted());
    }
    int Finish()
    {
        EXPECT_TRUE(m_process.waitForFinished(90000));
        m_output = QString::fromUtf8(m_process.readAllStandardOutput());
        EXPECT_EQ(m_process.exitStatus(), QProcess::NormalExit);
        return m_process.exitCode();
    }
    void ExpectKeepsRunning()
    {
        EXPECT_FALSE(m_process.waitForFinished(2000)) << qPrintable(QString::fromUtf8(m_process.readAll()));
        EXPECT_EQ(m_process.state(), QProcess::Running);
        m_process.kill();
        m_process.waitForFinished();
    }

    QTemporaryDir m_folder;
    QProcessEnvironment m_environment;
    QProcess m_process;
    QString m_output;
};

TEST_F(Program, RunsUnattendedAndLeavesAScreenshotOfTheLivePicture)
{
    Start(QStringLiteral(TOV_PROGRAM), {QStringLiteral("rigtest"), QStringLiteral("auto")});
    EXPECT_EQ(Finish(), 0) << qPrintable(m_output);
    EXPECT_TRUE(m_output.contains(QRegularExpression(
        QStringLiteral("GetRigTest\\(\\)->PrepareToAcquition\\(\\)[\\s\\S]*Camera +\\S.*\\n"
                       "Frames +[4-9]\\d\\d? complete, 0 incomplete[\\s\\S]*GetRigTest\\(\\)->OnStop\\(\\)"))))
        << qPrintable(m_output);

    QImage const screenshot(m_folder.filePath(QStringLiteral("tovscope-demo.png")));
    ASSERT_FALSE(screenshot.isNull());
    EXPECT_GE(screenshot.width(), 800);
    std::set<QRgb> colours;
    for (int x = 100; x < screenshot.width() - 100; x += 3)
        colours.insert(screenshot.pixel(x, screenshot.height() / 2));
    EXPECT_GT(colours.size(), 20u) << "no picture in the middle of the window";
}

TEST_F(Program, AnUnattendedRunThatDoesNotGetItsFramesFails)
{
    m_environment.insert(QStringLiteral("TOVSCOPE_RIGTEST_FRAMES"), QStringLiteral("100000000"));
    m_environment.insert(QStringLiteral("TOVSCOPE_RIGTEST_TIMEOUT"), QStringLiteral("2"));
    Start(QStringLiteral(TOV_PROGRAM), {QStringLiteral("rigtest"), QStringLiteral("auto")});
    EXPECT_EQ(Finish(), 1);
    EXPECT_TRUE(m_output.contains(QStringLiteral("Failed: time-out"))) << qPrintable(m_output);
}

TEST_F(Program, StartsOverABrokenLogPropertyFile)
{
    QString const program = CopyAlone();
    ASSERT_TRUE(QFile::copy(QStringLiteral(TOV_PLUGIN), m_folder.filePath(QStringLiteral("RigTestA.dll"))));
    Put("tovscopelog.property", "log4cpp.rootCategory=DEBUG, nowhere\n\xff\xfe=\n");
    Start(program, {QStringLiteral("rigtest"), QStringLiteral("auto")});
    EXPECT_EQ(Finish(), 0) << qPrintable(m_output);
}

TEST_F(Program, StartsWithoutAnythingBesideIt)
{
    Start(CopyAlone(), {QStringLiteral("rigtest"), QStringLiteral("auto")});
    ExpectKeepsRunning();
}

TEST_F(Program, StartsOverABrokenPlugin)
{
    QString const program = CopyAlone();
    Put("RigTestA.dll", "\x7f"
                        "ELF no plug-in at all");
    Start(program, {QStringLiteral("rigtest")});
    ExpectKeepsRunning();
}

} // namespace
