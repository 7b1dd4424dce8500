#include "VariantHelpers.h"

#include <stdlib.h>
#include <string.h>

#include <new>

#include "BrowserFuncs.h"

void CW_CharPtrToNPStringVariant(const char* text, NPVariant* variant) {
    variant->type = NPVariantType_String;
    variant->value.stringValue.UTF8Characters = nullptr;
    variant->value.stringValue.UTF8Length = 0;
    if (!text) return;
    size_t length = strlen(text);
    char* copy = static_cast<char*>(NPN_MemAlloc(static_cast<uint32_t>(length + 1)));
    if (!copy) return;
    memcpy(copy, text, length + 1);
    variant->value.stringValue.UTF8Characters = copy;
    variant->value.stringValue.UTF8Length = static_cast<uint32_t>(length);
}

char* CW_NPStringToCharPtr(const NPString& npString) {
    size_t length = npString.UTF8Characters ? npString.UTF8Length : 0;
    char* copy = static_cast<char*>(malloc(length + 1));
    if (!copy) return nullptr;
    if (length) memcpy(copy, npString.UTF8Characters, length);
    copy[length] = '\0';
    return copy;
}

std::string CW_NPStringToString(const NPString& npString) {
    // Through the C string, so that text ends at a NUL byte wherever the
    // browser-facing layer reads it.
    char* copy = CW_NPStringToCharPtr(npString);
    if (!copy) throw std::bad_alloc();
    std::string text(copy);
    free(copy);
    return text;
}

NPVariant CW_JsonToString(NPP npp, NPObject* object) {
    NPVariant result;
    VOID_TO_NPVARIANT(result);
    NPObject* window = nullptr;
    if (NPN_GetValue(npp, NPNVWindowNPObject, &window) != NPERR_NO_ERROR || !window) return result;
    NPVariant json;
    VOID_TO_NPVARIANT(json);
    if (NPN_GetProperty(npp, window, NPN_GetStringIdentifier("JSON"), &json) && NPVARIANT_IS_OBJECT(json)) {
        NPVariant argument;
        OBJECT_TO_NPVARIANT(object, argument);
        NPN_Invoke(npp, NPVARIANT_TO_OBJECT(json), NPN_GetStringIdentifier("stringify"), &argument, 1,
                   &result);
    }
    NPN_ReleaseVariantValue(&json);
    NPN_ReleaseObject(window);
    return result;
}
