#include "OpenFileDialog.h"

#include <exception>

#include "DialogImplFactory.h"
#include "Json.h"
#include "Messages.h"
#include "PathEscaper.h"
#include "Utils.h"
#include "cv_log.h"

namespace Kestrix {
namespace Web {

OpenFileDialog::OpenFileDialog(void* parent, const std::string& title, bool allowDirectories,
                               bool allowMultiple, const std::string& fileTypes, bool extended)
    : _allowDirectories(allowDirectories),
      _allowMultiple(allowMultiple),
      _fileTypes(fileTypes),
      _interrupted(false),
      _parent(parent),
      _title(title),
      _extended(extended) {
    cv_log("OpenFileDialog() - title=%s, allowDirectories=%u, allowMultiple=%u, fileTypes=%s", title.c_str(),
           static_cast<unsigned>(allowDirectories), static_cast<unsigned>(allowMultiple), fileTypes.c_str());
}

OpenFileDialog::~OpenFileDialog() = default;

bool OpenFileDialog::init(const std::string& browserName) {
    _impl = DialogImplFactory::createOpenDialog(_parent, _title, _allowDirectories, _allowMultiple, _fileTypes,
                                                false, browserName);
    return true;
}

bool OpenFileDialog::isInterrupted() const { return _interrupted; }

unsigned long OpenFileDialog::result() const { return _impl ? static_cast<unsigned long>(_impl->state()) : 0; }

std::string OpenFileDialog::resultStr() const { return _resultStr; }

void* OpenFileDialog::getSystemDialog() const { return _impl ? _impl->systemDialog() : nullptr; }

std::vector<std::string> OpenFileDialog::show() { return showHelper(true); }

std::vector<std::string> OpenFileDialog::showHelper(bool withTimeout) {
    _resultStr.clear();
    _paths.clear();
    if (!_impl)
        return _paths;
    _impl->setTimeout(withTimeout ? IDialogImpl::kShowTimeoutSeconds : 0);
    _paths = _impl->doShow();
    _resultStr = _extended ? Utils::createExtendedObject(_paths) : PathEscaper::toJsonStr(_paths);
    return _paths;
}

void OpenFileDialog::run() {
    if (_interrupted)
        return;
    try {
        showHelper(false);
    } catch (const std::exception& e) {
        _resultStr = Json::createErrorAndLog(e, kErrorUnexpectedFileDialog);
    }
}

void OpenFileDialog::stop() {
    _interrupted = true;
    if (_impl)
        _impl->doClose();
}

}  // namespace Web
}  // namespace Kestrix
