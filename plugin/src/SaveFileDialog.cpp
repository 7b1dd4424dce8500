#include "SaveFileDialog.h"

#include <exception>

#include "DialogImplFactory.h"
#include "Json.h"
#include "Messages.h"
#include "PathEscaper.h"
#include "cv_log.h"

namespace Kestrix {
namespace Web {

SaveFileDialog::SaveFileDialog(void* parent, const std::string& title, const std::string& suggestedName,
                               const std::string& fileTypes)
    : _fileTypes(fileTypes), _interrupted(false), _parent(parent), _suggestedName(suggestedName), _title(title) {
    cv_dbg("SaveFileDialog::SaveFileDialog() - suggestedName=%s", suggestedName.c_str());
}

SaveFileDialog::~SaveFileDialog() = default;

bool SaveFileDialog::init(const std::string& browserName) {
    _impl = DialogImplFactory::createSaveDialog(_parent, _title, _suggestedName, _fileTypes, browserName);
    return true;
}

bool SaveFileDialog::isInterrupted() const { return _interrupted; }

unsigned long SaveFileDialog::result() const { return _impl ? static_cast<unsigned long>(_impl->state()) : 0; }

std::string SaveFileDialog::resultStr() const { return _resultStr; }

void* SaveFileDialog::getSystemDialog() const { return _impl ? _impl->systemDialog() : nullptr; }

std::vector<std::string> SaveFileDialog::show() { return showHelper(true); }

std::vector<std::string> SaveFileDialog::showHelper(bool withTimeout) {
    _resultStr.clear();
    _paths.clear();
    if (!_impl)
        return _paths;
    _impl->setTimeout(withTimeout ? IDialogImpl::kShowTimeoutSeconds : 0);
    _paths = _impl->doShow();
    _resultStr = _paths.empty() ? "null" : PathEscaper::toJsonStr(_paths.front(), true);
    return _paths;
}

void SaveFileDialog::run() {
    if (_interrupted)
        return;
    try {
        showHelper(false);
    } catch (const std::exception& e) {
        _resultStr = Json::createErrorAndLog(e, kErrorUnexpectedSaveDialog);
    }
}

void SaveFileDialog::stop() {
    _interrupted = true;
    if (_impl)
        _impl->doClose();
}

}  // namespace Web
}  // namespace Kestrix
