#include "OpenFileDialog.h"

#include "DialogImplFactory.h"
#include "Messages.h"
#include "PathEscaper.h"
#include "Utils.h"
#include "cv_log.h"

namespace Kestrix {
namespace Web {

OpenFileDialog::OpenFileDialog(void* parent, const std::string& title, bool allowDirectories,
                               bool allowMultiple, const std::string& fileTypes, bool extended)
    : PanelDialog(parent, title),
      _allowDirectories(allowDirectories),
      _allowMultiple(allowMultiple),
      _fileTypes(fileTypes),
      _extended(extended) {
    cv_log("OpenFileDialog() - title=%s, allowDirectories=%u, allowMultiple=%u, fileTypes=%s", title.c_str(),
           static_cast<unsigned>(allowDirectories), static_cast<unsigned>(allowMultiple), fileTypes.c_str());
}

bool OpenFileDialog::init(const std::string& browserName) {
    _impl = DialogImplFactory::createOpenDialog(_parent, _title, _allowDirectories, _allowMultiple,
                                                _fileTypes, false, browserName);
    return true;
}

std::string OpenFileDialog::resultFor(const std::vector<std::string>& paths) const {
    return _extended ? Utils::createExtendedObject(paths) : PathEscaper::toJsonStr(paths);
}

const std::string& OpenFileDialog::unexpectedErrorMessage() const {
    return kErrorUnexpectedFileDialog;
}

}  // namespace Web
}  // namespace Kestrix
