#include "EventHandler.h"

#include <memory>

#include "BrowserFuncs.h"
#include "VariantHelpers.h"

namespace Kestrix {
namespace Web {

namespace {

// One event on its way to the main thread.
struct QueuedEvent {
    const EventHandler* handler;
    int type;
    std::string text;
};

}  // namespace

const char* const EventHandler::kEventTypeDescriptions[5] = {"drop", "dropex", "transfer", "dragleave",
                                                             "dragover"};

EventHandler::EventHandler(NPP npp, NPObject* handler) : _npp(npp), _handler(handler) {}

void EventHandler::handleEvent(NPP npp, NPObject* handler, int type, const std::string& text) {
    if (!handler || type < 0 || type > kEventTypeDragOver) {
        return;
    }
    NPVariant args[2];
    CW_CharPtrToNPStringVariant(kEventTypeDescriptions[type], &args[0]);
    CW_CharPtrToNPStringVariant(text.c_str(), &args[1]);
    NPVariant result;
    VOID_TO_NPVARIANT(result);
    // The page may replace or clear its event handler from inside the call,
    // which may drop the last other reference to the object being called.
    NPN_RetainObject(handler);
    // As with callbackBrowser, only a non-string answer is given back.
    if (NPN_InvokeDefault(npp, handler, args, 2, &result) && !NPVARIANT_IS_STRING(result)) {
        NPN_ReleaseVariantValue(&result);
    }
    NPN_ReleaseObject(handler);
    // The arguments are ours: the browser copies what the page keeps. Left
    // alone they would cost two blocks per event, and "transfer" events come
    // every second for as long as a page has a handler.
    NPN_ReleaseVariantValue(&args[0]);
    NPN_ReleaseVariantValue(&args[1]);
}

void EventHandler::handleEvent(void* block) {
    std::unique_ptr<QueuedEvent> event(static_cast<QueuedEvent*>(block));
    // The object as it is now, not as it was when the event was queued.
    handleEvent(event->handler->npp(), event->handler->handlerObject(), event->type, event->text);
}

void EventHandler::queueEvent(int type, const std::string& text) {
    void (*deliver)(void*) = &EventHandler::handleEvent;
    NPN_PluginThreadAsyncCall(_npp, deliver, new QueuedEvent{this, type, text});
}

}  // namespace Web
}  // namespace Kestrix
