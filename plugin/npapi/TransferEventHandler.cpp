#include "TransferEventHandler.h"

#include "BrowserFuncs.h"
#include "cv_log.h"

namespace Kestrix {
namespace Web {

TransferEventHandler::TransferEventHandler(NPP npp, NPObject* handler) : EventHandler(npp, nullptr) {
    cv_dbg("TransferEventHandler() [%p]", static_cast<void*>(this));
    setHandlerObject(handler);
}

TransferEventHandler::~TransferEventHandler() {
    cv_dbg("~TransferEventHandler() [%p]", static_cast<void*>(this));
    if (NPObject* old = exchangeHandlerObject(nullptr)) {
        NPN_ReleaseObject(old);
    }
}

// The page's eventHandler property gives up its reference when cleared, yet
// the target stays, so the target is held here: otherwise the next event
// would call an object the page may already have freed.
void TransferEventHandler::setHandlerObject(NPObject* handler) {
    if (handler) {
        NPN_RetainObject(handler);  // before the release: the same object may be set again
    }
    if (NPObject* old = exchangeHandlerObject(handler)) {
        NPN_ReleaseObject(old);
    }
}

void TransferEventHandler::transferEventOccurred(const std::string& json) {
    // Only whether there is a target is read here; the object itself is
    // looked up again on the main thread when the event is delivered.
    if (!handlerObject()) {
        return;
    }
    queueEvent(kEventTypeTransfer, json);
}

}  // namespace Web
}  // namespace Kestrix
