#include "HostSession.h"

#include <math.h>
#include <stdint.h>

#include <exception>
#include <map>
#include <vector>

#include "Callback.h"
#include "HttpResponse.h"
#include "Json.h"
#include "Messages.h"
#include "NativeMessaging.h"
#include "OneShotManager.h"
#include "OpenFileDialog.h"
#include "OpenFolderDialog.h"
#include "PageApi.h"
#include "PanelCall.h"
#include "PanelDialog.h"
#include "PathEscaper.h"
#include "PlugIn.h"
#include "RunnableScheduler.h"
#include "SaveFileDialog.h"
#include "TransferEventListener.h"
#include "TransfersPoller.h"
#include "Utils.h"
#include "cv_log.h"

namespace Kestrix {
namespace Web {

struct HostSession::Call {
    long long id;
    yajl_val args;  // an array
    size_t count() const { return args ? args->u.array.len : 0; }
    yajl_val operator[](size_t i) const { return args->u.array.values[i]; }
};

struct HostSession::Answer {
    enum Kind_e { kVoid, kNull, kText } kind = kVoid;
    std::string text;
    void setText(const std::string& value) {
        kind = kText;
        // The plug-in hands the page a C string: an answer ends at its
        // first NUL byte there, and so it does here.
        text = value.c_str();
    }
    void setNull() { kind = kNull; }
};

namespace {

// ---- Arguments, read the way the script glue reads NPAPI variants ----

bool isString(yajl_val v) {
    return YAJL_IS_STRING(v);
}

bool isNonEmptyString(yajl_val v) {
    return YAJL_IS_STRING(v) && *YAJL_GET_STRING(v) != '\0';
}

std::string textOf(yajl_val v) {
    return YAJL_GET_STRING(v);
}

bool isBooleanLike(yajl_val v) {
    if (YAJL_IS_TRUE(v) || YAJL_IS_FALSE(v)) return true;
    return isString(v) && (textOf(v) == "true" || textOf(v) == "false");
}

bool booleanOf(yajl_val v) {
    if (YAJL_IS_TRUE(v)) return true;
    return isString(v) && textOf(v) == "true";
}

// A page function, as the extension passes it: {"callback":K}.
bool callbackOf(yajl_val v, long long* id) {
    if (!YAJL_IS_OBJECT(v) || v->u.object.len != 1 || std::string(v->u.object.keys[0]) != "callback")
        return false;
    yajl_val k = v->u.object.values[0];
    if (!YAJL_IS_INTEGER(k)) return false;
    *id = YAJL_GET_INTEGER(k);
    return true;
}

// A chunk position: a whole number or not (chunkNumberOf).
bool chunkNumber(yajl_val v, uint32_t* number) {
    if (YAJL_IS_INTEGER(v)) {
        *number = chunkNumberOf(static_cast<int64_t>(YAJL_GET_INTEGER(v)));
    } else if (YAJL_IS_DOUBLE(v)) {
        *number = chunkNumberOf(YAJL_GET_DOUBLE(v));
    } else {
        return false;
    }
    return true;
}

std::string callbackMessage(long long id, const std::string& text) {
    return "{\"callback\":" + std::to_string(id) + ",\"text\":" + jsonQuote(text.c_str()) + "}";
}

// The answer of an asynchronous request, written from the request worker.
class RequestAnswer : public Callback {
public:
    RequestAnswer(MessageWriter& writer, long long id) : _writer(writer), _id(id) {}
    void handleCallback(void* subject) override {
        auto* response = static_cast<HttpResponse*>(subject);
        const std::string text = response ? response->data() : Json::createError(kErrorKestrixRequest);
        cv_dbg("RequestAnswer::handleCallback() - response=%s", text.c_str());
        _writer.send(callbackMessage(_id, text));
    }

private:
    MessageWriter& _writer;
    const long long _id;
};

// The end of an asynchronous panel, on the main thread: the same
// bookkeeping as the plug-in's, then the page's function.
class PanelAnswer : public Callback {
public:
    PanelAnswer(MessageWriter& writer, PlugIn& core, PanelKind_e kind, long long id)
        : _writer(writer), _core(core), _kind(kind), _id(id) {}
    void handleCallback(void* subject) override {
        auto* panel = static_cast<PanelDialog*>(subject);
        const std::string text = panel->resultStr();
        cv_dbg("PanelAnswer::handleCallback() - result=%lu resultStr=%s", panel->result(), text.c_str());
        if (panel->result() == 0) return;
        keepAsyncPanelChoice(_kind, &_core, panel->paths());
        _writer.send(callbackMessage(_id, text));
    }

private:
    MessageWriter& _writer;
    PlugIn& _core;
    const PanelKind_e _kind;
    const long long _id;
};

// Transfer activity, written from the poller's thread.
class TransferEvents : public TransferEventListener {
public:
    explicit TransferEvents(MessageWriter& writer) : _writer(writer) {}
    void transferEventOccurred(const std::string& json) override {
        _writer.send("{\"event\":\"transfer\",\"text\":" + jsonQuote(json.c_str()) + "}");
    }

private:
    MessageWriter& _writer;
};

std::string answerMessage(long long id, const HostSession::Answer& answer) {
    std::string message = "{\"id\":" + std::to_string(id);
    if (answer.kind == HostSession::Answer::kText)
        message += ",\"result\":" + jsonQuote(answer.text);
    else if (answer.kind == HostSession::Answer::kNull)
        message += ",\"result\":null";
    return message + "}";
}

std::string rejection(long long id, const std::string& reason) {
    return "{\"id\":" + std::to_string(id) + ",\"rejected\":" + jsonQuote(reason) + "}";
}
}  // namespace

const HostSession::Method* HostSession::findMethod(const std::string& name) {
    // Matched in this order, first match wins, as in the script object.
    static constexpr Method kMethods[] = {
        {"addToDownloadList", &HostSession::addToDownloadList},
        {"addToUploadList", &HostSession::addToUploadList},
        {"clearDownloadList", &HostSession::clearDownloadList},
        {"clearUploadList", &HostSession::clearUploadList},
        {"kestrixHttpRequest", &HostSession::kestrixHttpRequest},
        {"kestrixHttpRequestAsync", &HostSession::kestrixHttpRequestAsync},
        {"displayAboutWindow", &HostSession::displayAboutWindow},
        {"displayPreferencesWindow", &HostSession::displayPreferencesWindow},
        {"displayTransferManager", &HostSession::displayTransferManager},
        {"handleDrop", &HostSession::handleDrop},
        {"initSession", &HostSession::initSession},
        {"queryBrowserEngine", &HostSession::queryBrowserEngine},
        {"queryBuildVersion", &HostSession::queryBuildVersion},
        {"queryPluginVersion", &HostSession::queryPluginVersion},
        {"queryVersion", &HostSession::queryVersion},
        {"queryKestrixVersion", &HostSession::queryKestrixVersion},
        {"runOpenFileDialog", &HostSession::runOpenFileDialog},
        {"runOpenFileDialogAsync", &HostSession::runOpenFileDialogAsync},
        {"runOpenFolderDialog", &HostSession::runOpenFolderDialog},
        {"runOpenFolderDialogAsync", &HostSession::runOpenFolderDialogAsync},
        {"runSaveFileDialog", &HostSession::runSaveFileDialog},
        {"runSaveFileDialogAsync", &HostSession::runSaveFileDialogAsync},
        {"startDownload", &HostSession::startDownload},
        {"startDownloadToPath", &HostSession::startDownloadToPath},
        {"startUploadToURL", &HostSession::startUploadToURL},
        {"startListDownloadToPath", &HostSession::startListDownloadToPath},
        {"readAsArrayBuffer", &HostSession::readAsArrayBuffer},
        {"readChunkAsArrayBuffer", &HostSession::readChunkAsArrayBuffer},
        {"startListUploadToURL", &HostSession::startListUploadToURL},
    };
    static_assert(namesPageMethods(kMethods), "the host serves the page API's methods");
    for (const Method& method : kMethods)
        if (name == method.name) return &method;
    return nullptr;
}

HostSession::HostSession(MessageWriter& writer, const std::string& browserName, int launchTimeoutMs)
    : _writer(writer), _alive(std::make_shared<bool>(true)) {
    _core.reset(new PlugIn());
    _core->setHostBrowser(browserName);
    _core->init(launchTimeoutMs);
    std::map<std::string, std::string> noParameters;
    _core->configure(noParameters);
    _oneShotManager.reset(new OneShotManager());
    _transferEvents.reset(new TransferEvents(writer));
    _core->transfersPoller()->addListener(_transferEvents.get());
}

HostSession::~HostSession() {
    *_alive = false;
    try {
        _core->transfersPoller()->removeListener(_transferEvents.get());
        // Joins the request worker, then the poller: nothing writes for this
        // session after this.
        _core.reset();
        if (RunnableScheduler::isInitialized()) RunnableScheduler::stopRunnables(_oneShotManager.get());
        _oneShotManager.reset();
    } catch (const std::exception& e) {
        cv_err("Host session cleanup error: %s", e.what());
    }
}

std::string HostSession::hostnameOfOrigin(const std::string& origin) {
    std::string rest;
    if (origin.compare(0, 7, "http://") == 0)
        rest = origin.substr(7);
    else if (origin.compare(0, 8, "https://") == 0)
        rest = origin.substr(8);
    else
        return "";
    // An origin is scheme://host[:port] and nothing more.
    if (rest.find_first_of("/?#@\\ \r\n\t", 0) != std::string::npos || rest.find('\0') != std::string::npos)
        return "";
    std::string host = rest;
    if (!rest.empty() && rest[0] == '[') {
        const size_t close = rest.find(']');
        if (close == std::string::npos) return "";
        host = rest.substr(0, close + 1);
        if (close + 1 < rest.size() && rest[close + 1] != ':') return "";
    } else {
        host = rest.substr(0, rest.find(':'));
    }
    return host;
}

void HostSession::handleMessage(const std::string& text) {
    Json request;
    if (!request.parse(text) || !YAJL_IS_OBJECT(request.root())) {
        cv_err("Host: a request that is not a JSON object was dropped");
        return;
    }
    const char* idPath[] = {"id", nullptr};
    const char* methodPath[] = {"method", nullptr};
    const char* argsPath[] = {"args", nullptr};
    yajl_val id = request.get(idPath);
    yajl_val method = request.get(methodPath);
    yajl_val args = request.get(argsPath);
    if (!id || !YAJL_IS_INTEGER(id)) {
        cv_err("Host: a request without an id was dropped");
        return;
    }
    Call call{YAJL_GET_INTEGER(id), args};
    if (!method || !YAJL_IS_STRING(method) || (args && !YAJL_IS_ARRAY(args))) {
        _writer.send(rejection(call.id, "Malformed request"));
        return;
    }
    const std::string name = YAJL_GET_STRING(method);
    if (name == "@bind") {
        Answer answer;
        if (bind(call, answer))
            _writer.send(answerMessage(call.id, answer));
        else
            _writer.send(rejection(call.id, "The page's origin cannot be bound"));
        return;
    }
    const Method* entry = findMethod(name);
    if (!entry) {
        _writer.send(rejection(call.id, "No such method: " + name));
        return;
    }
    if (!_bound) {
        _writer.send(rejection(call.id, "The page's origin is not bound yet"));
        return;
    }

    // The writer outlives the session, which a synchronous panel's nested
    // main loop could see go.
    MessageWriter& writer = _writer;
    Answer answer;
    bool accepted;
    try {
        accepted = (this->*(entry->handler))(call, answer);
    } catch (const std::exception& e) {
        // As in the script dispatch: a failure is the page's answer, never
        // an exception in the page.
        accepted = true;
        answer.setText(Json::createErrorAndLog(e));
    }
    if (!accepted)
        writer.send(rejection(call.id, "Invalid arguments for " + name));
    else
        writer.send(answerMessage(call.id, answer));
}

bool HostSession::bind(const Call& call, Answer& answer) {
    if (_bound || call.count() != 1 || !isString(call[0])) return false;
    const std::string host = hostnameOfOrigin(textOf(call[0]));
    if (host.empty()) return false;
    _core->setPageHostname(host);
    _bound = true;
    cv_log("Hostname: %s", host.c_str());
    answer.setText(host);
    return true;
}

// ---- The page's methods: the plug-in's argument rules and answers ----

bool HostSession::addToDownloadList(const Call& call, Answer&) {
    if (call.count() != 1 || !isNonEmptyString(call[0])) return false;
    _core->addToDownloadList(textOf(call[0]));
    return true;
}

bool HostSession::addToUploadList(const Call& call, Answer&) {
    if (call.count() != 1 || !isNonEmptyString(call[0])) return false;
    _core->addToUploadList(textOf(call[0]));
    return true;
}

bool HostSession::clearDownloadList(const Call& call, Answer&) {
    if (call.count() != 0) return false;
    _core->clearDownloadList();
    return true;
}

bool HostSession::clearUploadList(const Call& call, Answer&) {
    if (call.count() != 0) return false;
    _core->clearUploadList();
    return true;
}

bool HostSession::kestrixHttpRequest(const Call& call, Answer& answer) {
    if (call.count() < 3 || !isString(call[0]) || !isString(call[1]) || !isString(call[2])) return false;
    HttpResponse* response = nullptr;
    const std::string error =
        _core->kestrixHttpRequest(textOf(call[0]), textOf(call[1]), textOf(call[2]), &response);
    std::unique_ptr<HttpResponse> owned(response);
    answer.setText(!error.empty() ? error : owned ? owned->data() : std::string());
    return true;
}

bool HostSession::kestrixHttpRequestAsync(const Call& call, Answer& answer) {
    long long callback = 0;
    if (call.count() < 4 || !isString(call[0]) || !isString(call[1]) || !isString(call[2]) ||
        !callbackOf(call[3], &callback))
        return false;
    const std::string error = _core->kestrixHttpRequestAsync(
        textOf(call[0]), textOf(call[1]), textOf(call[2]), new RequestAnswer(_writer, callback));
    if (error.empty())
        answer.setNull();
    else
        answer.setText(error);
    return true;
}

bool HostSession::displayAboutWindow(const Call&, Answer&) {
    _core->displayAboutWindow();
    return true;
}

bool HostSession::displayPreferencesWindow(const Call&, Answer&) {
    _core->displayPreferencesWindow();
    return true;
}

bool HostSession::displayTransferManager(const Call&, Answer&) {
    _core->displayTransferManager();
    return true;
}

bool HostSession::handleDrop(const Call&, Answer& answer) {
    // A drop in today's browsers carries no file paths, so there is nothing
    // to approve or hand on.
    answer.setText(Json::createError(kErrorDropUnavailable));
    return true;
}

bool HostSession::initSession(const Call& call, Answer& answer) {
    if (call.count() < 2 || !isString(call[0]) || !isString(call[1])) return false;
    try {
        answer.setText(_core->initSession(textOf(call[0]), textOf(call[1])));
    } catch (const std::exception& e) {
        answer.setText(Json::createErrorAndLog(e, kErrorSessionInit));
    }
    return true;
}

bool HostSession::queryBrowserEngine(const Call&, Answer& answer) {
    // The same answer as the plug-in gives.
    answer.setText(_core->queryBrowserEngine(kPlugInHostGecko));
    return true;
}

bool HostSession::queryBuildVersion(const Call&, Answer& answer) {
    answer.setText(_core->queryBuildVersion());
    return true;
}

bool HostSession::queryPluginVersion(const Call&, Answer& answer) {
    answer.setText(_core->queryPluginVersion());
    return true;
}

bool HostSession::queryVersion(const Call&, Answer& answer) {
    answer.setText(_core->queryVersion());
    return true;
}

bool HostSession::queryKestrixVersion(const Call&, Answer& answer) {
    answer.setText(_core->queryKestrixVersion());
    return true;
}

// ---- Panels: no parent window (the host has none to offer) ----

namespace {
// A synchronous panel, shown without modality: the host has no window of
// the browser's to be modal to. `alive` is a copy: the session may go
// while the panel shows.
bool runHostPanel(PanelKind_e kind, PlugIn& core, const std::function<PanelDialog*()>& make,
                  const std::shared_ptr<bool> alive, HostSession::Answer& answer) {
    std::string text;
    runPanelCall(
        kind, core,
        [&]() {
            std::unique_ptr<PanelDialog> dialog(make());
            dialog->init(core.hostBrowser());
            return dialog;
        },
        [](PanelDialog& dialog) { return dialog.showWithoutModality(); }, alive, &text);
    answer.setText(text);
    return true;
}
}  // namespace

bool HostSession::runOpenFileDialog(const Call& call, Answer& answer) {
    if (Utils::isSaveDialogOpen(nullptr)) return answer.setText(""), true;
    if (call.count() != 2 || !isBooleanLike(call[0]) || !isBooleanLike(call[1])) return false;
    return runHostPanel(
        kPanelOpenFile, *_core,
        [&]() { return new OpenFileDialog(nullptr, "", booleanOf(call[0]), booleanOf(call[1]), "", false); },
        _alive, answer);
}

bool HostSession::runOpenFolderDialog(const Call& call, Answer& answer) {
    if (Utils::isSaveDialogOpen(nullptr)) return answer.setText(""), true;
    if (call.count() != 1 || !isBooleanLike(call[0])) return false;
    return runHostPanel(
        kPanelOpenFolder, *_core,
        [&]() { return new OpenFolderDialog(nullptr, "", booleanOf(call[0]), false); }, _alive, answer);
}

bool HostSession::runSaveFileDialog(const Call& call, Answer& answer) {
    if (Utils::isSaveDialogOpen(nullptr)) return answer.setText(""), true;
    if (call.count() != 1 || !isString(call[0])) return false;
    return runHostPanel(
        kPanelSave, *_core, [&]() { return new SaveFileDialog(nullptr, "", textOf(call[0]), ""); }, _alive,
        answer);
}

namespace {
// Shows `dialog` in a later main-loop turn; its end reaches the page's function.
template <typename Dialog>
void schedulePanel(OneShotManager* osm, std::unique_ptr<Dialog> dialog, std::unique_ptr<Callback> answer,
                   const std::string& hostBrowser, HostSession::Answer& result) {
    dialog->init(hostBrowser);
    RunnableScheduler::scheduleRunnable(osm, dialog.get(), answer.get());
    dialog.release();
    answer.release();
    result.setNull();
}
}  // namespace

bool HostSession::runOpenFileDialogAsync(const Call& call, Answer& answer) {
    if (Utils::isSaveDialogOpen(nullptr))
        return answer.setText(Json::createError(kErrorDialogAlreadyOpen)), true;
    long long callback = 0;
    const size_t n = call.count();
    if ((n != 4 && n != 5) || !isString(call[0]) || !isBooleanLike(call[1]) || !isString(call[2]) ||
        !callbackOf(call[3], &callback) || (n == 5 && !isBooleanLike(call[4]))) {
        cv_err("runOpenFileDialogAsync() - invalid arguments");
        return false;
    }
    try {
        schedulePanel(_oneShotManager.get(),
                      std::unique_ptr<OpenFileDialog>(new OpenFileDialog(nullptr, textOf(call[0]), false,
                                                                         booleanOf(call[1]), textOf(call[2]),
                                                                         n == 5 && booleanOf(call[4]))),
                      std::unique_ptr<Callback>(new PanelAnswer(_writer, *_core, kPanelOpenFile, callback)),
                      _core->hostBrowser(), answer);
    } catch (const std::exception& e) {
        answer.setText(Json::createErrorAndLog(e, panelErrorText(kPanelOpenFile)));
    }
    return true;
}

bool HostSession::runOpenFolderDialogAsync(const Call& call, Answer& answer) {
    if (Utils::isSaveDialogOpen(nullptr))
        return answer.setText(Json::createError(kErrorDialogAlreadyOpen)), true;
    long long callback = 0;
    const size_t n = call.count();
    if ((n != 3 && n != 4) || !isString(call[0]) || !isBooleanLike(call[1]) ||
        !callbackOf(call[2], &callback) || (n == 4 && !isBooleanLike(call[3]))) {
        cv_err("runOpenFolderDialogAsync() - invalid arguments");
        return false;
    }
    try {
        schedulePanel(_oneShotManager.get(),
                      std::unique_ptr<OpenFolderDialog>(new OpenFolderDialog(
                          nullptr, textOf(call[0]), booleanOf(call[1]), n == 4 && booleanOf(call[3]))),
                      std::unique_ptr<Callback>(new PanelAnswer(_writer, *_core, kPanelOpenFolder, callback)),
                      _core->hostBrowser(), answer);
    } catch (const std::exception& e) {
        answer.setText(Json::createErrorAndLog(e, panelErrorText(kPanelOpenFolder)));
    }
    return true;
}

bool HostSession::runSaveFileDialogAsync(const Call& call, Answer& answer) {
    if (Utils::isSaveDialogOpen(nullptr))
        return answer.setText(Json::createError(kErrorDialogAlreadyOpen)), true;
    long long callback = 0;
    if (call.count() != 4 || !isString(call[0]) || !isString(call[1]) || !isString(call[2]) ||
        !callbackOf(call[3], &callback)) {
        cv_err("runSaveFileDialogAsync() - invalid arguments");
        return false;
    }
    try {
        schedulePanel(_oneShotManager.get(),
                      std::unique_ptr<SaveFileDialog>(
                          new SaveFileDialog(nullptr, textOf(call[0]), textOf(call[1]), textOf(call[2]))),
                      std::unique_ptr<Callback>(new PanelAnswer(_writer, *_core, kPanelSave, callback)),
                      _core->hostBrowser(), answer);
    } catch (const std::exception& e) {
        answer.setText(Json::createErrorAndLog(e, panelErrorText(kPanelSave)));
    }
    return true;
}

// ---- Transfers and reads ----

bool HostSession::startDownload(const Call& call, Answer&) {
    if (call.count() != 1 || !isNonEmptyString(call[0])) return false;
    _core->startDownload(textOf(call[0]));
    return true;
}

bool HostSession::startDownloadToPath(const Call& call, Answer&) {
    if (call.count() != 2 || !isNonEmptyString(call[0]) || !isString(call[1])) return false;
    _core->startDownloadToPath(textOf(call[0]), textOf(call[1]));
    return true;
}

bool HostSession::startUploadToURL(const Call& call, Answer&) {
    if (call.count() != 2 || !isNonEmptyString(call[0]) || !isNonEmptyString(call[1])) return false;
    _core->startUploadToURL(textOf(call[0]), textOf(call[1]));
    return true;
}

bool HostSession::startListDownloadToPath(const Call& call, Answer&) {
    if (call.count() != 1 || !isString(call[0])) return false;
    _core->startListDownloadToPath(textOf(call[0]));
    return true;
}

bool HostSession::readAsArrayBuffer(const Call& call, Answer& answer) {
    if (call.count() != 1 || !isNonEmptyString(call[0])) {
        cv_err("readAsArrayBuffer() - invalid arguments");
        return false;
    }
    answer.setText(_core->readFileAsArrayBuffer(textOf(call[0])));
    return true;
}

bool HostSession::readChunkAsArrayBuffer(const Call& call, Answer& answer) {
    if (call.count() != 3 || !isNonEmptyString(call[0])) {
        cv_err("readChunkAsArrayBuffer() - invalid arguments");
        return false;
    }
    uint32_t offset = 0;
    uint32_t size = 0;
    if (!chunkNumber(call[1], &offset)) {
        cv_err("readChunkAsArrayBuffer() - offset value invalid");
        return false;
    }
    if (!chunkNumber(call[2], &size)) {
        cv_err("readChunkAsArrayBuffer() - chunk size invalid");
        return false;
    }
    answer.setText(_core->readFileChunkAsArrayBuffer(textOf(call[0]), offset, size));
    return true;
}

bool HostSession::startListUploadToURL(const Call& call, Answer&) {
    if (call.count() != 1 || !isNonEmptyString(call[0])) return false;
    _core->startListUploadToURL(textOf(call[0]));
    return true;
}

}  // namespace Web
}  // namespace Kestrix
