#include "featureworker.h"
#include "featurecamera.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>

using namespace TovGui;
using Kind = FeatureResult::Kind;
using std::chrono::seconds;

namespace {

class FeatureWorkerTest : public testing::Test
{
protected:
    std::shared_ptr<FeatureCamera> m_camera = std::make_shared<FeatureCamera>();
    std::unique_ptr<FeatureWorker> m_worker;
    std::mutex m_mutex; // guards m_wakes
    std::condition_variable m_woken;
    int m_wakes = 0;

    FeatureWorkerTest()
    {
        for (char const *name : {"a", "b", "c", "d", "e"})
            m_camera->Add(name, TovCam::FeatureKind::Integer, 0);
    }
    ~FeatureWorkerTest() override
    {
        m_camera->Hold(false);
    }
    void Start()
    {
        m_worker = std::make_unique<FeatureWorker>(m_camera.get(), [this] {
            std::lock_guard const lock(m_mutex);
            ++m_wakes;
            m_woken.notify_all();
        });
    }
    // Until `count` results have come.
    std::vector<FeatureResult> Results(std::size_t count)
    {
        std::vector<FeatureResult> all;
        while (all.size() < count) {
            {
                std::unique_lock lock(m_mutex);
                if (!m_woken.wait_for(lock, seconds(90), [this] { return m_wakes > 0; }))
                    break;
                m_wakes = 0;
            }
            for (FeatureResult &result : m_worker->TakeResults())
                all.push_back(std::move(result));
        }
        EXPECT_EQ(all.size(), count);
        all.resize(count);
        return all;
    }
};

// Writes go first and in their order, of a slider's places only the newest, and reads are those wanted last.
TEST_F(FeatureWorkerTest, OrdersTheAccesses)
{
    m_camera->Hold(true);
    Start();
    m_worker->SetReads({1, 2});
    m_worker->AskDone(4);
    m_worker->AskDone(4);
    TovCam::FeatureValue value;
    value.integer = 7;
    std::uint64_t const first = m_worker->Write(5, value);
    for (int const step : {1, 2, 3}) {
        value.integer = step;
        m_worker->Write(1, value, true);
    }
    m_worker->Write(3, value);
    m_worker->Write(1, value, true);
    m_worker->Write(1, value);
    m_worker->Write(1, value); // by hand: both count
    m_worker->SetReads({1, 5});
    m_camera->Hold(false);
    std::vector<FeatureResult> const results = Results(9);
    EXPECT_EQ(m_camera->TakeLog(), "w5 w1 w3 w1 w1 a4 r1 r5");
    EXPECT_EQ(results[0].kind, Kind::Loaded);
    EXPECT_EQ(results[0].features.size(), 6u);
    EXPECT_EQ(results[1].ticket, first);
    EXPECT_TRUE(results[6].done);
    EXPECT_EQ(results[7].state.value.integer, 3);
    EXPECT_EQ(results[8].state.value.integer, 7);
}

// Each of the calls wakes a thread that sleeps, and each result its owner. It is asleep nearly every time.
TEST_F(FeatureWorkerTest, WakesForEachCall)
{
    Start();
    EXPECT_EQ(Results(1)[0].kind, Kind::Loaded);
    for (std::int64_t i = 1; i <= 50; ++i) {
        TovCam::FeatureValue value;
        value.integer = i;
        std::uint64_t const ticket = m_worker->Write(2, value);
        EXPECT_EQ(Results(1)[0].ticket, ticket);
        m_worker->SetReads({2});
        EXPECT_EQ(Results(1)[0].state.value.integer, i);
        m_worker->AskDone(2); // again, after an answer
        ASSERT_EQ(Results(1)[0].kind, Kind::Asked);
    }
    EXPECT_EQ(m_camera->reads, 50);
    for (int i = 0; i < 50; ++i) {
        m_worker.reset();
        Start();
        ASSERT_EQ(Results(1)[0].kind, Kind::Loaded);
    }
}

// What waits when the owner goes is never done.
TEST_F(FeatureWorkerTest, EndsInTheMiddleOfAnAccessAndDoesNoMore)
{
    for (bool const held : {true, false}) {
        m_camera->Hold(held);
        Start();
        m_worker->Write(1, {});
        m_worker->SetReads({1, 2, 3});
        while (held && m_camera->running == 0)
            std::this_thread::yield();
        m_worker.reset();
        EXPECT_EQ(m_camera->running, held ? 1 : 0);
        m_camera->TakeLog();
        m_camera->Hold(false);
        while (m_camera.use_count() > 1) // the thread's
            std::this_thread::yield();
        EXPECT_EQ(m_camera->TakeLog(), "");
    }
}

} // namespace
