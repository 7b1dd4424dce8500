// The save panel on Linux: corvane-dialog in "save" mode (see
// LinuxPanelProcess).
#pragma once

#include <string>
#include <vector>

#include "LinuxPanelDialogImpl.h"

namespace Kestrix {
namespace Web {

class LinuxSaveFileDialogImpl : public LinuxPanelDialogImpl {
public:
    // `parentWindow` is the browser's X window the panel stays above, or 0.
    LinuxSaveFileDialogImpl(const std::string& title, const std::string& suggestedName,
                            const std::string& fileTypes, const std::string& browserName,
                            unsigned long parentWindow = 0);
    std::vector<std::string> doShow() override;

    // The program's arguments for this panel: the suggested name, and the
    // allowed types worked out from the filter and the name's extension.
    // Throws std::runtime_error on a bad file-type filter.
    std::vector<std::string> panelArguments() const override;

private:
    std::string _suggestedName;
};

}  // namespace Web
}  // namespace Kestrix
