// The open-file and folder panel on Linux: corvane-dialog in "open" or
// "folder" mode (see LinuxPanelProcess).
#pragma once

#include <string>
#include <vector>

#include "IDialogImpl.h"
#include "LinuxPanelProcess.h"

namespace Kestrix {
namespace Web {

class LinuxOpenFileDialogImpl : public IDialogImpl {
public:
    // `parentWindow` is the browser's X window the panel stays above, or 0.
    LinuxOpenFileDialogImpl(const std::string& title, bool allowDirectories, bool allowMultiple,
                            const std::string& fileTypes, bool foldersOnly, const std::string& browserName,
                            unsigned long parentWindow = 0);
    ~LinuxOpenFileDialogImpl() override;

    void doClose() override;
    void doOnTimeout() override;
    std::vector<std::string> doShow() override;
    void* systemDialog() override { return this; }

    // The program's arguments for this panel. Throws std::runtime_error on
    // a bad file-type filter.
    std::vector<std::string> panelArguments() const;

private:
    // Asked for, but GTK cannot offer files and folders in one panel.
    [[maybe_unused]] bool _allowDirectories;
    bool _allowMultiple;
    std::string _browserName;
    std::string _fileTypes;
    LinuxPanelProcess _panel;
    bool _foldersOnly;
    bool _timedOut;
    std::string _title;
    unsigned long _parentWindow;
};

}  // namespace Web
}  // namespace Kestrix
