// The queue that hands work from worker threads to the main thread, and work
// and panels still queued or showing when their owner goes.
#include <glib.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "Callback.h"
#include "LogCapture.h"
#include "OneShotManager.h"
#include "Runnable.h"
#include "RunnableScheduler.h"

using namespace Kestrix::Web;

namespace {

// Turns GLib's default main context, as the browser's main loop does,
// until `done` holds; false after some 5 s.
bool pumpUntil(const std::function<bool()>& done) {
    for (int i = 0; i < 5000 && !done(); ++i)
        if (!g_main_context_iteration(nullptr, FALSE))
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return done();
}

// Runs whatever is ready, so that no test leaves sources to the next one.
void drainMainContext() {
    for (int i = 0; i < 10000 && g_main_context_iteration(nullptr, FALSE); ++i) {
    }
}

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

// Everything the runnables and callbacks of one test did, in order.
using Events = std::vector<std::string>;

// A panel stand-in: while it "shows", the browser tears its instance down
// (the runnables are stopped, then the queue goes); stop() interrupts it.
class TestRunnable : public Runnable {
public:
    TestRunnable(Events* events, std::unique_ptr<OneShotManager>* owner) : _events(events), _owner(owner) {}
    ~TestRunnable() override { _events->push_back("panel deleted"); }
    bool isInterrupted() const override { return _stopped; }
    unsigned long result() const override { return 1; }
    std::string resultStr() const override { return "[]"; }
    void run() override {
        _events->push_back("panel run");
        RunnableScheduler::stopRunnables(_owner->get());
        _owner->reset();
    }
    void stop() override {
        _events->push_back("panel stop");
        _stopped = true;
    }

private:
    Events* _events;
    std::unique_ptr<OneShotManager>* _owner;
    bool _stopped = false;
};

class TestCallback : public Callback {
public:
    explicit TestCallback(Events* events) : _events(events) {}
    ~TestCallback() override { _events->push_back("callback deleted"); }
    void handleCallback(void* subject) override {
        _events->push_back("told " + static_cast<Runnable*>(subject)->resultStr());
    }

private:
    Events* _events;
};

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
    ASSERT_TRUE(pumpUntil(
        [&] { return log.countPrefix("DBG OneShotManagerHelper::shoot() - aborting callback") == 2; }));
    drainMainContext();
    EXPECT_EQ(0u, runs.size());
}

TEST_F(OneShotManagerTest, AnInstanceGoingWhileItsPanelShowsStopsItAndItIsToldNothing) {
    RunnableScheduler::init();
    Events events;
    auto osm = std::make_unique<OneShotManager>();
    RunnableScheduler::scheduleRunnable(osm.get(), new TestRunnable(&events, &osm),
                                        new TestCallback(&events));
    ASSERT_TRUE(pumpUntil([&] { return events.size() == 4; }));
    EXPECT_EQ(events, (Events{"panel run", "panel stop", "callback deleted", "panel deleted"}));
    drainMainContext();
    RunnableScheduler::cleanup();
}
