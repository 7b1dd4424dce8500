#include "Json.h"

#include <stdio.h>
#include <string.h>
#include <yajl/yajl_parse.h>

#include "cv_log.h"

namespace Kestrix {
namespace Web {

namespace {

// What the event parser's callbacks see of the document.
struct ScanState {
    int depth = 0;
    bool tooDeep = false;
    // The last event was a member name: a string now is that member's value.
    bool afterKey = false;
    std::string key;
    std::set<std::string>* keysWithNul = nullptr;
};

ScanState& state(void* ctx) {
    return *static_cast<ScanState*>(ctx);
}

int onScalar(void* ctx) {
    state(ctx).afterKey = false;
    return 1;
}
int onNull(void* ctx) {
    return onScalar(ctx);
}
int onBoolean(void* ctx, int) {
    return onScalar(ctx);
}
// Numbers stay text, as in the tree, so that no number fails here that the
// tree would take.
int onNumber(void* ctx, const char*, size_t) {
    return onScalar(ctx);
}

int onString(void* ctx, const unsigned char* text, size_t length) {
    ScanState& s = state(ctx);
    if (s.afterKey && memchr(text, '\0', length)) s.keysWithNul->insert(s.key);
    s.afterKey = false;
    return 1;
}

int onKey(void* ctx, const unsigned char* key, size_t length) {
    ScanState& s = state(ctx);
    s.key.assign(reinterpret_cast<const char*>(key), length);
    s.afterKey = true;
    return 1;
}

// Returning 0 cancels the parse at once.
int onStart(void* ctx) {
    ScanState& s = state(ctx);
    s.afterKey = false;
    if (++s.depth > Json::kMaxDepth) {
        s.tooDeep = true;
        return 0;
    }
    return 1;
}

int onEnd(void* ctx) {
    ScanState& s = state(ctx);
    s.afterKey = false;
    --s.depth;
    return 1;
}

const yajl_callbacks kScanCallbacks = {onNull,  onBoolean, nullptr, nullptr, onNumber, onString,
                                       onStart, onKey,     onEnd,   onStart, onEnd};

}  // namespace

Json::Json() : _tree(nullptr) {
    _errorBuffer[0] = '\0';
}

Json::~Json() {
    if (_tree) yajl_tree_free(_tree);
}

bool Json::parse(const std::string& text) {
    if (_tree) {
        yajl_tree_free(_tree);
        _tree = nullptr;
    }
    _errorBuffer[0] = '\0';
    _keysWithNul.clear();
    if (!scan(text)) return false;
    _tree = yajl_tree_parse(text.c_str(), _errorBuffer, sizeof(_errorBuffer));
    return _tree != nullptr;
}

bool Json::scan(const std::string& text) {
    ScanState s;
    s.keysWithNul = &_keysWithNul;
    yajl_handle handle = yajl_alloc(&kScanCallbacks, nullptr, &s);
    if (!handle) {
        snprintf(_errorBuffer, sizeof(_errorBuffer), "out of memory");
        return false;
    }
    // The tree parser allows comments; so must this pass, or the two would
    // disagree about which texts are JSON.
    yajl_config(handle, yajl_allow_comments, 1);
    const unsigned char* bytes = reinterpret_cast<const unsigned char*>(text.data());
    // As in the tree parser, the final call's status is the one that counts
    // (and it leaves the position its message points at): the texts of our
    // parse errors stay the ones pages have always seen.
    yajl_parse(handle, bytes, text.size());
    bool ok = yajl_complete_parse(handle) == yajl_status_ok && !s.tooDeep;
    if (s.tooDeep) {
        snprintf(_errorBuffer, sizeof(_errorBuffer), "nested deeper than the limit of %d levels", kMaxDepth);
    } else if (!ok) {
        unsigned char* message = yajl_get_error(handle, 1, bytes, text.size());
        snprintf(_errorBuffer, sizeof(_errorBuffer), "%s", message ? reinterpret_cast<char*>(message) : "");
        if (message) yajl_free_error(handle, message);
    }
    yajl_free(handle);
    if (!ok) _keysWithNul.clear();
    return ok;
}

std::string Json::err() const {
    return _errorBuffer;
}

yajl_val Json::get(const char** path, yajl_val node) const {
    yajl_val from = node ? node : _tree;
    if (!from || !path) return nullptr;
    return yajl_tree_get(from, path, yajl_t_any);
}

bool Json::isTrue(const char** path, yajl_val node) const {
    return YAJL_IS_TRUE(get(path, node));
}

std::string Json::getString(const char** path, yajl_val node) const {
    yajl_val v = get(path, node);
    if (YAJL_IS_STRING(v)) return YAJL_GET_STRING(v);
    // The raw text keeps the number as the page wrote it ("12.50", not 12.5).
    if (YAJL_IS_NUMBER(v) && YAJL_GET_NUMBER(v)) return YAJL_GET_NUMBER(v);
    return "";
}

bool Json::containsError() const {
    const char* path[] = {"error", nullptr};
    return YAJL_IS_OBJECT(_tree) && get(path) != nullptr;
}

std::string Json::createError(const std::string& message) {
    return "{\"error\":{\"code\":-1,\"user_message\":\"" + message + "\"}}";
}

std::string Json::createError(const std::exception& e) {
    return createError(std::string(e.what()));
}

std::string Json::createError(const std::exception& e, const std::string& context) {
    return createError(context + ": " + e.what());
}

std::string Json::createErrorAndLog(const std::string& message) {
    cv_err("%s", message.c_str());
    return createError(message);
}

std::string Json::createErrorAndLog(const std::exception& e) {
    return createErrorAndLog(std::string(e.what()));
}

std::string Json::createErrorAndLog(const std::exception& e, const std::string& context) {
    return createErrorAndLog(context + ": " + e.what());
}

}  // namespace Web
}  // namespace Kestrix
