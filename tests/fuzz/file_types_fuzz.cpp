// A page's file-type filter as the panels read it, and the extension a save
// panel derives from a suggested name.
#include <stdexcept>
#include <vector>

#include "DialogUtils.h"
#include "FuzzEnv.h"
#include "PlatformUtils.h"

using Kestrix::Web::DialogUtils;
using Kestrix::Web::FileType;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text = fuzzText(data, size);
    DialogUtils::extensionOfSuggestedName(text);
    std::vector<FileType> types;
    try {
        types = DialogUtils::parseFileTypesJson(text);
    } catch (const std::runtime_error&) {
        return 0;
    }
    // An accepted filter has a name and at least one extension per entry.
    for (const FileType& type : types) {
        if (type.extensions.empty()) __builtin_trap();
        DialogUtils::findExtension(types, type.extensions.back());
    }
    Kestrix::Web::PlatformUtils::createFileTypes(types);
    return 0;
}
