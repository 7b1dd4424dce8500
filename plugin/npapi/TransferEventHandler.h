// Hands every transfer-activity document of the poller to the page's event
// handler as a "transfer" event, on the main thread.
//
// The target is the object last set as the page's eventHandler. Clearing
// that property does not clear the target: events keep reaching the last
// object set until a new one replaces it. Since the property then no longer
// holds the object, the handler keeps a reference of its own for as long as
// the object is its target.
#pragma once

#include <string>

#include "EventHandler.h"
#include "TransferEventListener.h"

namespace Kestrix {
namespace Web {

class TransferEventHandler : public EventHandler, public TransferEventListener {
public:
    // Main thread; retains handler when it is not null.
    TransferEventHandler(NPP npp, NPObject* handler);
    // Main thread, once the poller no longer knows this listener: releases
    // the target. Events still queued must not outlive the instance's queue.
    ~TransferEventHandler() override;

    // Main thread: a new target (retained) replaces the old one (released).
    // Null leaves no target.
    void setHandlerObject(NPObject* handler);

    // Poller thread: queues a "transfer" event with the text when there is a
    // target.
    void transferEventOccurred(const std::string& json) override;
};

}  // namespace Web
}  // namespace Kestrix
