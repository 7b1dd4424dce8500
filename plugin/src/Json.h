// A parsed JSON document (a yajl tree) and the one builder of the error
// document that every page-facing failure is reported with.
#pragma once

#include <exception>
#include <string>

#include <yajl/yajl_tree.h>

namespace Kestrix {
namespace Web {

class Json {
public:
    Json();
    ~Json();
    Json(const Json&) = delete;
    Json& operator=(const Json&) = delete;

    // Frees any earlier tree; true when the text parsed.
    bool parse(const std::string& text);
    // The parser's message for the last failed parse.
    std::string err() const;
    // The root, null before a successful parse.
    yajl_val root() const { return _tree; }

    // path: a null-terminated list of keys, read below node (the root when null).
    yajl_val get(const char** path, yajl_val node = nullptr) const;
    // The value exists and is the literal true (the string "true" is not).
    bool isTrue(const char** path, yajl_val node = nullptr) const;
    // A string as it is, a number as written in the source, else "".
    std::string getString(const char** path, yajl_val node = nullptr) const;
    // The root is an object with an "error" member of any type.
    bool containsError() const;

    // {"error":{"code":-1,"user_message":"<message>"}}. The message goes in
    // as it stands: callers double the backslashes of paths, nothing else is
    // escaped.
    static std::string createError(const std::string& message);
    static std::string createError(const std::exception& e);
    static std::string createError(const std::exception& e, const std::string& context);
    static std::string createErrorAndLog(const std::string& message);
    static std::string createErrorAndLog(const std::exception& e);
    static std::string createErrorAndLog(const std::exception& e, const std::string& context);

private:
    yajl_val _tree;
    char _errorBuffer[1024];
};

}  // namespace Web
}  // namespace Kestrix
