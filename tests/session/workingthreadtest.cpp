#include "workingthread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace {

class Worker : public WorkingThread
{
public:
    ~Worker() override
    {
        Terminate();
    }
    std::atomic<int> passes{0};
    std::atomic<int> passesLeft{-1}; // the worker ends itself when they are used up
    std::atomic<bool> slow{false};
    std::atomic<bool> inPass{false};

    // Nothing of a pass is under way; a thread sanitizer also sees the access.
    void ExpectAtRest()
    {
        EXPECT_FALSE(inPass);
        m_plain = 0;
    }

protected:
    void Work() override
    {
        inPass = true;
        ++passes;
        ++m_plain;
        if (passesLeft > 0 && --passesLeft == 0)
            m_bStart = false;
        if (slow)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        inPass = false;
    }

private:
    int m_plain = 0;
};

TEST(WorkingThread, StopRightAfterStartReturnsAndLeavesNoPassBehind)
{
    Worker worker;
    for (int i = 0; i < 3000; ++i) {
        ASSERT_TRUE(worker.Start());
        if (i % 3 == 0)
            std::this_thread::yield();
        ASSERT_NE(worker.Stop(), 0);
        ASSERT_EQ(worker.Stop(), 0);
        worker.ExpectAtRest();
    }
    for (int i = 0; i < 500; ++i) {
        Worker ended;
        ended.Start();
        ended.Stop();
        ended.Start();
        ended.Terminate();
        ended.ExpectAtRest();
    }
    Worker other;
    ASSERT_TRUE(other.Start());
    EXPECT_FALSE(other.Start());
    other.Terminate();
    other.Terminate();
    other.ExpectAtRest();
    EXPECT_FALSE(other.Start());
}

// The report of a worker that ended its passes itself must not pass for the answer to a later Stop, and a Stop that
// finds it ended waits for its last pass.
TEST(WorkingThread, AWorkerThatEndsItselfCanBeStartedAgain)
{
    Worker worker;
    worker.slow = true;
    for (int i = 0; i < 50; ++i) {
        worker.passesLeft = 1;
        ASSERT_TRUE(worker.Start());
        while (i % 2 && worker.passesLeft != 0)
            std::this_thread::yield();
        worker.Stop();
        worker.ExpectAtRest();
        worker.passesLeft = -1;
        int const before = worker.passes;
        ASSERT_TRUE(worker.Start());
        while (worker.passes == before)
            std::this_thread::yield();
        ASSERT_NE(worker.Stop(), 0);
        worker.ExpectAtRest();
    }
}

} // namespace
