// Makes the platform's panels for the dialog objects, so that they never
// name a platform class. Each platform folder defines these.
#pragma once

#include <memory>
#include <string>

#include "IDialogImpl.h"

namespace Kestrix {
namespace Web {

class DialogImplFactory {
public:
    // `parent` is the browser window the panel belongs to (on X11 its
    // window id, carried in the pointer), or null. `browserName` is the
    // core's lower-case browser name; it decides whether the time-out
    // guard is armed.
    static std::unique_ptr<IDialogImpl> createOpenDialog(void* parent, const std::string& title,
                                                         bool allowDirectories, bool allowMultiple,
                                                         const std::string& fileTypes, bool foldersOnly,
                                                         const std::string& browserName);
    static std::unique_ptr<IDialogImpl> createSaveDialog(void* parent, const std::string& title,
                                                         const std::string& suggestedName,
                                                         const std::string& fileTypes,
                                                         const std::string& browserName);
};

}  // namespace Web
}  // namespace Kestrix
