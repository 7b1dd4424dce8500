// One plug-in instance's queue of work for the browser's main thread.
//
// Any thread may queue a function with its data; each one runs once, on the
// main thread, in the order queued, in a later turn of the main loop. Page
// objects may only be touched there, so everything that ends in a call into
// the page comes through here. Work still queued when the manager goes is
// dropped without being run: nothing reaches an instance that is gone.
#pragma once

#include <deque>
#include <memory>
#include <utility>

#include "cv_thread.h"

namespace Kestrix {
namespace Web {

class OneShotManagerHelper;

class OneShotManager {
public:
    using Function = void (*)(void*);

    OneShotManager();
    // Drops whatever is still queued, without running it or freeing its data.
    ~OneShotManager();
    OneShotManager(const OneShotManager&) = delete;
    OneShotManager& operator=(const OneShotManager&) = delete;

    // Any thread. Queues function(data) and asks the main thread for one
    // turn to run it.
    void scheduleAsyncCallback(Function function, void* data);
    // Main thread, once per queued pair: runs the oldest pair.
    void asyncCallback();

    // Runs function(data) once on the main thread in a later turn, tied to
    // no instance: for what must still happen after an instance has gone,
    // such as letting go of a page object.
    static void postToMainThread(Function function, void* data);

private:
    // The main-thread hand-off, one implementation per platform.
    // A helper pointing at `manager`, holding the manager's reference.
    static OneShotManagerHelper* createHelper(OneShotManager* manager);
    // Asks the main thread for one turn that calls asyncCallback(); the turn
    // holds a reference on the helper until it has run or gone.
    static void requestTurn(OneShotManagerHelper* helper);
    // Points the helper at no manager and gives back the manager's reference.
    static void releaseHelper(OneShotManagerHelper* helper);
    // The file the queue check names when it fails.
    static const char* const kSourceFile;

    std::deque<std::pair<Function, void*>> _callbackQueue;  // guarded by _mutex
    std::unique_ptr<cv_mutex_t> _mutex;
    OneShotManagerHelper* _helper;  // one reference of ours
};

}  // namespace Web
}  // namespace Kestrix
