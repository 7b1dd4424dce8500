// Reading a page's file-type filter and the questions panels ask of it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "FileType.h"

namespace Kestrix {
namespace Web {

class DialogUtils {
public:
    // The filter [{"filter_name": "...", "extensions": ["...", ...]}, ...].
    // Empty text means no filter (an empty list). Anything else that is not
    // such an array of entries, each with a string name and at least one
    // extension, all strings, throws std::runtime_error(kErrorInvalidFileTypesJson).
    static std::vector<FileType> parseFileTypesJson(const std::string& json);

    // Index of the first entry holding exactly `ext` (case counts), or -1.
    static int32_t findExtension(const std::vector<FileType>& types, const std::string& ext);

    // The extension a save panel offers for a suggested file name: the text
    // after the last ".", none for names of the "Smith et al" kind, and none
    // when it has 5 or more characters (so "notes.markdown" offers none).
    static std::string extensionOfSuggestedName(const std::string& suggestedName);
};

}  // namespace Web
}  // namespace Kestrix
