#include "OneShotManager.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "LogCapture.h"
#include "MainLoopPump.h"

using CorvaneTest::drainMainContext;
using CorvaneTest::LogCapture;
using CorvaneTest::pumpUntil;
using Kestrix::Web::OneShotManager;

namespace {

// What the queued functions did: which ran, in what order, on which thread.
struct Runs {
    std::mutex mutex;
    std::vector<int> order;
    std::vector<std::thread::id> threads;

    size_t size() {
        std::lock_guard<std::mutex> lock(mutex);
        return order.size();
    }
};

struct Job {
    Runs* runs;
    int id;
};

void runJob(void* data) {
    Job* job = static_cast<Job*>(data);
    std::lock_guard<std::mutex> lock(job->runs->mutex);
    job->runs->order.push_back(job->id);
    job->runs->threads.push_back(std::this_thread::get_id());
}

class OneShotManagerTest : public ::testing::Test {
protected:
    // The browser's main thread owns the default main context long before
    // any worker posts to it; make it so here too (otherwise the first
    // worker would create it, and its wake-up descriptor, on its own).
    void SetUp() override { g_main_context_default(); }
    void TearDown() override { drainMainContext(); }
};

TEST_F(OneShotManagerTest, DestroyingWithQueuedCallbacksRunsNoneOfThem) {
    LogCapture log;
    auto manager = std::make_unique<OneShotManager>();
    Runs runs;
    std::vector<Job> jobs{{&runs, 1}, {&runs, 2}};
    std::thread worker([&] {
        for (Job& job : jobs) {
            manager->scheduleAsyncCallback(&runJob, &job);
        }
    });
    worker.join();

    manager.reset();

    // The turns already asked for still come, find no manager, and only log.
    ASSERT_TRUE(
        pumpUntil([&] { return log.count("DBG OneShotManagerHelper::shoot() - aborting callback") == 2; }));
    drainMainContext();
    EXPECT_EQ(runs.size(), 0u);
}

TEST_F(OneShotManagerTest, ManyThreadsQueueingAtOnceLoseNothingAndKeepEachThreadsOrder) {
    const int kThreads = 4;
    const int kPerThread = 50;
    OneShotManager manager;
    Runs runs;
    std::vector<Job> jobs;
    jobs.reserve(kThreads * kPerThread);
    for (int t = 0; t < kThreads; ++t) {
        for (int i = 0; i < kPerThread; ++i) {
            jobs.push_back(Job{&runs, t * 1000 + i});
        }
    }

    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kPerThread; ++i) {
                manager.scheduleAsyncCallback(&runJob, &jobs[t * kPerThread + i]);
            }
        });
    }
    // The main loop turns while the others are still queueing.
    ASSERT_TRUE(pumpUntil([&] { return runs.size() == static_cast<size_t>(kThreads * kPerThread); }));
    for (std::thread& thread : threads) {
        thread.join();
    }
    drainMainContext();

    ASSERT_EQ(runs.order.size(), static_cast<size_t>(kThreads * kPerThread));
    for (std::thread::id id : runs.threads) EXPECT_EQ(id, std::this_thread::get_id());
    std::vector<int> next(kThreads, 0);
    for (int id : runs.order) {
        int t = id / 1000;
        EXPECT_EQ(id % 1000, next[t]) << "thread " << t << " out of order";
        next[t] = id % 1000 + 1;
    }
}

}  // namespace
