// The open-file and folder panel on Linux: corvane-dialog in "open" or
// "folder" mode (see LinuxPanelProcess).
#pragma once

#include <string>
#include <vector>

#include "LinuxPanelDialogImpl.h"

namespace Kestrix {
namespace Web {

class LinuxOpenFileDialogImpl : public LinuxPanelDialogImpl {
public:
    // `parentWindow` is the browser's X window the panel stays above, or 0.
    LinuxOpenFileDialogImpl(const std::string& title, bool allowDirectories, bool allowMultiple,
                            const std::string& fileTypes, bool foldersOnly, const std::string& browserName,
                            unsigned long parentWindow = 0);
    std::vector<std::string> doShow() override;

    // The program's arguments for this panel. Throws std::runtime_error on
    // a bad file-type filter.
    std::vector<std::string> panelArguments() const override;

private:
    // Asked for, but GTK cannot offer files and folders in one panel.
    [[maybe_unused]] bool _allowDirectories;
    bool _allowMultiple;
    bool _foldersOnly;
};

}  // namespace Web
}  // namespace Kestrix
