// The main-thread hand-off through GLib: the browser iterates GLib's default
// main context on its main thread, so an idle source added there from any
// thread runs on the main thread in one of its next turns.
#include "OneShotManager.h"

#include <glib.h>

#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <vector>

#include "OneShotManagerHelper.h"
#include "cv_log.h"

namespace Kestrix {
namespace Web {

namespace {

const char* const kSourceFile = "plugin/src/linux/OneShotManager";
// Fixed so that the same failure reads the same in every build's log.
const int kQueueCheckLine = 120;

void check(bool condition, const char* text, int line) {
    if (!condition) {
        cv_err("Assertion failed: %s (%s, line %d)", text, kSourceFile, line);
        fprintf(stderr, "Assertion failed: %s (%s, line %d)\n", text, kSourceFile, line);
        abort();
    }
}

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

// G_PRIORITY_DEFAULT rather than the idle priority: the host's painting and
// input sources must not be able to hold page callbacks back indefinitely.
const gint kSourcePriority = G_PRIORITY_DEFAULT;

gboolean shootHelper(gpointer data) {
    static_cast<OneShotManagerHelper*>(data)->shoot();
    return G_SOURCE_REMOVE;
}

// Runs when the source goes, dispatched or not, so the reference the
// source holds is always given back.
void unrefHelper(gpointer data) {
    static_cast<OneShotManagerHelper*>(data)->unref();
}

struct PostedCall {
    OneShotManager::Function function;
    void* data;
};

gboolean runPostedCall(gpointer data) {
    auto* call = static_cast<PostedCall*>(data);
    call->function(call->data);
    return G_SOURCE_REMOVE;
}

void freePostedCall(gpointer data) {
    delete static_cast<PostedCall*>(data);
}

}  // namespace

OneShotManager::OneShotManager() : _mutex(new cv_mutex_t()), _helper(new OneShotManagerHelper()) {
    _helper->setManager(this);
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
    _helper->setManager(nullptr);
    _helper->unref();
    cv_mutex_destroy(_mutex.get());
}

void OneShotManager::scheduleAsyncCallback(Function function, void* data) {
    cv_mutex_acquire(_mutex.get());
    cv_dbg("OneShotManager::scheduleAsyncCallback() - size=%i", static_cast<int>(_callbackQueue.size()));
    _callbackQueue.emplace_back(function, data);
    // One turn per pair; the turn's reference keeps the helper alive even if
    // this manager goes first.
    _helper->ref();
    g_idle_add_full(kSourcePriority, &shootHelper, _helper, &unrefHelper);
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
    g_idle_add_full(kSourcePriority, &runPostedCall, new PostedCall{function, data}, &freePostedCall);
}

}  // namespace Web
}  // namespace Kestrix
