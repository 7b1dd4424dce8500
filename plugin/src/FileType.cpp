#include "FileType.h"

#include <utility>

namespace Kestrix {
namespace Web {

FileType::FileType(std::string name, std::vector<std::string> extensions)
    : name(std::move(name)), extensions(std::move(extensions)) {}

}  // namespace Web
}  // namespace Kestrix
