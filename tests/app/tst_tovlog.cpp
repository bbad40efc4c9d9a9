#include "tovlog.h"

#include <gtest/gtest.h>

#include <log4cpp/Appender.hh>
#include <log4cpp/Category.hh>
#include <log4cpp/OstreamAppender.hh>
#include <log4cpp/PatternLayout.hh>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>

#include <syslog.h>
#include <unistd.h>

namespace {

using Text = std::unique_ptr<char[]>;

std::filesystem::path besideExecutable(std::string const &file)
{
    return std::filesystem::read_symlink("/proc/self/exe").parent_path() / file;
}

TEST(HelpStr, ReturnsTheWholeTextOfAnyLength)
{
    for (std::size_t length : {0u, 1u, 511u, 512u, 513u, 1023u, 5000u, 200000u}) {
        std::string const expected(length, 'x');
        Text const text(help_str("%s", expected.c_str()));
        EXPECT_EQ(text.get(), expected) << length;
        std::unique_ptr<wchar_t[]> const wide(help_str(L"%s", expected.c_str()));
        EXPECT_EQ(wide.get(), std::wstring(length, L'x')) << length;
    }
}

TEST(HelpStr, FormatsEveryArgumentAgainWhenTheFirstBufferWasTooSmall)
{
    std::string const filler(600, '-');
    Text const text(help_str("%d%s%lu%.2f", -7, filler.c_str(), 18446744073709551615ul, 2.5));
    EXPECT_EQ(text.get(), "-7" + filler + "18446744073709551615" + "2.50");
}

TEST(HelpStr, EndsForTextThatNoSizeCanHold)
{
    wchar_t const unencodable[] = {wchar_t(0x7fffffff), 0}; // fails at every capacity
    Text const text(help_str("%ls", unencodable));
    EXPECT_STREQ(text.get(), "");
}

class LogFacade : public testing::Test
{
protected:
    LogFacade()
    {
        auto *const appender = new log4cpp::OstreamAppender("test", &m_output);
        auto *const layout = new log4cpp::PatternLayout;
        layout->setConversionPattern("%c [%p] %m%n");
        appender->setLayout(layout);
        m_category.setAdditivity(false);
        m_category.setAppender(appender); // the category owns it
        m_category.setPriority(log4cpp::Priority::DEBUG);
    }
    ~LogFacade() override
    {
        m_category.removeAllAppenders();
    }
    std::string Take()
    {
        std::string const text = m_output.str();
        m_output.str("");
        return text;
    }

    std::ostringstream m_output;
    log4cpp::Category &m_category = log4cpp::Category::getInstance("TOVSCP");
};

TEST_F(LogFacade, WritesTheTextsItsReadersParse)
{
    char message[] = "50% of %s";
    TovLog4Cpp_Debug("TOVSCP", 0, message);
    TovLog4Cpp_Info("TOVSCP", 1, message);
    TovLog4Cpp_Notice("TOVSCP", message);
    TovLog4Cpp_Warning("TOVSCP", 3, message);
    TovLog4Cpp_Error("TOVSCP", 18446744073709551615ul, message);
    TovLog4Cpp_Fatal("TOVSCP", 5, message);
    EXPECT_EQ(Take(), "TOVSCP [DEBUG] 50% of %s, code=0\n"
                      "TOVSCP [INFO] 50% of %s, code=1\n"
                      "TOVSCP [NOTICE] 50% of %s\n"
                      "TOVSCP [WARN] 50% of %s, code=3\n"
                      "TOVSCP [ERROR] 50% of %s, code=18446744073709551615\n"
                      "TOVSCP [FATAL] 50% of %s, code=5\n");
}

TEST_F(LogFacade, HelperWritesTheSameAndHonoursTheLevel)
{
    TovLog::Debug(2, "%s -> ENTER", "X::Y()");
    TovLog::Notice("n=%d", 7);
    EXPECT_EQ(Take(), "TOVSCP [DEBUG] X::Y() -> ENTER, code=2\nTOVSCP [NOTICE] n=7\n");

    m_category.setPriority(log4cpp::Priority::WARN);
    TovLog::Debug(1, "a");
    TovLog::Info(1, "b");
    TovLog::Notice("c");
    TovLog::Warning(4, "d");
    TovLog::Error(5, "e");
    TovLog::Fatal(6, "f");
    EXPECT_EQ(Take(), "TOVSCP [WARN] d, code=4\nTOVSCP [ERROR] e, code=5\nTOVSCP [FATAL] f, code=6\n");
}

class LogConfiguration : public testing::TestWithParam<std::pair<char const *, bool>>
{
protected:
    LogConfiguration()
    {
        openlog("tst", LOG_PERROR, LOG_USER); // a copy of the system log on stderr
    }
    ~LogConfiguration() override
    {
        closelog();
        Forget();
        std::filesystem::remove(besideExecutable("tst_tovlog.property"));
    }
    // What was configured; the library itself never frees it.
    static void Forget()
    {
        for (log4cpp::Category *category : {&log4cpp::Category::getRoot(), &log4cpp::Category::getInstance("TOVSCP")})
            category->removeAllAppenders();
        for (char const *name : {"a", "b", "console", "file"})
            delete log4cpp::Appender::getAppender(name);
    }
    static std::string Configure()
    {
        testing::internal::CaptureStderr();
        TovLog4Cpp_configure("tst_tovlog.property", "TOVSCP");
        return testing::internal::GetCapturedStderr();
    }
};

TEST_P(LogConfiguration, ReportsToTheSystemLogAndLetsNothingEscape)
{
    std::string const content = GetParam().first;
    std::filesystem::path const file = besideExecutable("tst_tovlog.property");
    if (content != "missing")
        std::ofstream(file) << content;
    std::string const output = Configure();
    std::string const tried = "tst: TovLog4Cpp: trying to load " + file.string() + "\n";
    if (GetParam().second) {
        EXPECT_EQ(output, tried + "tst: TovLog4Cpp: PropertyConfigurator::configure succeeded!\n");
    } else {
        EXPECT_EQ(output, tried + "tst: TovLog4Cpp: PropertyConfigurator::configure failed, logging is disabled!\n");
        EXPECT_EQ(log4cpp::Category::getRoot().getAppender(), nullptr);
    }
    TovLog::Error(1, "still harmless");
}

INSTANTIATE_TEST_SUITE_P(
    Files, LogConfiguration,
    testing::Values(std::pair{"missing", false}, std::pair{"", false}, std::pair{"\x01\xff\xfe garbage \n===\n", false},
                    std::pair{"log4cpp.rootCategory=NONSENSE, a\nlog4cpp.appender.a=ConsoleAppender\n"
                              "log4cpp.appender.a.layout=BasicLayout\n",
                              false},
                    std::pair{"log4cpp.rootCategory=DEBUG, nowhere\n", false},
                    std::pair{"log4cpp.rootCategory=DEBUG, a\nlog4cpp.appender.a=NoSuchAppender\n", false},
                    std::pair{"log4cpp.rootCategory=DEBUG, a\nlog4cpp.category.TOVSCP=DEBUG, b\n"
                              "log4cpp.appender.a=ConsoleAppender\nlog4cpp.appender.a.layout=BasicLayout\n",
                              false},
                    std::pair{"log4cpp.rootCategory=DEBUG, a\nlog4cpp.appender.a=FileAppender\n"
                              "log4cpp.appender.a.fileName=/nonexistent/folder/x.log\n"
                              "log4cpp.appender.a.layout=BasicLayout\n",
                              true}));

// As it is shipped, and with everything that its comments offer switched on.
TEST_F(LogConfiguration, OurDefaultFileWritesToStandardErrorAndOnRequestToAFile)
{
    std::filesystem::copy_file(TOV_LOG_PROPERTY, besideExecutable("tst_tovlog.property"));
    EXPECT_NE(Configure().find("succeeded!"), std::string::npos);
    testing::internal::CaptureStderr();
    TovLog::Error(8, "quiet");
    TovLog::Fatal(9, "loud");
    std::string const output = testing::internal::GetCapturedStderr();
    EXPECT_EQ(output.find("quiet"), std::string::npos);
    EXPECT_NE(output.find("[FATAL] loud, code=9\n"), std::string::npos) << output;
    Forget();

    std::filesystem::path const log = besideExecutable("tst_tovlog.log");
    std::filesystem::remove(log);
    std::ifstream original(TOV_LOG_PROPERTY);
    std::string text(std::istreambuf_iterator<char>(original), {});
    for (auto const &[from, to] : {std::pair<std::string, std::string>{"#log4cpp", "log4cpp"},
                                   {"FATAL, console", "DEBUG, console, file"},
                                   {"/tmp/tovscope.log", log.string()}}) {
        std::size_t at = text.find(from);
        ASSERT_NE(at, std::string::npos) << from;
        for (; at != std::string::npos; at = text.find(from, at + to.size()))
            text.replace(at, from.size(), to);
    }
    std::ofstream(besideExecutable("tst_tovlog.property")) << text;
    EXPECT_NE(Configure().find("succeeded!"), std::string::npos);
    testing::internal::CaptureStderr();
    TovLog::Debug(7, "detail");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    std::string line;
    std::getline(std::ifstream(log) >> std::ws, line);
    EXPECT_NE(line.find(" [DEBUG] detail, code=7"), std::string::npos) << line;
    std::filesystem::remove(log);
}

} // namespace
