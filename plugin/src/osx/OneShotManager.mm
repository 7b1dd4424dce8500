// The main-thread hand-off through Foundation: the browser runs the main
// thread's run loop, and performSelectorOnMainThread: from any thread puts
// one call into one of its next turns.
#include "OneShotManager.h"

#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <vector>

#include "CVAutoreleasePool.h"
#import "OneShotManagerHelper.h"
#include "cv_log.h"

// A call tied to no instance, carried to the main thread by itself.
@interface CVMainThreadCall : NSObject {
    Kestrix::Web::OneShotManager::Function _function;
    void* _data;
}
- (id)initWithFunction:(Kestrix::Web::OneShotManager::Function)function data:(void*)data;
- (void)run:(id)unused;
@end

@implementation CVMainThreadCall
- (id)initWithFunction:(Kestrix::Web::OneShotManager::Function)function data:(void*)data {
    if ((self = [super init])) {
        _function = function;
        _data = data;
    }
    return self;
}
- (void)run:(id)unused {
    (void)unused;
    _function(_data);
}
@end

namespace Kestrix {
namespace Web {

namespace {

const char* const kSourceFile = "plugin/src/osx/OneShotManager";
const int kQueueCheckLine = 120;

void check(bool condition, const char* text, int line) {
    if (!condition) {
        cv_err("Assertion failed: %s (%s, line %d)", text, kSourceFile, line);
        fprintf(stderr, "Assertion failed: %s (%s, line %d)\n", text, kSourceFile, line);
        abort();
    }
}

// The header names the helper through an opaque pointer so that neutral
// code never sees an Objective-C type; here it is the Foundation object.
::OneShotManagerHelper* helperObject(OneShotManagerHelper* opaque) {
    return reinterpret_cast<::OneShotManagerHelper*>(opaque);
}

// Work dropped by a manager that went away is neither run nor freed (its
// data is the caller's); it stays reachable here for the process's life.
std::mutex& abandonedMutex() {
    static std::mutex mutex;
    return mutex;
}

std::vector<std::pair<OneShotManager::Function, void*>>& abandonedWork() {
    static auto* work = new std::vector<std::pair<OneShotManager::Function, void*>>();
    return *work;
}

}  // namespace

OneShotManager::OneShotManager() : _mutex(new cv_mutex_t()), _helper(nullptr) {
    ::OneShotManagerHelper* helper = [[::OneShotManagerHelper alloc] init];
    [helper setManager:this];
    _helper = reinterpret_cast<OneShotManagerHelper*>(helper);
    cv_mutex_init(_mutex.get());
    cv_dbg("OneShotManager() [%p]", static_cast<void*>(this));
}

OneShotManager::~OneShotManager() {
    cv_mutex_acquire(_mutex.get());
    cv_dbg("~OneShotManager() [%p] - queue=%i", static_cast<void*>(this),
           static_cast<int>(_callbackQueue.size()));
    if (!_callbackQueue.empty()) {
        std::lock_guard<std::mutex> lock(abandonedMutex());
        abandonedWork().insert(abandonedWork().end(), _callbackQueue.begin(), _callbackQueue.end());
    }
    _callbackQueue.clear();
    cv_mutex_release(_mutex.get());

    [helperObject(_helper) setManager:nullptr];
    [helperObject(_helper) release];
    cv_mutex_destroy(_mutex.get());
}

void OneShotManager::scheduleAsyncCallback(Function function, void* data) {
    // Worker threads have no pool of their own.
    CVAutoreleasePool pool;
    cv_mutex_acquire(_mutex.get());
    cv_dbg("OneShotManager::scheduleAsyncCallback() - size=%i", static_cast<int>(_callbackQueue.size()));
    _callbackQueue.emplace_back(function, data);
    // One turn per pair; the turn's retain keeps the helper alive even if
    // this manager goes first. shoot: gives it back.
    ::OneShotManagerHelper* helper = helperObject(_helper);
    [helper retain];
    [helper performSelectorOnMainThread:@selector(shoot:) withObject:nil waitUntilDone:NO];
    cv_mutex_release(_mutex.get());
}

void OneShotManager::asyncCallback() {
    cv_dbg("OneShotManager::asyncCallback()");
    cv_mutex_acquire(_mutex.get());
    check(!_callbackQueue.empty(), "!_callbackQueue.empty()", kQueueCheckLine);
    std::pair<Function, void*> next = _callbackQueue.front();
    _callbackQueue.pop_front();
    cv_mutex_release(_mutex.get());
    // Outside the lock: the function may queue more work.
    next.first(next.second);
    cv_dbg("OneShotManager::asyncCallback() - done");
}

void OneShotManager::postToMainThread(Function function, void* data) {
    CVAutoreleasePool pool;
    CVMainThreadCall* call = [[CVMainThreadCall alloc] initWithFunction:function data:data];
    // The run loop retains the target until the call has run.
    [call performSelectorOnMainThread:@selector(run:) withObject:nil waitUntilDone:NO];
    [call release];
}

}  // namespace Web
}  // namespace Kestrix
