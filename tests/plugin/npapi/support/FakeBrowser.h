// An in-process stand-in for the browser that hosts the plug-in in tests.
//
// It hands the plug-in a complete browser function table (472 bytes by
// default; smaller tables and null entries on request, to play older or
// partial hosts such as QtWebKit's 448-byte table), drives the plug-in's
// entry points and instances the way the Linux host does, and models the
// page: a window object with location.hostname and JSON.stringify, page
// functions and objects that record what the plug-in calls on them.
//
// Nothing the plug-in asks to run later runs at once: calls queued with
// NPN_PluginThreadAsyncCall wait until the test calls pump(), and GLib
// idle sources until pumpGlib(). NPN calls from a thread other than the
// one that made the browser are recorded and, by default, fail the test.
//
// One FakeBrowser exists at a time (the NPN functions without an instance
// argument find it as current()). The runtime state behind it (memory,
// identifiers, objects) is process-wide: see FakeRuntime.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "FakeObject.h"
#include "FakeValue.h"
#include "PluginEntryPoints.h"
#include "npfunctions.h"

namespace CorvaneTest {

class FakeBrowser {
public:
    enum class ThreadCheck {
        Fail,   // an off-thread call is recorded and fails the test
        Record  // only recorded
    };

    struct Options {
        // `size` of the table handed over; the block is exactly this long,
        // and entries that do not fit entirely are absent.
        uint16_t tableSize = sizeof(NPNetscapeFuncs);
        uint16_t tableVersion = NPVERS_HAS_CLEAR_SITE_DATA;
        // `size` written into the plug-in's table (the block itself is
        // always a full NPPluginFuncs, so a plug-in that fills it anyway
        // does not write out of bounds).
        uint16_t pluginTableSize = sizeof(NPPluginFuncs);
        // Entry names (see entryNames()) set to null in the table.
        std::set<std::string> nullEntries;
        // QtWebKit lower-cases element attribute names before NPP_New.
        bool lowerCaseAttributeNames = true;
        // Calls NP_Shutdown from the destructor when the test did not.
        bool shutdownOnDestroy = true;
        ThreadCheck threadCheck = ThreadCheck::Fail;
        // Entries a test accepts from other threads (pluginthreadasynccall
        // is always accepted).
        std::set<std::string> allowedOffMainThread;

        // The Linux host as measured: a 448-byte table of version 26 with
        // the timer, point conversion, event, unfocus and redirect entries
        // null, and a 160-byte plug-in table.
        static Options qtWebKit();
    };

    using Attributes = std::vector<std::pair<std::string, std::string>>;

    // A URL the plug-in asked for (NPN_GetURL[Notify], NPN_PostURL[Notify]).
    struct UrlRequest {
        NPP npp;
        std::string method;  // "GET" or "POST"
        std::string url;
        bool hasTarget;
        std::string target;
        void* notifyData;
        bool notify;  // the *Notify form: NPP_URLNotify is owed
        std::string body;
    };

    struct SetValueCall {
        NPP npp;
        NPPVariable variable;
        void* value;
        NPError answer;
    };

    // How a stream is delivered: in chunks of at most chunkSize bytes,
    // ended with `reason`.
    struct Delivery {
        size_t chunkSize = 4096;
        NPReason reason = NPRES_DONE;
        std::string mimeType = "application/octet-stream";
    };

    // What the plug-in answered while a stream was delivered.
    struct StreamResult {
        NPError newStream = NPERR_NO_ERROR;
        uint16_t streamType = NP_NORMAL;
        std::vector<int32_t> writes;  // NPP_Write answers in order
        size_t bytesAccepted = 0;
        NPReason reason = NPRES_DONE;  // as given to NPP_DestroyStream / NPP_URLNotify
        bool notified = false;         // NPP_URLNotify was called
    };

    FakeBrowser();
    explicit FakeBrowser(Options options);
    ~FakeBrowser();
    FakeBrowser(const FakeBrowser&) = delete;
    FakeBrowser& operator=(const FakeBrowser&) = delete;

    static FakeBrowser* current();
    // The members of NPNetscapeFuncs after size and version, in order.
    static std::vector<std::string> entryNames();

    // ---- Function tables ----
    // The block handed to the plug-in: exactly Options::tableSize bytes.
    NPNetscapeFuncs* browserTable() { return reinterpret_cast<NPNetscapeFuncs*>(_tableBlock.get()); }
    // Every entry, filled: for calls the test makes itself.
    const NPNetscapeFuncs& functions() const { return _functions; }
    // The plug-in's table as NP_Initialize filled it.
    const NPPluginFuncs& pluginFuncs() const { return _pluginFuncs; }

    // ---- Loading: the host's order ----
    // NP_GetValue(NULL, name), NP_GetValue(NULL, description) and
    // NP_GetMIMEDescription when present, then NP_Initialize(browser
    // table, plug-in table). Answers NP_Initialize's result.
    NPError initialize(const PluginEntryPoints& entryPoints);
    const std::string& pluginName() const { return _pluginName; }
    const std::string& pluginDescription() const { return _pluginDescription; }
    const std::string& mimeDescription() const { return _mimeDescription; }
    // NP_GetEntryPoints on a table of the given size (the Linux host
    // never calls it); the result is copied to *table.
    NPError callGetEntryPoints(NPPluginFuncs* table, uint16_t size = sizeof(NPPluginFuncs));
    NPError shutdown();

    // ---- Instances ----
    // NPP_New in embed mode with the attributes as argn/argv (copies that
    // live only during the call). The instance stays even when NPP_New
    // fails, as in the host, until destroyInstance.
    NPP newInstance(const Attributes& attributes = {}, NPError* result = nullptr,
                    const std::string& mimeType = "application/x-corvane-web");
    // The same with raw arrays, so that null names or values can be passed.
    NPP newInstanceRaw(int16_t argc, const char* const* argn, const char* const* argv,
                       NPError* result = nullptr, const std::string& mimeType = "application/x-corvane-web");
    // Drops the browser's reference to the scriptable object and any calls
    // still queued for the instance, then NPP_Destroy.
    NPError destroyInstance(NPP npp);
    size_t instanceCount() const;
    // NPP_GetValue(NPPVpluginScriptableNPObject) at the first use; the
    // browser keeps the reference it gets until the instance goes.
    NPObject* scriptableObject(NPP npp);
    NPError setWindow(NPP npp, NPWindow* window);
    // A drawable window of this size at (0, 0) with a ws_info whose
    // display is the one set with setXDisplay (null by default).
    NPError setWindow(NPP npp, uint32_t width, uint32_t height);
    int16_t handleEvent(NPP npp, void* event);
    // NPP_NewStream, NPP_WriteReady/NPP_Write in chunks, NPP_DestroyStream
    // and, when `notify`, NPP_URLNotify, as the host delivers a URL.
    StreamResult deliverStream(NPP npp, const std::string& url, const std::string& body,
                               void* notifyData = nullptr, bool notify = false);
    StreamResult deliverStream(NPP npp, const std::string& url, const std::string& body, void* notifyData,
                               bool notify, const Delivery& delivery);
    // Delivers the body for urlRequests()[index].
    StreamResult serveUrlRequest(size_t index, const std::string& body);
    StreamResult serveUrlRequest(size_t index, const std::string& body, const Delivery& delivery);
    // Ends urlRequests()[index] without a stream: only NPP_URLNotify with
    // the reason (when the request was of the notify form).
    void failUrlRequest(size_t index, NPReason reason = NPRES_NETWORK_ERR);

    // ---- The page ----
    FakeObject* window() const { return _window; }
    // window.location.hostname; "" plays a file:// page.
    void setPageHostname(const std::string& hostname);
    // New page objects, held by the page (one reference each) until the
    // browser goes or dropPageReference.
    FakeObject* newPageObject();
    // A function whose calls are recorded and answer `returnValue`.
    FakeObject* newPageFunction(const FakeValue& returnValue = FakeValue());
    FakeObject* newPageArray(const std::vector<FakeValue>& elements);
    // The page forgets the object (as after garbage collection); the
    // plug-in's references may then be the last ones.
    void dropPageReference(NPObject* object);

    // ---- Browser answers ----
    void setUserAgent(const std::string& userAgent);
    const std::string& userAgent() const { return _userAgent; }
    // NPN_GetValue(variable) fails with `error` (without touching the value).
    void answerGetValue(NPNVariable variable, NPError error);
    // NPN_GetValue(variable) succeeds with an NPBool.
    void answerGetValueBool(NPNVariable variable, bool value);
    void setSupportsWindowless(bool supported) { answerGetValueBool(NPNVSupportsWindowless, supported); }
    void setXDisplay(void* display);
    void setNetscapeWindow(unsigned long windowId);
    // NPN_SetValue(variable) answers `error`; NPERR_NO_ERROR accepts again.
    void failSetValue(NPPVariable variable, NPError error);
    // The answer of NPN_GetURL[Notify] and NPN_PostURL[Notify].
    void setUrlRequestAnswer(NPError error);

    // ---- What the plug-in did ----
    // Browser services in call order, e.g. "uagent", "getvalue(17)",
    // "setvalue(3,0)", "geturlnotify(image.jpg)", "invalidaterect",
    // "pluginthreadasynccall". Runtime calls (memory, identifiers,
    // objects, variants) are only counted.
    std::vector<std::string> log() const;
    void clearLog();
    int callCount(const std::string& entry) const;
    std::vector<std::string> offMainThreadCalls() const;
    std::vector<SetValueCall> setValueCalls() const;
    // The last value the plug-in set and the browser accepted.
    std::optional<bool> windowBool(NPP npp) const;
    std::optional<bool> transparentBool(NPP npp) const;
    std::vector<UrlRequest> urlRequests() const;
    int invalidateCount() const;
    NPRect lastInvalidRect() const;

    // ---- The main thread ----
    // Queues a task as if the host's main loop had it.
    void post(std::function<void()> task);
    size_t pendingCalls() const;
    // Runs queued calls in order, including ones queued while pumping, at
    // most `limit`; answers how many ran.
    size_t pump(size_t limit = 10000);
    // Iterates GLib's default main context until it has nothing to do, at
    // most `limit` times; answers how many iterations dispatched something.
    static size_t pumpGlib(size_t limit = 10000);
    // Pumps both queues until `done` answers true or the time is up.
    bool pumpUntil(const std::function<bool()>& done,
                   std::chrono::milliseconds timeout = std::chrono::milliseconds(5000));
    // Calls dropped because their instance was destroyed or the browser
    // went away before they ran.
    size_t droppedCalls() const;

private:
    struct Entries;
    friend struct Entries;

    struct Instance {
        NPP_t npp{};
        NPObject* scriptable = nullptr;
        bool askedScriptable = false;
        NPWindow window{};
        NPSetWindowCallbackStruct wsInfo{};
        FakeObject* element = nullptr;
        std::optional<bool> windowBool;
        std::optional<bool> transparentBool;
    };

    struct QueuedCall {
        NPP npp;
        std::function<void()> task;
    };

    struct GetValueAnswer {
        NPError error;
        bool value;
    };

    void buildTables();
    void noteCall(const char* entry, const std::string& detail, bool logged);
    Instance* instanceFor(NPP npp) const;
    NPError pluginGetValue(NPPVariable variable, std::string* text);
    FakeObject* holdForPage(FakeObject* object);
    void recordUrlRequest(UrlRequest request);

    Options _options;
    std::thread::id _mainThread;
    NPNetscapeFuncs _functions{};
    std::unique_ptr<unsigned char[]> _tableBlock;
    NPPluginFuncs _pluginFuncs{};
    PluginEntryPoints _entryPoints;
    bool _initialized = false;
    bool _shutDown = false;
    std::string _pluginName;
    std::string _pluginDescription;
    std::string _mimeDescription;

    FakeObject* _window = nullptr;
    FakeObject* _location = nullptr;
    std::vector<NPObject*> _pageObjects;

    std::string _userAgent;
    void* _xDisplay = nullptr;
    unsigned long _netscapeWindow = 0x2a00007;
    uint32_t _nextDrawable = 0x3c00001;

    mutable std::mutex _mutex;
    std::map<NPP, std::unique_ptr<Instance>> _instances;
    std::map<int, GetValueAnswer> _getValueAnswers;
    std::map<int, NPError> _setValueFailures;
    NPError _urlRequestAnswer = NPERR_NO_ERROR;
    std::vector<std::string> _log;
    std::map<std::string, int> _callCounts;
    std::vector<std::string> _offMainThreadCalls;
    std::vector<SetValueCall> _setValueCalls;
    std::vector<UrlRequest> _urlRequests;
    int _invalidateCount = 0;
    NPRect _lastInvalidRect{};
    std::deque<QueuedCall> _queue;
    size_t _droppedCalls = 0;
};

}  // namespace CorvaneTest
