// Delivers named events to the page's event handler: the handler object is
// called as a function with the event name and a text.
#pragma once

#include <atomic>
#include <string>

#include "npruntime.h"

namespace Kestrix {
namespace Web {

class EventHandler {
public:
    enum EventType_e {
        kEventTypeDrop = 0,
        kEventTypeDropex = 1,
        kEventTypeTransfer = 2,
        kEventTypeDragLeave = 3,
        kEventTypeDragOver = 4
    };
    // The names the page sees, indexed by EventType_e.
    static const char* const kEventTypeDescriptions[5];

    EventHandler(NPP npp, NPObject* handler);
    virtual ~EventHandler() = default;
    EventHandler(const EventHandler&) = delete;
    EventHandler& operator=(const EventHandler&) = delete;

    // Main thread: handler(kEventTypeDescriptions[type], text); nothing when
    // handler is null.
    static void handleEvent(NPP npp, NPObject* handler, int type, const std::string& text);
    // Main thread, queued form: takes a block made by queueEvent, delivers it
    // to the handler's object as it is now, and frees the block.
    static void handleEvent(void* block);

    NPP npp() const { return _npp; }
    // The current handler object; any thread may ask whether there is one.
    NPObject* handlerObject() const { return _handler.load(); }

protected:
    // Any thread: queues (this, type, a copy of text) for the main thread
    // through the instance's callback queue.
    void queueEvent(int type, const std::string& text);
    // Answers the object it replaces.
    NPObject* exchangeHandlerObject(NPObject* handler) { return _handler.exchange(handler); }

private:
    NPP _npp;
    // Read by the poller thread, written on the main thread.
    std::atomic<NPObject*> _handler;
};

}  // namespace Web
}  // namespace Kestrix
