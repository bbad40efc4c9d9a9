// The program as a whole, as it is started from a shell.
#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QImage>
#include <QProcess>
#include <QRegularExpression>
#include <QSet>
#include <QTemporaryDir>

namespace {

class Program : public testing::Test
{
protected:
    // Makes a copy of the executable in a folder of its own, with one file beside it.
    QString CopyWith(char const *name, QByteArray const &content)
    {
        QFile file(m_folder.filePath(QString::fromLatin1(name)));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(content);
        QString const copy = m_folder.filePath(QStringLiteral("tovscope"));
        EXPECT_TRUE(QFile::copy(QStringLiteral(TOV_PROGRAM), copy));
        return copy;
    }
    // Unattended, with a number of frames to see in some seconds. True when it ended within the milliseconds.
    bool Run(QString const &program, char const *frames, char const *seconds, int milliseconds)
    {
        qputenv("TOVSCOPE_RIGTEST_DIR", m_folder.path().toUtf8());
        qputenv("TOVSCOPE_RIGTEST_FRAMES", frames);
        qputenv("TOVSCOPE_RIGTEST_TIMEOUT", seconds);
        m_process.start(program, {QStringLiteral("rigtest"), QStringLiteral("auto")});
        bool const ended = m_process.waitForStarted() && m_process.waitForFinished(milliseconds);
        m_output = m_process.readAllStandardOutput().toStdString();
        return ended && m_process.exitStatus() == QProcess::NormalExit;
    }
    QTemporaryDir m_folder;
    QProcess m_process;
    std::string m_output;
};

TEST_F(Program, RunsUnattendedAndLeavesAScreenshotOfTheLivePicture)
{
    ASSERT_TRUE(Run(QStringLiteral(TOV_PROGRAM), "40", "150", 180000)) << m_output;
    EXPECT_EQ(m_process.exitCode(), 0);
    EXPECT_TRUE(QString::fromStdString(m_output).contains(QRegularExpression(
        QStringLiteral("GetRigTest\\(\\)->PrepareToAcquition\\(\\)[\\s\\S]*Camera +\\S.*\\n"
                       "Frames +[4-9]\\d\\d? complete, 0 incomplete[\\s\\S]*GetRigTest\\(\\)->OnStop\\(\\)"))))
        << m_output;
    QImage const screenshot(m_folder.filePath(QStringLiteral("tovscope-demo.png")));
    ASSERT_GE(screenshot.width(), 800);
    QSet<QRgb> colours;
    for (int x = 100; x < screenshot.width() - 100; x += 3)
        colours.insert(screenshot.pixel(x, screenshot.height() / 2));
    EXPECT_GT(colours.size(), 20) << "no picture in the middle of the window";
}

TEST_F(Program, RecordsASeriesUnattended)
{
    qputenv("TOVSCOPE_RIGTEST_RECORD", "4");
    bool const ended = Run(QStringLiteral(TOV_PROGRAM), "1", "150", 180000);
    qunsetenv("TOVSCOPE_RIGTEST_RECORD");
    ASSERT_TRUE(ended) << m_output;
    EXPECT_EQ(m_process.exitCode(), 0);
    auto const files = QDir(m_folder.filePath(QStringLiteral("series"))).entryInfoList(QDir::Files);
    EXPECT_GE(files.size(), 4);
    QString const companions = m_folder.filePath(QStringLiteral("series/%1.series").arg(files.value(0).baseName()));
    EXPECT_EQ(QDir(companions).entryList(QDir::Files).size(), 5) << "table, two headers, ledger, configuration";
    for (QFileInfo const &file : files)
        EXPECT_EQ(file.size(), 2048 * 1536) << file.fileName().toStdString();
    EXPECT_NE(m_output.find("Recorded    " + std::to_string(files.size()) + " frames of 2048 x 1536 Mono8"),
              std::string::npos)
        << m_output;
}

TEST_F(Program, WithoutItsFramesAnUnattendedRunFailsAndABrokenLogFileIsNoHindrance)
{
    QString const program = CopyWith("tovscopelog.property", "log4cpp.rootCategory=DEBUG, nowhere\n\xff\xfe=\n");
    ASSERT_TRUE(QFile::copy(QStringLiteral(TOV_PLUGIN), m_folder.filePath(QStringLiteral("RigTestA.dll"))));
    ASSERT_TRUE(Run(program, "100000000", "2", 180000)) << m_output;
    EXPECT_EQ(m_process.exitCode(), 1);
    EXPECT_NE(m_output.find("Failed: time-out"), std::string::npos) << m_output;
}

TEST_F(Program, GoesOnOverABrokenPluginAndWithoutALogFile)
{
    QString const program = CopyWith("RigTestA.dll", "\x7f"
                                                     "ELF no plug-in at all");
    EXPECT_FALSE(Run(program, "40", "60", 2000)) << m_output;
    EXPECT_EQ(m_process.state(), QProcess::Running);
    m_process.kill();
    m_process.waitForFinished();
}

} // namespace
