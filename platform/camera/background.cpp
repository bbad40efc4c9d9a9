#include "background.h"

#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace {

struct Worker
{
    std::thread thread;
    std::shared_ptr<BackgroundJob const> job;
};

struct Workers
{
    std::mutex mutex; // guards `workers`; held with `finished`
    std::condition_variable finished;
    std::vector<Worker> workers;

    ~Workers()
    {
        // A job may have started another one.
        std::unique_lock<std::mutex> lock(mutex);
        while (!workers.empty()) {
            std::thread thread = std::move(workers.back().thread);
            workers.pop_back();
            lock.unlock();
            thread.join();
            lock.lock();
        }
    }
};

Workers &GetWorkers()
{
    static Workers workers;
    return workers;
}

} // namespace

std::shared_ptr<BackgroundJob const> Background::Run(std::function<void()> job, std::chrono::milliseconds patience)
{
    Workers &all = GetWorkers();
    auto state = std::make_shared<BackgroundJob>();
    {
        std::lock_guard<std::mutex> lock(all.mutex);
        std::erase_if(all.workers, [](Worker &worker) {
            if (!worker.job->IsDone())
                return false;
            worker.thread.join();
            return true;
        });
        all.workers.push_back({std::thread([state, job = std::move(job), &all]() mutable {
                                   job();
                                   job = nullptr; // what it holds goes before it counts as done
                                   std::lock_guard<std::mutex> lock(all.mutex);
                                   state->m_done.store(true, std::memory_order_release);
                                   all.finished.notify_all();
                               }),
                               state});
    }
    Wait(*state, patience);
    return state;
}

bool Background::Wait(BackgroundJob const &job, std::chrono::milliseconds patience)
{
    Workers &all = GetWorkers();
    std::unique_lock<std::mutex> lock(all.mutex);
    return all.finished.wait_for(lock, patience, [&job] { return job.IsDone(); });
}
