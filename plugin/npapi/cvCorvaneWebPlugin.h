// One plug-in instance: what an embed element of our MIME type becomes.
//
// It reads the element's parameters, owns the core (PlugIn), the callback
// queue (OneShotManager), the transfer-event handler and, from the first
// window on, the view; keeps the page objects set as properties, loads the
// optional button image through a browser stream for the view, and carries
// the methods that pages call through the scriptable object
// (ScriptObject.h). As the view's delegate it tells the page about drops.
//
// Threads: everything here runs on the browser's main thread, except
// oneShotManager(), which CW_ScheduleAsyncCallback (BrowserFuncs.cpp)
// reads from worker threads to queue work for the main thread. The queue
// is created before the page can start any work and deleted only after
// the core has joined its threads.
#pragma once

#include <stdint.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "PanelCall.h"
#include "cvICorvaneWebViewDelegate.h"
#include "npfunctions.h"

namespace Kestrix {
namespace Web {

class OneShotManager;
class PanelDialog;
class PlugIn;
class TransferEventHandler;
class ViewBrowser;
class cvCorvaneWebView;

class cvCorvaneWebPlugin : public cvICorvaneWebViewDelegate {
public:
    using Parameters = std::map<std::string, std::string>;

    // The instance that most recently opened a dialog (set once the dialog
    // exists and before it shows or is scheduled); for the dialog code.
    // Main thread only. Cleared when that instance goes.
    static cvCorvaneWebPlugin* kLastDialogOpener;

    // Element attribute values that a missing attribute reads as: the map
    // gains the key with an empty value. Throws what the core throws.
    cvCorvaneWebPlugin(NPP npp, Parameters& parameters);
    cvCorvaneWebPlugin(const cvCorvaneWebPlugin&) = delete;
    cvCorvaneWebPlugin& operator=(const cvCorvaneWebPlugin&) = delete;

    // ---- The view's delegate ----
    // Dropped paths: approved in every drop mode; then uploaded to
    // "drop-upload-url" ("upload"), or reported to the page's drop
    // observer and event handler ("callback").
    void doDrop(std::vector<std::string> paths) override;
    // The rest reach the page's event handler in "callback" mode only.
    void doDropex(std::string json) override;
    void doDragOver() override;
    void doDragLeave() override;

    ~cvCorvaneWebPlugin() override;

    // ---- What the entry points reach ----
    // The scriptable object (the caller adds its own reference).
    virtual NPObject* objectForWebScript();
    virtual void createStream(NPMIMEType type, NPStream* stream, NPBool seekable, uint16_t* stype);
    // The image stream's end hands what arrived to the view.
    virtual void destroyStream(NPStream* stream, NPReason reason);
    // The view's answer once there is a view and events are enabled; else 0.
    virtual int16_t handleEvent(void* event);
    // Bytes of the image stream are kept; any other stream is refused (-1).
    virtual int32_t receiveOnStream(NPStream* stream, int32_t offset, int32_t len, void* buffer);
    // The first window makes the view (and requests the image); later
    // ones resize it. A null window is ignored.
    virtual bool setWindow(NPWindow* window, NPP npp);
    void streamAsFile(NPStream* stream, const char* fileName);
    void urlNotify(const char* url, NPReason reason);

    // ---- Properties ----
    bool getName(NPVariant* result);
    bool setName(const NPVariant* value);
    bool getDropObserver(NPVariant* result);
    bool setDropObserver(const NPVariant* value);
    bool getEventHandler(NPVariant* result);
    bool setEventHandler(const NPVariant* value);

    // ---- Script methods ----
    // Each answers false when the page's arguments do not fit (the browser
    // then raises a script error); otherwise it fills *result and answers
    // true.
    bool addToDownloadList(const NPVariant* args, uint32_t argCount, NPVariant* result);
    bool addToUploadList(const NPVariant* args, uint32_t argCount, NPVariant* result);
    bool clearDownloadList(const NPVariant* args, uint32_t argCount, NPVariant* result);
    bool clearUploadList(const NPVariant* args, uint32_t argCount, NPVariant* result);
    bool kestrixHttpRequest(const NPVariant* args, uint32_t argCount, NPVariant* result);
    bool kestrixHttpRequestAsync(const NPVariant* args, uint32_t argCount, NPVariant* result);
    bool displayAboutWindow(const NPVariant* args, uint32_t argCount, NPVariant* result);
    bool displayPreferencesWindow(const NPVariant* args, uint32_t argCount, NPVariant* result);
    bool displayTransferManager(const NPVariant* args, uint32_t argCount, NPVariant* result);
    bool handleDrop(const NPVariant* args, uint32_t argCount, NPVariant* result);
    bool initSession(const NPVariant* args, uint32_t argCount, NPVariant* result);
    bool queryBrowserEngine(const NPVariant* args, uint32_t argCount, NPVariant* result);
    bool queryBuildVersion(const NPVariant* args, uint32_t argCount, NPVariant* result);
    bool queryPluginVersion(const NPVariant* args, uint32_t argCount, NPVariant* result);
    bool queryVersion(const NPVariant* args, uint32_t argCount, NPVariant* result);
    bool queryKestrixVersion(const NPVariant* args, uint32_t argCount, NPVariant* result);
    // The panels. The synchronous forms show the panel inside the page's
    // call and answer the chosen paths; the asynchronous forms answer null
    // at once and call the page's callback when the panel has ended. While
    // any panel shows, the synchronous forms answer an empty string and
    // the asynchronous ones the "A dialog is already open" error document.
    bool runOpenFileDialog(const NPVariant* args, uint32_t argCount, NPVariant* result);
    bool runOpenFileDialogAsync(const NPVariant* args, uint32_t argCount, NPVariant* result);
    bool runOpenFolderDialog(const NPVariant* args, uint32_t argCount, NPVariant* result);
    bool runOpenFolderDialogAsync(const NPVariant* args, uint32_t argCount, NPVariant* result);
    bool runSaveFileDialog(const NPVariant* args, uint32_t argCount, NPVariant* result);
    bool runSaveFileDialogAsync(const NPVariant* args, uint32_t argCount, NPVariant* result);
    bool startDownload(const NPVariant* args, uint32_t argCount, NPVariant* result);
    bool startDownloadToPath(const NPVariant* args, uint32_t argCount, NPVariant* result);
    bool startUploadToURL(const NPVariant* args, uint32_t argCount, NPVariant* result);
    bool startListDownloadToPath(const NPVariant* args, uint32_t argCount, NPVariant* result);
    bool readAsArrayBuffer(const NPVariant* args, uint32_t argCount, NPVariant* result);
    bool readChunkAsArrayBuffer(const NPVariant* args, uint32_t argCount, NPVariant* result);
    bool startListUploadToURL(const NPVariant* args, uint32_t argCount, NPVariant* result);

    // ---- State ----
    NPP npp() const { return _npp; }
    PlugIn* core() const { return _core.get(); }
    // The instance's callback queue; safe to call from any thread while the
    // instance lives (see the note at the top).
    OneShotManager* oneShotManager() const { return _oneShotManager.get(); }
    TransferEventHandler* transferEventHandler() const { return _transferEventHandler.get(); }
    int launchTimeoutMs() const { return _launchTimeoutMs; }
    bool transparent() const { return _transparent; }
    const std::string& imageUrl() const { return _imageUrl; }
    // 0 none, 1 "upload", 2 "callback".
    int32_t dropMode() const { return _dropMode; }
    bool dropAllowDirectories() const { return _dropAllowDirectories; }
    bool dropAllowMultiple() const { return _dropAllowMultiple; }
    NPObject* dropObserver() const { return _dropObserver; }
    NPObject* eventHandler() const { return _eventHandler; }
    // Null until the first window.
    cvCorvaneWebView* view() const { return _view.get(); }
    bool eventsEnabled() const { return _eventsEnabled; }
    // The image received so far (null once the stream has ended).
    const unsigned char* imageData() const { return _imageData; }
    int32_t imageSize() const { return _imageSize; }
    // The browser's own top-level window, the parent for dialogs; null when
    // the browser does not say.
    void* getBrowserWindow() const;

private:
    // Shows `dialog` inside a synchronous page call. The instance may be
    // destroyed meanwhile (`alive` tells): it then closes the panel itself.
    std::vector<std::string> showModal(PanelDialog& dialog, const std::shared_ptr<bool>& alive);
    // The two shapes of the page's panel calls; `make` makes the panel.
    // A synchronous one answers with the choice once the panel has ended.
    bool runPanel(PanelKind_e kind, const std::function<PanelDialog*()>& make, NPVariant* result);
    // An asynchronous one answers null now and the page's `pageCallback`
    // once the panel has ended.
    bool startPanel(PanelKind_e kind, const std::function<PanelDialog*()>& make, NPObject* pageCallback,
                    NPVariant* result);
    // Reports the page's event `type` (EventHandler::EventType_e) in
    // "callback" drop mode when an event handler is set.
    void dropEvent(int type, const std::string& text);

    NPP _npp;
    std::unique_ptr<PlugIn> _core;
    std::unique_ptr<OneShotManager> _oneShotManager;
    std::unique_ptr<TransferEventHandler> _transferEventHandler;
    std::string _imageUrl;
    int32_t _dropMode = 0;
    bool _dropAllowDirectories = false;
    bool _dropAllowMultiple = false;
    // The view's way to the browser; outlives the view.
    std::unique_ptr<ViewBrowser> _viewBrowser;
    std::unique_ptr<cvCorvaneWebView> _view;
    unsigned char* _imageData = nullptr;
    int32_t _imageSize = 0;
    NPClass* _scriptClass = nullptr;
    NPObject* _scriptObject = nullptr;
    // Whether browser events reach the view; turned on with the view.
    bool _eventsEnabled = false;
    NPObject* _dropObserver = nullptr;
    NPObject* _eventHandler = nullptr;
    bool _transparent = false;
    int _launchTimeoutMs = 0;
    // False once the instance has gone. A synchronous panel or a drop calls
    // out (a nested loop, the page's own handlers) inside the page's call,
    // and the instance may be destroyed meanwhile: the call then finds out
    // here and touches nothing of the instance afterwards.
    std::shared_ptr<bool> _alive;
    // The panel of a synchronous call while it shows, closed (without the
    // time-out alert) if the instance goes first.
    PanelDialog* _modalDialog = nullptr;
};

}  // namespace Web
}  // namespace Kestrix
