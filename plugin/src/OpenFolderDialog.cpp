#include "OpenFolderDialog.h"

#include <exception>

#include "DialogImplFactory.h"
#include "Json.h"
#include "Messages.h"
#include "PathEscaper.h"
#include "Utils.h"

namespace Kestrix {
namespace Web {

OpenFolderDialog::OpenFolderDialog(void* parent, const std::string& title, bool allowMultiple, bool extended)
    : _allowMultiple(allowMultiple), _interrupted(false), _parent(parent), _title(title), _extended(extended) {}

OpenFolderDialog::~OpenFolderDialog() = default;

bool OpenFolderDialog::init(const std::string& browserName) {
    _impl = DialogImplFactory::createOpenDialog(_parent, _title, true, _allowMultiple, "", true, browserName);
    return true;
}

bool OpenFolderDialog::isInterrupted() const { return _interrupted; }

unsigned long OpenFolderDialog::result() const {
    return _impl ? static_cast<unsigned long>(_impl->state()) : 0;
}

std::string OpenFolderDialog::resultStr() const { return _resultStr; }

void* OpenFolderDialog::getSystemDialog() const { return _impl ? _impl->systemDialog() : nullptr; }

std::vector<std::string> OpenFolderDialog::show() { return showHelper(true); }

std::vector<std::string> OpenFolderDialog::showHelper(bool withTimeout) {
    _resultStr.clear();
    _paths.clear();
    if (!_impl)
        return _paths;
    _impl->setTimeout(withTimeout ? IDialogImpl::kShowTimeoutSeconds : 0);
    _paths = _impl->doShow();
    _resultStr = _extended ? Utils::createExtendedObject(_paths) : PathEscaper::toJsonStr(_paths);
    return _paths;
}

void OpenFolderDialog::run() {
    if (_interrupted)
        return;
    try {
        showHelper(false);
    } catch (const std::exception& e) {
        _resultStr = Json::createErrorAndLog(e, kErrorUnexpectedFolderDialog);
    }
}

void OpenFolderDialog::stop() {
    _interrupted = true;
    if (_impl)
        _impl->doClose();
}

}  // namespace Web
}  // namespace Kestrix
