// Starts runnables (the asynchronous dialogs) on the main thread after the
// page's call has returned, and stops those of an instance that is going.
//
// Process-wide: NP_Initialize sets it up and NP_Shutdown tears it down;
// scheduling or stopping outside that window is a programming error that
// stops the process.
#pragma once

#include <map>

#include "cv_thread.h"

namespace Kestrix {
namespace Web {

class Callback;
class OneShotManager;
class Runnable;

class RunnableScheduler {
public:
    static void init();
    // Leaves any runnables still known in the map; they leave it when they end.
    static void cleanup();
    // Takes ownership of runnable and callback (which may be null). The
    // runnable runs in a later main-thread turn through osm; when it ends the
    // callback is told unless the runnable was interrupted, and both are
    // deleted.
    static void scheduleRunnable(OneShotManager* osm, Runnable* runnable, Callback* callback);
    // Asks every runnable scheduled through osm to stop. They stay known
    // until their run ends.
    static void stopRunnables(OneShotManager* osm);

    static bool isInitialized() { return kInitialized; }

private:
    static void handleRunnablePair(void* pair);

    static bool kInitialized;
    static cv_mutex_t* kRunnablesMutex;
    static std::multimap<Runnable*, OneShotManager*> kRunnables;  // guarded by kRunnablesMutex
};

}  // namespace Web
}  // namespace Kestrix
