// One string for one page callback, to be delivered on the main thread by
// callbackBrowser.
//
// Page objects may only be retained, released or called on the browser's
// main thread. A message made there takes a reference of its own; a message
// made on a worker thread takes over a reference that its maker already
// holds (adopt), so nothing touches the page object until callbackBrowser
// runs on the main thread and deletes the message.
#pragma once

#include <string>

#include "npruntime.h"

namespace Kestrix {
namespace Web {

class StringCallbackMessage {
public:
    // Main thread: retains callback.
    StringCallbackMessage(NPP npp, NPObject* callback, const std::string& message);
    // Any thread: takes over one reference to callback that the caller holds.
    static StringCallbackMessage* adopt(NPP npp, NPObject* callback, const std::string& message);
    // Main thread: releases the page callback.
    ~StringCallbackMessage();
    StringCallbackMessage(const StringCallbackMessage&) = delete;
    StringCallbackMessage& operator=(const StringCallbackMessage&) = delete;

    NPP npp() const { return _npp; }
    NPObject* callback() const { return _callback; }
    const std::string& message() const { return _message; }

private:
    struct AdoptTag {};
    StringCallbackMessage(NPP npp, NPObject* callback, const std::string& message, AdoptTag);

    NPP _npp;
    NPObject* _callback;
    std::string _message;
};

// Main thread: calls the message's page callback as a function with the
// message as its one string argument, ignores what it returns, and deletes
// the message. Takes a StringCallbackMessage*, untyped so that it can be
// queued with CW_ScheduleAsyncCallback.
void callbackBrowser(void* message);

}  // namespace Web
}  // namespace Kestrix
