// Carries the answer of an asynchronous page request (kestrixHttpRequestAsync)
// from the request worker back to the page's callback function.
#pragma once

#include <thread>

#include "Callback.h"
#include "npruntime.h"

namespace Kestrix {
namespace Web {

class RequestCallback : public Callback {
public:
    // Main thread: retains callback.
    RequestCallback(NPP npp, NPObject* callback);
    // Any thread. A callback that never fired lets go of the page object on
    // the main thread.
    ~RequestCallback() override;
    RequestCallback(const RequestCallback&) = delete;
    RequestCallback& operator=(const RequestCallback&) = delete;

    // Request worker thread: response is the HttpResponse*, or null when the
    // request failed. Queues the body (or the error document) for the page.
    void handleCallback(void* response) override;

private:
    NPP _npp;
    NPObject* _callback;  // our reference, until handed to the message
    std::thread::id _mainThread;
};

}  // namespace Web
}  // namespace Kestrix
