#include "OneShotManager.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "LogCapture.h"
#include "MainLoopPump.h"

using CorvaneTest::drainMainContext;
using CorvaneTest::LogCapture;
using CorvaneTest::pumpUntil;
using Kestrix::Web::OneShotManager;

namespace {

std::string format(const char* fmt, const void* pointer, int number = 0) {
    char buffer[160];
    snprintf(buffer, sizeof buffer, fmt, pointer, number);
    return buffer;
}

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

TEST_F(OneShotManagerTest, CallbacksQueuedOnAWorkerRunOnTheMainThreadInOrder) {
    LogCapture log;
    OneShotManager manager;
    Runs runs;
    std::vector<Job> jobs{{&runs, 1}, {&runs, 2}, {&runs, 3}};

    std::thread worker([&] {
        for (Job& job : jobs) {
            manager.scheduleAsyncCallback(&runJob, &job);
        }
    });
    worker.join();
    EXPECT_EQ(runs.size(), 0u) << "nothing runs before the main loop turns";

    ASSERT_TRUE(pumpUntil([&] { return runs.size() == 3; }));
    drainMainContext();
    EXPECT_EQ(runs.order, (std::vector<int>{1, 2, 3}));
    for (std::thread::id id : runs.threads) {
        EXPECT_EQ(id, std::this_thread::get_id());
    }
    EXPECT_TRUE(log.has("DBG OneShotManager::scheduleAsyncCallback() - size=0"));
    EXPECT_TRUE(log.has("DBG OneShotManager::scheduleAsyncCallback() - size=1"));
    EXPECT_TRUE(log.has("DBG OneShotManager::scheduleAsyncCallback() - size=2"));
    EXPECT_EQ(log.count("DBG OneShotManager::asyncCallback()"), 3u);
    EXPECT_EQ(log.count("DBG OneShotManager::asyncCallback() - done"), 3u);
}

TEST_F(OneShotManagerTest, DestroyingWithQueuedCallbacksRunsNoneOfThem) {
    LogCapture log;
    auto manager = std::make_unique<OneShotManager>();
    EXPECT_TRUE(log.has(format("DBG OneShotManager() [%p]", manager.get())));
    const std::string farewell = format("DBG ~OneShotManager() [%p] - queue=%i", manager.get(), 2);
    Runs runs;
    std::vector<Job> jobs{{&runs, 1}, {&runs, 2}};
    std::thread worker([&] {
        for (Job& job : jobs) {
            manager->scheduleAsyncCallback(&runJob, &job);
        }
    });
    worker.join();

    manager.reset();
    EXPECT_TRUE(log.has(farewell));

    // The turns already asked for still come, find no manager, and only log.
    ASSERT_TRUE(
        pumpUntil([&] { return log.count("DBG OneShotManagerHelper::shoot() - aborting callback") == 2; }));
    drainMainContext();
    EXPECT_EQ(runs.size(), 0u);
    EXPECT_EQ(log.count("DBG OneShotManager::asyncCallback()"), 0u);
}

TEST_F(OneShotManagerTest, ACallbackMayQueueAnotherWhichRunsInALaterTurn) {
    OneShotManager manager;
    Runs runs;
    Job second{&runs, 2};
    struct Outer {
        OneShotManager* manager;
        Job* next;
        Runs* runs;
        bool nextRanBeforeReturn = false;
    } outer{&manager, &second, &runs};

    manager.scheduleAsyncCallback(
        [](void* data) {
            Outer* o = static_cast<Outer*>(data);
            o->manager->scheduleAsyncCallback(&runJob, o->next);
            o->nextRanBeforeReturn = o->runs->size() != 0;
        },
        &outer);
    ASSERT_TRUE(pumpUntil([&] { return runs.size() == 1; }));
    EXPECT_FALSE(outer.nextRanBeforeReturn);
    EXPECT_EQ(runs.order, std::vector<int>{2});
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
    std::vector<int> next(kThreads, 0);
    for (int id : runs.order) {
        int t = id / 1000;
        EXPECT_EQ(id % 1000, next[t]) << "thread " << t << " out of order";
        next[t] = id % 1000 + 1;
    }
}

TEST_F(OneShotManagerTest, PostToMainThreadRunsLaterOnTheMainThreadEvenWithoutAManager) {
    Runs runs;
    Job job{&runs, 7};
    std::thread worker([&] { OneShotManager::postToMainThread(&runJob, &job); });
    worker.join();
    EXPECT_EQ(runs.size(), 0u);
    ASSERT_TRUE(pumpUntil([&] { return runs.size() == 1; }));
    EXPECT_EQ(runs.threads[0], std::this_thread::get_id());
}

}  // namespace
