#include "PanelCall.h"

#include <exception>

#include "Messages.h"
#include "PanelDialog.h"
#include "PathEscaper.h"
#include "PlugIn.h"
#include "cv_log.h"

namespace Kestrix {
namespace Web {

const std::string& panelErrorText(PanelKind_e kind) {
    switch (kind) {
        case kPanelOpenFile:
            return kErrorUnexpectedFileDialog;
        case kPanelOpenFolder:
            return kErrorUnexpectedFolderDialog;
        case kPanelSave:
            break;
    }
    return kErrorUnexpectedSaveDialog;
}

bool runPanelCall(PanelKind_e kind, PlugIn& core, const std::function<std::unique_ptr<PanelDialog>()>& make,
                  const std::function<std::vector<std::string>(PanelDialog&)>& show,
                  const std::shared_ptr<bool>& alive, std::string* text) {
    text->clear();
    try {
        const std::unique_ptr<PanelDialog> dialog = make();
        const std::vector<std::string> paths = show(*dialog);
        if (!*alive) return false;
        switch (kind) {
            case kPanelOpenFile:
                // Chosen files may be read and uploaded; the download
                // folder stays as it was.
                PlugIn::addToApprovedFileList(paths);
                *text = PathEscaper::toColonSeparatedStr(paths);
                break;
            case kPanelOpenFolder:
                // The first folder becomes the one downloads may go to;
                // nothing is approved for reading.
                if (!paths.empty()) core.setLastSelectedPath(paths[0]);
                *text = PathEscaper::toColonSeparatedStr(paths);
                break;
            case kPanelSave:
                // The chosen path becomes the download destination; it is
                // not approved for reading.
                if (!paths.empty()) {
                    core.setLastSelectedPath(paths[0]);
                    *text = paths[0];
                }
                break;
        }
    } catch (const std::exception& e) {
        cv_err("%s: %s", panelErrorText(kind).c_str(), e.what());
        text->clear();
    }
    return true;
}

void keepAsyncPanelChoice(PanelKind_e kind, PlugIn* core, const std::vector<std::string>& paths) {
    if (paths.empty()) return;
    if (kind != kPanelSave) PlugIn::addToApprovedFileList(paths);
    if (kind != kPanelOpenFile && core) core->setLastSelectedPath(paths[0]);
}

}  // namespace Web
}  // namespace Kestrix
