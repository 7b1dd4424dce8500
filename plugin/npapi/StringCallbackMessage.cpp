#include "StringCallbackMessage.h"

#include "BrowserFuncs.h"
#include "ScriptObject.h"
#include "cv_log.h"

namespace Kestrix {
namespace Web {

StringCallbackMessage::StringCallbackMessage(NPP npp, NPObject* callback, const std::string& message)
    : _npp(npp), _callback(callback ? NPN_RetainObject(callback) : nullptr), _message(message) {}

StringCallbackMessage::StringCallbackMessage(NPP npp, NPObject* callback, const std::string& message,
                                             AdoptTag)
    : _npp(npp), _callback(callback), _message(message) {}

StringCallbackMessage* StringCallbackMessage::adopt(NPP npp, NPObject* callback, const std::string& message) {
    return new StringCallbackMessage(npp, callback, message, AdoptTag());
}

StringCallbackMessage::~StringCallbackMessage() {
    if (_callback) {
        NPN_ReleaseObject(_callback);
    }
}

void callbackBrowser(void* data) {
    auto* message = static_cast<StringCallbackMessage*>(data);
    cv_dbg("callbackBrowser - msg=%s", message->message().c_str());

    NPVariant argument;
    CW_CharPtrToNPStringVariant(message->message().c_str(), &argument);
    NPVariant result;
    VOID_TO_NPVARIANT(result);
    // A failed call is ignored, as is whatever the page function answers.
    //
    // The browser turns the argument into a script value of its own during
    // the call and gives the caller a result that the caller owns, so both
    // are given back here, whatever type the result has: keeping them would
    // cost the browser one response body per request for as long as it
    // runs. (The result lives on the stack; nothing needs it after the call.)
    if (message->callback() &&
        NPN_InvokeDefault(message->npp(), message->callback(), &argument, 1, &result)) {
        NPN_ReleaseVariantValue(&result);
    }
    NPN_ReleaseVariantValue(&argument);
    delete message;
}

}  // namespace Web
}  // namespace Kestrix
