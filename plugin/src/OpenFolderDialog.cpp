#include "OpenFolderDialog.h"

#include "DialogImplFactory.h"
#include "Messages.h"
#include "PathEscaper.h"
#include "Utils.h"

namespace Kestrix {
namespace Web {

OpenFolderDialog::OpenFolderDialog(void* parent, const std::string& title, bool allowMultiple, bool extended)
    : PanelDialog(parent, title), _allowMultiple(allowMultiple), _extended(extended) {}

bool OpenFolderDialog::init(const std::string& browserName) {
    _impl = DialogImplFactory::createOpenDialog(_parent, _title, true, _allowMultiple, "", true, browserName);
    return true;
}

std::string OpenFolderDialog::resultFor(const std::vector<std::string>& paths) const {
    return _extended ? Utils::createExtendedObject(paths) : PathEscaper::toJsonStr(paths);
}

const std::string& OpenFolderDialog::unexpectedErrorMessage() const {
    return kErrorUnexpectedFolderDialog;
}

}  // namespace Web
}  // namespace Kestrix
