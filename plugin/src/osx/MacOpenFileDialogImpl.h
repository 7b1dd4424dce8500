// The open-file and folder panel on macOS: an NSOpenPanel run
// application-modally, with the optional time-out guard.
#pragma once

#include <string>
#include <vector>

#import "MacPanelDialogImpl.h"

namespace Kestrix {
namespace Web {

class MacOpenFileDialogImpl : public MacPanelDialogImpl {
public:
    MacOpenFileDialogImpl(const std::string& title, bool allowDirectories, bool allowMultiple,
                          const std::string& fileTypes, bool foldersOnly, const std::string& browserName);

    std::vector<std::string> doShow() override;

private:
    bool _allowDirectories;
    bool _allowMultiple;
    bool _foldersOnly;
};

}  // namespace Web
}  // namespace Kestrix
