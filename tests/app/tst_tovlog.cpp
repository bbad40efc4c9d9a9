#include "tovlog.h"

#include <gtest/gtest.h>

#include <log4cpp/Appender.hh>
#include <log4cpp/Category.hh>
#include <log4cpp/OstreamAppender.hh>
#include <log4cpp/PatternLayout.hh>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>

#include <syslog.h>

namespace {

TEST(HelpStr, ReturnsTheWholeTextOfAnyLength)
{
    for (std::size_t length : {0u, 510u, 511u, 512u, 200000u}) {
        std::string const filler(length, 'x');
        std::unique_ptr<char[]> const text(help_str("%s%d", filler.c_str(), 7));
        EXPECT_EQ(text.get(), filler + "7") << length;
        std::unique_ptr<wchar_t[]> const wide(help_str(L"%s%d", filler.c_str(), 7));
        EXPECT_EQ(wide.get(), std::wstring(length, L'x') + L"7") << length;
    }
    wchar_t const unencodable[] = {wchar_t(0x7fffffff), 0}; // fails at every capacity
    EXPECT_STREQ(std::unique_ptr<char[]>(help_str("%ls", unencodable)).get(), "");
}

TEST(Log, WritesTheTextsItsReadersParseAndHonoursTheLevel)
{
    std::ostringstream output;
    auto *const layout = new log4cpp::PatternLayout;
    layout->setConversionPattern("%c [%p] %m%n");
    auto *const appender = new log4cpp::OstreamAppender("test", &output);
    appender->setLayout(layout);
    log4cpp::Category &category = log4cpp::Category::getInstance("TOVSCP");
    category.setAdditivity(false);
    category.setAppender(appender); // the category owns it
    for (log4cpp::Priority::Value level : {log4cpp::Priority::DEBUG, log4cpp::Priority::WARN}) {
        category.setPriority(level);
        TovLog::Debug(0, "%d%% of %s", 50, "%s");
        TovLog::Info(1, "%s", "i\n\x1b[1m\x7f");
        TovLog::Notice("n=%d", 7);
        TovLog::Warning(3, "w");
        TovLog::Error(18446744073709551615ul, "e");
        TovLog::Fatal(5, "f");
    }
    category.removeAllAppenders();
    std::string const upper = "TOVSCP [WARN] w, code=3\n"
                              "TOVSCP [ERROR] e, code=18446744073709551615\n"
                              "TOVSCP [FATAL] f, code=5\n";
    EXPECT_EQ(output.str(),
              "TOVSCP [DEBUG] 50% of %s, code=0\nTOVSCP [INFO] i  [1m , code=1\nTOVSCP [NOTICE] n=7\n" + upper + upper);
}

class LogConfiguration : public testing::Test
{
protected:
    ~LogConfiguration() override
    {
        Configure("missing");
    }
    // Gives what appears on standard error, with a copy of what goes to the system log.
    std::string Configure(std::string const &content)
    {
        log4cpp::Category::getRoot().removeAllAppenders();
        log4cpp::Category::getInstance("TOVSCP").removeAllAppenders();
        for (char const *name : {"a", "b", "console", "file"})
            delete log4cpp::Appender::getAppender(name); // the library never does
        if (content != "missing")
            std::ofstream(m_file) << content;
        openlog("tst", LOG_PERROR, LOG_USER);
        testing::internal::CaptureStderr();
        TovLog4Cpp_configure("tst_tovlog.property", "TOVSCP");
        closelog();
        std::filesystem::remove(m_file);
        return testing::internal::GetCapturedStderr();
    }
    std::string const m_folder = std::filesystem::read_symlink("/proc/self/exe").parent_path().string();
    std::string const m_file = m_folder + "/tst_tovlog.property";
};

TEST_F(LogConfiguration, OverABrokenFileDisablesLoggingAndLetsNothingEscape)
{
    for (char const *content : {"missing", "", "\x01\xff\xfe garbage \n===\n", "log4cpp.rootCategory=DEBUG, nowhere\n",
                                "log4cpp.rootCategory=NONSENSE, "
                                "a\nlog4cpp.appender.a=ConsoleAppender\nlog4cpp.appender.a.layout=BasicLayout\n",
                                "log4cpp.rootCategory=DEBUG, a\nlog4cpp.category.TOVSCP=DEBUG, b\n"
                                "log4cpp.appender.a=ConsoleAppender\nlog4cpp.appender.a.layout=BasicLayout\n"}) {
        EXPECT_EQ(Configure(content),
                  "tst: TovLog4Cpp: trying to load " + m_file +
                      "\ntst: TovLog4Cpp: PropertyConfigurator::configure failed, logging is disabled!\n");
        EXPECT_EQ(log4cpp::Category::getRoot().getAppender(), nullptr) << content;
        TovLog::Error(1, "still harmless");
    }
}

TEST_F(LogConfiguration, OurDefaultFileTellsFatalErrorsOnStandardError)
{
    std::ifstream original(TOV_LOG_PROPERTY);
    std::string text(std::istreambuf_iterator<char>(original), {});
    EXPECT_NE(Configure(text).find("succeeded!"), std::string::npos);
    testing::internal::CaptureStderr();
    TovLog::Error(8, "quiet");
    TovLog::Fatal(9, "loud");
    std::string const output = testing::internal::GetCapturedStderr();
    EXPECT_EQ(output.find("quiet"), std::string::npos);
    EXPECT_NE(output.find("[FATAL] loud, code=9\n"), std::string::npos) << output;
}

} // namespace
