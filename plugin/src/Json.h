// A parsed JSON document (a yajl tree) and the one builder of the error
// document that every page-facing failure is reported with.
#pragma once

#include <yajl/yajl_tree.h>

#include <exception>
#include <set>
#include <string>

namespace Kestrix {
namespace Web {

class Json {
public:
    // Deeper documents are refused before any tree is built: freeing a tree
    // recurses once per level, and a page's or the client's text of a few
    // hundred kilobytes could otherwise take the browser's stack.
    static const int kMaxDepth = 1000;

    Json();
    ~Json();
    Json(const Json&) = delete;
    Json& operator=(const Json&) = delete;

    // Frees any earlier tree; true when the text parsed. All of the text is
    // read: a NUL byte in it is an error, not its end.
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
    // Whether a string that is the value of a member named `key`, anywhere
    // in the document, held a NUL byte. The tree keeps strings as C
    // strings, so such a value reads cut short at the NUL.
    bool nulInValueOf(const std::string& key) const { return _keysWithNul.count(key) != 0; }

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
    // One pass of the event parser over the whole text: checks the depth
    // and notes the keys above; fills _errorBuffer and answers false when
    // the text must not become a tree.
    bool scan(const std::string& text);

    yajl_val _tree;
    char _errorBuffer[1024];
    std::set<std::string> _keysWithNul;
};

}  // namespace Web
}  // namespace Kestrix
