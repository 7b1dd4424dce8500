// Our copy of the browser's function table and the wrappers that call
// through it.
//
// CW_ScheduleAsyncCallback lives here too: it is the table's
// pluginthreadasynccall entry, and all it needs from an instance is the
// instance's callback queue (cvCorvaneWebPlugin::oneShotManager()).
#include "BrowserFuncs.h"

#include <stddef.h>
#include <string.h>

#include "OneShotManager.h"
#include "cvCorvaneWebPlugin.h"
#include "cv_log.h"

namespace {

// Zero until NP_Initialize copies the browser's table: every wrapper then
// answers its failure value instead of calling through a null pointer.
NPNetscapeFuncs browserFuncs;

const size_t kTableBytes = sizeof(NPNetscapeFuncs);            // 472
const size_t kFirstEntry = offsetof(NPNetscapeFuncs, geturl);  // after size, version and padding

}  // namespace

NPError CW_PopulateNetscapeFunctionTable(const NPNetscapeFuncs* funcs) {
    unsigned char* copy = reinterpret_cast<unsigned char*>(&browserFuncs);
    memset(copy, 0, kTableBytes);
    if (funcs) {
        // Never read past the browser's own table: older hosts pass a
        // shorter one (QtWebKit's is 448 bytes).
        size_t length = funcs->size < kTableBytes ? funcs->size : kTableBytes;
        memcpy(copy, funcs, length);
        // An entry cut by the browser's size would be half a pointer.
        if (length > kFirstEntry) {
            size_t whole = kFirstEntry + (length - kFirstEntry) / sizeof(void*) * sizeof(void*);
            memset(copy + whole, 0, length - whole);
        }
    }
    // Work handed to the main thread goes through the instance's own queue,
    // never through the browser's.
    browserFuncs.pluginthreadasynccall = CW_ScheduleAsyncCallback;
    return NPERR_NO_ERROR;
}

const NPNetscapeFuncs* CW_BrowserFunctions() {
    return &browserFuncs;
}

void CW_ScheduleAsyncCallback(NPP npp, void (*func)(void*), void* data) {
    Kestrix::Web::cvCorvaneWebPlugin* plugin =
        npp ? static_cast<Kestrix::Web::cvCorvaneWebPlugin*>(npp->pdata) : nullptr;
    cv_dbg("CW_ScheduleAsyncCallback() [%p] - plugin=%p", static_cast<void*>(npp),
           static_cast<void*>(plugin));
    if (!plugin || !plugin->oneShotManager()) return;
    plugin->oneShotManager()->scheduleAsyncCallback(func, data);
}

NPError NPN_GetValue(NPP instance, NPNVariable variable, void* value) {
    if (!browserFuncs.getvalue) return NPERR_GENERIC_ERROR;
    return browserFuncs.getvalue(instance, variable, value);
}

NPError NPN_SetValue(NPP instance, NPPVariable variable, void* value) {
    if (!browserFuncs.setvalue) return NPERR_GENERIC_ERROR;
    return browserFuncs.setvalue(instance, variable, value);
}

const char* NPN_UserAgent(NPP instance) {
    if (!browserFuncs.uagent) return nullptr;
    return browserFuncs.uagent(instance);
}

NPError NPN_GetURLNotify(NPP instance, const char* url, const char* target, void* notifyData) {
    if (!browserFuncs.geturlnotify) return NPERR_GENERIC_ERROR;
    return browserFuncs.geturlnotify(instance, url, target, notifyData);
}

void NPN_InvalidateRect(NPP instance, NPRect* rect) {
    if (browserFuncs.invalidaterect) browserFuncs.invalidaterect(instance, rect);
}

void* NPN_MemAlloc(uint32_t size) {
    if (!browserFuncs.memalloc) return nullptr;
    return browserFuncs.memalloc(size);
}

void NPN_MemFree(void* ptr) {
    if (browserFuncs.memfree) browserFuncs.memfree(ptr);
}

NPObject* NPN_CreateObject(NPP npp, NPClass* aClass) {
    if (!browserFuncs.createobject) return nullptr;
    return browserFuncs.createobject(npp, aClass);
}

NPObject* NPN_RetainObject(NPObject* obj) {
    if (!browserFuncs.retainobject) return nullptr;
    return browserFuncs.retainobject(obj);
}

void NPN_ReleaseObject(NPObject* obj) {
    if (browserFuncs.releaseobject) browserFuncs.releaseobject(obj);
}

NPIdentifier NPN_GetStringIdentifier(const NPUTF8* name) {
    if (!browserFuncs.getstringidentifier) return nullptr;
    return browserFuncs.getstringidentifier(name);
}

NPIdentifier NPN_GetIntIdentifier(int32_t intid) {
    if (!browserFuncs.getintidentifier) return nullptr;
    return browserFuncs.getintidentifier(intid);
}

bool NPN_IdentifierIsString(NPIdentifier identifier) {
    if (!browserFuncs.identifierisstring) return false;
    return browserFuncs.identifierisstring(identifier);
}

NPUTF8* NPN_UTF8FromIdentifier(NPIdentifier identifier) {
    if (!browserFuncs.utf8fromidentifier) return nullptr;
    return browserFuncs.utf8fromidentifier(identifier);
}

bool NPN_GetProperty(NPP npp, NPObject* obj, NPIdentifier propertyName, NPVariant* result) {
    if (!browserFuncs.getproperty) return false;
    return browserFuncs.getproperty(npp, obj, propertyName, result);
}

bool NPN_HasMethod(NPP npp, NPObject* obj, NPIdentifier methodName) {
    if (!browserFuncs.hasmethod) return false;
    return browserFuncs.hasmethod(npp, obj, methodName);
}

bool NPN_Invoke(NPP npp, NPObject* obj, NPIdentifier methodName, const NPVariant* args, uint32_t argCount,
                NPVariant* result) {
    if (!browserFuncs.invoke) return false;
    return browserFuncs.invoke(npp, obj, methodName, args, argCount, result);
}

bool NPN_InvokeDefault(NPP npp, NPObject* obj, const NPVariant* args, uint32_t argCount, NPVariant* result) {
    if (!browserFuncs.invokeDefault) return false;
    return browserFuncs.invokeDefault(npp, obj, args, argCount, result);
}

void NPN_ReleaseVariantValue(NPVariant* variant) {
    if (browserFuncs.releasevariantvalue) browserFuncs.releasevariantvalue(variant);
}

void NPN_PluginThreadAsyncCall(NPP instance, void (*func)(void*), void* userData) {
    if (browserFuncs.pluginthreadasynccall) browserFuncs.pluginthreadasynccall(instance, func, userData);
}
