// Calls into the browser, through our own copy of its function table.
//
// NP_Initialize copies the browser's table into a fixed 472-byte block
// (never reading past the size the browser reports) and points its
// pluginthreadasynccall entry at CW_ScheduleAsyncCallback, so every
// NPN_PluginThreadAsyncCall goes through the instance's own callback queue.
// Each wrapper checks its entry: a browser that leaves an entry null gets a
// failure answer (NPERR_GENERIC_ERROR, false, null) instead of a crash.
#pragma once

#include "npfunctions.h"

// Copies the browser's table (at most 472 bytes, the rest zeroed) and
// installs the async-call override. Returns 0.
NPError CW_PopulateNetscapeFunctionTable(const NPNetscapeFuncs* browserFuncs);
// The copy itself (tests inspect it).
const NPNetscapeFuncs* CW_BrowserFunctions();

// Queues func(data) on the instance's callback queue; safe from any thread.
void CW_ScheduleAsyncCallback(NPP npp, void (*func)(void*), void* data);

NPError NPN_GetValue(NPP instance, NPNVariable variable, void* value);
NPError NPN_SetValue(NPP instance, NPPVariable variable, void* value);
const char* NPN_UserAgent(NPP instance);
NPError NPN_GetURLNotify(NPP instance, const char* url, const char* target, void* notifyData);
void NPN_InvalidateRect(NPP instance, NPRect* rect);
void* NPN_MemAlloc(uint32_t size);
void NPN_MemFree(void* ptr);
NPObject* NPN_CreateObject(NPP npp, NPClass* aClass);
NPObject* NPN_RetainObject(NPObject* obj);
void NPN_ReleaseObject(NPObject* obj);
NPIdentifier NPN_GetStringIdentifier(const NPUTF8* name);
NPIdentifier NPN_GetIntIdentifier(int32_t intid);
bool NPN_IdentifierIsString(NPIdentifier identifier);
NPUTF8* NPN_UTF8FromIdentifier(NPIdentifier identifier);
bool NPN_GetProperty(NPP npp, NPObject* obj, NPIdentifier propertyName, NPVariant* result);
bool NPN_HasMethod(NPP npp, NPObject* obj, NPIdentifier methodName);
bool NPN_Invoke(NPP npp, NPObject* obj, NPIdentifier methodName, const NPVariant* args, uint32_t argCount,
                NPVariant* result);
bool NPN_InvokeDefault(NPP npp, NPObject* obj, const NPVariant* args, uint32_t argCount, NPVariant* result);
void NPN_ReleaseVariantValue(NPVariant* variant);
void NPN_PluginThreadAsyncCall(NPP instance, void (*func)(void*), void* userData);
