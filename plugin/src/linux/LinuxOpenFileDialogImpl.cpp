#include "LinuxOpenFileDialogImpl.h"

#include "DialogUtils.h"
#include "PlatformUtils.h"
#include "cv_log.h"

namespace Kestrix {
namespace Web {

LinuxOpenFileDialogImpl::LinuxOpenFileDialogImpl(const std::string& title, bool allowDirectories,
                                                 bool allowMultiple, const std::string& fileTypes,
                                                 bool foldersOnly, const std::string& browserName,
                                                 unsigned long parentWindow)
    : LinuxPanelDialogImpl("LinuxOpenFileDialogImpl", "open", title, fileTypes, browserName, parentWindow),
      _allowDirectories(allowDirectories),
      _allowMultiple(allowMultiple),
      _foldersOnly(foldersOnly) {}

std::vector<std::string> LinuxOpenFileDialogImpl::panelArguments() const {
    // GTK offers files or folders, never both: an open panel that also
    // allows folders (_allowDirectories) chooses files.
    std::vector<std::string> args = {"--mode", _foldersOnly ? "folder" : "open"};
    if (!_title.empty()) args.push_back("--title=" + _title);
    if (_allowMultiple) args.push_back("--multiple");
    if (!_fileTypes.empty()) {
        for (const std::string& ext :
             PlatformUtils::createFileTypes(DialogUtils::parseFileTypesJson(_fileTypes)))
            args.push_back("--ext=" + ext);
    }
    if (_parentWindow) args.push_back("--parent=" + std::to_string(_parentWindow));
    return args;
}

std::vector<std::string> LinuxOpenFileDialogImpl::doShow() {
    cv_dbg("LinuxOpenFileDialogImpl::doShow()");
    return showPanel();
}

}  // namespace Web
}  // namespace Kestrix
