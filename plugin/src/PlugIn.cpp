#include "PlugIn.h"

#include <ctype.h>
#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>

#include <atomic>
#include <exception>
#include <initializer_list>
#include <new>

#include "AboutWindow.h"
#include "HttpRequest.h"
#include "HttpResponse.h"
#include "Json.h"
#include "KestrixApp.h"
#include "Messages.h"
#include "PathEscaper.h"
#include "PreferencesWindow.h"
#include "RequestWorker.h"
#include "Transfer.h"
#include "TransferManagerWindow.h"
#include "TransfersPoller.h"
#include "Utils.h"
#include "cv_file.h"
#include "cv_log.h"
#include "cv_sock.h"
#include "cv_str.h"

namespace Kestrix {
namespace Web {

namespace {

const char* const kPluginVersion = "3.5.2.94907";
const char* const kShortVersion = "3.5";

std::atomic<int> pollIntervalMs{TransfersPoller::kDefaultIntervalMs};

std::string withForwardSlashes(const std::string& path) {
    return PathEscaper::strReplace(path, "\\", "/");
}

// The approved list stores paths with forward slashes and without one
// trailing "/". An empty path has no last byte: at() throws, and the
// script layer turns that into the error document.
std::string normaliseApprovedPath(const std::string& path) {
    std::string p = withForwardSlashes(path);
    if (p.at(p.size() - 1) == '/') p.erase(p.size() - 1, 1);
    return p;
}

// "" when the page's method and path may go into a request line, else the
// error document naming the one that may not.
std::string requestLineError(const std::string& method, const std::string& path) {
    if (!PlugIn::isRequestMethodValid(method)) return Json::createError(kErrorInvalidArgument + ": method");
    if (!PlugIn::isRequestPathValid(path)) return Json::createError(kErrorInvalidArgument + ": path");
    return "";
}

}  // namespace

std::set<std::string> PlugIn::pathsSelectedByUser;

bool PlugIn::isRequestMethodValid(const std::string& method) {
    // RFC 9110 tchar, in ASCII whatever the locale.
    static const std::string kSymbols = "!#$%&'*+-.^_`|~";
    if (method.empty()) return false;
    for (char c : method) {
        bool letterOrDigit = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
        if (!letterOrDigit && kSymbols.find(c) == std::string::npos) return false;
    }
    return true;
}

bool PlugIn::isRequestPathValid(const std::string& path) {
    for (char c : path) {
        unsigned char byte = static_cast<unsigned char>(c);
        if (byte <= 0x20 || byte == 0x7F) return false;
    }
    return true;
}

void PlugIn::setTransfersPollIntervalMs(int intervalMs) {
    pollIntervalMs.store(intervalMs);
}

int PlugIn::transfersPollIntervalMs() {
    return pollIntervalMs.load();
}

PlugIn::PlugIn() {
    cv_dbg("Plugin() [%p]", static_cast<void*>(this));
    int code = cv_sock_init();
    if (code != 0) {
        std::string message =
            "Failed to initialize socket: " + Utils::errorCodeToStr(code) + " (" + std::to_string(code) + ")";
        cv_err("%s", message.c_str());
    }
    _requestWorker.reset(new RequestWorker());
    _transfersPoller.reset(new TransfersPoller(pollIntervalMs.load()));
    Utils::setCurrentDirToUserHome();
    cv_dbg("Plugin() - done");
}

PlugIn::~PlugIn() {
    cv_dbg("~Plugin() [%p]", static_cast<void*>(this));
    // The request worker goes first: a request in flight may still hand an
    // answer to the page, the poller only reports activity.
    if (_requestWorker) {
        _requestWorker->stop();
        try {
            _requestWorker->join();
        } catch (const std::exception& e) {
            cv_err("Error joining request worker thread: %s", e.what());
        }
        _requestWorker.reset();
    }
    if (_transfersPoller) {
        _transfersPoller->stop();
        try {
            _transfersPoller->join();
        } catch (const std::exception& e) {
            cv_err("Error joining transfer poller thread: %s", e.what());
        }
        _transfersPoller.reset();
    }
    cv_sock_fini();
    cv_dbg("~Plugin() - done");
}

int PlugIn::init(int launchTimeoutMs) {
    cv_dbg("PlugIn::init() - launchTimeoutMs=%d", launchTimeoutMs);
    KestrixApp::setLaunchTimeoutMs(launchTimeoutMs);
    KestrixApp::launch();
    return _requestWorker->start();
}

void PlugIn::setHostBrowser(const std::string& userAgent) {
    std::string lower = userAgent;
    for (char& c : lower) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    // Chrome's user agent names Safari too, so the order of the tests matters.
    if (lower.find("firefox") != std::string::npos)
        _hostBrowser = "firefox";
    else if (lower.find("chrome") != std::string::npos)
        _hostBrowser = "chrome";
    else if (lower.find("safari") != std::string::npos)
        _hostBrowser = "safari";
    else
        _hostBrowser = lower;
    cv_log("Browser host: %s", _hostBrowser.c_str());
}

bool PlugIn::configure(std::map<std::string, std::string>& parameters) {
    const std::string& capacity = parameters["link-capacity"];
    if (!capacity.empty()) _linkCapacity = cv_str_atoi(capacity.c_str());
    _transferIcon = parameters["transfer-icon"];
    _dropUploadUrl = parameters["drop-upload-url"];
    return true;
}

std::string PlugIn::initSession(const std::string& appId, const std::string& domain) {
    cv_dbg("initSession\n  appId: %s\n  domain: %s", appId.c_str(), domain.c_str());
    if (_sessionInitialized) return Json::createError(kErrorSessionAlreadyInitialized);
    std::string err = isAppIdValid(appId);
    if (!err.empty()) return err;
    _appId = appId;
    _transfersPoller->setAppId(appId);
    _transfersPoller->start();
    _sessionInitialized = true;
    return "{\"app_id\":\"" + appId + "\"}";
}

std::string PlugIn::isAppIdValid(std::string appId) {
    // Only ids that start with "^" are bound to the page's host name.
    if (_pageHostname.empty() || appId.empty() || appId[0] != '^') return "";
    std::string expected = appId.substr(1);
    if (_pageHostname == expected) return "";
    cv_err("Hostname validation failed:\n  Expected: %s\n  Got: %s", _pageHostname.c_str(), expected.c_str());
    return Json::createError(kErrorBadAppIdHostname + ": " + _pageHostname);
}

std::string PlugIn::kestrixHttpRequest(const std::string& method, const std::string& path,
                                       const std::string& data, HttpResponse** response) {
    cv_dbg("kestrixHttpRequest\n  method: %s\n  path: %s\n  data: %s", method.c_str(), path.c_str(),
           data.c_str());
    *response = nullptr;
    std::string err = requestLineError(method, path);
    if (!err.empty()) return err;
    std::string body = data.empty() ? "{}" : data;
    err = isJsonValid(body);
    if (!err.empty()) return err;
    if (!KestrixApp::launch()) {
        cv_err("%s", kErrorKestrixRequest.c_str());
        return Json::createError(kErrorKestrixRequest);
    }
    std::unique_ptr<HttpRequest> request(Utils::createHttpRequest(method, path, body, kContentTypeJson));
    if (!request) return Json::createError(kErrorCreatingHttpRequest);
    *response = request->invoke();
    request.reset();
    if (!*response) {
        cv_err("%s", kErrorKestrixRequest.c_str());
        return Json::createError(kErrorKestrixRequest);
    }
    return "";
}

std::string PlugIn::kestrixHttpRequestAsync(const std::string& method, const std::string& path,
                                            const std::string& data, Callback* callback) {
    cv_dbg("kestrixHttpRequestAsync\n  method: %s\n  path: %s\n  data: %s", method.c_str(), path.c_str(),
           data.c_str());
    // The callback belongs to us from here on: to the request once queued.
    std::unique_ptr<Callback> ownedCallback(callback);
    std::string err = requestLineError(method, path);
    if (!err.empty()) return err;
    std::string body = data.empty() ? "{}" : data;
    err = isJsonValid(body);
    if (!err.empty()) return err;
    // No launch here: the worker makes sure the client answers before it sends.
    HttpRequest* request = Utils::createHttpRequest(method, path, body, kContentTypeJson);
    if (!request) return Json::createError(kErrorCreatingHttpRequest);
    request->setCallback(ownedCallback.release());
    _requestWorker->addRequest(request);
    return "";
}

std::string PlugIn::queryBuildVersion() const {
    return kPluginVersion;
}

std::string PlugIn::queryPluginVersion() const {
    return kPluginVersion;
}

std::string PlugIn::queryVersion() const {
    return kShortVersion;
}

std::string PlugIn::queryKestrixVersion() {
    std::string path = "/v" + kKestrixApiVersion + "/kestrix/version";
    std::string body = "{\"corvane_kestrix_settings\":{\"app_id\":\"version request\"}}";
    HttpResponse* response = nullptr;
    std::string err = kestrixHttpRequest(HttpRequest::kGetMethod, path, body, &response);
    std::unique_ptr<HttpResponse> owned(response);
    if (!err.empty()) return err;
    if (!owned || owned->data().empty()) return Json::createError(kErrorKestrixVersion);
    return owned->data();
}

std::string PlugIn::queryBrowserEngine(PlugInHostApi_e api) const {
    switch (api) {
        case kPlugInHostWebKit:
            return "WebKit";
        case kPlugInHostMSHTML:
            return "MSHTML";
        case kPlugInHostGecko:
            return "Gecko";
    }
    return "Unknown";
}

bool PlugIn::displayTransferManager() {
    TransferManagerWindow window;
    return window.show("");
}

bool PlugIn::displayAboutWindow() {
    AboutWindow window;
    return window.show("");
}

bool PlugIn::displayPreferencesWindow() {
    PreferencesWindow window;
    return window.show("");
}

// ---------------------------------------------------------------------------
// Transfer authorisation

void PlugIn::addToApprovedFileList(const std::vector<std::string>& paths) {
    for (const std::string& path : paths) pathsSelectedByUser.insert(normaliseApprovedPath(path));
}

bool PlugIn::isFileAllowed(std::string path) {
    // Exact membership only: a folder on the list does not approve what is inside it.
    return pathsSelectedByUser.count(normaliseApprovedPath(path)) != 0;
}

void PlugIn::setLastSelectedPath(const std::string& path) {
    _lastSelectedPath = withForwardSlashes(path);
    cv_dbg("setLastSelectedPath() - %s", _lastSelectedPath.c_str());
}

bool PlugIn::allowDestRoot(const std::string& destination) const {
    std::string d = withForwardSlashes(destination);
    size_t length = _lastSelectedPath.size();
    if (length == 0 || d.size() < length) return false;
    // Only the destination's first byte is tested, against the set of bytes
    // of the chosen folder, not the folder as a prefix. Pages in the field
    // rely on this exact rule, so it stays as it is.
    if (d.find_first_of(_lastSelectedPath) != 0) return false;
    if (d.size() == length) return true;
    return d[length] == '/';
}

namespace {

// A key that stands twice in one object is read here as its first
// occurrence, while the local client may well take the last one. Where the
// check depends on such a key, the body is refused rather than guessed at.
const char* duplicatedKey(yajl_val object, std::initializer_list<const char*> keys) {
    if (!YAJL_IS_OBJECT(object)) return nullptr;
    for (const char* key : keys) {
        int seen = 0;
        for (size_t i = 0; i < object->u.object.len; ++i)
            if (strcmp(object->u.object.keys[i], key) == 0 && ++seen > 1) return key;
    }
    return nullptr;
}

yajl_val member(yajl_val object, const char* key) {
    const char* path[] = {key, nullptr};
    return object ? yajl_tree_get(object, path, yajl_t_any) : nullptr;
}

}  // namespace

std::string PlugIn::isJsonValid(std::string body) {
    Json json;
    if (!json.parse(body)) return Json::createError(kErrorJsonParse + ": " + json.err());
    auto invalid = [](const std::string& key) {
        return Json::createError(kErrorInvalidArgument + ": " + key);
    };
    // The tree holds C strings: a value with a NUL inside reads cut short
    // here while the local client gets all of it. The rules cannot vouch
    // for what they did not read, so a NUL in a value of a member they read
    // (by name, wherever it stands) refuses the body.
    auto cutShort = [&json](const char* key) { return json.nulInValueOf(key); };

    yajl_val root = json.root();
    const char* appIdPath[] = {"corvane_kestrix_settings", "app_id", nullptr};
    std::string appId = json.getString(appIdPath);
    if (cutShort("app_id")) return invalid("app_id");
    if (!appId.empty()) {
        std::string err = isAppIdValid(appId);
        if (!err.empty()) return err;
    }

    const char* ambiguous = duplicatedKey(root, {"corvane_kestrix_settings", "transfer_specs"});
    if (!ambiguous) ambiguous = duplicatedKey(member(root, "corvane_kestrix_settings"), {"app_id"});
    if (ambiguous) return invalid(ambiguous);

    const char* specsPath[] = {"transfer_specs", nullptr};
    yajl_val specs = json.get(specsPath);
    if (!YAJL_IS_ARRAY(specs) || specs->u.array.len == 0) return "";

    // Only the first transfer spec is examined.
    yajl_val spec = specs->u.array.values[0];
    yajl_val transferSpec = member(spec, "transfer_spec");
    ambiguous = duplicatedKey(spec, {"corvane_kestrix_settings", "transfer_spec"});
    if (!ambiguous)
        ambiguous =
            duplicatedKey(member(spec, "corvane_kestrix_settings"), {"use_absolute_destination_path"});
    if (!ambiguous)
        ambiguous = duplicatedKey(transferSpec, {"direction", "destination_root", "source_root", "paths"});
    if (ambiguous) return invalid(ambiguous);
    const char* absolutePath[] = {"corvane_kestrix_settings", "use_absolute_destination_path", nullptr};
    const char* directionPath[] = {"transfer_spec", "direction", nullptr};
    bool absolute = json.isTrue(absolutePath, spec);
    std::string direction = json.getString(directionPath, spec);
    if (cutShort("direction")) return invalid("direction");

    if (absolute && direction == "receive") {
        const char* rootPath[] = {"transfer_spec", "destination_root", nullptr};
        std::string root = json.getString(rootPath, spec);
        if (cutShort("destination_root")) return invalid("destination_root");
        if (!allowDestRoot(root))
            return Json::createError(kErrorUnauthorizedDownloadPath + ": " +
                                     PathEscaper::toJsonStr(root, false));
    }
    if (direction != "send") return "";

    const char* sourceRootPath[] = {"transfer_spec", "source_root", nullptr};
    std::string sourceRoot = json.getString(sourceRootPath, spec);
    if (cutShort("source_root")) return invalid("source_root");
    if (sourceRoot.empty()) {
        sourceRoot = "/";
    } else {
        sourceRoot = withForwardSlashes(sourceRoot);
        if (sourceRoot.back() != '/') sourceRoot += '/';
    }

    const char* pathsPath[] = {"transfer_spec", "paths", nullptr};
    yajl_val paths = json.get(pathsPath, spec);
    const std::string invalidPaths = invalid("paths");
    if (!YAJL_IS_ARRAY(paths)) return invalidPaths;

    for (size_t i = 0; i < paths->u.array.len; ++i) {
        yajl_val entry = paths->u.array.values[i];
        // Anything but an object, or a source that is not a string, could
        // hide a path from the check below: refuse the whole body.
        if (!YAJL_IS_OBJECT(entry)) return invalidPaths;
        for (size_t m = 0; m < entry->u.object.len; ++m) {
            if (std::string(entry->u.object.keys[m]) != "source") continue;
            yajl_val value = entry->u.object.values[m];
            if (!YAJL_IS_STRING(value)) return invalidPaths;
            if (cutShort("source")) return invalid("source");
            std::string src = withForwardSlashes(YAJL_GET_STRING(value));
            if (!src.empty() && src[0] == '/') src.erase(0, 1);
            std::string full = sourceRoot + src;
            if (!isFileAllowed(full))
                return Json::createError(kErrorUnauthorizedUploadPath + ": " +
                                         PathEscaper::toJsonStr(full, false));
        }
    }
    return "";
}

bool PlugIn::startDownload(std::string source) {
    cv_log("PlugIn::startDownload()");
    cv_log("  %s", source.c_str());
    return download({source}, "");
}

bool PlugIn::startDownloadToPath(std::string source, std::string destination) {
    return download({source}, destination);
}

bool PlugIn::startListDownloadToPath(std::string destination) {
    return download(_downloadList, destination);
}

namespace {

// Whether the user chose every one of these paths in a file panel or by a
// drop. The first that nobody chose is logged and answers false: a page
// may upload nothing else, and one such path refuses the whole upload.
// Both script layers (the plug-in's and the native host's) come through
// here, so neither can forget it.
bool allChosenByUser(const std::vector<std::string>& paths) {
    for (const std::string& path : paths) {
        if (path.empty() || !PlugIn::isFileAllowed(path)) {
            cv_err("%s is not part of authorized list:\n  ", path.c_str());
            return false;
        }
    }
    return true;
}

}  // namespace

bool PlugIn::startUploadToURL(const std::string& path, const std::string& url) {
    return allChosenByUser({path}) && upload({path}, url);
}

bool PlugIn::startListUploadToURL(const std::string& url) {
    return allChosenByUser(_uploadList) && upload(_uploadList, url);
}

bool PlugIn::uploadDroppedFiles(const std::vector<std::string>& paths) {
    return upload(paths, _dropUploadUrl);
}

void PlugIn::addToDownloadList(const std::string& source) {
    _downloadList.push_back(source);
}

void PlugIn::addToUploadList(const std::string& source) {
    _uploadList.push_back(source);
}

void PlugIn::clearDownloadList() {
    _downloadList.clear();
}

void PlugIn::clearUploadList() {
    _uploadList.clear();
}

bool PlugIn::download(const std::vector<std::string>& sources, const std::string& destination,
                      const std::string& /*unusedName*/, unsigned /*unusedFlags*/, bool /*unusedOption*/) {
    cv_dbg("Plugin::download() to %s", destination.c_str());
    if (!destination.empty()) {
        if (!allowDestRoot(destination)) {
            cv_err("%s: %s", kErrorUnauthorizedDownloadPath.c_str(), destination.c_str());
            return false;
        }
        cv_log("Accepted download to %s (user selected %s)", destination.c_str(), _lastSelectedPath.c_str());
    }
    // Each chosen folder allows one download.
    _lastSelectedPath.clear();
    Transfer transfer;
    transfer.setSource(sources);
    transfer.setDestination(destination.empty() ? "" : PathEscaper::toFileUrl(destination));
    return transfer.request();
}

bool PlugIn::upload(const std::vector<std::string>& sources, const std::string& destination,
                    const std::string& /*unusedName*/, unsigned /*unusedFlags*/) {
    cv_dbg("Plugin::upload()");
    _lastSelectedPath.clear();
    std::vector<std::string> urls;
    urls.reserve(sources.size());
    for (const std::string& source : sources) urls.push_back(PathEscaper::toFileUrl(source));
    Transfer transfer;
    transfer.setSource(urls);
    transfer.setDestination(destination);
    return transfer.request();
}

// ---------------------------------------------------------------------------
// Reading chosen files

const PlugIn::TextAllocator PlugIn::kMallocText = {malloc, free};

namespace {

// Checks shared by whole-file and chunk reads: approved, and a regular file.
// Fills stat and answers "" when the file may be read, else the error document.
std::string checkReadable(const std::string& path, cv_stat_t& stat) {
    if (!PlugIn::isFileAllowed(path)) {
        cv_err("%s is not part of authorized list:\n  ", path.c_str());
        return Json::createError(kErrorNotAuthorizedFileTypeArgument + ": " + path);
    }
    stat = cv_stat_t();
    // A failed stat leaves no type, which reads as "not a regular file".
    cv_file_stat(path.c_str(), &stat, 0);
    if (stat.type != CV_FTYPE_REG) {
        cv_err("%s is an invalid file:\n  ", path.c_str());
        return Json::createError(kErrorFileTypeArgument + ": " + path);
    }
    return "";
}

PlugIn::AllocatedText allocatedCopy(const std::string& text, const PlugIn::TextAllocator& alloc) {
    char* data = static_cast<char*>(alloc.allocate(text.size() + 1));
    if (!data) return {nullptr, 0};
    memcpy(data, text.c_str(), text.size() + 1);
    return {data, text.size()};
}

std::string takeText(PlugIn::AllocatedText text) {
    if (!text.data) throw std::bad_alloc();
    std::string copy(text.data, text.length);
    free(text.data);
    return copy;
}

// Large blocks are backed by huge pages where the system allows it on
// request: a 50 MiB file then costs a few dozen page faults instead of
// some seventeen thousand. Only whole huge pages inside the block are
// advised, so nothing outside it changes.
void adviseHugePages(char* block, size_t size) {
    const uintptr_t kHuge = uintptr_t(2) << 20;
    uintptr_t first = (reinterpret_cast<uintptr_t>(block) + kHuge - 1) & ~(kHuge - 1);
    uintptr_t end = (reinterpret_cast<uintptr_t>(block) + size) & ~(kHuge - 1);
    if (end > first) (void)madvise(reinterpret_cast<void*>(first), end - first, MADV_HUGEPAGE);
}

// Reads count bytes of the open file (one read call, the count compared
// afterwards) and answers "data:<type>;base64,<the bytes>", closing fd on
// every way out. The answer's block, of its final size, is allocated
// before the read: the bytes are read into its tail and encoded in place
// from the front. The encoder writes 4 characters for every 3 bytes and
// its last character lands where the last raw byte ends, so it never
// overwrites a byte it has yet to read; one block, each page of it
// touched once, is all the memory a read takes.
PlugIn::AllocatedText readAsDataUrl(const std::string& path, const cv_stat_t& stat, cv_file_t& fd,
                                    uint64_t count, const PlugIn::TextAllocator& alloc) {
    const std::string prefix = "data:" + Utils::getMimeType(path, stat) + ";base64,";
    // A count the block could never hold (a wrapped chunk range, or more
    // than the address space) is read as a short read, without trying.
    const uint64_t limit = (uint64_t(SIZE_MAX) - prefix.size() - 4) / 4 * 3;
    char* block = nullptr;
    size_t encodedSize = 0;
    if (count <= stat.size && count < limit) {
        encodedSize = 4 * ((static_cast<size_t>(count) + 2) / 3);
        block = static_cast<char*>(alloc.allocate(prefix.size() + encodedSize + 1));
    }
    size_t got = 0;
    char* raw = nullptr;
    if (block) {
        if (count >= (uint64_t(4) << 20)) adviseHugePages(block, prefix.size() + encodedSize + 1);
        raw = block + prefix.size() + encodedSize - count;
        cv_file_read(&fd, raw, static_cast<size_t>(count), &got);
    }
    cv_file_close(&fd);
    if (!block || got != count) {
        cv_err("%s file unable to read %d", path.c_str(), errno);
        if (block) alloc.release(block);
        return allocatedCopy(kErrorFileIOError + ": " + path, alloc);
    }
    if (cv_str_buf_to_base64(raw, got, block + prefix.size(), encodedSize + 1) != 0) {
        cv_err("error converting to  base64 %s  ", path.c_str());
        alloc.release(block);
        return allocatedCopy(kErrorStringEncoding, alloc);
    }
    memcpy(block, prefix.data(), prefix.size());
    return {block, prefix.size() + encodedSize};
}

}  // namespace

PlugIn::AllocatedText PlugIn::readFileAsArrayBuffer(const std::string& path, const TextAllocator& alloc) {
    cv_stat_t stat;
    std::string refusal = checkReadable(path, stat);
    if (!refusal.empty()) return allocatedCopy(refusal, alloc);

    if (stat.size > kMaxReadFileSize) {
        cv_err("%s file exceeded max file size - max file size is 50MB  ", path.c_str());
        return allocatedCopy(kErrorFileSizeExceeded + ": " + path, alloc);
    }
    cv_file_t fd = CV_FILE_INVALID;
    if (cv_file_open(path.c_str(), &fd, CV_FILE_READ, 0) != 0) {
        cv_err("%s file unable to open %d", path.c_str(), errno);
        return allocatedCopy(kErrorFileIOError + ": " + path, alloc);
    }
    return readAsDataUrl(path, stat, fd, stat.size, alloc);
}

PlugIn::AllocatedText PlugIn::readFileChunkAsArrayBuffer(const std::string& path, uint64_t offset,
                                                         uint64_t chunkSize, const TextAllocator& alloc) {
    cv_stat_t stat;
    std::string refusal = checkReadable(path, stat);
    if (!refusal.empty()) return allocatedCopy(refusal, alloc);

    // Unsigned 64-bit arithmetic: a sum that wraps round passes this test.
    if (stat.size < offset + chunkSize) {
        cv_err("%s file exceeded max file size - max file size is 50MB  ", path.c_str());
        return allocatedCopy(kErrorInvalidReadChunkValue, alloc);
    }
    cv_file_t fd = CV_FILE_INVALID;
    if (cv_file_open(path.c_str(), &fd, CV_FILE_READ, 0) != 0) {
        cv_err("%s file unable to open %d", path.c_str(), errno);
        return allocatedCopy(kErrorFileIOError + ": " + path, alloc);
    }
    if (cv_file_seek(&fd, static_cast<int64_t>(offset), SEEK_SET, nullptr) != 0) {
        cv_err("%s file unable to read %d", path.c_str(), errno);
        cv_file_close(&fd);
        return allocatedCopy(kErrorFileIOError + ": " + path, alloc);
    }
    return readAsDataUrl(path, stat, fd, chunkSize, alloc);
}

std::string PlugIn::readFileAsArrayBuffer(const std::string& path) {
    return takeText(readFileAsArrayBuffer(path, kMallocText));
}

std::string PlugIn::readFileChunkAsArrayBuffer(const std::string& path, uint64_t offset, uint64_t chunkSize) {
    return takeText(readFileChunkAsArrayBuffer(path, offset, chunkSize, kMallocText));
}

}  // namespace Web
}  // namespace Kestrix
