// What the mains of the tests share.
#pragma once

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <unistd.h>

// Ends a program that hangs, as over a thread that cannot be joined, and says in which test: ctest would end it later,
// without a word. TOV_TEST_LIMIT are the seconds for the whole program; without it there is no limit. A signal, not a
// thread: some tests enter namespaces, which only a process with one thread may do.
class HangGuard final : public testing::EmptyTestEventListener
{
public:
    static void Install()
    {
        char const *const limit = std::getenv("TOV_TEST_LIMIT");
        if (!limit)
            return;
        testing::UnitTest::GetInstance()->listeners().Append(new HangGuard); // which takes it
        std::signal(SIGALRM, [](int) {
            [[maybe_unused]] auto const written = write(STDERR_FILENO, s_message, std::strlen(s_message));
            std::abort();
        });
        alarm(static_cast<unsigned>(std::atoi(limit)));
    }

private:
    void OnTestStart(testing::TestInfo const &test) override
    {
        std::snprintf(s_message, sizeof s_message,
                      "\nThe time of this program is over in the middle of %s.%s: it hangs\n", test.test_suite_name(),
                      test.name());
    }
    void OnTestEnd(testing::TestInfo const &) override
    {
        std::snprintf(s_message, sizeof s_message, "\nThe time of this program is over between its tests\n");
    }

    static inline char s_message[500] = "\nThe time of this program is over before its first test\n";
};

inline int RunTests(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    HangGuard::Install();
    return RUN_ALL_TESTS();
}
