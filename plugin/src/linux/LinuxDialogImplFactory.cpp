// The Linux panels behind the dialog objects.
#include <cstdint>

#include "DialogImplFactory.h"
#include "LinuxOpenFileDialogImpl.h"
#include "LinuxSaveFileDialogImpl.h"

namespace Kestrix {
namespace Web {

namespace {

// The browser hands its X window id over in the parent pointer.
unsigned long xWindowOf(void* parent) {
    return static_cast<unsigned long>(reinterpret_cast<uintptr_t>(parent));
}

}  // namespace

std::unique_ptr<IDialogImpl> DialogImplFactory::createOpenDialog(void* parent, const std::string& title,
                                                                 bool allowDirectories, bool allowMultiple,
                                                                 const std::string& fileTypes,
                                                                 bool foldersOnly,
                                                                 const std::string& browserName) {
    return std::make_unique<LinuxOpenFileDialogImpl>(title, allowDirectories, allowMultiple, fileTypes,
                                                     foldersOnly, browserName, xWindowOf(parent));
}

std::unique_ptr<IDialogImpl> DialogImplFactory::createSaveDialog(void* parent, const std::string& title,
                                                                 const std::string& suggestedName,
                                                                 const std::string& fileTypes,
                                                                 const std::string& browserName) {
    return std::make_unique<LinuxSaveFileDialogImpl>(title, suggestedName, fileTypes, browserName,
                                                     xWindowOf(parent));
}

}  // namespace Web
}  // namespace Kestrix
