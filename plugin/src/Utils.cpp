#include "Utils.h"

#include <time.h>

#include <cstdio>
#include <cstdlib>
#include <mutex>

#include "FileSystem.h"
#include "HttpRequest.h"
#include "KestrixApp.h"
#include "PathEscaper.h"
#include "PlatformUtils.h"
#include "Url.h"
#include "cv_error.h"
#include "cv_log.h"

namespace Kestrix {
namespace Web {

namespace {

// Set once logging is up; logInit and logCleanup each act only once.
bool kLogInitialized = false;
std::mutex& logInitMutex() {
    static std::mutex m;
    return m;
}

const unsigned kDebugLevel = 3;
const unsigned kLogFolderMode = 0700;

}  // namespace

HttpRequest* Utils::createHttpRequest(ContentType_e type) {
    Url url = KestrixApp::url();
    if (url.host.empty()) return nullptr;
    HttpRequest* request = new HttpRequest(url.host, url.port(0));
    request->addHeader("Content-Type", contentTypeText(type));
    return request;
}

HttpRequest* Utils::createHttpRequest(const std::string& method, const std::string& path,
                                      const std::string& body, ContentType_e type) {
    HttpRequest* request = createHttpRequest(type);
    if (!request) return nullptr;
    request->method = method;
    request->path = path;
    request->appendData(body);
    return request;
}

std::string Utils::contentTypeText(ContentType_e type) {
    return type == kContentTypeXml ? "application/vnd.corvane.xferreq+xml"
                                   : "application/vnd.corvane.xferreq+json";
}

std::string Utils::errorCodeToStr(int code) {
    char text[256] = {0};
    cv_platform_errstr(code, text, sizeof(text));
    return text;
}

void Utils::logInit() {
    std::lock_guard<std::mutex> lock(logInitMutex());
    if (kLogInitialized) return;
    kLogInitialized = true;
    // No installer makes the folder on every platform, and the log does
    // not create the folder of an absolute path itself.
    std::string folder = FileSystem::logFolder();
    if (!folder.empty()) cv_dir_create(folder.c_str(), kLogFolderMode, 1);
    cv_log_init(CV_LOG_FILE, FileSystem::logPath().c_str());
    cv_dbg_set(kDebugLevel);
    cv_dbg_set_all(kDebugLevel);
}

void Utils::logCleanup() {
    std::lock_guard<std::mutex> lock(logInitMutex());
    if (!kLogInitialized) return;
    kLogInitialized = false;
    cv_log_cleanup();
}

void Utils::checkOrAbort(bool condition, const char* text, const char* source, int line) {
    if (!condition) {
        cv_err("Assertion failed: %s (%s, line %d)", text, source, line);
        fprintf(stderr, "Assertion failed: %s (%s, line %d)\n", text, source, line);
        abort();
    }
}

void Utils::logException(const std::exception& e) {
    cv_err("%s", e.what());
}

void Utils::logException(const std::string& context, const std::exception& e) {
    cv_err("%s", (context + ": " + e.what()).c_str());
}

std::string Utils::setCurrentDirToUserHome() {
    return "";
}

std::string Utils::toJsonStr(const std::vector<std::string>& items) {
    std::string json = "[";
    for (size_t i = 0; i < items.size(); ++i) {
        if (i > 0) json += ",";
        json += "\"" + items[i] + "\"";
    }
    return json + "]";
}

std::string Utils::createExtendedObject(const std::vector<std::string>& paths) {
    std::string json = "{\"dataTransfer\":{\"files\":[";
    for (size_t i = 0; i < paths.size(); ++i) {
        const std::string& path = paths[i];
        if (i > 0) json += ",";
        // A path that cannot be stat'ed is still described, with zeroes.
        cv_stat_t stat = {};
        cv_file_stat(path.c_str(), &stat, 0);
        const bool isFolder = stat.type == CV_FTYPE_DIR;

        json += "{";
        char timeText[64];
        time_t modified = stat.mtime;
        if (ctime_r(&modified, timeText))
            json += "\"lastModifiedDate\":\"" + std::string(timeText).substr(0, 24) + "\",";
        json += "\"name\":" + PathEscaper::toJsonStr(path, true) + ",";
        json +=
            "\"size\":" + std::to_string(isFolder ? 0ULL : static_cast<unsigned long long>(stat.size)) + ",";
        json += "\"type\":\"" + getMimeType(path, stat) + "\"";
        json += "}";
    }
    return json + "]}}";
}

std::string Utils::getMimeType(const std::string& path, const cv_stat_t& stat) {
    if (stat.type == CV_FTYPE_DIR) return "text/directory";
    return PlatformUtils::mimeTypeForFileAtPath(path);
}

bool Utils::isSaveDialogOpen(void* handle) {
    return PlatformUtils::isSaveDialogOpen(handle);
}

void Utils::closeSaveDialog(void* handle) {
    PlatformUtils::closeSaveDialog(handle);
}

}  // namespace Web
}  // namespace Kestrix
