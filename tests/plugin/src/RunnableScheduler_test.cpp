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

// A panel stand-in: run() "shows" (calling a hook the test may set, as the
// page may act while a panel shows) and returns; stop() interrupts it.
class TestRunnable : public Runnable {
public:
    TestRunnable(Events* events, std::string name) : _events(events), _name(std::move(name)) {}
    ~TestRunnable() override { _events->push_back(_name + " deleted"); }
    bool isInterrupted() const override { return _stopped; }
    unsigned long result() const override { return 1; }
    std::string resultStr() const override { return _name; }
    void run() override {
        _events->push_back(_name + " run");
        if (whileRunning) whileRunning();
    }
    void stop() override {
        _events->push_back(_name + " stop");
        _stopped = true;
    }
    std::function<void()> whileRunning;

private:
    Events* _events;
    std::string _name;
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

class RunnableSchedulerTest : public ::testing::Test {
protected:
    void SetUp() override { RunnableScheduler::init(); }
    void TearDown() override {
        drainMainContext();
        RunnableScheduler::cleanup();
    }
};

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
    RunnableScheduler::scheduleRunnable(osm.get(), runnable, new TestCallback(&events));
    ASSERT_TRUE(pumpUntil([&] { return events.size() == 4; }));
    EXPECT_EQ(events, (Events{"save run", "save stop", "callback deleted", "save deleted"}));
}

}  // namespace
