#include "PanelDialog.h"

#include <exception>

#include "Json.h"

namespace Kestrix {
namespace Web {

PanelDialog::PanelDialog(void* parent, const std::string& title)
    : _parent(parent), _title(title), _interrupted(false) {}

PanelDialog::~PanelDialog() = default;

bool PanelDialog::isInterrupted() const {
    return _interrupted;
}

unsigned long PanelDialog::result() const {
    return _impl ? static_cast<unsigned long>(_impl->state()) : 0;
}

std::string PanelDialog::resultStr() const {
    return _resultStr;
}

void* PanelDialog::getSystemDialog() const {
    return _impl ? _impl->systemDialog() : nullptr;
}

std::vector<std::string> PanelDialog::show() {
    return showHelper(true, true);
}

std::vector<std::string> PanelDialog::showWithoutModality() {
    return showHelper(true, false);
}

std::vector<std::string> PanelDialog::showHelper(bool withTimeout, bool modal) {
    _resultStr.clear();
    _paths.clear();
    if (!_impl) return _paths;
    // Only a script call's own show waits for the panel, and only it has
    // the guard.
    _impl->setTimeout(withTimeout ? IDialogImpl::kShowTimeoutSeconds : 0);
    _impl->setModal(modal);
    _paths = _impl->doShow();
    _resultStr = resultFor(_paths);
    return _paths;
}

void PanelDialog::run() {
    if (_interrupted) return;
    try {
        showHelper(false, false);
    } catch (const std::exception& e) {
        _resultStr = Json::createErrorAndLog(e, unexpectedErrorMessage());
    }
}

void PanelDialog::stop() {
    _interrupted = true;
    if (_impl) _impl->doClose();
}

}  // namespace Web
}  // namespace Kestrix
