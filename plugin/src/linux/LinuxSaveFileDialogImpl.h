// The save panel on Linux: corvane-dialog in "save" mode (see
// LinuxPanelProcess).
#pragma once

#include <string>
#include <vector>

#include "IDialogImpl.h"
#include "LinuxPanelProcess.h"

namespace Kestrix {
namespace Web {

class LinuxSaveFileDialogImpl : public IDialogImpl {
public:
    // `parentWindow` is the browser's X window the panel stays above, or 0.
    LinuxSaveFileDialogImpl(const std::string& title, const std::string& suggestedName,
                            const std::string& fileTypes, const std::string& browserName,
                            unsigned long parentWindow = 0);
    ~LinuxSaveFileDialogImpl() override;

    void doClose() override;
    void doOnTimeout() override;
    std::vector<std::string> doShow() override;
    void* systemDialog() override { return this; }

    // The program's arguments for this panel: the suggested name, and the
    // allowed types worked out from the filter and the name's extension.
    // Throws std::runtime_error on a bad file-type filter.
    std::vector<std::string> panelArguments() const;

private:
    std::string _browserName;
    std::string _fileTypes;
    LinuxPanelProcess _panel;
    std::string _suggestedName;
    bool _timedOut;
    std::string _title;
    unsigned long _parentWindow;
};

}  // namespace Web
}  // namespace Kestrix
