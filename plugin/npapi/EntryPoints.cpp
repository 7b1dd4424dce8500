#include "EntryPoints.h"

#include <stdint.h>
#include <stdlib.h>

#include <exception>
#include <map>

#include "BrowserFuncs.h"
#include "RunnableScheduler.h"
#include "Utils.h"
#include "VariantHelpers.h"
#include "cvCorvaneWebPlugin.h"
#include "cv_log.h"
#include "cv_time.h"

using Kestrix::Web::cvCorvaneWebPlugin;

namespace {

const uint16_t kPluginTableVersion = 27;
const int32_t kWriteReadyBytes = 0x0FFFFFFF;

// Entry points name themselves in the log when bulky traces are on.
void traceEntry(const char* name) {
    if (cv_dbg_get_all() >= 2) cv_dbg("%s", name);
}

cvCorvaneWebPlugin* pluginOf(NPP npp) {
    return npp ? static_cast<cvCorvaneWebPlugin*>(npp->pdata) : nullptr;
}

}  // namespace

// ---- Library start and end, shared by the platforms' NP_* exports ----

void CW_Initialize(NPNetscapeFuncs* browserFuncs) {
    cv_time_init();
    try {
        Kestrix::Web::Utils::logInit();
    } catch (...) {
        // A plug-in without a log still works.
    }
    cv_log("\n\nInitializing Corvane Web Gecko plugin\n");
    cv_dbg("CW_PopulateNetscapeFunctionTable()");
    CW_PopulateNetscapeFunctionTable(browserFuncs);
    Kestrix::Web::RunnableScheduler::init();
}

void CW_Shutdown() {
    cv_log("Shutting down Corvane Web Gecko plugin");
    Kestrix::Web::RunnableScheduler::cleanup();
    Kestrix::Web::Utils::logCleanup();
}

NPError CW_PopulatePluginFunctionTable(NPPluginFuncs* pluginFuncs) {
    if (!pluginFuncs) {
        cv_err("CW_PopulatePluginFunctionTable() - Null argument");
        return NPERR_INVALID_FUNCTABLE_ERROR;
    }
    // Only a warning: QtWebKit's table (160 bytes) lacks the last member,
    // which is never written here.
    if (pluginFuncs->size < sizeof(NPPluginFuncs)) {
        cv_err("CW_PopulatePluginFunctionTable() - Bad NPPluginFuncs size=%d (expected=%d)",
               static_cast<int>(pluginFuncs->size), static_cast<int>(sizeof(NPPluginFuncs)));
    }
    pluginFuncs->version = kPluginTableVersion;
    pluginFuncs->newp = NPP_New;
    pluginFuncs->destroy = NPP_Destroy;
    pluginFuncs->setwindow = NPP_SetWindow;
    pluginFuncs->newstream = NPP_NewStream;
    pluginFuncs->destroystream = NPP_DestroyStream;
    pluginFuncs->asfile = NPP_StreamAsFile;
    pluginFuncs->writeready = NPP_WriteReady;
    pluginFuncs->write = NPP_Write;
    pluginFuncs->print = NPP_Print;
    pluginFuncs->event = NPP_HandleEvent;
    pluginFuncs->urlnotify = NPP_URLNotify;
    pluginFuncs->javaClass = nullptr;
    pluginFuncs->getvalue = NPP_GetValue;
    pluginFuncs->setvalue = NPP_SetValue;
    return NPERR_NO_ERROR;
}

// ---- Helpers ----

NPError CW_WindowlessSupportedCheck(NPP npp) {
    NPBool supported = false;
    NPError error = NPN_GetValue(npp, NPNVSupportsWindowless, &supported);
    if (error != NPERR_NO_ERROR || !supported) {
        cv_err("Windowless mode not supported (%d)", error);
        return error;
    }
    // Booleans travel in the pointer itself.
    error = NPN_SetValue(npp, NPPVpluginWindowBool, reinterpret_cast<void*>(static_cast<intptr_t>(false)));
    if (error != NPERR_NO_ERROR) {
        cv_err("Error setting windowless mode (%d)", error);
        return error;
    }
    cvCorvaneWebPlugin* plugin = pluginOf(npp);
    bool transparent = plugin && plugin->transparent();
    error = NPN_SetValue(npp, NPPVpluginTransparentBool,
                         reinterpret_cast<void*>(static_cast<intptr_t>(transparent)));
    if (error != NPERR_NO_ERROR) {
        cv_err("Error setting transparent mode (%d)", error);
        return error;
    }
    return NPERR_NO_ERROR;
}

std::string CW_GetPageHostname(NPP npp) {
    std::string hostname;
    NPObject* window = nullptr;
    if (NPN_GetValue(npp, NPNVWindowNPObject, &window) == NPERR_NO_ERROR && window) {
        NPVariant location;
        VOID_TO_NPVARIANT(location);
        if (NPN_GetProperty(npp, window, NPN_GetStringIdentifier("location"), &location) &&
            NPVARIANT_IS_OBJECT(location)) {
            NPVariant host;
            VOID_TO_NPVARIANT(host);
            if (NPN_GetProperty(npp, NPVARIANT_TO_OBJECT(location), NPN_GetStringIdentifier("hostname"),
                                &host) &&
                NPVARIANT_IS_STRING(host)) {
                hostname = CW_NPStringToString(NPVARIANT_TO_STRING(host));
            }
            NPN_ReleaseVariantValue(&host);
        }
        NPN_ReleaseVariantValue(&location);
        NPN_ReleaseObject(window);
    }
    // file:// pages have no host name.
    if (hostname.empty()) hostname = "localhost";
    cv_log("Hostname: %s", hostname.c_str());
    return hostname;
}

// ---- Instance entry points ----

NPError NPP_New(NPMIMEType, NPP npp, uint16_t, int16_t argc, char* argn[], char* argv[], NPSavedData*) {
    cv_dbg("NPP_New() [%p]", static_cast<void*>(npp));
    if (!npp) return NPERR_INVALID_INSTANCE_ERROR;
    cv_dbg("Plugin parameters:");
    cvCorvaneWebPlugin::Parameters parameters;
    for (int16_t i = 0; argn && argv && i < argc; ++i) {
        if (!argn[i] || !argv[i]) continue;
        cv_dbg("  %s = %s", argn[i], argv[i]);
        parameters[argn[i]] = argv[i];
    }

    cvCorvaneWebPlugin* plugin = nullptr;
    try {
        plugin = new cvCorvaneWebPlugin(npp, parameters);
    } catch (const std::exception& e) {
        cv_err("%s", e.what());
        return NPERR_GENERIC_ERROR;
    } catch (...) {
        // Nothing may unwind into the browser.
        cv_err("NPP_New() - unknown exception");
        return NPERR_GENERIC_ERROR;
    }
    npp->pdata = plugin;

    // On refusal the instance stays: the browser destroys it.
    NPError error = CW_PlatformModelCheck(npp);
    if (error != NPERR_NO_ERROR) return error;
    cv_dbg("NPP_New() - done");
    return NPERR_NO_ERROR;
}

NPError NPP_Destroy(NPP npp, NPSavedData**) {
    traceEntry("NPP_Destroy()");
    if (!npp) {
        cv_err("NPP_Destroy() - Null instance");
        return NPERR_INVALID_INSTANCE_ERROR;
    }
    delete pluginOf(npp);
    npp->pdata = nullptr;
    cv_dbg("NPP_Destroy() - done");
    return NPERR_NO_ERROR;
}

NPError NPP_SetWindow(NPP npp, NPWindow* window) {
    traceEntry("NPP_SetWindow()");
    cvCorvaneWebPlugin* plugin = pluginOf(npp);
    if (!plugin) return NPERR_INVALID_INSTANCE_ERROR;
    plugin->setWindow(window, npp);
    return NPERR_NO_ERROR;
}

NPError NPP_NewStream(NPP npp, NPMIMEType type, NPStream* stream, NPBool seekable, uint16_t* stype) {
    traceEntry("NPP_NewStream()");
    cvCorvaneWebPlugin* plugin = pluginOf(npp);
    if (!plugin) return NPERR_INVALID_INSTANCE_ERROR;
    plugin->createStream(type, stream, seekable, stype);
    return NPERR_NO_ERROR;
}

int32_t NPP_WriteReady(NPP, NPStream*) {
    traceEntry("NPP_WriteReady()");
    return kWriteReadyBytes;
}

int32_t NPP_Write(NPP npp, NPStream* stream, int32_t offset, int32_t len, void* buffer) {
    traceEntry("NPP_Write()");
    if (!npp) return NPERR_INVALID_INSTANCE_ERROR;
    cvCorvaneWebPlugin* plugin = pluginOf(npp);
    if (!plugin) return -1;
    return plugin->receiveOnStream(stream, offset, len, buffer);
}

NPError NPP_DestroyStream(NPP npp, NPStream* stream, NPReason reason) {
    traceEntry("NPP_DestroyStream()");
    cvCorvaneWebPlugin* plugin = pluginOf(npp);
    if (!plugin) return NPERR_INVALID_INSTANCE_ERROR;
    plugin->destroyStream(stream, reason);
    return NPERR_NO_ERROR;
}

void NPP_StreamAsFile(NPP npp, NPStream* stream, const char* fname) {
    traceEntry("NPP_StreamAsFile()");
    cvCorvaneWebPlugin* plugin = pluginOf(npp);
    if (plugin) plugin->streamAsFile(stream, fname);
}

void NPP_Print(NPP, NPPrint*) {
    traceEntry("NPP_Print()");
}

int16_t NPP_HandleEvent(NPP npp, void* event) {
    traceEntry("NPP_HandleEvent()");
    if (!npp) return NPERR_INVALID_INSTANCE_ERROR;
    cvCorvaneWebPlugin* plugin = pluginOf(npp);
    if (!event || !plugin) return kNPEventNotHandled;
    return plugin->handleEvent(event);
}

void NPP_URLNotify(NPP, const char*, NPReason, void*) {
    traceEntry("NPP_URLNotify()");
}

NPError NPP_GetValue(NPP npp, NPPVariable variable, void* value) {
    traceEntry("NPP_GetValue()");
    cvCorvaneWebPlugin* plugin = pluginOf(npp);
    if (!plugin) return NPERR_INVALID_INSTANCE_ERROR;
    if (variable == NPPVpluginScriptableNPObject) {
        if (!value) return NPERR_INVALID_PARAM;
        // The browser gets a reference of its own.
        NPObject* object = plugin->objectForWebScript();
        if (object) NPN_RetainObject(object);
        *static_cast<NPObject**>(value) = object;
    }
    return NPERR_NO_ERROR;
}

NPError NPP_SetValue(NPP, NPNVariable, void*) {
    traceEntry("NPP_SetValue()");
    return NPERR_NO_ERROR;
}
