#include "RunnableScheduler.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Callback.h"
#include "MainLoopPump.h"
#include "OneShotManager.h"
#include "Runnable.h"

using CorvaneTest::drainMainContext;
using CorvaneTest::pumpUntil;
using Kestrix::Web::Callback;
using Kestrix::Web::OneShotManager;
using Kestrix::Web::Runnable;
using Kestrix::Web::RunnableScheduler;

namespace {

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
        if (whileRunning) {
            whileRunning();
        }
    }
    void stop() override {
        _events->push_back(_name + " stop");
        _stopped = true;
    }

    std::function<void()> whileRunning;

private:
    Events* _events;
    std::string _name;
    unsigned long _result;
    bool _stopped = false;
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

TEST_F(RunnableSchedulerTest, RunsInALaterMainThreadTurnThenTellsAndDeletesItsCallback) {
    OneShotManager osm;
    Events events;
    auto* runnable = new TestRunnable(&events, "open");
    RunnableScheduler::scheduleRunnable(&osm, runnable, new TestCallback(&events, "callback"));
    EXPECT_TRUE(events.empty()) << "the page's call returns before the runnable starts";

    ASSERT_TRUE(pumpUntil([&] { return events.size() == 4; }));
    EXPECT_EQ(events, (Events{"open run", "callback told result=1 [\"/tmp/open\"]", "callback deleted",
                              "open deleted"}));
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
}

}  // namespace
