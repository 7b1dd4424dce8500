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
    const std::vector<std::string> arguments = panelArguments();
    const int32_t guardSeconds =
        _timeout != 0 && LinuxPanelProcess::guardsBrowser(_browserName) ? _timeout : 0;
    _timedOut = false;
    _state = kStateShowing;
    std::vector<std::string> paths;
    const int result = _panel.run(
        this, arguments, _modal, guardSeconds, [this] { doOnTimeout(); }, paths);
    // A panel closed from outside (its page has gone, say) tells the user
    // nothing, even when the guard fired first.
    if (_timedOut && !_panel.closedFromOutside()) LinuxPanelProcess::alertTimedOut();
    _state = LinuxPanelProcess::stateForResult(result);
    if (_state != kStateAccepted) paths.clear();
    return paths;
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
