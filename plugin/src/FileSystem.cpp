#include "FileSystem.h"

#include <mutex>

#include "PlatformUtils.h"
#include "cv_log.h"

namespace Kestrix {
namespace Web {

namespace {

const char kKestrixFolder[] = "Corvane/Corvane Kestrix";
const char kLogFile[] = "/Corvane/corvane-kestrix-browser-plugin.log";

// The folders are asked for from the browser's thread and from the
// workers; one lock keeps the cached strings whole.
std::mutex& cacheMutex() {
    static std::mutex m;
    return m;
}

std::string cachedAppDataPath;
std::string cachedLogPath;
std::string cachedPluginPath;

}  // namespace

std::string FileSystem::appDataPath() {
    std::lock_guard<std::mutex> lock(cacheMutex());
    if (!cachedAppDataPath.empty()) return cachedAppDataPath;
    std::string folder;
    int status = PlatformUtils::userAppDataFolder(folder);
    if (status != 0) {
        // Not cached: the next call tries again.
        cv_err("Failed to determine application data directory: %d", status);
        return "";
    }
    cachedAppDataPath = folder + "/";
    cv_log("Application data directory: %s", cachedAppDataPath.c_str());
    return cachedAppDataPath;
}

std::string FileSystem::kestrixAppDataPath() {
    return appDataPath() + kKestrixFolder;
}

std::string FileSystem::logPath() {
    std::lock_guard<std::mutex> lock(cacheMutex());
    if (!cachedLogPath.empty()) return cachedLogPath;
    std::string folder;
    int status = PlatformUtils::userLogsFolder(folder);
    if (status != 0) {
        // The bare file part is kept, so the look-up is not repeated.
        cv_err("Failed to determine log directory: %d", status);
        cachedLogPath = kLogFile;
        return cachedLogPath;
    }
    cachedLogPath = folder + kLogFile;
    return cachedLogPath;
}

std::string FileSystem::logFolder() {
    std::string path = logPath();
    if (path == kLogFile) return "";
    return path.substr(0, path.rfind('/'));
}

std::string FileSystem::pluginPath() {
    std::lock_guard<std::mutex> lock(cacheMutex());
    if (!cachedPluginPath.empty()) return cachedPluginPath;
    std::string folder;
    int status = PlatformUtils::userPluginFolder(folder);
    if (status != 0) {
        cv_err("Failed to determine browser plugin directory: %d", status);
        return "";
    }
    cachedPluginPath = folder + "/";
    cv_log("Browser plugin directory: %s", cachedPluginPath.c_str());
    return cachedPluginPath;
}

void FileSystem::resetCache() {
    std::lock_guard<std::mutex> lock(cacheMutex());
    cachedAppDataPath.clear();
    cachedLogPath.clear();
    cachedPluginPath.clear();
}

}  // namespace Web
}  // namespace Kestrix
