#include "workingthread.h"

#include "asleep.h"
#include "wait.h"

#include <atomic>
#include <functional>

namespace {

class Worker : public WorkingThread
{
public:
    ~Worker() override
    {
        gate.Open();
        Terminate();
    }
    // Nothing of a pass is under way, and the thread does not turn in circles; a thread sanitizer also sees the access.
    void ExpectAtRest()
    {
        int const before = passes;
        m_plain = 0;
        EXPECT_TRUE(OthersFallAsleep());
        EXPECT_EQ(passes, before);
    }
    // Of one that runs. Only the end of the pass under way ends it.
    void ExpectStopWaitsForThePass()
    {
        gate.Close();
        ASSERT_TRUE(OthersFallAsleep());
        auto stop = std::async(std::launch::async, [this] { return Stop(); });
        ASSERT_TRUE(OthersFallAsleep());
        EXPECT_TRUE(IsUnderWay(stop));
        gate.Open();
        ASSERT_TRUE(Returns(stop));
        EXPECT_NE(stop.get(), 0);
        ExpectAtRest();
    }

    Gate gate; // at the end of a pass
    std::atomic<int> passes{0};
    std::atomic<bool> endsItself{false}; // in the next pass

protected:
    void Work() override
    {
        ++m_plain;
        if (endsItself)
            m_bStart = false;
        ++passes;
        gate.Pass();
    }

private:
    int m_plain = 0;
};

TEST(WorkingThread, EveryStartWakesItAndEveryStopWaitsForThePassUnderWay)
{
    Worker worker;
    for (int i = 0; i < 20; ++i) {
        worker.ExpectAtRest();
        int const before = worker.passes;
        ASSERT_TRUE(worker.Start());
        EXPECT_FALSE(worker.Start());
        ASSERT_TRUE(Becomes([&] { return worker.passes > before; })) << "it sleeps on";
        worker.ExpectStopWaitsForThePass();
        EXPECT_EQ(worker.Stop(), 0);
    }
}

// Whatever follows waits for its last pass, and takes no report of it for an answer to something later.
TEST(WorkingThread, OneThatHasEndedItselfStaysAtRestUntilItIsStartedAgain)
{
    std::function<int(Worker &)> const calls[] = {
        [](Worker &worker) { return worker.Stop(); },
        [](Worker &worker) { return worker.Start() ? 1 : -1; },
        [](Worker &worker) { return worker.Terminate(), 0; },
    };
    for (auto const &call : calls) {
        SCOPED_TRACE(&call - calls);
        Worker worker;
        worker.gate.Close();
        worker.endsItself = true;
        ASSERT_TRUE(worker.Start());
        ASSERT_TRUE(Becomes([&] { return worker.passes == 1; }));
        auto result = std::async(std::launch::async, [&] { return call(worker); });
        ASSERT_TRUE(OthersFallAsleep());
        EXPECT_TRUE(IsUnderWay(result));
        worker.endsItself = false;
        worker.gate.Open();
        ASSERT_TRUE(Returns(result));
        int const given = result.get();
        EXPECT_EQ(given, &call - calls == 1);
        if (given == 0) {
            worker.ExpectAtRest();
            EXPECT_EQ(worker.passes, 1);
            EXPECT_EQ(worker.Start(), &call == calls);
        }
        if (&call != calls + 2)
            worker.ExpectStopWaitsForThePass();
    }
    Worker worker; // by itself, and nobody asks
    worker.endsItself = true;
    for (int i = 1; i < 4; ++i) {
        ASSERT_TRUE(worker.Start());
        ASSERT_TRUE(Becomes([&] { return worker.passes == i; }));
        worker.ExpectAtRest();
    }
    worker.endsItself = false;
    ASSERT_TRUE(worker.Start());
    worker.ExpectStopWaitsForThePass();
}

TEST(WorkingThread, AStopRightBehindItsStartReturnsAndSoDoesTheEnd)
{
    Worker worker;
    for (int i = 0; i < 2000; ++i) {
        ASSERT_TRUE(worker.Start());
        if (i % 3 == 0)
            std::this_thread::yield();
        ASSERT_NE(worker.Stop(), 0);
    }
    worker.ExpectAtRest();
    for (int i = 0; i < 300; ++i) {
        Worker ended;
        if (i % 4 > 0)
            ended.Start();
        if (i % 4 > 1)
            ended.Stop();
        if (i % 4 > 2)
            ended.Start();
        ended.Terminate();
        ended.Terminate();
        EXPECT_FALSE(ended.Start());
    }
}

} // namespace
