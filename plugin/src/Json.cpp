#include "Json.h"

#include <string.h>

#include "cv_log.h"

namespace Kestrix {
namespace Web {

Json::Json() : _tree(nullptr) { _errorBuffer[0] = '\0'; }

Json::~Json() {
    if (_tree) yajl_tree_free(_tree);
}

bool Json::parse(const std::string& text) {
    if (_tree) {
        yajl_tree_free(_tree);
        _tree = nullptr;
    }
    _errorBuffer[0] = '\0';
    _tree = yajl_tree_parse(text.c_str(), _errorBuffer, sizeof(_errorBuffer));
    return _tree != nullptr;
}

std::string Json::err() const { return _errorBuffer; }

yajl_val Json::get(const char** path, yajl_val node) const {
    yajl_val from = node ? node : _tree;
    if (!from || !path) return nullptr;
    return yajl_tree_get(from, path, yajl_t_any);
}

bool Json::isTrue(const char** path, yajl_val node) const { return YAJL_IS_TRUE(get(path, node)); }

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

std::string Json::createError(const std::exception& e) { return createError(std::string(e.what())); }

std::string Json::createError(const std::exception& e, const std::string& context) {
    return createError(context + ": " + e.what());
}

std::string Json::createErrorAndLog(const std::string& message) {
    cv_err("%s", message.c_str());
    return createError(message);
}

std::string Json::createErrorAndLog(const std::exception& e) { return createErrorAndLog(std::string(e.what())); }

std::string Json::createErrorAndLog(const std::exception& e, const std::string& context) {
    return createErrorAndLog(context + ": " + e.what());
}

}  // namespace Web
}  // namespace Kestrix
