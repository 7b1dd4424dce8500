// The queue itself; how a turn on the main thread is asked for is the
// platform's (plugin/src/linux, plugin/src/osx).
#include "OneShotManager.h"

#include <mutex>
#include <vector>

#include "Utils.h"
#include "cv_log.h"

namespace Kestrix {
namespace Web {

namespace {

// Fixed so that the same failure reads the same in every build's log.
const int kQueueCheckLine = 120;

// Work dropped by a manager that went away is neither run nor freed: the
// manager cannot know what its data is. It stays listed here for the life
// of the process (the list itself is never destroyed) so that it remains
// reachable memory rather than a leak that tools report.
std::mutex& abandonedMutex() {
    static std::mutex mutex;
    return mutex;
}

std::vector<std::pair<OneShotManager::Function, void*>>& abandonedWork() {
    static auto* work = new std::vector<std::pair<OneShotManager::Function, void*>>();
    return *work;
}

}  // namespace

OneShotManager::OneShotManager() : _mutex(new cv_mutex_t()), _helper(createHelper(this)) {
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

    // Turns already asked for find no manager and only log.
    releaseHelper(_helper);
    cv_mutex_destroy(_mutex.get());
}

void OneShotManager::scheduleAsyncCallback(Function function, void* data) {
    cv_mutex_acquire(_mutex.get());
    cv_dbg("OneShotManager::scheduleAsyncCallback() - size=%i", static_cast<int>(_callbackQueue.size()));
    _callbackQueue.emplace_back(function, data);
    // One turn per pair; the turn's reference keeps the helper alive even if
    // this manager goes first.
    requestTurn(_helper);
    cv_mutex_release(_mutex.get());
}

void OneShotManager::asyncCallback() {
    cv_dbg("OneShotManager::asyncCallback()");
    cv_mutex_acquire(_mutex.get());
    Utils::checkOrAbort(!_callbackQueue.empty(), "!_callbackQueue.empty()", kSourceFile, kQueueCheckLine);
    std::pair<Function, void*> next = _callbackQueue.front();
    _callbackQueue.pop_front();
    cv_mutex_release(_mutex.get());
    // Outside the lock: the function may queue more work.
    next.first(next.second);
    cv_dbg("OneShotManager::asyncCallback() - done");
}

}  // namespace Web
}  // namespace Kestrix
