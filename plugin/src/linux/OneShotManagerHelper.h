// The main-thread trigger of a OneShotManager.
//
// Every turn the manager asks the main loop for holds a reference to the
// helper, not to the manager, so a turn that comes after the manager has
// gone finds the manager pointer cleared and does nothing. The last
// reference frees the helper.
#pragma once

#include <atomic>

namespace Kestrix {
namespace Web {

class OneShotManager;

class OneShotManagerHelper {
public:
    // Starts with one reference, the creator's.
    OneShotManagerHelper();
    OneShotManagerHelper(const OneShotManagerHelper&) = delete;
    OneShotManagerHelper& operator=(const OneShotManagerHelper&) = delete;

    void ref();
    void unref();

    // Main thread.
    void setManager(OneShotManager* manager);
    // Main thread: runs the manager's oldest queued pair, or only logs when
    // the manager has gone.
    void shoot();

private:
    ~OneShotManagerHelper() = default;

    std::atomic<int> _refCount;
    std::atomic<OneShotManager*> _manager;
};

}  // namespace Web
}  // namespace Kestrix
