// What the two Linux panels share: the settings both take, the program run
// that shows them (see LinuxPanelProcess), closing and the time-out.
#pragma once

#include <string>
#include <vector>

#include "IDialogImpl.h"
#include "LinuxPanelProcess.h"

namespace Kestrix {
namespace Web {

class LinuxPanelDialogImpl : public IDialogImpl {
public:
    void doClose() override;
    void doOnTimeout() override;
    void* systemDialog() override { return this; }

    // The program's arguments for this panel. Throws std::runtime_error on
    // a bad file-type filter.
    virtual std::vector<std::string> panelArguments() const = 0;

protected:
    // `className` and `kind` ("open", "save") only name the panel in the
    // log. `parentWindow` is the browser's X window the panel stays above,
    // or 0.
    LinuxPanelDialogImpl(const char* className, const char* kind, const std::string& title,
                         const std::string& fileTypes, const std::string& browserName,
                         unsigned long parentWindow);
    // One show with panelArguments(): the guard when a time-out is set and
    // the browser gets one, the alert when the guard closed the panel, and
    // the state the run leaves. Answers the chosen paths of an accepted
    // panel, else none.
    std::vector<std::string> showPanel();

    std::string _browserName;
    std::string _fileTypes;
    LinuxPanelProcess _panel;
    bool _timedOut;
    std::string _title;
    unsigned long _parentWindow;

private:
    const char* _className;
    const char* _kind;
};

}  // namespace Web
}  // namespace Kestrix
