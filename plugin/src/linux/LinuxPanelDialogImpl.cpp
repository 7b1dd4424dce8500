#include "LinuxPanelDialogImpl.h"

#include "cv_log.h"

namespace Kestrix {
namespace Web {

LinuxPanelDialogImpl::LinuxPanelDialogImpl(const char* className, const char* kind, const std::string& title,
                                           const std::string& fileTypes, const std::string& browserName,
                                           unsigned long parentWindow)
    : _browserName(browserName),
      _fileTypes(fileTypes),
      _timedOut(false),
      _title(title),
      _parentWindow(parentWindow),
      _className(className),
      _kind(kind) {}

std::vector<std::string> LinuxPanelDialogImpl::showPanel() {
    return _panel.show(
        this, panelArguments(), _modal, _timeout, _browserName, [this] { doOnTimeout(); }, _timedOut, _state);
}

void LinuxPanelDialogImpl::doClose() {
    // Both panels log under the open panel's name, as the log has always read.
    cv_dbg("LinuxOpenFileDialogImpl::doClose()");
    if (_panel.isShowing()) {
        cv_log("Closing %s dialog", _kind);
        _panel.abort();
    }
}

void LinuxPanelDialogImpl::doOnTimeout() {
    cv_dbg("%s::doOnTimeout()", _className);
    _timedOut = true;
    doClose();
}

}  // namespace Web
}  // namespace Kestrix
