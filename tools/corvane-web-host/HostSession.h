// One connected page frame, as the native-messaging host serves it: the
// same core (PlugIn) and callback queue that a plug-in instance owns, with
// the page's 29 methods reached by name from JSON requests instead of
// through an NPAPI script object.
//
// Requests are {"id":N,"method":NAME,"args":[...]} and each gets exactly
// one answer: {"id":N,"result":TEXT} (a string), {"id":N,"result":null},
// {"id":N} (no value), or {"id":N,"rejected":REASON} where the plug-in
// would have made the browser raise a script error (wrong arguments).
// A page function passed as an argument arrives as {"callback":K}; when
// it is due it is called with {"callback":K,"text":TEXT}. Transfer
// activity is pushed as {"event":"transfer","text":TEXT}.
//
// The page never names its own origin: the extension sends
// {"id":N,"method":"@bind","args":[ORIGIN]} first, and the session's host
// check (initSession with a "^host" application id) runs against the host
// name of that origin. Nothing else is served before it.
//
// Threads: handleMessage runs on the main thread (the GLib default
// context); request callbacks and transfer events are written from the
// worker and poller threads through the thread-safe writer.
#pragma once

#include <yajl/yajl_tree.h>

#include <memory>
#include <string>

namespace Kestrix {
namespace Web {

class MessageWriter;
class OneShotManager;
class PlugIn;
class TransferEventListener;

class HostSession {
public:
    // browserName: what the core takes for the host browser ("chrome",
    // "firefox"); it decides the panels' time-out guard.
    HostSession(MessageWriter& writer, const std::string& browserName, int launchTimeoutMs);
    // Stops the workers and any panel waiting for its turn; answers nothing more.
    ~HostSession();
    HostSession(const HostSession&) = delete;
    HostSession& operator=(const HostSession&) = delete;

    void handleMessage(const std::string& text);

    // The host name a page origin binds to ("" when the origin is not an
    // http or https origin with a host).
    static std::string hostnameOfOrigin(const std::string& origin);

    struct Call;
    struct Answer;
    using Handler = bool (HostSession::*)(const Call&, Answer&);
    struct Method {
        const char* name;
        Handler handler;
    };

private:
    bool bind(const Call&, Answer&);
    bool addToDownloadList(const Call&, Answer&);
    bool addToUploadList(const Call&, Answer&);
    bool clearDownloadList(const Call&, Answer&);
    bool clearUploadList(const Call&, Answer&);
    bool kestrixHttpRequest(const Call&, Answer&);
    bool kestrixHttpRequestAsync(const Call&, Answer&);
    bool displayAboutWindow(const Call&, Answer&);
    bool displayPreferencesWindow(const Call&, Answer&);
    bool displayTransferManager(const Call&, Answer&);
    bool handleDrop(const Call&, Answer&);
    bool initSession(const Call&, Answer&);
    bool queryBrowserEngine(const Call&, Answer&);
    bool queryBuildVersion(const Call&, Answer&);
    bool queryPluginVersion(const Call&, Answer&);
    bool queryVersion(const Call&, Answer&);
    bool queryKestrixVersion(const Call&, Answer&);
    bool runOpenFileDialog(const Call&, Answer&);
    bool runOpenFileDialogAsync(const Call&, Answer&);
    bool runOpenFolderDialog(const Call&, Answer&);
    bool runOpenFolderDialogAsync(const Call&, Answer&);
    bool runSaveFileDialog(const Call&, Answer&);
    bool runSaveFileDialogAsync(const Call&, Answer&);
    bool startDownload(const Call&, Answer&);
    bool startDownloadToPath(const Call&, Answer&);
    bool startUploadToURL(const Call&, Answer&);
    bool startListDownloadToPath(const Call&, Answer&);
    bool readAsArrayBuffer(const Call&, Answer&);
    bool readChunkAsArrayBuffer(const Call&, Answer&);
    bool startListUploadToURL(const Call&, Answer&);

    // The page method called `name`, or null.
    static const Method* findMethod(const std::string& name);

    MessageWriter& _writer;
    std::unique_ptr<PlugIn> _core;
    std::unique_ptr<OneShotManager> _oneShotManager;
    std::unique_ptr<TransferEventListener> _transferEvents;
    bool _bound = false;
    // False once the session has gone: a synchronous panel runs a nested
    // main loop, and the input may end meanwhile.
    std::shared_ptr<bool> _alive;
};

}  // namespace Web
}  // namespace Kestrix
