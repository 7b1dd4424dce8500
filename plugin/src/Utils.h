// Request building for the local client, logging set-up, error texts,
// drop descriptions and MIME types.
#pragma once

#include <exception>
#include <string>
#include <vector>

#include "cv_file.h"

namespace Kestrix {
namespace Web {

class HttpRequest;

enum ContentType_e {
    kContentTypeJson = 0,  // "application/vnd.corvane.xferreq+json"
    kContentTypeXml = 1    // "application/vnd.corvane.xferreq+xml"
};

class Utils {
public:
    // Null when no client URL is known. The caller owns the request.
    static HttpRequest* createHttpRequest(ContentType_e type);
    static HttpRequest* createHttpRequest(const std::string& method, const std::string& path,
                                          const std::string& body, ContentType_e type);
    static std::string contentTypeText(ContentType_e type);

    static std::string errorCodeToStr(int code);
    static void logInit();
    static void logCleanup();
    // A check against programming errors that stays on in release builds:
    // a false `condition` is logged and printed as "Assertion failed: <text>
    // (<source>, line <line>)" and ends the process.
    static void checkOrAbort(bool condition, const char* text, const char* source, int line);
    static void logException(const std::exception& e);
    static void logException(const std::string& context, const std::exception& e);
    static std::string setCurrentDirToUserHome();
    static std::string toJsonStr(const std::vector<std::string>& items);
    static std::string createExtendedObject(const std::vector<std::string>& paths);
    static std::string getMimeType(const std::string& path, const cv_stat_t& stat);
    static bool isSaveDialogOpen(void* handle);
    static void closeSaveDialog(void* handle);
};

}  // namespace Web
}  // namespace Kestrix
