// The main-thread machinery on a real Foundation run loop: the guard timer
// in each mode a panel may run the loop in, and the callback queue's
// hand-off from worker threads.
#import "CVTimer2.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "IDialogImpl.h"
#include "OneShotManager.h"

namespace {

using Kestrix::Web::IDialogImpl;
using Kestrix::Web::OneShotManager;

// Turns this thread's run loop in `mode` until `done` or `seconds` pass.
template <typename Done>
void runLoopUntil(NSString* mode, double seconds, Done done) {
    NSDate* end = [NSDate dateWithTimeIntervalSinceNow:seconds];
    while (!done() && [end timeIntervalSinceNow] > 0) {
        NSAutoreleasePool* pool = [[NSAutoreleasePool alloc] init];
        [[NSRunLoop currentRunLoop] runMode:mode beforeDate:[NSDate dateWithTimeIntervalSinceNow:0.05]];
        [pool release];
    }
}

// Counts the time-outs the timer reports.
class TimeoutCounter : public IDialogImpl {
public:
    void doClose() override {}
    void doOnTimeout() override { ++timeouts; }
    std::vector<std::string> doShow() override { return {}; }
    void* systemDialog() override { return nullptr; }
    int timeouts = 0;
};

TEST(CVTimer2, FiresOnceInEachModeAPanelRunsTheLoopInAndNotOnceStopped) {
    for (NSString* mode : {NSDefaultRunLoopMode, NSEventTrackingRunLoopMode, NSModalPanelRunLoopMode}) {
        SCOPED_TRACE([mode UTF8String]);
        TimeoutCounter running, stopped;
        CVTimer2* timers[] = {[[CVTimer2 alloc] init], [[CVTimer2 alloc] init]};
        for (CVTimer2* timer : timers) [timer setTimeout:1];
        [timers[0] start:&running runLoop:[NSRunLoop currentRunLoop]];
        [timers[1] start:&stopped runLoop:[NSRunLoop currentRunLoop]];
        [timers[1] stop];
        runLoopUntil(mode, 5.0, [&] { return running.timeouts > 0; });
        runLoopUntil(mode, 0.3, [] { return false; });
        EXPECT_EQ(1, running.timeouts);
        EXPECT_EQ(0, stopped.timeouts);
        for (CVTimer2* timer : timers) {
            [timer stop];
            [timer release];
        }
    }
}

// Worker threads' callbacks run on the main thread, in queue order, once
// it turns its loop; those of a manager gone by then run not at all.
TEST(OneShotManager, WorkerThreadsCallbacksRunOnTheMainThreadInOrderUnlessTheManagerWent) {
    struct Ran {
        std::vector<int> order;
        bool wrongThread = false;
        std::thread::id mainThread = std::this_thread::get_id();
    } ran;
    struct Item {
        Ran* ran;
        int value;
    } items[] = {{&ran, 0}, {&ran, 1}, {&ran, 2}, {&ran, 7}};
    auto record = [](void* data) {
        Item* item = static_cast<Item*>(data);
        item->ran->wrongThread |= std::this_thread::get_id() != item->ran->mainThread;
        item->ran->order.push_back(item->value);
    };
    OneShotManager manager;
    auto* gone = new OneShotManager();
    std::thread([&] {
        for (int i = 0; i < 3; ++i) manager.scheduleAsyncCallback(record, &items[i]);
        gone->scheduleAsyncCallback(record, &items[3]);
    }).join();
    delete gone;
    EXPECT_TRUE(ran.order.empty()) << "nothing runs before the main thread turns its loop";
    bool posted = false;
    OneShotManager::postToMainThread([](void* flag) { *static_cast<bool*>(flag) = true; }, &posted);
    runLoopUntil(NSDefaultRunLoopMode, 5.0, [&] { return posted && ran.order.size() >= 3; });
    EXPECT_EQ((std::vector<int>{0, 1, 2}), ran.order);
    EXPECT_FALSE(ran.wrongThread);
}

}  // namespace
