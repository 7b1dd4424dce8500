// The main-thread machinery on a real Foundation run loop: the guard timer
// in each mode a panel may run the loop in, and the callback queue's
// hand-off from worker threads.
#import "CVTimer2.h"

#include <gtest/gtest.h>

#include <atomic>
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

CVTimer2* startTimer(TimeoutCounter* caller) {
    CVTimer2* timer = [[CVTimer2 alloc] init];
    [timer setTimeout:1];
    [timer start:caller runLoop:[NSRunLoop currentRunLoop]];
    return timer;
}

TEST(CVTimer2, FiresOnceInEachModeAPanelRunsTheLoopIn) {
    for (NSString* mode : {NSDefaultRunLoopMode, NSEventTrackingRunLoopMode, NSModalPanelRunLoopMode}) {
        SCOPED_TRACE([mode UTF8String]);
        TimeoutCounter caller;
        CVTimer2* timer = startTimer(&caller);
        EXPECT_EQ(1, [timer timeout]);
        runLoopUntil(mode, 5.0, [&] { return caller.timeouts > 0; });
        runLoopUntil(mode, 0.3, [] { return false; });
        EXPECT_EQ(1, caller.timeouts);
        [timer stop];
        [timer release];
    }
}

TEST(CVTimer2, StoppedTimerTellsNobody) {
    TimeoutCounter caller;
    CVTimer2* timer = startTimer(&caller);
    [timer stop];
    runLoopUntil(NSDefaultRunLoopMode, 1.5, [] { return false; });
    EXPECT_EQ(0, caller.timeouts);
    [timer release];
}

struct Ran {
    std::vector<int>* order;
    int value;
    std::thread::id mainThread;
    std::atomic<int>* wrongThread;
};

void record(void* data) {
    auto* ran = static_cast<Ran*>(data);
    if (std::this_thread::get_id() != ran->mainThread) ++*ran->wrongThread;
    ran->order->push_back(ran->value);
}

TEST(OneShotManager, WorkerThreadsCallbacksRunOnTheMainThreadInQueueOrder) {
    std::vector<int> order;
    std::atomic<int> wrongThread{0};
    const std::thread::id mainThread = std::this_thread::get_id();
    std::vector<Ran> items;
    for (int i = 0; i < 3; ++i) items.push_back(Ran{&order, i, mainThread, &wrongThread});

    OneShotManager manager;
    std::thread worker([&] {
        for (Ran& item : items) manager.scheduleAsyncCallback(&record, &item);
    });
    worker.join();
    EXPECT_TRUE(order.empty()) << "nothing runs before the main thread turns its loop";
    runLoopUntil(NSDefaultRunLoopMode, 5.0, [&] { return order.size() == 3; });
    EXPECT_EQ((std::vector<int>{0, 1, 2}), order);
    EXPECT_EQ(0, wrongThread.load());
}

TEST(OneShotManager, TurnsAfterTheManagerWentRunNothing) {
    std::vector<int> order;
    std::atomic<int> wrongThread{0};
    Ran item{&order, 7, std::this_thread::get_id(), &wrongThread};
    auto* manager = new OneShotManager();
    std::thread worker([&] { manager->scheduleAsyncCallback(&record, &item); });
    worker.join();
    delete manager;
    std::atomic<bool> posted{false};
    OneShotManager::postToMainThread([](void* flag) { *static_cast<std::atomic<bool>*>(flag) = true; },
                                     &posted);
    runLoopUntil(NSDefaultRunLoopMode, 5.0, [&] { return posted.load(); });
    EXPECT_TRUE(posted.load());
    EXPECT_TRUE(order.empty());
}

}  // namespace
