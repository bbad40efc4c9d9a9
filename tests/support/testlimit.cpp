// A limit for each test of every executable. A thread that nobody wakes cannot be joined, so a test that passes its
// limit ends the process, and says which one it was. TOV_TEST_LIMIT holds the seconds; 0, as for a debugger, is none.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <string>
#include <unistd.h>

namespace {

constexpr unsigned DefaultLimit = 90; // seconds
std::string s_message;

void GiveUp(int)
{
    if (write(STDOUT_FILENO, s_message.data(), s_message.size()) < 0)
        _exit(2);
    _exit(1);
}

class TestLimit : public testing::EmptyTestEventListener
{
    void OnTestStart(testing::TestInfo const &test) override
    {
        char const *const text = std::getenv("TOV_TEST_LIMIT");
        unsigned const limit = text ? static_cast<unsigned>(std::atoi(text)) : DefaultLimit;
        s_message = std::string("\n[  FAILED  ] ") + test.test_suite_name() + "." + test.name() + " has not ended in " +
                    std::to_string(limit) + " s: a call does not return\n";
        std::signal(SIGALRM, GiveUp);
        alarm(limit);
    }
    // The fixture is gone by now, too.
    void OnTestEnd(testing::TestInfo const &) override
    {
        alarm(0);
    }
};

// gtest owns it.
bool const s_isInstalled = (testing::UnitTest::GetInstance()->listeners().Append(new TestLimit), true);

} // namespace
