#include "OneShotManagerHelper.h"

#include "OneShotManager.h"
#include "cv_log.h"

namespace Kestrix {
namespace Web {

OneShotManagerHelper::OneShotManagerHelper() : _refCount(1), _manager(nullptr) {}

void OneShotManagerHelper::ref() {
    _refCount.fetch_add(1, std::memory_order_relaxed);
}

void OneShotManagerHelper::unref() {
    if (_refCount.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        delete this;
    }
}

void OneShotManagerHelper::setManager(OneShotManager* manager) {
    _manager.store(manager);
}

void OneShotManagerHelper::shoot() {
    if (OneShotManager* manager = _manager.load()) {
        manager->asyncCallback();
    } else {
        cv_dbg("OneShotManagerHelper::shoot() - aborting callback");
    }
}

}  // namespace Web
}  // namespace Kestrix
