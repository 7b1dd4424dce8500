// The functions the browser calls: the library's NP_* exports (declared in
// npfunctions.h) and the per-instance NPP_* functions that NP_Initialize
// puts into the browser's plug-in table, plus the helpers around them.
//
// Only the NP_* functions leave the library; everything here has hidden
// visibility and is declared for the other sources and for tests.
#pragma once

#include <string>

#include "npfunctions.h"

// The MIME description in the platform's form (on Unix
// "type:extensions:description").
extern const char* const CW_MimeDescription;

// What NP_Initialize and NP_Shutdown do on every platform: the log, the
// browser's table and the runnable scheduler.
void CW_Initialize(NPNetscapeFuncs* browserFuncs);
void CW_Shutdown();
NPError CW_PopulatePluginFunctionTable(NPPluginFuncs* pluginFuncs);
// Windowless drawing, and transparency as the element asked: 0 when the
// browser agreed, else the browser's error.
NPError CW_WindowlessSupportedCheck(NPP npp);
// The CoreGraphics drawing model and the Cocoa event model, in that order:
// 0 when the browser agreed (or answered a plain no), else its error.
NPError CW_CocoaEventsSupportedCheck(NPP npp);
// The platform's drawing and event models, negotiated by NPP_New once the
// instance exists: windowless on Unix, Cocoa on macOS.
NPError CW_PlatformModelCheck(NPP npp);
// window.location.hostname of the page, "localhost" when it is empty.
std::string CW_GetPageHostname(NPP npp);

NPError NPP_New(NPMIMEType pluginType, NPP npp, uint16_t mode, int16_t argc, char* argn[], char* argv[],
                NPSavedData* saved);
NPError NPP_Destroy(NPP npp, NPSavedData** save);
NPError NPP_SetWindow(NPP npp, NPWindow* window);
NPError NPP_NewStream(NPP npp, NPMIMEType type, NPStream* stream, NPBool seekable, uint16_t* stype);
int32_t NPP_WriteReady(NPP npp, NPStream* stream);
int32_t NPP_Write(NPP npp, NPStream* stream, int32_t offset, int32_t len, void* buffer);
NPError NPP_DestroyStream(NPP npp, NPStream* stream, NPReason reason);
void NPP_StreamAsFile(NPP npp, NPStream* stream, const char* fname);
void NPP_Print(NPP npp, NPPrint* platformPrint);
int16_t NPP_HandleEvent(NPP npp, void* event);
void NPP_URLNotify(NPP npp, const char* url, NPReason reason, void* notifyData);
NPError NPP_GetValue(NPP npp, NPPVariable variable, void* value);
NPError NPP_SetValue(NPP npp, NPNVariable variable, void* value);
