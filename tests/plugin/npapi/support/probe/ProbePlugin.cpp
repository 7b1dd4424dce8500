// A minimal plug-in for testing the fake browser itself: it is loaded
// with dlopen like a real plug-in and uses the browser the way plug-ins
// do (windowless negotiation, the page window, streams, calls from other
// threads through NPN_PluginThreadAsyncCall or GLib idle sources).
// Only the NP_* entry points are exported.

#include <glib.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "npfunctions.h"

namespace {

NPNetscapeFuncs browser;

struct ProbeInstance {
    NPP npp = nullptr;
    std::vector<std::pair<std::string, std::string>> params;
    std::string userAgent;
    std::string streamLog;
    std::string received;
    std::string lastWindow;
    NPObject* script = nullptr;
};

struct ProbeObject {
    NPObject header;
    ProbeInstance* instance;
};

// A page function to call later with one string argument.
struct PendingCall {
    NPP npp;
    NPObject* function;
    std::string text;
};

void* const kNotifyData = reinterpret_cast<void*>(0x5eed);

std::string textOf(const NPVariant& variant) {
    const NPString& text = NPVARIANT_TO_STRING(variant);
    return text.UTF8Characters ? std::string(text.UTF8Characters, text.UTF8Length) : std::string();
}

// Hands a copy of `text` to the browser as a result.
void returnText(const std::string& text, NPVariant* result) {
    auto* bytes = static_cast<NPUTF8*>(browser.memalloc(static_cast<uint32_t>(text.size() + 1)));
    std::memcpy(bytes, text.c_str(), text.size() + 1);
    STRINGN_TO_NPVARIANT(bytes, text.size(), *result);
}

NPObject* pageWindow(NPP npp) {
    NPObject* window = nullptr;
    return browser.getvalue(npp, NPNVWindowNPObject, &window) == NPERR_NO_ERROR ? window : nullptr;
}

void callPageFunction(PendingCall* call) {
    NPVariant argument;
    STRINGN_TO_NPVARIANT(call->text.data(), call->text.size(), argument);
    NPVariant result;
    if (browser.invokeDefault(call->npp, call->function, &argument, 1, &result)) {
        browser.releasevariantvalue(&result);
    }
    browser.releaseobject(call->function);
    delete call;
}

void deliverOnMainThread(void* data) {
    callPageFunction(static_cast<PendingCall*>(data));
}

gboolean deliverFromIdle(gpointer data) {
    callPageFunction(static_cast<PendingCall*>(data));
    return G_SOURCE_REMOVE;
}

PendingCall* pendingCall(NPP npp, const NPVariant* args, uint32_t argCount) {
    if (argCount != 2 || !NPVARIANT_IS_OBJECT(args[0]) || !NPVARIANT_IS_STRING(args[1])) {
        return nullptr;
    }
    NPObject* function = browser.retainobject(NPVARIANT_TO_OBJECT(args[0]));
    return new PendingCall{npp, function, textOf(args[1])};
}

bool probeInvoke(NPObject* object, NPIdentifier name, const NPVariant* args, uint32_t argCount,
                 NPVariant* result) {
    ProbeInstance* instance = reinterpret_cast<ProbeObject*>(object)->instance;
    NPUTF8* utf8 = browser.utf8fromidentifier(name);
    std::string method = utf8 ? utf8 : "";
    browser.memfree(utf8);
    NPP npp = instance->npp;

    if (method == "params") {
        std::string text;
        for (const auto& param : instance->params) {
            text += param.first + "=" + param.second + ";";
        }
        returnText(text, result);
        return true;
    }
    if (method == "userAgent") {
        returnText(instance->userAgent, result);
        return true;
    }
    if (method == "hostname") {
        NPObject* window = pageWindow(npp);
        NPVariant location;
        NPVariant hostname;
        VOID_TO_NPVARIANT(location);
        VOID_TO_NPVARIANT(hostname);
        bool found = window &&
                     browser.getproperty(npp, window, browser.getstringidentifier("location"), &location) &&
                     NPVARIANT_IS_OBJECT(location) &&
                     browser.getproperty(npp, NPVARIANT_TO_OBJECT(location),
                                         browser.getstringidentifier("hostname"), &hostname);
        if (found) {
            returnText(NPVARIANT_IS_STRING(hostname) ? textOf(hostname) : "?", result);
            browser.releasevariantvalue(&hostname);
        }
        if (window && NPVARIANT_IS_OBJECT(location)) {
            browser.releasevariantvalue(&location);
        }
        if (window) {
            browser.releaseobject(window);
        }
        return found;
    }
    if (method == "stringify" && argCount == 1) {
        NPObject* window = pageWindow(npp);
        NPVariant json;
        VOID_TO_NPVARIANT(json);
        bool done = window && browser.getproperty(npp, window, browser.getstringidentifier("JSON"), &json) &&
                    NPVARIANT_IS_OBJECT(json);
        if (done) {
            // The page's answer becomes ours to hand on.
            done = browser.invoke(npp, NPVARIANT_TO_OBJECT(json), browser.getstringidentifier("stringify"),
                                  args, 1, result);
            browser.releasevariantvalue(&json);
        }
        if (window) {
            browser.releaseobject(window);
        }
        return done;
    }
    if (method == "callLater" || method == "callLaterGlib" || method == "callFromThread") {
        PendingCall* call = pendingCall(npp, args, argCount);
        if (!call) {
            return false;
        }
        std::thread worker([method, call] {
            if (method == "callLater") {
                browser.pluginthreadasynccall(call->npp, &deliverOnMainThread, call);
            } else if (method == "callLaterGlib") {
                g_idle_add_full(G_PRIORITY_DEFAULT_IDLE, &deliverFromIdle, call, nullptr);
            } else {
                // The mistake a fake browser must catch: page code called
                // from a worker thread.
                callPageFunction(call);
            }
        });
        worker.join();
        VOID_TO_NPVARIANT(*result);
        return true;
    }
    if (method == "fetch" && argCount == 1 && NPVARIANT_IS_STRING(args[0])) {
        std::string url = textOf(args[0]);
        INT32_TO_NPVARIANT(browser.geturlnotify(npp, url.c_str(), nullptr, kNotifyData), *result);
        return true;
    }
    if (method == "streamLog") {
        returnText(instance->streamLog, result);
        return true;
    }
    if (method == "received") {
        returnText(instance->received, result);
        return true;
    }
    if (method == "lastWindow") {
        returnText(instance->lastWindow, result);
        return true;
    }
    if (method == "invalidate") {
        NPRect rect = {1, 2, 3, 4};
        browser.invalidaterect(npp, &rect);
        VOID_TO_NPVARIANT(*result);
        return true;
    }
    return false;
}

bool probeHasMethod(NPObject*, NPIdentifier) {
    return true;
}

NPObject* probeAllocate(NPP, NPClass*) {
    return reinterpret_cast<NPObject*>(new ProbeObject());
}

void probeDeallocate(NPObject* object) {
    delete reinterpret_cast<ProbeObject*>(object);
}

NPClass probeClass = {NP_CLASS_STRUCT_VERSION,
                      probeAllocate,
                      probeDeallocate,
                      nullptr,
                      probeHasMethod,
                      probeInvoke,
                      nullptr,
                      nullptr,
                      nullptr,
                      nullptr,
                      nullptr,
                      nullptr,
                      nullptr};

ProbeInstance* instanceOf(NPP npp) {
    return npp ? static_cast<ProbeInstance*>(npp->pdata) : nullptr;
}

NPError probeNew(NPMIMEType, NPP npp, uint16_t, int16_t argc, char* argn[], char* argv[], NPSavedData*) {
    auto* instance = new ProbeInstance();
    instance->npp = npp;
    npp->pdata = instance;
    bool fail = false;
    for (int16_t i = 0; i < argc; ++i) {
        if (argn[i] && argv[i]) {
            instance->params.emplace_back(argn[i], argv[i]);
            fail = fail || std::strcmp(argn[i], "fail") == 0;
        }
    }
    const char* userAgent = browser.uagent(npp);
    instance->userAgent = userAgent ? userAgent : "";
    NPBool windowless = false;
    if (browser.getvalue(npp, NPNVSupportsWindowless, &windowless) == NPERR_NO_ERROR && windowless) {
        browser.setvalue(npp, NPPVpluginWindowBool, nullptr);
        browser.setvalue(npp, NPPVpluginTransparentBool, reinterpret_cast<void*>(1));
    }
    return fail ? NPERR_GENERIC_ERROR : NPERR_NO_ERROR;
}

NPError probeDestroy(NPP npp, NPSavedData**) {
    ProbeInstance* instance = instanceOf(npp);
    if (!instance) {
        return NPERR_INVALID_INSTANCE_ERROR;
    }
    if (instance->script) {
        browser.releaseobject(instance->script);
    }
    delete instance;
    npp->pdata = nullptr;
    return NPERR_NO_ERROR;
}

NPError probeSetWindow(NPP npp, NPWindow* window) {
    ProbeInstance* instance = instanceOf(npp);
    if (instance && window) {
        instance->lastWindow = std::to_string(window->width) + "x" + std::to_string(window->height) +
                               " type " + std::to_string(window->type) + (window->ws_info ? " ws_info" : "");
    }
    return NPERR_NO_ERROR;
}

NPError probeNewStream(NPP npp, NPMIMEType type, NPStream* stream, NPBool, uint16_t*) {
    ProbeInstance* instance = instanceOf(npp);
    instance->streamLog += std::string("new:") + stream->url + ":" + type + ";";
    return std::strstr(stream->url, "reject") ? NPERR_GENERIC_ERROR : NPERR_NO_ERROR;
}

int32_t probeWriteReady(NPP, NPStream*) {
    return 0x0FFFFFFF;
}

int32_t probeWrite(NPP npp, NPStream* stream, int32_t offset, int32_t len, void* buffer) {
    ProbeInstance* instance = instanceOf(npp);
    instance->streamLog += "write:" + std::to_string(offset) + ":" + std::to_string(len) + ";";
    if (std::strstr(stream->url, "refuse")) {
        return -1;
    }
    instance->received.append(static_cast<const char*>(buffer), static_cast<size_t>(len));
    return len;
}

NPError probeDestroyStream(NPP npp, NPStream*, NPReason reason) {
    instanceOf(npp)->streamLog += "destroy:" + std::to_string(reason) + ";";
    return NPERR_NO_ERROR;
}

void probeUrlNotify(NPP npp, const char* url, NPReason reason, void* notifyData) {
    instanceOf(npp)->streamLog += std::string("notify:") + url + ":" + std::to_string(reason) +
                                  (notifyData == kNotifyData ? ":data" : ":other") + ";";
}

NPError probeGetValue(NPP npp, NPPVariable variable, void* value) {
    ProbeInstance* instance = instanceOf(npp);
    if (!instance) {
        return NPERR_INVALID_INSTANCE_ERROR;
    }
    if (variable != NPPVpluginScriptableNPObject) {
        return NPERR_GENERIC_ERROR;
    }
    if (!instance->script) {
        instance->script = browser.createobject(npp, &probeClass);
        reinterpret_cast<ProbeObject*>(instance->script)->instance = instance;
    }
    *static_cast<NPObject**>(value) = browser.retainobject(instance->script);
    return NPERR_NO_ERROR;
}

NPError probeSetValue(NPP, NPNVariable, void*) {
    return NPERR_GENERIC_ERROR;
}

NPError fillPluginTable(NPPluginFuncs* table) {
    if (!table) {
        return NPERR_INVALID_FUNCTABLE_ERROR;
    }
    table->version = NPVERS_HAS_CLEAR_SITE_DATA;
    table->newp = probeNew;
    table->destroy = probeDestroy;
    table->setwindow = probeSetWindow;
    table->newstream = probeNewStream;
    table->destroystream = probeDestroyStream;
    table->writeready = probeWriteReady;
    table->write = probeWrite;
    table->urlnotify = probeUrlNotify;
    table->getvalue = probeGetValue;
    table->setvalue = probeSetValue;
    return NPERR_NO_ERROR;
}

}  // namespace

extern "C" {

const char* NP_GetMIMEDescription(void) {
    return "application/x-corvane-probe::Probe";
}

NPError NP_GetValue(void*, NPPVariable variable, void* value) {
    if (variable == NPPVpluginNameString) {
        *static_cast<const char**>(value) = "Probe";
        return NPERR_NO_ERROR;
    }
    if (variable == NPPVpluginDescriptionString) {
        *static_cast<const char**>(value) = "Probe plug-in for the fake browser";
        return NPERR_NO_ERROR;
    }
    return NPERR_GENERIC_ERROR;
}

NPError NP_Initialize(NPNetscapeFuncs* browserFuncs, NPPluginFuncs* pluginFuncs) {
    if (!browserFuncs) {
        return NPERR_INVALID_FUNCTABLE_ERROR;
    }
    // Never read past the browser's own table.
    std::memset(&browser, 0, sizeof browser);
    std::memcpy(&browser, browserFuncs, std::min<size_t>(browserFuncs->size, sizeof browser));
    return fillPluginTable(pluginFuncs);
}

NPError NP_GetEntryPoints(NPPluginFuncs* pluginFuncs) {
    return fillPluginTable(pluginFuncs);
}

NPError NP_Shutdown(void) {
    return NPERR_NO_ERROR;
}

}  // extern "C"
