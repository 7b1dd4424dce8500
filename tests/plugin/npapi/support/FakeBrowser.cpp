#include "FakeBrowser.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "FakeRuntime.h"

namespace CorvaneTest {

namespace {

std::atomic<FakeBrowser*> currentBrowser{nullptr};

// Every member of NPNetscapeFuncs after size and version, in order.
// clang-format off
#define CORVANE_NPN_ENTRIES(X) \
    X(geturl) X(posturl) X(requestread) X(newstream) X(write) X(destroystream) X(status) X(uagent) \
    X(memalloc) X(memfree) X(memflush) X(reloadplugins) X(getJavaEnv) X(getJavaPeer) X(geturlnotify) \
    X(posturlnotify) X(getvalue) X(setvalue) X(invalidaterect) X(invalidateregion) X(forceredraw) \
    X(getstringidentifier) X(getstringidentifiers) X(getintidentifier) X(identifierisstring) \
    X(utf8fromidentifier) X(intfromidentifier) X(createobject) X(retainobject) X(releaseobject) \
    X(invoke) X(invokeDefault) X(evaluate) X(getproperty) X(setproperty) X(removeproperty) \
    X(hasproperty) X(hasmethod) X(releasevariantvalue) X(setexception) X(pushpopupsenabledstate) \
    X(poppopupsenabledstate) X(enumerate) X(pluginthreadasynccall) X(construct) X(getvalueforurl) \
    X(setvalueforurl) X(getauthenticationinfo) X(scheduletimer) X(unscheduletimer) \
    X(popupcontextmenu) X(convertpoint) X(handleevent) X(unfocusinstance) X(urlredirectresponse) \
    X(initasyncsurface) X(finalizeasyncsurface) X(setcurrentasyncsurface)
// clang-format on

struct EntryInfo {
    const char* name;
    size_t offset;
};

#define CORVANE_ENTRY_INFO(name) {#name, offsetof(NPNetscapeFuncs, name)},
constexpr EntryInfo kEntries[] = {CORVANE_NPN_ENTRIES(CORVANE_ENTRY_INFO)};
#undef CORVANE_ENTRY_INFO

constexpr size_t kEntryCount = sizeof kEntries / sizeof kEntries[0];

// The list must be the whole table, in member order, without gaps.
constexpr bool entriesCoverTheTable() {
    for (size_t i = 0; i < kEntryCount; ++i) {
        if (kEntries[i].offset != offsetof(NPNetscapeFuncs, geturl) + i * sizeof(void*)) {
            return false;
        }
    }
    return kEntries[kEntryCount - 1].offset + sizeof(void*) == sizeof(NPNetscapeFuncs);
}
static_assert(entriesCoverTheTable(), "the entry list matches NPNetscapeFuncs member for member");

std::string pointerNumber(const void* pointer) {
    return std::to_string(reinterpret_cast<intptr_t>(pointer));
}

}  // namespace

// ---- The browser functions handed to the plug-in ----

struct FakeBrowser::Entries {
    // The current browser after counting (and logging) the call; null,
    // after reporting it, when there is none.
    static FakeBrowser* browser(const char* entry, const std::string& detail = std::string(),
                                bool logged = true) {
        FakeBrowser* current = currentBrowser.load();
        if (!current) {
            FakeRuntime::reportMisuse(std::string(entry) + " called when no browser exists");
            return nullptr;
        }
        current->noteCall(entry, detail, logged);
        return current;
    }

    // Runtime services work without a browser (their state is
    // process-wide); a browser only counts them.
    static void runtime(const char* entry) {
        if (FakeBrowser* current = currentBrowser.load()) {
            current->noteCall(entry, std::string(), false);
        }
    }

    static NPError request(UrlRequest request, const char* entry) {
        FakeBrowser* b = browser(entry, request.url);
        if (!b) {
            return NPERR_GENERIC_ERROR;
        }
        if (!b->instanceFor(request.npp)) {
            FakeRuntime::reportMisuse(std::string(entry) + " with an unknown instance");
            return NPERR_INVALID_INSTANCE_ERROR;
        }
        b->recordUrlRequest(std::move(request));
        std::lock_guard<std::mutex> lock(b->_mutex);
        return b->_urlRequestAnswer;
    }

    static NPError geturl(NPP npp, const char* url, const char* target) {
        return request(UrlRequest{npp, "GET", url ? url : "", target != nullptr, target ? target : "",
                                  nullptr, false, ""},
                       "geturl");
    }
    static NPError posturl(NPP npp, const char* url, const char* target, uint32_t len, const char* buf,
                           NPBool file) {
        std::string body = buf && !file ? std::string(buf, len) : std::string(buf ? buf : "");
        return request(UrlRequest{npp, "POST", url ? url : "", target != nullptr, target ? target : "",
                                  nullptr, false, body},
                       "posturl");
    }
    static NPError requestread(NPStream*, NPByteRange*) {
        browser("requestread");
        return NPERR_STREAM_NOT_SEEKABLE;
    }
    static NPError newstream(NPP, NPMIMEType, const char*, NPStream**) {
        browser("newstream");
        return NPERR_GENERIC_ERROR;
    }
    static int32_t write(NPP, NPStream*, int32_t, void*) {
        browser("write");
        return -1;
    }
    static NPError destroystream(NPP, NPStream*, NPReason) {
        browser("destroystream");
        return NPERR_GENERIC_ERROR;
    }
    static void status(NPP, const char* message) { browser("status", message ? message : ""); }
    static const char* uagent(NPP) {
        FakeBrowser* b = browser("uagent");
        return b ? b->_userAgent.c_str() : nullptr;
    }
    static void* memalloc(uint32_t size) {
        runtime("memalloc");
        return FakeRuntime::memAlloc(size);
    }
    static void memfree(void* pointer) {
        runtime("memfree");
        FakeRuntime::memFree(pointer);
    }
    static uint32_t memflush(uint32_t) {
        runtime("memflush");
        return 0;
    }
    static void reloadplugins(NPBool) { browser("reloadplugins"); }
    static void* getJavaEnv() {
        browser("getJavaEnv");
        return nullptr;
    }
    static void* getJavaPeer(NPP) {
        browser("getJavaPeer");
        return nullptr;
    }
    static NPError geturlnotify(NPP npp, const char* url, const char* target, void* notifyData) {
        return request(UrlRequest{npp, "GET", url ? url : "", target != nullptr, target ? target : "",
                                  notifyData, true, ""},
                       "geturlnotify");
    }
    static NPError posturlnotify(NPP npp, const char* url, const char* target, uint32_t len, const char* buf,
                                 NPBool file, void* notifyData) {
        std::string body = buf && !file ? std::string(buf, len) : std::string(buf ? buf : "");
        return request(UrlRequest{npp, "POST", url ? url : "", target != nullptr, target ? target : "",
                                  notifyData, true, body},
                       "posturlnotify");
    }

    static NPError getvalue(NPP npp, NPNVariable variable, void* value) {
        FakeBrowser* b = browser("getvalue", std::to_string(static_cast<int>(variable)));
        if (!b) {
            return NPERR_GENERIC_ERROR;
        }
        if (!value) {
            return NPERR_INVALID_PARAM;
        }
        if (npp && !b->instanceFor(npp)) {
            FakeRuntime::reportMisuse("getvalue with an unknown instance");
            return NPERR_INVALID_INSTANCE_ERROR;
        }
        {
            std::lock_guard<std::mutex> lock(b->_mutex);
            auto answer = b->_getValueAnswers.find(static_cast<int>(variable));
            if (answer != b->_getValueAnswers.end()) {
                if (answer->second.error != NPERR_NO_ERROR) {
                    return answer->second.error;
                }
                *static_cast<NPBool*>(value) = answer->second.value;
                return NPERR_NO_ERROR;
            }
        }
        switch (variable) {
            case NPNVxDisplay:
                *static_cast<void**>(value) = b->_xDisplay;
                return NPERR_NO_ERROR;
            case NPNVnetscapeWindow:
                *static_cast<unsigned long*>(value) = b->_netscapeWindow;
                return NPERR_NO_ERROR;
            case NPNVjavascriptEnabledBool:
            case NPNVSupportsXEmbedBool:
                *static_cast<NPBool*>(value) = true;
                return NPERR_NO_ERROR;
            case NPNVasdEnabledBool:
            case NPNVisOfflineBool:
            case NPNVprivateModeBool:
                *static_cast<NPBool*>(value) = false;
                return NPERR_NO_ERROR;
            case NPNVToolkit:
                *static_cast<NPNToolkitType*>(value) = NPNVGtk2;
                return NPERR_NO_ERROR;
            case NPNVWindowNPObject:
                // The caller gets a reference of its own, as from the hosts.
                *static_cast<NPObject**>(value) = FakeRuntime::retainObject(b->_window);
                return NPERR_NO_ERROR;
            case NPNVPluginElementNPObject: {
                Instance* instance = b->instanceFor(npp);
                if (!instance) {
                    return NPERR_INVALID_INSTANCE_ERROR;
                }
                if (!instance->element) {
                    instance->element = FakeObject::create();
                }
                *static_cast<NPObject**>(value) = FakeRuntime::retainObject(instance->element);
                return NPERR_NO_ERROR;
            }
            default:
                // Among others: the macOS models (2001, 3001) and
                // NPNVdocumentOrigin, which the Linux host refuses.
                return NPERR_GENERIC_ERROR;
        }
    }

    static NPError setvalue(NPP npp, NPPVariable variable, void* value) {
        FakeBrowser* b =
            browser("setvalue", std::to_string(static_cast<int>(variable)) + "," + pointerNumber(value));
        if (!b) {
            return NPERR_GENERIC_ERROR;
        }
        Instance* instance = b->instanceFor(npp);
        if (!instance) {
            FakeRuntime::reportMisuse("setvalue with an unknown instance");
            return NPERR_INVALID_INSTANCE_ERROR;
        }
        std::lock_guard<std::mutex> lock(b->_mutex);
        auto failure = b->_setValueFailures.find(static_cast<int>(variable));
        NPError answer = failure == b->_setValueFailures.end() ? NPERR_NO_ERROR : failure->second;
        b->_setValueCalls.push_back(SetValueCall{npp, variable, value, answer});
        if (answer == NPERR_NO_ERROR) {
            // Booleans travel in the pointer itself.
            if (variable == NPPVpluginWindowBool) {
                instance->windowBool = value != nullptr;
            } else if (variable == NPPVpluginTransparentBool) {
                instance->transparentBool = value != nullptr;
            }
        }
        return answer;
    }

    static void invalidaterect(NPP, NPRect* rect) {
        FakeBrowser* b = browser("invalidaterect");
        if (!b) {
            return;
        }
        std::lock_guard<std::mutex> lock(b->_mutex);
        ++b->_invalidateCount;
        if (rect) {
            b->_lastInvalidRect = *rect;
        }
    }
    static void invalidateregion(NPP, NPRegion) { browser("invalidateregion"); }
    static void forceredraw(NPP) { browser("forceredraw"); }
    static NPIdentifier getstringidentifier(const NPUTF8* name) {
        runtime("getstringidentifier");
        return FakeRuntime::stringIdentifier(name);
    }
    static void getstringidentifiers(const NPUTF8** names, int32_t count, NPIdentifier* identifiers) {
        runtime("getstringidentifiers");
        FakeRuntime::stringIdentifiers(names, count, identifiers);
    }
    static NPIdentifier getintidentifier(int32_t value) {
        runtime("getintidentifier");
        return FakeRuntime::intIdentifier(value);
    }
    static bool identifierisstring(NPIdentifier identifier) {
        runtime("identifierisstring");
        return FakeRuntime::identifierIsString(identifier);
    }
    static NPUTF8* utf8fromidentifier(NPIdentifier identifier) {
        runtime("utf8fromidentifier");
        return FakeRuntime::utf8FromIdentifier(identifier);
    }
    static int32_t intfromidentifier(NPIdentifier identifier) {
        runtime("intfromidentifier");
        return FakeRuntime::intFromIdentifier(identifier);
    }
    static NPObject* createobject(NPP npp, NPClass* npClass) {
        runtime("createobject");
        return FakeRuntime::createObject(npp, npClass);
    }
    static NPObject* retainobject(NPObject* object) {
        runtime("retainobject");
        return FakeRuntime::retainObject(object);
    }
    static void releaseobject(NPObject* object) {
        runtime("releaseobject");
        FakeRuntime::releaseObject(object);
    }
    static bool invoke(NPP npp, NPObject* object, NPIdentifier name, const NPVariant* args, uint32_t argCount,
                       NPVariant* result) {
        runtime("invoke");
        return FakeRuntime::invoke(npp, object, name, args, argCount, result);
    }
    static bool invokeDefault(NPP npp, NPObject* object, const NPVariant* args, uint32_t argCount,
                              NPVariant* result) {
        runtime("invokeDefault");
        return FakeRuntime::invokeDefault(npp, object, args, argCount, result);
    }
    static bool evaluate(NPP, NPObject*, NPString*, NPVariant*) {
        // No script engine here: a page script cannot be evaluated.
        runtime("evaluate");
        return false;
    }
    static bool getproperty(NPP npp, NPObject* object, NPIdentifier name, NPVariant* result) {
        runtime("getproperty");
        return FakeRuntime::getProperty(npp, object, name, result);
    }
    static bool setproperty(NPP npp, NPObject* object, NPIdentifier name, const NPVariant* value) {
        runtime("setproperty");
        return FakeRuntime::setProperty(npp, object, name, value);
    }
    static bool removeproperty(NPP npp, NPObject* object, NPIdentifier name) {
        runtime("removeproperty");
        return FakeRuntime::removeProperty(npp, object, name);
    }
    static bool hasproperty(NPP npp, NPObject* object, NPIdentifier name) {
        runtime("hasproperty");
        return FakeRuntime::hasProperty(npp, object, name);
    }
    static bool hasmethod(NPP npp, NPObject* object, NPIdentifier name) {
        runtime("hasmethod");
        return FakeRuntime::hasMethod(npp, object, name);
    }
    static void releasevariantvalue(NPVariant* variant) {
        runtime("releasevariantvalue");
        FakeRuntime::releaseVariantValue(variant);
    }
    static void setexception(NPObject* object, const NPUTF8* message) {
        runtime("setexception");
        FakeRuntime::setException(object, message);
    }
    static void pushpopupsenabledstate(NPP, NPBool) { browser("pushpopupsenabledstate"); }
    static void poppopupsenabledstate(NPP) { browser("poppopupsenabledstate"); }
    static bool enumerate(NPP npp, NPObject* object, NPIdentifier** identifiers, uint32_t* count) {
        runtime("enumerate");
        return FakeRuntime::enumerate(npp, object, identifiers, count);
    }
    static void pluginthreadasynccall(NPP npp, void (*function)(void*), void* data) {
        FakeBrowser* b = browser("pluginthreadasynccall");
        if (!b || !function) {
            return;
        }
        // Never at once, even on the main thread: the call waits for pump().
        std::lock_guard<std::mutex> lock(b->_mutex);
        b->_queue.push_back(QueuedCall{npp, [function, data] { function(data); }});
    }
    static bool construct(NPP npp, NPObject* object, const NPVariant* args, uint32_t argCount,
                          NPVariant* result) {
        runtime("construct");
        return FakeRuntime::construct(npp, object, args, argCount, result);
    }
    static NPError getvalueforurl(NPP, NPNURLVariable variable, const char*, char**, uint32_t*) {
        browser("getvalueforurl", std::to_string(static_cast<int>(variable)));
        return NPERR_GENERIC_ERROR;
    }
    static NPError setvalueforurl(NPP, NPNURLVariable variable, const char*, const char*, uint32_t) {
        browser("setvalueforurl", std::to_string(static_cast<int>(variable)));
        return NPERR_GENERIC_ERROR;
    }
    static NPError getauthenticationinfo(NPP, const char*, const char*, int32_t, const char*, const char*,
                                         char**, uint32_t*, char**, uint32_t*) {
        browser("getauthenticationinfo");
        return NPERR_GENERIC_ERROR;
    }
    static uint32_t scheduletimer(NPP, uint32_t, NPBool, void (*)(NPP, uint32_t)) {
        browser("scheduletimer");
        return 0;
    }
    static void unscheduletimer(NPP, uint32_t) { browser("unscheduletimer"); }
    static NPError popupcontextmenu(NPP, NPMenu*) {
        browser("popupcontextmenu");
        return NPERR_GENERIC_ERROR;
    }
    static NPBool convertpoint(NPP, double, double, NPCoordinateSpace, double*, double*, NPCoordinateSpace) {
        browser("convertpoint");
        return false;
    }
    static NPBool handleevent(NPP, void*, NPBool) {
        browser("handleevent");
        return false;
    }
    static NPBool unfocusinstance(NPP, NPFocusDirection) {
        browser("unfocusinstance");
        return false;
    }
    static void urlredirectresponse(NPP, void*, NPBool) { browser("urlredirectresponse"); }
    static NPError initasyncsurface(NPP, NPSize*, NPImageFormat, void*, NPAsyncSurface*) {
        browser("initasyncsurface");
        return NPERR_GENERIC_ERROR;
    }
    static NPError finalizeasyncsurface(NPP, NPAsyncSurface*) {
        browser("finalizeasyncsurface");
        return NPERR_GENERIC_ERROR;
    }
    static void setcurrentasyncsurface(NPP, NPAsyncSurface*, NPRect*) { browser("setcurrentasyncsurface"); }
};

// ---- Construction ----

FakeBrowser::Options FakeBrowser::Options::qtWebKit() {
    Options options;
    options.tableSize = 448;
    options.tableVersion = 26;
    options.pluginTableSize = 160;
    options.nullEntries = {"scheduletimer", "unscheduletimer", "convertpoint",
                           "handleevent",   "unfocusinstance", "urlredirectresponse"};
    return options;
}

FakeBrowser::FakeBrowser() : FakeBrowser(Options()) {}

FakeBrowser::FakeBrowser(Options options)
    : _options(std::move(options)),
      _mainThread(std::this_thread::get_id()),
      _userAgent(
          "Mozilla/5.0 (X11; Linux x86_64) AppleWebKit/602.1 (KHTML, like Gecko) corvane-browser/1.0 "
          "Version/10.0 Safari/602.1") {
    FakeBrowser* expected = nullptr;
    if (!currentBrowser.compare_exchange_strong(expected, this)) {
        throw std::logic_error("only one FakeBrowser may exist at a time");
    }
    try {
        buildTables();
    } catch (...) {
        currentBrowser.store(nullptr);
        throw;
    }

    // The Linux host's answers.
    _getValueAnswers[NPNVSupportsWindowless] = GetValueAnswer{NPERR_NO_ERROR, true};
    _getValueAnswers[NPNVsupportsCoreGraphicsBool] = GetValueAnswer{NPERR_GENERIC_ERROR, false};
    _getValueAnswers[NPNVsupportsCocoaBool] = GetValueAnswer{NPERR_GENERIC_ERROR, false};
    _setValueFailures[NPPVpluginDrawingModel] = NPERR_GENERIC_ERROR;
    _setValueFailures[NPPVpluginEventModel] = NPERR_GENERIC_ERROR;

    // The page: window.location.hostname and window.JSON.stringify.
    _window = FakeObject::create();
    _location = FakeObject::create();
    _location->set("hostname", FakeValue("www.example.com"));
    _window->set("location", FakeValue(static_cast<NPObject*>(_location)));
    FakeRuntime::releaseObject(_location);  // the window holds it
    FakeObject* json = FakeObject::create();
    json->addMethod("stringify", [](const std::vector<FakeValue>& args, FakeValue* result) {
        std::string text;
        if (!args.empty() && FakeObject::stringify(args[0], &text)) {
            *result = FakeValue(text);
        }
        return true;
    });
    _window->set("JSON", FakeValue(static_cast<NPObject*>(json)));
    FakeRuntime::releaseObject(json);
}

FakeBrowser::~FakeBrowser() {
    while (!_instances.empty()) {
        destroyInstance(_instances.begin()->first);
    }
    if (_initialized && !_shutDown && _options.shutdownOnDestroy) {
        shutdown();
    }
    {
        std::lock_guard<std::mutex> lock(_mutex);
        _droppedCalls += _queue.size();
        _queue.clear();
    }
    for (NPObject* object : _pageObjects) {
        FakeRuntime::releaseObject(object);
    }
    FakeRuntime::releaseObject(_window);
    currentBrowser.store(nullptr);
}

FakeBrowser* FakeBrowser::current() {
    return currentBrowser.load();
}

std::vector<std::string> FakeBrowser::entryNames() {
    std::vector<std::string> names;
    for (const EntryInfo& entry : kEntries) {
        names.push_back(entry.name);
    }
    return names;
}

void FakeBrowser::buildTables() {
    _functions.size = sizeof(NPNetscapeFuncs);
    _functions.version = _options.tableVersion;
#define CORVANE_FILL_ENTRY(name) _functions.name = &Entries::name;
    CORVANE_NPN_ENTRIES(CORVANE_FILL_ENTRY)
#undef CORVANE_FILL_ENTRY

    for (const std::string& name : _options.nullEntries) {
        bool known = std::any_of(std::begin(kEntries), std::end(kEntries),
                                 [&name](const EntryInfo& entry) { return name == entry.name; });
        if (!known) {
            throw std::invalid_argument("no browser table entry named " + name);
        }
    }
    const size_t size = _options.tableSize;
    if (size < offsetof(NPNetscapeFuncs, geturl)) {
        throw std::invalid_argument("a browser table holds at least its size and version");
    }

    // Exactly `size` bytes, so that reading past the table is a heap
    // overflow under AddressSanitizer rather than a silent success.
    _tableBlock.reset(new unsigned char[size]());
    NPNetscapeFuncs header{};
    header.size = _options.tableSize;
    header.version = _options.tableVersion;
    std::memcpy(_tableBlock.get(), &header, offsetof(NPNetscapeFuncs, geturl));
    const unsigned char* full = reinterpret_cast<const unsigned char*>(&_functions);
    for (const EntryInfo& entry : kEntries) {
        if (entry.offset + sizeof(void*) > size || _options.nullEntries.count(entry.name)) {
            continue;
        }
        std::memcpy(_tableBlock.get() + entry.offset, full + entry.offset, sizeof(void*));
    }

    _pluginFuncs = NPPluginFuncs{};
    _pluginFuncs.size = _options.pluginTableSize;
    _pluginFuncs.version = _options.tableVersion;
}

void FakeBrowser::noteCall(const char* entry, const std::string& detail, bool logged) {
    bool offThread = std::this_thread::get_id() != _mainThread;
    bool fail = false;
    {
        std::lock_guard<std::mutex> lock(_mutex);
        ++_callCounts[entry];
        if (logged) {
            _log.push_back(detail.empty() ? std::string(entry) : std::string(entry) + "(" + detail + ")");
        }
        if (offThread && std::strcmp(entry, "pluginthreadasynccall") != 0 &&
            !_options.allowedOffMainThread.count(entry)) {
            _offMainThreadCalls.push_back(entry);
            fail = _options.threadCheck == ThreadCheck::Fail;
        }
    }
    if (fail) {
        ADD_FAILURE() << "NPN " << entry << " called off the browser's main thread";
    }
}

FakeBrowser::Instance* FakeBrowser::instanceFor(NPP npp) const {
    std::lock_guard<std::mutex> lock(_mutex);
    auto it = _instances.find(npp);
    return it == _instances.end() ? nullptr : it->second.get();
}

void FakeBrowser::recordUrlRequest(UrlRequest request) {
    std::lock_guard<std::mutex> lock(_mutex);
    _urlRequests.push_back(std::move(request));
}

// ---- Loading ----

NPError FakeBrowser::pluginGetValue(NPPVariable variable, std::string* text) {
    char* answer = nullptr;
    NPError error = _entryPoints.getValue(nullptr, variable, &answer);
    *text = error == NPERR_NO_ERROR && answer ? answer : "";
    return error;
}

NPError FakeBrowser::initialize(const PluginEntryPoints& entryPoints) {
    if (!entryPoints.initialize) {
        throw std::invalid_argument("a plug-in without NP_Initialize cannot be loaded");
    }
    _entryPoints = entryPoints;
    if (_entryPoints.getValue) {
        pluginGetValue(NPPVpluginNameString, &_pluginName);
        pluginGetValue(NPPVpluginDescriptionString, &_pluginDescription);
    }
    if (_entryPoints.getMIMEDescription) {
        const char* description = _entryPoints.getMIMEDescription();
        _mimeDescription = description ? description : "";
    }
    NPError result = _entryPoints.initialize(browserTable(), &_pluginFuncs);
    _initialized = result == NPERR_NO_ERROR;
    _shutDown = false;
    return result;
}

NPError FakeBrowser::callGetEntryPoints(NPPluginFuncs* table, uint16_t size) {
    if (!_entryPoints.getEntryPoints) {
        return NPERR_GENERIC_ERROR;
    }
    NPPluginFuncs filled{};
    filled.size = size;
    NPError result = _entryPoints.getEntryPoints(&filled);
    *table = filled;
    return result;
}

NPError FakeBrowser::shutdown() {
    if (!_initialized || _shutDown || !_entryPoints.shutdown) {
        return NPERR_NO_ERROR;
    }
    _shutDown = true;
    return _entryPoints.shutdown();
}

// ---- Instances ----

NPP FakeBrowser::newInstance(const Attributes& attributes, NPError* result, const std::string& mimeType) {
    std::vector<const char*> names;
    std::vector<const char*> values;
    for (const auto& attribute : attributes) {
        names.push_back(attribute.first.c_str());
        values.push_back(attribute.second.c_str());
    }
    return newInstanceRaw(static_cast<int16_t>(attributes.size()), names.data(), values.data(), result,
                          mimeType);
}

NPP FakeBrowser::newInstanceRaw(int16_t argc, const char* const* argn, const char* const* argv,
                                NPError* result, const std::string& mimeType) {
    auto instance = std::make_unique<Instance>();
    Instance* raw = instance.get();
    raw->npp.ndata = raw;
    NPP npp = &raw->npp;
    {
        std::lock_guard<std::mutex> lock(_mutex);
        _instances[npp] = std::move(instance);
    }

    // Copies that live only during the call: a plug-in must copy what it keeps.
    std::vector<char*> names;
    std::vector<char*> values;
    for (int16_t i = 0; i < argc; ++i) {
        char* name = argn[i] ? strdup(argn[i]) : nullptr;
        if (name && _options.lowerCaseAttributeNames) {
            for (char* c = name; *c; ++c) {
                *c = static_cast<char>(std::tolower(static_cast<unsigned char>(*c)));
            }
        }
        names.push_back(name);
        values.push_back(argv[i] ? strdup(argv[i]) : nullptr);
    }
    std::vector<char> type(mimeType.begin(), mimeType.end());
    type.push_back('\0');

    NPError error = NPERR_GENERIC_ERROR;
    if (_pluginFuncs.newp) {
        error = _pluginFuncs.newp(type.data(), npp, NP_EMBED, argc, names.data(), values.data(), nullptr);
    } else {
        FakeRuntime::reportMisuse("the plug-in table has no NPP_New");
    }
    for (size_t i = 0; i < names.size(); ++i) {
        std::free(names[i]);
        std::free(values[i]);
    }
    if (result) {
        *result = error;
    }
    return npp;
}

NPError FakeBrowser::destroyInstance(NPP npp) {
    Instance* instance = instanceFor(npp);
    if (!instance) {
        FakeRuntime::reportMisuse("destroyInstance of an unknown instance");
        return NPERR_INVALID_INSTANCE_ERROR;
    }
    {
        std::lock_guard<std::mutex> lock(_mutex);
        auto end = std::remove_if(_queue.begin(), _queue.end(),
                                  [npp](const QueuedCall& call) { return call.npp == npp; });
        _droppedCalls += static_cast<size_t>(_queue.end() - end);
        _queue.erase(end, _queue.end());
    }
    if (instance->scriptable) {
        FakeRuntime::releaseObject(instance->scriptable);
        instance->scriptable = nullptr;
    }
    NPError result = NPERR_GENERIC_ERROR;
    if (_pluginFuncs.destroy) {
        NPSavedData* saved = nullptr;
        result = _pluginFuncs.destroy(npp, &saved);
        if (saved) {
            FakeRuntime::memFree(saved->buf);
            FakeRuntime::memFree(saved);
        }
    }
    if (instance->element) {
        FakeRuntime::releaseObject(instance->element);
    }
    std::unique_ptr<Instance> gone;
    {
        std::lock_guard<std::mutex> lock(_mutex);
        auto it = _instances.find(npp);
        gone = std::move(it->second);
        _instances.erase(it);
    }
    return result;
}

size_t FakeBrowser::instanceCount() const {
    std::lock_guard<std::mutex> lock(_mutex);
    return _instances.size();
}

NPObject* FakeBrowser::scriptableObject(NPP npp) {
    Instance* instance = instanceFor(npp);
    if (!instance || !_pluginFuncs.getvalue) {
        return nullptr;
    }
    if (!instance->askedScriptable) {
        instance->askedScriptable = true;
        NPObject* object = nullptr;
        if (_pluginFuncs.getvalue(npp, NPPVpluginScriptableNPObject, &object) == NPERR_NO_ERROR) {
            instance->scriptable = object;
        }
    }
    return instance->scriptable;
}

NPError FakeBrowser::setWindow(NPP npp, NPWindow* window) {
    if (!_pluginFuncs.setwindow) {
        return NPERR_GENERIC_ERROR;
    }
    return _pluginFuncs.setwindow(npp, window);
}

NPError FakeBrowser::setWindow(NPP npp, uint32_t width, uint32_t height) {
    Instance* instance = instanceFor(npp);
    if (!instance) {
        FakeRuntime::reportMisuse("setWindow of an unknown instance");
        return NPERR_INVALID_INSTANCE_ERROR;
    }
    NPWindow& window = instance->window;
    if (!window.window) {
        window.window = reinterpret_cast<void*>(static_cast<uintptr_t>(_nextDrawable++));
    }
    window.x = 0;
    window.y = 0;
    window.width = width;
    window.height = height;
    window.clipRect = NPRect{0, 0, static_cast<uint16_t>(height), static_cast<uint16_t>(width)};
    instance->wsInfo = NPSetWindowCallbackStruct{NP_SETWINDOW, _xDisplay, nullptr, 0, 24};
    window.ws_info = &instance->wsInfo;
    window.type = NPWindowTypeDrawable;
    return setWindow(npp, &window);
}

int16_t FakeBrowser::handleEvent(NPP npp, void* event) {
    return _pluginFuncs.event ? _pluginFuncs.event(npp, event) : 0;
}

FakeBrowser::StreamResult FakeBrowser::deliverStream(NPP npp, const std::string& url, const std::string& body,
                                                     void* notifyData, bool notify) {
    return deliverStream(npp, url, body, notifyData, notify, Delivery());
}

FakeBrowser::StreamResult FakeBrowser::deliverStream(NPP npp, const std::string& url, const std::string& body,
                                                     void* notifyData, bool notify,
                                                     const Delivery& delivery) {
    StreamResult result;
    // The URL and data live in blocks freed after the delivery, so that a
    // plug-in keeping pointers into them shows up under AddressSanitizer.
    auto urlCopy = std::make_unique<std::string>(url);
    auto stream = std::make_unique<NPStream>();
    stream->ndata = instanceFor(npp);
    stream->url = urlCopy->c_str();
    stream->end = static_cast<uint32_t>(body.size());
    stream->notifyData = notifyData;
    std::vector<char> type(delivery.mimeType.begin(), delivery.mimeType.end());
    type.push_back('\0');

    uint16_t streamType = NP_NORMAL;
    result.newStream = _pluginFuncs.newstream
                           ? _pluginFuncs.newstream(npp, type.data(), stream.get(), false, &streamType)
                           : NPERR_GENERIC_ERROR;
    result.streamType = streamType;
    if (result.newStream != NPERR_NO_ERROR) {
        result.reason = NPRES_NETWORK_ERR;
    } else {
        NPReason reason = delivery.reason;
        const size_t chunkSize = std::max<size_t>(delivery.chunkSize, 1);
        size_t offset = 0;
        int stalls = 0;
        // A plug-in that keeps answering 0 is given up on, not waited for.
        const int kMaxStalls = 100;
        while (offset < body.size()) {
            int32_t ready = _pluginFuncs.writeready ? _pluginFuncs.writeready(npp, stream.get())
                                                    : static_cast<int32_t>(chunkSize);
            if (ready <= 0) {
                if (++stalls > kMaxStalls) {
                    reason = NPRES_USER_BREAK;
                    break;
                }
                continue;
            }
            size_t count = std::min({chunkSize, body.size() - offset, static_cast<size_t>(ready)});
            std::unique_ptr<char[]> chunk(new char[count]);
            std::memcpy(chunk.get(), body.data() + offset, count);
            int32_t written = _pluginFuncs.write
                                  ? _pluginFuncs.write(npp, stream.get(), static_cast<int32_t>(offset),
                                                       static_cast<int32_t>(count), chunk.get())
                                  : -1;
            result.writes.push_back(written);
            if (written < 0) {
                // The plug-in refuses the stream: the host ends it as failed.
                reason = NPRES_NETWORK_ERR;
                break;
            }
            if (written == 0) {
                if (++stalls > kMaxStalls) {
                    reason = NPRES_USER_BREAK;
                    break;
                }
                continue;
            }
            offset += std::min(static_cast<size_t>(written), count);
        }
        result.bytesAccepted = offset;
        result.reason = reason;
        if (_pluginFuncs.destroystream) {
            _pluginFuncs.destroystream(npp, stream.get(), reason);
        }
    }
    if (notify && _pluginFuncs.urlnotify) {
        _pluginFuncs.urlnotify(npp, urlCopy->c_str(), result.reason, notifyData);
        result.notified = true;
    }
    return result;
}

FakeBrowser::StreamResult FakeBrowser::serveUrlRequest(size_t index, const std::string& body) {
    return serveUrlRequest(index, body, Delivery());
}

FakeBrowser::StreamResult FakeBrowser::serveUrlRequest(size_t index, const std::string& body,
                                                       const Delivery& delivery) {
    UrlRequest request = urlRequests().at(index);
    return deliverStream(request.npp, request.url, body, request.notifyData, request.notify, delivery);
}

void FakeBrowser::failUrlRequest(size_t index, NPReason reason) {
    UrlRequest request = urlRequests().at(index);
    if (request.notify && _pluginFuncs.urlnotify) {
        _pluginFuncs.urlnotify(request.npp, request.url.c_str(), reason, request.notifyData);
    }
}

// ---- The page ----

void FakeBrowser::setPageHostname(const std::string& hostname) {
    _location->set("hostname", FakeValue(hostname));
}

FakeObject* FakeBrowser::holdForPage(FakeObject* object) {
    _pageObjects.push_back(object);
    return object;
}

FakeObject* FakeBrowser::newPageObject() {
    return holdForPage(FakeObject::create());
}

FakeObject* FakeBrowser::newPageFunction(const FakeValue& returnValue) {
    FakeObject* function = FakeObject::create();
    function->makeCallable(returnValue);
    return holdForPage(function);
}

FakeObject* FakeBrowser::newPageArray(const std::vector<FakeValue>& elements) {
    FakeObject* array = FakeObject::create();
    array->makeArray(elements);
    return holdForPage(array);
}

void FakeBrowser::dropPageReference(NPObject* object) {
    auto it = std::find(_pageObjects.begin(), _pageObjects.end(), object);
    if (it == _pageObjects.end()) {
        FakeRuntime::reportMisuse("dropPageReference of an object the page does not hold");
        return;
    }
    _pageObjects.erase(it);
    FakeRuntime::releaseObject(object);
}

// ---- Browser answers ----

void FakeBrowser::setUserAgent(const std::string& userAgent) {
    _userAgent = userAgent;
}

void FakeBrowser::answerGetValue(NPNVariable variable, NPError error) {
    std::lock_guard<std::mutex> lock(_mutex);
    if (error == NPERR_NO_ERROR) {
        _getValueAnswers.erase(static_cast<int>(variable));
    } else {
        _getValueAnswers[static_cast<int>(variable)] = GetValueAnswer{error, false};
    }
}

void FakeBrowser::answerGetValueBool(NPNVariable variable, bool value) {
    std::lock_guard<std::mutex> lock(_mutex);
    _getValueAnswers[static_cast<int>(variable)] = GetValueAnswer{NPERR_NO_ERROR, value};
}

void FakeBrowser::setXDisplay(void* display) {
    _xDisplay = display;
}

void FakeBrowser::setNetscapeWindow(unsigned long windowId) {
    _netscapeWindow = windowId;
}

void FakeBrowser::failSetValue(NPPVariable variable, NPError error) {
    std::lock_guard<std::mutex> lock(_mutex);
    if (error == NPERR_NO_ERROR) {
        _setValueFailures.erase(static_cast<int>(variable));
    } else {
        _setValueFailures[static_cast<int>(variable)] = error;
    }
}

void FakeBrowser::setUrlRequestAnswer(NPError error) {
    std::lock_guard<std::mutex> lock(_mutex);
    _urlRequestAnswer = error;
}

// ---- Observations ----

std::vector<std::string> FakeBrowser::log() const {
    std::lock_guard<std::mutex> lock(_mutex);
    return _log;
}

void FakeBrowser::clearLog() {
    std::lock_guard<std::mutex> lock(_mutex);
    _log.clear();
}

int FakeBrowser::callCount(const std::string& entry) const {
    std::lock_guard<std::mutex> lock(_mutex);
    auto it = _callCounts.find(entry);
    return it == _callCounts.end() ? 0 : it->second;
}

std::vector<std::string> FakeBrowser::offMainThreadCalls() const {
    std::lock_guard<std::mutex> lock(_mutex);
    return _offMainThreadCalls;
}

std::vector<FakeBrowser::SetValueCall> FakeBrowser::setValueCalls() const {
    std::lock_guard<std::mutex> lock(_mutex);
    return _setValueCalls;
}

std::optional<bool> FakeBrowser::windowBool(NPP npp) const {
    Instance* instance = instanceFor(npp);
    std::lock_guard<std::mutex> lock(_mutex);
    return instance ? instance->windowBool : std::nullopt;
}

std::optional<bool> FakeBrowser::transparentBool(NPP npp) const {
    Instance* instance = instanceFor(npp);
    std::lock_guard<std::mutex> lock(_mutex);
    return instance ? instance->transparentBool : std::nullopt;
}

std::vector<FakeBrowser::UrlRequest> FakeBrowser::urlRequests() const {
    std::lock_guard<std::mutex> lock(_mutex);
    return _urlRequests;
}

int FakeBrowser::invalidateCount() const {
    std::lock_guard<std::mutex> lock(_mutex);
    return _invalidateCount;
}

NPRect FakeBrowser::lastInvalidRect() const {
    std::lock_guard<std::mutex> lock(_mutex);
    return _lastInvalidRect;
}

// ---- The main thread ----

void FakeBrowser::post(std::function<void()> task) {
    std::lock_guard<std::mutex> lock(_mutex);
    _queue.push_back(QueuedCall{nullptr, std::move(task)});
}

size_t FakeBrowser::pendingCalls() const {
    std::lock_guard<std::mutex> lock(_mutex);
    return _queue.size();
}

size_t FakeBrowser::pump(size_t limit) {
    if (std::this_thread::get_id() != _mainThread) {
        ADD_FAILURE() << "FakeBrowser::pump called off the browser's main thread";
        return 0;
    }
    size_t ran = 0;
    while (ran < limit) {
        QueuedCall call;
        {
            std::lock_guard<std::mutex> lock(_mutex);
            if (_queue.empty()) {
                break;
            }
            call = std::move(_queue.front());
            _queue.pop_front();
        }
        call.task();
        ++ran;
    }
    return ran;
}

size_t FakeBrowser::pumpGlib(size_t limit) {
    size_t dispatched = 0;
    while (dispatched < limit && g_main_context_iteration(nullptr, FALSE)) {
        ++dispatched;
    }
    return dispatched;
}

bool FakeBrowser::pumpUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        pump();
        pumpGlib();
        if (done()) {
            return true;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

size_t FakeBrowser::droppedCalls() const {
    std::lock_guard<std::mutex> lock(_mutex);
    return _droppedCalls;
}

}  // namespace CorvaneTest
