#include "ScriptObject.h"

#include <stdlib.h>
#include <string.h>
#include <sys/time.h>

#include <exception>
#include <mutex>
#include <new>
#include <vector>

#include "BrowserFuncs.h"
#include "Json.h"
#include "PageApi.h"
#include "VariantHelpers.h"
#include "cvCorvaneWebPlugin.h"
#include "cv_log.h"
#include "cv_time.h"

using Kestrix::Web::cvCorvaneWebPlugin;

const char* const CWScriptObjectPropertyName = "name";
const char* const CWScriptObjectPropertyDropObserver = "dropObserver";
const char* const CWScriptObjectPropertyEventHandler = "eventHandler";

namespace {

// Class records and script objects are never freed: a browser may still
// hold an object after its instance has gone, and Deallocate is
// deliberately empty. They are kept in this process-wide list so that they
// stay reachable (leak checkers then see memory that lives until the
// process ends, not memory that was lost). The list itself is never
// destroyed, so it still holds them when the checks run at exit.
std::mutex& lifetimeBlocksMutex() {
    static std::mutex* mutex = new std::mutex();
    return *mutex;
}

void keepForProcessLifetime(void* block) {
    static std::vector<void*>* blocks = new std::vector<void*>();
    std::lock_guard<std::mutex> lock(lifetimeBlocksMutex());
    blocks->push_back(block);
}

using ScriptMethod = bool (cvCorvaneWebPlugin::*)(const NPVariant*, uint32_t, NPVariant*);

struct MethodEntry {
    const char* name;
    ScriptMethod method;
};

// Matched in this order, first match wins.
constexpr MethodEntry kMethods[] = {
    {"addToDownloadList", &cvCorvaneWebPlugin::addToDownloadList},
    {"addToUploadList", &cvCorvaneWebPlugin::addToUploadList},
    {"clearDownloadList", &cvCorvaneWebPlugin::clearDownloadList},
    {"clearUploadList", &cvCorvaneWebPlugin::clearUploadList},
    {"kestrixHttpRequest", &cvCorvaneWebPlugin::kestrixHttpRequest},
    {"kestrixHttpRequestAsync", &cvCorvaneWebPlugin::kestrixHttpRequestAsync},
    {"displayAboutWindow", &cvCorvaneWebPlugin::displayAboutWindow},
    {"displayPreferencesWindow", &cvCorvaneWebPlugin::displayPreferencesWindow},
    {"displayTransferManager", &cvCorvaneWebPlugin::displayTransferManager},
    {"handleDrop", &cvCorvaneWebPlugin::handleDrop},
    {"initSession", &cvCorvaneWebPlugin::initSession},
    {"queryBrowserEngine", &cvCorvaneWebPlugin::queryBrowserEngine},
    {"queryBuildVersion", &cvCorvaneWebPlugin::queryBuildVersion},
    {"queryPluginVersion", &cvCorvaneWebPlugin::queryPluginVersion},
    {"queryVersion", &cvCorvaneWebPlugin::queryVersion},
    {"queryKestrixVersion", &cvCorvaneWebPlugin::queryKestrixVersion},
    {"runOpenFileDialog", &cvCorvaneWebPlugin::runOpenFileDialog},
    {"runOpenFileDialogAsync", &cvCorvaneWebPlugin::runOpenFileDialogAsync},
    {"runOpenFolderDialog", &cvCorvaneWebPlugin::runOpenFolderDialog},
    {"runOpenFolderDialogAsync", &cvCorvaneWebPlugin::runOpenFolderDialogAsync},
    {"runSaveFileDialog", &cvCorvaneWebPlugin::runSaveFileDialog},
    {"runSaveFileDialogAsync", &cvCorvaneWebPlugin::runSaveFileDialogAsync},
    {"startDownload", &cvCorvaneWebPlugin::startDownload},
    {"startDownloadToPath", &cvCorvaneWebPlugin::startDownloadToPath},
    {"startUploadToURL", &cvCorvaneWebPlugin::startUploadToURL},
    {"startListDownloadToPath", &cvCorvaneWebPlugin::startListDownloadToPath},
    {"readAsArrayBuffer", &cvCorvaneWebPlugin::readAsArrayBuffer},
    {"readChunkAsArrayBuffer", &cvCorvaneWebPlugin::readChunkAsArrayBuffer},
    {"startListUploadToURL", &cvCorvaneWebPlugin::startListUploadToURL},
};
static_assert(Kestrix::Web::namesPageMethods(kMethods), "the script object's methods are the page API's");

const MethodEntry* findMethod(const char* name) {
    if (!name) return nullptr;
    for (const MethodEntry& entry : kMethods) {
        if (strcmp(name, entry.name) == 0) return &entry;
    }
    return nullptr;
}

enum Property_e { kPropertyNone, kPropertyName, kPropertyDropObserver, kPropertyEventHandler };

Property_e findProperty(const char* name) {
    if (!name) return kPropertyNone;
    if (strcmp(name, CWScriptObjectPropertyName) == 0) return kPropertyName;
    if (strcmp(name, CWScriptObjectPropertyDropObserver) == 0) return kPropertyDropObserver;
    if (strcmp(name, CWScriptObjectPropertyEventHandler) == 0) return kPropertyEventHandler;
    return kPropertyNone;
}

// The identifier's name as a C string, or null when it is not a string;
// freed with NPN_MemFree.
class IdentifierName {
public:
    explicit IdentifierName(NPIdentifier identifier)
        : _text(NPN_IdentifierIsString(identifier) ? NPN_UTF8FromIdentifier(identifier) : nullptr) {}
    ~IdentifierName() {
        if (_text) NPN_MemFree(_text);
    }
    IdentifierName(const IdentifierName&) = delete;
    IdentifierName& operator=(const IdentifierName&) = delete;
    const char* get() const { return _text; }

private:
    NPUTF8* _text;
};

cvCorvaneWebPlugin* pluginOf(NPObject* obj) {
    return obj ? reinterpret_cast<CWScriptObject*>(obj)->plugin : nullptr;
}

}  // namespace

NPClass* CWCreateScriptObjectClass() {
    NPClass* npClass = static_cast<NPClass*>(malloc(sizeof(NPClass)));
    if (!npClass) return nullptr;
    keepForProcessLifetime(npClass);
    npClass->structVersion = NP_CLASS_STRUCT_VERSION;
    npClass->allocate = CWScriptObjectAllocate;
    npClass->deallocate = CWScriptObjectDeallocate;
    npClass->invalidate = CWScriptObjectInvalidate;
    npClass->hasMethod = CWScriptObjectHasMethod;
    npClass->invoke = CWScriptObjectInvoke;
    npClass->invokeDefault = CWScriptObjectInvokeDefault;
    npClass->hasProperty = CWScriptObjectHasProperty;
    npClass->getProperty = CWScriptObjectGetProperty;
    npClass->setProperty = CWScriptObjectSetProperty;
    npClass->removeProperty = CWScriptObjectRemoveProperty;
    npClass->enumerate = nullptr;
    npClass->construct = nullptr;
    return npClass;
}

NPObject* CWScriptObjectAllocate(NPP, NPClass*) {
    // The browser fills in the header; the owner sets the back-pointer.
    CWScriptObject* object = static_cast<CWScriptObject*>(malloc(sizeof(CWScriptObject)));
    if (!object) return nullptr;
    keepForProcessLifetime(object);
    object->plugin = nullptr;
    return &object->header;
}

// Deliberately empty: the block is never freed (see keepForProcessLifetime).
void CWScriptObjectDeallocate(NPObject*) {}

// Deliberately empty as well.
void CWScriptObjectInvalidate(NPObject*) {}

bool CWScriptObjectHasMethod(NPObject*, NPIdentifier name) {
    IdentifierName text(name);
    return findMethod(text.get()) != nullptr;
}

bool CW_RunScriptMethod(const std::function<bool()>& call, NPVariant* result) {
    try {
        return call();
    } catch (const std::exception& e) {
        std::string document = Kestrix::Web::Json::createErrorAndLog(e);
        CW_CharPtrToNPStringVariant(document.c_str(), result);
        return true;
    }
}

bool CWScriptObjectInvoke(NPObject* obj, NPIdentifier name, const NPVariant* args, uint32_t argCount,
                          NPVariant* result) {
    cvCorvaneWebPlugin* plugin = pluginOf(obj);
    if (!plugin) return false;
    IdentifierName text(name);
    if (!text.get()) return false;

    struct timeval start;
    int rc = cv_time_gettimeofday(&start, nullptr);
    bool timing = rc == 0;
    if (!timing) cv_err("cv_time_gettimeofday error: %i", rc);

    bool answer = false;
    const MethodEntry* entry = findMethod(text.get());
    if (entry) {
        ScriptMethod method = entry->method;
        answer = CW_RunScriptMethod([&] { return (plugin->*method)(args, argCount, result); }, result);
    }

    if (timing) {
        unsigned long long usec = 0;
        rc = cv_time_get_usec_since(&start, &usec);
        if (rc != 0) {
            cv_err("cv_time_gettimeofday error: %i", rc);
        } else if (cv_dbg_get_all() >= 2) {
            // The micro sign is one Latin-1 byte, as the log has always had it.
            cv_dbg("CWScriptObjectInvoke - %s took %lu \xB5s", text.get(), static_cast<unsigned long>(usec));
        }
    }
    return answer;
}

bool CWScriptObjectInvokeDefault(NPObject*, const NPVariant*, uint32_t, NPVariant*) {
    return false;
}

bool CWScriptObjectHasProperty(NPObject*, NPIdentifier name) {
    IdentifierName text(name);
    return findProperty(text.get()) != kPropertyNone;
}

bool CWScriptObjectGetProperty(NPObject* obj, NPIdentifier name, NPVariant* result) {
    cvCorvaneWebPlugin* plugin = pluginOf(obj);
    if (!plugin) return false;
    IdentifierName text(name);
    switch (findProperty(text.get())) {
        case kPropertyName:
            return plugin->getName(result);
        case kPropertyDropObserver:
            return plugin->getDropObserver(result);
        case kPropertyEventHandler:
            return plugin->getEventHandler(result);
        case kPropertyNone:
            break;
    }
    return false;
}

bool CWScriptObjectSetProperty(NPObject* obj, NPIdentifier name, const NPVariant* value) {
    cvCorvaneWebPlugin* plugin = pluginOf(obj);
    if (!plugin || !value) return false;
    IdentifierName text(name);
    switch (findProperty(text.get())) {
        case kPropertyName:
            return plugin->setName(value);
        case kPropertyDropObserver:
            return plugin->setDropObserver(value);
        case kPropertyEventHandler:
            return plugin->setEventHandler(value);
        case kPropertyNone:
            break;
    }
    return false;
}

bool CWScriptObjectRemoveProperty(NPObject*, NPIdentifier) {
    return false;
}
