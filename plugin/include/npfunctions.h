/*
 * NPAPI function tables and entry points: the browser's table
 * (NPNetscapeFuncs), the plug-in's table (NPPluginFuncs) and the symbols
 * a Unix plug-in library exports.
 *
 * Written for this project from the public description of the interface.
 * Plain C (C11 or C++17). The layout checks at the end pin the x86_64
 * (LP64) layout the browsers use.
 */
#ifndef CORVANE_NPFUNCTIONS_H
#define CORVANE_NPFUNCTIONS_H

#include <stddef.h>
#include <stdint.h>

#include "npapi.h"
#include "npruntime.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Functions the plug-in provides (NPP_*) ---------------------------- */

typedef NPError (*NPP_NewProcPtr)(NPMIMEType pluginType, NPP instance, uint16_t mode, int16_t argc,
                                  char* argn[], char* argv[], NPSavedData* saved);
typedef NPError (*NPP_DestroyProcPtr)(NPP instance, NPSavedData** save);
typedef NPError (*NPP_SetWindowProcPtr)(NPP instance, NPWindow* window);
typedef NPError (*NPP_NewStreamProcPtr)(NPP instance, NPMIMEType type, NPStream* stream, NPBool seekable,
                                        uint16_t* stype);
typedef NPError (*NPP_DestroyStreamProcPtr)(NPP instance, NPStream* stream, NPReason reason);
typedef int32_t (*NPP_WriteReadyProcPtr)(NPP instance, NPStream* stream);
typedef int32_t (*NPP_WriteProcPtr)(NPP instance, NPStream* stream, int32_t offset, int32_t len,
                                    void* buffer);
typedef void (*NPP_StreamAsFileProcPtr)(NPP instance, NPStream* stream, const char* fname);
typedef void (*NPP_PrintProcPtr)(NPP instance, NPPrint* platformPrint);
typedef int16_t (*NPP_HandleEventProcPtr)(NPP instance, void* event);
typedef void (*NPP_URLNotifyProcPtr)(NPP instance, const char* url, NPReason reason, void* notifyData);
/* An NPObject answered for NPPVpluginScriptableNPObject carries a
 * reference for the browser. */
typedef NPError (*NPP_GetValueProcPtr)(NPP instance, NPPVariable variable, void* value);
typedef NPError (*NPP_SetValueProcPtr)(NPP instance, NPNVariable variable, void* value);
typedef NPBool (*NPP_GotFocusPtr)(NPP instance, NPFocusDirection direction);
typedef void (*NPP_LostFocusPtr)(NPP instance);
typedef void (*NPP_URLRedirectNotifyPtr)(NPP instance, const char* url, int32_t status, void* notifyData);
typedef NPError (*NPP_ClearSiteDataPtr)(const char* site, uint64_t flags, uint64_t maxAge);
typedef char** (*NPP_GetSitesWithDataPtr)(void);
typedef void (*NPP_DidCompositePtr)(NPP instance);

/* ---- Functions the browser provides (NPN_*) ---------------------------- */

typedef NPError (*NPN_GetURLProcPtr)(NPP instance, const char* url, const char* window);
typedef NPError (*NPN_PostURLProcPtr)(NPP instance, const char* url, const char* window, uint32_t len,
                                      const char* buf, NPBool file);
typedef NPError (*NPN_RequestReadProcPtr)(NPStream* stream, NPByteRange* rangeList);
typedef NPError (*NPN_NewStreamProcPtr)(NPP instance, NPMIMEType type, const char* window, NPStream** stream);
typedef int32_t (*NPN_WriteProcPtr)(NPP instance, NPStream* stream, int32_t len, void* buffer);
typedef NPError (*NPN_DestroyStreamProcPtr)(NPP instance, NPStream* stream, NPReason reason);
typedef void (*NPN_StatusProcPtr)(NPP instance, const char* message);
/* The browser keeps the text; the plug-in neither frees nor keeps it. */
typedef const char* (*NPN_UserAgentProcPtr)(NPP instance);
typedef void* (*NPN_MemAllocProcPtr)(uint32_t size);
typedef void (*NPN_MemFreeProcPtr)(void* ptr);
typedef uint32_t (*NPN_MemFlushProcPtr)(uint32_t size);
typedef void (*NPN_ReloadPluginsProcPtr)(NPBool reloadPages);
typedef void* (*NPN_GetJavaEnvProcPtr)(void);
typedef void* (*NPN_GetJavaPeerProcPtr)(NPP instance);
typedef NPError (*NPN_GetURLNotifyProcPtr)(NPP instance, const char* url, const char* window,
                                           void* notifyData);
typedef NPError (*NPN_PostURLNotifyProcPtr)(NPP instance, const char* url, const char* window, uint32_t len,
                                            const char* buf, NPBool file, void* notifyData);
typedef NPError (*NPN_GetValueProcPtr)(NPP instance, NPNVariable variable, void* value);
typedef NPError (*NPN_SetValueProcPtr)(NPP instance, NPPVariable variable, void* value);
typedef void (*NPN_InvalidateRectProcPtr)(NPP instance, NPRect* rect);
typedef void (*NPN_InvalidateRegionProcPtr)(NPP instance, NPRegion region);
typedef void (*NPN_ForceRedrawProcPtr)(NPP instance);
typedef NPIdentifier (*NPN_GetStringIdentifierProcPtr)(const NPUTF8* name);
typedef void (*NPN_GetStringIdentifiersProcPtr)(const NPUTF8** names, int32_t nameCount,
                                                NPIdentifier* identifiers);
typedef NPIdentifier (*NPN_GetIntIdentifierProcPtr)(int32_t intid);
typedef bool (*NPN_IdentifierIsStringProcPtr)(NPIdentifier identifier);
typedef NPUTF8* (*NPN_UTF8FromIdentifierProcPtr)(NPIdentifier identifier);
typedef int32_t (*NPN_IntFromIdentifierProcPtr)(NPIdentifier identifier);
typedef NPObject* (*NPN_CreateObjectProcPtr)(NPP npp, NPClass* aClass);
typedef NPObject* (*NPN_RetainObjectProcPtr)(NPObject* obj);
typedef void (*NPN_ReleaseObjectProcPtr)(NPObject* obj);
typedef bool (*NPN_InvokeProcPtr)(NPP npp, NPObject* obj, NPIdentifier methodName, const NPVariant* args,
                                  uint32_t argCount, NPVariant* result);
typedef bool (*NPN_InvokeDefaultProcPtr)(NPP npp, NPObject* obj, const NPVariant* args, uint32_t argCount,
                                         NPVariant* result);
typedef bool (*NPN_EvaluateProcPtr)(NPP npp, NPObject* obj, NPString* script, NPVariant* result);
typedef bool (*NPN_GetPropertyProcPtr)(NPP npp, NPObject* obj, NPIdentifier propertyName, NPVariant* result);
typedef bool (*NPN_SetPropertyProcPtr)(NPP npp, NPObject* obj, NPIdentifier propertyName,
                                       const NPVariant* value);
typedef bool (*NPN_RemovePropertyProcPtr)(NPP npp, NPObject* obj, NPIdentifier propertyName);
typedef bool (*NPN_HasPropertyProcPtr)(NPP npp, NPObject* obj, NPIdentifier propertyName);
typedef bool (*NPN_HasMethodProcPtr)(NPP npp, NPObject* obj, NPIdentifier methodName);
typedef void (*NPN_ReleaseVariantValueProcPtr)(NPVariant* variant);
typedef void (*NPN_SetExceptionProcPtr)(NPObject* obj, const NPUTF8* message);
typedef void (*NPN_PushPopupsEnabledStateProcPtr)(NPP npp, NPBool enabled);
typedef void (*NPN_PopPopupsEnabledStateProcPtr)(NPP npp);
typedef bool (*NPN_EnumerateProcPtr)(NPP npp, NPObject* obj, NPIdentifier** identifiers, uint32_t* count);
/* The one browser function a plug-in may call from any thread: runs
 * func(userData) on the browser's main thread later. */
typedef void (*NPN_PluginThreadAsyncCallProcPtr)(NPP instance, void (*func)(void*), void* userData);
typedef bool (*NPN_ConstructProcPtr)(NPP npp, NPObject* obj, const NPVariant* args, uint32_t argCount,
                                     NPVariant* result);
typedef NPError (*NPN_GetValueForURLPtr)(NPP npp, NPNURLVariable variable, const char* url, char** value,
                                         uint32_t* len);
typedef NPError (*NPN_SetValueForURLPtr)(NPP npp, NPNURLVariable variable, const char* url, const char* value,
                                         uint32_t len);
typedef NPError (*NPN_GetAuthenticationInfoPtr)(NPP npp, const char* protocol, const char* host, int32_t port,
                                                const char* scheme, const char* realm, char** username,
                                                uint32_t* ulen, char** password, uint32_t* plen);
typedef uint32_t (*NPN_ScheduleTimerPtr)(NPP instance, uint32_t interval, NPBool repeat,
                                         void (*timerFunc)(NPP npp, uint32_t timerID));
typedef void (*NPN_UnscheduleTimerPtr)(NPP instance, uint32_t timerID);
typedef NPError (*NPN_PopUpContextMenuPtr)(NPP instance, NPMenu* menu);
typedef NPBool (*NPN_ConvertPointPtr)(NPP instance, double sourceX, double sourceY,
                                      NPCoordinateSpace sourceSpace, double* destX, double* destY,
                                      NPCoordinateSpace destSpace);
typedef NPBool (*NPN_HandleEventPtr)(NPP instance, void* event, NPBool handled);
typedef NPBool (*NPN_UnfocusInstancePtr)(NPP instance, NPFocusDirection direction);
typedef void (*NPN_URLRedirectResponsePtr)(NPP instance, void* notifyData, NPBool allow);
typedef NPError (*NPN_InitAsyncSurfacePtr)(NPP instance, NPSize* size, NPImageFormat format, void* initData,
                                           NPAsyncSurface* surface);
typedef NPError (*NPN_FinalizeAsyncSurfacePtr)(NPP instance, NPAsyncSurface* surface);
typedef void (*NPN_SetCurrentAsyncSurfacePtr)(NPP instance, NPAsyncSurface* surface, NPRect* changed);

/* ---- The plug-in's table ---------------------------------------------- */

/* Filled by the plug-in. `size` is the browser's: a browser built against
 * an older interface passes a smaller table, and members past its size
 * do not exist there. */
typedef struct _NPPluginFuncs {
    uint16_t size;
    uint16_t version;
    NPP_NewProcPtr newp;
    NPP_DestroyProcPtr destroy;
    NPP_SetWindowProcPtr setwindow;
    NPP_NewStreamProcPtr newstream;
    NPP_DestroyStreamProcPtr destroystream;
    NPP_StreamAsFileProcPtr asfile;
    NPP_WriteReadyProcPtr writeready;
    NPP_WriteProcPtr write;
    NPP_PrintProcPtr print;
    NPP_HandleEventProcPtr event;
    NPP_URLNotifyProcPtr urlnotify;
    void* javaClass;
    NPP_GetValueProcPtr getvalue;
    NPP_SetValueProcPtr setvalue;
    NPP_GotFocusPtr gotfocus;
    NPP_LostFocusPtr lostfocus;
    NPP_URLRedirectNotifyPtr urlredirectnotify;
    NPP_ClearSiteDataPtr clearsitedata;
    NPP_GetSitesWithDataPtr getsiteswithdata;
    NPP_DidCompositePtr didComposite;
} NPPluginFuncs;

/* ---- The browser's table ---------------------------------------------- */

/* Filled by the browser. Its `size` says how many members exist: a
 * browser stops at the members of the interface version it implements,
 * and reading past `size` reads memory that is not part of the table. */
typedef struct _NPNetscapeFuncs {
    uint16_t size;
    uint16_t version;
    NPN_GetURLProcPtr geturl;
    NPN_PostURLProcPtr posturl;
    NPN_RequestReadProcPtr requestread;
    NPN_NewStreamProcPtr newstream;
    NPN_WriteProcPtr write;
    NPN_DestroyStreamProcPtr destroystream;
    NPN_StatusProcPtr status;
    NPN_UserAgentProcPtr uagent;
    NPN_MemAllocProcPtr memalloc;
    NPN_MemFreeProcPtr memfree;
    NPN_MemFlushProcPtr memflush;
    NPN_ReloadPluginsProcPtr reloadplugins;
    NPN_GetJavaEnvProcPtr getJavaEnv;
    NPN_GetJavaPeerProcPtr getJavaPeer;
    NPN_GetURLNotifyProcPtr geturlnotify;
    NPN_PostURLNotifyProcPtr posturlnotify;
    NPN_GetValueProcPtr getvalue;
    NPN_SetValueProcPtr setvalue;
    NPN_InvalidateRectProcPtr invalidaterect;
    NPN_InvalidateRegionProcPtr invalidateregion;
    NPN_ForceRedrawProcPtr forceredraw;
    NPN_GetStringIdentifierProcPtr getstringidentifier;
    NPN_GetStringIdentifiersProcPtr getstringidentifiers;
    NPN_GetIntIdentifierProcPtr getintidentifier;
    NPN_IdentifierIsStringProcPtr identifierisstring;
    NPN_UTF8FromIdentifierProcPtr utf8fromidentifier;
    NPN_IntFromIdentifierProcPtr intfromidentifier;
    NPN_CreateObjectProcPtr createobject;
    NPN_RetainObjectProcPtr retainobject;
    NPN_ReleaseObjectProcPtr releaseobject;
    NPN_InvokeProcPtr invoke;
    NPN_InvokeDefaultProcPtr invokeDefault;
    NPN_EvaluateProcPtr evaluate;
    NPN_GetPropertyProcPtr getproperty;
    NPN_SetPropertyProcPtr setproperty;
    NPN_RemovePropertyProcPtr removeproperty;
    NPN_HasPropertyProcPtr hasproperty;
    NPN_HasMethodProcPtr hasmethod;
    NPN_ReleaseVariantValueProcPtr releasevariantvalue;
    NPN_SetExceptionProcPtr setexception;
    NPN_PushPopupsEnabledStateProcPtr pushpopupsenabledstate;
    NPN_PopPopupsEnabledStateProcPtr poppopupsenabledstate;
    NPN_EnumerateProcPtr enumerate;
    NPN_PluginThreadAsyncCallProcPtr pluginthreadasynccall;
    NPN_ConstructProcPtr construct;
    NPN_GetValueForURLPtr getvalueforurl;
    NPN_SetValueForURLPtr setvalueforurl;
    NPN_GetAuthenticationInfoPtr getauthenticationinfo;
    NPN_ScheduleTimerPtr scheduletimer;
    NPN_UnscheduleTimerPtr unscheduletimer;
    NPN_PopUpContextMenuPtr popupcontextmenu;
    NPN_ConvertPointPtr convertpoint;
    NPN_HandleEventPtr handleevent;
    NPN_UnfocusInstancePtr unfocusinstance;
    NPN_URLRedirectResponsePtr urlredirectresponse;
    NPN_InitAsyncSurfacePtr initasyncsurface;
    NPN_FinalizeAsyncSurfacePtr finalizeasyncsurface;
    NPN_SetCurrentAsyncSurfacePtr setcurrentasyncsurface;
} NPNetscapeFuncs;

/* ---- Library entry points (Unix) -------------------------------------- */

/* A Unix host looks these up by name. Declared with default visibility
 * so that a library built with hidden visibility still exports them. */
#if defined(__GNUC__)
#define NP_EXPORT_VISIBILITY __attribute__((visibility("default")))
#else
#define NP_EXPORT_VISIBILITY
#endif

typedef const char* (*NP_GetMIMEDescriptionFunc)(void);
typedef NPError (*NP_GetValueFunc)(void* future, NPPVariable variable, void* value);
#if defined(XP_MACOSX)
/* The Mac form takes the browser's table only; the plug-in's comes from
 * NP_GetEntryPoints. */
typedef NPError (*NP_InitializeFunc)(NPNetscapeFuncs* browserFuncs);
#else
/* The Unix form takes both tables: the plug-in fills its own here. */
typedef NPError (*NP_InitializeFunc)(NPNetscapeFuncs* browserFuncs, NPPluginFuncs* pluginFuncs);
#endif
typedef NPError (*NP_GetEntryPointsFunc)(NPPluginFuncs* pluginFuncs);
typedef NPError (*NP_ShutdownFunc)(void);

NP_EXPORT_VISIBILITY const char* NP_GetMIMEDescription(void);
NP_EXPORT_VISIBILITY NPError NP_GetValue(void* future, NPPVariable variable, void* value);
#if defined(XP_MACOSX)
NP_EXPORT_VISIBILITY NPError NP_Initialize(NPNetscapeFuncs* browserFuncs);
#else
NP_EXPORT_VISIBILITY NPError NP_Initialize(NPNetscapeFuncs* browserFuncs, NPPluginFuncs* pluginFuncs);
#endif
NP_EXPORT_VISIBILITY NPError NP_GetEntryPoints(NPPluginFuncs* pluginFuncs);
NP_EXPORT_VISIBILITY NPError NP_Shutdown(void);

#ifdef __cplusplus
} /* extern "C" */
#endif

/* ---- Layout checks (x86_64 / LP64) ------------------------------------ */

/* The browsers' tables were measured at these sizes: 472 bytes is the
 * full browser table (58 functions after the two 16-bit fields and 4
 * bytes of padding); 448 bytes (55 functions, ending at
 * urlredirectresponse) is what the QtWebKit host passes. The plug-in
 * table is 168 bytes in full, 160 without didComposite. */
#if defined(__x86_64__) || defined(__LP64__)
#ifdef __cplusplus
#define NPAPI_LAYOUT_CHECK(cond, what) static_assert(cond, what)
#else
#define NPAPI_LAYOUT_CHECK(cond, what) _Static_assert(cond, what)
#endif

NPAPI_LAYOUT_CHECK(sizeof(NPNetscapeFuncs) == 472, "NPNetscapeFuncs is 472 bytes");
NPAPI_LAYOUT_CHECK(offsetof(NPNetscapeFuncs, geturl) == 8, "browser table entries start at 8");
NPAPI_LAYOUT_CHECK(offsetof(NPNetscapeFuncs, uagent) == 64, "uagent at 64");
NPAPI_LAYOUT_CHECK(offsetof(NPNetscapeFuncs, memalloc) == 72, "memalloc at 72");
NPAPI_LAYOUT_CHECK(offsetof(NPNetscapeFuncs, geturlnotify) == 120, "geturlnotify at 120");
NPAPI_LAYOUT_CHECK(offsetof(NPNetscapeFuncs, getvalue) == 136, "getvalue at 136");
NPAPI_LAYOUT_CHECK(offsetof(NPNetscapeFuncs, invalidaterect) == 152, "invalidaterect at 152");
NPAPI_LAYOUT_CHECK(offsetof(NPNetscapeFuncs, getstringidentifier) == 176, "getstringidentifier at 176");
NPAPI_LAYOUT_CHECK(offsetof(NPNetscapeFuncs, createobject) == 224, "createobject at 224");
NPAPI_LAYOUT_CHECK(offsetof(NPNetscapeFuncs, invoke) == 248, "invoke at 248");
NPAPI_LAYOUT_CHECK(offsetof(NPNetscapeFuncs, releasevariantvalue) == 312, "releasevariantvalue at 312");
NPAPI_LAYOUT_CHECK(offsetof(NPNetscapeFuncs, enumerate) == 344, "enumerate at 344");
NPAPI_LAYOUT_CHECK(offsetof(NPNetscapeFuncs, pluginthreadasynccall) == 352, "pluginthreadasynccall at 352");
NPAPI_LAYOUT_CHECK(offsetof(NPNetscapeFuncs, getvalueforurl) == 368, "getvalueforurl at 368");
NPAPI_LAYOUT_CHECK(offsetof(NPNetscapeFuncs, scheduletimer) == 392, "scheduletimer at 392");
NPAPI_LAYOUT_CHECK(offsetof(NPNetscapeFuncs, urlredirectresponse) == 440, "urlredirectresponse at 440");
NPAPI_LAYOUT_CHECK(offsetof(NPNetscapeFuncs, urlredirectresponse) + sizeof(void*) == 448,
                   "a 448-byte table ends with urlredirectresponse");
NPAPI_LAYOUT_CHECK(offsetof(NPNetscapeFuncs, setcurrentasyncsurface) == 464, "setcurrentasyncsurface at 464");

NPAPI_LAYOUT_CHECK(sizeof(NPPluginFuncs) == 168, "NPPluginFuncs is 168 bytes");
NPAPI_LAYOUT_CHECK(offsetof(NPPluginFuncs, newp) == 8, "newp at 8");
NPAPI_LAYOUT_CHECK(offsetof(NPPluginFuncs, javaClass) == 96, "javaClass at 96");
NPAPI_LAYOUT_CHECK(offsetof(NPPluginFuncs, getvalue) == 104, "getvalue at 104");
NPAPI_LAYOUT_CHECK(offsetof(NPPluginFuncs, setvalue) == 112, "setvalue at 112");
NPAPI_LAYOUT_CHECK(offsetof(NPPluginFuncs, didComposite) == 160, "didComposite at 160");

NPAPI_LAYOUT_CHECK(sizeof(NPP_t) == 16, "NPP_t is two pointers");
NPAPI_LAYOUT_CHECK(sizeof(NPStream) == 48 && offsetof(NPStream, notifyData) == 32, "NPStream layout");
NPAPI_LAYOUT_CHECK(sizeof(NPRect) == 8, "NPRect is four 16-bit values");
NPAPI_LAYOUT_CHECK(sizeof(NPWindow) == 48 && offsetof(NPWindow, clipRect) == 24 &&
                       offsetof(NPWindow, ws_info) == 32 && offsetof(NPWindow, type) == 40,
                   "NPWindow layout with the Unix ws_info member");
NPAPI_LAYOUT_CHECK(sizeof(NPSetWindowCallbackStruct) == 40 &&
                       offsetof(NPSetWindowCallbackStruct, display) == 8 &&
                       offsetof(NPSetWindowCallbackStruct, depth) == 32,
                   "NPSetWindowCallbackStruct layout");
NPAPI_LAYOUT_CHECK(sizeof(NPString) == 16, "NPString is pointer + length");
NPAPI_LAYOUT_CHECK(sizeof(NPVariant) == 24 && offsetof(NPVariant, value) == 8, "NPVariant layout");
NPAPI_LAYOUT_CHECK(sizeof(NPObject) == 16, "NPObject header is class + count");
NPAPI_LAYOUT_CHECK(sizeof(NPClass) == 104 && offsetof(NPClass, allocate) == 8 &&
                       offsetof(NPClass, construct) == 96,
                   "NPClass has its version and twelve operations");

#undef NPAPI_LAYOUT_CHECK
#endif /* x86_64 */

#endif /* CORVANE_NPFUNCTIONS_H */
