// The scriptable object a page sees for each plug-in instance: its class,
// and the dispatch of method calls and properties to the instance.
#pragma once

#include <functional>
#include <string>

#include "npfunctions.h"

namespace Kestrix {
namespace Web {
class cvCorvaneWebPlugin;
}
}  // namespace Kestrix

// The object: the browser's header, then the instance it speaks for.
struct CWScriptObject {
    NPObject header;
    Kestrix::Web::cvCorvaneWebPlugin* plugin;
};

extern const char* const CWScriptObjectPropertyName;          // "name"
extern const char* const CWScriptObjectPropertyDropObserver;  // "dropObserver"
extern const char* const CWScriptObjectPropertyEventHandler;  // "eventHandler"

// A class record of its own for each instance. Like the objects made from
// it, it lives until the process ends.
NPClass* CWCreateScriptObjectClass();

NPObject* CWScriptObjectAllocate(NPP npp, NPClass* aClass);
void CWScriptObjectDeallocate(NPObject* obj);
void CWScriptObjectInvalidate(NPObject* obj);
bool CWScriptObjectHasMethod(NPObject* obj, NPIdentifier name);
bool CWScriptObjectInvoke(NPObject* obj, NPIdentifier name, const NPVariant* args, uint32_t argCount,
                          NPVariant* result);
bool CWScriptObjectInvokeDefault(NPObject* obj, const NPVariant* args, uint32_t argCount, NPVariant* result);
bool CWScriptObjectHasProperty(NPObject* obj, NPIdentifier name);
bool CWScriptObjectGetProperty(NPObject* obj, NPIdentifier name, NPVariant* result);
bool CWScriptObjectSetProperty(NPObject* obj, NPIdentifier name, const NPVariant* value);
bool CWScriptObjectRemoveProperty(NPObject* obj, NPIdentifier name);

// Runs one method call for CWScriptObjectInvoke: a std::exception thrown
// by `call` becomes the error document in *result (logged), and the answer
// is then true, so that the page gets a string rather than a script error.
// Other exceptions pass through.
bool CW_RunScriptMethod(const std::function<bool()>& call, NPVariant* result);
