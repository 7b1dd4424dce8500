// The queue that hands work from worker threads to the browser's main
// thread, and what happens to work still queued when its owner goes.
#include "OneShotManager.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "LogCapture.h"
#include "MainLoopPump.h"

using CorvaneTest::drainMainContext;
using CorvaneTest::pumpUntil;
using Kestrix::Web::OneShotManager;

namespace {

// Which queued jobs ran, in what order, and whether on the main thread.
struct Runs {
    size_t size() {
        std::lock_guard<std::mutex> lock(mutex);
        return order.size();
    }
    std::mutex mutex;
    std::vector<int> order;
    bool offMainThread = false;
    std::thread::id main = std::this_thread::get_id();
};

struct Job {
    Runs* runs;
    int id;
};

void runJob(void* data) {
    Job* job = static_cast<Job*>(data);
    std::lock_guard<std::mutex> lock(job->runs->mutex);
    job->runs->order.push_back(job->id);
    job->runs->offMainThread |= std::this_thread::get_id() != job->runs->main;
}

class OneShotManagerTest : public ::testing::Test {
protected:
    // The browser's main thread owns the default main context before any
    // worker posts to it (else the first worker would create it).
    void SetUp() override { g_main_context_default(); }
    void TearDown() override { drainMainContext(); }
};

}  // namespace

// Threads queueing at once while the main loop turns: nothing is lost, each
// thread's order is kept, everything runs on the main thread.
TEST_F(OneShotManagerTest, QueueHandsWorkToTheMainThreadInOrder) {
    OneShotManager manager;
    Runs runs;
    std::vector<Job> jobs;
    for (int i = 0; i < 200; ++i) jobs.push_back(Job{&runs, i});
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 50; ++i) manager.scheduleAsyncCallback(&runJob, &jobs[t * 50 + i]);
        });
    }
    ASSERT_TRUE(pumpUntil([&] { return runs.size() == 200; }));
    for (std::thread& thread : threads) thread.join();
    drainMainContext();
    std::vector<int> next(4, 0);
    for (int id : runs.order) {
        EXPECT_EQ(next[id / 50], id % 50) << "thread " << id / 50 << " out of order";
        next[id / 50] = id % 50 + 1;
    }
    EXPECT_EQ(200u, runs.order.size());
    EXPECT_FALSE(runs.offMainThread);
}

// The turns already asked for still come, find no manager, and run nothing.
TEST_F(OneShotManagerTest, CallbacksQueuedWhenTheManagerGoesNeverRun) {
    CorvaneTest::LogCapture log;
    auto manager = std::make_unique<OneShotManager>();
    Runs runs;
    std::vector<Job> jobs{{&runs, 1}, {&runs, 2}};
    std::thread worker([&] {
        for (Job& job : jobs) manager->scheduleAsyncCallback(&runJob, &job);
    });
    worker.join();
    manager.reset();
    ASSERT_TRUE(
        pumpUntil([&] { return log.count("DBG OneShotManagerHelper::shoot() - aborting callback") == 2; }));
    drainMainContext();
    EXPECT_EQ(0u, runs.size());
}
