#include "RunnableScheduler.h"

#include <utility>

#include "Callback.h"
#include "OneShotManager.h"
#include "Runnable.h"
#include "Utils.h"
#include "cv_log.h"

namespace Kestrix {
namespace Web {

namespace {

const char* const kSourceFile = "plugin/src/RunnableScheduler";

// The line each check reports is fixed, so that the same broken call reads
// the same in every build's log and crash report.
const int kCleanupCheckLine = 72;
const int kInitCheckLine = 85;
const int kScheduleCheckLine = 98;
const int kStopCheckLine = 109;
// The checks fail when the scheduler is used outside NP_Initialize ..
// NP_Shutdown.

using RunnablePair = std::pair<Runnable*, Callback*>;

}  // namespace

bool RunnableScheduler::kInitialized = false;
cv_mutex_t* RunnableScheduler::kRunnablesMutex = nullptr;
std::multimap<Runnable*, OneShotManager*> RunnableScheduler::kRunnables;

void RunnableScheduler::init() {
    cv_dbg("RunnableScheduler::init()");
    if (kInitialized) {
        return;
    }
    kInitialized = true;
    Utils::checkOrAbort(kRunnablesMutex == nullptr, "kRunnablesMutex == NULL", kSourceFile, kInitCheckLine);
    kRunnablesMutex = new cv_mutex_t();
    cv_mutex_init(kRunnablesMutex);
}

void RunnableScheduler::cleanup() {
    cv_dbg("RunnableScheduler::cleanup()");
    if (!kInitialized) {
        return;
    }
    kInitialized = false;
    Utils::checkOrAbort(kRunnablesMutex != nullptr, "kRunnablesMutex != NULL", kSourceFile,
                        kCleanupCheckLine);
    cv_mutex_destroy(kRunnablesMutex);
    delete kRunnablesMutex;
    kRunnablesMutex = nullptr;
}

void RunnableScheduler::scheduleRunnable(OneShotManager* osm, Runnable* runnable, Callback* callback) {
    cv_dbg("RunnableScheduler::scheduleRunnable()");
    Utils::checkOrAbort(kRunnablesMutex != nullptr, "kRunnablesMutex != NULL", kSourceFile,
                        kScheduleCheckLine);
    cv_mutex_acquire(kRunnablesMutex);
    kRunnables.emplace(runnable, osm);
    cv_mutex_release(kRunnablesMutex);
    // The scheduler's lock is let go before the queue's is taken: the two are
    // never held together.
    osm->scheduleAsyncCallback(&RunnableScheduler::handleRunnablePair, new RunnablePair(runnable, callback));
}

void RunnableScheduler::handleRunnablePair(void* data) {
    cv_dbg("RunnableScheduler - handleRunnablePair()");
    auto* pair = static_cast<RunnablePair*>(data);
    Runnable* runnable = pair->first;
    Callback* callback = pair->second;

    runnable->run();
    if (callback) {
        if (!runnable->isInterrupted()) {
            callback->handleCallback(runnable);
        }
        delete callback;
    }

    // The process may have shut the scheduler down while the runnable ran;
    // everything here is on the main thread, so the map is still safe to
    // change without the lock.
    cv_mutex_t* mutex = kRunnablesMutex;
    if (mutex) {
        cv_mutex_acquire(mutex);
    }
    kRunnables.erase(runnable);
    if (mutex) {
        cv_mutex_release(mutex);
    }
    delete runnable;
    delete pair;
}

void RunnableScheduler::stopRunnables(OneShotManager* osm) {
    Utils::checkOrAbort(kRunnablesMutex != nullptr, "kRunnablesMutex != NULL", kSourceFile, kStopCheckLine);
    cv_mutex_acquire(kRunnablesMutex);
    cv_dbg("RunnableScheduler::stopRunnables() - osm=%p; size=%i", static_cast<void*>(osm),
           static_cast<int>(kRunnables.size()));
    for (const auto& entry : kRunnables) {
        if (entry.second == osm) {
            cv_dbg("RunnableScheduler::stopRunnables() - stopping %p", static_cast<void*>(entry.first));
            entry.first->stop();
        }
    }
    cv_mutex_release(kRunnablesMutex);
}

}  // namespace Web
}  // namespace Kestrix
