#include "RunnableScheduler.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Callback.h"
#include "LogCapture.h"
#include "MainLoopPump.h"
#include "OneShotManager.h"
#include "Runnable.h"

using CorvaneTest::drainMainContext;
using CorvaneTest::LogCapture;
using CorvaneTest::pumpUntil;
using Kestrix::Web::Callback;
using Kestrix::Web::OneShotManager;
using Kestrix::Web::Runnable;
using Kestrix::Web::RunnableScheduler;

namespace {

std::string pointerText(const char* fmt, const void* pointer, int number = 0) {
    char buffer[160];
    snprintf(buffer, sizeof buffer, fmt, pointer, number);
    return buffer;
}

// Everything the runnables and callbacks of one test did, in order.
using Events = std::vector<std::string>;

// A dialog stand-in: run() "shows" and returns; stop() marks it interrupted.
// A hook lets a test act while it runs, as the page may while a panel shows.
class TestRunnable : public Runnable {
public:
    TestRunnable(Events* events, std::string name, unsigned long result = 1)
        : _events(events), _name(std::move(name)), _result(result) {}
    ~TestRunnable() override { _events->push_back(_name + " deleted"); }

    bool isInterrupted() const override { return _stopped; }
    unsigned long result() const override { return _result; }
    std::string resultStr() const override { return "[\"/tmp/" + _name + "\"]"; }
    void run() override {
        _events->push_back(_name + " run" + (_stopped ? " (stopped)" : ""));
        _runThread = std::this_thread::get_id();
        if (whileRunning) {
            whileRunning();
        }
    }
    void stop() override {
        _events->push_back(_name + " stop");
        _stopped = true;
    }

    std::function<void()> whileRunning;
    std::thread::id runThread() const { return _runThread; }

private:
    Events* _events;
    std::string _name;
    unsigned long _result;
    bool _stopped = false;
    std::thread::id _runThread;
};

class TestCallback : public Callback {
public:
    TestCallback(Events* events, std::string name) : _events(events), _name(std::move(name)) {}
    ~TestCallback() override { _events->push_back(_name + " deleted"); }
    void handleCallback(void* subject) override {
        auto* runnable = static_cast<Runnable*>(subject);
        _events->push_back(_name + " told result=" + std::to_string(runnable->result()) + " " +
                           runnable->resultStr());
    }

private:
    Events* _events;
    std::string _name;
};

class RunnableSchedulerTest : public ::testing::Test {
protected:
    void SetUp() override { RunnableScheduler::init(); }
    void TearDown() override {
        drainMainContext();
        RunnableScheduler::cleanup();
    }
};

TEST(RunnableSchedulerLifecycle, SecondInitIsIgnoredAndCleanupEndsIt) {
    LogCapture log;
    ASSERT_FALSE(RunnableScheduler::isInitialized());
    RunnableScheduler::init();
    RunnableScheduler::init();  // would stop the process if it made a second mutex
    EXPECT_TRUE(RunnableScheduler::isInitialized());
    EXPECT_EQ(log.count("DBG RunnableScheduler::init()"), 2u);

    RunnableScheduler::cleanup();
    EXPECT_FALSE(RunnableScheduler::isInitialized());
    RunnableScheduler::cleanup();
    EXPECT_EQ(log.count("DBG RunnableScheduler::cleanup()"), 2u);

    // Initialised again after a cleanup, it works as new.
    RunnableScheduler::init();
    EXPECT_TRUE(RunnableScheduler::isInitialized());
    RunnableScheduler::cleanup();
}

TEST_F(RunnableSchedulerTest, RunsInALaterMainThreadTurnThenTellsAndDeletesItsCallback) {
    LogCapture log;
    OneShotManager osm;
    Events events;
    auto* runnable = new TestRunnable(&events, "open");
    RunnableScheduler::scheduleRunnable(&osm, runnable, new TestCallback(&events, "callback"));
    EXPECT_TRUE(events.empty()) << "the page's call returns before the runnable starts";
    EXPECT_TRUE(log.has("DBG RunnableScheduler::scheduleRunnable()"));

    ASSERT_TRUE(pumpUntil([&] { return events.size() == 4; }));
    EXPECT_EQ(events, (Events{"open run", "callback told result=1 [\"/tmp/open\"]", "callback deleted",
                              "open deleted"}));
    EXPECT_TRUE(log.has("DBG RunnableScheduler - handleRunnablePair()"));
}

TEST_F(RunnableSchedulerTest, StoppedBeforeItRunsItsCallbackIsDeletedUntold) {
    LogCapture log;
    OneShotManager osm;
    Events events;
    auto* runnable = new TestRunnable(&events, "open");
    RunnableScheduler::scheduleRunnable(&osm, runnable, new TestCallback(&events, "callback"));

    RunnableScheduler::stopRunnables(&osm);
    // The size is that of the whole process's list, which may still know
    // runnables of queues that went before they started: compare with it.
    const std::string sizePrefix =
        pointerText("DBG RunnableScheduler::stopRunnables() - osm=%p; size=", &osm);
    const std::vector<std::string> sizeLines = log.withPrefix(sizePrefix);
    ASSERT_EQ(sizeLines.size(), 1u);
    const int known = std::stoi(sizeLines[0].substr(sizePrefix.size()));
    EXPECT_GE(known, 1);
    EXPECT_TRUE(log.has(pointerText("DBG RunnableScheduler::stopRunnables() - stopping %p", runnable)));

    ASSERT_TRUE(pumpUntil([&] { return events.size() == 4; }));
    EXPECT_EQ(events, (Events{"open stop", "open run (stopped)", "callback deleted", "open deleted"}));

    // It left the scheduler's books when its run ended.
    log.clear();
    RunnableScheduler::stopRunnables(&osm);
    EXPECT_EQ(log.countPrefix("DBG RunnableScheduler::stopRunnables() - stopping "), 0u);
    EXPECT_TRUE(log.has(sizePrefix + std::to_string(known - 1)));
}

TEST_F(RunnableSchedulerTest, StopReachesOnlyTheRunnablesOfTheGivenQueue) {
    OneShotManager mine;
    OneShotManager other;
    Events events;
    RunnableScheduler::scheduleRunnable(&mine, new TestRunnable(&events, "mine"), nullptr);
    RunnableScheduler::scheduleRunnable(&other, new TestRunnable(&events, "other"),
                                        new TestCallback(&events, "callback"));
    RunnableScheduler::stopRunnables(&mine);
    ASSERT_TRUE(pumpUntil([&] { return events.size() == 7; }));
    EXPECT_EQ(events,
              (Events{"mine stop", "mine run (stopped)", "mine deleted", "other run",
                      "callback told result=1 [\"/tmp/other\"]", "callback deleted", "other deleted"}));
}

TEST_F(RunnableSchedulerTest, AnInstanceGoingWhileItsRunnableShowsStopsItAndItIsToldNothing) {
    LogCapture log;
    Events events;
    auto osm = std::make_unique<OneShotManager>();
    auto* runnable = new TestRunnable(&events, "save");
    // While the panel shows, the browser tears the instance down: the
    // runnables are stopped, then the queue goes.
    runnable->whileRunning = [&] {
        RunnableScheduler::stopRunnables(osm.get());
        osm.reset();
    };
    RunnableScheduler::scheduleRunnable(osm.get(), runnable, new TestCallback(&events, "callback"));
    ASSERT_TRUE(pumpUntil([&] { return events.size() == 4; }));
    EXPECT_EQ(events, (Events{"save run", "save stop", "callback deleted", "save deleted"}));
    EXPECT_EQ(log.countPrefix("DBG RunnableScheduler::stopRunnables() - stopping "), 1u);
}

TEST_F(RunnableSchedulerTest, RunnablesOfAQueueThatWentAreNeverStarted) {
    LogCapture log;
    Events events;
    auto osm = std::make_unique<OneShotManager>();
    RunnableScheduler::scheduleRunnable(osm.get(), new TestRunnable(&events, "late"),
                                        new TestCallback(&events, "callback"));
    RunnableScheduler::stopRunnables(osm.get());
    osm.reset();
    ASSERT_TRUE(pumpUntil([&] { return log.has("DBG OneShotManagerHelper::shoot() - aborting callback"); }));
    drainMainContext();
    EXPECT_EQ(events, Events{"late stop"});
}

}  // namespace
