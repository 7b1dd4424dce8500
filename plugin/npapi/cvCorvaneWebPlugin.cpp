#include "cvCorvaneWebPlugin.h"

#include <math.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <exception>

#include "BrowserFuncs.h"
#include "DialogCallback.h"
#include "EntryPoints.h"
#include "EventHandler.h"
#include "HttpResponse.h"
#include "Json.h"
#include "Messages.h"
#include "OneShotManager.h"
#include "OpenFileDialog.h"
#include "OpenFolderDialog.h"
#include "PageApi.h"
#include "PanelCall.h"
#include "PanelDialog.h"
#include "PathEscaper.h"
#include "PlugIn.h"
#include "RequestCallback.h"
#include "RunnableScheduler.h"
#include "SaveFileDialog.h"
#include "ScriptObject.h"
#include "TransferEventHandler.h"
#include "TransfersPoller.h"
#include "Utils.h"
#include "VariantHelpers.h"
#include "ViewBrowser.h"
#include "cvCorvaneWebView.h"
#include "cv_log.h"

namespace Kestrix {
namespace Web {

namespace {

const int kDefaultLaunchTimeoutMs = 20000;

// The launch time-out: a number as atoi reads it, where text that reads as
// 0 without being "0" ("", "abc", "0x10") means the default.
int launchTimeoutFrom(const std::string& text) {
    int value = atoi(text.c_str());
    if (value == 0 && text != "0") return kDefaultLaunchTimeoutMs;
    return value;
}

bool isString(const NPVariant& variant) {
    return NPVARIANT_IS_STRING(variant);
}

bool isNonEmptyString(const NPVariant& variant) {
    return NPVARIANT_IS_STRING(variant) && NPVARIANT_TO_STRING(variant).UTF8Length > 0;
}

std::string textOf(const NPVariant& variant) {
    return CW_NPStringToString(NPVARIANT_TO_STRING(variant));
}

// Every byte the browser passed, a NUL included: for text the core must
// check as the page wrote it rather than cut at the first NUL.
std::string bytesOf(const NPVariant& variant) {
    const NPString& text = NPVARIANT_TO_STRING(variant);
    return text.UTF8Characters ? std::string(text.UTF8Characters, text.UTF8Length) : std::string();
}

void returnText(const std::string& text, NPVariant* result) {
    CW_CharPtrToNPStringVariant(text.c_str(), result);
}

// File reads build their answer straight in the browser's memory. Its
// allocator counts in 32 bits: a larger block is refused, never cut short.
void* browserBlock(size_t size) {
    return size > UINT32_MAX ? nullptr : NPN_MemAlloc(static_cast<uint32_t>(size));
}

const PlugIn::TextAllocator kBrowserText = {browserBlock, NPN_MemFree};

// The block is the browser's already: the page gets it as it is (an empty
// string when even the error text found no memory).
void returnBrowserText(const PlugIn::AllocatedText& text, NPVariant* result) {
    result->type = NPVariantType_String;
    result->value.stringValue.UTF8Characters = text.data;
    result->value.stringValue.UTF8Length = text.data ? static_cast<uint32_t>(text.length) : 0;
}

// A boolean, or a string that is exactly "true" or "false": pages pass
// flags either way.
bool npvariantIsBoolean(const NPVariant& variant) {
    if (NPVARIANT_IS_BOOLEAN(variant)) return true;
    if (!NPVARIANT_IS_STRING(variant)) return false;
    const std::string text = textOf(variant);
    return text == "true" || text == "false";
}

bool booleanOf(const NPVariant& variant) {
    if (NPVARIANT_IS_BOOLEAN(variant)) return NPVARIANT_TO_BOOLEAN(variant);
    return textOf(variant) == "true";
}

// A synchronous panel's answer while another panel shows: a string
// variant with no characters and no buffer.
bool returnNoDialog(NPVariant* result) {
    CW_CharPtrToNPStringVariant(nullptr, result);
    return true;
}

// The asynchronous panels' answer while another panel shows.
bool returnDialogAlreadyOpen(NPVariant* result) {
    returnText(Json::createError(kErrorDialogAlreadyOpen), result);
    return true;
}

// A chunk position from the page: an int32 or a double (chunkNumberOf).
bool chunkNumber(const NPVariant& variant, uint32_t* number) {
    if (NPVARIANT_IS_INT32(variant)) {
        *number = chunkNumberOf(static_cast<int64_t>(NPVARIANT_TO_INT32(variant)));
    } else if (NPVARIANT_IS_DOUBLE(variant)) {
        *number = chunkNumberOf(NPVARIANT_TO_DOUBLE(variant));
    } else {
        return false;
    }
    return true;
}

// The stored page object as a property value: the browser gets a reference
// of its own, which it drops when it is done with the value.
bool returnObject(NPObject* object, NPVariant* result) {
    if (object) {
        NPN_RetainObject(object);
        OBJECT_TO_NPVARIANT(object, *result);
    } else {
        NULL_TO_NPVARIANT(*result);
    }
    return true;
}

}  // namespace

cvCorvaneWebPlugin* cvCorvaneWebPlugin::kLastDialogOpener = nullptr;

cvCorvaneWebPlugin::cvCorvaneWebPlugin(NPP npp, Parameters& parameters)
    : _npp(npp), _alive(std::make_shared<bool>(true)) {
    cv_dbg("cvCorvaneWebPlugin() [%p]", static_cast<void*>(this));
    _launchTimeoutMs = launchTimeoutFrom(parameters["kestrix-launch-wait-timeout-ms"]);
    _transparent = parameters["transparent"] == "yes";

    _core.reset(new PlugIn());
    const char* userAgent = NPN_UserAgent(npp);
    _core->setHostBrowser(userAgent ? userAgent : "");
    _core->setPageHostname(CW_GetPageHostname(npp));
    try {
        _core->init(_launchTimeoutMs);
        _core->configure(parameters);
        _oneShotManager.reset(new OneShotManager());
    } catch (const std::exception& e) {
        cv_err("Failed to initialize plugin: %s", e.what());
        throw;
    }

    _imageUrl = parameters["image"];
    const std::string& dropMode = parameters["drop-mode"];
    if (dropMode == "upload")
        _dropMode = 1;
    else if (dropMode == "callback")
        _dropMode = 2;
    else
        _dropMode = 0;
    _dropAllowDirectories = parameters["drop-allow-directories"] == "true";
    _dropAllowMultiple = parameters["drop-allow-multiple"] == "true";

    _scriptClass = CWCreateScriptObjectClass();
    _scriptObject = _scriptClass ? NPN_CreateObject(npp, _scriptClass) : nullptr;
    if (_scriptObject) reinterpret_cast<CWScriptObject*>(_scriptObject)->plugin = this;

    _transferEventHandler.reset(new TransferEventHandler(npp, nullptr));
    _core->transfersPoller()->addListener(_transferEventHandler.get());
}

cvCorvaneWebPlugin::~cvCorvaneWebPlugin() {
    cv_dbg("~cvCorvaneWebPlugin() [%p]", static_cast<void*>(this));
    *_alive = false;
    if (kLastDialogOpener == this) kLastDialogOpener = nullptr;
    // A synchronous call's panel outlives nothing of its page: closed now,
    // its call returns without touching this instance.
    if (_modalDialog) {
        _modalDialog->stop();
        _modalDialog = nullptr;
    }
    try {
        if (_transferEventHandler) {
            if (_core && _core->transfersPoller())
                _core->transfersPoller()->removeListener(_transferEventHandler.get());
            _transferEventHandler.reset();
        }
        free(_imageData);
        _imageData = nullptr;
        _imageSize = 0;
        _view.reset();
        // Stops and joins the request worker, then the poller: nothing can
        // queue work for this instance after this.
        _core.reset();
        // Dialogs still waiting for their turn or showing end early and
        // tell the page nothing; what is still queued for the page is
        // dropped with the queue.
        if (RunnableScheduler::isInitialized()) RunnableScheduler::stopRunnables(_oneShotManager.get());
        _oneShotManager.reset();
    } catch (const std::exception& e) {
        cv_err("Plugin cleanup error: %s", e.what());
    }
    // The browser may keep the script object after the instance has gone:
    // calls on it then find no instance and fail instead of reaching freed
    // memory.
    if (_scriptObject) {
        reinterpret_cast<CWScriptObject*>(_scriptObject)->plugin = nullptr;
        NPN_ReleaseObject(_scriptObject);
        _scriptObject = nullptr;
    }
    if (_dropObserver) NPN_ReleaseObject(_dropObserver);
    _dropObserver = nullptr;
    if (_eventHandler) NPN_ReleaseObject(_eventHandler);
    _eventHandler = nullptr;
    cv_dbg("~cvCorvaneWebPlugin() - done");
}

// ---- Entry point slots ----

NPObject* cvCorvaneWebPlugin::objectForWebScript() {
    return _scriptObject;
}

void cvCorvaneWebPlugin::createStream(NPMIMEType, NPStream* stream, NPBool, uint16_t*) {
    cv_dbg("cvCorvaneWebPlugin::createStream()");
    cv_dbg("  URL: %s", stream && stream->url ? stream->url : "");
}

void cvCorvaneWebPlugin::destroyStream(NPStream* stream, NPReason) {
    cv_dbg("cvCorvaneWebPlugin::destroyStream()");
    if (!stream || !stream->url || _imageUrl != stream->url) return;
    // Whatever arrived goes to the view, even from a broken stream; the
    // view copies what it needs.
    if (_view)
        _view->setImage(reinterpret_cast<const char*>(_imageData), static_cast<unsigned int>(_imageSize));
    free(_imageData);
    _imageData = nullptr;
    _imageSize = 0;
}

int16_t cvCorvaneWebPlugin::handleEvent(void* event) {
    if (!_view || !_eventsEnabled) return 0;
    return _view->handleEvent(event);
}

int32_t cvCorvaneWebPlugin::receiveOnStream(NPStream* stream, int32_t offset, int32_t len, void* buffer) {
    if (!stream || !stream->url || _imageUrl != stream->url) return -1;
    if (offset < 0 || len < 0 || (len > 0 && !buffer)) return -1;
    int64_t end = static_cast<int64_t>(offset) + len;
    if (end > INT32_MAX) return -1;
    if (end == 0) return len;
    unsigned char* grown = static_cast<unsigned char*>(realloc(_imageData, static_cast<size_t>(end)));
    if (!grown) return -1;
    _imageData = grown;
    if (len > 0) memcpy(_imageData + offset, buffer, static_cast<size_t>(len));
    _imageSize = static_cast<int32_t>(end);
    return len;
}

bool cvCorvaneWebPlugin::setWindow(NPWindow* window, NPP npp) {
    if (!window) return true;
    if (_view) return _view->resize(window);
    _viewBrowser = std::make_unique<ViewBrowser>(npp);
    _view.reset(new cvCorvaneWebView());
    _view->init(window, _viewBrowser.get(), _transparent, _dropAllowDirectories, _dropAllowMultiple);
    _view->setDelegate(this);
    // Nothing else turns events on: they reach the view from its first
    // window on.
    _eventsEnabled = true;
    if (!_imageUrl.empty()) {
        NPError error = NPN_GetURLNotify(npp, _imageUrl.c_str(), nullptr, nullptr);
        if (error != NPERR_NO_ERROR) cv_log("WARNING: Unable to load image from URL: %s", _imageUrl.c_str());
    }
    return true;
}

// The file name and the URL are the format itself: a '%' in them is read
// as a conversion, as it always has been.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
void cvCorvaneWebPlugin::streamAsFile(NPStream*, const char* fileName) {
    if (fileName) cv_log(fileName);
}

void cvCorvaneWebPlugin::urlNotify(const char* url, NPReason) {
    if (url) cv_log(url);
}
#pragma GCC diagnostic pop

void* cvCorvaneWebPlugin::getBrowserWindow() const {
    void* window = nullptr;
    if (NPN_GetValue(_npp, NPNVnetscapeWindow, &window) != NPERR_NO_ERROR) return nullptr;
    return window;
}

// ---- Properties ----

bool cvCorvaneWebPlugin::getName(NPVariant* result) {
    const std::string& name = _core->name();
    CW_CharPtrToNPStringVariant(name.empty() ? nullptr : name.c_str(), result);
    return true;
}

bool cvCorvaneWebPlugin::setName(const NPVariant* value) {
    if (!NPVARIANT_IS_STRING(*value)) return false;
    _core->setName(textOf(*value));
    return true;
}

bool cvCorvaneWebPlugin::getDropObserver(NPVariant* result) {
    return returnObject(_dropObserver, result);
}

bool cvCorvaneWebPlugin::setDropObserver(const NPVariant* value) {
    if (_dropObserver) {
        NPN_ReleaseObject(_dropObserver);
        _dropObserver = nullptr;
        cv_log("Drop observer removed");
    }
    if (NPVARIANT_IS_OBJECT(*value)) {
        _dropObserver = NPVARIANT_TO_OBJECT(*value);
        NPN_RetainObject(_dropObserver);
        cv_log("Drop observer set");
    }
    return true;
}

bool cvCorvaneWebPlugin::getEventHandler(NPVariant* result) {
    return returnObject(_eventHandler, result);
}

bool cvCorvaneWebPlugin::setEventHandler(const NPVariant* value) {
    if (_eventHandler) {
        // The transfer-event handler keeps its target: transfer events go on
        // reaching this object until another one is set.
        NPN_ReleaseObject(_eventHandler);
        _eventHandler = nullptr;
        cv_log("Event handler removed");
    }
    if (NPVARIANT_IS_OBJECT(*value)) {
        _eventHandler = NPVARIANT_TO_OBJECT(*value);
        NPN_RetainObject(_eventHandler);
        if (_transferEventHandler) _transferEventHandler->setHandlerObject(_eventHandler);
        cv_log("Event handler set");
    }
    return true;
}

// ---- The view's delegate ----

void cvCorvaneWebPlugin::doDrop(std::vector<std::string> paths) {
    cv_dbg("cvCorvaneWebPlugin::doDrop()");
    PlugIn::addToApprovedFileList(paths);
    if (_dropMode == 1) {
        _core->uploadDroppedFiles(paths);
        return;
    }
    if (_dropMode != 2) return;

    // The page's handlers may remove the plug-in's element, which destroys
    // this instance under the call: nothing of it is touched afterwards.
    const std::shared_ptr<bool> alive = _alive;
    NPObject* observer = _dropObserver;
    NPIdentifier onDrop = NPN_GetStringIdentifier("onDrop");
    if (observer && NPN_HasMethod(_npp, observer, onDrop)) {
        const std::string joined = PathEscaper::toColonSeparatedStr(paths);
        NPVariant argument;
        CW_CharPtrToNPStringVariant(joined.empty() ? nullptr : joined.c_str(), &argument);
        NPVariant answer;
        VOID_TO_NPVARIANT(answer);
        // The page may replace its observer from inside the call, which
        // would drop our reference to the object being called.
        NPN_RetainObject(observer);
        NPN_Invoke(_npp, observer, onDrop, &argument, 1, &answer);
        if (!NPVARIANT_IS_STRING(answer)) NPN_ReleaseVariantValue(&answer);
        NPN_ReleaseObject(observer);
        NPN_ReleaseVariantValue(&argument);
        if (!*alive) return;
    }
    dropEvent(EventHandler::kEventTypeDrop, PathEscaper::toJsonStr(paths));
}

void cvCorvaneWebPlugin::doDropex(std::string json) {
    cv_dbg("cvCorvaneWebPlugin::doDropex()");
    dropEvent(EventHandler::kEventTypeDropex, json);
}

void cvCorvaneWebPlugin::doDragOver() {
    cv_dbg("cvCorvaneWebPlugin::doDragOver()");
    dropEvent(EventHandler::kEventTypeDragOver, "");
}

void cvCorvaneWebPlugin::doDragLeave() {
    cv_dbg("cvCorvaneWebPlugin::doDragLeave()");
    dropEvent(EventHandler::kEventTypeDragLeave, "");
}

void cvCorvaneWebPlugin::dropEvent(int type, const std::string& text) {
    if (_dropMode != 2 || !_eventHandler) return;
    EventHandler::handleEvent(_npp, _eventHandler, type, text);
}

// ---- Script methods ----

bool cvCorvaneWebPlugin::addToDownloadList(const NPVariant* args, uint32_t argCount, NPVariant* result) {
    cv_dbg("addToDownloadList(): argCount=%u", argCount);
    if (argCount != 1 || !isNonEmptyString(args[0])) return false;
    _core->addToDownloadList(textOf(args[0]));
    VOID_TO_NPVARIANT(*result);
    return true;
}

bool cvCorvaneWebPlugin::addToUploadList(const NPVariant* args, uint32_t argCount, NPVariant* result) {
    cv_dbg("addToUploadList(): argCount=%u", argCount);
    if (argCount != 1 || !isNonEmptyString(args[0])) return false;
    _core->addToUploadList(textOf(args[0]));
    VOID_TO_NPVARIANT(*result);
    return true;
}

bool cvCorvaneWebPlugin::clearDownloadList(const NPVariant*, uint32_t argCount, NPVariant* result) {
    cv_dbg("clearDownloadList(): argCount=%u", argCount);
    if (argCount != 0) return false;
    _core->clearDownloadList();
    VOID_TO_NPVARIANT(*result);
    return true;
}

bool cvCorvaneWebPlugin::clearUploadList(const NPVariant*, uint32_t argCount, NPVariant* result) {
    cv_dbg("clearUploadList(): argCount=%u", argCount);
    if (argCount != 0) return false;
    _core->clearUploadList();
    VOID_TO_NPVARIANT(*result);
    return true;
}

bool cvCorvaneWebPlugin::kestrixHttpRequest(const NPVariant* args, uint32_t argCount, NPVariant* result) {
    cv_dbg("kestrixHttpRequest(): argCount=%u", argCount);
    if (argCount < 3 || !isString(args[0]) || !isString(args[1]) || !isString(args[2])) return false;
    HttpResponse* response = nullptr;
    // The method and path go into the request line: the core refuses them
    // whole when they hold anything (a NUL too) that could end it.
    std::string error =
        _core->kestrixHttpRequest(bytesOf(args[0]), bytesOf(args[1]), textOf(args[2]), &response);
    std::unique_ptr<HttpResponse> owned(response);
    if (!error.empty())
        returnText(error, result);
    else
        returnText(owned ? owned->data() : std::string(), result);
    return true;
}

bool cvCorvaneWebPlugin::kestrixHttpRequestAsync(const NPVariant* args, uint32_t argCount,
                                                 NPVariant* result) {
    cv_dbg("kestrixHttpRequestAsync(): argCount=%u", argCount);
    if (argCount < 4 || !isString(args[0]) || !isString(args[1]) || !isString(args[2]) ||
        !NPVARIANT_IS_OBJECT(args[3]))
        return false;
    std::string method = bytesOf(args[0]);
    std::string path = bytesOf(args[1]);
    std::string data = textOf(args[2]);
    // The core owns the callback from here on, whatever it answers.
    std::string error = _core->kestrixHttpRequestAsync(
        method, path, data, new RequestCallback(_npp, NPVARIANT_TO_OBJECT(args[3])));
    if (error.empty())
        NULL_TO_NPVARIANT(*result);
    else
        returnText(error, result);
    return true;
}

bool cvCorvaneWebPlugin::displayAboutWindow(const NPVariant*, uint32_t argCount, NPVariant* result) {
    cv_dbg("displayAboutWindow(): argCount=%u", argCount);
    _core->displayAboutWindow();
    VOID_TO_NPVARIANT(*result);
    return true;
}

bool cvCorvaneWebPlugin::displayPreferencesWindow(const NPVariant*, uint32_t argCount, NPVariant* result) {
    cv_dbg("displayPreferencesWindow(): argCount=%u", argCount);
    _core->displayPreferencesWindow();
    VOID_TO_NPVARIANT(*result);
    return true;
}

bool cvCorvaneWebPlugin::displayTransferManager(const NPVariant*, uint32_t argCount, NPVariant* result) {
    cv_dbg("displayTransferManager(): argCount=%u", argCount);
    _core->displayTransferManager();
    VOID_TO_NPVARIANT(*result);
    return true;
}

bool cvCorvaneWebPlugin::handleDrop(const NPVariant* args, uint32_t argCount, NPVariant* result) {
    cv_dbg("handleDrop(): argCount=%u", argCount);
    if (argCount > 1 || (argCount == 1 && !NPVARIANT_IS_OBJECT(args[0]))) return false;
    if (!_view) return false;
    _view->handleDrop(argCount == 1 ? &args[0] : nullptr);
    VOID_TO_NPVARIANT(*result);
    return true;
}

bool cvCorvaneWebPlugin::initSession(const NPVariant* args, uint32_t argCount, NPVariant* result) {
    cv_dbg("initSession(): argCount=%u", argCount);
    if (argCount < 2 || !isString(args[0]) || !isString(args[1])) return false;
    std::string text;
    try {
        text = _core->initSession(textOf(args[0]), textOf(args[1]));
    } catch (const std::exception& e) {
        text = Json::createErrorAndLog(e, kErrorSessionInit);
    }
    returnText(text, result);
    return true;
}

bool cvCorvaneWebPlugin::queryBrowserEngine(const NPVariant*, uint32_t argCount, NPVariant* result) {
    cv_dbg("queryBrowserEngine(): argCount=%u", argCount);
    returnText(_core->queryBrowserEngine(kPlugInHostGecko), result);
    return true;
}

bool cvCorvaneWebPlugin::queryBuildVersion(const NPVariant*, uint32_t argCount, NPVariant* result) {
    cv_dbg("queryBuildVersion(): argCount=%u", argCount);
    returnText(_core->queryBuildVersion(), result);
    return true;
}

bool cvCorvaneWebPlugin::queryPluginVersion(const NPVariant*, uint32_t argCount, NPVariant* result) {
    cv_dbg("queryPluginVersion(): argCount=%u", argCount);
    returnText(_core->queryPluginVersion(), result);
    return true;
}

bool cvCorvaneWebPlugin::queryVersion(const NPVariant*, uint32_t argCount, NPVariant* result) {
    cv_dbg("queryVersion(): argCount=%u", argCount);
    returnText(_core->queryVersion(), result);
    return true;
}

bool cvCorvaneWebPlugin::queryKestrixVersion(const NPVariant*, uint32_t argCount, NPVariant* result) {
    cv_dbg("queryKestrixVersion(): argCount=%u", argCount);
    returnText(_core->queryKestrixVersion(), result);
    return true;
}

// ---- Panels ----
//
// Each panel is made with the browser's window as its parent, given the
// browser's name (which decides the time-out guard), and only then is this
// instance recorded as the last one to open a dialog.

std::vector<std::string> cvCorvaneWebPlugin::showModal(PanelDialog& dialog,
                                                       const std::shared_ptr<bool>& alive) {
    _modalDialog = &dialog;
    std::vector<std::string> paths;
    try {
        paths = dialog.show();
    } catch (...) {
        if (*alive) _modalDialog = nullptr;
        throw;
    }
    if (*alive) _modalDialog = nullptr;
    return paths;
}

bool cvCorvaneWebPlugin::runPanel(PanelKind_e kind, const std::function<PanelDialog*()>& make,
                                  NPVariant* result) {
    const std::shared_ptr<bool> alive = _alive;
    std::string text;
    const bool answered = runPanelCall(
        kind, *_core,
        [&]() {
            std::unique_ptr<PanelDialog> dialog(make());
            dialog->init(_core->hostBrowser());
            kLastDialogOpener = this;
            return dialog;
        },
        [&](PanelDialog& dialog) { return showModal(dialog, alive); }, alive, &text);
    if (!answered) return returnNoDialog(result);
    returnText(text, result);
    return true;
}

bool cvCorvaneWebPlugin::startPanel(PanelKind_e kind, const std::function<PanelDialog*()>& make,
                                    NPObject* pageCallback, NPVariant* result) {
    try {
        std::unique_ptr<PanelDialog> dialog(make());
        dialog->init(_core->hostBrowser());
        kLastDialogOpener = this;
        std::unique_ptr<DialogCallback> callback(new DialogCallback(pageCallback, _npp, kind));
        RunnableScheduler::scheduleRunnable(_oneShotManager.get(), dialog.get(), callback.get());
        dialog.release();
        callback.release();
        NULL_TO_NPVARIANT(*result);
    } catch (const std::exception& e) {
        returnText(Json::createErrorAndLog(e, panelErrorText(kind)), result);
    }
    return true;
}

bool cvCorvaneWebPlugin::runOpenFileDialog(const NPVariant* args, uint32_t argCount, NPVariant* result) {
    cv_dbg("runOpenFileDialog(): argCount=%u", argCount);
    if (Utils::isSaveDialogOpen(nullptr)) return returnNoDialog(result);
    if (argCount != 2 || !npvariantIsBoolean(args[0]) || !npvariantIsBoolean(args[1])) return false;
    const bool allowDirectories = booleanOf(args[0]);
    const bool allowMultiple = booleanOf(args[1]);
    return runPanel(
        kPanelOpenFile,
        [&]() {
            return new OpenFileDialog(getBrowserWindow(), "", allowDirectories, allowMultiple, "", false);
        },
        result);
}

bool cvCorvaneWebPlugin::runOpenFileDialogAsync(const NPVariant* args, uint32_t argCount, NPVariant* result) {
    cv_dbg("runOpenFileDialogAsync(): argCount=%u", argCount);
    if (Utils::isSaveDialogOpen(nullptr)) return returnDialogAlreadyOpen(result);
    if ((argCount != 4 && argCount != 5) || !isString(args[0]) || !npvariantIsBoolean(args[1]) ||
        !isString(args[2]) || !NPVARIANT_IS_OBJECT(args[3]) ||
        (argCount == 5 && !npvariantIsBoolean(args[4]))) {
        cv_err("runOpenFileDialogAsync() - invalid arguments");
        return false;
    }
    return startPanel(
        kPanelOpenFile,
        [&]() {
            return new OpenFileDialog(getBrowserWindow(), textOf(args[0]), false, booleanOf(args[1]),
                                      textOf(args[2]), argCount == 5 && booleanOf(args[4]));
        },
        NPVARIANT_TO_OBJECT(args[3]), result);
}

bool cvCorvaneWebPlugin::runOpenFolderDialog(const NPVariant* args, uint32_t argCount, NPVariant* result) {
    cv_dbg("runOpenFolderDialog(): argCount=%u", argCount);
    if (Utils::isSaveDialogOpen(nullptr)) return returnNoDialog(result);
    if (argCount != 1 || !npvariantIsBoolean(args[0])) return false;
    const bool allowMultiple = booleanOf(args[0]);
    return runPanel(
        kPanelOpenFolder,
        [&]() { return new OpenFolderDialog(getBrowserWindow(), "", allowMultiple, false); }, result);
}

bool cvCorvaneWebPlugin::runOpenFolderDialogAsync(const NPVariant* args, uint32_t argCount,
                                                  NPVariant* result) {
    cv_dbg("runOpenFolderDialogAsync(): argCount=%u", argCount);
    if (Utils::isSaveDialogOpen(nullptr)) return returnDialogAlreadyOpen(result);
    if ((argCount != 3 && argCount != 4) || !isString(args[0]) || !npvariantIsBoolean(args[1]) ||
        !NPVARIANT_IS_OBJECT(args[2]) || (argCount == 4 && !npvariantIsBoolean(args[3]))) {
        cv_err("runOpenFolderDialogAsync() - invalid arguments");
        return false;
    }
    return startPanel(
        kPanelOpenFolder,
        [&]() {
            return new OpenFolderDialog(getBrowserWindow(), textOf(args[0]), booleanOf(args[1]),
                                        argCount == 4 && booleanOf(args[3]));
        },
        NPVARIANT_TO_OBJECT(args[2]), result);
}

bool cvCorvaneWebPlugin::runSaveFileDialog(const NPVariant* args, uint32_t argCount, NPVariant* result) {
    cv_dbg("runSaveFileDialog(): argCount=%u", argCount);
    if (Utils::isSaveDialogOpen(nullptr)) return returnNoDialog(result);
    if (argCount != 1 || !isString(args[0])) return false;
    const std::string suggestedName = textOf(args[0]);
    return runPanel(
        kPanelSave, [&]() { return new SaveFileDialog(getBrowserWindow(), "", suggestedName, ""); }, result);
}

bool cvCorvaneWebPlugin::runSaveFileDialogAsync(const NPVariant* args, uint32_t argCount, NPVariant* result) {
    cv_dbg("runSaveFileDialogAsync(): argCount=%u", argCount);
    if (Utils::isSaveDialogOpen(nullptr)) return returnDialogAlreadyOpen(result);
    if (argCount != 4 || !isString(args[0]) || !isString(args[1]) || !isString(args[2]) ||
        !NPVARIANT_IS_OBJECT(args[3])) {
        cv_err("runSaveFileDialogAsync() - invalid arguments");
        return false;
    }
    return startPanel(
        kPanelSave,
        [&]() {
            return new SaveFileDialog(getBrowserWindow(), textOf(args[0]), textOf(args[1]), textOf(args[2]));
        },
        NPVARIANT_TO_OBJECT(args[3]), result);
}

bool cvCorvaneWebPlugin::startDownload(const NPVariant* args, uint32_t argCount, NPVariant* result) {
    cv_dbg("startDownload(): argCount=%u", argCount);
    if (argCount != 1 || !isNonEmptyString(args[0])) return false;
    _core->startDownload(textOf(args[0]));
    VOID_TO_NPVARIANT(*result);
    return true;
}

bool cvCorvaneWebPlugin::startDownloadToPath(const NPVariant* args, uint32_t argCount, NPVariant* result) {
    cv_dbg("startDownloadToPath(): argCount=%u", argCount);
    if (argCount != 2 || !isNonEmptyString(args[0]) || !isString(args[1])) return false;
    _core->startDownloadToPath(textOf(args[0]), textOf(args[1]));
    VOID_TO_NPVARIANT(*result);
    return true;
}

bool cvCorvaneWebPlugin::startUploadToURL(const NPVariant* args, uint32_t argCount, NPVariant* result) {
    cv_dbg("startUploadToURL(): argCount=%u", argCount);
    if (argCount != 2 || !isNonEmptyString(args[0]) || !isNonEmptyString(args[1])) return false;
    _core->startUploadToURL(textOf(args[0]), textOf(args[1]));
    VOID_TO_NPVARIANT(*result);
    return true;
}

bool cvCorvaneWebPlugin::startListDownloadToPath(const NPVariant* args, uint32_t argCount,
                                                 NPVariant* result) {
    cv_dbg("startListDownloadToPath(): argCount=%u", argCount);
    if (argCount != 1 || !isString(args[0])) return false;
    _core->startListDownloadToPath(textOf(args[0]));
    VOID_TO_NPVARIANT(*result);
    return true;
}

bool cvCorvaneWebPlugin::readAsArrayBuffer(const NPVariant* args, uint32_t argCount, NPVariant* result) {
    if (argCount != 1 || !isNonEmptyString(args[0])) {
        cv_err("readAsArrayBuffer() - invalid arguments");
        return false;
    }
    returnBrowserText(_core->readFileAsArrayBuffer(textOf(args[0]), kBrowserText), result);
    return true;
}

bool cvCorvaneWebPlugin::readChunkAsArrayBuffer(const NPVariant* args, uint32_t argCount, NPVariant* result) {
    if (argCount != 3 || !isNonEmptyString(args[0])) {
        cv_err("readChunkAsArrayBuffer() - invalid arguments");
        return false;
    }
    uint32_t offset = 0;
    uint32_t size = 0;
    if (!chunkNumber(args[1], &offset)) {
        cv_err("readChunkAsArrayBuffer() - offset value invalid");
        return false;
    }
    if (!chunkNumber(args[2], &size)) {
        cv_err("readChunkAsArrayBuffer() - chunk size invalid");
        return false;
    }
    returnBrowserText(_core->readFileChunkAsArrayBuffer(textOf(args[0]), offset, size, kBrowserText), result);
    return true;
}

bool cvCorvaneWebPlugin::startListUploadToURL(const NPVariant* args, uint32_t argCount, NPVariant* result) {
    cv_dbg("startListUploadToURL(): argCount=%u", argCount);
    if (argCount != 1 || !isNonEmptyString(args[0])) return false;
    _core->startListUploadToURL(textOf(args[0]));
    VOID_TO_NPVARIANT(*result);
    return true;
}

}  // namespace Web
}  // namespace Kestrix
