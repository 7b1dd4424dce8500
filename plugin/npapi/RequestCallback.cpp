#include "RequestCallback.h"

#include <string>

#include "BrowserFuncs.h"
#include "HttpResponse.h"
#include "Json.h"
#include "Messages.h"
#include "OneShotManager.h"
#include "StringCallbackMessage.h"
#include "cv_log.h"

namespace Kestrix {
namespace Web {

namespace {

void releasePageObject(void* object) {
    NPN_ReleaseObject(static_cast<NPObject*>(object));
}

}  // namespace

// Made by the page's call, so on the main thread: the only place the page
// callback may be retained, and the thread the destructor compares with.
RequestCallback::RequestCallback(NPP npp, NPObject* callback)
    : _npp(npp),
      _callback(callback ? NPN_RetainObject(callback) : nullptr),
      _mainThread(std::this_thread::get_id()) {}

RequestCallback::~RequestCallback() {
    if (!_callback) {
        return;  // fired: the message owns the reference now
    }
    // Never fired: the request failed before it was sent, or the worker
    // stopped. The request worker deletes its requests on its own thread,
    // where the page object must not be touched, so the release goes to the
    // main thread. Not through the instance's queue: the instance may be on
    // its way out, and its queue drops what is left without running it.
    if (std::this_thread::get_id() == _mainThread) {
        NPN_ReleaseObject(_callback);
    } else {
        OneShotManager::postToMainThread(&releasePageObject, _callback);
    }
    _callback = nullptr;
}

void RequestCallback::handleCallback(void* subject) {
    const auto* response = static_cast<const HttpResponse*>(subject);
    const std::string text = response ? response->data() : Json::createError(kErrorKestrixRequest);
    cv_dbg("RequestCallback::handleCallback() - response=%s", text.c_str());
    if (!_callback) {
        return;  // told once already: there is no page callback left to call
    }
    // This runs on the request worker's thread, so instead of retaining the
    // page callback anew, our own reference goes with the message, which
    // releases it on the main thread once the page has been called.
    StringCallbackMessage* message = StringCallbackMessage::adopt(_npp, _callback, text);
    _callback = nullptr;
    NPN_PluginThreadAsyncCall(_npp, &callbackBrowser, message);
}

}  // namespace Web
}  // namespace Kestrix
