// The core behind one plug-in instance: session and host binding,
// versions, requests forwarded to the local client, transfer authorisation
// against the files the user chose, and reading those files.
#pragma once

#include <stdint.h>

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace Kestrix {
namespace Web {

class Callback;
class HttpResponse;
class RequestWorker;
class TransfersPoller;

// The browser engine family that hosts the plug-in.
// A fixed underlying type: the script layer may pass any number.
enum PlugInHostApi_e : int { kPlugInHostGecko = 0, kPlugInHostMSHTML = 1, kPlugInHostWebKit = 2 };

class PlugIn {
public:
    // Largest file that readFileAsArrayBuffer hands to a page (50 MiB).
    static const uint64_t kMaxReadFileSize = 52428800;

    PlugIn();
    ~PlugIn();
    PlugIn(const PlugIn&) = delete;
    PlugIn& operator=(const PlugIn&) = delete;

    // Sessions and versions.
    int init(int launchTimeoutMs);
    void setHostBrowser(const std::string& userAgent);
    bool configure(std::map<std::string, std::string>& parameters);
    std::string initSession(const std::string& appId, const std::string& domain);
    std::string isAppIdValid(std::string appId);
    std::string kestrixHttpRequest(const std::string& method, const std::string& path,
                                   const std::string& data, HttpResponse** response);
    std::string kestrixHttpRequestAsync(const std::string& method, const std::string& path,
                                        const std::string& data, Callback* callback);
    // What a page may put into a request line: the method must be an HTTP
    // token, the path may hold no space and no control byte (NUL included),
    // so that nothing a page passes ends the line or adds one.
    static bool isRequestMethodValid(const std::string& method);
    static bool isRequestPathValid(const std::string& path);
    std::string queryBuildVersion() const;
    std::string queryPluginVersion() const;
    std::string queryVersion() const;
    std::string queryKestrixVersion();
    std::string queryBrowserEngine(PlugInHostApi_e api) const;
    bool displayTransferManager();
    bool displayAboutWindow();
    bool displayPreferencesWindow();

    // Transfer authorisation. The approved list is shared by every instance
    // in the process and only ever grows.
    static void addToApprovedFileList(const std::vector<std::string>& paths);
    static bool isFileAllowed(std::string path);
    static const std::set<std::string>& approvedFiles() { return pathsSelectedByUser; }
    void setLastSelectedPath(const std::string& path);
    bool allowDestRoot(const std::string& destination) const;
    std::string isJsonValid(std::string body);

    bool startDownload(std::string source);
    bool startDownloadToPath(std::string source, std::string destination);
    bool startListDownloadToPath(std::string destination);
    bool startUploadToURL(const std::string& path, const std::string& url);
    bool startListUploadToURL(const std::string& url);
    bool uploadDroppedFiles(const std::vector<std::string>& paths);
    void addToDownloadList(const std::string& source);
    void addToUploadList(const std::string& source);
    void clearDownloadList();
    void clearUploadList();
    bool download(const std::vector<std::string>& sources, const std::string& destination,
                  const std::string& unusedName = "", unsigned unusedFlags = 0, bool unusedOption = false);
    bool upload(const std::vector<std::string>& sources, const std::string& destination,
                const std::string& unusedName = "", unsigned unusedFlags = 0);

    // Reading chosen files as data URLs. The answer (the data URL or an
    // error text) is built once, NUL-terminated, in one block from alloc:
    // the script layer passes the browser's allocator, so the page gets
    // the very block the file was read and encoded into. data is null when
    // alloc failed even for the error text.
    struct AllocatedText {
        char* data;
        size_t length;
    };
    struct TextAllocator {
        void* (*allocate)(size_t size);
        void (*release)(void* block);
    };
    // malloc and free.
    static const TextAllocator kMallocText;
    AllocatedText readFileAsArrayBuffer(const std::string& path, const TextAllocator& alloc);
    AllocatedText readFileChunkAsArrayBuffer(const std::string& path, uint64_t offset, uint64_t chunkSize,
                                             const TextAllocator& alloc);
    // The same answers as strings.
    std::string readFileAsArrayBuffer(const std::string& path);
    std::string readFileChunkAsArrayBuffer(const std::string& path, uint64_t offset, uint64_t chunkSize);

    // The pause between transfer-activity polls of instances made from now
    // on, in milliseconds; TransfersPoller::kDefaultIntervalMs unless a test
    // shortens it so that tearing an instance down does not wait a second.
    static void setTransfersPollIntervalMs(int intervalMs);
    static int transfersPollIntervalMs();

    // State the owner and the script layer read or set.
    const std::string& name() const { return _name; }
    void setName(const std::string& name) { _name = name; }
    const std::string& appId() const { return _appId; }
    const std::string& hostBrowser() const { return _hostBrowser; }
    const std::string& pageHostname() const { return _pageHostname; }
    void setPageHostname(const std::string& hostname) { _pageHostname = hostname; }
    const std::string& lastSelectedPath() const { return _lastSelectedPath; }
    bool sessionInitialized() const { return _sessionInitialized; }
    const std::vector<std::string>& downloadList() const { return _downloadList; }
    const std::vector<std::string>& uploadList() const { return _uploadList; }
    const std::string& transferIcon() const { return _transferIcon; }
    int32_t linkCapacity() const { return _linkCapacity; }
    const std::string& dropUploadUrl() const { return _dropUploadUrl; }
    RequestWorker* requestWorker() const { return _requestWorker.get(); }
    TransfersPoller* transfersPoller() const { return _transfersPoller.get(); }

private:
    std::string _appId;
    std::vector<std::string> _downloadList;
    std::string _hostBrowser;
    std::string _pageHostname;
    std::string _lastSelectedPath;
    std::unique_ptr<RequestWorker> _requestWorker;
    bool _sessionInitialized = false;
    std::unique_ptr<TransfersPoller> _transfersPoller;
    std::vector<std::string> _uploadList;
    std::string _transferIcon;
    int32_t _linkCapacity = 0;
    std::string _dropUploadUrl;
    std::string _name;

    static std::set<std::string> pathsSelectedByUser;
};

}  // namespace Web
}  // namespace Kestrix
