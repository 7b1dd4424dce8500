#include "DialogUtils.h"

#include <stdexcept>

#include "Json.h"
#include "Messages.h"

namespace Kestrix {
namespace Web {

namespace {

// Longer "extensions" are taken for part of the name ("notes.markdown").
const size_t kMaxSuggestedExtensionLength = 4;

[[noreturn]] void invalidFilter() {
    throw std::runtime_error(kErrorInvalidFileTypesJson);
}

FileType parseEntry(const Json& json, yajl_val entry) {
    if (!YAJL_IS_OBJECT(entry)) invalidFilter();
    const char* namePath[] = {"filter_name", nullptr};
    const char* extensionsPath[] = {"extensions", nullptr};
    yajl_val name = json.get(namePath, entry);
    yajl_val extensions = json.get(extensionsPath, entry);
    if (!YAJL_IS_STRING(name) || !YAJL_IS_ARRAY(extensions) || YAJL_GET_ARRAY(extensions)->len == 0)
        invalidFilter();

    FileType type;
    type.name = YAJL_GET_STRING(name);
    for (size_t i = 0; i < YAJL_GET_ARRAY(extensions)->len; ++i) {
        yajl_val ext = YAJL_GET_ARRAY(extensions)->values[i];
        if (!YAJL_IS_STRING(ext)) invalidFilter();
        type.extensions.emplace_back(YAJL_GET_STRING(ext));
    }
    return type;
}

}  // namespace

std::vector<FileType> DialogUtils::parseFileTypesJson(const std::string& json) {
    std::vector<FileType> types;
    if (json.empty()) return types;

    Json doc;
    if (!doc.parse(json) || !YAJL_IS_ARRAY(doc.root())) invalidFilter();
    const auto* entries = YAJL_GET_ARRAY(doc.root());
    for (size_t i = 0; i < entries->len; ++i) types.push_back(parseEntry(doc, entries->values[i]));
    return types;
}

int32_t DialogUtils::findExtension(const std::vector<FileType>& types, const std::string& ext) {
    for (size_t i = 0; i < types.size(); ++i) {
        for (const std::string& candidate : types[i].extensions) {
            if (candidate == ext) return static_cast<int32_t>(i);
        }
    }
    return -1;
}

std::string DialogUtils::extensionOfSuggestedName(const std::string& suggestedName) {
    if (suggestedName.find(kDialogEtAl) != std::string::npos) return "";
    const std::string::size_type dot = suggestedName.rfind('.');
    if (dot == std::string::npos) return "";
    std::string ext = suggestedName.substr(dot + 1);
    if (ext.size() > kMaxSuggestedExtensionLength) return "";
    return ext;
}

}  // namespace Web
}  // namespace Kestrix
