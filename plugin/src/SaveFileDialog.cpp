#include "SaveFileDialog.h"

#include "DialogImplFactory.h"
#include "Messages.h"
#include "PathEscaper.h"
#include "cv_log.h"

namespace Kestrix {
namespace Web {

SaveFileDialog::SaveFileDialog(void* parent, const std::string& title, const std::string& suggestedName,
                               const std::string& fileTypes)
    : PanelDialog(parent, title), _fileTypes(fileTypes), _suggestedName(suggestedName) {
    cv_dbg("SaveFileDialog::SaveFileDialog() - suggestedName=%s", suggestedName.c_str());
}

bool SaveFileDialog::init(const std::string& browserName) {
    _impl = DialogImplFactory::createSaveDialog(_parent, _title, _suggestedName, _fileTypes, browserName);
    return true;
}

std::string SaveFileDialog::resultFor(const std::vector<std::string>& paths) const {
    return paths.empty() ? "null" : PathEscaper::toJsonStr(paths.front(), true);
}

const std::string& SaveFileDialog::unexpectedErrorMessage() const {
    return kErrorUnexpectedSaveDialog;
}

}  // namespace Web
}  // namespace Kestrix
