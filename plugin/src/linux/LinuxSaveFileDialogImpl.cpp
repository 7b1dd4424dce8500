#include "LinuxSaveFileDialogImpl.h"

#include "DialogUtils.h"
#include "FileType.h"
#include "PlatformUtils.h"
#include "cv_log.h"

namespace Kestrix {
namespace Web {

LinuxSaveFileDialogImpl::LinuxSaveFileDialogImpl(const std::string& title, const std::string& suggestedName,
                                                 const std::string& fileTypes, const std::string& browserName,
                                                 unsigned long parentWindow)
    : LinuxPanelDialogImpl("LinuxSaveFileDialogImpl", "save", title, fileTypes, browserName, parentWindow),
      _suggestedName(suggestedName) {}

std::vector<std::string> LinuxSaveFileDialogImpl::panelArguments() const {
    std::vector<std::string> args = {"--mode", "save"};
    if (!_title.empty()) args.push_back("--title=" + _title);

    std::string ext;
    if (!_suggestedName.empty()) {
        args.push_back("--name=" + _suggestedName);
        ext = DialogUtils::extensionOfSuggestedName(_suggestedName);
    }

    if (!_fileTypes.empty()) {
        std::vector<FileType> types = DialogUtils::parseFileTypesJson(_fileTypes);
        // The suggested name's own type is always among the allowed ones.
        if (!ext.empty()) types.emplace_back(ext, std::vector<std::string>{ext});
        const std::vector<std::string> allowed = PlatformUtils::createFileTypes(types);
        // A filter of "*" alone allows nothing in particular: the panel then
        // keeps its defaults, without even the all-files switch.
        if (!allowed.empty()) {
            for (const std::string& type : allowed) args.push_back("--ext=" + type);
            if (DialogUtils::findExtension(types, "*") >= 0) args.push_back("--allow-other");
        }
    } else if (!ext.empty()) {
        // The name's extension alone, without its upper-case twin.
        args.push_back("--ext=" + ext);
        args.push_back("--allow-other");
    } else {
        args.push_back("--allow-other");
    }

    if (_parentWindow) args.push_back("--parent=" + std::to_string(_parentWindow));
    return args;
}

std::vector<std::string> LinuxSaveFileDialogImpl::doShow() {
    cv_dbg("LinuxSaveFileDialogImpl::doShow()");
    std::vector<std::string> paths = showPanel();
    // A save panel answers one path.
    if (paths.size() > 1) paths.resize(1);
    return paths;
}

}  // namespace Web
}  // namespace Kestrix
