#include "StringCallbackMessage.h"

#include "BrowserFuncs.h"
#include "VariantHelpers.h"
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
    // A failed call is ignored, as is whatever the page function answers.
    // The argument's buffer and the result block are left with the browser
    // and a string answer is not released: that is how pages have always
    // been called back, and only a non-string answer is given back here.
    auto* result = static_cast<NPVariant*>(NPN_MemAlloc(sizeof(NPVariant)));
    if (result) {
        VOID_TO_NPVARIANT(*result);
        if (message->callback() &&
            NPN_InvokeDefault(message->npp(), message->callback(), &argument, 1, result) &&
            !NPVARIANT_IS_STRING(*result)) {
            NPN_ReleaseVariantValue(result);
        }
    }
    delete message;
}

}  // namespace Web
}  // namespace Kestrix
