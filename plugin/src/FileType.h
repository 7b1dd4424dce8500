// One entry of a page's file-type filter: a display name and the extensions
// it admits, without dots. The single extension "*" stands for any file.
#pragma once

#include <string>
#include <vector>

namespace Kestrix {
namespace Web {

class FileType {
public:
    FileType() = default;
    FileType(std::string name, std::vector<std::string> extensions);

    std::string name;
    std::vector<std::string> extensions;
};

}  // namespace Web
}  // namespace Kestrix
