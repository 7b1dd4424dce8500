#include "KestrixApp.h"

#include <atomic>
#include <fstream>
#include <memory>
#include <mutex>
#include <vector>

#include "File.h"
#include "FileSystem.h"
#include "HttpRequest.h"
#include "HttpResponse.h"
#include "Messages.h"
#include "PlatformUtils.h"
#include "Utils.h"
#include "cv_file.h"
#include "cv_log.h"
#include "cv_path.h"
#include "cv_process.h"
#include "cv_str.h"
#include "cv_thread.h"

namespace Kestrix {
namespace Web {

namespace {

const char kUrlFile[] = "/var/run/http.uri";
const char kPidFile[] = "/var/run/process.pid";
const char kAppPathFile[] = "/etc/corvanekestrix.path";
const char kKestrixProcessName[] = "corvanekestrix";
const char kExitBody[] = "{'agent':'Corvane.Kestrix', 'message' : 'Installing update!'}";

const int kLaunchPollMs = 100;
const int kDefaultLaunchTimeoutMs = 20000;

// The cached URL is shared by the browser's thread and the workers. It is
// cleared and refilled in separate steps, so another thread may briefly
// see it empty (its request then fails once); the lock only keeps each
// copy whole.
std::mutex& appUrlMutex() {
    static std::mutex m;
    return m;
}
Url _appUrl;

std::mutex& binPathMutex() {
    static std::mutex m;
    return m;
}
std::string _binPath;

std::atomic<int> _launchTimeoutMs{kDefaultLaunchTimeoutMs};

bool debugAtLeast(unsigned level) {
    return cv_dbg_get_all() >= level;
}

std::string urlFilePath() {
    return FileSystem::kestrixAppDataPath() + kUrlFile;
}

void clearCachedUrl() {
    std::lock_guard<std::mutex> lock(appUrlMutex());
    _appUrl.clear();
}

// The folder named on the first line of the client's path file, or "".
std::string configuredAppFolder() {
    std::ifstream in(FileSystem::kestrixAppDataPath() + kAppPathFile);
    std::string line;
    if (!std::getline(in, line)) return "";
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return line;
}

bool isKestrixPid(int pid) {
    return pid != -1 && pid != -2;
}

}  // namespace

Url KestrixApp::url() {
    {
        std::lock_guard<std::mutex> lock(appUrlMutex());
        if (!_appUrl.url.empty()) return _appUrl;
        _appUrl.clear();
    }

    Url fresh;
    try {
        const std::string path = urlFilePath();
        if (debugAtLeast(2)) cv_dbg("Reading Corvane Kestrix URL from %s", path.c_str());
        File file(path);
        const std::string text = file.read();
        if (!text.empty()) {
            // The whole text is parsed: the key lines end up in the last
            // field, which the callers never look at.
            fresh = Url(text);
            if (debugAtLeast(2)) cv_dbg("Read Corvane Kestrix URL: %s", fresh.url.c_str());
        } else if (debugAtLeast(2)) {
            cv_dbg("Failed to read Corvane Kestrix URL from %s", path.c_str());
        }
        // Only for the debug line it leaves in the log.
        kestrixUUID();
    } catch (const std::exception& e) {
        cv_err("Failed to get Kestrix URL: %s", e.what());
        return Url();
    }

    std::lock_guard<std::mutex> lock(appUrlMutex());
    _appUrl = fresh;
    return _appUrl;
}

std::string KestrixApp::kestrixUUID() {
    try {
        const std::string path = urlFilePath();
        if (debugAtLeast(2)) cv_dbg("Reading Corvane Kestrix UUID from %s", path.c_str());
        File file(path);
        const std::string text = file.read();
        if (text.empty()) {
            if (debugAtLeast(2)) cv_dbg("Failed to read Corvane UUID from %s", path.c_str());
            return "";
        }
        // Everything after the first line, trailing newline and all; a file
        // without a newline is taken whole.
        const size_t newline = text.find('\n');
        const std::string key = newline == std::string::npos ? text : text.substr(newline + 1);
        if (debugAtLeast(2)) cv_dbg("Kestrix UUID: %s", key.c_str());
        return key;
    } catch (const std::exception& e) {
        cv_err("Failed to get Kestrix UUID: %s", e.what());
        return "";
    }
}

int KestrixApp::pid() {
    File file(FileSystem::kestrixAppDataPath() + kPidFile);
    return cv_str_atoi(file.read().c_str());
}

std::string KestrixApp::binPath() {
    std::lock_guard<std::mutex> lock(binPathMutex());
    if (!_binPath.empty()) return _binPath;

    const std::string firstFolder = configuredAppFolder();
    if (!firstFolder.empty() && debugAtLeast(1))
        cv_dbg("Kestrix path in corvanekestrix.path: %s", firstFolder.c_str());

    const std::vector<std::string> folders = PlatformUtils::applicationSearchFolders(firstFolder);
    std::vector<const char*> dirs;
    for (const std::string& folder : folders) dirs.push_back(folder.c_str());
    dirs.push_back(nullptr);

    char found[CV_MAX_PATH];
    if (cv_path_find_file_in_paths(PlatformUtils::applicationFileName().c_str(), dirs.data(), found,
                                   sizeof(found)) != 0) {
        cv_err("Failed to determine Corvane Kestrix executable path");
        return "";
    }
    cv_log("Corvane Kestrix executable path: %s", found);
    _binPath = found;
    return _binPath;
}

bool KestrixApp::isRunning() {
    const std::string versionPath = "/v" + kKestrixApiVersion + "/kestrix/version";
    // Each round needs a port different from the one before, so a URL file
    // that still names the dead port ends the loop.
    for (;;) {
        std::unique_ptr<HttpRequest> request(
            Utils::createHttpRequest(HttpRequest::kGetMethod, versionPath, "", kContentTypeJson));
        if (!request) return false;
        std::unique_ptr<HttpResponse> response(request->invoke());
        request.reset();
        if (response) return true;

        unsigned short stalePort;
        {
            std::lock_guard<std::mutex> lock(appUrlMutex());
            stalePort = _appUrl.port(0);
            _appUrl.clear();
        }
        // The client may have restarted on another port.
        const Url fresh = url();
        if (fresh.url.empty() || fresh.port(0) == stalePort) return false;
    }
}

bool KestrixApp::launch() {
    if (isRunning()) return true;
    // A worker that is being stopped had its question cut short: the
    // client may well be running, and nobody waits for it any more.
    if (HttpAbort::thisThreadAborted()) return false;

    const std::string path = binPath();
    if (path.empty()) return false;

    const std::string command = PlatformUtils::launchCommand(path);
    const std::string announcement = kMsgKestrixLaunch + " - Command: " + command;
    // The announcement is the format itself: a '%' in the path is taken as
    // a conversion, as it always has been.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    cv_log(announcement.c_str());
#pragma GCC diagnostic pop

    pid_t child = 0;
    const int code = cv_process_create(&child, command.c_str());
    if (code != 0) {
        const std::string failure = "Failed to launch Corvane Kestrix: " + Utils::errorCodeToStr(code) +
                                    " (" + std::to_string(code) + ")";
        cv_err("%s", failure.c_str());
        return false;
    }
    PlatformUtils::launchCommandStarted(static_cast<int>(child));

    const int timeoutMs = _launchTimeoutMs.load();
    cv_log("Waiting %dms for Corvane Kestrix to launch", timeoutMs);
    clearCachedUrl();

    if (timeoutMs < 1) {
        cv_log("Warning: Timed out waiting for Corvane Kestrix to launch");
        return false;
    }

    // Only the sleeps count towards the time-out, not the requests.
    int waitedMs = 0;
    bool seenProcess = false;
    for (;;) {
        if (isRunning()) break;
        if (HttpAbort::thisThreadAborted()) return false;
        const int sleepCode = cv_thread_sleep(kLaunchPollMs);
        if (sleepCode != 0) {
            cv_err("Warning: Thread sleep failed (%d)", sleepCode);
            return false;
        }
        waitedMs += kLaunchPollMs;

        const int kestrixPid = PlatformUtils::getKestrixPid();
        const bool running = isKestrixPid(kestrixPid);
        if (!running && seenProcess) {
            cv_log("Warning: Corvane Kestrix process exited");
            return false;
        }
        if (running && !seenProcess) {
            cv_log("Corvane Kestrix process started (pid: %d)", kestrixPid);
            seenProcess = true;
        }
        if (waitedMs >= timeoutMs) break;
    }

    if (waitedMs < timeoutMs) {
        if (debugAtLeast(2)) cv_dbg("Waited %dms for Kestrix to launch and write URL file", waitedMs);
        return true;
    }
    cv_log("Warning: Timed out waiting for Corvane Kestrix to launch");
    return false;
}

bool KestrixApp::terminate() {
    std::unique_ptr<HttpRequest> request(Utils::createHttpRequest(kContentTypeJson));
    if (!request) return true;
    request->path = "/v" + kKestrixApiVersion + "/kestrix/exit";
    request->method = HttpRequest::kPostMethod;
    request->appendData(kExitBody);
    std::unique_ptr<HttpResponse> response(request->invoke());
    request.reset();
    if (!response) return true;
    // A client too old to know the exit call is stopped the hard way.
    if (response->statusCode() == 404) KillProcesses(kKestrixProcessName);
    return response->statusCode() != 403;
}

int KestrixApp::launchTimeoutMs() {
    return _launchTimeoutMs.load();
}

void KestrixApp::setLaunchTimeoutMs(int ms) {
    _launchTimeoutMs.store(ms);
}

void KestrixApp::resetCache() {
    clearCachedUrl();
    std::lock_guard<std::mutex> lock(binPathMutex());
    _binPath.clear();
}

int KillProcesses(const std::string& name) {
    PlatformUtils::killProcessesByName(name);
    return 0;
}

}  // namespace Web
}  // namespace Kestrix
