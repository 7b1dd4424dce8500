// The Mac panels behind the dialog objects. The parent window is not
// needed: the panels run application-modally.
#include "DialogImplFactory.h"

#import "MacOpenFileDialogImpl.h"
#import "MacSaveFileDialogImpl.h"

namespace Kestrix {
namespace Web {

std::unique_ptr<IDialogImpl> DialogImplFactory::createOpenDialog(void*, const std::string& title,
                                                                 bool allowDirectories, bool allowMultiple,
                                                                 const std::string& fileTypes,
                                                                 bool foldersOnly,
                                                                 const std::string& browserName) {
    return std::make_unique<MacOpenFileDialogImpl>(title, allowDirectories, allowMultiple, fileTypes,
                                                   foldersOnly, browserName);
}

std::unique_ptr<IDialogImpl> DialogImplFactory::createSaveDialog(void*, const std::string& title,
                                                                 const std::string& suggestedName,
                                                                 const std::string& fileTypes,
                                                                 const std::string& browserName) {
    return std::make_unique<MacSaveFileDialogImpl>(title, suggestedName, fileTypes, browserName);
}

}  // namespace Web
}  // namespace Kestrix
